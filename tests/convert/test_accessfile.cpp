// The conversion's rules for names, types, values and modes and the database name it proposes;
// and reading Access files: the sample's tables, fields, type codes and value texts, and damaged
// or foreign files that must end in an error, never in a crash of the program.
#include "convert/accessfile.h"
#include "convert/conversionreport.h"
#include "convert/conversionrules.h"
#include "convert/valuetext.h"
#include "files.h"
#include "testdb.h"

#include <QFile>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <mdbtools.h>

#include <algorithm>
#include <optional>

using namespace tabulon;
using tabulon::test::qs;
using tabulon::test::sl;

namespace {

const QString kSample = QStringLiteral(TABULON_FIXTURES_DIR "/access/nwind.mdb");
constexpr qsizetype kPage = 2048; // the sample is a Jet 3 file

const SourceTable &tableNamed(const std::vector<SourceTable> &tables, const QString &name)
{
    return *std::find_if(tables.begin(), tables.end(), [&](const SourceTable &t) { return t.name == name; });
}

QStringList rowTexts(const SourceRow &row)
{
    QStringList out;
    for (const auto &v : row)
        out << v.text().value_or(qs("<null>"));
    return out;
}

QByteArray zeroPage(QByteArray bytes, qsizetype page)
{
    return bytes.replace(page * kPage, kPage, QByteArray(kPage, '\0'));
}

QString addCategory(const QString &path, gint32 id, const std::optional<QByteArray> &name,
                    const std::optional<QByteArray> &description, const std::optional<QByteArray> &picture);

// Writes at `path` a copy of the sample with a ninth category (ID 99) whose description is the
// memo `text`, in the file's code page, and whose picture is `picture`. The library writes
// values into their row only, so the memo is laid out here as the file keeps long values: a
// chain of data pages appended to the file, each holding one row (the pointer to the next page,
// then a piece of the text); the category's row holds the memo's header, its length and its
// first page, and the picture inline after its header. An error text when any of it fails.
QString writeLongValues(const QString &path, const QByteArray &text, const QByteArray &picture)
{
    QFile::remove(path);
    if (!QFile::copy(kSample, path) || !QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner))
        return qs("the sample cannot be copied");
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite | QIODevice::Append))
        return file.errorString();
    constexpr qsizetype kRowCount = 8; // where a Jet 3 data page counts its rows
    constexpr qsizetype kFirstRow = kRowCount + 4;
    constexpr qsizetype kPiece = kPage - kFirstRow - 4;
    const auto firstPage = static_cast<quint32>(file.size() / kPage);
    const qsizetype pages = (text.size() + kPiece - 1) / kPiece;
    for (qsizetype p = 0; p < pages; ++p) {
        const QByteArray piece = text.mid(p * kPiece, kPiece);
        QByteArray page(kPage, '\0');
        page[0] = page[1] = 1; // a data page
        const auto start = static_cast<guint32>(kPage - 4 - piece.size());
        mdb_put_int16(page.data(), 2, start - kFirstRow); // free space
        mdb_put_int16(page.data(), kRowCount, 1);
        mdb_put_int16(page.data(), kRowCount + 2, start);
        mdb_put_int32(page.data(), start, p + 1 < pages ? (firstPage + p + 1) << 8 : 0);
        page.replace(start + 4, piece.size(), piece);
        if (file.write(page) != kPage)
            return file.errorString();
    }
    file.close();

    unsigned char header[12] = {};
    mdb_put_int32(header, 0, static_cast<guint32>(text.size()));
    mdb_put_int32(header, 4, firstPage << 8);
    QByteArray inlinePicture(12, '\0');
    mdb_put_int32(inlinePicture.data(), 0, static_cast<guint32>(picture.size()) | 0x80000000u);
    inlinePicture += picture;
    return addCategory(path, 99, QByteArray("Long"), QByteArray(reinterpret_cast<const char *>(header), 12),
                       inlinePicture);
}

// Adds a category to the copy at `path` with the row writer of the library: the name, the
// description and the picture as their row keeps them, nothing for NULL.
QString addCategory(const QString &path, gint32 id, const std::optional<QByteArray> &name,
                    const std::optional<QByteArray> &description, const std::optional<QByteArray> &picture)
{
    MdbHandle *mdb = mdb_open(path.toLocal8Bit().constData(), MDB_WRITABLE);
    if (!mdb)
        return qs("the copy cannot be opened for writing");
    const auto closeFile = qScopeGuard([mdb] { mdb_close(mdb); });
    MdbTableDef *table = mdb_read_table_by_name(mdb, const_cast<char *>("Categories"), MDB_TABLE);
    if (!table)
        return qs("the copy has no table Categories");
    const auto freeTable = qScopeGuard([table] { mdb_free_tabledef(table); });
    mdb_read_columns(table);
    mdb_read_indices(table);
    mdb_rewind_table(table);
    std::optional<QByteArray> values[3] = {name, description, picture};
    MdbField fields[4] = {};
    for (unsigned c = 0; c < 4; ++c) {
        fields[c].colnum = static_cast<int>(c);
        fields[c].is_fixed = static_cast<MdbColumn *>(g_ptr_array_index(table->columns, c))->is_fixed;
    }
    fields[0].value = &id;
    fields[0].siz = 4;
    for (unsigned c = 1; c < 4; ++c) {
        std::optional<QByteArray> &value = values[c - 1];
        fields[c].is_null = value ? 0 : 1;
        fields[c].value = value ? value->data() : nullptr;
        fields[c].siz = value ? static_cast<int>(value->size()) : 0;
    }
    if (!mdb_insert_row(table, 4, fields))
        return qs("the category cannot be added");
    // The row writer leaves the table's row count as it was: the definition page counts one more.
    const qint64 count = qint64(table->entry->table_pg) * kPage + mdb->fmt->tab_num_rows_offset;
    const auto rows = static_cast<guint32>(table->num_rows + 1);
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite) || !file.seek(count))
        return file.errorString();
    QByteArray bytes(4, '\0');
    mdb_put_int32(bytes.data(), 0, rows);
    return file.write(bytes) == 4 ? QString() : file.errorString();
}

// The conversion's rules, without a file.

// The name SanitizeName returns, which must also be the name it left in place.
QString sanitized(const char *name)
{
    QString inPlace = qs(name);
    const QString returned = Conversion::SanitizeName(inPlace);
    return returned == inPlace ? returned : qs("returned %1, left %2").arg(returned, inPlace);
}

// The column types of all `codes`, each type once.
QString types(std::initializer_list<int> codes)
{
    QStringList out;
    for (const int code : codes)
        out << Conversion::MapFieldType(code);
    out.removeDuplicates();
    return out.join(u',');
}

QString copied(const char *text, int type)
{
    return Conversion::copyValue(text ? std::optional<QString>(qs(text)) : std::nullopt, type);
}

QString proposal(const char *source)
{
    return Conversion::proposedDatabaseName(qs(source)).value_or(qs("<none>")) +
           (Conversion::isDataSourceFile(qs(source)) ? qs(", data source") : QString());
}

// Whether a report saved where the disk is full said so, and what its file then holds: it was
// "earlier".
QString reportOnFullDisk()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(qs("report.txt"));
    QFile earlier(path);
    if (!earlier.open(QIODevice::WriteOnly) || earlier.write("earlier") != 7)
        return qs("<no earlier report>");
    earlier.close();
    ConversionReport report;
    report.start(qs("sample.mdb"), qs("shop"), false);
    report.table(qs("Customers")).written = 91;
    QString reason;
    bool saved = false;
    {
        const tabulon::test::FileSizeLimit limit(16);
        saved = limit.isSet() && report.save(path, reason);
    }
    return (saved ? qs("saved, ") : qs("refused, ")) + QString::fromUtf8(tabulon::test::read(path));
}

} // namespace

class TestAccessFile final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void rules_data();
    void rules();
    void sampleTablesFieldsAndValues();
    void sourceOpensTablesByName();
    void damagedFilesGiveAnError_data();
    void damagedFilesGiveAnError();
    void randomDamageNeverCrashes();
    void malformedAnswersAreRejected();
    void longAndEmptyValues();
    void flushCarriesOnlyTheUserTables();
    void readerProgramProblemsGiveAnError();
    void slowReaderIsNotTakenForAStoppedOne();

private:
    QByteArray m_image;
    QByteArray m_form; // the reader's answer for the whole sample
    std::vector<SourceTable> m_tables;
    QTemporaryDir m_dir;
};

void TestAccessFile::initTestCase()
{
    QFile f(kSample);
    QVERIFY(f.open(QIODevice::ReadOnly));
    m_image = f.readAll();
    QVERIFY(m_image.size() > 100 * kPage);
    QString reason;
    QVERIFY2(AccessFile::readImage(reinterpret_cast<const unsigned char *>(m_image.constData()),
                                   static_cast<std::size_t>(m_image.size()), m_form, reason),
             qPrintable(reason));
    auto tables = AccessFile::load(kSample);
    QVERIFY_DB(tables.error());
    m_tables = std::move(tables.value());
}

void TestAccessFile::sampleTablesFieldsAndValues()
{
    QStringList names;
    QList<int> counts;
    for (const SourceTable &t : m_tables) {
        names << t.name;
        counts << static_cast<int>(t.rows.size());
    }
    // Catalog order, system tables left out.
    QCOMPARE(names, sl({"Order Details", "Orders", "Products", "Shippers", "Categories", "Customers", "Employees",
                        "Suppliers", "Umsätze"}));
    QCOMPARE(counts, (QList<int>{2155, 830, 77, 3, 8, 91, 9, 29, 830}));
    auto fields = [&](const char *table) {
        QStringList out;
        for (const SourceField &f : tableNamed(m_tables, qs(table)).fields)
            out << f.name + QLatin1Char(':') + QString::number(f.type);
        return out;
    };
    QCOMPARE(fields("Order Details"), sl({"OrderID:3", "ProductID:3", "UnitPrice:6", "Quantity:2", "Discount:4"}));
    QCOMPARE(fields("Categories"), sl({"CategoryID:3", "CategoryName:202", "Description:203", "Picture:205"}));

    // The rows of Orders and Customers (dates, money, letters of the file's code page, NULLs)
    // are checked on the server where the conversion and the import write them, in
    // test_convertdb and test_importdata.
    const SourceTable &details = tableNamed(m_tables, qs("Order Details"));
    QCOMPARE(rowTexts(details.rows.front()), sl({"10248", "11", "14", "12", "0"}));
    // Singles in their shortest form.
    QStringList discounts;
    for (const SourceRow &r : details.rows)
        discounts << r[4].text().value_or(QString());
    discounts.removeDuplicates();
    discounts.sort();
    QCOMPARE(discounts, sl({"0", "0.01", "0.02", "0.03", "0.04", "0.05", "0.06", "0.1", "0.15", "0.2", "0.25"}));

    const SourceTable &categories = tableNamed(m_tables, qs("Categories"));
    QCOMPARE(categories.rows.front()[2], SourceValue(qs("Soft drinks, coffees, teas, beers, and ales")));
    // The picture comes as its bytes, zero bytes and all (test_importdata compares them with
    // mdbtools' own export).
    const SourceValue &picture = categories.rows.front()[3];
    QVERIFY(picture.isBytes());
    QCOMPARE(picture.bytes().size(), 10746);
    QVERIFY(picture.bytes().contains('\0'));
}

void TestAccessFile::sourceOpensTablesByName()
{
    auto source = AccessSource::open(kSample);
    QVERIFY_DB(source.error());
    // Listed by name whatever the case, as a provider's schema rowset lists them.
    QCOMPARE((*source)->tableNames(), sl({"Categories", "Customers", "Employees", "Order Details", "Orders", "Products",
                                          "Shippers", "Suppliers", "Umsätze"}));
    auto fields = (*source)->readFields(qs("order details"));
    QVERIFY_DB(fields.error());
    QCOMPARE(fields->size(), size_t(5));
    int rows = 0;
    QVERIFY_DB((*source)->readRows(qs("Shippers"), [&](const SourceRow &) {
        ++rows;
        return DbError::none();
    }));
    QCOMPARE(rows, 3);
    // A sink's error stops the reading.
    rows = 0;
    const DbError stop = (*source)->readRows(qs("Shippers"), [&](const SourceRow &) {
        ++rows;
        return DbError::generic(qs("stop"));
    });
    QCOMPARE(stop.description, qs("stop"));
    QCOMPARE(rows, 1);
    // The sanitised name of a table with a blank is no table of the source.
    const DbError unknown = (*source)->readRows(qs("Order_Details"), [](const SourceRow &) { return DbError::none(); });
    QVERIFY(unknown.description.contains(qs("'Order_Details'")));
    QVERIFY(!(*source)->readFields(qs("Order_Details")).ok());
}

void TestAccessFile::damagedFilesGiveAnError_data()
{
    QTest::addColumn<QByteArray>("bytes"); // "-": no file at all
    const QByteArray &s = m_image;
    QByteArray signature = s, flipped = s;
    signature[6] = static_cast<char>(s[6] ^ 0x20);
    for (qsizetype page : {2, 415, 449}) // the catalog's and two tables' definitions
        flipped[page * kPage + 8] = static_cast<char>(~flipped[page * kPage + 8]);
    flipped[2 * kPage] = 0x7f;
    QTest::newRow("missing") << QByteArray("-");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("a text file") << QByteArray("Name,Town\nAnn,Oslo\n").repeated(500);
    QTest::newRow("header page only") << s.left(kPage);
    QTest::newRow("cut inside a page") << s.left(s.size() / 2 + 100);
    QTest::newRow("cut at a page boundary") << s.left(s.size() / 2 / kPage * kPage);
    QTest::newRow("signature flipped") << signature;
    QTest::newRow("catalog definition zeroed") << zeroPage(s, 2);
    QTest::newRow("a table definition zeroed") << zeroPage(s, 415); // Order Details
    QTest::newRow("definitions bit-flipped") << flipped;
}

void TestAccessFile::damagedFilesGiveAnError()
{
    QFETCH(QByteArray, bytes);
    const QString path = m_dir.filePath(qs("damaged.mdb"));
    QFile::remove(path);
    if (bytes != "-")
        tabulon::test::write(path, bytes);
    const auto tables = AccessFile::load(path);
    QVERIFY(!tables.ok());
    QVERIFY2(tables.error().description.startsWith(path), qPrintable(tables.error().description));
}

// Bytes flipped at random across the file: whatever the reader makes of them, the program gets
// an answer (tables or an error) and goes on.
void TestAccessFile::randomDamageNeverCrashes()
{
    // A file as its tables' names, fields and row counts, and its rows as texts.
    const auto shape = [](const std::vector<SourceTable> &tables) {
        QStringList out;
        for (const SourceTable &t : tables) {
            out << t.name + QLatin1Char('/') + QString::number(t.rows.size());
            for (const SourceField &f : t.fields)
                out << f.name + QLatin1Char(':') + QString::number(f.type);
        }
        return out;
    };
    const auto rows = [](const std::vector<SourceTable> &tables) {
        QStringList out;
        for (const SourceTable &t : tables)
            for (const SourceRow &r : t.rows)
                out << rowTexts(r).join(QLatin1Char('|'));
        return out;
    };
    const QStringList undamagedRows = rows(m_tables);
    QRandomGenerator random(20261123);
    int errors = 0;
    const int runs = 12;
    const int flips = 40;
    for (int run = 0; run < runs; ++run) {
        QByteArray bytes = m_image;
        for (int flip = 0; flip < flips; ++flip) {
            const auto at = random.bounded(bytes.size());
            bytes[at] = static_cast<char>(bytes[at] ^ (1 << random.bounded(8)));
        }
        const QString path = m_dir.filePath(qs("flipped%1.mdb").arg(run));
        tabulon::test::write(path, bytes);
        // Damage is told as this file's error, found by the reader's checks (not by its crash
        // or its silence); or the file reads whole: its tables, fields and rows as before, and
        // no more rows changed than bytes flipped (a flipped value's byte has no check to fail).
        const auto loaded = AccessFile::load(path, 20);
        if (loaded.ok()) {
            QCOMPARE(shape(loaded.value()), shape(m_tables));
            const QStringList got = rows(loaded.value());
            qsizetype changed = 0;
            for (qsizetype i = 0; i < got.size(); ++i)
                changed += got[i] != undamagedRows[i];
            QVERIFY2(changed <= flips, qPrintable(qs("run %1 changed %2 rows").arg(run).arg(changed)));
            continue;
        }
        ++errors;
        const QString told = loaded.error().description;
        QVERIFY2(loaded.error().isFileError() && told.startsWith(path + qs(": ")) &&
                     !told.contains(qs("ended abnormally")) && !told.contains(qs("stopped answering")),
                 qPrintable(told));
    }
    qInfo("%d of %d damaged copies gave an error", errors, runs);
}

void TestAccessFile::malformedAnswersAreRejected()
{
    const QByteArray &form = m_form;
    QVERIFY(AccessFile::decode(form).ok());
    // Every cut of the answer is an error.
    for (const qsizetype cut : {qsizetype(0), qsizetype(1), qsizetype(7), form.size() / 3, form.size() - 1})
        QVERIFY2(!AccessFile::decode(QByteArrayView(form).first(cut)).ok(), qPrintable(QString::number(cut)));
    QVERIFY(!AccessFile::decode("R").ok());     // a row before any table
    QVERIFY(!AccessFile::decode("Zjunk").ok()); // something after the end
    QVERIFY(!AccessFile::decode(QByteArray(form + "Z")).ok());

    // A table of one field and a row of three bytes: they come back as they went, an odd
    // length and zero bytes included; a kind of value the form does not know is malformed.
    const QByteArray table("T\1\0\0\0t\1\0\0\0\1\0\0\0f\xcd\0\0\0", 19);
    auto bytes = AccessFile::decode(QByteArray(table + QByteArray("R\2\3\0\0\0\0\xff\0Z", 10)));
    QVERIFY_DB(bytes.error());
    QCOMPARE(bytes->front().rows, std::vector<SourceRow>({{SourceValue::fromBytes(QByteArray("\0\xff\0", 3))}}));
    QVERIFY(!AccessFile::decode(QByteArray(table + QByteArray("R\3\3\0\0\0\0\xff\0Z", 10))).ok());
}

// A memo of more than 256 KiB, on some 150 pages of its own, comes whole, and a picture of an
// odd length holding zero bytes comes as its bytes. A text, a memo and a picture of no length
// are empty values; NULL stays NULL.
void TestAccessFile::longAndEmptyValues()
{
    QString memo;
    for (int line = 0; memo.size() < 300 * 1024; ++line)
        memo += qs("Zeile %1: Größe, Übermaß, Café.\n").arg(line);
    const QString path = m_dir.filePath(qs("values.mdb"));
    const QByteArray picture("\0\1\0\xff\0", 5);
    QString problem = writeLongValues(path, memo.toLatin1(), picture);
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    problem = addCategory(path, 97, QByteArray(), QByteArray(), QByteArray());
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    // The library's row writer lays a NULL picture out wrong; this one has a picture of 1 byte.
    QByteArray onePicture(12, '\0');
    mdb_put_int32(onePicture.data(), 0, 1u | 0x80000000u);
    problem = addCategory(path, 98, std::nullopt, std::nullopt, onePicture + 'p');
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
    auto tables = AccessFile::load(path);
    QVERIFY_DB(tables.error());
    const std::vector<SourceRow> &rows = tableNamed(*tables, qs("Categories")).rows;
    QCOMPARE(std::vector<SourceRow>(rows.end() - 3, rows.end()),
             std::vector<SourceRow>({{qs("99"), qs("Long"), SourceValue(memo), SourceValue::fromBytes(picture)},
                                     {qs("97"), qs(""), qs(""), SourceValue::fromBytes({})},
                                     {qs("98"), std::nullopt, std::nullopt, SourceValue::fromBytes("p")}}));
}

// The form leaves the reader in pieces once it passes the flush threshold. With a small
// threshold the system tables (the sample's catalog table alone is tens of kilobytes) pass it
// too; their rows must never join the pieces, or the program would get them as rows of the
// user table read before them.
void TestAccessFile::flushCarriesOnlyTheUserTables()
{
    const auto *data = reinterpret_cast<const unsigned char *>(m_image.constData());
    const auto size = static_cast<std::size_t>(m_image.size());
    AccessFile::setFlushThreshold(1024);
    QByteArray pieces, rest;
    QString reason;
    int flushes = 0;
    const bool read = AccessFile::readImage(data, size, rest, reason, [&](QByteArray &piece) {
        pieces += piece;
        piece.clear();
        ++flushes;
    });
    AccessFile::setFlushThreshold(1 << 20);
    QVERIFY2(read, qPrintable(reason));
    QVERIFY(flushes > 100);
    QVERIFY(pieces + rest == m_form);
}

// The reader is a program of its own: one that is missing, or that answers something else,
// is an error naming the file, never a hang or a crash.
void TestAccessFile::readerProgramProblemsGiveAnError()
{
    const std::pair<const char *, const char *> cases[] = {
        {"/nonexistent/tabulon-accessreader", "cannot be started"},
        {"/bin/cat", "malformed"}, // sends the file itself back
        {"/bin/true", "could not be read"},
    };
    for (const auto &[program, reason] : cases) {
        AccessFile::setReaderProgram(qs(program));
        const auto tables = AccessFile::load(kSample, 5);
        AccessFile::setReaderProgram(QString());
        QVERIFY(!tables.ok());
        QVERIFY2(tables.error().description.startsWith(kSample) && tables.error().description.contains(qs(reason)),
                 qPrintable(tables.error().description));
    }
}

// A reader that takes seconds over each table (here one that pauses after every row) keeps
// saying it is alive, and is not taken for one that stopped answering.
void TestAccessFile::slowReaderIsNotTakenForAStoppedOne()
{
    AccessFile::setReaderProgram(qs(TABULON_SLOW_READER));
    const auto reset = qScopeGuard([] { AccessFile::setReaderProgram(QString()); });
    auto reader = AccessReader::start(kSample, 1); // Order Details alone takes two seconds
    QVERIFY_DB(reader.error());
    const auto &catalog = (*reader)->catalog();
    const auto details = std::find_if(catalog.begin(), catalog.end(),
                                      [](const SourceTable &t) { return t.name == qs("Order Details"); });
    QVERIFY(details != catalog.end());
    auto table = (*reader)->table(static_cast<std::size_t>(details - catalog.begin()));
    QVERIFY_DB(table.error());
    QCOMPARE(table->rows.size(), std::size_t(2155));
}

// One row per line reads best here. The types and values the sample file holds (small
// integers, singles, booleans, apostrophes, US dates, money), its create and insert statements
// and the retry's renamed columns are checked where the conversion window writes them to the
// server, in test_convertdb.
// clang-format off
void TestAccessFile::rules_data()
{
    using namespace Conversion;
    QTest::addColumn<QString>("actual");
    QTest::addColumn<QString>("expected");
    QTest::newRow("name: whole-name words, any case") << sanitized("limit") << qs("AmtLimit");
    QTest::newRow("name: Desc") << sanitized("Desc") << qs("Description");
    QTest::newRow("name: only whole names") << sanitized("limit x") << qs("limit_x");
    QTest::newRow("name: blanks and parentheses") << sanitized("Unit Price (USD)") << qs("Unit_Price__USD_");
    QTest::newRow("name: reserved word") << sanitized("Date") << qs("Date_c");
    QTest::newRow("name: reserved test after dashes") << sanitized("Set-") << qs("Set_");
    QTest::newRow("name: closing parenthesis after the test") << sanitized("date)") << qs("date_");
    QTest::newRow("name: not null never matches") << sanitized("not null") << qs("not_null");
    QTest::newRow("name: other characters pass") << sanitized("a.b/c#d'e") << qs("a.b/c#d'e");
    QTest::newRow("name: accented letters pass") << sanitized("Umsätze") << qs("Umsätze");
    QTest::newRow("name: sanitised again, no change") << sanitized("Description") << qs("Description");
    QTest::newRow("name: empty") << sanitized("") << QString();

    QTest::newRow("type: integer, guid") << types({3, 72}) << qs("INT");
    QTest::newRow("type: double, decimal") << types({5, 131}) << qs("DOUBLE");
    QTest::newRow("type: currency, text") << types({6, 202}) << qs("VARCHAR(255)");
    QTest::newRow("type: dates") << types({7, 122, 124}) << qs("DATETIME");
    QTest::newRow("type: byte") << types({17}) << qs("CHAR(255)");
    QTest::newRow("type: 121") << types({121}) << qs("DATE");
    QTest::newRow("type: 123, 125") << types({123, 125}) << qs("CHAR(50)");
    QTest::newRow("type: memo, binary, stamps, unknown") << types({203, 204, 205, 133, 135, 129, 200, 16, 20, 0, -1, 32767}) << qs("LONGTEXT");

    QTest::newRow("value: null") << copied(nullptr, 202) << QString();
    QTest::newRow("value: empty date, no rule") << copied("", 7) << QString();
    QTest::newRow("value: backslash kept") << copied("a\\b", 202) << qs("a\\b");
    QTest::newRow("value: true in lower case") << copied("true", 11) << qs("0");
    QTest::newRow("value: date with time") << copied("11/16/1994 10:30:00 AM", 7) << qs("16-11-1994");
    QTest::newRow("value: day that is no month") << copied("25/12/2005", 7) << qs("25-12-2005");
    QTest::newRow("value: two-digit year") << copied("1/2/29", 7) << qs("02-01-2029");
    QTest::newRow("value: time alone") << copied("10:30:00 AM", 7) << qs("30-12-1899");
    QTest::newRow("value: no date") << copied("13/25/2005", 7) << qs("13-25-2005");
    QTest::newRow("value: text date") << copied("soon", 7) << qs("soon");
    QTest::newRow("value: slashes in a text kept") << copied("3/7/2005", 202) << qs("3/7/2005");


    QTest::newRow("proposal: file") << proposal("clients.mdb") << qs("clients");
    QTest::newRow("proposal: data source file") << proposal("Sales.DSN") << qs("Sales, data source");
    QTest::newRow("proposal: last component of a path") << proposal("C:\\data\\old.mdb") << qs("old");
    QTest::newRow("proposal: four characters") << proposal(".mdb") << QString();
    QTest::newRow("proposal: shorter than four") << proposal("a.b") << qs("<none>");

    QTest::newRow("date: midnight, date only") << ValueText::oleDate(34654.0) << qs("11/16/1994");
    QTest::newRow("date: with time, PM") << ValueText::oleDate(38418.0 + 0.75) << qs("3/7/2005 6:00:00 PM");
    QTest::newRow("date: noon") << ValueText::oleDate(38418.5) << qs("3/7/2005 12:00:00 PM");
    QTest::newRow("date: time alone") << ValueText::oleDate(0.4375) << qs("10:30:00 AM");
    QTest::newRow("date: before the zero day") << ValueText::oleDate(-1.25) << qs("12/29/1899 6:00:00 AM");
    QTest::newRow("date: no calendar date") << ValueText::oleDate(1e300) << ValueText::number(1e300);
    QTest::newRow("number: single, shortest") << ValueText::number(0.15f) << qs("0.15");
    QTest::newRow("number: whole") << ValueText::number(-3.0) << qs("-3");
    QTest::newRow("money: without zeros") << ValueText::trimFraction(qs("14.0000")) << qs("14");
    QTest::newRow("money: fraction") << ValueText::trimFraction(qs("12.7500")) << qs("12.75");
    QTest::newRow("money: zero") << ValueText::trimFraction(qs("0.0000")) << qs("0");
    QTest::newRow("booleans") << ValueText::boolean(true) + ValueText::boolean(false) << qs("TrueFalse");

    QTest::newRow("mode: strict modes out, backslashes as typed") << lenientSqlMode(qs("STRICT_TRANS_TABLES,ERROR_FOR_DIVISION_BY_ZERO,NO_AUTO_CREATE_USER,NO_ENGINE_SUBSTITUTION")) << qs("ERROR_FOR_DIVISION_BY_ZERO,NO_AUTO_CREATE_USER,NO_ENGINE_SUBSTITUTION,NO_BACKSLASH_ESCAPES");
    QTest::newRow("mode: both strict modes, already without escapes") << lenientSqlMode(qs("STRICT_ALL_TABLES,NO_BACKSLASH_ESCAPES,strict_trans_tables")) << qs("NO_BACKSLASH_ESCAPES");
    QTest::newRow("mode: empty") << lenientSqlMode(QString()) << qs("NO_BACKSLASH_ESCAPES");
    QTest::newRow("data source names") << QString::number(isPlainDataSourceName(qs("Sales 2024"))) + QString::number(isPlainDataSourceName(qs("x;Server=evil"))) + QString::number(isPlainDataSourceName(qs("a{b"))) + QString::number(isPlainDataSourceName(qs("a}b"))) + QString::number(isPlainDataSourceName(qs("a=b"))) << qs("10000");
    QTest::newRow("carried: text, lone surrogate") << QString::number(carriesExactly(qs("Größe \\ 漢"))) + QString::number(carriesExactly(ValueText::bytes(QByteArrayView("\x00\xd8", 2)))) << qs("10");
    QTest::newRow("report: a full disk keeps the earlier one") << reportOnFullDisk() << qs("refused, earlier");
    QTest::newRow("bytes as UTF-16, odd byte padded") << ValueText::bytes(QByteArrayView("A\0B\0C", 5)) << qs("ABC");
}
// clang-format on

void TestAccessFile::rules()
{
    QFETCH(QString, actual);
    QFETCH(QString, expected);
    QCOMPARE(actual, expected);
}

QTEST_GUILESS_MAIN(TestAccessFile)
#include "test_accessfile.moc"
