// The import's value literals and field matching, and the row copy against the real server
// from a source held in memory: escaping, NULLs, dates, refused rows, a table that is already
// there, and a stop request.
#include "convert/importdata.h"
#include "db/progress.h"
#include "db/typecodes.h"
#include "testdb.h"

#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

namespace {

// One table, held whole.
class MemorySource final : public ConversionSource {
public:
    SourceTable table;
    QStringList tableNames() const override { return {table.name}; }
    DbResult<std::vector<SourceField>> readFields(const QString &) override { return table.fields; }
    DbError readRows(const QString &name, const RowSink &sink) override
    {
        if (name != table.name)
            return unknownSourceTable(name);
        for (const SourceRow &row : table.rows) {
            if (DbError e = sink(row))
                return e;
        }
        return {};
    }
};

// Asks to stop once `stopAfter` steps have begun.
class CountingProgress final : public Progress {
public:
    int stopAfter = -1;
    int steps = 0;
    int total = -1;
    void begin(int t) override { total = t; }
    void step(const QString &) override { ++steps; }
    void end() override {}
    bool stopRequested() const override { return stopAfter >= 0 && steps >= stopAfter; }
};

std::optional<QString> v(const char *text)
{
    return text ? std::optional<QString>(qs(text)) : std::nullopt;
}

std::vector<int> all(const SourceTable &t)
{
    std::vector<int> ticked(t.fields.size());
    for (size_t i = 0; i < ticked.size(); ++i)
        ticked[i] = static_cast<int>(i);
    return ticked;
}

} // namespace

class TestImportData final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();

    void valueLiteral_data();
    void valueLiteral();
    void existingTableMatching();
    void copiesIntoANewTable();
    void copiesIntoAnExistingTable();
    void tableAlreadyThereIsLeftAlone();
    void stopsBetweenSteps();

private:
    Import::Plan plan(const QString &target, bool newTable, const std::vector<Import::TargetColumn> &columns = {});

    std::unique_ptr<ScratchDatabase> m_db;
    DatabaseSession m_session;
    MemorySource m_source;
};

void TestImportData::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(QStringLiteral("importdata"));
    QVERIFY_DB(m_db->error());
    QVERIFY_DB(openSession(m_session, m_db->name()));
    SourceTable &t = m_source.table;
    t.name = qs("Client List");
    t.fields = {{qs("Client ID"), AdoType::Integer},
                {qs("Name"), AdoType::VarWChar},
                {qs("Date"), AdoType::Date},
                {qs("Active"), AdoType::Boolean},
                {qs("Desc"), AdoType::LongVarWChar}};
    t.rows = {{v("1"), v("O'Brien"), v("11/16/1994"), v("True"), v("C:\\temp\\x")},
              {v("2"), v(nullptr), v("2/29/2000 2:05:09 PM"), v("False"), v(nullptr)},
              {v("x3"), v("refused"), v(nullptr), v("True"), v("")},
              {v("4"), v("Ünal \"Q\""), v("12:30:00 AM"), v(nullptr), v("line\nbreak")}};
}

void TestImportData::init()
{
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS Client_List, target")}));
}

Import::Plan TestImportData::plan(const QString &target, bool newTable,
                                  const std::vector<Import::TargetColumn> &columns)
{
    const std::vector<int> ticked = all(m_source.table);
    return {m_source.table.name, target, newTable,
            newTable ? Import::newTableMapping(m_source.table.fields, ticked)
                     : Import::existingTableMapping(m_source.table.fields, ticked, columns)};
}

// One row per line reads best here.
// clang-format off
void TestImportData::valueLiteral_data()
{
    QTest::addColumn<std::optional<QString>>("value");
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("column");
    QTest::addColumn<QByteArray>("literal");
    QTest::newRow("NULL") << v(nullptr) << AdoType::VarWChar << qs("varchar(255)") << QByteArray("NULL");
    QTest::newRow("NULL date") << v(nullptr) << AdoType::Date << qs("datetime") << QByteArray("NULL");
    QTest::newRow("empty text stays text") << v("") << AdoType::VarWChar << qs("varchar(255)") << QByteArray("''");
    QTest::newRow("apostrophe, backslash") << v("O'B\\n") << AdoType::VarWChar << qs("text") << QByteArray(R"('O\'B\\n')");
    QTest::newRow("true") << v("True") << AdoType::Boolean << qs("tinyint(4)") << QByteArray("1");
    QTest::newRow("false into text") << v("False") << AdoType::Boolean << qs("varchar(5)") << QByteArray("0");
    QTest::newRow("date into datetime") << v("11/16/1994") << AdoType::Date << qs("datetime") << QByteArray("'1994-11-16 00:00:00'");
    QTest::newRow("PM into timestamp") << v("2/29/2000 2:05:09 PM") << AdoType::Date << qs("timestamp") << QByteArray("'2000-02-29 14:05:09'");
    QTest::newRow("12 AM is midnight") << v("1/2/2003 12:15:00 AM") << AdoType::DBTimeStamp << qs("datetime") << QByteArray("'2003-01-02 00:15:00'");
    QTest::newRow("into date: time dropped") << v("1/2/2003 3:00:00 PM") << AdoType::Date << qs("date") << QByteArray("'2003-01-02'");
    QTest::newRow("time alone into time") << v("10:30:00 PM") << AdoType::Date << qs("time") << QByteArray("'22:30:00'");
    QTest::newRow("time alone into datetime") << v("10:30:00 AM") << AdoType::DBTime << qs("datetime") << QByteArray("'1899-12-30 10:30:00'");
    QTest::newRow("into year") << v("7/4/1976") << AdoType::Date << qs("year(4)") << QByteArray("'1976'");
    QTest::newRow("into text: date alone") << v("7/4/1976") << AdoType::Date << qs("longtext") << QByteArray("'1976-07-04'");
    QTest::newRow("into text with time") << v("7/4/1976 9:05:00 AM") << AdoType::DBTimeStamp << qs("longtext") << QByteArray("'1976-07-04 09:05:00'");
    QTest::newRow("text source into date column") << v("7/4/1976") << AdoType::VarChar << qs("date") << QByteArray("'1976-07-04'");
    QTest::newRow("text source into text column") << v("7/4/1976") << AdoType::VarChar << qs("varchar(20)") << QByteArray("'7/4/1976'");
    QTest::newRow("no calendar date") << v("2/30/2000") << AdoType::Date << qs("datetime") << QByteArray("'2/30/2000'");
    QTest::newRow("13 PM") << v("1/1/2000 13:00:00 PM") << AdoType::Date << qs("datetime") << QByteArray("'1/1/2000 13:00:00 PM'");
    QTest::newRow("no date at all") << v("soon") << AdoType::Date << qs("datetime") << QByteArray("'soon'");
}
// clang-format on

void TestImportData::valueLiteral()
{
    QFETCH(std::optional<QString>, value);
    QFETCH(int, type);
    QFETCH(QString, column);
    QFETCH(QByteArray, literal);
    QCOMPARE(Import::valueLiteral(value, type, column, SessionSql::escapeDefault), literal);
}

void TestImportData::existingTableMatching()
{
    const std::vector<SourceField> fields = {{qs("Order ID"), 3}, {qs("Desc"), 202},  {qs("Description"), 202},
                                             {qs("Date"), 7},     {qs("Extra"), 202}, {qs("desc"), 202}};
    const std::vector<Import::TargetColumn> columns = {
        {qs("order_id"), qs("int(11)")}, {qs("DESCRIPTION"), qs("text")}, {qs("Date_C"), qs("date")}};
    // Field 1 is left unticked; a column goes to the first field that matches it.
    const auto mapping = Import::existingTableMapping(fields, {0, 2, 3, 4, 5}, columns);
    QStringList got;
    for (const Import::FieldMapping &m : mapping)
        got << QStringLiteral("%1:%2>%3 %4").arg(m.sourceIndex).arg(m.field.name, m.column, m.columnType);
    QCOMPARE(got, sl({"0:Order ID>order_id int(11)", "2:Description>DESCRIPTION text", "3:Date>Date_C date",
                      "4:Extra> ", "5:desc> "}));
    QCOMPARE(Import::matchedCount(mapping), 3);
}

void TestImportData::copiesIntoANewTable()
{
    NoProgress progress;
    const Import::Outcome outcome = Import::run(m_source, m_session, plan(qs("Client_List"), true), progress);
    QVERIFY_DB(outcome.error);
    QCOMPARE(outcome.copied, 3);
    QCOMPARE(outcome.refused, 1);
    QCOMPARE(outcome.refusals,
             QStringList({qs("Incorrect integer value: 'x3' for column `%1`.`Client_List`.`Client_ID` at row 1")
                              .arg(m_db->name())}));
    QCOMPARE(m_db->rows(qs("SELECT GROUP_CONCAT(column_name, ' ', column_type ORDER BY ordinal_position) FROM "
                           "information_schema.columns WHERE table_schema=DATABASE() AND table_name='Client_List'")),
             sl({"Client_ID int(11),Name varchar(255),Date_c datetime,Active tinyint(4),Description longtext"}));
    QCOMPARE(m_db->rows(qs("SELECT * FROM Client_List ORDER BY Client_ID")),
             sl({"1|O'Brien|1994-11-16 00:00:00|1|C:\\temp\\x", "2|\\N|2000-02-29 14:05:09|0|\\N",
                 "4|Ünal \"Q\"|1899-12-30 00:30:00|\\N|line\nbreak"}));
}

void TestImportData::copiesIntoAnExistingTable()
{
    QVERIFY_DB(m_db->run({qs("CREATE TABLE target (name VARCHAR(20), DATE_C DATE, description TEXT, other INT)")}));
    auto columns = Import::readColumns(m_session, qs("target"));
    QVERIFY_DB(columns.error());
    NoProgress progress;
    const Import::Outcome outcome = Import::run(m_source, m_session, plan(qs("target"), false, *columns), progress);
    QVERIFY_DB(outcome.error);
    QCOMPARE(outcome.copied, 4);
    QCOMPARE(outcome.refused, 0);
    QCOMPARE(m_db->rows(qs("SELECT * FROM target ORDER BY name")),
             sl({"\\N|2000-02-29|\\N|\\N", "O'Brien|1994-11-16|C:\\temp\\x|\\N", "refused|\\N||\\N",
                 "Ünal \"Q\"|1899-12-30|line\nbreak|\\N"}));
}

void TestImportData::tableAlreadyThereIsLeftAlone()
{
    QVERIFY_DB(m_db->run({qs("CREATE TABLE Client_List (kept INT)"), qs("INSERT INTO Client_List VALUES (7)")}));
    QVERIFY(Import::tableExists(m_session, qs("Client_List")).value());
    QVERIFY(!Import::tableExists(m_session, qs("client_list")).value());
    NoProgress progress;
    const Import::Outcome outcome = Import::run(m_source, m_session, plan(qs("Client_List"), true), progress);
    QCOMPARE(outcome.error.description, qs("Table 'Client_List' already exists"));
    QCOMPARE(outcome.copied + outcome.refused, 0);
    QCOMPARE(m_db->rows(qs("SELECT * FROM Client_List")), sl({"7"}));
}

void TestImportData::stopsBetweenSteps()
{
    MemorySource big;
    big.table.name = qs("big");
    big.table.fields = {{qs("n"), AdoType::Integer}};
    for (int i = 0; i < 2 * Import::kRowsPerStep + 7; ++i)
        big.table.rows.push_back({QString::number(i)});
    CountingProgress progress;
    progress.stopAfter = 2;
    const Import::Plan stopped{qs("big"), qs("target"), true, Import::newTableMapping(big.table.fields, {0})};
    const Import::Outcome outcome = Import::run(big, m_session, stopped, progress);
    QVERIFY_DB(outcome.error);
    QVERIFY(outcome.stopped);
    QCOMPARE(progress.total, 3);
    QCOMPARE(outcome.copied, Import::kRowsPerStep);
    QCOMPARE(m_db->rows(qs("SELECT COUNT(*) FROM target")), sl({"50"}));
}

QTEST_GUILESS_MAIN(TestImportData)
#include "test_importdata.moc"
