// The backup's logic against the real server: table files written from results and read back
// into tables (the value rule per field type, the statements word for word as the server
// receives them, failures handed to the caller, which rows are a client's), the client look-up,
// and the archive around them: the dated name, plain table names, archives that appear only
// complete, and hostile archives that are all refused with nothing written anywhere. The window
// tests cover the client's selects, packing, a lost connection, and the client restore's
// deletes and code refusals.
#include "backup/backuparchive.h"
#include "backup/restorecheck.h"
#include "backup/servernames.h"
#include "backup/tablebackup.h"
#include "backup/tablerestore.h"
#include "backupfixture.h"
#include "db/typecodes.h"
#include "grid/gridfile.h"
#include "testdb.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QLocale>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

#include <sys/resource.h>
#include <sys/stat.h>
#include <zip.h>

#include <cerrno>
#include <csignal>
#include <cstring>

using namespace tabulon;
using namespace tabulon::test;

namespace {

const auto kStop = [](const DbError &) { return false; };
constexpr auto kAhead = StatementPipeline::Sending::Ahead;

struct Entry {
    QByteArray name;
    QByteArray content;
    mode_t mode = 0; // unix file type and permissions; 0 leaves libzip's default
};

// A zip written by libzip itself, stored uncompressed so tests can damage known bytes.
bool makeZip(const QString &path, const QList<Entry> &entries)
{
    QFile::remove(path);
    int code = 0;
    zip_t *archive = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE, &code);
    if (!archive)
        return false;
    for (const Entry &e : entries) {
        zip_source_t *source = zip_source_buffer(archive, e.content.constData(), zip_uint64_t(e.content.size()), 0);
        const zip_int64_t index = zip_file_add(archive, e.name.constData(), source, ZIP_FL_ENC_UTF_8);
        if (index < 0) {
            zip_source_free(source);
            zip_discard(archive);
            return false;
        }
        zip_set_file_compression(archive, zip_uint64_t(index),
                                 e.content.size() > 100000 ? ZIP_CM_DEFLATE : ZIP_CM_STORE, 0);
        if (e.mode)
            zip_file_set_external_attributes(archive, zip_uint64_t(index), 0, ZIP_OPSYS_UNIX,
                                             zip_uint32_t(e.mode) << 16);
    }
    return zip_close(archive) == 0;
}

// Every file and folder under `root`, hidden ones included, as sorted relative paths.
QStringList listing(const QString &root)
{
    QStringList out;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        out << QDir(root).relativeFilePath(it.next());
    out.sort();
    return out;
}

} // namespace

class TestBackupLogic final : public QObject {
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
    void datedName_data();
    void datedName();
    void tableNames_data();
    void tableNames();
    void packAndExtract();
    void hostile_data();
    void hostile();
    void carryOver();

private:
    QString tableFile(const char *name, const QList<QStringList> &rows);

    std::unique_ptr<ScratchDatabase> m_db;
    DatabaseSession m_session;
    QTemporaryDir m_dir;
    QByteArray m_good;  // a good table file
    QByteArray m_other; // another one
};

void TestBackupLogic::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY(writeGridFile(m_dir.filePath(qs("g1")), {sl({"id", "name"}), sl({"1", "O'Brien, \"x\"\n"})}));
    QVERIFY(writeGridFile(m_dir.filePath(qs("g2")), {sl({"code"}), sl({"C00001"}), sl({""})}));
    m_good = read(m_dir.filePath(qs("g1")));
    m_other = read(m_dir.filePath(qs("g2")));
    m_db = std::make_unique<ScratchDatabase>(qs("backuplogic"));
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
void TestBackupLogic::tableFiles()
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
void TestBackupLogic::findClient_data()
{
    QTest::addColumn<QString>("code");
    QTest::addColumn<bool>("found");
    QTest::addColumn<QString>("other");
    QTest::newRow("owner1 only") << "A00099" << true << "C00099";
    QTest::newRow("owner code of a main_info1 client") << "A00007" << true << "C00007";
    QTest::newRow("quote breaks the look-up") << "C0'1" << false << "";
}

void TestBackupLogic::findClient()
{
    QFETCH(QString, code);
    const auto client = TableBackup::findClient(m_session, code);
    QVERIFY_DB(client.error());
    QTEST(client->found, "found");
    QTEST(client->other, "other");
}

QString TestBackupLogic::tableFile(const char *name, const QList<QStringList> &rows)
{
    const QString path = m_dir.filePath(qs(name));
    return writeGridFile(path, rows) ? path : QString();
}

void TestBackupLogic::values_data()
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

void TestBackupLogic::values()
{
    QFETCH(int, type);
    QFETCH(QString, cell);
    QTEST(TableRestore::value(type, cell), "value");
}

// A file fits when it holds exactly the table's fields, each once, in any order and case.
void TestBackupLogic::checkFit_data()
{
    QTest::addColumn<QStringList>("header");
    QTest::addColumn<QString>("misfit");
    // clang-format off
    QTest::newRow("same fields, other order and case") << sl({"NOTE", "id", "qty", "price", "d", "ts"}) << "";
    QTest::newRow("a field more")   << sl({"id", "qty", "price", "d", "ts", "note", "x"})  << "its file has 7 columns, the table has 6 fields.";
    QTest::newRow("unknown field")  << sl({"id", "qty", "price", "d", "ts", "memo"})       << "its file has the field \"memo\", which the table does not have.";
    QTest::newRow("field twice")    << sl({"id", "qty", "price", "d", "ts", "ID"})         << "its file has the field \"ID\" twice.";
    // clang-format on
}

void TestBackupLogic::checkFit()
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
void TestBackupLogic::insertRows()
{
    const QString file =
        tableFile("t", {sl({"note", "id", "qty", "price", "d", "ts"}), sl({"first", "1", "3", "2.5", "2007-12-25", ""}),
                        sl({"", "2", "", "", "2008-01-31", ""})});
    auto types = TableRestore::fieldColumns(m_session, qs("t"));
    QVERIFY_DB(types.error());
    clearServerLog(m_db->admin());
    QVERIFY_DB(TableRestore::insertRows(m_session, qs("t"), file, *types, nullptr, false, kAhead, kStop));
    QVERIFY_DB(TableRestore::insertRows(m_session, qs("t"), tableFile("header", {sl({"id"})}), *types, nullptr, false,
                                        kAhead, kStop));
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
    QVERIFY_DB(TableRestore::insertRows(m_session, qs("t"), quotes, *types, nullptr, false, kAhead, goOn));
    QCOMPARE(failed, 1); // the quote of 11
    QCOMPARE(m_db->rows(qs("SELECT id FROM t ORDER BY id")), sl({"1", "2", "10", "12"}));

    const DbError missing =
        TableRestore::insertRows(m_session, qs("t"), tableFile("missing", {sl({"id", "gone"}), sl({"20", "x"})}),
                                 *types, nullptr, false, kAhead, kStop);
    QCOMPARE(missing.number, AdoError::ItemNotFound);
    QCOMPARE(TableRestore::checkFit(m_session, qs("no_such"), quotes).error().serverCode, 1146);
    const auto unreadable = TableRestore::checkFit(m_session, qs("t"), m_dir.filePath(qs("absent")));
    QVERIFY2(unreadable->misfit.startsWith(qs("its file cannot be read: ")), qPrintable(unreadable->misfit));
}

// The server's parser decides among its keywords: most are still names.
void TestBackupLogic::reservedNames_data()
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
    // clang-format on
}

void TestBackupLogic::reservedNames()
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
void TestBackupLogic::clientRows_data()
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

void TestBackupLogic::clientRows()
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

void TestBackupLogic::datedName_data()
{
    QTest::addColumn<QDate>("date");
    QTest::addColumn<QString>("locale");
    QTest::addColumn<QString>("name");
    // clang-format off
    QTest::newRow("example")             << QDate(2026, 11, 15) << "en_US" << "15-Nov-26";
    QTest::newRow("padded day and year") << QDate(2009, 1, 5)   << "en_GB" << "05-Jan-09";
    QTest::newRow("German locale")       << QDate(2026, 3, 1)   << "de_DE" << "01-Mar-26";
    QTest::newRow("turn of the century") << QDate(2100, 5, 20)  << "ja_JP" << "20-May-00";
    // clang-format on
}

void TestBackupLogic::datedName()
{
    QFETCH(QDate, date);
    QFETCH(QString, locale);
    const QLocale before;
    QLocale::setDefault(QLocale(locale));
    const QString name = BackupArchive::datedName(date);
    QLocale::setDefault(before);
    QTEST(name, "name");
}

// A name passes only when the restore's unquoted statements read it as one table name.
void TestBackupLogic::tableNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("passes");
    // clang-format off
    QTest::newRow("table")                      << "main_info1"                 << true;
    QTest::newRow("dollar and digit first")     << "$x2"                        << true;
    QTest::newRow("letters beyond ASCII")       << "Grüße_2024"                 << true;
    QTest::newRow("digits then letters")        << "12ab"                       << true;
    QTest::newRow("hex digits then a letter")   << "0x1fg"                      << true;
    QTest::newRow("capital X is no hex")        << "0X1f"                       << true;
    QTest::newRow("binary with a 2")            << "0b012"                      << true;
    QTest::newRow("longest")                    << QString(64, QLatin1Char('t')) << true;
    QTest::newRow("comment")                    << "main_info1 #"               << false;
    QTest::newRow("quote")                      << "t'"                         << false;
    QTest::newRow("separator")                  << "a/b"                        << false;
    QTest::newRow("newline")                    << "a\nb"                       << false;
    QTest::newRow("letter beyond the BMP")      << QString::fromUtf8("t\U0001D400") << false;
    QTest::newRow("digits only")                << "123"                        << false;
    QTest::newRow("exponent")                   << "1e5"                        << false;
    QTest::newRow("exponent then letters")      << "12E3abc"                    << false;
    QTest::newRow("hex literal")                << "0x1f"                       << false;
    QTest::newRow("binary literal")             << "0b01"                       << false;
    QTest::newRow("empty")                      << ""                           << false;
    QTest::newRow("too long")                   << QString(65, QLatin1Char('t')) << false;
    // clang-format on
}

void TestBackupLogic::tableNames()
{
    QFETCH(QString, name);
    QTEST(BackupArchive::isTableName(name), "passes");
}

// Packed table files come out byte for byte under their names, deflated, also when they span
// many of the packer's buffers; the archive never shows at its path unfinished, an existing one
// is replaced only when asked and only by a whole one, and a small archive unpacks on a nearly
// full disk. A file the packer cannot read stops it with an error naming the file; a packer
// ended midway leaves no part and no thread.
void TestBackupLogic::packAndExtract()
{
    QTemporaryDir root;
    const QString work = root.filePath(qs("15-Nov-26"));
    QVERIFY(QDir().mkpath(work));
    QList<QStringList> rows{sl({"id", "text"})};
    QRandomGenerator random(7);
    for (int i = 0; i < 60000; ++i)
        rows << QStringList{QString::number(i), QString::number(random.generate64(), 36).repeated(1 + i % 3)};
    QVERIFY(writeGridFile(work + qs("/big"), rows));
    const QByteArray big = read(work + qs("/big"));
    QVERIFY(big.size() > 3 * 256 * 1024);
    write(work + qs("/Main_Info1"), m_other);
    write(work + qs("/stray"), "not packed");
    const QString archive = root.filePath(qs("15-Nov-26.zip"));
    QVERIFY_DB(BackupArchive::pack(work, sl({"big", "Main_Info1"}), archive));
    QCOMPARE(listing(root.path()),
             sl({"15-Nov-26", "15-Nov-26.zip", "15-Nov-26/Main_Info1", "15-Nov-26/big", "15-Nov-26/stray"}));
    QVERIFY(QFileInfo(archive).size() < big.size() / 2);
    QStringList tables;
    QVERIFY_DB(BackupArchive::extract(archive, root.filePath(qs("x")), &tables));
    QCOMPARE(tables, sl({"big", "Main_Info1"}));
    QCOMPARE(read(root.filePath(qs("x/big"))), big);
    QCOMPARE(read(root.filePath(qs("x/Main_Info1"))), m_other);

    const DbError again = BackupArchive::pack(work, sl({"Main_Info1"}), archive);
    QVERIFY2(again.isFileError() && again.description.contains(archive), qPrintable(again.description));
    const DbError unwritable = BackupArchive::pack(work, sl({"Main_Info1"}), root.filePath(qs("no/x.zip")));
    QVERIFY2(unwritable.isFileError() && unwritable.description.contains(QLatin1String("x.zip")),
             qPrintable(unwritable.description));
    const QByteArray earlier = read(archive);
    QVERIFY(BackupArchive::pack(work, sl({"gone"}), archive, BackupArchive::Existing::Replace).isFileError());
    QCOMPARE(read(archive), earlier);
    QVERIFY_DB(BackupArchive::pack(work, sl({"Main_Info1"}), archive, BackupArchive::Existing::Replace));
    BackupArchive::Limits nearlyFull;
    nearlyFull.freeBytes = qint64(1) << 20;
    QVERIFY_DB(BackupArchive::extract(archive, root.filePath(qs("replaced")), &tables, nearlyFull));
    QCOMPARE(tables, sl({"Main_Info1"}));
    // An empty selection still gives an archive that opens.
    QVERIFY_DB(BackupArchive::pack(work, {}, root.filePath(qs("empty.zip"))));
    QVERIFY_DB(BackupArchive::extract(root.filePath(qs("empty.zip")), root.filePath(qs("empty")), &tables));
    QCOMPARE(tables, QStringList());

    // Entries written as they come: more bytes than the queue holds (the writer waits for the
    // thread), one written again (the later one counts), one abandoned (nothing of it stays),
    // and one written again but abandoned once the thread has begun it (the earlier one stays).
    {
        const auto fill = [&rows](GridFileWriter &out, int times) {
            for (int t = 0; t < times * rows.size(); ++t)
                if (out.writeRow(rows[t % rows.size()]))
                    return false;
            return true;
        };
        GridFileWriter file;
        QVERIFY(!file.open(work + qs("/long"), 1, 0, 2) && fill(file, 4) && !file.commit());
        BackupArchive::Packer packer(work);
        const auto entry = [&](const char *name, int times, bool end) {
            const auto sink = packer.entry(qs(name));
            GridFileWriter out;
            return !out.open(*sink, 1, 0, 2) && fill(out, times) && (!end || !out.commit());
        };
        QVERIFY(entry("long", 1, true) && entry("gone", 1, false) && entry("long", 4, true) && entry("long", 4, false));
        QVERIFY_DB(packer.finish(root.filePath(qs("streamed.zip"))));
    }
    QVERIFY_DB(BackupArchive::extract(root.filePath(qs("streamed.zip")), root.filePath(qs("streamed")), &tables));
    QCOMPARE(tables, sl({"long"}));
    QCOMPARE(read(root.filePath(qs("streamed/long"))), read(work + qs("/long")));

    const QStringList packed = listing(root.path());
    {
        BackupArchive::Packer packer(work);
        packer.add(qs("missing"));
        packer.add(qs("Main_Info1"));
        QTRY_VERIFY(packer.failure());
        const DbError error = packer.finish(root.filePath(qs("a.zip")));
        QVERIFY2(error.isFileError() && error.description.contains(qs("missing")), qPrintable(error.description));
    }
    QCOMPARE(listing(root.path()), packed);
    {
        BackupArchive::Packer packer(work);
        for (int i = 0; i < 50; ++i)
            packer.add(qs("big"));
        QTRY_COMPARE(threadsNamed(BackupArchive::Packer::kThreadName), 1);
    }
    QCOMPARE(listing(root.path()), packed);
    // Joined, not left running: gone within moments, long before 50 files could be compressed.
    QTRY_COMPARE_WITH_TIMEOUT(threadsNamed(BackupArchive::Packer::kThreadName), 0, 200);
}

// clang-format off
void TestBackupLogic::hostile_data()
{
    QTest::addColumn<QList<Entry>>("entries");
    QTest::addColumn<int>("damage"); // 0 none, 1 flip a stored byte, 2 chop the end, 3 rename bbbb to aaaa,
                                     // 4 room on the disk for the first entry only
    QTest::addColumn<QString>("reason");
    const QByteArray g = m_good;
    const QByteArray truncated = g.left(g.size() - 3);
    QTest::newRow("path traversal") << QList<Entry>{{"bill", g}, {"../evil", g}} << 0 << "not a table name";
    QTest::newRow("absolute path") << QList<Entry>{{"/tmp/evil", g}} << 0 << "not a table name";
    QTest::newRow("backslash traversal") << QList<Entry>{{"..\\evil", g}} << 0 << "not a table name";
    QTest::newRow("comment in a name") << QList<Entry>{{"bill", g}, {"main_info1 #", g}} << 0 << "not a table name";
    QTest::newRow("folder entry") << QList<Entry>{{"bill", g}, {"dir/", {}}} << 0 << "not a table name";
    QTest::newRow("symbolic link") << QList<Entry>{{"bill", "/etc/passwd", S_IFLNK | 0777}} << 0 << "link";
    QTest::newRow("exact duplicate") << QList<Entry>{{"aaaa", g}, {"bbbb", m_other}} << 3 << "exists";
    QTest::newRow("duplicate by case") << QList<Entry>{{"bill", g}, {"BILL", m_other}} << 0 << "more than once";
    QTest::newRow("damaged CRC") << QList<Entry>{{"bill", g}, {"owner1", m_other}} << 1 << "damaged";
    QTest::newRow("truncated archive") << QList<Entry>{{"bill", g}} << 2 << "";
    QTest::newRow("truncated table file") << QList<Entry>{{"bill", g}, {"owner1", truncated}} << 0 << "truncated";
    QTest::newRow("not a table file") << QList<Entry>{{"notes", "id,name\n1,x\n"}} << 0 << "not a grid file";
    QTest::newRow("zip bomb") << QList<Entry>{{"bill", g}, {"bomb", QByteArray(48 << 20, '\0')}} << 0 << "more than the";
    QTest::newRow("less free space than its files take") << QList<Entry>{{"bill", g}, {"owner1", m_other}} << 4 << "bytes of disk space";
}
// clang-format on

// Each is refused with a reason, and the folder around the archive holds exactly what it held; an
// archive that needs more room than the disk has is refused before a byte is written.
void TestBackupLogic::hostile()
{
    QFETCH(QList<Entry>, entries);
    QFETCH(int, damage);
    QFETCH(QString, reason);
    QTemporaryDir root;
    const QString archive = root.filePath(qs("15-Nov-26.zip"));
    QVERIFY(makeZip(archive, entries));
    QByteArray bytes = read(archive);
    if (damage == 1)
        bytes[bytes.indexOf("O'Brien")] ^= 0x20;
    else if (damage == 2)
        bytes.chop(30);
    else if (damage == 3)
        bytes.replace("bbbb", "aaaa");
    write(archive, bytes);
    const QStringList before = listing(root.path());

    QStringList tables{qs("untouched")};
    BackupArchive::Limits limits;
    limits.maxUnpackedBytes = 16 << 20;
    if (damage == 4)
        limits.freeBytes = BackupArchive::spaceToUnpack({quint64(entries.first().content.size())});
    const DbError error = BackupArchive::extract(archive, root.filePath(qs("15-Nov-26")), &tables, limits);
    QVERIFY2(error.isFileError() && error.description.contains(archive), qPrintable(error.description));
    QVERIFY2(error.description.contains(reason, Qt::CaseInsensitive), qPrintable(error.description));
    QCOMPARE(listing(root.path()), before);
    QCOMPARE(tables, sl({"untouched"}));
    QVERIFY(!QFileInfo::exists(qs("/tmp/evil")));
}

// The earlier archive's entries come out byte for byte, each checked: a damaged one stays behind
// with its reason, one the archive lacks is skipped.
void TestBackupLogic::carryOver()
{
    QTemporaryDir root;
    const QString archive = root.filePath(qs("15-Nov-26.zip"));
    QVERIFY(makeZip(archive, {{"bill", m_good}, {"owner1", m_other}, {"staff", m_other}}));
    QByteArray bytes = read(archive);
    bytes[bytes.indexOf("C00001")] ^= 0x20; // owner1's content
    write(archive, bytes);
    const QString work = root.filePath(qs("work"));
    QVERIFY(QDir().mkpath(work));
    QStringList carried;
    QStringList damaged;
    QVERIFY_DB(BackupArchive::carryOver(archive, sl({"bill", "owner1", "absent"}), work, &carried, &damaged));
    QCOMPARE(carried, sl({"bill"}));
    QCOMPARE(damaged.size(), 1);
    QVERIFY2(damaged.first().contains(qs("\"owner1\" is damaged")), qPrintable(damaged.first()));
    QCOMPARE(listing(work), sl({"bill"}));
    QCOMPARE(read(work + qs("/bill")), m_good);
    QVERIFY(
        BackupArchive::carryOver(root.filePath(qs("none.zip")), sl({"bill"}), work, &carried, &damaged).isFileError());
}

QTEST_GUILESS_MAIN(TestBackupLogic)
#include "test_backuplogic.moc"
