// The safety net against the real server: copies put back give the table exactly as it was
// (checksum and CREATE TABLE) after every kind of damage, on both engines; foreign keys
// survive; a damaged copy or a failing put-back leaves the current table alone; the folder
// keeps to its limits; a copy that cannot be written stops before anything happens.
#include "countingprogress.h"
#include "db/progress.h"
#include "files.h"
#include "safety/copysql.h"
#include "safety/putback.h"
#include "safety/safetynet.h"
#include "safetytest.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QTemporaryDir>

using namespace tabulon;
using namespace tabulon::test;

class TestSafetyNet final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    void putBackRestoresExactly_data();
    void putBackRestoresExactly();
    void foreignKeysSurvive();
    void hardTablePutBack_data();
    void hardTablePutBack();
    void viewOfSameNameRefused();
    void stoppedPutBackSaysWhat();
    void failedPutBackLeavesTableAlone();
    void copyFormRefusesDamage();
    void headerAndTrailerChecked();
    void sharedFolderKeepsEveryCopy();
    void settingsRead_data();
    void settingsRead();
    void filesPutBack();
    void oldestCopiesGo();
    void unwritableFolderStops();
    void tooBigTableAsks();
    void viewsTwinsAndQualifiedNames();
    void literals_data();
    void literals();

private:
    DbResult<QString> copy(const QStringList &tables, const SafetySettings &settings,
                           const SafetyNet::Confirm &confirm = {});
    DbResult<PutBack::Summary> putBack(const QString &path);

    std::unique_ptr<ScratchDatabase> m_db;
    DatabaseSession m_session; // the program's session
};

void TestSafetyNet::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(qs("safetynet"));
    QVERIFY_DB(m_db->error());
    QVERIFY_DB(openSession(m_session, m_db->name()));
}

void TestSafetyNet::cleanupTestCase()
{
    m_session.close();
    m_db.reset();
}

DbResult<QString> TestSafetyNet::copy(const QStringList &tables, const SafetySettings &settings,
                                      const SafetyNet::Confirm &confirm)
{
    DatabaseSession reader;
    if (DbError e = m_session.openSibling(reader))
        return e;
    return SafetyNet::writeTableCopy(reader, settings, qs("Save Table"), tables, confirm);
}

DbResult<PutBack::Summary> TestSafetyNet::putBack(const QString &path)
{
    auto info = SafetyCopy::readInfo(path);
    if (!info)
        return info.error();
    NoProgress progress;
    SafetySettings settings;
    settings.folder = QFileInfo(path).absolutePath();
    return PutBack::putBack(m_session, *info, progress, settings, {});
}

void TestSafetyNet::putBackRestoresExactly_data()
{
    QTest::addColumn<QString>("engine");
    QTest::addColumn<QStringList>("damage");
    const QStringList damages[] = {
        {qs("DELETE FROM t WHERE 1>0")},
        {qs("DELETE FROM t WHERE 1>0"), qs("INSERT INTO t (id, name) VALUES (7, 'O')")},
        {qs("UPDATE t SET name = 'wrong' WHERE name IS NULL OR name = ''")},
        {qs("ALTER TABLE t DROP COLUMN note")},
        {qs("ALTER TABLE t MODIFY name INT")},
        {qs("DROP TABLE t")},
    };
    const char *names[] = {"rows deleted",   "half rewritten", "values replaced",
                           "column dropped", "column retyped", "table dropped"};
    for (const char *engine : {"MyISAM", "InnoDB"}) {
        for (size_t i = 0; i < std::size(damages); ++i)
            QTest::addRow("%s, %s", engine, names[i]) << qs(engine) << damages[i];
    }
}

void TestSafetyNet::putBackRestoresExactly()
{
    QFETCH(QString, engine);
    QFETCH(QStringList, damage);
    ScratchSafety safety;
    QVERIFY_DB(m_db->run(awkwardTable(qs("t"), engine)));
    const TableState before = tableState(*m_db, qs("t"));
    QVERIFY(!before.checksum.isEmpty());

    auto written = copy({qs("t"), qs("no_such_table")}, safety.settings());
    QVERIFY_DB(written.error());
    auto info = SafetyCopy::readInfo(*written);
    QVERIFY_DB(info.error());
    QCOMPARE(info->tables, sl({"t"}));
    QCOMPARE(info->rows, 4);
    QCOMPARE(info->database, m_db->name());

    QVERIFY_DB(m_db->run(damage));
    QVERIFY(tableState(*m_db, qs("t")) != before);
    auto done = putBack(*written);
    QVERIFY_DB(done.error());
    QCOMPARE(done->tables, 1);
    QCOMPARE(done->rows, 4);
    QCOMPARE(tableState(*m_db, qs("t")), before);
    // Nothing of the swap stays behind.
    QCOMPARE(m_db->rows(qs("SHOW TABLES LIKE 'tabulon_putback%'")), QStringList());
}

void TestSafetyNet::foreignKeysSurvive()
{
    ScratchSafety safety;
    QVERIFY_DB(m_db->run(
        {qs("DROP TABLE IF EXISTS child, tree, parent"),
         qs("CREATE TABLE parent (id INT PRIMARY KEY, name VARCHAR(10)) ENGINE=InnoDB"),
         qs("CREATE TABLE child (id INT PRIMARY KEY, parent INT, CONSTRAINT kid_of FOREIGN KEY (parent) "
            "REFERENCES parent (id) ON DELETE CASCADE) ENGINE=InnoDB"),
         qs("CREATE TABLE tree (id INT PRIMARY KEY, up INT, CONSTRAINT tree_up FOREIGN KEY (up) REFERENCES tree (id)) "
            "ENGINE=InnoDB"),
         qs("INSERT INTO parent VALUES (1, 'a'), (2, 'b')"), qs("INSERT INTO child VALUES (10, 1), (20, 2)"),
         qs("INSERT INTO tree VALUES (1, NULL), (2, 1), (3, 2)")}));
    const TableState parent = tableState(*m_db, qs("parent"));
    const TableState child = tableState(*m_db, qs("child"));
    const TableState tree = tableState(*m_db, qs("tree"));

    auto written = copy({qs("parent"), qs("child"), qs("tree")}, safety.settings());
    QVERIFY_DB(written.error());
    // The cascade empties the child as well; the tree loses its rows.
    QVERIFY_DB(m_db->run({qs("DELETE FROM parent"), qs("SET foreign_key_checks=0"), qs("DELETE FROM tree"),
                          qs("SET foreign_key_checks=1")}));
    QVERIFY_DB(putBack(*written).error());
    QCOMPARE(tableState(*m_db, qs("parent")), parent);
    QCOMPARE(tableState(*m_db, qs("child")), child);
    QCOMPARE(tableState(*m_db, qs("tree")), tree);
    // The child's key still points at the parent put back, and still holds.
    QCOMPARE(m_db->admin().execute(qs("INSERT INTO child VALUES (30, 99)")).serverCode, 1452);
    QCOMPARE(m_db->admin().execute(qs("INSERT INTO tree VALUES (4, 99)")).serverCode, 1452);
    // Put back without its child, the parent is replaced by name: the child's key finds it.
    auto parentOnly = copy({qs("parent")}, safety.settings());
    QVERIFY_DB(parentOnly.error());
    QVERIFY_DB(m_db->run({qs("SET foreign_key_checks=0"), qs("DELETE FROM parent"), qs("SET foreign_key_checks=1")}));
    QVERIFY_DB(putBack(*parentOnly).error());
    QVERIFY_DB(m_db->admin().execute(qs("INSERT INTO child VALUES (40, 1)")));
}

void TestSafetyNet::hardTablePutBack_data()
{
    QTest::addColumn<QString>("engine");
    QTest::addColumn<QStringList>("damage");
    const QStringList damages[] = {
        {qs("ALTER TABLE p MODIFY price DECIMAL(8,0)")},
        {qs("ALTER TABLE p DROP COLUMN price")},
        {qs("DELETE FROM p WHERE id > 2"), qs("ALTER TABLE p AUTO_INCREMENT = 3")},
        {qs("DROP TRIGGER p_up"), qs("UPDATE p SET n = n + 5")},
    };
    const char *names[] = {"decimal retyped", "column dropped", "rows and counter gone", "trigger dropped"};
    for (const char *engine : {"MyISAM", "InnoDB"}) {
        for (size_t i = 0; i < std::size(damages); ++i)
            QTest::addRow("%s, %s", engine, names[i]) << qs(engine) << damages[i];
    }
}

// A table with triggers, an AUTO_INCREMENT of its own and (on InnoDB) another table's foreign
// key pointing at it comes back as it was, its triggers silent while its rows go in; putting
// back the copy the put-back wrote gives the damaged table again.
void TestSafetyNet::hardTablePutBack()
{
    QFETCH(QString, engine);
    QFETCH(QStringList, damage);
    ScratchSafety safety;
    QVERIFY_DB(m_db->run(
        {qs("SET foreign_key_checks=0"), qs("DROP TABLE IF EXISTS c, p, plog"), qs("SET foreign_key_checks=1"),
         qs("CREATE TABLE plog (id INT AUTO_INCREMENT PRIMARY KEY, what VARCHAR(20)) ENGINE=") + engine,
         qs("CREATE TABLE p (id INT AUTO_INCREMENT PRIMARY KEY, price DECIMAL(8,2), n INT) AUTO_INCREMENT=100 "
            "ENGINE=") +
             engine,
         qs("CREATE TABLE c (id INT PRIMARY KEY, p INT, CONSTRAINT c_p FOREIGN KEY (p) REFERENCES p (id)) ENGINE=") +
             engine,
         qs("INSERT INTO p VALUES (1, 12.34, 1), (2, 0.05, 2), (3, -99.99, NULL)"),
         qs("INSERT INTO c VALUES (1, 1), (2, 2)"),
         qs("CREATE TRIGGER p_in AFTER INSERT ON p FOR EACH ROW INSERT INTO plog (what) VALUES ('insert')"),
         qs("CREATE TRIGGER p_up BEFORE UPDATE ON p FOR EACH ROW SET NEW.n = NEW.n * 2"),
         qs("CREATE TRIGGER p_up2 BEFORE UPDATE ON p FOR EACH ROW FOLLOWS p_up SET NEW.n = NEW.n + 1")}));
    const TableState before = tableState(*m_db, qs("p"));
    const TableState log = tableState(*m_db, qs("plog"));
    QCOMPARE(before.triggers.size(), 3);

    auto written = copy({qs("p")}, safety.settings());
    QVERIFY_DB(written.error());
    QVERIFY_DB(m_db->run(damage));
    const TableState damaged = tableState(*m_db, qs("p"));
    QVERIFY(damaged != before);
    auto done = putBack(*written);
    QVERIFY_DB(done.error());
    QCOMPARE(tableState(*m_db, qs("p")), before);
    QCOMPARE(tableState(*m_db, qs("plog")), log);
    QCOMPARE(done->notes, QStringList());
    QCOMPARE(m_db->rows(qs("SHOW TABLES LIKE 'tabulon_putback%'")), QStringList());
    if (engine == qs("InnoDB")) {
        QCOMPARE(m_db->admin().execute(qs("INSERT INTO c VALUES (3, 99)")).serverCode, 1452);
        QCOMPARE(m_db->admin().execute(qs("DELETE FROM p WHERE id = 1")).serverCode, 1451);
    }

    // Putting back the wrong copy loses nothing: the put-back kept what it replaced.
    QVERIFY(!done->undoCopy.isEmpty());
    const auto undo = SafetyCopy::readInfo(done->undoCopy);
    QVERIFY_DB(undo.error());
    QCOMPARE(undo->tables, sl({"p"}));
    QVERIFY_DB(putBack(done->undoCopy).error());
    QCOMPARE(tableState(*m_db, qs("p")), damaged);
}

void TestSafetyNet::viewOfSameNameRefused()
{
    ScratchSafety safety;
    QVERIFY_DB(m_db->run(awkwardTable(qs("t"), qs("MyISAM"))));
    auto written = copy({qs("t")}, safety.settings());
    QVERIFY_DB(written.error());
    QVERIFY_DB(m_db->run({qs("DROP TABLE t"), qs("CREATE VIEW t AS SELECT 1 AS one")}));
    const auto done = putBack(*written);
    QVERIFY(!done);
    QVERIFY2(done.error().description.contains(qs("t is a view")), qPrintable(done.error().description));
    QCOMPARE(m_db->rows(qs("SELECT * FROM t")), sl({"1"}));
    QCOMPARE(SafetyNet::listCopies(safety.settings().folder).size(), 1);
    QVERIFY_DB(m_db->run({qs("DROP VIEW t")}));
}

// Stopped after its first table, a put-back says which tables went back and which did not.
void TestSafetyNet::stoppedPutBackSaysWhat()
{
    ScratchSafety safety;
    QVERIFY_DB(m_db->run(awkwardTable(qs("t"), qs("InnoDB")) + awkwardTable(qs("u"), qs("MyISAM"))));
    const TableState t = tableState(*m_db, qs("t"));
    auto written = copy({qs("t"), qs("u")}, safety.settings());
    QVERIFY_DB(written.error());
    QVERIFY_DB(m_db->run({qs("DELETE FROM t"), qs("DELETE FROM u")}));
    const TableState u = tableState(*m_db, qs("u"));
    auto info = SafetyCopy::readInfo(*written);
    QVERIFY_DB(info.error());
    CountingProgress progress(1);
    const auto done = PutBack::putBack(m_session, *info, progress, safety.settings(), {});
    QVERIFY(!done);
    const QString text = done.error().description;
    QVERIFY2(text.contains(qs("Put back: t.\nNot put back: u.")) && text.contains(qs("as they were before")),
             qPrintable(text));
    QCOMPARE(tableState(*m_db, qs("t")), t);
    QCOMPARE(tableState(*m_db, qs("u")), u);
}

void TestSafetyNet::failedPutBackLeavesTableAlone()
{
    ScratchSafety safety;
    QVERIFY_DB(m_db->run(awkwardTable(qs("t"), qs("InnoDB"))));
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS t2"), qs("CREATE TABLE t2 (a LONGTEXT)"),
                          qs("INSERT INTO t2 VALUES (REPEAT('ab', 500000))")}));
    auto written = copy({qs("t"), qs("t2")}, safety.settings());
    QVERIFY_DB(written.error());
    QVERIFY_DB(m_db->run({qs("DELETE FROM t WHERE id = 9")}));
    const TableState damaged = tableState(*m_db, qs("t"));
    // One byte changed at the end of the body, a megabyte past the first table's rows: not even the
    // first table goes in.
    QFile file(*written);
    QVERIFY(file.open(QIODevice::ReadWrite));
    const qint64 at = file.readAll().lastIndexOf("{") - 2;
    char byte = 0;
    QVERIFY(file.seek(at) && file.getChar(&byte) && file.seek(at) && file.putChar(static_cast<char>(byte ^ 0x55)));
    file.close();
    const auto done = putBack(*written);
    QVERIFY(!done);
    QVERIFY2(done.error().description.contains(*written), qPrintable(done.error().description));
    QCOMPARE(tableState(*m_db, qs("t")), damaged);
    QCOMPARE(m_db->rows(qs("SHOW TABLES LIKE 'tabulon_putback%'")), QStringList());
}

void TestSafetyNet::copyFormRefusesDamage()
{
    ScratchSafety safety;
    QVERIFY_DB(m_db->run(awkwardTable(qs("t"), qs("MyISAM"))));
    auto written = copy({qs("t")}, safety.settings());
    QVERIFY_DB(written.error());
    QFile file(*written);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray whole = file.readAll();
    file.close();
    // Cut anywhere, the copy is not listed and not read.
    for (const qsizetype keep : {qsizetype(0), qsizetype(10), whole.size() / 2, whole.size() - 1}) {
        QFile out(*written);
        QVERIFY(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(whole.left(keep));
        out.close();
        QVERIFY2(!SafetyCopy::readInfo(*written), qPrintable(QString::number(keep)));
        QVERIFY(SafetyNet::listCopies(safety.settings().folder).isEmpty());
    }
}

// Any byte changed in the header (tables, command, database, time) or the trailer makes the
// copy unreadable, as one changed in the body does.
void TestSafetyNet::headerAndTrailerChecked()
{
    ScratchSafety safety;
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS r1, r3"), qs("CREATE TABLE r1 (a INT)"),
                          qs("CREATE TABLE r3 (a INT)"), qs("INSERT INTO r1 VALUES (1)")}));
    auto written = copy({qs("r1")}, safety.settings());
    QVERIFY_DB(written.error());
    QFile file(*written);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray whole = file.readAll();
    file.close();
    const qsizetype headerEnd = whole.indexOf("}") + 5; // the JSON header and its checksum
    QVERIFY(headerEnd > 40);
    const qsizetype trailerStart = whole.lastIndexOf("{");
    QVERIFY(trailerStart > headerEnd);
    QList<qsizetype> positions;
    for (qsizetype i = 0; i < headerEnd; ++i)
        positions << i;
    for (qsizetype i = trailerStart; i < whole.size(); ++i)
        positions << i;
    QStringList accepted;
    for (const qsizetype at : positions) {
        for (const char flip : {char(0x01), char(0x02), char(0x80)}) {
            QByteArray changed = whole;
            changed[at] = static_cast<char>(changed[at] ^ flip);
            QFile out(*written);
            QVERIFY(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
            out.write(changed);
            out.close();
            if (SafetyCopy::readInfo(*written))
                accepted << QString::number(at);
        }
    }
    QCOMPARE(accepted, QStringList());
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
    {
        QFile f(ini);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write((qs("[Software]\nCorvane\\Tabulon\\") + name + QLatin1Char('=') + text + QLatin1Char('\n')).toUtf8());
    }
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
    QVERIFY(QDir().mkpath(folder));
    QByteArray bytes(3 * 1024 * 1024 + 7, Qt::Uninitialized);
    for (qsizetype i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>((i * 7919) >> 3);
    const auto write = [&folder](const char *name, const QByteArray &content) {
        QFile f(QDir(folder).filePath(qs(name)));
        return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(content) == content.size();
    };
    QVERIFY(write("bill.MYD", bytes));
    QVERIFY(write("bill.MYI", QByteArray()));
    auto written = SafetyNet::writeFileCopy(safety.settings(), qs("Check Tables Replace"), m_db->name(), folder,
                                            {qs("bill.MYD"), qs("bill.MYI"), qs("bill.frm")}, {});
    QVERIFY_DB(written.error());
    QVERIFY(write("bill.MYD", "other"));
    QVERIFY(write("bill.MYI", "other"));
    QVERIFY(write("bill.frm", "new"));
    auto done = putBack(*written);
    QVERIFY_DB(done.error());
    QCOMPARE(done->tables, 3);
    QFile myd(QDir(folder).filePath(qs("bill.MYD")));
    QVERIFY(myd.open(QIODevice::ReadOnly));
    QVERIFY(myd.readAll() == bytes);
    QCOMPARE(QFileInfo(QDir(folder).filePath(qs("bill.MYI"))).size(), 0);
    QVERIFY(!QFileInfo::exists(QDir(folder).filePath(qs("bill.frm"))));

    // A disk that fills while a file goes back leaves the file as it is now, not cut short.
    QVERIFY(write("bill.MYI", QByteArray(8 * 1024, 'i')));
    written = SafetyNet::writeFileCopy(safety.settings(), qs("Check Tables Replace"), m_db->name(), folder,
                                       {qs("bill.MYI")}, {});
    QVERIFY_DB(written.error());
    QVERIFY(write("bill.MYI", "now"));
    {
        const FileSizeLimit limit(4096);
        QVERIFY(limit.isSet());
        done = putBack(*written);
    }
    QVERIFY(!done);
    QCOMPARE(read(QDir(folder).filePath(qs("bill.MYI"))), QByteArray("now"));
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

void TestSafetyNet::unwritableFolderStops()
{
    ScratchSafety safety;
    QVERIFY_DB(m_db->run(awkwardTable(qs("t"), qs("MyISAM"))));
    // A file where the folder, or a folder above it, should be: no folder can be made there,
    // whoever runs the tests (root writes through permission bits).
    const QString plainFile = safety.dir.filePath(qs("plain-file"));
    QFile plain(plainFile);
    QVERIFY(plain.open(QIODevice::WriteOnly));
    QCOMPARE(plain.write("kept"), 4);
    plain.close();
    for (const QString &folder : QStringList{plainFile, plainFile + qs("/copies")}) {
        SafetySettings settings = safety.settings();
        settings.folder = folder;
        const auto written = copy({qs("t")}, settings);
        QVERIFY(!written);
        QVERIFY(written.error().isFileError());
        QVERIFY2(SafetyNet::failureText(written.error()).contains(settings.folder),
                 qPrintable(written.error().description));
        QVERIFY(SafetyNet::listCopies(settings.folder).isEmpty());
    }
    QVERIFY(plain.open(QIODevice::ReadOnly));
    QCOMPARE(plain.readAll(), QByteArray("kept"));
}

void TestSafetyNet::tooBigTableAsks()
{
    ScratchSafety safety;
    SafetySettings settings = safety.settings();
    settings.maxMB = 1;
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS big"), qs("CREATE TABLE big (b LONGBLOB) ENGINE=MyISAM"),
                          qs("INSERT INTO big VALUES (REPEAT('x', 1536 * 1024))")}));
    QStringList asked;
    const auto no = copy({qs("big")}, settings, [&asked](const QString &q) {
        asked << q;
        return false;
    });
    QVERIFY(!no);
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
    const auto both = copy({qs("big"), qs("half")}, settings, [&asked](const QString &q) {
        asked << q;
        return false;
    });
    QVERIFY(!both);
    QCOMPARE(asked.size(), 1);
    QVERIFY2(asked.first().contains(qs("big, half")), qPrintable(asked.first()));
    QCOMPARE(SafetyNet::listCopies(settings.folder).size(), 1);
}

// Names as the server reads them: a view stands for its tables, `Foo` and `foo` are two
// tables, and otherdb.keep is a table of another database, not a missing one.
void TestSafetyNet::viewsTwinsAndQualifiedNames()
{
    ScratchSafety safety;
    ScratchDatabase other(qs("safetyother"));
    QVERIFY_DB(other.error());
    QVERIFY_DB(
        m_db->run({qs("DROP VIEW IF EXISTS v, vv"), qs("DROP TABLE IF EXISTS base, Foo, foo"),
                   qs("CREATE TABLE base (id INT PRIMARY KEY, name VARCHAR(10), secret VARCHAR(10))"),
                   qs("INSERT INTO base VALUES (1, 'a', 's1'), (2, 'b', 's2')"),
                   qs("CREATE VIEW v AS SELECT b.id, b.name FROM base b"), qs("CREATE VIEW vv AS SELECT id FROM v"),
                   qs("CREATE TABLE Foo (a INT)"), qs("CREATE TABLE foo (a INT)"), qs("INSERT INTO Foo VALUES (1)"),
                   qs("INSERT INTO foo VALUES (2), (3)")}));
    QVERIFY_DB(other.run({qs("CREATE TABLE keep (a INT)"), qs("INSERT INTO keep VALUES (1)")}));
    const auto whole = [&](const QStringList &tables) {
        DatabaseSession reader;
        if (DbError e = m_session.openSibling(reader))
            return DbResult<QString>(e);
        return SafetyNet::writeTableCopy(reader, safety.settings(), qs("Save Table"), tables, {});
    };
    const auto rows = [&](const QStringList &tables) {
        DatabaseSession reader;
        if (DbError e = m_session.openSibling(reader))
            return DbResult<QString>(e);
        return SafetyNet::writeTableCopy(reader, safety.settings(), qs("Replace"), tables, {}, {},
                                         SafetyNet::Reach::Rows);
    };
    for (const char *view : {"v", "vv"}) {
        const auto listed = SafetyNet::listCopies(safety.settings().folder).size();
        const auto refused = whole({qs(view)});
        QVERIFY(!refused);
        QVERIFY2(refused.error().description.contains(qs(view) + qs(", which is a view of the table(s) base:")),
                 qPrintable(refused.error().description));
        QCOMPARE(SafetyNet::listCopies(safety.settings().folder).size(), listed);
        const auto written = rows({qs(view)});
        QVERIFY_DB(written.error());
        const auto info = SafetyCopy::readInfo(written.value());
        QVERIFY_DB(info.error());
        QCOMPARE(info->tables, sl({"base"}));
        QCOMPARE(info->rows, 2);
    }
    const auto twins = whole({qs("Foo"), qs("foo")});
    QVERIFY_DB(twins.error());
    const auto info = SafetyCopy::readInfo(twins.value());
    QVERIFY_DB(info.error());
    QCOMPARE(info->tables, sl({"Foo", "foo"}));
    QCOMPARE(info->rows, 3);

    const QString keep = other.name() + qs(".keep");
    const auto elsewhere = whole({keep});
    QVERIFY(!elsewhere);
    QVERIFY2(elsewhere.error().description.contains(qs("of database ") + other.name()),
             qPrintable(elsewhere.error().description));
    QVERIFY_DB(whole({qs("nodb.nothing")}).error()); // nothing there, nothing to lose
}

// clang-format off
void TestSafetyNet::literals_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<bool>("isNull");
    QTest::addColumn<int>("form");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("null") << QByteArray() << true << int(CopyValueForm::Text) << QByteArray("NULL");
    QTest::newRow("empty text") << QByteArray("") << false << int(CopyValueForm::Text) << QByteArray("''");
    QTest::newRow("quote") << QByteArray("a'b\\") << false << int(CopyValueForm::Text) << QByteArray("'a\\'b\\\\'");
    QTest::newRow("binary") << QByteArray("\0'\xff", 3) << false << int(CopyValueForm::Binary) << QByteArray("X'0027ff'");
    QTest::newRow("empty binary") << QByteArray("") << false << int(CopyValueForm::Binary) << QByteArray("X''");
    QTest::newRow("bit") << QByteArray("21") << false << int(CopyValueForm::Number) << QByteArray("21");
    QTest::newRow("not a number") << QByteArray("2 OR 1") << false << int(CopyValueForm::Number) << QByteArray("'2 OR 1'");
}
// clang-format on

void TestSafetyNet::literals()
{
    QFETCH(QByteArray, value);
    QFETCH(bool, isNull);
    QFETCH(int, form);
    QFETCH(QByteArray, expected);
    const std::optional<QByteArrayView> cell = isNull ? std::nullopt : std::optional<QByteArrayView>(value);
    QCOMPARE(CopySql::literal(cell, static_cast<CopyValueForm>(form), SessionSql::escapeDefault), expected);
}

QTEST_GUILESS_MAIN(TestSafetyNet)
#include "test_safetynet.moc"
