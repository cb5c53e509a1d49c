// The search and find-and-replace work without windows: the value rule as a table, the loops
// and the replacement of one hit against the real server, checked by what the server received
// and what the tables hold afterwards.
#include "data/tablesearch.h"
#include "db/progress.h"
#include "db/typecodes.h"
#include "testdb.h"

using namespace tabulon;
using namespace tabulon::test;

class TestTableSearch final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();

    void comparisonValue_data();
    void comparisonValue();
    void scanRepairsBeforeEveryQuery();
    void replaceChangesTheHitsOwnRow_data();
    void replaceChangesTheHitsOwnRow();
    void quoteInTheFoundValueFails();

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
        qs("DROP TABLE IF EXISTS people, stock, twins, places, clients"),
        qs("CREATE TABLE people (id INT PRIMARY KEY, name VARCHAR(20), city VARCHAR(20))"),
        qs("INSERT INTO people VALUES (1,'Oslo','Oslo'), (2,'amy','Rome'), (5,'Bob','oslo')"),
        qs("CREATE TABLE stock (qty SMALLINT, price DOUBLE, note TEXT, stamp DATETIME) ENGINE=MyISAM"),
        qs("INSERT INTO stock VALUES (5, 2.5, 'Oslo', '2007-12-25 10:30:00'), (7, 5, NULL, NULL)"),
        // Equal, case-different and (in the numbers beside them) coerced values of a find text,
        // in a keyed table, a table without a key, and a table keyed by a client code.
        qs("CREATE TABLE places (id INT PRIMARY KEY, city VARCHAR(20), big BIGINT, d DECIMAL(6,2))"),
        qs("INSERT INTO places VALUES (1,'Oslo',0,1.5), (2,'oslo',7,0), (3,'Lima',0,0)"),
        qs("CREATE TABLE twins (name VARCHAR(20), alias VARCHAR(20), n INT) ENGINE=MyISAM"),
        qs("INSERT INTO twins VALUES ('oslo','x',1), ('OSLO','OSLO',1), ('Oslo','y',2)"),
        qs("CREATE TABLE clients (code_no VARCHAR(10) PRIMARY KEY, code VARCHAR(10))"),
        qs("INSERT INTO clients VALUES ('C1','C1'), ('C2','C1')"),
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

void TestTableSearch::scanRepairsBeforeEveryQuery()
{
    NoProgress progress;
    QStringList hits;
    QVERIFY_DB(TableSearch::scanTables(m_session, sl({"people", "stock"}), qs("5"), progress,
                                       [&](const TableSearch::FieldHits &h) {
                                           for (const TableSearch::Hit &hit : h.hits)
                                               hits << QStringLiteral("%1|%2|%3|%4|%5|%6")
                                                           .arg(h.table, h.field, hit.foundValue)
                                                           .arg(h.tablePosition)
                                                           .arg(h.fieldPosition)
                                                           .arg(hit.row.fields.join(u','));
                                       }));
    // A keyed row is known by its key, a row without one by all its values.
    QCOMPARE(hits, sl({"people|id|5|0|0|id", "stock|qty|5|1|0|qty,price,note,stamp",
                       "stock|price|5|1|1|qty,price,note,stamp"}));
    // The field's query as it stands; only a field with rows has them read again, with their
    // identities.
    QCOMPARE(sent().mid(0, 10),
             sl({"Repair Table people", "SELECT * FROM `people` LIMIT 0", "SHOW INDEX FROM `people`",
                 "Repair Table people", "select id from people where id=5", "SELECT `id` FROM `people` WHERE `id`=5",
                 "Repair Table people", "select name from people where name='5'", "Repair Table people",
                 "select city from people where city='5'"}));
    QVERIFY(sent().contains(qs("SELECT `qty`,`price`,`note`,`stamp` FROM `stock` WHERE `price`=5")));
    QCOMPARE(sent().size(), 23);
}

// clang-format off
void TestTableSearch::replaceChangesTheHitsOwnRow_data()
{
    QTest::addColumn<QString>("findText");
    QTest::addColumn<QString>("replacement");
    QTest::addColumn<QList<int>>("replaced"); // hits in scan order; empty: every hit once
    QTest::addColumn<QString>("outcomes");    // R replaced, C row changed, N not the find text
    QTest::addColumn<QStringList>("after");   // places, twins, clients
    const QStringList places{qs("1|Oslo|0|1.50"), qs("2|oslo|7|0.00"), qs("3|Lima|0|0.00")};
    const QStringList twins{qs("oslo|x|1"), qs("OSLO|OSLO|1"), qs("Oslo|y|2")};
    const QStringList clients{qs("C1|C1"), qs("C2|C1")};
    // Hits of "Oslo": places.city 1, 2; places.big 1, 3; places.d 2, 3 (the server takes 0 for
    // 'Oslo'); twins.name 1, 2, 3; twins.alias 2.
    QTest::newRow("the first hit ignored, the second replaced") << "Oslo" << "Bergen" << QList<int>{1} << "R"
        << sl({"1|Oslo|0|1.50", "2|Bergen|7|0.00", "3|Lima|0|0.00"}) + twins + clients;
    QTest::newRow("a replacement that still matches") << "oslo" << "Oslo" << QList<int>{} << "RRNNNNRRRR"
        << sl({"1|Oslo|0|1.50", "2|Oslo|7|0.00", "3|Lima|0|0.00", "Oslo|x|1", "Oslo|Oslo|1", "Oslo|y|2"}) + clients;
    QTest::newRow("coerced numbers stay") << "N/A" << "1" << QList<int>{} << "NNNN" << places + twins + clients;
    QTest::newRow("a hit replaced twice") << "Oslo" << "Bergen" << QList<int>{0, 0} << "RC"
        << sl({"1|Bergen|0|1.50", "2|oslo|7|0.00", "3|Lima|0|0.00"}) + twins + clients;
    QTest::newRow("one row, two fields, no key") << "OSLO" << "Rome" << QList<int>{7, 9} << "RR"
        << places + sl({"oslo|x|1", "Rome|Rome|1", "Oslo|y|2"}) + clients;
    QTest::newRow("a quote in the new text") << "Lima" << "O'Hare" << QList<int>{0} << "R"
        << sl({"1|Oslo|0|1.50", "2|oslo|7|0.00", "3|O'Hare|0|0.00"}) + twins + clients;
    QTest::newRow("a number field takes the number") << "2" << " 6.0 " << QList<int>{1} << "R"
        << places + sl({"oslo|x|1", "OSLO|OSLO|1", "Oslo|y|6"}) + clients;
    QTest::newRow("a client code in its key and beside it") << "C1" << "N1" << QList<int>{} << "NNNNRRR"
        << places + twins + sl({"C2|N1", "N1|N1"});
}
// clang-format on

// The hits of a scan replaced one by one as the window does: each changes the row it was
// found in, and only while that row's field is the find text.
void TestTableSearch::replaceChangesTheHitsOwnRow()
{
    QFETCH(QString, findText);
    QFETCH(QString, replacement);
    QFETCH(QList<int>, replaced);
    NoProgress progress;
    std::vector<TableSearch::Hit> hits;
    QVERIFY_DB(TableSearch::scanTables(
        m_session, sl({"places", "twins", "clients"}), findText, progress,
        [&](const TableSearch::FieldHits &h) { hits.insert(hits.end(), h.hits.begin(), h.hits.end()); }));
    if (replaced.isEmpty()) {
        for (int i = 0; i < static_cast<int>(hits.size()); ++i)
            replaced << i;
    }
    QString outcomes;
    for (const int i : replaced) {
        QVERIFY(i < static_cast<int>(hits.size()));
        TableSearch::Hit &hit = hits[static_cast<size_t>(i)];
        const auto result = TableSearch::replaceHit(m_session, hit, findText, replacement);
        QVERIFY_DB(result.error());
        switch (result->outcome) {
        case TableSearch::ReplaceOutcome::Replaced:
            outcomes += u'R';
            TableSearch::followReplacement(hits, hit, result->written);
            break;
        case TableSearch::ReplaceOutcome::RowChanged: outcomes += u'C'; break;
        case TableSearch::ReplaceOutcome::NotFindText: outcomes += u'N'; break;
        }
    }
    QTEST(outcomes, "outcomes");
    QTEST(m_db->rows(qs("SELECT * FROM places ORDER BY id")) + m_db->rows(qs("SELECT * FROM twins")) +
              m_db->rows(qs("SELECT * FROM clients ORDER BY code_no")),
          "after");
}

// A hit whose found value holds a quote fails as the server's syntax error and changes nothing.
void TestTableSearch::quoteInTheFoundValueFails()
{
    const TableSearch::Hit hit{qs("people"), qs("name"), qs("O'Brien"), -1, {sl({"id"}), {QByteArray("1")}}};
    QCOMPARE(TableSearch::replaceHit(m_session, hit, hit.foundValue, qs("x")).error().number, uint(AdoError::Syntax));
    QCOMPARE(m_db->rows(qs("SELECT name FROM people")), sl({"Oslo", "amy", "Bob"}));
}

QTEST_GUILESS_MAIN(TestTableSearch)
#include "test_tablesearch.moc"
