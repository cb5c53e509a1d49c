// The backup's work against the real server: table files streamed from results, the client
// look-up and its selects, and the packing that leaves no working files behind.
#include "backup/backuparchive.h"
#include "backup/tablebackup.h"
#include "grid/gridfile.h"
#include "testdb.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <chrono>
#include <thread>

using namespace tabulon;
using namespace tabulon::test;

namespace {

// Every row of a table file as "a|b" lines.
QStringList fileRows(const QString &path)
{
    GridFileReader in;
    if (DbError error = in.open(path))
        return {QStringLiteral("error: ") + error.description};
    QStringList rows;
    while (in.next()) {
        QStringList cells;
        for (const QByteArray &cell : in.row())
            cells << QString::fromUtf8(cell);
        rows << cells.join(QLatin1Char('|'));
    }
    if (in.error())
        rows << QStringLiteral("error: ") + in.error().description;
    return rows;
}

} // namespace

class TestTableBackup final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void clientSelects_data();
    void clientSelects();
    void tableFiles();
    void lostConnection();
    void findClient_data();
    void findClient();
    void finish();

private:
    std::unique_ptr<ScratchDatabase> m_db;
    DatabaseSession m_session;
    QTemporaryDir m_dir;
};

void TestTableBackup::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(QStringLiteral("tablebackup"));
    QVERIFY_DB(m_db->error());
    QVERIFY_DB(openSession(m_session, m_db->name()));
    QVERIFY_DB(m_db->run({
        QStringLiteral("CREATE TABLE main_info1 (code_no VARCHAR(10), code VARCHAR(10), fname VARCHAR(20))"),
        QStringLiteral("CREATE TABLE owner1 (code VARCHAR(10), code_no VARCHAR(10), oname VARCHAR(20))"),
        QStringLiteral("INSERT INTO main_info1 VALUES ('C00001','C00001','Ann'), ('C00007','A00007','Bob')"),
        QStringLiteral("INSERT INTO owner1 VALUES ('A00007','C00007','Bob Sr'), ('A00099','C00099','Owner only')"),
        QStringLiteral("CREATE TABLE odd (id INT, t TEXT, d DATETIME, b BIT(1))"),
        QStringLiteral("INSERT INTO odd VALUES (1, 'comma, \"quote\" and O''Brien\nnext line', '2007-12-25 10:30:00', "
                       "b'1'), (2, NULL, NULL, NULL), (3, '', NULL, b'0')"),
        QStringLiteral("CREATE TABLE empty_one (a INT, b VARCHAR(3))"),
    }));
}

void TestTableBackup::clientSelects_data()
{
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("other");
    QTest::addColumn<QStringList>("selects");
    QTest::newRow("bill") << "bill"
                          << "" << sl({"Select * from bill where ucase(name) = 'C7'"});
    QTest::newRow("table4 in capitals") << "TABLE4"
                                        << "X" << sl({"Select * from TABLE4 where ucase(name) = 'C7'"});
    QTest::newRow("main_info1 with OTHER") << "Main_Info1"
                                           << "C9" << sl({"Select * from Main_Info1 where ucase(code_no) = 'C9'"});
    QTest::newRow("main_info1 without OTHER") << "main_info1"
                                              << "" << QStringList();
    QTest::newRow("owner1, codes differ") << "owner1"
                                          << "C9" << sl({"Select * from owner1 where ucase(code) = 'C7'"});
    QTest::newRow("owner1, codes equal") << "owner1"
                                         << "C7" << sl({"Select * from owner1 where ucase(code_no) = 'C7'"});
    QTest::newRow("any other") << "visits"
                               << ""
                               << sl({"Select * from visits where ucase(code) = 'C7'",
                                      "Select * from visits where ucase(code_no) = 'C7'"});
}

void TestTableBackup::clientSelects()
{
    QFETCH(QString, table);
    QFETCH(QString, other);
    QTEST(TableBackup::clientSelects(table, QStringLiteral("C7"), other), "selects");
}

// Row 0 the field names, NULL and empty text alike as empty cells, awkward texts whole, an
// empty table as its header alone; a refused select writes nothing and says why.
void TestTableBackup::tableFiles()
{
    const QString odd = m_dir.filePath(QStringLiteral("odd"));
    clearServerLog(m_db->admin());
    QVERIFY_DB(TableBackup::writeTableFile(m_session, TableBackup::tableSelect(QStringLiteral("odd")), odd));
    QCOMPARE(statementsReceived(m_db->admin(), m_session.connectionId()), sl({"SELECT * FROM `odd`"}));
    QCOMPARE(fileRows(odd), sl({"id|t|d|b", "1|comma, \"quote\" and O'Brien\nnext line|2007-12-25 10:30:00|True",
                                "2|||", "3|||False"}));

    const QString empty = m_dir.filePath(QStringLiteral("empty_one"));
    QVERIFY_DB(TableBackup::writeTableFile(m_session, TableBackup::tableSelect(QStringLiteral("empty_one")), empty));
    QCOMPARE(fileRows(empty), sl({"a|b"}));

    DbError refused;
    const QString none = m_dir.filePath(QStringLiteral("none"));
    QVERIFY_DB(TableBackup::writeTableFile(m_session, QStringLiteral("Select * from odd where ucase(code) = 'X'"), none,
                                           &refused));
    QVERIFY2(refused.description.contains(QLatin1String("code")), qPrintable(refused.description));
    QVERIFY(!QFileInfo::exists(none));
    QVERIFY_DB(TableBackup::writeEmptyTableFile(none));
    QCOMPARE(fileRows(none), sl({""}));

    // A table file that cannot be written ends the work with the path and the reason.
    const DbError unwritable = TableBackup::writeTableFile(m_session, TableBackup::tableSelect(QStringLiteral("odd")),
                                                           m_dir.filePath(QStringLiteral("no/odd")));
    QVERIFY2(TableBackup::isFatal(unwritable) && unwritable.description.contains(QLatin1String("no/odd")),
             qPrintable(unwritable.description));
}

// A connection lost in the middle of a table is an error that ends the backup, and the half
// table never shows as a file.
void TestTableBackup::lostConnection()
{
    QVERIFY_DB(
        m_db->run({QStringLiteral("CREATE TABLE big SELECT seq, REPEAT('x', 50) AS pad FROM seq_1_to_1000000")}));
    DatabaseSession victim;
    QVERIFY_DB(openSession(victim, m_db->name()));
    const QString path = m_dir.filePath(QStringLiteral("big"));
    std::thread killer([this, id = victim.connectionId()] {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        DatabaseSession admin;
        if (!openSession(admin, m_db->name()))
            admin.execute(QStringLiteral("KILL %1").arg(id));
    });
    const DbError error = TableBackup::writeTableFile(victim, TableBackup::tableSelect(QStringLiteral("big")), path);
    killer.join();
    QVERIFY2(TableBackup::isFatal(error), qPrintable(error.description));
    QCOMPARE(QDir(m_dir.path()).entryList({QStringLiteral("big*")}, QDir::Files | QDir::Hidden), QStringList());
    QVERIFY_DB(m_db->run({QStringLiteral("DROP TABLE big")}));
}

void TestTableBackup::findClient_data()
{
    QTest::addColumn<QString>("code");
    QTest::addColumn<bool>("found");
    QTest::addColumn<QString>("other");
    QTest::newRow("main_info1, codes equal") << "C00001" << true << "";
    QTest::newRow("main_info1, codes differ") << "C00007" << true << "C00007";
    QTest::newRow("owner1 only") << "A00099" << true << "C00099";
    QTest::newRow("owner code of a main_info1 client") << "A00007" << true << "C00007";
    QTest::newRow("unknown") << "C00002" << false << "";
    QTest::newRow("quote breaks the look-up") << "C0'1" << false << "";
}

void TestTableBackup::findClient()
{
    QFETCH(QString, code);
    const auto client = TableBackup::findClient(m_session, code);
    QVERIFY_DB(client.error());
    QTEST(client->found, "found");
    QTEST(client->other, "other");
}

// The archive holds the files written; the working files go, anything else in the folder stays.
void TestTableBackup::finish()
{
    QTemporaryDir root;
    const auto set = TableBackup::BackupSet::forPath(root.path() + QLatin1Char('/'), QDate(2026, 11, 15));
    QCOMPARE(set.archivePath(), root.path() + QStringLiteral("/15-Nov-26.zip"));
    QCOMPARE(set.workingFolder, root.path() + QStringLiteral("/15-Nov-26"));
    QVERIFY(QDir().mkpath(set.workingFolder));
    QVERIFY_DB(TableBackup::writeTableFile(m_session, TableBackup::tableSelect(QStringLiteral("odd")),
                                           set.workingFolder + QStringLiteral("/odd")));
    QVERIFY_DB(TableBackup::finish(set, sl({"odd"})));
    QCOMPARE(QDir(root.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
             sl({"15-Nov-26.zip"}));
    QStringList tables;
    QVERIFY_DB(BackupArchive::extract(set.archivePath(), root.filePath(QStringLiteral("out")), &tables));
    QCOMPARE(tables, sl({"odd"}));
    QCOMPARE(TableBackup::withSeparator(QStringLiteral("/a/b")), QStringLiteral("/a/b/"));
    QCOMPARE(TableBackup::withSeparator(QStringLiteral("/")), QStringLiteral("/"));
}

QTEST_GUILESS_MAIN(TestTableBackup)
#include "test_tablebackup.moc"
