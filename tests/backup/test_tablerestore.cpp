// The restore's work against the real server: the value rule per field type, the statements
// word for word as the server receives them, failures handed to the caller, and the client
// restore's deletes and codes (its rows restored are checked through the window).
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
    void clientDeletes_data();
    void clientDeletes();
    void checkFit_data();
    void checkFit();
    void insertRows();
    void failures();

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

void TestTableRestore::clientDeletes_data()
{
    QTest::addColumn<QString>("table");
    QTest::addColumn<QStringList>("fields");
    QTest::addColumn<QStringList>("deletes");
    // clang-format off
    QTest::newRow("bill")       << "BILL"       << sl({"NAME", "AMOUNT"}) << sl({"Delete from BILL where ucase(name) = 'C9'"});
    QTest::newRow("table4")     << "table4"     << sl({"NAME"})           << sl({"Delete from table4 where ucase(name) = 'C9'"});
    QTest::newRow("main_info1") << "main_info1" << sl({"CODE_NO", "CODE"}) << sl({"Delete from main_info1 where ucase(code) = 'C9'",
                                                                              "Delete from main_info1 where ucase(code_no) = 'C9'"});
    QTest::newRow("code only")  << "visits"     << sl({"CODE", "V"})      << sl({"Delete from visits where ucase(code) = 'C9'"});
    QTest::newRow("no code")    << "staff"      << sl({"SNAME"})          << QStringList();
    // clang-format on
}

void TestTableRestore::clientDeletes()
{
    QFETCH(QString, table);
    QFETCH(QStringList, fields);
    QHash<QString, int> types;
    for (const QString &field : fields)
        types.insert(field, AdoType::VarChar);
    QTEST(TableRestore::clientDeletes(table, qs("C9"), types), "deletes");
    QVERIFY(TableRestore::isSafeClientCode(qs("C00001")));
    QVERIFY(!TableRestore::isSafeClientCode(qs("X' OR '1'='1")));
    QVERIFY(!TableRestore::isSafeClientCode(qs("  ")));
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

QTEST_GUILESS_MAIN(TestTableRestore)
#include "test_tablerestore.moc"
