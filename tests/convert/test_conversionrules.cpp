// The conversion's rules for names, types, values and modes, and the database name it proposes.
#include "convert/conversionrules.h"
#include "convert/valuetext.h"
#include "testdb.h"

#include <QTest>

using namespace tabulon;
using namespace tabulon::Conversion;
using tabulon::test::qs;
using tabulon::test::sl;

namespace {

// The name SanitizeName returns, which must also be the name it left in place.
QString sanitized(const char *name)
{
    QString inPlace = qs(name);
    const QString returned = SanitizeName(inPlace);
    return returned == inPlace ? returned : qs("returned %1, left %2").arg(returned, inPlace);
}

// The column types of all `codes`, each type once.
QString types(std::initializer_list<int> codes)
{
    QStringList out;
    for (const int code : codes)
        out << MapFieldType(code);
    out.removeDuplicates();
    return out.join(u',');
}

QString copied(const char *text, int type)
{
    return copyValue(text ? std::optional<QString>(qs(text)) : std::nullopt, type);
}

QString proposal(const char *source)
{
    return proposedDatabaseName(qs(source)).value_or(qs("<none>")) +
           (isDataSourceFile(qs(source)) ? qs(", data source") : QString());
}

} // namespace

class TestConversionRules final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void rules_data();
    void rules();
};

// One row per line reads best here. The types and values the sample file holds (small
// integers, singles, booleans, apostrophes, US dates, money), its create and insert statements
// and the retry's renamed columns are checked where the conversion window writes them to the
// server, in test_convertdb.
// clang-format off
void TestConversionRules::rules_data()
{
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
    QTest::newRow("bytes as UTF-16, odd byte padded") << ValueText::bytes(QByteArrayView("A\0B\0C", 5)) << qs("ABC");
}
// clang-format on

void TestConversionRules::rules()
{
    QFETCH(QString, actual);
    QFETCH(QString, expected);
    QCOMPARE(actual, expected);
}

QTEST_GUILESS_MAIN(TestConversionRules)
#include "test_conversionrules.moc"
