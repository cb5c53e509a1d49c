// The restore's work against the real server: the value rule per field type, the statements
// word for word as the server receives them, failures handed to the caller, and which rows are
// a client's (the client restore's deletes and code refusals are checked through the window).
#include "backup/restorecheck.h"
#include "backup/servernames.h"
#include "backup/tablerestore.h"
#include "backupfixture.h"
#include "db/typecodes.h"
#include "testdb.h"

#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

namespace {
const auto kStop = [](const DbError &) { return false; };
} // namespace

class TestTableRestore final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void values_data();
    void values();
    void checkFit_data();
    void checkFit();
    void insertRows();
    void failures();
    void reservedNames_data();
    void reservedNames();
    void clientRows_data();
    void clientRows();

private:
    QString tableFile(const char *name, const QList<QStringList> &rows);

    std::unique_ptr<ScratchDatabase> m_db;
    DatabaseSession m_session;
    QTemporaryDir m_dir;
};

void TestTableRestore::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(qs("tablerestore"));
    QVERIFY_DB(m_db->error());
    QVERIFY_DB(openSession(m_session, m_db->name()));
    QVERIFY_DB(m_db->run({qs(
        "CREATE TABLE t (id INT PRIMARY KEY, qty SMALLINT, price DOUBLE, d DATE, ts DATETIME, note VARCHAR(40))")}));
}

QString TestTableRestore::tableFile(const char *name, const QList<QStringList> &rows)
{
    const QString path = m_dir.filePath(qs(name));
    return writeGridFile(path, rows) ? path : QString();
}

void TestTableRestore::values_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("cell");
    QTest::addColumn<QString>("value");
    // clang-format off
    QTest::newRow("tiny integer, leading number")   << AdoType::TinyInt     << " 7 dwarfs"           << "7";
    QTest::newRow("small integer, empty")           << AdoType::SmallInt    << ""                    << "0";
    QTest::newRow("single")                         << AdoType::Single      << "1.5"                 << "1.5";
    QTest::newRow("double, exponent")               << AdoType::Double      << "-2.5e3"              << "-2500";
    QTest::newRow("date-time stamp gives its year") << AdoType::DBTimeStamp << "2007-12-25 10:30:00" << "2007";
    QTest::newRow("date quoted as it stands")       << AdoType::DBDate      << "2007-12-25"          << "'2007-12-25'";
    QTest::newRow("decimal quoted")                 << AdoType::Numeric     << "12.50"               << "'12.50'";
    QTest::newRow("big integer quoted")             << AdoType::BigInt      << "9007199254740993"    << "'9007199254740993'";
    QTest::newRow("unsigned integer quoted")        << AdoType::UnsignedInt << "5"                   << "'5'";
    QTest::newRow("text unescaped")                 << AdoType::VarChar     << "O'Brien"             << "'O'Brien'";
    QTest::newRow("empty text")                     << AdoType::VarChar     << ""                    << "''";
    // clang-format on
}

void TestTableRestore::values()
{
    QFETCH(int, type);
    QFETCH(QString, cell);
    QTEST(TableRestore::value(type, cell), "value");
}

// A file fits when it holds exactly the table's fields, each once, in any order and case.
void TestTableRestore::checkFit_data()
{
    QTest::addColumn<QStringList>("header");
    QTest::addColumn<QString>("misfit");
    // clang-format off
    QTest::newRow("same fields, other order and case") << sl({"NOTE", "id", "qty", "price", "d", "ts"}) << "";
    QTest::newRow("a field fewer")  << sl({"id", "qty", "price", "d", "ts"})               << "its file has 5 columns, the table has 6 fields.";
    QTest::newRow("a field more")   << sl({"id", "qty", "price", "d", "ts", "note", "x"})  << "its file has 7 columns, the table has 6 fields.";
    QTest::newRow("unknown field")  << sl({"id", "qty", "price", "d", "ts", "memo"})       << "its file has the field \"memo\", which the table does not have.";
    QTest::newRow("field twice")    << sl({"id", "qty", "price", "d", "ts", "ID"})         << "its file has the field \"ID\" twice.";
    // clang-format on
}

void TestTableRestore::checkFit()
{
    QFETCH(QStringList, header);
    const auto fit = TableRestore::checkFit(m_session, qs("t"), tableFile("fit", {header, header}));
    QVERIFY_DB(fit.error());
    QTEST(fit->misfit, "misfit");
    QCOMPARE(fit->types.size(), 6);
}

// One INSERT per row, in the file's column order, each value by its target field's type.
void TestTableRestore::insertRows()
{
    const QString file =
        tableFile("t", {sl({"note", "id", "qty", "price", "d", "ts"}), sl({"first", "1", "3", "2.5", "2007-12-25", ""}),
                        sl({"", "2", "", "", "2008-01-31", ""})});
    auto types = TableRestore::fieldColumns(m_session, qs("t"));
    QVERIFY_DB(types.error());
    clearServerLog(m_db->admin());
    QVERIFY_DB(TableRestore::insertRows(m_session, qs("t"), file, *types, nullptr, false, kStop));
    QCOMPARE(statementsReceived(m_db->admin(), m_session.connectionId()),
             sl({"Insert into t (note,id,qty,price,d,ts) values ('first',1,3,2.5,'2007-12-25',0)",
                 "Insert into t (note,id,qty,price,d,ts) values ('',2,0,0,'2008-01-31',0)"}));
    QCOMPARE(m_db->rows(qs("SELECT id, qty, note FROM t ORDER BY id")), sl({"1|3|first", "2|0|"}));

    // A header row alone inserts nothing.
    clearServerLog(m_db->admin());
    QVERIFY_DB(
        TableRestore::insertRows(m_session, qs("t"), tableFile("header", {sl({"id"})}), *types, nullptr, false, kStop));
    QCOMPARE(statementsReceived(m_db->admin(), m_session.connectionId()), QStringList());
}

// A failing statement goes to the handler, and going on skips it (stopping: the restore window's
// test). A field the target lacks fails with its own error.
void TestTableRestore::failures()
{
    QVERIFY_DB(m_db->run({qs("DELETE FROM t")}));
    auto types = TableRestore::fieldColumns(m_session, qs("t"));
    const QString file =
        tableFile("quotes", {sl({"id", "note"}), sl({"10", "fine"}), sl({"11", "it's"}), sl({"12", "after"})});
    int failed = 0;
    const auto goOn = [&failed](const DbError &) {
        ++failed;
        return true;
    };
    QVERIFY_DB(TableRestore::insertRows(m_session, qs("t"), file, *types, nullptr, false, goOn));
    QCOMPARE(failed, 1); // the quote of 11
    QCOMPARE(m_db->rows(qs("SELECT id FROM t ORDER BY id")), sl({"10", "12"}));

    const DbError missing = TableRestore::insertRows(
        m_session, qs("t"), tableFile("missing", {sl({"id", "gone"}), sl({"20", "x"})}), *types, nullptr, false, kStop);
    QCOMPARE(missing.number, AdoError::ItemNotFound);
    QVERIFY(TableRestore::fieldColumns(m_session, qs("no_such")).error().isError());
    QCOMPARE(TableRestore::checkFit(m_session, qs("no_such"), file).error().serverCode, 1146);
    const auto unreadable = TableRestore::checkFit(m_session, qs("t"), m_dir.filePath(qs("absent")));
    QVERIFY2(unreadable->misfit.startsWith(qs("its file cannot be read: ")), qPrintable(unreadable->misfit));
}

// The server's parser decides among its keywords: most are still names.
void TestTableRestore::reservedNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("column");
    QTest::addColumn<bool>("reserved");
    // clang-format off
    QTest::newRow("order, a table")        << "order"    << false << true;
    QTest::newRow("desc, a column")        << "Desc"     << true  << true;
    QTest::newRow("dual, a table")         << "dual"     << false << true;
    QTest::newRow("value, a table")        << "value"    << false << true;
    QTest::newRow("value, a column")       << "value"    << true  << false;
    QTest::newRow("an introducer")         << "_utf8mb4" << true  << true;
    QTest::newRow("name, a keyword")       << "name"     << true  << false;
    QTest::newRow("code, a keyword")       << "code"     << false << false;
    QTest::newRow("not a keyword")         << "bill"     << false << false;
    // clang-format on
}

void TestTableRestore::reservedNames()
{
    QFETCH(QString, name);
    QFETCH(bool, column);
    auto keywords = ServerNames::keywords(m_session);
    QVERIFY_DB(keywords.error());
    auto reserved = ServerNames::reservedNames(m_session, *keywords, {name},
                                               column ? ServerNames::Place::Column : ServerNames::Place::Table);
    QVERIFY_DB(reserved.error());
    QTEST(reserved->contains(name), "reserved");
}

// A client's rows are those whose code the server takes for the code, under the column's
// collation: case, trailing blanks and (in general_ci) accents aside.
void TestTableRestore::clientRows_data()
{
    QTest::addColumn<QString>("collation");
    QTest::addColumn<QString>("cell");
    QTest::addColumn<bool>("owned");
    // clang-format off
    QTest::newRow("same code")                  << "utf8mb4_general_ci" << "C00007"  << true;
    QTest::newRow("lower case")                 << "utf8mb4_general_ci" << "c00007"  << true;
    QTest::newRow("trailing blank")             << "utf8mb4_general_ci" << "C00007 " << true;
    QTest::newRow("accent, general_ci")         << "utf8mb4_general_ci" << "Ç00007"  << true;
    QTest::newRow("accent, latin1 column")      << "latin1_swedish_ci"  << "ç00007"  << true;
    QTest::newRow("accent, binary")             << "utf8mb4_bin"        << "Ç00007"  << false;
    QTest::newRow("lower case, binary")         << "utf8mb4_bin"        << "c00007"  << true;
    QTest::newRow("another code")               << "utf8mb4_general_ci" << "C00070"  << false;
    QTest::newRow("empty")                      << "utf8mb4_general_ci" << ""        << false;
    // clang-format on
}

void TestTableRestore::clientRows()
{
    QFETCH(QString, collation);
    QFETCH(QString, cell);
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS visits"),
                          qs("CREATE TABLE visits (v INT, code VARCHAR(10) COLLATE %1)").arg(collation)}));
    const QString file = tableFile("visits", {sl({"v", "CODE"}), {qs("1"), cell}, sl({"2", "C00099"})});
    auto rows = RestoreCheck::clientRows(m_session, qs("visits"), file, qs("C00007"));
    QVERIFY_DB(rows.error());
    QCOMPARE(rows->column, 1);
    QTEST(rows->owns({"1", cell.toUtf8()}), "owned");
    QVERIFY(!rows->owns({"2", "C00099"}));
    // Without a code column no row is a client's.
    const auto none =
        RestoreCheck::clientRows(m_session, qs("t"), tableFile("none", {sl({"id"}), sl({"1"})}), qs("C00007"));
    QVERIFY_DB(none.error());
    QCOMPARE(none->column, -1);
}

QTEST_GUILESS_MAIN(TestTableRestore)
#include "test_tablerestore.moc"
