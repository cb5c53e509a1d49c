#include "convert/conversionrules.h"

#include "db/typecodes.h"
#include "db/writemode.h"

#include <QDate>
#include <QRegularExpression>

namespace tabulon::Conversion {

QString MapFieldType(int adoType)
{
    // 121 to 125 name no type a common source reports; the table keeps them all the same.
    switch (adoType) {
    case AdoType::SmallInt: return QStringLiteral("SMALLINT");
    case AdoType::Integer:
    case AdoType::Guid: return QStringLiteral("INT");
    case AdoType::Single: return QStringLiteral("FLOAT");
    case AdoType::Double:
    case AdoType::Numeric: return QStringLiteral("DOUBLE");
    case AdoType::Currency:
    case AdoType::VarWChar: return QStringLiteral("VARCHAR(255)");
    case AdoType::Date:
    case 122:
    case 124: return QStringLiteral("DATETIME");
    case AdoType::Boolean: return QStringLiteral("TINYINT");
    case AdoType::UnsignedTinyInt: return QStringLiteral("CHAR(255)");
    case 121: return QStringLiteral("DATE");
    case 123:
    case 125: return QStringLiteral("CHAR(50)");
    default: return QStringLiteral("LONGTEXT");
    }
}

QString &SanitizeName(QString &name)
{
    const QString upper = name.toUpper();
    if (upper == QLatin1String("LIMIT"))
        name = QStringLiteral("AmtLimit");
    else if (upper == QLatin1String("DESC"))
        name = QStringLiteral("Description");
    else if (upper == QLatin1String("VALUES"))
        name = QStringLiteral("Cont_Vals");
    name.replace(QLatin1Char(' '), QLatin1Char('_'));
    name.replace(QLatin1Char('-'), QLatin1Char('_'));
    name.replace(QLatin1Char('('), QLatin1Char('_'));
    static const QStringList reserved = {QStringLiteral("int"),      QStringLiteral("update"), QStringLiteral("null"),
                                         QStringLiteral("not null"), QStringLiteral("set"),    QStringLiteral("select"),
                                         QStringLiteral("float"),    QStringLiteral("double"), QStringLiteral("date"),
                                         QStringLiteral("datetime"), QStringLiteral("default")};
    if (reserved.contains(name.toLower()))
        name += QLatin1String("_c");
    name.replace(QLatin1Char(')'), QLatin1Char('_'));
    return name;
}

QString createTableStatement(const QString &database, const QString &table, const QStringList &fieldNames,
                             const std::vector<int> &fieldTypes, bool retry)
{
    const QString separator = retry ? QStringLiteral("1 ") : QStringLiteral(" ");
    QString sql = QLatin1String("Create Table ") + database + QLatin1Char('.') + table + QLatin1String(" (");
    for (qsizetype k = 0; k < fieldNames.size(); ++k) {
        const int type = k < static_cast<qsizetype>(fieldTypes.size()) ? fieldTypes[static_cast<size_t>(k)] : 0;
        sql += fieldNames[k] + separator + MapFieldType(type);
        if (k + 1 < fieldNames.size())
            sql += QLatin1String(", ");
    }
    sql += QLatin1String(");");
    return sql;
}

QString copyValue(const std::optional<QString> &value, int adoType)
{
    if (!value || value->isEmpty())
        return QString();
    QString text = *value;
    text.replace(QLatin1Char('\''), QLatin1Char('_'));
    if (adoType == 7) {
        text.replace(QLatin1Char('/'), QLatin1Char('-'));
        return dayMonthYear(text);
    }
    if (adoType == 11)
        return text == QLatin1String("True") ? QStringLiteral("1") : QStringLiteral("0");
    return text;
}

namespace {

int fullYear(int year, qsizetype digits)
{
    if (digits > 2)
        return year;
    return year < 30 ? 2000 + year : 1900 + year;
}

} // namespace

QString dayMonthYear(const QString &text)
{
    static const QRegularExpression dateForm(
        QStringLiteral(R"(^\s*(\d{1,4})[-/](\d{1,2})[-/](\d{1,4})(\s+\d{1,2}:\d{2}(:\d{2})?(\s*[AaPp][Mm])?)?\s*$)"));
    static const QRegularExpression timeForm(QStringLiteral(R"(^\s*\d{1,2}:\d{2}(:\d{2})?(\s*[AaPp][Mm])?\s*$)"));
    if (timeForm.match(text).hasMatch())
        return QStringLiteral("30-12-1899");
    const QRegularExpressionMatch m = dateForm.match(text);
    if (!m.hasMatch())
        return text;
    const int a = m.captured(1).toInt();
    const int b = m.captured(2).toInt();
    const int c = m.captured(3).toInt();
    QDate date;
    if (m.captured(1).size() > 2 || a > 31) {
        date = QDate(a, b, c); // year first
    } else {
        const int year = fullYear(c, m.captured(3).size());
        date = QDate(year, a, b); // month first, as US dates are
        if (!date.isValid())
            date = QDate(year, b, a); // a day that cannot be a month reads as the day
    }
    if (!date.isValid())
        return text;
    return date.toString(QStringLiteral("dd-MM-yyyy"));
}

QString insertStatement(const QString &database, const QString &table, const QStringList &values)
{
    QString sql = QLatin1String("Insert into ") + database + QLatin1Char('.') + table + QLatin1String(" values ('");
    for (qsizetype k = 0; k < values.size(); ++k)
        sql += values[k] + (k + 1 == values.size() ? QLatin1String("')") : QLatin1String("','"));
    return sql;
}

std::optional<QString> proposedDatabaseName(const QString &sourceFileName)
{
    const qsizetype cut =
        std::max(sourceFileName.lastIndexOf(QLatin1Char('\\')), sourceFileName.lastIndexOf(QLatin1Char('/')));
    const QString last = sourceFileName.mid(cut + 1);
    if (last.size() < 4)
        return std::nullopt;
    return last.left(last.size() - 4);
}

bool isDataSourceFile(const QString &sourceFileName)
{
    return sourceFileName.right(4).toLower() == QLatin1String(".dsn");
}

QString dataSourceName(const QString &sourceFileName)
{
    return sourceFileName.left(std::max<qsizetype>(0, sourceFileName.size() - 4));
}

bool isPlainDataSourceName(const QString &name)
{
    for (const QChar c : name) {
        if (c == u';' || c == u'{' || c == u'}' || c == u'=')
            return false;
    }
    return true;
}

QString lenientSqlMode(const QString &serverMode)
{
    return SessionSql::writeSqlMode(serverMode);
}

bool carriesExactly(const QString &value)
{
    return QStringView(value).isValidUtf16();
}

} // namespace tabulon::Conversion
