// The conversion's name, type and value rules and its statement texts, without a server.
#include "convert/conversionrules.h"
#include "convert/valuetext.h"
#include "testdb.h"

#include <QTest>

using namespace tabulon;
using namespace tabulon::Conversion;
using tabulon::test::qs;
using tabulon::test::sl;

class TestConversionRules final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void sanitizeName_data();
    void sanitizeName();
    void mapFieldType_data();
    void mapFieldType();
    void copyValue_data();
    void copyValue();
    void statements();
    void proposedName_data();
    void proposedName();
    void valueTexts_data();
    void valueTexts();
};

// One row per line reads best here.
// clang-format off
void TestConversionRules::sanitizeName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("sanitised");
    QTest::newRow("whole-name words, any case") << "limit" << "AmtLimit";
    QTest::newRow("LIMIT") << "LIMIT" << "AmtLimit";
    QTest::newRow("Desc") << "Desc" << "Description";
    QTest::newRow("Values") << "Values" << "Cont_Vals";
    QTest::newRow("only whole names") << "limit x" << "limit_x";
    QTest::newRow("blanks and parentheses") << "Unit Price (USD)" << "Unit_Price__USD_";
    QTest::newRow("blank in a table name") << "Order Details" << "Order_Details";
    QTest::newRow("dash") << "e-mail" << "e_mail";
    QTest::newRow("reserved word") << "Date" << "Date_c";
    QTest::newRow("reserved, upper case") << "SELECT" << "SELECT_c";
    QTest::newRow("reserved test after dashes") << "Set-" << "Set_";
    QTest::newRow("closing parenthesis after the test") << "date)" << "date_";
    QTest::newRow("not null never matches") << "not null" << "not_null";
    QTest::newRow("other characters pass") << "a.b/c#d'e" << "a.b/c#d'e";
    QTest::newRow("accented letters pass") << "Umsätze" << "Umsätze";
    QTest::newRow("sanitised again: no change") << "Description" << "Description";
    QTest::newRow("empty") << "" << "";
}
// clang-format on

void TestConversionRules::sanitizeName()
{
    QFETCH(QString, name);
    QFETCH(QString, sanitised);
    QString inPlace = name;
    QCOMPARE(SanitizeName(inPlace), sanitised);
    QCOMPARE(inPlace, sanitised);
}

void TestConversionRules::mapFieldType_data()
{
    QTest::addColumn<QList<int>>("codes");
    QTest::addColumn<QString>("type");
    QTest::newRow("small integer") << QList<int>{2} << qs("SMALLINT");
    QTest::newRow("integer, guid") << QList<int>{3, 72} << qs("INT");
    QTest::newRow("single") << QList<int>{4} << qs("FLOAT");
    QTest::newRow("double, decimal") << QList<int>{5, 131} << qs("DOUBLE");
    QTest::newRow("currency, text") << QList<int>{6, 202} << qs("VARCHAR(255)");
    QTest::newRow("dates") << QList<int>{7, 122, 124} << qs("DATETIME");
    QTest::newRow("boolean") << QList<int>{11} << qs("TINYINT");
    QTest::newRow("byte") << QList<int>{17} << qs("CHAR(255)");
    QTest::newRow("121") << QList<int>{121} << qs("DATE");
    QTest::newRow("123, 125") << QList<int>{123, 125} << qs("CHAR(50)");
    QTest::newRow("memo, binary, stamps, unknown")
        << QList<int>{203, 204, 205, 133, 135, 129, 200, 16, 20, 0, -1, 32767} << qs("LONGTEXT");
}

void TestConversionRules::mapFieldType()
{
    QFETCH(QList<int>, codes);
    QFETCH(QString, type);
    for (const int code : codes)
        QVERIFY2(MapFieldType(code) == type, qPrintable(QString::number(code)));
}

// clang-format off
void TestConversionRules::copyValue_data()
{
    QTest::addColumn<bool>("isNull");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("written");
    QTest::newRow("null") << true << "" << 202 << "";
    QTest::newRow("null boolean: no rule") << true << "" << 11 << "";
    QTest::newRow("empty date: no rule") << false << "" << 7 << "";
    QTest::newRow("apostrophe replaced") << false << "O'Brien" << 202 << "O_Brien";
    QTest::newRow("backslash kept") << false << "a\\b" << 202 << "a\\b";
    QTest::newRow("True") << false << "True" << 11 << "1";
    QTest::newRow("False") << false << "False" << 11 << "0";
    QTest::newRow("0") << false << "0" << 11 << "0";
    QTest::newRow("true in lower case") << false << "true" << 11 << "0";
    QTest::newRow("US date") << false << "3/7/2005" << 7 << "07-03-2005";
    QTest::newRow("date with time") << false << "11/16/1994 10:30:00 AM" << 7 << "16-11-1994";
    QTest::newRow("day that is no month") << false << "25/12/2005" << 7 << "25-12-2005";
    QTest::newRow("two-digit year") << false << "1/2/29" << 7 << "02-01-2029";
    QTest::newRow("time alone") << false << "10:30:00 AM" << 7 << "30-12-1899";
    QTest::newRow("no date") << false << "13/25/2005" << 7 << "13-25-2005";
    QTest::newRow("text date") << false << "soon" << 7 << "soon";
    QTest::newRow("slashes in a text kept") << false << "3/7/2005" << 202 << "3/7/2005";
    QTest::newRow("currency as written") << false << "12.75" << 6 << "12.75";
}
// clang-format on

void TestConversionRules::copyValue()
{
    QFETCH(bool, isNull);
    QFETCH(QString, text);
    QFETCH(int, type);
    QFETCH(QString, written);
    QCOMPARE(Conversion::copyValue(isNull ? std::nullopt : std::optional<QString>(text), type), written);
}

void TestConversionRules::statements()
{
    QStringList names = sl({"ID", "Desc", "Price"});
    for (QString &n : names)
        SanitizeName(n);
    QCOMPARE(createTableStatement(qs("shop"), qs("Order_Items"), names, {3, 202, 6}, false),
             qs("Create Table shop.Order_Items (ID INT, Description VARCHAR(255), Price VARCHAR(255));"));
    QCOMPARE(createTableStatement(qs("shop"), qs("t"), sl({"A_B", "A_B"}), {3, 202}, true),
             qs("Create Table shop.t (A_B1 INT, A_B1 VARCHAR(255));"));
    QCOMPARE(createTableStatement(QString(), qs("t"), sl({"a"}), {7}, false), qs("Create Table .t (a DATETIME);"));
    QCOMPARE(insertStatement(qs("shop"), qs("Order_Items"), sl({"1", "Blue pen", "2.5"})),
             qs("Insert into shop.Order_Items values ('1','Blue pen','2.5')"));
    QCOMPARE(insertStatement(qs("shop"), qs("t"), sl({"", "x"})), qs("Insert into shop.t values ('','x')"));
}

void TestConversionRules::proposedName_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("proposed"); // "-" for no proposal
    QTest::newRow("file") << qs("clients.mdb") << qs("clients");
    QTest::newRow("data source file") << qs("Sales.DSN") << qs("Sales");
    QTest::newRow("last component of a path") << qs("C:\\data\\old.mdb") << qs("old");
    QTest::newRow("four characters") << qs(".mdb") << QString();
    QTest::newRow("shorter than four") << qs("a.b") << qs("-");
    QTest::newRow("empty") << QString() << qs("-");
}

void TestConversionRules::proposedName()
{
    QFETCH(QString, source);
    QFETCH(QString, proposed);
    const auto name = proposedDatabaseName(source);
    if (proposed == QLatin1String("-"))
        QVERIFY(!name);
    else
        QCOMPARE(name.value_or(qs("-")), proposed);
    QCOMPARE(isDataSourceFile(source), source.endsWith(qs(".dsn"), Qt::CaseInsensitive));
}

void TestConversionRules::valueTexts_data()
{
    QTest::addColumn<QString>("actual");
    QTest::addColumn<QString>("expected");
    QTest::newRow("midnight: date only") << ValueText::oleDate(34654.0) << qs("11/16/1994");
    QTest::newRow("with time, PM") << ValueText::oleDate(38418.0 + 0.75) << qs("3/7/2005 6:00:00 PM");
    QTest::newRow("noon") << ValueText::oleDate(38418.5) << qs("3/7/2005 12:00:00 PM");
    QTest::newRow("time alone") << ValueText::oleDate(0.4375) << qs("10:30:00 AM");
    QTest::newRow("before the zero day") << ValueText::oleDate(-1.25) << qs("12/29/1899 6:00:00 AM");
    QTest::newRow("no calendar date") << ValueText::oleDate(1e300) << ValueText::number(1e300);
    QTest::newRow("single, shortest") << ValueText::number(0.15f) << qs("0.15");
    QTest::newRow("double, shortest") << ValueText::number(0.1) << qs("0.1");
    QTest::newRow("whole number") << ValueText::number(-3.0) << qs("-3");
    QTest::newRow("money without zeros") << ValueText::trimFraction(qs("14.0000")) << qs("14");
    QTest::newRow("money fraction") << ValueText::trimFraction(qs("12.7500")) << qs("12.75");
    QTest::newRow("zero money") << ValueText::trimFraction(qs("0.0000")) << qs("0");
    QTest::newRow("booleans") << ValueText::boolean(true) + ValueText::boolean(false) << qs("TrueFalse");
    QTest::newRow("bytes as UTF-16, odd byte padded") << ValueText::bytes(QByteArrayView("A\0B\0C", 5)) << qs("ABC");
}

void TestConversionRules::valueTexts()
{
    QFETCH(QString, actual);
    QFETCH(QString, expected);
    QCOMPARE(actual, expected);
}

QTEST_GUILESS_MAIN(TestConversionRules)
#include "test_conversionrules.moc"
