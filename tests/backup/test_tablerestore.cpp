// The restore's work against the real server: the value rule per field type, the statements
// word for word as the server receives them, failures handed to the caller, and the client
// restore's code columns and deletes.
#include "backup/tablerestore.h"
#include "db/typecodes.h"
#include "grid/gridfile.h"
#include "testdb.h"

#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

class TestTableRestore final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void values_data();
    void values();
    void clientDeletes_data();
    void clientDeletes();
    void insertRows();
    void failures();
    void clientRows();

private:
    QString tableFile(const char *name, const QList<QStringList> &rows);
    QStringList received();

    std::unique_ptr<ScratchDatabase> m_db;
    DatabaseSession m_session;
    QTemporaryDir m_dir;
};

void TestTableRestore::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(QStringLiteral("tablerestore"));
    QVERIFY_DB(m_db->error());
    QVERIFY_DB(openSession(m_session, m_db->name()));
    QVERIFY_DB(m_db->run({
        QStringLiteral("CREATE TABLE t (id INT PRIMARY KEY, qty SMALLINT, price DOUBLE, d DATE, ts DATETIME, "
                       "note VARCHAR(40))"),
        QStringLiteral("CREATE TABLE bill (name VARCHAR(10), amount INT)"),
        QStringLiteral("CREATE TABLE visits (code VARCHAR(10), code_no VARCHAR(10), v INT)"),
        QStringLiteral("INSERT INTO bill VALUES ('C1', 1), ('C2', 2), ('c1x', 3)"),
        QStringLiteral("INSERT INTO visits VALUES ('C1', 'C1', 1), ('C2', 'C2', 2), ('A1', 'C3', 3)"),
    }));
}

QString TestTableRestore::tableFile(const char *name, const QList<QStringList> &rows)
{
    const QString path = m_dir.filePath(QString::fromUtf8(name));
    GridFileWriter out;
    out.open(path, 1, 0, rows.first().size());
    for (const QStringList &row : rows)
        out.writeRow(row);
    return out.commit() ? QString() : path;
}

QStringList TestTableRestore::received()
{
    return statementsReceived(m_db->admin(), m_session.connectionId());
}

void TestTableRestore::values_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("cell");
    QTest::addColumn<QString>("value");
    QTest::newRow("integer") << AdoType::Integer << "42"
                             << "42";
    QTest::newRow("tiny integer, leading number") << AdoType::TinyInt << " 7 dwarfs"
                                                  << "7";
    QTest::newRow("small integer, empty") << AdoType::SmallInt << ""
                                          << "0";
    QTest::newRow("single") << AdoType::Single << "1.5"
                            << "1.5";
    QTest::newRow("double, exponent") << AdoType::Double << "-2.5e3"
                                      << "-2500";
    QTest::newRow("date-time stamp gives its year") << AdoType::DBTimeStamp << "2007-12-25 10:30:00"
                                                    << "2007";
    QTest::newRow("date quoted as it stands") << AdoType::DBDate << "2007-12-25"
                                              << "'2007-12-25'";
    QTest::newRow("decimal quoted") << AdoType::Numeric << "12.50"
                                    << "'12.50'";
    QTest::newRow("big integer quoted") << AdoType::BigInt << "9007199254740993"
                                        << "'9007199254740993'";
    QTest::newRow("unsigned integer quoted") << AdoType::UnsignedInt << "5"
                                             << "'5'";
    QTest::newRow("text unescaped") << AdoType::VarChar << "O'Brien"
                                    << "'O'Brien'";
    QTest::newRow("empty text") << AdoType::VarChar << ""
                                << "''";
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
    QTest::addColumn<QStringList>("deletes");
    QTest::newRow("bill") << "BILL" << sl({"Delete from BILL where ucase(name) = 'C9'"});
    QTest::newRow("table4") << "table4" << sl({"Delete from table4 where ucase(name) = 'C9'"});
    QTest::newRow("main_info1") << "main_info1"
                                << sl({"Delete from main_info1 where ucase(code) = 'C9'",
                                       "Delete from main_info1 where ucase(code_no) = 'C9'"});
}

void TestTableRestore::clientDeletes()
{
    QFETCH(QString, table);
    QTEST(TableRestore::clientDeletes(table, QStringLiteral("C9")), "deletes");
    QVERIFY(TableRestore::isSafeClientCode(QStringLiteral("C00001")));
    QVERIFY(!TableRestore::isSafeClientCode(QStringLiteral("X' OR '1'='1")));
    QVERIFY(!TableRestore::isSafeClientCode(QStringLiteral("X\\")));
    QVERIFY(!TableRestore::isSafeClientCode(QStringLiteral("  ")));
}

// One INSERT per row, in the file's column order, each value by its target field's type.
void TestTableRestore::insertRows()
{
    const QString file =
        tableFile("t", {sl({"note", "id", "qty", "price", "d", "ts"}), sl({"first", "1", "3", "2.5", "2007-12-25", ""}),
                        sl({"", "2", "", "", "2008-01-31", ""})});
    auto types = TableRestore::fieldTypes(m_session, QStringLiteral("t"));
    QVERIFY_DB(types.error());
    clearServerLog(m_db->admin());
    QVERIFY_DB(TableRestore::insertRows(m_session, QStringLiteral("t"), file, *types, nullptr,
                                        [](const DbError &) { return false; }));
    QCOMPARE(received(), sl({"Insert into t (note,id,qty,price,d,ts) values ('first',1,3,2.5,'2007-12-25',0)",
                             "Insert into t (note,id,qty,price,d,ts) values ('',2,0,0,'2008-01-31',0)"}));
    QCOMPARE(m_db->rows(QStringLiteral("SELECT id, qty, note FROM t ORDER BY id")), sl({"1|3|first", "2|0|"}));

    // A header row alone inserts nothing.
    clearServerLog(m_db->admin());
    QVERIFY_DB(TableRestore::insertRows(m_session, QStringLiteral("t"), tableFile("header", {sl({"id"})}), *types,
                                        nullptr, [](const DbError &) { return false; }));
    QCOMPARE(received(), QStringList());
}

// The first failing statement goes to the handler: stopping returns it with the rows before
// it kept; going on skips it. A field the target lacks fails the same way.
void TestTableRestore::failures()
{
    QVERIFY_DB(m_db->run({QStringLiteral("DELETE FROM t")}));
    auto types = TableRestore::fieldTypes(m_session, QStringLiteral("t"));
    const QString file =
        tableFile("quotes", {sl({"id", "note"}), sl({"10", "fine"}), sl({"11", "it's"}), sl({"12", "after"})});
    const DbError stopped = TableRestore::insertRows(m_session, QStringLiteral("t"), file, *types, nullptr,
                                                     [](const DbError &) { return false; });
    QCOMPARE(stopped.number, AdoError::Syntax);
    QCOMPARE(m_db->rows(QStringLiteral("SELECT id FROM t")), sl({"10"}));

    int failed = 0;
    const auto goOn = [&failed](const DbError &) {
        ++failed;
        return true;
    };
    QVERIFY_DB(TableRestore::insertRows(m_session, QStringLiteral("t"), file, *types, nullptr, goOn));
    QCOMPARE(failed, 2); // the duplicate key of 10 and the quote of 11
    QCOMPARE(m_db->rows(QStringLiteral("SELECT id FROM t ORDER BY id")), sl({"10", "12"}));

    const DbError missing = TableRestore::insertRows(m_session, QStringLiteral("t"),
                                                     tableFile("missing", {sl({"id", "gone"}), sl({"20", "x"})}),
                                                     *types, nullptr, [](const DbError &) { return false; });
    QCOMPARE(missing.number, AdoError::ItemNotFound);
    QVERIFY(TableRestore::fieldTypes(m_session, QStringLiteral("no_such")).error().isError());
}

// The client's code goes into name (bill), code and code_no; its deletes touch only rows of
// that code, whatever case other rows have.
void TestTableRestore::clientRows()
{
    const TableRestore::ClientCode client{QStringLiteral("C1")};
    for (const QString &table : {QStringLiteral("bill"), QStringLiteral("visits")})
        for (const QString &sql : TableRestore::clientDeletes(table, client.code))
            m_session.execute(sql); // a table without one of the columns fails that delete alone
    const auto ignore = [](const DbError &) { return true; };
    auto types = TableRestore::fieldTypes(m_session, QStringLiteral("bill"));
    QVERIFY_DB(TableRestore::insertRows(m_session, QStringLiteral("bill"),
                                        tableFile("bill", {sl({"name", "amount"}), sl({"C7", "70"})}), *types, &client,
                                        ignore));
    types = TableRestore::fieldTypes(m_session, QStringLiteral("visits"));
    QVERIFY_DB(TableRestore::insertRows(m_session, QStringLiteral("visits"),
                                        tableFile("visits", {sl({"code", "code_no", "v"}), sl({"A7", "C7", "71"})}),
                                        *types, &client, ignore));
    QCOMPARE(m_db->rows(QStringLiteral("SELECT * FROM bill ORDER BY amount")), sl({"C2|2", "c1x|3", "C1|70"}));
    QCOMPARE(m_db->rows(QStringLiteral("SELECT * FROM visits ORDER BY v")), sl({"C2|C2|2", "A1|C3|3", "C1|C1|71"}));
}

QTEST_GUILESS_MAIN(TestTableRestore)
#include "test_tablerestore.moc"
