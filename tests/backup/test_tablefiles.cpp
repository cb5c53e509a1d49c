// The backup's and the restore's work on table files against the real server: table files
// streamed from results, the client look-up, the value rule per field type, the statements word
// for word as the server receives them, failures handed to the caller, and which rows are a
// client's. The window tests cover the client's selects, packing, a lost connection, and the
// client restore's deletes and code refusals.
#include "backup/restorecheck.h"
#include "backup/servernames.h"
#include "backup/tablebackup.h"
#include "backup/tablerestore.h"
#include "backupfixture.h"
#include "db/typecodes.h"
#include "testdb.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <cstring>

using namespace tabulon;
using namespace tabulon::test;

namespace {
const auto kStop = [](const DbError &) { return false; };
} // namespace

class TestTableFiles final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void tableFiles();
    void findClient_data();
    void findClient();
    void values_data();
    void values();
    void checkFit_data();
    void checkFit();
    void insertRows();
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

void TestTableFiles::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(qs("tablefiles"));
    QVERIFY_DB(m_db->error());
    QVERIFY_DB(openSession(m_session, m_db->name()));
    QVERIFY_DB(m_db->run({
        qs("CREATE TABLE t (id INT PRIMARY KEY, qty SMALLINT, price DOUBLE, d DATE, ts DATETIME, note VARCHAR(40))"),
        qs("CREATE TABLE main_info1 (code_no VARCHAR(10), code VARCHAR(10), fname VARCHAR(20))"),
        qs("CREATE TABLE owner1 (code VARCHAR(10), code_no VARCHAR(10), oname VARCHAR(20))"),
        qs("INSERT INTO main_info1 VALUES ('C00001','C00001','Ann'), ('C00007','A00007','Bob')"),
        qs("INSERT INTO owner1 VALUES ('A00007','C00007','Bob Sr'), ('A00099','C00099','Owner only')"),
        qs("CREATE TABLE odd (id INT, t TEXT, d DATETIME, b BIT(1))"),
        qs("INSERT INTO odd VALUES (1, 'comma, \"quote\" and O''Brien\nnext line', '2007-12-25 10:30:00', "
           "b'1'), (2, NULL, NULL, NULL), (3, '', NULL, b'0')"),
    }));
}

// Row 0 the field names, NULL and empty text alike as empty cells, awkward texts whole. (An empty
// result: the client backup in test_backuptools; a refused select: its backupNamesWhatItLeftOut.)
void TestTableFiles::tableFiles()
{
    const QString odd = m_dir.filePath(qs("odd"));
    clearServerLog(m_db->admin());
    QVERIFY_DB(TableBackup::writeTableFile(m_session, TableBackup::tableSelect(qs("odd")), odd));
    QCOMPARE(statementsReceived(m_db->admin(), m_session.connectionId()), sl({"SELECT * FROM `odd`"}));
    QCOMPARE(gridFileRows(odd),
             sl({"id|t|d|b", "1|comma, \"quote\" and O'Brien\nnext line|2007-12-25 10:30:00|1", "2|||", "3|||0"}));

    // A table file that cannot be written ends the work with the path and the reason.
    const DbError unwritable =
        TableBackup::writeTableFile(m_session, TableBackup::tableSelect(qs("odd")), m_dir.filePath(qs("no/odd")));
    QVERIFY2(TableBackup::isFatal(unwritable) && unwritable.description.contains(QLatin1String("no/odd")),
             qPrintable(unwritable.description));

    // A disk that fills while the file is written: the system's reason, not "Unknown error". A
    // limit on the file's size stands in for the full disk; the failed write is the same.
    const QString big = m_dir.filePath(qs("big"));
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit before = limit;
    limit.rlim_cur = 100 * 1024;
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &limit), 0);
    const DbError full =
        TableBackup::writeTableFile(m_session, qs("SELECT seq, REPEAT('x', 100) AS pad FROM seq_1_to_10000"), big);
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &before), 0);
    QCOMPARE(full.description, QDir::toNativeSeparators(big) + qs(": ") + QString::fromLocal8Bit(std::strerror(EFBIG)));
    QVERIFY(!QFileInfo::exists(big));
}

// Equal and differing codes of main_info1 and an unknown code: the client backup's window tests.
void TestTableFiles::findClient_data()
{
    QTest::addColumn<QString>("code");
    QTest::addColumn<bool>("found");
    QTest::addColumn<QString>("other");
    QTest::newRow("owner1 only") << "A00099" << true << "C00099";
    QTest::newRow("owner code of a main_info1 client") << "A00007" << true << "C00007";
    QTest::newRow("quote breaks the look-up") << "C0'1" << false << "";
}

void TestTableFiles::findClient()
{
    QFETCH(QString, code);
    const auto client = TableBackup::findClient(m_session, code);
    QVERIFY_DB(client.error());
    QTEST(client->found, "found");
    QTEST(client->other, "other");
}

QString TestTableFiles::tableFile(const char *name, const QList<QStringList> &rows)
{
    const QString path = m_dir.filePath(qs(name));
    return writeGridFile(path, rows) ? path : QString();
}

void TestTableFiles::values_data()
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

void TestTableFiles::values()
{
    QFETCH(int, type);
    QFETCH(QString, cell);
    QTEST(TableRestore::value(type, cell), "value");
}

// A file fits when it holds exactly the table's fields, each once, in any order and case.
void TestTableFiles::checkFit_data()
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

void TestTableFiles::checkFit()
{
    QFETCH(QStringList, header);
    const auto fit = TableRestore::checkFit(m_session, qs("t"), tableFile("fit", {header, header}));
    QVERIFY_DB(fit.error());
    QTEST(fit->misfit, "misfit");
    QCOMPARE(fit->types.size(), 6);
}

// One INSERT per row, in the file's column order, each value by its target field's type; a header
// row alone inserts nothing. A failing statement goes to the handler, and going on skips it
// (stopping: the restore window's test). A field the target lacks fails with its own error.
void TestTableFiles::insertRows()
{
    const QString file =
        tableFile("t", {sl({"note", "id", "qty", "price", "d", "ts"}), sl({"first", "1", "3", "2.5", "2007-12-25", ""}),
                        sl({"", "2", "", "", "2008-01-31", ""})});
    auto types = TableRestore::fieldColumns(m_session, qs("t"));
    QVERIFY_DB(types.error());
    clearServerLog(m_db->admin());
    QVERIFY_DB(TableRestore::insertRows(m_session, qs("t"), file, *types, nullptr, false, kStop));
    QVERIFY_DB(
        TableRestore::insertRows(m_session, qs("t"), tableFile("header", {sl({"id"})}), *types, nullptr, false, kStop));
    QCOMPARE(statementsReceived(m_db->admin(), m_session.connectionId()),
             sl({"Insert into t (note,id,qty,price,d,ts) values ('first',1,3,2.5,'2007-12-25',0)",
                 "Insert into t (note,id,qty,price,d,ts) values ('',2,0,0,'2008-01-31',0)"}));
    QCOMPARE(m_db->rows(qs("SELECT id, qty, note FROM t ORDER BY id")), sl({"1|3|first", "2|0|"}));

    int failed = 0;
    const auto goOn = [&failed](const DbError &) {
        ++failed;
        return true;
    };
    const QString quotes =
        tableFile("quotes", {sl({"id", "note"}), sl({"10", "fine"}), sl({"11", "it's"}), sl({"12", "after"})});
    QVERIFY_DB(TableRestore::insertRows(m_session, qs("t"), quotes, *types, nullptr, false, goOn));
    QCOMPARE(failed, 1); // the quote of 11
    QCOMPARE(m_db->rows(qs("SELECT id FROM t ORDER BY id")), sl({"1", "2", "10", "12"}));

    const DbError missing = TableRestore::insertRows(
        m_session, qs("t"), tableFile("missing", {sl({"id", "gone"}), sl({"20", "x"})}), *types, nullptr, false, kStop);
    QCOMPARE(missing.number, AdoError::ItemNotFound);
    QVERIFY(TableRestore::fieldColumns(m_session, qs("no_such")).error().isError());
    QCOMPARE(TableRestore::checkFit(m_session, qs("no_such"), quotes).error().serverCode, 1146);
    const auto unreadable = TableRestore::checkFit(m_session, qs("t"), m_dir.filePath(qs("absent")));
    QVERIFY2(unreadable->misfit.startsWith(qs("its file cannot be read: ")), qPrintable(unreadable->misfit));
}

// The server's parser decides among its keywords: most are still names.
void TestTableFiles::reservedNames_data()
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

void TestTableFiles::reservedNames()
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
void TestTableFiles::clientRows_data()
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

void TestTableFiles::clientRows()
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

QTEST_GUILESS_MAIN(TestTableFiles)
#include "test_tablefiles.moc"
