// The search and find-and-replace work without windows: value rules and statement texts as
// tables, and the loops and the replacement of one hit against the real server, checked by
// what the server received and what the tables hold afterwards.
#include "data/tablesearch.h"
#include "db/progress.h"
#include "db/typecodes.h"
#include "testdb.h"

#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

namespace {

// Records the steps and asks to stop once `stopAt` steps have started.
class FakeProgress final : public Progress {
public:
    explicit FakeProgress(int stopAt = -1) : m_stopAt(stopAt) {}
    void begin(int total) override { totals << total; }
    void step(const QString &name) override { steps << name; }
    void end() override { ++ends; }
    bool stopRequested() const override { return m_stopAt >= 0 && steps.size() >= m_stopAt; }

    QList<int> totals;
    QStringList steps;
    int ends = 0;

private:
    int m_stopAt;
};

} // namespace

class TestTableSearch final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();

    void comparisonValue_data();
    void comparisonValue();
    void statementTexts_data();
    void statementTexts();
    void replacementValue_data();
    void replacementValue();

    void searchStopsAtFirstHitPerTable();
    void searchStopsBetweenTables();
    void searchFailureEndsTheLoop();
    void scanRepairsBeforeEveryQuery();
    void clientCodeGuard_data();
    void clientCodeGuard();
    void replaceHitPicksOneRowAtATime();
    void replaceHitOutcomes_data();
    void replaceHitOutcomes();

private:
    QStringList sent() { return statementsReceived(m_db->admin(), m_session.connectionId()); }

    std::unique_ptr<ScratchDatabase> m_db;
    DatabaseSession m_session;
};

void TestTableSearch::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(QStringLiteral("tablesearch"));
    QVERIFY_DB(m_db->error());
}

void TestTableSearch::init()
{
    QVERIFY_DB(m_db->run({
        qs("DROP TABLE IF EXISTS people, stock, main_info1, owner1, twins, vague"),
        qs("CREATE TABLE people (id INT PRIMARY KEY, name VARCHAR(20), city VARCHAR(20))"),
        qs("INSERT INTO people VALUES (1,'Oslo','Oslo'), (2,'amy','Rome'), (5,'Bob','oslo')"),
        qs("CREATE TABLE stock (qty SMALLINT, price DOUBLE, note TEXT, stamp DATETIME) ENGINE=MyISAM"),
        qs("INSERT INTO stock VALUES (5, 2.5, 'Oslo', '2007-12-25 10:30:00'), (7, 5, NULL, NULL)"),
        qs("CREATE TABLE main_info1 (code_no VARCHAR(10), code VARCHAR(10))"),
        qs("INSERT INTO main_info1 VALUES ('C1','C1')"),
        qs("CREATE TABLE owner1 (code VARCHAR(10))"),
        qs("INSERT INTO owner1 VALUES ('O1')"),
        qs("CREATE TABLE twins (name VARCHAR(20), n INT) ENGINE=MyISAM"),
        qs("INSERT INTO twins VALUES ('oslo',1), ('Oslo',1), ('Oslo',2), ('Lima',1)"),
        qs("CREATE TABLE vague (name VARCHAR(20), w FLOAT)"),
        qs("INSERT INTO vague VALUES ('Oslo', 31.1)"),
    }));
    QVERIFY_DB(openSession(m_session, m_db->name()));
}

void TestTableSearch::comparisonValue_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("value"); // "-" for a skipped field
    QTest::newRow("integer") << AdoType::Integer << "5"
                             << "5";
    QTest::newRow("number read whole") << AdoType::SmallInt << " 5.0 "
                                       << "5";
    QTest::newRow("double exponent") << AdoType::Double << "1e3"
                                     << "1000";
    QTest::newRow("tiny fraction") << AdoType::TinyInt << "-0.25"
                                   << "-0.25";
    QTest::newRow("not a number skips") << AdoType::Single << "5a"
                                        << "-";
    QTest::newRow("empty skips") << AdoType::Integer << ""
                                 << "-";
    QTest::newRow("date-time is numeric") << AdoType::DBTimeStamp << "2007-12-25"
                                          << "-";
    QTest::newRow("date-time year") << AdoType::DBTimeStamp << "2007"
                                    << "2007";
    QTest::newRow("text quoted as is") << AdoType::VarChar << "O'Brien"
                                       << "'O'Brien'";
    QTest::newRow("text untrimmed") << AdoType::Char << " x "
                                    << "' x '";
    QTest::newRow("empty text") << AdoType::LongVarChar << ""
                                << "''";
    QTest::newRow("big integer is text") << AdoType::BigInt << "5"
                                         << "'5'";
    QTest::newRow("date is text") << AdoType::DBDate << "2007-12-25"
                                  << "'2007-12-25'";
}

void TestTableSearch::comparisonValue()
{
    QFETCH(int, type);
    QFETCH(QString, text);
    QFETCH(QString, value);
    QCOMPARE(TableSearch::comparisonValue(type, text).value_or(qs("-")), value);
}

void TestTableSearch::statementTexts_data()
{
    QTest::addColumn<QString>("built");
    QTest::addColumn<QString>("expected");
    QTest::newRow("repair") << TableSearch::repairStatement(qs("bill")) << "Repair Table bill";
    QTest::newRow("field query") << TableSearch::fieldQuery(qs("bill"), qs("name"), qs("'a'"))
                                 << "select name from bill where name='a'";
    QTest::newRow("client code") << TableSearch::mainInfoCodeQuery(qs("C'1"))
                                 << "select code_no from main_info1 where code_no ='C'1'";
    QTest::newRow("owner code") << TableSearch::ownerCodeQuery(qs("C1")) << "select code from owner1 where code = 'C1'";
    QTest::newRow("replace quoted always")
        << TableSearch::replaceQuery(qs("stock"), qs("qty"), qs("5")) << "select * from stock where qty='5'";
}

void TestTableSearch::statementTexts()
{
    QFETCH(QString, built);
    QFETCH(QString, expected);
    QCOMPARE(built, expected);
}

void TestTableSearch::replacementValue_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("value");
    QTest::newRow("number") << AdoType::Integer << " 7.50 "
                            << "7.5";
    QTest::newRow("numeric field, text kept") << AdoType::Integer << "seven"
                                              << "seven";
    QTest::newRow("text field keeps form") << AdoType::VarChar << " 7.50 "
                                           << " 7.50 ";
}

void TestTableSearch::replacementValue()
{
    QFETCH(int, type);
    QFETCH(QString, text);
    QFETCH(QString, value);
    QCOMPARE(TableSearch::replacementValue(type, text), value);
}

void TestTableSearch::searchStopsAtFirstHitPerTable()
{
    FakeProgress progress;
    QList<int> hits;
    const QStringList tables = sl({"people", "stock", "owner1"});
    QVERIFY_DB(TableSearch::searchTables(m_session, tables, 0, 2, qs("Oslo"), progress,
                                         [&](const TableSearch::TableHit &h) { hits << h.position; }));
    QCOMPARE(hits, QList<int>({0, 1}));
    QCOMPARE(progress.steps, tables);
    QCOMPARE(progress.totals, QList<int>{3});
    QCOMPARE(progress.ends, 1);
    // No query for numeric fields with a text; none after the first hit of a table.
    QCOMPARE(
        sent(),
        sl({"Repair Table people", "SELECT * FROM `people` LIMIT 0", "select name from people where name='Oslo'",
            "Repair Table stock", "SELECT * FROM `stock` LIMIT 0", "select note from stock where note='Oslo'",
            "Repair Table owner1", "SELECT * FROM `owner1` LIMIT 0", "select code from owner1 where code='Oslo'"}));
}

void TestTableSearch::searchStopsBetweenTables()
{
    FakeProgress progress(2); // the stop is seen at the second table's step
    QList<int> hits;
    QVERIFY_DB(TableSearch::searchTables(m_session, sl({"people", "stock", "owner1"}), 0, 2, qs("5"), progress,
                                         [&](const TableSearch::TableHit &h) { hits << h.position; }));
    QCOMPARE(hits, QList<int>{0});
    QCOMPARE(progress.steps, sl({"people", "stock"}));
    QCOMPARE(progress.ends, 1);
    QCOMPARE(sent(), sl({"Repair Table people", "SELECT * FROM `people` LIMIT 0", "select id from people where id=5"}));
}

void TestTableSearch::searchFailureEndsTheLoop()
{
    FakeProgress progress;
    int hits = 0;
    const DbError error = TableSearch::searchTables(m_session, sl({"people", "stock"}), 0, 1, qs("O'Brien"), progress,
                                                    [&](const TableSearch::TableHit &) { ++hits; });
    QVERIFY(error.isError());
    QCOMPARE(error.number, AdoError::Syntax);
    QCOMPARE(hits, 0);
    QCOMPARE(sent().last(), qs("select name from people where name='O'Brien'"));
    QCOMPARE(progress.steps, sl({"people"}));
}

void TestTableSearch::scanRepairsBeforeEveryQuery()
{
    FakeProgress progress;
    QStringList hits;
    QVERIFY_DB(TableSearch::scanTables(m_session, sl({"people", "stock"}), qs("5"), progress,
                                       [&](const TableSearch::FieldHits &h) {
                                           for (qsizetype r = 0; r < h.rows->recordCount(); ++r)
                                               hits << QStringLiteral("%1|%2|%3|%4|%5")
                                                           .arg(h.table, h.field, h.rows->text(r, 0))
                                                           .arg(h.tablePosition)
                                                           .arg(h.fieldPosition);
                                       }));
    QCOMPARE(hits, sl({"people|id|5|0|0", "stock|qty|5|1|0", "stock|price|5|1|1"}));
    QCOMPARE(
        sent(),
        sl({"Repair Table people", "SELECT * FROM `people` LIMIT 0", "Repair Table people",
            "select id from people where id=5", "Repair Table people", "select name from people where name='5'",
            "Repair Table people", "select city from people where city='5'", "Repair Table stock",
            "SELECT * FROM `stock` LIMIT 0", "Repair Table stock", "select qty from stock where qty=5",
            "Repair Table stock", "select price from stock where price=5", "Repair Table stock",
            "select note from stock where note='5'", "Repair Table stock", "select stamp from stock where stamp=5"}));
}

void TestTableSearch::clientCodeGuard_data()
{
    QTest::addColumn<QString>("code");
    QTest::addColumn<bool>("exists");
    QTest::addColumn<QStringList>("statements");
    QTest::newRow("client code") << "C1" << true
                                 << sl({"Repair Table main_info1",
                                        "select code_no from main_info1 where code_no ='C1'"});
    const QStringList both = sl({"Repair Table main_info1", "select code_no from main_info1 where code_no ='O1'",
                                 "Repair Table owner1", "select code from owner1 where code = 'O1'"});
    QTest::newRow("owner code") << "O1" << true << both;
    QStringList fresh = both;
    fresh.replaceInStrings(qs("O1"), qs("N1"));
    QTest::newRow("new code") << "N1" << false << fresh;
}

void TestTableSearch::clientCodeGuard()
{
    QFETCH(QString, code);
    QFETCH(bool, exists);
    QFETCH(QStringList, statements);
    const DbResult<bool> found = TableSearch::clientCodeExists(m_session, code);
    QVERIFY_DB(found.error());
    QCOMPARE(found.value(), exists);
    QCOMPARE(sent(), statements);
}

void TestTableSearch::replaceHitPicksOneRowAtATime()
{
    // Three rows hold "Oslo" without a key: each replacement takes one of them, the first row
    // that still holds the value, and leaves the others and "Lima" alone.
    const TableSearch::Hit hit{qs("twins"), qs("name"), qs("Oslo"), 0};
    for (int i = 0; i < 3; ++i) {
        const auto outcome = TableSearch::replaceHit(m_session, hit, qs("OSLO"), qs("Bergen"));
        QVERIFY_DB(outcome.error());
        QCOMPARE(outcome.value(), TableSearch::ReplaceOutcome::Replaced);
        QCOMPARE(m_db->rows(qs("SELECT COUNT(*) FROM twins WHERE name='Bergen'")), QStringList{QString::number(i + 1)});
    }
    QCOMPARE(m_db->rows(qs("SELECT * FROM twins")), sl({"Bergen|1", "Bergen|1", "Bergen|2", "Lima|1"}));
    const auto again = TableSearch::replaceHit(m_session, hit, qs("Oslo"), qs("Bergen"));
    QCOMPARE(again.value(), TableSearch::ReplaceOutcome::NothingToReplace);
    const QStringList statements = sent();
    QCOMPARE(statements.mid(0, 3), sl({"Repair Table twins", "select * from twins where name='Oslo'",
                                       "UPDATE `tabulon_t_tablesearch`.`twins` SET `name`='Bergen' WHERE "
                                       "`name`<=>'oslo' AND `n`<=>'1' LIMIT 1"}));
}

void TestTableSearch::replaceHitOutcomes_data()
{
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("found");
    QTest::addColumn<QString>("replacement");
    QTest::addColumn<uint>("error"); // 0: replaced
    QTest::addColumn<QString>("check");
    QTest::addColumn<QStringList>("after");
    QTest::newRow("keyed, quote escaped by the session")
        << "people"
        << "city"
        << "Oslo"
        << "O'Hare" << 0u << "SELECT city FROM people WHERE id=1" << sl({"O'Hare"});
    QTest::newRow("numeric field takes the number")
        << "stock"
        << "qty"
        << "5"
        << " 6.0 " << 0u << "SELECT qty FROM stock ORDER BY qty" << sl({"6", "7"});
    QTest::newRow("numeric field refuses text")
        << "stock"
        << "qty"
        << "5"
        << "six" << uint(AdoError::Generic) << "SELECT qty FROM stock ORDER BY qty" << sl({"5", "7"});
    QTest::newRow("record not located") << "vague"
                                        << "name"
                                        << "Oslo"
                                        << "Rome" << uint(AdoError::RowNotFound) << "SELECT name FROM vague"
                                        << sl({"Oslo"});
    QTest::newRow("quote in found value")
        << "people"
        << "name"
        << "O'Brien"
        << "x" << uint(AdoError::Syntax) << "SELECT name FROM people WHERE id=1" << sl({"Oslo"});
}

void TestTableSearch::replaceHitOutcomes()
{
    QFETCH(QString, table);
    QFETCH(QString, field);
    QFETCH(QString, found);
    QFETCH(QString, replacement);
    QFETCH(uint, error);
    QFETCH(QString, check);
    QFETCH(QStringList, after);
    const auto outcome = TableSearch::replaceHit(m_session, {table, field, found, -1}, found, replacement);
    QCOMPARE(outcome.error().number, error);
    if (!error)
        QCOMPARE(outcome.value(), TableSearch::ReplaceOutcome::Replaced);
    QCOMPARE(m_db->rows(check), after);
}

QTEST_GUILESS_MAIN(TestTableSearch)
#include "test_tablesearch.moc"
