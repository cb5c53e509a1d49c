// The settings file, on files in a temporary folder only.
#include "files.h"
#include "settings/settings.h"
#include "testdb.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

class TestSettings final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void readAndWriteSettings();
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

QTEST_GUILESS_MAIN(TestSettings)
#include "test_settings.moc"
