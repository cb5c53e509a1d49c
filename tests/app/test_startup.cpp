// The start-up helpers: the path splitter, the profile file and the server start, on files in a
// temporary folder only.
#include "app/startup.h"
#include "db/textsplit.h"
#include "files.h"
#include "testdb.h"

#include <QTemporaryDir>

using namespace tabulon;
using namespace tabulon::test;

class TestStartup final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void splitAtLastChar_data();
    void splitAtLastChar();
    void profileAndServerStart();
};

void TestStartup::splitAtLastChar_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("before");
    QTest::addColumn<QString>("expected");
    QTest::newRow("after") << "D:\\data\\old.mdb" << false << "old.mdb";
    QTest::newRow("before") << "D:\\data\\old.mdb" << true << "D:\\data";
    QTest::newRow("absent") << "old.mdb" << false << "old.mdb";
    QTest::newRow("last char") << "D:\\data\\" << false << "";
}

void TestStartup::splitAtLastChar()
{
    QFETCH(QString, text);
    QFETCH(bool, before);
    QTEST(SplitAtLastChar(text, QLatin1Char('\\'), before), "expected");
}

// Writing a key keeps the other keys and sections; the server start writes its candidate there
// and starts it, also when the profile cannot be written, and a failed start stays silent.
void TestStartup::profileAndServerStart()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(qs("my.ini"));
    write(path, "[mysqld]\nbasedir=C:/mysql\n[WinMySqlAdmin]\nServer=old\nQueryInterval=10\n");
    QVERIFY(writeProfileString(path, qs("WinMySqlAdmin"), qs("Server"), qs("new")));
    QVERIFY(writeProfileString(path, qs("other"), qs("k"), qs("v")));
    const auto read = [&path](const char *section, const char *key) {
        return readProfileString(path, qs(section), qs(key), qs("dflt"));
    };
    QCOMPARE(read("WinMySqlAdmin", "Server"), qs("new"));
    QCOMPARE(read("winmysqladmin", "QueryInterval"), qs("10"));
    QCOMPARE(read("mysqld", "basedir"), qs("C:/mysql"));
    QCOMPARE(read("other", "k"), qs("v"));
    QCOMPARE(readProfileString(dir.filePath(qs("none.ini")), qs("a"), qs("b"), qs("dflt")), qs("dflt"));

    ServerStartEnvironment env;
    env.profilePath = dir.filePath(qs("start.ini"));
    env.candidate = dir.filePath(qs("server"));
    QStringList started;
    env.launch = [&started](const QString &program) {
        started << program;
        return false;
    };
    StartMySqlServer(env);
    QCOMPARE(started, QStringList{env.candidate});
    QCOMPARE(readProfileString(env.profilePath, qs("WinMySqlAdmin"), qs("Server"), {}), env.candidate);
    env.profilePath = dir.filePath(qs("missing/dir/my.ini"));
    StartMySqlServer(env);
    QCOMPARE(started, QStringList(2, env.candidate));
}

QTEST_GUILESS_MAIN(TestStartup)
#include "test_startup.moc"
