// The demo database against the real server: the tables, engines and keys the tools rely on,
// awkward values, every column type, repeatable content, and the first-use rules of create().
#include "demo/demodatabase.h"
#include "testdb.h"

#include <QTest>

#include <memory>

using namespace tabulon;
using namespace tabulon::test;

constexpr int clients = 40;

class TestDemoDatabase final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void tablesEnginesAndKeys();
    void clientCodes();
    void awkwardValues();
    void everyColumnTypePresent();
    void generationIsRepeatable();
    void existingDatabaseIsLeftAlone();

private:
    // Queries run in the demo database.
    QString scalar(const QString &sql) { return m_db->rows(sql).join(u';'); }

    std::unique_ptr<ScratchDatabase> m_db;
    std::unique_ptr<ScratchDatabase> m_again;
    DatabaseSession m_session;
};

void TestDemoDatabase::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(QStringLiteral("demo"));
    QVERIFY_DB(m_db->error());
    m_again = std::make_unique<ScratchDatabase>(QStringLiteral("demo_again"));
    QVERIFY_DB(m_again->error());
    QVERIFY_DB(openSession(m_session, QString()));

    DemoDatabase::Outcome outcome = DemoDatabase::Outcome::LeftAsItWas;
    QVERIFY_DB(DemoDatabase::create(m_session, m_db->name(), clients, true, {}, &outcome));
    QCOMPARE(outcome, DemoDatabase::Outcome::Created);
    // Recreated under the observer's feet: it selects the new one again.
    QVERIFY_DB(m_db->run({QStringLiteral("USE `%1`").arg(m_db->name())}));
    // The second one goes in batches of 7 rows, so that batch boundaries fall inside every table.
    DemoOptions small;
    small.batchRows = 7;
    QVERIFY_DB(DemoDatabase::create(m_session, m_again->name(), clients, true, small));
}

void TestDemoDatabase::tablesEnginesAndKeys()
{
    // Every table with its engine and its client columns with their keys (PRI, MUL or none).
    QCOMPARE(
        m_db->rows(QStringLiteral(
            "SELECT t.TABLE_NAME, t.ENGINE, GROUP_CONCAT(CONCAT(c.COLUMN_NAME, ':', c.COLUMN_KEY) ORDER BY "
            "c.COLUMN_NAME) FROM information_schema.TABLES t LEFT JOIN information_schema.COLUMNS c ON "
            "c.TABLE_SCHEMA = t.TABLE_SCHEMA AND c.TABLE_NAME = t.TABLE_NAME AND c.COLUMN_NAME IN ('code', "
            "'code_no', 'name') WHERE t.TABLE_SCHEMA = DATABASE() GROUP BY t.TABLE_NAME, t.ENGINE ORDER BY 1")),
        QStringList({QStringLiteral("appointments|InnoDB|code_no:MUL"), QStringLiteral("bill|InnoDB|name:MUL"),
                     QStringLiteral("contacts|MyISAM|code:MUL"), QStringLiteral("documents|InnoDB|code_no:MUL"),
                     QStringLiteral("insurance|InnoDB|code:MUL"),
                     QStringLiteral("main_info1|MyISAM|code:MUL,code_no:PRI"), QStringLiteral("notes|MyISAM|code_no:"),
                     QStringLiteral("owner1|MyISAM|code:PRI,code_no:MUL"), QStringLiteral("payments|InnoDB|code:MUL"),
                     QStringLiteral("prescriptions|MyISAM|code:"), QStringLiteral("staff|MyISAM|\\N"),
                     QStringLiteral("table4|MyISAM|name:"), QStringLiteral("visits|InnoDB|code_no:MUL")}));
}

void TestDemoDatabase::clientCodes()
{
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*), MIN(code_no), MAX(code_no) FROM main_info1")),
             QStringLiteral("40|C00001|C00040"));
    QCOMPARE(scalar(QStringLiteral("SELECT code_no, code FROM main_info1 WHERE code <> code_no ORDER BY code_no")),
             QStringLiteral("C00007|A00007;C00014|A00014;C00021|A00021;C00028|A00028;C00035|A00035"));
    // Every client has its owner row, carrying the same pair of codes.
    QCOMPARE(scalar(QStringLiteral(
                 "SELECT COUNT(*) FROM main_info1 m JOIN owner1 o ON o.code = m.code AND o.code_no = m.code_no")),
             QString::number(clients));

    // The other client tables: `code` and the `name` of bill and table4 hold a client's code,
    // `code_no` its code_no; a few rows each for most clients, and none for a client that is not.
    for (const DemoTable &t : DemoDatabase::tables()) {
        if (t.clientColumn.isEmpty() || t.name == QStringLiteral("main_info1") || t.name == QStringLiteral("owner1"))
            continue;
        const QString key = t.clientColumn == QStringLiteral("name") ? QStringLiteral("code") : t.clientColumn;
        const QString counts = scalar(QStringLiteral("SELECT SUM(%2 NOT IN (SELECT %3 FROM main_info1)), "
                                                     "COUNT(DISTINCT %2) >= %4, COUNT(*) > COUNT(DISTINCT %2) FROM %1")
                                          .arg(t.name, t.clientColumn, key)
                                          .arg(clients / 4));
        QVERIFY2(counts == QStringLiteral("0|1|1"), qPrintable(t.name + QStringLiteral(": ") + counts));
    }
}

void TestDemoDatabase::awkwardValues()
{
    // Texts come back exactly: apostrophes, letters outside Latin-1.
    const QStringList surnames = m_db->rows(QStringLiteral("SELECT DISTINCT surname FROM main_info1"));
    for (const char *name : {"O'Brien", "Müller", "Yılmaz", "Wiśniewski"})
        QVERIFY2(surnames.contains(QString::fromUtf8(name)), name);
    // NULLs where a column allows them; Windows paths; blobs of binary bytes, a NUL and a quote
    // among them; references beyond 2^53, where a trip through a double would change the value.
    QCOMPARE(scalar(QStringLiteral("SELECT SUM(email IS NULL) > 0, SUM(remarks IS NULL) > 0 FROM main_info1")),
             QStringLiteral("1|1"));
    QCOMPARE(scalar(QStringLiteral(
                 "SELECT SUM(content IS NULL) > 0, MIN(LOCATE('C:\\\\Orvita\\\\scans\\\\', path)), COUNT(content) = "
                 "SUM(LOCATE(0x00, content) > 0 AND LOCATE(0x27, content) > 0 AND LEFT(content, 8) = '%PDF-1.4'), "
                 "SUM(HEX(content) REGEXP '^(..)*[89A-F]') > 0 FROM documents")),
             QStringLiteral("1|1|1|1"));
    QCOMPARE(
        scalar(QStringLiteral("SELECT SUM(reference IS NULL) > 0, MIN(reference) > 9007199254740992 FROM payments")),
        QStringLiteral("1|1"));
}

void TestDemoDatabase::everyColumnTypePresent()
{
    const QStringList present = m_db->rows(
        QStringLiteral("SELECT DISTINCT DATA_TYPE FROM information_schema.COLUMNS WHERE TABLE_SCHEMA = DATABASE()"));
    for (const char *type : {"int", "smallint", "tinyint", "bigint", "float", "double", "decimal", "date", "datetime",
                             "timestamp", "time", "char", "varchar", "text", "blob"})
        QVERIFY2(present.contains(QLatin1String(type)), type);
}

void TestDemoDatabase::generationIsRepeatable()
{
    const auto checksums = [this](const QString &database) {
        QStringList out;
        for (const DemoTable &t : DemoDatabase::tables())
            out << t.name + u' ' +
                       scalar(QStringLiteral("CHECKSUM TABLE `%1`.%2 EXTENDED").arg(database, t.name)).section(u'|', 1);
        return out;
    };
    QCOMPARE(checksums(m_again->name()), checksums(m_db->name()));
}

void TestDemoDatabase::existingDatabaseIsLeftAlone()
{
    ScratchDatabase keep(QStringLiteral("demo_keep"));
    QVERIFY_DB(keep.error());
    QVERIFY_DB(keep.run({QStringLiteral("CREATE TABLE mine (id INT)")}));
    const QString tables = QStringLiteral("SELECT GROUP_CONCAT(TABLE_NAME) FROM information_schema.TABLES WHERE "
                                          "TABLE_SCHEMA = DATABASE() AND TABLE_NAME IN ('mine', 'main_info1')");
    DemoDatabase::Outcome outcome = DemoDatabase::Outcome::Created;
    QVERIFY_DB(DemoDatabase::create(m_session, keep.name(), 5, false, {}, &outcome));
    QCOMPARE(outcome, DemoDatabase::Outcome::LeftAsItWas);
    QCOMPARE(keep.rows(tables), QStringList{QStringLiteral("mine")});

    // Replaced on request, past the half-filled build database an interrupted run leaves.
    const QString build = DemoDatabase::buildDatabaseName(keep.name());
    QVERIFY_DB(keep.run({QStringLiteral("CREATE DATABASE `%1`").arg(build),
                         QStringLiteral("CREATE TABLE `%1`.main_info1 (junk INT)").arg(build)}));
    QVERIFY_DB(DemoDatabase::create(m_session, keep.name(), 5, true, {}, &outcome));
    QCOMPARE(outcome, DemoDatabase::Outcome::Created);
    QVERIFY_DB(keep.run({QStringLiteral("USE `%1`").arg(keep.name())}));
    QCOMPARE(keep.rows(tables), QStringList{QStringLiteral("main_info1")});
    QCOMPARE(keep.rows(QStringLiteral("SELECT COUNT(*) FROM main_info1")), QStringList{QStringLiteral("5")});
    QCOMPARE(keep.rows(QStringLiteral("SHOW DATABASES LIKE '%1'").arg(build)), QStringList());
}

QTEST_GUILESS_MAIN(TestDemoDatabase)
#include "test_demodatabase.moc"
