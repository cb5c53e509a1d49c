// The settings file and the start-up helpers, on files in a temporary folder only.
#include "app/settings.h"
#include "app/startup.h"
#include "db/textsplit.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;

class TestSettings final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void readsStoredEmptyMissingAndForeignValues();
    void writtenFileIsOwnerOnly();
    void splitAtLastChar_data();
    void splitAtLastChar();
    void profileKeepsOtherSections();
    void serverStartWritesCandidateAndStartsIt();
};

void TestSettings::readsStoredEmptyMissingAndForeignValues()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("Tabulon.ini"));
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("[Software]\nCorvane\\Tabulon\\Server=\nCorvane\\Tabulon\\User=a, b\n"
            "Corvane\\Tabulon\\Database=@Variant(\\0\\0\\0\\x2\\0\\0\\0\\x5)\n"
            "Corvane\\Tabulon\\Password=pw\\0tail\n");
    f.close();
    Settings s(path);
    const auto read = [&](const QString &name) {
        return s.ReadRegistryString(Hive::LocalMachine, Settings::kKey, name, QStringLiteral("DEFAULT"));
    };
    QCOMPARE(read(Settings::kServer), QString());            // stored empty: not the default
    QCOMPARE(read(Settings::kUser), QStringLiteral("a, b")); // typed by hand with a comma: as typed
    QCOMPARE(read(Settings::kDatabase), QStringLiteral("DEFAULT"));
    QCOMPARE(read(Settings::kPassword), QStringLiteral("pw")); // cut at the NUL
    QCOMPARE(read(QStringLiteral("Missing")), QStringLiteral("DEFAULT"));
}

void TestSettings::writtenFileIsOwnerOnly()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("sub/Tabulon.ini"));
    Settings s(path);
    s.WriteRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kPassword,
                          QStringLiteral("s3cret, with comma"));
    s.WriteRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kServer, QString());
    // Owner read and write, nothing for the group or others.
    const auto mode =
        QFile::permissions(path) & ~(QFileDevice::ReadUser | QFileDevice::WriteUser | QFileDevice::ExeUser);
    QCOMPARE(mode, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    QCOMPARE(s.ReadRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kPassword, QString()),
             QStringLiteral("s3cret, with comma"));
    QCOMPARE(s.ReadRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kServer, QStringLiteral("x")),
             QString());
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

void TestSettings::profileKeepsOtherSections()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("my.ini"));
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("[mysqld]\nbasedir=C:/mysql\n[WinMySqlAdmin]\nServer=old\nQueryInterval=10\n");
    f.close();
    QVERIFY(writeProfileString(path, QStringLiteral("WinMySqlAdmin"), QStringLiteral("Server"), QStringLiteral("new")));
    QVERIFY(writeProfileString(path, QStringLiteral("other"), QStringLiteral("k"), QStringLiteral("v")));
    QCOMPARE(readProfileString(path, QStringLiteral("WinMySqlAdmin"), QStringLiteral("Server"), {}),
             QStringLiteral("new"));
    QCOMPARE(readProfileString(path, QStringLiteral("winmysqladmin"), QStringLiteral("QueryInterval"), {}),
             QStringLiteral("10"));
    QCOMPARE(readProfileString(path, QStringLiteral("mysqld"), QStringLiteral("basedir"), {}),
             QStringLiteral("C:/mysql"));
    QCOMPARE(readProfileString(path, QStringLiteral("other"), QStringLiteral("k"), {}), QStringLiteral("v"));
    QCOMPARE(readProfileString(dir.filePath(QStringLiteral("none.ini")), QStringLiteral("a"), QStringLiteral("b"),
                               QStringLiteral("dflt")),
             QStringLiteral("dflt"));
}

void TestSettings::serverStartWritesCandidateAndStartsIt()
{
    QTemporaryDir dir;
    ServerStartEnvironment env;
    env.profilePath = dir.filePath(QStringLiteral("my.ini"));
    env.candidate = dir.filePath(QStringLiteral("server"));
    QStringList started;
    env.launch = [&](const QString &program) {
        started << program;
        return false; // a failed start stays silent
    };
    StartMySqlServer(env);
    QCOMPARE(started, QStringList{env.candidate});
    QCOMPARE(readProfileString(env.profilePath, QStringLiteral("WinMySqlAdmin"), QStringLiteral("Server"), {}),
             env.candidate);

    // An unwritable profile still starts the candidate.
    env.profilePath = dir.filePath(QStringLiteral("missing/dir/my.ini"));
    started.clear();
    StartMySqlServer(env);
    QCOMPARE(started, QStringList{env.candidate});
}

QTEST_GUILESS_MAIN(TestSettings)
#include "test_settings.moc"
