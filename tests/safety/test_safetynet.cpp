// The safety net against the real server: copies put back give the table exactly as it was
// (checksum and CREATE TABLE) after every kind of damage, on both engines and under a strict
// mode, foreign keys and triggers with it; a damaged copy or a failing put-back leaves the
// current table alone; the folder keeps to its limits.
#include "countingprogress.h"
#include "db/progress.h"
#include "files.h"
#include "safety/checksum.h"
#include "safety/copysql.h"
#include "safety/putback.h"
#include "safety/safetynet.h"
#include "safetytest.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QTemporaryDir>

using namespace tabulon;
using namespace tabulon::test;

class TestSafetyNet final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();

    void putBackRestoresExactly_data();
    void putBackRestoresExactly();
    void refusedPutBackChangesNothing_data();
    void refusedPutBackChangesNothing();
    void damagedCopyUnreadable();
    void sharedFolderKeepsEveryCopy();
    void settingsRead_data();
    void settingsRead();
    void filesPutBack();
    void checksumKnownValues();
    void oldestCopiesGo();
    void tooBigTableAsks();
    void viewsAndQualifiedNames();
    void numberThatIsNoNumberQuoted();

private:
    DbResult<QString> copy(const QStringList &tables, const SafetySettings &settings,
                           const SafetyNet::Confirm &confirm = {},
                           SafetyNet::Reach reach = SafetyNet::Reach::WholeTable);
    // Puts a copy back, asking to stop once `stopAfter` tables have started (0: never).
    DbResult<PutBack::Summary> putBack(const QString &path, int stopAfter = 0);

    std::unique_ptr<ScratchDatabase> m_db;
    DatabaseSession m_session; // the program's session
};

// The server is set up as operators have theirs, which the put-backs below rely on: the
// default packet limit (16 MiB), names that differ in case, a strict mode, named zones, and a
// local zone an hour further from UTC in July than in January.
void TestSafetyNet::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(qs("safetynet"));
    QVERIFY_DB(m_db->error());
    QCOMPARE(
        m_db->rows(qs("SELECT @@max_allowed_packet, @@lower_case_table_names, "
                      "LOCATE('STRICT_TRANS_TABLES', @@GLOBAL.sql_mode) > 0, "
                      "CONVERT_TZ('2024-10-27 01:30:00', '+00:00', 'Europe/Oslo'), "
                      "TIMEDIFF('2024-07-01 12:00:00', CONVERT_TZ('2024-07-01 12:00:00', @@time_zone, '+00:00')) - "
                      "TIMEDIFF('2024-01-01 12:00:00', CONVERT_TZ('2024-01-01 12:00:00', @@time_zone, '+00:00'))")),
        sl({"16777216|0|1|2024-10-27 02:30:00|10000"}));
    QVERIFY_DB(openSession(m_session, m_db->name()));
}

DbResult<QString> TestSafetyNet::copy(const QStringList &tables, const SafetySettings &settings,
                                      const SafetyNet::Confirm &confirm, SafetyNet::Reach reach)
{
    DatabaseSession reader;
    if (DbError e = m_session.openSibling(reader))
        return e;
    return SafetyNet::writeTableCopy(reader, settings, qs("Save Table"), tables, confirm, {}, reach);
}

DbResult<PutBack::Summary> TestSafetyNet::putBack(const QString &path, int stopAfter)
{
    auto info = SafetyCopy::readInfo(path);
    if (!info)
        return info.error();
    CountingProgress progress(stopAfter);
    SafetySettings settings;
    settings.folder = QFileInfo(path).absolutePath();
    return PutBack::putBack(m_session, *info, progress, settings, {});
}

void TestSafetyNet::putBackRestoresExactly_data()
{
    QTest::addColumn<QString>("engine");
    QTest::addColumn<QString>("table"); // t: the awkward rows beside their case twin T; p: see below
    QTest::addColumn<QString>("mode");  // the server's mode for new sessions; empty: its default
    QTest::addColumn<QStringList>("damage");
    // Strict for every engine and without zero dates: a put-back that wrote in the session's
    // own mode would lose the zero date and the key 0 of the awkward rows.
    const QString strict = qs("STRICT_ALL_TABLES,NO_ZERO_DATE,NO_ZERO_IN_DATE,ERROR_FOR_DIVISION_BY_ZERO,"
                              "NO_ENGINE_SUBSTITUTION");
    const std::tuple<const char *, const char *, QStringList> damages[] = {
        {"t", "rows deleted", {qs("DELETE FROM t WHERE 1>0")}},
        {"t", "half rewritten", {qs("DELETE FROM t WHERE 1>0"), qs("INSERT INTO t (id, name) VALUES (7, 'O')")}},
        {"t", "values replaced", {qs("UPDATE t SET name = 'wrong' WHERE name IS NULL OR name = ''")}},
        {"t", "column dropped", {qs("ALTER TABLE t DROP COLUMN note")}},
        {"t", "column retyped", {qs("ALTER TABLE t MODIFY name INT")}},
        {"t", "table dropped", {qs("DROP TABLE t")}},
        {"p", "decimal retyped", {qs("ALTER TABLE p MODIFY price DECIMAL(8,0)")}},
        {"p", "column dropped", {qs("ALTER TABLE p DROP COLUMN price")}},
        {"p", "rows and counter gone", {qs("DELETE FROM p WHERE id > 2"), qs("ALTER TABLE p AUTO_INCREMENT = 3")}},
        {"p", "trigger dropped", {qs("DROP TRIGGER p_up"), qs("UPDATE p SET n = n + 5")}},
    };
    for (const char *engine : {"MyISAM", "InnoDB"}) {
        for (const auto &[table, name, damage] : damages)
            QTest::addRow("%s, %s, %s", engine, table, name) << qs(engine) << qs(table) << QString() << damage;
        QTest::addRow("%s, t, table dropped under a strict mode", engine)
            << qs(engine) << qs("t") << strict << sl({"DROP TABLE t"});
    }
}

// The table p has triggers, an AUTO_INCREMENT of its own and (on InnoDB) a foreign key onto
// itself and another table's pointing at it: it comes back as it was, its triggers silent while
// its rows go in, and putting back the copy the put-back wrote gives the damaged table again. Each of t
// and T goes back into its own table, whatever mode the server imposes on new sessions.
void TestSafetyNet::putBackRestoresExactly()
{
    QFETCH(QString, engine);
    QFETCH(QString, table);
    QFETCH(QString, mode);
    QFETCH(QStringList, damage);
    const QString globalMode = m_db->rows(qs("SELECT @@GLOBAL.sql_mode")).value(0);
    const auto restoreMode = qScopeGuard([&] {
        (void)m_db->admin().execute(qs("SET GLOBAL sql_mode='%1'").arg(globalMode));
        m_session.close();
        (void)openSession(m_session, m_db->name());
    });
    if (!mode.isEmpty()) {
        QVERIFY_DB(m_db->admin().execute(qs("SET GLOBAL sql_mode='%1'").arg(mode)));
        m_session.close();
        QVERIFY_DB(openSession(m_session, m_db->name()));
    }
    ScratchSafety safety;
    const bool awkward = table == qs("t");
    QVERIFY_DB(m_db->run(
        awkward
            ? awkwardTable(qs("t"), engine) + awkwardTable(qs("T"), engine) +
                  sl({"UPDATE `T` SET name = 'the upper twin' WHERE id = 1"})
            : QStringList{
                  qs("SET foreign_key_checks=0"), qs("DROP TABLE IF EXISTS c, p, plog"), qs("SET foreign_key_checks=1"),
                  qs("CREATE TABLE plog (id INT AUTO_INCREMENT PRIMARY KEY, what VARCHAR(20)) ENGINE=") + engine,
                  qs("CREATE TABLE p (id INT AUTO_INCREMENT PRIMARY KEY, price DECIMAL(8,2), n INT, up INT, CONSTRAINT "
                     "p_parent FOREIGN KEY (up) REFERENCES p (id)) AUTO_INCREMENT=100 ENGINE=") +
                      engine,
                  qs("CREATE TABLE c (id INT PRIMARY KEY, p INT, CONSTRAINT c_p FOREIGN KEY (p) REFERENCES p (id)) "
                     "ENGINE=") +
                      engine,
                  qs("INSERT INTO p VALUES (1, 12.34, 1, NULL), (2, 0.05, 2, NULL), (3, -99.99, NULL, 2)"),
                  qs("INSERT INTO c VALUES (1, 1), (2, 2)"),
                  qs("CREATE TRIGGER p_in AFTER INSERT ON p FOR EACH ROW INSERT INTO plog (what) VALUES ('insert')"),
                  qs("CREATE TRIGGER p_up BEFORE UPDATE ON p FOR EACH ROW SET NEW.n = NEW.n * 2"),
                  qs("CREATE TRIGGER p_up2 BEFORE UPDATE ON p FOR EACH ROW FOLLOWS p_up SET NEW.n = NEW.n + 1")}));
    const auto states = [this] { return tableStates(*m_db, sl({"t", "T", "p", "plog"})); };
    const QList<TableState> before = states();
    const QStringList copied = awkward ? sl({"T", "t"}) : sl({"p"});

    auto written = copy(copied + sl({"no_such_table"}), safety.settings());
    QVERIFY_DB(written.error());
    auto info = SafetyCopy::readInfo(*written);
    QVERIFY_DB(info.error());
    QCOMPARE(info->tables, copied);
    QCOMPARE(info->rows, awkward ? 8 : 3);
    QCOMPARE(info->database, m_db->name());

    QVERIFY_DB(m_db->run(damage + (awkward ? sl({"DELETE FROM `T` WHERE id > 0"}) : QStringList())));
    const QList<TableState> damaged = states();
    QVERIFY(damaged != before);
    auto done = putBack(*written);
    QVERIFY_DB(done.error());
    QCOMPARE(done->tables, copied.size());
    QCOMPARE(done->rows, info->rows);
    QCOMPARE(states(), before);
    QCOMPARE(done->notes, QStringList());
    // Nothing of the swap stays behind.
    QCOMPARE(m_db->rows(qs("SHOW TABLES LIKE 'tabulon_putback%'")), QStringList());
    if (awkward)
        return;
    if (engine == qs("InnoDB")) {
        // Its own key holds again, and c's key finds the table put back, not the one it replaced.
        QCOMPARE(m_db->admin().execute(qs("INSERT INTO p (up) VALUES (99)")).serverCode, 1452);
        QCOMPARE(m_db->admin().execute(qs("INSERT INTO c VALUES (3, 99)")).serverCode, 1452);
        QCOMPARE(m_db->admin().execute(qs("DELETE FROM p WHERE id = 1")).serverCode, 1451);
    }
    // Putting back the wrong copy loses nothing: the put-back kept what it replaced.
    const auto undo = SafetyCopy::readInfo(done->undoCopy);
    QVERIFY_DB(undo.error());
    QCOMPARE(undo->tables, sl({"p"}));
    QVERIFY_DB(putBack(done->undoCopy).error());
    QCOMPARE(states(), damaged);
}

void TestSafetyNet::refusedPutBackChangesNothing_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<QString>("told"); // empty: the copy's path
    QTest::newRow("a view took the table's name") << qs("view") << qs("t is a view");
    // Stopped after its first table, a put-back says which tables went back and which did not.
    QTest::newRow("stopped after the first table") << qs("stop") << qs("Put back: t.\nNot put back: u.");
    // One byte changed at the end of the body, a megabyte past the first table's rows: not even
    // the first table goes in.
    QTest::newRow("a byte changed past the first table") << qs("byte") << QString();
}

// A put-back that cannot go on leaves each table as it found it (or, stopped, as the copy
// holds it), nothing of its swap behind, and says why.
void TestSafetyNet::refusedPutBackChangesNothing()
{
    QFETCH(QString, fault);
    QFETCH(QString, told);
    ScratchSafety safety;
    QVERIFY_DB(m_db->run(sl({"DROP VIEW IF EXISTS t"}) + awkwardTable(qs("t"), qs("InnoDB")) +
                         sl({"DROP TABLE IF EXISTS u", "CREATE TABLE u (a LONGTEXT) ENGINE=MyISAM",
                             "INSERT INTO u VALUES (REPEAT('ab', 500000))"})));
    const TableState original = tableState(*m_db, qs("t"));
    auto written = copy({qs("t"), qs("u")}, safety.settings());
    QVERIFY_DB(written.error());
    QVERIFY_DB(m_db->run(fault == qs("view") ? sl({"DROP TABLE t", "CREATE VIEW t AS SELECT 1 AS one"})
                                             : sl({"DELETE FROM t WHERE id = 9", "DELETE FROM u"})));
    const QList<TableState> expected{fault == qs("stop") ? original : tableState(*m_db, qs("t")),
                                     tableState(*m_db, qs("u"))};
    if (fault == qs("byte")) {
        QFile file(*written);
        QVERIFY(file.open(QIODevice::ReadWrite));
        const qint64 at = file.readAll().lastIndexOf("{") - 2;
        char byte = 0;
        QVERIFY(file.seek(at) && file.getChar(&byte) && file.seek(at) && file.putChar(static_cast<char>(byte ^ 0x55)));
    }
    const auto done = putBack(*written, fault == qs("stop") ? 1 : 0);
    QVERIFY(!done);
    const QString text = done.error().description;
    QVERIFY2(text.contains(told.isEmpty() ? *written : told), qPrintable(text));
    QVERIFY2(fault != qs("stop") || text.contains(qs("as they were before")), qPrintable(text));
    QCOMPARE(tableStates(*m_db, sl({"t", "u"})), expected);
    QCOMPARE(m_db->rows(qs("SHOW TABLES LIKE 'tabulon_putback%'")), QStringList());
    if (fault == qs("view")) // refused before it copied what it would replace
        QCOMPARE(SafetyNet::listCopies(safety.settings().folder).size(), 1);
    QVERIFY_DB(m_db->run({qs("DROP VIEW IF EXISTS t")}));
}

// Cut anywhere, or any byte changed in the header (tables, command, database, time) or the
// trailer, a copy is neither read nor listed.
void TestSafetyNet::damagedCopyUnreadable()
{
    ScratchSafety safety;
    QVERIFY_DB(m_db->run(awkwardTable(qs("t"), qs("MyISAM"))));
    auto written = copy({qs("t")}, safety.settings());
    QVERIFY_DB(written.error());
    const QByteArray whole = read(*written);
    const qsizetype headerEnd = whole.indexOf("}") + 5; // the JSON header and its checksum
    const qsizetype trailerStart = whole.lastIndexOf("{");
    QVERIFY(headerEnd > 40 && trailerStart > headerEnd);
    QList<QByteArray> damaged;
    for (const qsizetype keep : {qsizetype(0), qsizetype(10), whole.size() / 2, whole.size() - 1})
        damaged << whole.left(keep);
    for (qsizetype at = 0; at < whole.size(); at = at + 1 == headerEnd ? trailerStart : at + 1) {
        for (const char flip : {char(0x01), char(0x02), char(0x80)}) {
            damaged << whole;
            damaged.last()[at] = static_cast<char>(whole[at] ^ flip);
        }
    }
    qsizetype accepted = 0;
    for (const QByteArray &bytes : std::as_const(damaged)) {
        write(*written, bytes);
        if (SafetyCopy::readInfo(*written) || !SafetyNet::listCopies(safety.settings().folder).isEmpty())
            ++accepted;
    }
    QCOMPARE(accepted, 0);
}

// Two programs sharing one safety folder, writing to the same name at the same moment: the
// second copy takes a free name beside the first, and both stay whole.
void TestSafetyNet::sharedFolderKeepsEveryCopy()
{
    ScratchSafety safety;
    QVERIFY(QDir().mkpath(safety.settings().folder));
    const QString path = QDir(safety.settings().folder).filePath(qs("20260101-000000-000") + SafetyCopy::kSuffix);
    SafetyCopyWriter first, second;
    SafetyCopyInfo a, b;
    a.command = qs("first");
    b.command = qs("second");
    a.time = b.time = QDateTime::currentDateTimeUtc();
    QVERIFY_DB(first.open(path, a));
    QVERIFY_DB(second.open(path, b));
    QVERIFY_DB(first.commit());
    QVERIFY_DB(second.commit());
    QCOMPARE(first.finalPath(), path);
    QVERIFY(second.finalPath() != path);
    QStringList commands;
    for (const SafetyCopyInfo &c : SafetyNet::listCopies(safety.settings().folder))
        commands << c.command;
    commands.sort();
    QCOMPARE(commands, sl({"first", "second"}));
}

void TestSafetyNet::settingsRead_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected"); // folder|keep|maxMB, or the setting named by the error
    QTest::newRow("folder with a comma") << qs("SafetyFolder") << qs("/tmp/a, b") << qs("/tmp/a, b|50|2048");
    QTest::newRow("keep count") << qs("SafetyKeepCount") << qs("7") << qs("|7|2048");
    QTest::newRow("keep none") << qs("SafetyKeepCount") << qs("0") << qs("SafetyKeepCount");
    QTest::newRow("keep negative") << qs("SafetyKeepCount") << qs("-3") << qs("SafetyKeepCount");
    QTest::newRow("keep in words") << qs("SafetyKeepCount") << qs("ten") << qs("SafetyKeepCount");
    QTest::newRow("size zero") << qs("SafetyMaxMB") << qs("0") << qs("SafetyMaxMB");
    QTest::newRow("size with unit") << qs("SafetyMaxMB") << qs("5MB") << qs("SafetyMaxMB");
}

// Stored settings are read as written: a wrong count or size stops every command that needs a
// copy, with a message naming the setting, instead of being replaced in silence.
void TestSafetyNet::settingsRead()
{
    QFETCH(QString, name);
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QTemporaryDir dir;
    const QString ini = dir.filePath(qs("settings.ini"));
    write(ini, (qs("[Software]\nCorvane\\Tabulon\\") + name + u'=' + text + u'\n').toUtf8());
    const QString before = SafetySettings::storePath();
    SafetySettings::useStore(ini);
    const auto read = SafetySettings::read();
    // Only a refusal is asked of the net: an accepted setting would write a copy.
    const DbError refused = read ? DbError{} : SafetyNet::protectTables(m_session, qs("Save Table"), {qs("t")});
    SafetySettings::useStore(before);
    if (expected.contains(QLatin1Char('|'))) {
        QVERIFY_DB(read.error());
        const QString folder = expected.section(QLatin1Char('|'), 0, 0);
        QCOMPARE(read->folder, folder.isEmpty() ? SafetySettings::defaultFolder() : folder);
        QCOMPARE(QString::number(read->keepCount), expected.section(QLatin1Char('|'), 1, 1));
        QCOMPARE(QString::number(read->maxMB), expected.section(QLatin1Char('|'), 2, 2));
        return;
    }
    QVERIFY(!read);
    QVERIFY2(read.error().description.contains(expected) && read.error().description.contains(ini),
             qPrintable(read.error().description));
    QCOMPARE(refused.description, read.error().description);
}

// A copy of table files puts back the bytes of the files that were there and removes the ones
// that were not.
void TestSafetyNet::filesPutBack()
{
    ScratchSafety safety;
    const QString folder = safety.dir.filePath(qs("data"));
    const auto file = [&folder](const char *name) { return QDir(folder).filePath(qs(name)); };
    QByteArray bytes(3 * 1024 * 1024 + 7, Qt::Uninitialized);
    for (qsizetype i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>((i * 7919) >> 3);
    write(file("bill.MYD"), bytes);
    write(file("bill.MYI"), QByteArray());
    auto written = SafetyNet::writeFileCopy(safety.settings(), qs("Check Tables Replace"), m_db->name(), folder,
                                            {qs("bill.MYD"), qs("bill.MYI"), qs("bill.frm")}, {});
    QVERIFY_DB(written.error());
    write(file("bill.MYD"), "other");
    write(file("bill.MYI"), "other");
    write(file("bill.frm"), "new");
    auto done = putBack(*written);
    QVERIFY_DB(done.error());
    QCOMPARE(done->tables, 3);
    QVERIFY(read(file("bill.MYD")) == bytes);
    QCOMPARE(read(file("bill.MYI")), QByteArray());
    QVERIFY(!QFileInfo::exists(file("bill.frm")));

    // The files are stored as they are; a byte changed in the body (a file's bytes, its name, a
    // checksum) puts nothing back.
    write(file("bill.MYD"), "other");
    const QByteArray whole = read(*written);
    QVERIFY(whole.contains(bytes.sliced(1024 * 1024, 4096)));
    const qsizetype body = whole.indexOf('}') + 5;
    for (const qsizetype at : {whole.indexOf("bill.MYI", body), whole.size() / 2, whole.lastIndexOf("{\"") - 1}) {
        QByteArray damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x04);
        write(*written, damaged);
        QVERIFY2(!putBack(*written), qPrintable(QString::number(at)));
        QCOMPARE(read(file("bill.MYD")), QByteArray("other"));
    }
    // A compressed copy of files, as the program wrote them before, still goes back.
    SafetyCopyInfo older;
    older.kind = SafetyCopyInfo::Kind::Files;
    older.folder = folder;
    older.tables = sl({"bill.MYD"});
    older.time = QDateTime::currentDateTimeUtc();
    SafetyCopyWriter out;
    QVERIFY_DB(out.open(QDir(safety.settings().folder).filePath(qs("older") + SafetyCopy::kSuffix), older));
    QVERIFY_DB(out.beginFile(qs("bill.MYD"), true));
    QVERIFY_DB(out.writeFileData(bytes));
    QVERIFY_DB(out.endFile());
    QVERIFY_DB(out.commit());
    QVERIFY(!read(out.finalPath()).contains(bytes.sliced(1024 * 1024, 4096)));
    QVERIFY_DB(putBack(out.finalPath()).error());
    QVERIFY(read(file("bill.MYD")) == bytes);

    // A disk that fills while a file goes back leaves the file as it is now, not cut short.
    write(file("bill.MYI"), QByteArray(8 * 1024, 'i'));
    written = SafetyNet::writeFileCopy(safety.settings(), qs("Check Tables Replace"), m_db->name(), folder,
                                       {qs("bill.MYI")}, {});
    QVERIFY_DB(written.error());
    write(file("bill.MYI"), "now");
    {
        const FileSizeLimit limit(4096);
        QVERIFY(limit.isSet());
        done = putBack(*written);
    }
    QVERIFY(!done);
    QCOMPARE(read(file("bill.MYI")), QByteArray("now"));

    // A disk that fills while the copy is written, in its first block or a later one, is an
    // error naming the folder, and no copy is left.
    const qsizetype copies = SafetyNet::listCopies(safety.settings().folder).size();
    for (const rlim_t room : {rlim_t(1000), rlim_t(2 * 1024 * 1024 + 100)}) {
        const FileSizeLimit limit(room);
        written = SafetyNet::writeFileCopy(safety.settings(), qs("Repair Tables"), m_db->name(), folder,
                                           {qs("bill.MYD")}, {});
        QVERIFY(!written && written.error().isFileError());
        QVERIFY2(written.error().description.contains(safety.settings().folder),
                 qPrintable(written.error().description));
    }
    QCOMPARE(SafetyNet::listCopies(safety.settings().folder).size(), copies);
}

// The stored body's checksum: the processor's instruction and the table give the same value,
// in one piece or in two.
void TestSafetyNet::checksumKnownValues()
{
    QByteArray odd(100003, Qt::Uninitialized);
    for (qsizetype i = 0; i < odd.size(); ++i)
        odd[i] = static_cast<char>((i * 131) >> 2);
    const quint32 whole = Checksum::crc32cByTable(0, odd);
    for (const auto crc : {&Checksum::crc32c, &Checksum::crc32cByTable}) {
        QCOMPARE(crc(0, "123456789"), 0xE3069283u);
        QCOMPARE(crc(crc(0, QByteArrayView(odd).first(77)), QByteArrayView(odd).sliced(77)), whole);
    }
}

void TestSafetyNet::oldestCopiesGo()
{
    ScratchSafety safety;
    SafetySettings settings = safety.settings();
    settings.keepCount = 3;
    QVERIFY_DB(m_db->run(awkwardTable(qs("t"), qs("MyISAM"))));
    QStringList paths;
    for (int i = 0; i < 5; ++i) {
        auto written = copy({qs("t")}, settings);
        QVERIFY_DB(written.error());
        paths << *written;
    }
    QStringList listed;
    for (const SafetyCopyInfo &c : SafetyNet::listCopies(settings.folder))
        listed << c.path;
    QCOMPARE(listed, (QStringList{paths[4], paths[3], paths[2]}));

    // Size: rows that do not compress, about 0.7 MB a copy, against a limit of 1 MB.
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS big"), qs("CREATE TABLE big (b LONGBLOB) ENGINE=MyISAM")}));
    QByteArray noise(700 * 1024, Qt::Uninitialized);
    QRandomGenerator generator(18);
    generator.fillRange(reinterpret_cast<quint32 *>(noise.data()), noise.size() / 4);
    QVERIFY_DB(m_db->admin().execute(qs("INSERT INTO big VALUES (X'") + QString::fromLatin1(noise.toHex()) + qs("')")));
    settings.keepCount = 50;
    settings.maxMB = 1;
    auto first = copy({qs("big")}, settings, [](const QString &) { return true; });
    QVERIFY_DB(first.error());
    QCOMPARE(SafetyNet::listCopies(settings.folder).size(), 4);
    // The second big one pushes out the three small ones and the first big one.
    auto second = copy({qs("big")}, settings, [](const QString &) { return true; });
    QVERIFY_DB(second.error());
    const auto left = SafetyNet::listCopies(settings.folder);
    QCOMPARE(left.size(), 1);
    QCOMPARE(left.first().path, *second);
    // Room for one copy: putting that one back keeps it as well as the copy of what it replaces.
    settings.keepCount = 1;
    NoProgress progress;
    auto undone = PutBack::putBack(m_session, left.first(), progress, settings, {});
    QVERIFY_DB(undone.error());
    QCOMPARE(SafetyNet::listCopies(settings.folder).size(), 2);
}

void TestSafetyNet::tooBigTableAsks()
{
    ScratchSafety safety;
    SafetySettings settings = safety.settings();
    settings.maxMB = 1;
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS big"), qs("CREATE TABLE big (b LONGBLOB) ENGINE=MyISAM"),
                          qs("INSERT INTO big VALUES (REPEAT('x', 1536 * 1024))")}));
    QStringList asked;
    const auto refuse = [&asked](const QString &question) {
        asked << question;
        return false;
    };
    QVERIFY(!copy({qs("big")}, settings, refuse));
    QCOMPARE(asked.size(), 1);
    QVERIFY2(asked.first().contains(qs("big")) && asked.first().contains(qs("1 MB")), qPrintable(asked.first()));
    const auto yes = copy({qs("big")}, settings, [](const QString &) { return true; });
    QVERIFY_DB(yes.error());
    // The command went on without a copy, and the list says so.
    const auto listed = SafetyNet::listCopies(settings.folder);
    QCOMPARE(listed.size(), 1);
    QVERIFY(listed.first().withoutCopy);
    QCOMPARE(listed.first().tables, sl({"big"}));
    const auto nothing = putBack(listed.first().path);
    QVERIFY(!nothing);
    QVERIFY2(nothing.error().description.contains(qs("without a safety copy")),
             qPrintable(nothing.error().description));

    // The limit is the command's: two tables under it alone but over it together ask once.
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS half"), qs("CREATE TABLE half (b LONGBLOB) ENGINE=MyISAM"),
                          qs("INSERT INTO half VALUES (REPEAT('x', 600 * 1024))"), qs("DELETE FROM big"),
                          qs("INSERT INTO big VALUES (REPEAT('x', 600 * 1024))")}));
    asked.clear();
    QVERIFY(!copy({qs("big"), qs("half")}, settings, refuse));
    QCOMPARE(asked.size(), 1);
    QVERIFY2(asked.first().contains(qs("big, half")), qPrintable(asked.first()));
    QCOMPARE(SafetyNet::listCopies(settings.folder).size(), 1);
}

// Names as the server reads them: a view stands for its tables, and otherdb.keep is a table of
// another database, not a missing one.
void TestSafetyNet::viewsAndQualifiedNames()
{
    ScratchSafety safety;
    ScratchDatabase other(qs("safetyother"));
    QVERIFY_DB(other.error());
    QVERIFY_DB(
        m_db->run({qs("DROP VIEW IF EXISTS v, vv"), qs("DROP TABLE IF EXISTS base"),
                   qs("CREATE TABLE base (id INT PRIMARY KEY, name VARCHAR(10), secret VARCHAR(10))"),
                   qs("INSERT INTO base VALUES (1, 'a', 's1'), (2, 'b', 's2')"),
                   qs("CREATE VIEW v AS SELECT b.id, b.name FROM base b"), qs("CREATE VIEW vv AS SELECT id FROM v")}));
    QVERIFY_DB(other.run({qs("CREATE TABLE keep (a INT)"), qs("INSERT INTO keep VALUES (1)")}));
    for (const char *view : {"v", "vv"}) {
        const auto listed = SafetyNet::listCopies(safety.settings().folder).size();
        const auto refused = copy({qs(view)}, safety.settings());
        QVERIFY(!refused);
        QVERIFY2(refused.error().description.contains(qs(view) + qs(", which is a view of the table(s) base:")),
                 qPrintable(refused.error().description));
        QCOMPARE(SafetyNet::listCopies(safety.settings().folder).size(), listed);
        const auto written = copy({qs(view)}, safety.settings(), {}, SafetyNet::Reach::Rows);
        QVERIFY_DB(written.error());
        const auto info = SafetyCopy::readInfo(written.value());
        QVERIFY_DB(info.error());
        QCOMPARE(info->tables, sl({"base"}));
        QCOMPARE(info->rows, 2);
    }
    const QString keep = other.name() + qs(".keep");
    const auto elsewhere = copy({keep}, safety.settings());
    QVERIFY(!elsewhere);
    QVERIFY2(elsewhere.error().description.contains(qs("of database ") + other.name()),
             qPrintable(elsewhere.error().description));
    QVERIFY_DB(copy({qs("nodb.nothing")}, safety.settings()).error()); // nothing there, nothing to lose
}

// How each kind of value is written is proven by the put-backs above; a number column's text
// that is no number is still written quoted, never as part of the statement.
void TestSafetyNet::numberThatIsNoNumberQuoted()
{
    const auto number = [](const char *text) {
        return CopySql::literal(QByteArrayView(text), CopyValueForm::Number, SessionSql::escapeDefault);
    };
    QCOMPARE(number("21"), QByteArray("21"));
    QCOMPARE(number("2 OR 1"), QByteArray("'2 OR 1'"));
}

QTEST_GUILESS_MAIN(TestSafetyNet)
#include "test_safetynet.moc"
