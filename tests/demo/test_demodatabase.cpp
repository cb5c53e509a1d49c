// The demo database against the real server: the tables, engines and keys the tools rely on,
// awkward values, every column type, repeatable content, and the first-use rules of create().
#include "demo/demodatabase.h"
#include "testdb.h"

#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

constexpr int clients = 40;

class TestDemoDatabase final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void generatedContent();
    void existingDatabaseIsLeftAlone();
};

void TestDemoDatabase::generatedContent()
{
    ScratchDatabase db(qs("demo")), again(qs("demo_again"));
    DatabaseSession session;
    QVERIFY_DB(openSession(session, QString()));
    QVERIFY_DB(DemoDatabase::create(session, db.name(), clients, true));
    // Recreated under the observer's feet: it selects the new one again.
    QVERIFY_DB(db.run({qs("USE `%1`").arg(db.name())}));
    // The second one goes in batches of 7 rows, so that batch boundaries fall inside every table.
    QVERIFY_DB(DemoDatabase::create(session, again.name(), clients, true, DemoOptions{7, {}}));
    // Queries run in the demo database, rows joined by ';'.
    const auto scalar = [&db](const QString &sql) { return db.rows(sql).join(u';'); };

    // Every table with its engine and its client columns with their keys (PRI, MUL or none).
    QCOMPARE(
        db.rows(qs("SELECT t.TABLE_NAME, t.ENGINE, GROUP_CONCAT(CONCAT(c.COLUMN_NAME, ':', c.COLUMN_KEY) "
                   "ORDER BY c.COLUMN_NAME) FROM information_schema.TABLES t LEFT JOIN "
                   "information_schema.COLUMNS c ON c.TABLE_SCHEMA = t.TABLE_SCHEMA AND c.TABLE_NAME = "
                   "t.TABLE_NAME AND c.COLUMN_NAME IN ('code', 'code_no', 'name') WHERE t.TABLE_SCHEMA = "
                   "DATABASE() GROUP BY t.TABLE_NAME, t.ENGINE ORDER BY 1")),
        sl({"appointments|InnoDB|code_no:MUL", "bill|InnoDB|name:MUL", "contacts|MyISAM|code:MUL",
            "documents|InnoDB|code_no:MUL", "insurance|InnoDB|code:MUL", "main_info1|MyISAM|code:MUL,code_no:PRI",
            "notes|MyISAM|code_no:", "owner1|MyISAM|code:PRI,code_no:MUL", "payments|InnoDB|code:MUL",
            "prescriptions|MyISAM|code:", "staff|MyISAM|\\N", "table4|MyISAM|name:", "visits|InnoDB|code_no:MUL"}));
    // Every column type the tools read.
    QCOMPARE(
        scalar(qs("SELECT GROUP_CONCAT(DISTINCT DATA_TYPE ORDER BY 1) FROM information_schema.COLUMNS WHERE "
                  "TABLE_SCHEMA = DATABASE()")),
        qs("bigint,blob,char,date,datetime,decimal,double,float,int,smallint,text,time,timestamp,tinyint,varchar"));

    // Every client has its owner row, carrying the same pair of codes; NULLs where allowed.
    QCOMPARE(scalar(qs("SELECT COUNT(*), MIN(code_no), MAX(code_no), (SELECT COUNT(*) FROM main_info1 m JOIN owner1 "
                       "o ON o.code = m.code AND o.code_no = m.code_no), SUM(email IS NULL) > 0, SUM(remarks IS NULL) "
                       "> 0 FROM main_info1")),
             qs("40|C00001|C00040|40|1|1"));
    QCOMPARE(scalar(qs("SELECT code_no, code FROM main_info1 WHERE code <> code_no ORDER BY code_no")),
             qs("C00007|A00007;C00014|A00014;C00021|A00021;C00028|A00028;C00035|A00035"));

    for (const DemoTable &t : DemoDatabase::tables()) {
        // "table|checksum", the same in both databases.
        QCOMPARE(scalar(qs("CHECKSUM TABLE `%1`.%2 EXTENDED").arg(again.name(), t.name)).section(u'.', 1),
                 scalar(qs("CHECKSUM TABLE `%1`.%2 EXTENDED").arg(db.name(), t.name)).section(u'.', 1));
        // The other client tables: `code` and the `name` of bill and table4 hold a client's code,
        // `code_no` its code_no; a few rows each for most clients, and none for a client that is not.
        if (t.clientColumn.isEmpty() || t.name == qs("main_info1") || t.name == qs("owner1"))
            continue;
        const QString key = t.clientColumn == qs("name") ? qs("code") : t.clientColumn;
        QCOMPARE(scalar(qs("SELECT '%1', SUM(%2 NOT IN (SELECT %3 FROM main_info1)), COUNT(DISTINCT %2) >= %4, "
                           "COUNT(*) > COUNT(DISTINCT %2) FROM %1")
                            .arg(t.name, t.clientColumn, key, QString::number(clients / 4))),
                 t.name + qs("|0|1|1"));
    }

    // Texts come back exactly: apostrophes, letters outside Latin-1.
    QCOMPARE(scalar(qs("SELECT GROUP_CONCAT(DISTINCT surname ORDER BY surname) FROM main_info1 WHERE BINARY surname IN "
                       "('O''Brien', 'Müller', 'Yılmaz', 'Wiśniewski')")),
             qs("Müller,O'Brien,Wiśniewski,Yılmaz"));
    // Blobs of binary bytes, a NUL and a quote among them; references beyond 2^53, where a trip
    // through a double would change the value.
    QCOMPARE(scalar(qs("SELECT SUM(content IS NULL) > 0, COUNT(content) = SUM(LOCATE(0x00, content) > 0 AND "
                       "LOCATE(0x27, content) > 0), SUM(HEX(content) REGEXP '^(..)*[89A-F]') > 0 FROM documents")),
             qs("1|1|1"));
    QCOMPARE(scalar(qs("SELECT SUM(reference IS NULL) > 0, MIN(reference) > 9007199254740992 FROM payments")),
             qs("1|1"));
}

void TestDemoDatabase::existingDatabaseIsLeftAlone()
{
    ScratchDatabase keep(qs("demo_keep"));
    DatabaseSession session;
    QVERIFY_DB(openSession(session, QString()));
    QVERIFY_DB(keep.run({qs("CREATE TABLE mine (id INT)")}));
    DemoDatabase::Outcome outcome = DemoDatabase::Outcome::Created;
    QVERIFY_DB(DemoDatabase::create(session, keep.name(), 5, false, {}, &outcome));
    QCOMPARE(outcome, DemoDatabase::Outcome::LeftAsItWas);
    QCOMPARE(keep.rows(qs("SHOW TABLES LIKE 'm%'")), sl({"mine"}));

    // Replaced on request, past the half-filled build database an interrupted run leaves.
    const QString build = DemoDatabase::buildDatabaseName(keep.name());
    QVERIFY_DB(
        keep.run({qs("CREATE DATABASE `%1`").arg(build), qs("CREATE TABLE `%1`.main_info1 (x INT)").arg(build)}));
    QVERIFY_DB(DemoDatabase::create(session, keep.name(), 5, true, {}, &outcome));
    QCOMPARE(outcome, DemoDatabase::Outcome::Created);
    QVERIFY_DB(keep.run({qs("USE `%1`").arg(keep.name())}));
    QCOMPARE(keep.rows(qs("SHOW TABLES LIKE 'm%'")) + keep.rows(qs("SELECT COUNT(*) FROM main_info1")) +
                 keep.rows(qs("SHOW DATABASES LIKE '%1'").arg(build)),
             sl({"main_info1", "5"}));
}

QTEST_GUILESS_MAIN(TestDemoDatabase)
#include "test_demodatabase.moc"
