// The search and find-and-replace work without windows: the value rule as a table, the loops
// and the replacement of one hit against the real server, checked by what the server received
// and what the tables hold afterwards.
#include "data/tablesearch.h"
#include "db/progress.h"
#include "db/typecodes.h"
#include "testdb.h"

#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

namespace {

// Counts the steps and asks to stop once `stopAt` steps have started.
struct FakeProgress final : Progress {
    explicit FakeProgress(int stopAt = -1) : stopAt(stopAt) {}
    void begin(int) override {}
    void step(const QString &) override { ++steps; }
    void end() override { ++ends; }
    bool stopRequested() const override { return stopAt >= 0 && steps >= stopAt; }
    int stopAt, steps = 0, ends = 0;
};

} // namespace

class TestTableSearch final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();

    void comparisonValue_data();
    void comparisonValue();
    void searchTables_data();
    void searchTables();
    void scanRepairsBeforeEveryQuery();
    void replaceHitTakesOneRowAtATime();
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
        qs("DROP TABLE IF EXISTS people, stock, twins"),
        qs("CREATE TABLE people (id INT PRIMARY KEY, name VARCHAR(20), city VARCHAR(20))"),
        qs("INSERT INTO people VALUES (1,'Oslo','Oslo'), (2,'amy','Rome'), (5,'Bob','oslo')"),
        qs("CREATE TABLE stock (qty SMALLINT, price DOUBLE, note TEXT, stamp DATETIME) ENGINE=MyISAM"),
        qs("INSERT INTO stock VALUES (5, 2.5, 'Oslo', '2007-12-25 10:30:00'), (7, 5, NULL, NULL)"),
        qs("CREATE TABLE twins (name VARCHAR(20), n INT) ENGINE=MyISAM"),
        qs("INSERT INTO twins VALUES ('oslo',1), ('Oslo',1), ('Oslo',2), ('Lima',1)"),
    }));
    QVERIFY_DB(openSession(m_session, m_db->name()));
}

// One row per line reads best here.
// clang-format off
void TestTableSearch::comparisonValue_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("value"); // "-" for a skipped field
    QTest::newRow("number read whole") << AdoType::SmallInt << " 5.0 " << "5";
    QTest::newRow("exponent written out") << AdoType::Double << "1e3" << "1000";
    QTest::newRow("not a number skips") << AdoType::Single << "5a" << "-";
    QTest::newRow("date-time is numeric") << AdoType::DBTimeStamp << "2007-12-25" << "-";
    QTest::newRow("text quoted as is") << AdoType::VarChar << "O'Brien" << "'O'Brien'";
    QTest::newRow("big integer is text") << AdoType::BigInt << "5" << "'5'";
}
// clang-format on

void TestTableSearch::comparisonValue()
{
    QFETCH(int, type);
    QFETCH(QString, text);
    QTEST(TableSearch::comparisonValue(type, text).value_or(qs("-")), "value");
}

void TestTableSearch::searchTables_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("stopAt");
    QTest::addColumn<QList<int>>("hits");
    QTest::addColumn<QStringList>("statements");
    // A text skips numeric fields; a table's first hit ends its queries.
    QTest::newRow("text") << "Oslo" << -1 << QList<int>{0, 1}
                          << sl({"Repair Table people", "SELECT * FROM `people` LIMIT 0",
                                 "select name from people where name='Oslo'", "Repair Table stock",
                                 "SELECT * FROM `stock` LIMIT 0", "select note from stock where note='Oslo'"});
    // The stop asked for at the second table's yield is seen before it is touched.
    QTest::newRow("stop") << "5" << 2 << QList<int>{0}
                          << sl({"Repair Table people", "SELECT * FROM `people` LIMIT 0",
                                 "select id from people where id=5"});
    QTest::newRow("quote ends it") << "O'Brien" << -1 << QList<int>{}
                                   << sl({"Repair Table people", "SELECT * FROM `people` LIMIT 0",
                                          "select name from people where name='O'Brien'"});
}

void TestTableSearch::searchTables()
{
    QFETCH(QString, text);
    QFETCH(int, stopAt);
    FakeProgress progress(stopAt);
    QList<int> found;
    const DbError error = TableSearch::searchTables(m_session, sl({"people", "stock"}), 0, 1, text, progress,
                                                    [&](const TableSearch::TableHit &h) { found << h.position; });
    QCOMPARE(error.number, text.contains(u'\'') ? AdoError::Syntax : AdoError::None);
    QTEST(found, "hits");
    QTEST(sent(), "statements");
    QCOMPARE(progress.ends, error ? 0 : 1);
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
    QCOMPARE(sent().mid(0, 8),
             sl({"Repair Table people", "SELECT * FROM `people` LIMIT 0", "Repair Table people",
                 "select id from people where id=5", "Repair Table people", "select name from people where name='5'",
                 "Repair Table people", "select city from people where city='5'"}));
    QCOMPARE(sent().size(), 18);
}

void TestTableSearch::replaceHitTakesOneRowAtATime()
{
    // Three rows hold "Oslo" without a key: each replacement takes the first row that still
    // holds it, whatever its case, and leaves the others and "Lima" alone.
    const TableSearch::Hit hit{qs("twins"), qs("name"), qs("Oslo"), 0};
    for (int i = 1; i <= 3; ++i)
        QCOMPARE(TableSearch::replaceHit(m_session, hit, qs("OSLO"), qs("Bergen")).value(),
                 TableSearch::ReplaceOutcome::Replaced);
    QCOMPARE(m_db->rows(qs("SELECT * FROM twins")), sl({"Bergen|1", "Bergen|1", "Bergen|2", "Lima|1"}));
    QCOMPARE(TableSearch::replaceHit(m_session, hit, qs("Oslo"), qs("x")).value(),
             TableSearch::ReplaceOutcome::NothingToReplace);
    QCOMPARE(sent().mid(0, 3), sl({"Repair Table twins", "select * from twins where name='Oslo'",
                                   "UPDATE `tabulon_t_tablesearch`.`twins` SET `name`='Bergen' WHERE "
                                   "`name`<=>'oslo' AND `n`<=>'1' LIMIT 1"}));
}

// clang-format off
void TestTableSearch::replaceHitOutcomes_data()
{
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("found");
    QTest::addColumn<QString>("replacement");
    QTest::addColumn<uint>("error"); // 0: replaced
    QTest::addColumn<QStringList>("after"); // the field's column
    QTest::newRow("keyed, quote escaped by the session") << "people" << "city" << "Oslo" << "O'Hare" << 0u << sl({"O'Hare", "Rome", "oslo"});
    QTest::newRow("numeric field takes the number") << "stock" << "qty" << "5" << " 6.0 " << 0u << sl({"6", "7"});
    QTest::newRow("quote in found value") << "people" << "name" << "O'Brien" << "x" << uint(AdoError::Syntax) << sl({"Oslo", "amy", "Bob"});
}
// clang-format on

void TestTableSearch::replaceHitOutcomes()
{
    QFETCH(QString, table);
    QFETCH(QString, field);
    QFETCH(QString, found);
    QFETCH(QString, replacement);
    const auto outcome = TableSearch::replaceHit(m_session, {table, field, found, -1}, found, replacement);
    QTEST(outcome.error().number, "error");
    QTEST(m_db->rows(qs("SELECT %1 FROM %2").arg(field, table)), "after");
}

QTEST_GUILESS_MAIN(TestTableSearch)
#include "test_tablesearch.moc"
