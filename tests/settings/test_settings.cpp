// The settings file, on files in a temporary folder only.
#include "files.h"
#include "settings/settings.h"
#include "testdb.h"

#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

class TestSettings final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void readAndWriteSettings();
    void tlsSettings_data();
    void tlsSettings();
};

void TestSettings::readAndWriteSettings()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(qs("Tabulon.ini"));
    write(path, "[Software]\nCorvane\\Tabulon\\Server=\nCorvane\\Tabulon\\User=a, b\n"
                "Corvane\\Tabulon\\Database=@Variant(\\0\\0\\0\\x2\\0\\0\\0\\x5)\n"
                "Corvane\\Tabulon\\Password=pw\\0tail\n");
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

void TestSettings::tlsSettings_data()
{
    QTest::addColumn<QString>("stored"); // the TlsMode line, "" for none
    QTest::addColumn<int>("mode");       // -1: refused
    QTest::newRow("missing") << "" << int(TlsMode::Preferred);
    QTest::newRow("empty") << "TlsMode=" << int(TlsMode::Preferred);
    QTest::newRow("off") << "TlsMode=off" << int(TlsMode::Off);
    QTest::newRow("any case, blanks") << "TlsMode= Verify-CA " << int(TlsMode::VerifyCa);
    QTest::newRow("verify-identity") << "TlsMode=verify-identity" << int(TlsMode::VerifyIdentity);
    QTest::newRow("unknown") << "TlsMode=strict" << -1;
    QTest::newRow("near miss") << "TlsMode=verify_ca" << -1;
}

void TestSettings::tlsSettings()
{
    QFETCH(QString, stored);
    QFETCH(int, mode);
    QTemporaryDir dir;
    const QString path = dir.filePath(qs("Tabulon.ini"));
    write(path, (qs("[Software]\nCorvane\\Tabulon\\TlsCa=/etc/ca.pem\n") +
                 (stored.isEmpty() ? QString() : qs("Corvane\\Tabulon\\") + stored + qs("\n")))
                    .toUtf8());
    Settings s(path);
    const TlsConfig read = s.readTls();
    QCOMPARE(read.ca, qs("/etc/ca.pem"));
    if (mode < 0) {
        QCOMPARE(read.problem, qs("The setting TlsMode holds \"%1\", which is not a TLS mode. Change TlsMode in %2 to "
                                  "off, preferred, required, verify-ca or verify-identity.")
                                   .arg(stored.mid(8), path));
        return;
    }
    QCOMPARE(read.problem, QString());
    QCOMPARE(int(read.mode), mode);

    // Written back, the mode reads as its own name.
    TlsConfig written = read;
    written.cert = qs("/home/op/client.pem");
    written.key = qs("/home/op/client-key.pem");
    s.writeTls(written);
    const QSettings ini(path, QSettings::IniFormat);
    QCOMPARE(ini.value(qs("Software/Corvane/Tabulon/TlsMode")).toString(), Tls::modeText(read.mode));
    const TlsConfig again = s.readTls();
    QCOMPARE(int(again.mode), mode);
    QCOMPARE(QStringList({again.ca, again.cert, again.key}), QStringList({written.ca, written.cert, written.key}));
}

QTEST_GUILESS_MAIN(TestSettings)
#include "test_settings.moc"
