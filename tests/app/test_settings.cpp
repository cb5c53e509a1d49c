// The settings file and the start-up helpers, on files in a temporary folder only.
#include "app/settings.h"
#include "app/startup.h"
#include "db/textsplit.h"
#include "testdb.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

namespace {

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

} // namespace

class TestSettings final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void readAndWriteSettings();
    void splitAtLastChar_data();
    void splitAtLastChar();
    void profileAndServerStart();
};

void TestSettings::readAndWriteSettings()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(qs("Tabulon.ini"));
    QVERIFY(writeFile(path, "[Software]\nCorvane\\Tabulon\\Server=\nCorvane\\Tabulon\\User=a, b\n"
                            "Corvane\\Tabulon\\Database=@Variant(\\0\\0\\0\\x2\\0\\0\\0\\x5)\n"
                            "Corvane\\Tabulon\\Password=pw\\0tail\n"));
    Settings s(path);
    const auto read = [&s](const QString &name) {
        return s.ReadRegistryString(Hive::LocalMachine, Settings::kKey, name, qs("DEFAULT"));
    };
    QCOMPARE(read(Settings::kServer), QString()); // stored empty: not the default
    QCOMPARE(read(Settings::kUser), qs("a, b"));  // typed by hand with a comma: as typed
    QCOMPARE(read(Settings::kDatabase), qs("DEFAULT"));
    QCOMPARE(read(Settings::kPassword), qs("pw")); // cut at the NUL
    QCOMPARE(read(qs("Missing")), qs("DEFAULT"));

    // Written into a new folder, owner read and write, nothing for the group or others.
    const QString written = dir.filePath(qs("sub/Tabulon.ini"));
    Settings w(written);
    w.WriteRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kPassword, qs("s3cret, with comma"));
    w.WriteRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kServer, QString());
    const auto mode =
        QFile::permissions(written) & ~(QFileDevice::ReadUser | QFileDevice::WriteUser | QFileDevice::ExeUser);
    QCOMPARE(mode, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    QCOMPARE(w.ReadRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kPassword, QString()),
             qs("s3cret, with comma"));
    QCOMPARE(w.ReadRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kServer, qs("x")), QString());
}

void TestSettings::splitAtLastChar_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("before");
    QTest::addColumn<QString>("expected");
    QTest::newRow("after") << "D:\\data\\old.mdb" << false << "old.mdb";
    QTest::newRow("before") << "D:\\data\\old.mdb" << true << "D:\\data";
    QTest::newRow("absent") << "old.mdb" << false << "old.mdb";
    QTest::newRow("last char") << "D:\\data\\" << false << "";
}

void TestSettings::splitAtLastChar()
{
    QFETCH(QString, text);
    QFETCH(bool, before);
    QTEST(SplitAtLastChar(text, QLatin1Char('\\'), before), "expected");
}

// Writing a key keeps the other keys and sections; the server start writes its candidate there
// and starts it, also when the profile cannot be written, and a failed start stays silent.
void TestSettings::profileAndServerStart()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(qs("my.ini"));
    QVERIFY(writeFile(path, "[mysqld]\nbasedir=C:/mysql\n[WinMySqlAdmin]\nServer=old\nQueryInterval=10\n"));
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

QTEST_GUILESS_MAIN(TestSettings)
#include "test_settings.moc"
