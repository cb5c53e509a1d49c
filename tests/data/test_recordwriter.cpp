// The value rules and statement texts of the table rewrite, the check of values they would not
// carry exactly, and the find walk, without a server.
#include "data/exactvalues.h"
#include "data/findcursor.h"
#include "data/recordwriter.h"
#include "testdb.h"

#include <QPoint>

using namespace tabulon;
using namespace tabulon::RecordWriter;
using tabulon::test::qs;
using tabulon::test::sl;

Q_DECLARE_METATYPE(tabulon::ExactValues::Column)

class TestRecordWriter final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void cellValue_data();
    void cellValue();
    void findNext_data();
    void findNext();
    void exactValues_data();
    void exactValues();
    void question();
};

// One row per line reads best here.
// clang-format off
void TestRecordWriter::cellValue_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("cell");
    QTest::addColumn<QString>("insert"); // the value of the INSERT statement
    QTest::addColumn<QString>("modify"); // what ModifyRecord gives the field: "unchanged", "NULL" or the value
    // numeric group: INSERT takes the number at the start of the text, bare, in its shortest exact
    // form; ModifyRecord only a number that is the whole text
    QTest::newRow("leading blanks, junk after") << 3 << " \t12abc" << "12" << "unchanged";
    QTest::newRow("nothing readable") << 3 << "abc" << "0" << "unchanged";
    QTest::newRow("trailing zero, blanks around") << 5 << " 12.50 " << "12.5" << "12.5";
    QTest::newRow("fraction only, plus sign") << 4 << "+.5" << "0.5" << "0.5";
    QTest::newRow("comma stops") << 5 << "1,5" << "1" << "unchanged";
    QTest::newRow("exponent read, written plain") << 5 << "-3.25e2x" << "-325" << "unchanged";
    QTest::newRow("tiny written plain") << 5 << "1e-5" << "0.00001" << "0.00001";
    QTest::newRow("shortest exact") << 5 << "0.33333333333333331" << "0.3333333333333333" << "0.3333333333333333";
    QTest::newRow("too big goes out as read") << 5 << "1e400" << "1e400" << "unchanged";
    QTest::newRow("datetime keeps the year") << 135 << "2007-12-25 10:30:00" << "2007" << "unchanged";
    // date group
    QTest::newRow("date") << 133 << "2007-2-5" << "'2007-02-05 00:00:00'" << "2007-02-05 00:00:00";
    QTest::newRow("date with time and blanks") << 7 << " 2007-12-25 10:30:59 " << "'2007-12-25 00:00:00'" << "2007-12-25 00:00:00";
    QTest::newRow("no such day") << 133 << "2007-02-30" << "'2007-02-30'" << "2007-02-30";
    QTest::newRow("us short date, month first") << 133 << "1/2/2007" << "'2007-01-02 00:00:00'" << "2007-01-02 00:00:00";
    QTest::newRow("german short date, day first") << 7 << "1.2.2007" << "'2007-02-01 00:00:00'" << "2007-02-01 00:00:00";
    QTest::newRow("german reading a us date") << 133 << "12/25/2007" << "'12/25/2007'" << "12/25/2007";
    // everything else: quoted as it stands; ModifyRecord gives an empty text as NULL
    QTest::newRow("quote unescaped") << 200 << "O'Brien" << "'O'Brien'" << "O'Brien";
    QTest::newRow("bigint is text") << 20 << "9007199254740993" << "'9007199254740993'" << "9007199254740993";
    QTest::newRow("empty text") << 200 << "" << "''" << "NULL";
    QTest::newRow("blank text") << 200 << " " << "' '" << " ";
}
// clang-format on

void TestRecordWriter::cellValue()
{
    QFETCH(int, type);
    QFETCH(QString, cell);
    // Rows named "german ..." read short dates the German way, all others the US way.
    const QLocale locale = QString::fromLatin1(QTest::currentDataTag()).startsWith(QLatin1String("german"))
                               ? QLocale(QLocale::German, QLocale::Germany)
                               : QLocale(QLocale::English, QLocale::UnitedStates);
    QTEST(RecordWriter::insertValue(type, cell, locale), "insert");
    const FieldChange change = RecordWriter::modifyValue(type, cell, locale);
    QTEST(!change ? QStringLiteral("unchanged") : !*change ? QStringLiteral("NULL") : **change, "modify");
}

namespace {

// A 5 x 8 grid: row 0 the header, columns 0 and 1 the numbers and load numbers.
const std::vector<QStringList> kCells = {
    sl({"", "", "name", "city", "abc", "x", "abc", "y"}),
    sl({"1", "1", "ABC", "abcd", "", "", "", ""}),
    sl({"2", "2", "", "", "", "Abc", "", ""}),
    sl({"3", "3", "", "", "", "abc", "", "aBc"}),
    sl({"4", "4", "abc", "", "", "", "ABC", ""}),
};

} // namespace

// clang-format off
void TestRecordWriter::findNext_data()
{
    QTest::addColumn<int>("startRow");
    QTest::addColumn<int>("startCol");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("hit");
    QTest::newRow("whole cell, any case") << 1 << 2 << "abc" << "1,2";
    QTest::newRow("part of a cell never") << 1 << 3 << "abc" << "2,5";
    QTest::newRow("search text not trimmed") << 1 << 2 << " abc" << "none";
    QTest::newRow("header only when cursor on it") << 0 << 2 << "city" << "0,3";
    QTest::newRow("hidden columns never searched") << 1 << 2 << "3" << "none";
}
// clang-format on

void TestRecordWriter::findNext()
{
    QFETCH(int, startRow);
    QFETCH(int, startCol);
    QFETCH(QString, text);
    FindCursor cursor{startRow, startCol};
    const FindHit found = tabulon::findNext(cursor, text, static_cast<int>(kCells.size()), 8,
                                            [](int r, int c) { return kCells[static_cast<size_t>(r)][c]; });
    QTEST(found.found ? QStringLiteral("%1,%2").arg(found.row).arg(found.col) : qs("none"), "hit");
    // After a hit the cursor stands just right of it; after a miss on the first field column.
    QCOMPARE(QPoint(cursor.row, cursor.col), found.found ? QPoint(found.row, found.col + 1) : QPoint(0, 2));
}

// The server's column type numbers (enum_field_types) the rows below use.
constexpr int kLong = 3, kLongLong = 8, kDate = 10, kDateTime = 12, kVarString = 253, kString = 254, kBit = 16,
              kNewDecimal = 246, kBlob = 252;

// One row per line reads best here.
// clang-format off
void TestRecordWriter::exactValues_data()
{
    QTest::addColumn<bool>("restore"); // the restore's rules, else Save Table's
    QTest::addColumn<ExactValues::Column>("column"); // type numbers, nullable, binary, enum
    QTest::addColumn<QByteArray>("cell");
    QTest::addColumn<bool>("isNull");
    QTest::addColumn<uint>("reasons");
    QTest::addColumn<QByteArray>("exact");
    using namespace ExactValues;
    QTest::newRow("quote, doubled") << false << Column{200, kVarString} << QByteArray("O'Brien") << false << uint(Quote) << QByteArray("'O''Brien'");
    QTest::newRow("backslash is exact already") << false << Column{200, kVarString} << QByteArray("C:\\new\\t.txt") << false << 0u << QByteArray("'C:\\new\\t.txt'");
    QTest::newRow("date-time in full") << false << Column{135, kDateTime} << QByteArray("2007-12-25 10:30:00") << false << uint(TimeStamp) << QByteArray("'2007-12-25 10:30:00'");
    QTest::newRow("NULL number") << false << Column{3, kLong} << QByteArray() << true << uint(Null) << QByteArray("NULL");
    QTest::newRow("NULL text") << false << Column{200, kVarString} << QByteArray() << true << uint(Null) << QByteArray("NULL");
    QTest::newRow("number cleared by the operator") << false << Column{3, kLong} << QByteArray() << false << 0u << QByteArray("0");
    QTest::newRow("number column, no number") << false << Column{3, kLong} << QByteArray("12abc") << false << uint(NotNumber) << QByteArray("'12abc'");
    QTest::newRow("bytes that are not UTF-8") << false << Column{205, kBlob, true, true} << QByteArray("\x80\x81") << false << uint(Bytes) << QByteArray("X'8081'");
    QTest::newRow("zero byte") << false << Column{205, kBlob, true, true} << QByteArray("a\0b", 3) << false << uint(Bytes) << QByteArray("X'610062'");
    QTest::newRow("BIT as its number") << false << Column{11, kBit, true, true} << QByteArray("1") << false << uint(Bit) << QByteArray("1");
    QTest::newRow("date keeps its date") << false << Column{133, kDate} << QByteArray("2020-01-02") << false << 0u << QByteArray("'2020-01-02 00:00:00'");
    QTest::newRow("restore: empty nullable decimal was NULL") << true << Column{131, kNewDecimal} << QByteArray() << false << uint(Null) << QByteArray("NULL");
    QTest::newRow("restore: empty nullable big integer") << true << Column{20, kLongLong} << QByteArray() << false << uint(Null) << QByteArray("NULL");
    QTest::newRow("restore: empty nullable enum") << true << Column{129, kString, true, false, true} << QByteArray() << false << uint(Null) << QByteArray("NULL");
    QTest::newRow("restore: empty nullable text stays empty") << true << Column{200, kVarString} << QByteArray() << false << 0u << QByteArray("''");
    QTest::newRow("restore: empty set stays empty") << true << Column{129, kString} << QByteArray() << false << 0u << QByteArray("''");
    QTest::newRow("restore: empty date, NOT NULL") << true << Column{133, kDate, false} << QByteArray() << false << 0u << QByteArray("''");
    QTest::newRow("restore: date as it stands") << true << Column{133, kDate} << QByteArray("2020-01-02") << false << 0u << QByteArray("'2020-01-02'");
    QTest::newRow("restore: date-time") << true << Column{135, kDateTime} << QByteArray("2020-01-02 03:04:05") << false << uint(TimeStamp) << QByteArray("'2020-01-02 03:04:05'");
}
// clang-format on

void TestRecordWriter::exactValues()
{
    QFETCH(bool, restore);
    QFETCH(QByteArray, cell);
    QFETCH(bool, isNull);
    QFETCH(ExactValues::Column, column);
    const auto rules = restore ? ExactValues::Rules::Restore : ExactValues::Rules::TableData;
    QTEST(ExactValues::reasons(rules, column, cell, isNull), "reasons");
    QTEST(ExactValues::exactLiteral(rules, column, cell, isNull), "exact");
}

void TestRecordWriter::question()
{
    QVERIFY(ExactValues::question({}).isEmpty());
    ExactValues::TableFindings quotes;
    quotes.table = qs("main_info1");
    ExactValues::TableFindings clean;
    clean.table = qs("owner1");
    ExactValues::TableFindings mixed;
    mixed.table = qs("payments");
    for (int i = 0; i < 2000; ++i) {
        quotes.addRow(i < 828 ? ExactValues::Quote : 0u);
        clean.addRow(0);
        mixed.addRow(i < 3 ? ExactValues::Null | ExactValues::TimeStamp : i < 5 ? ExactValues::Null : 0u);
    }
    mixed.tooLong = 1;
    mixed.longestRow = 7;
    mixed.longestField = qs("scan");
    QVERIFY(ExactValues::question({clean}).isEmpty());
    const QString text = ExactValues::question({quotes, clean, mixed});
    QVERIFY2(text.contains(qs("828 of 2,000 rows of main_info1 hold a quote.\n")), qPrintable(text));
    QVERIFY2(text.contains(qs("5 of 2,000 rows of payments hold a date and time the usual statement writes as its "
                              "year (3), a NULL the usual statement writes as '' or 0 (5).")),
             qPrintable(text));
    QVERIFY2(text.contains(qs("1 rows of payments are longer than the server accepts")), qPrintable(text));
    QVERIFY(!text.contains(qs("owner1")));
}

QTEST_GUILESS_MAIN(TestRecordWriter)
#include "test_recordwriter.moc"
