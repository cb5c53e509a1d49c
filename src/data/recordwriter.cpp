#include "data/recordwriter.h"

#include "db/typecodes.h"

#include <QRegularExpression>
#include <QTime>

#include <charconv>
#include <cmath>
#include <limits>
#include <string>

namespace tabulon::RecordWriter {

namespace {

bool isBlank(QChar c)
{
    return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n';
}

bool isDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

// One number read from `from`: [sign] digits [. digits] [e [sign] digits]. The exponent counts
// only when digits follow it, so "12e" reads as 12 and "3e-x" as 3.
struct Scanned {
    qsizetype end = 0;
    bool hasDigits = false;
    std::string ascii;       // what std::from_chars reads (no leading '+')
    long long magnitude = 0; // rough decimal exponent of the value, for out-of-range results
};

Scanned scanNumber(QStringView text, qsizetype from)
{
    Scanned s;
    qsizetype i = from;
    const qsizetype n = text.size();
    if (i < n && (text[i] == u'+' || text[i] == u'-')) {
        if (text[i] == u'-')
            s.ascii += '-';
        ++i;
    }
    long long intDigits = 0;
    long long leadingFractionZeros = 0;
    bool nonZeroSeen = false;
    while (i < n && isDigit(text[i])) {
        s.hasDigits = true;
        nonZeroSeen = nonZeroSeen || text[i] != u'0';
        if (nonZeroSeen)
            ++intDigits;
        s.ascii += static_cast<char>(text[i].unicode());
        ++i;
    }
    if (i < n && text[i] == u'.') {
        s.ascii += '.';
        ++i;
        while (i < n && isDigit(text[i])) {
            s.hasDigits = true;
            if (!nonZeroSeen && text[i] == u'0')
                ++leadingFractionZeros;
            nonZeroSeen = nonZeroSeen || text[i] != u'0';
            s.ascii += static_cast<char>(text[i].unicode());
            ++i;
        }
    }
    if (!s.hasDigits) {
        s.end = from;
        s.ascii.clear();
        return s;
    }
    long long exponent = 0;
    if (i < n && (text[i] == u'e' || text[i] == u'E')) {
        qsizetype j = i + 1;
        bool negative = false;
        if (j < n && (text[j] == u'+' || text[j] == u'-')) {
            negative = text[j] == u'-';
            ++j;
        }
        if (j < n && isDigit(text[j])) {
            s.ascii += negative ? "e-" : "e";
            while (j < n && isDigit(text[j])) {
                if (exponent < 1'000'000'000)
                    exponent = exponent * 10 + text[j].digitValue();
                s.ascii += static_cast<char>(text[j].unicode());
                ++j;
            }
            if (negative)
                exponent = -exponent;
            i = j;
        }
    }
    s.magnitude = (intDigits > 0 ? intDigits : -leadingFractionZeros) + exponent;
    s.end = i;
    return s;
}

double valueOf(const Scanned &s)
{
    if (!s.hasDigits)
        return 0;
    double value = 0;
    const char *first = s.ascii.data();
    const auto [ptr, ec] = std::from_chars(first, first + s.ascii.size(), value, std::chars_format::general);
    if (ec == std::errc::result_out_of_range) {
        if (s.magnitude <= 0)
            return 0;
        const double inf = std::numeric_limits<double>::infinity();
        return s.ascii.front() == '-' ? -inf : inf;
    }
    if (ec != std::errc())
        return 0;
    return value == 0 ? 0.0 : value; // no "-0"
}

qsizetype skipBlanks(QStringView text, qsizetype i)
{
    while (i < text.size() && isBlank(text[i]))
        ++i;
    return i;
}

QString quoted(const QString &text)
{
    return QLatin1Char('\'') + text + QLatin1Char('\'');
}

QString formatDate(QDate date)
{
    return QStringLiteral("%1-%2-%3 00:00:00")
        .arg(date.year(), 4, 10, QLatin1Char('0'))
        .arg(date.month(), 2, 10, QLatin1Char('0'))
        .arg(date.day(), 2, 10, QLatin1Char('0'));
}

std::optional<QDate> parseIsoDate(QStringView text)
{
    static const QRegularExpression iso(
        QStringLiteral(R"(^(\d{4})-(\d{1,2})-(\d{1,2})(?:[ T](\d{1,2}):(\d{1,2})(?::(\d{1,2})(?:\.\d{1,6})?)?)?$)"));
    const QRegularExpressionMatch m = iso.match(text);
    if (!m.hasMatch())
        return std::nullopt;
    const QDate date(m.capturedView(1).toInt(), m.capturedView(2).toInt(), m.capturedView(3).toInt());
    if (!date.isValid())
        return std::nullopt;
    if (m.hasCaptured(4)) {
        const int seconds = m.hasCaptured(6) ? m.capturedView(6).toInt() : 0;
        if (!QTime::isValid(m.capturedView(4).toInt(), m.capturedView(5).toInt(), seconds))
            return std::nullopt;
    }
    return date;
}

std::optional<QDate> parseLocaleDate(const QString &text, const QLocale &locale)
{
    const QString shortFormat = locale.dateFormat(QLocale::ShortFormat);
    QStringList formats{shortFormat};
    // A short format with a two-digit year also reads the year written out in full, and one
    // with two-digit days and months also reads them with one digit, as operators type them.
    if (!shortFormat.contains(QStringLiteral("yyyy")) && shortFormat.contains(QStringLiteral("yy")))
        formats << QString(shortFormat).replace(QStringLiteral("yy"), QStringLiteral("yyyy"));
    static const QRegularExpression twoDigitDay(QStringLiteral("(?<!d)dd(?!d)"));
    static const QRegularExpression twoDigitMonth(QStringLiteral("(?<!M)MM(?!M)"));
    for (qsizetype i = 0, n = formats.size(); i < n; ++i) {
        QString relaxed = formats[i];
        relaxed.replace(twoDigitDay, QStringLiteral("d")).replace(twoDigitMonth, QStringLiteral("M"));
        if (relaxed != formats[i])
            formats << relaxed;
    }
    for (const QString &format : std::as_const(formats)) {
        const QDate date = locale.toDate(text, format);
        if (date.isValid())
            return date;
        const QDateTime withTime =
            locale.toDateTime(text, format + QLatin1Char(' ') + locale.timeFormat(QLocale::ShortFormat));
        if (withTime.isValid())
            return withTime.date();
    }
    return std::nullopt;
}

} // namespace

ValueGroup groupOf(int adoType)
{
    switch (adoType) {
    case AdoType::SmallInt:
    case AdoType::Integer:
    case AdoType::Single:
    case AdoType::Double:
    case AdoType::TinyInt:
    case AdoType::DBTimeStamp: return ValueGroup::Numeric;
    case AdoType::Date:
    case AdoType::DBDate: return ValueGroup::Date;
    default: return ValueGroup::Other;
    }
}

double leadingNumber(QStringView text)
{
    return valueOf(scanNumber(text, skipBlanks(text, 0)));
}

bool isNumeric(QStringView text, double *value)
{
    const Scanned s = scanNumber(text, skipBlanks(text, 0));
    if (!s.hasDigits || skipBlanks(text, s.end) != text.size())
        return false;
    const double v = valueOf(s);
    if (!std::isfinite(v))
        return false;
    if (value)
        *value = v;
    return true;
}

QString numberText(double value)
{
    if (value == 0 || !std::isfinite(value))
        return QStringLiteral("0");
    // The widest fixed form of a double is 309 integer digits or 1074 fraction digits.
    char buffer[1100];
    const auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed);
    if (ec != std::errc())
        return QStringLiteral("0");
    return QString::fromLatin1(buffer, end - buffer);
}

std::optional<QDate> parseDate(QStringView text, const QLocale &locale)
{
    const QString trimmed = text.trimmed().toString();
    if (trimmed.isEmpty())
        return std::nullopt;
    if (auto date = parseIsoDate(trimmed))
        return date;
    return parseLocaleDate(trimmed, locale);
}

QString dateText(const QString &text, const QLocale &locale)
{
    const std::optional<QDate> date = parseDate(text, locale);
    return date ? formatDate(*date) : text;
}

QString insertValue(int adoType, const QString &cellText, const QLocale &locale)
{
    switch (groupOf(adoType)) {
    case ValueGroup::Numeric: {
        const QStringView text(cellText);
        const Scanned s = scanNumber(text, skipBlanks(text, 0));
        const double v = valueOf(s);
        // Too big for a double: the digits go out as read and the server has the last word.
        if (!std::isfinite(v))
            return QString::fromLatin1(s.ascii.data(), static_cast<qsizetype>(s.ascii.size()));
        return numberText(v);
    }
    case ValueGroup::Date: return quoted(dateText(cellText, locale));
    case ValueGroup::Other: break;
    }
    return quoted(cellText);
}

QString insertStatement(const QString &table, const QStringList &fieldNames, const QStringList &values)
{
    return QStringLiteral("Insert into ") + table + QStringLiteral(" (") + fieldNames.join(QLatin1Char(',')) +
           QStringLiteral(") values (") + values.join(QLatin1Char(',')) + QLatin1Char(')');
}

QString deleteAllStatement(const QString &table)
{
    return QStringLiteral("Delete from ") + table + QStringLiteral(" where 1>0");
}

FieldChange modifyValue(int adoType, const QString &cellText, const QLocale &locale)
{
    switch (groupOf(adoType)) {
    case ValueGroup::Numeric: {
        double v = 0;
        if (!isNumeric(cellText, &v))
            return std::nullopt;
        return std::optional<QString>(numberText(v));
    }
    case ValueGroup::Date: return std::optional<QString>(dateText(cellText, locale));
    case ValueGroup::Other: break;
    }
    if (cellText.isEmpty())
        return std::optional<QString>(std::nullopt);
    return std::optional<QString>(cellText);
}

} // namespace tabulon::RecordWriter
