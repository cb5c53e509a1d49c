#include "convert/valuetext.h"

#include <charconv>
#include <cmath>
#include <system_error>

namespace tabulon::ValueText {

namespace {

template <typename T> QString shortest(T value)
{
    if (!std::isfinite(value))
        return value != value ? QStringLiteral("NaN") : (value < 0 ? QStringLiteral("-Inf") : QStringLiteral("Inf"));
    if (value == 0)
        return QStringLiteral("0");
    char buffer[400];
    // Plain decimal for the magnitudes that show as such, scientific beyond.
    const T magnitude = std::fabs(value);
    const bool plain = magnitude >= T(1e-15) && magnitude < T(1e15);
    const auto result = plain ? std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed)
                              : std::to_chars(buffer, buffer + sizeof buffer, value);
    if (result.ec != std::errc())
        return QString::number(static_cast<double>(value), 'g', 17);
    return QString::fromLatin1(buffer, static_cast<qsizetype>(result.ptr - buffer));
}

} // namespace

QString boolean(bool value)
{
    return value ? QStringLiteral("True") : QStringLiteral("False");
}

QString number(double value)
{
    return shortest(value);
}

QString number(float value)
{
    return shortest(value);
}

QString trimFraction(const QString &text)
{
    if (!text.contains(QLatin1Char('.')))
        return text;
    qsizetype end = text.size();
    while (end > 0 && text.at(end - 1) == QLatin1Char('0'))
        --end;
    if (end > 0 && text.at(end - 1) == QLatin1Char('.'))
        --end;
    QString out = text.left(end);
    if (out.isEmpty() || out == QLatin1String("-"))
        return QStringLiteral("0");
    return out;
}

QString dateTime(const QDate &date, const QTime &time, const QString &fraction)
{
    const QDate zeroDay(1899, 12, 30);
    const bool midnight = time.msecsSinceStartOfDay() < 1000 && fraction.isEmpty();
    const int hour12 = time.hour() % 12 == 0 ? 12 : time.hour() % 12;
    const QString clock = QStringLiteral("%1:%2:%3%4 %5")
                              .arg(hour12)
                              .arg(time.minute(), 2, 10, QLatin1Char('0'))
                              .arg(time.second(), 2, 10, QLatin1Char('0'))
                              .arg(fraction.isEmpty() ? QString() : QLatin1Char('.') + fraction)
                              .arg(time.hour() < 12 ? QStringLiteral("AM") : QStringLiteral("PM"));
    if (date == zeroDay)
        return clock;
    const QString day = QStringLiteral("%1/%2/%3").arg(date.month()).arg(date.day()).arg(date.year());
    return midnight ? day : day + QLatin1Char(' ') + clock;
}

QString oleDate(double days)
{
    // The calendar the old date type covers: years 100 to 9999.
    if (!std::isfinite(days) || days < -657434.0 || days >= 2958466.0)
        return number(days);
    const double whole = std::trunc(days);
    // Negative dates keep their time as a positive fraction of the day.
    long long seconds = std::llround(std::fabs(days - whole) * 86400.0);
    qint64 day = static_cast<qint64>(whole);
    if (seconds >= 86400) {
        seconds -= 86400;
        day += days < 0 ? -1 : 1;
    }
    const QDate date = QDate(1899, 12, 30).addDays(day);
    return dateTime(date, QTime::fromMSecsSinceStartOfDay(static_cast<int>(seconds * 1000)));
}

QString bytes(QByteArrayView data)
{
    QString out;
    out.reserve((data.size() + 1) / 2);
    for (qsizetype i = 0; i < data.size(); i += 2) {
        const auto low = static_cast<unsigned char>(data[i]);
        const auto high = i + 1 < data.size() ? static_cast<unsigned char>(data[i + 1]) : 0u;
        out.append(QChar(static_cast<char16_t>(low | (high << 8))));
    }
    return out;
}

} // namespace tabulon::ValueText
