// The texts a US-English string conversion gives for source values: what the conversion writes
// into its insert statements before its own value rules apply.
#pragma once

#include <QByteArrayView>
#include <QDateTime>
#include <QString>

namespace tabulon::ValueText {

// "True" / "False".
QString boolean(bool value);
// The shortest decimal text that reads back as the same number; no exponent for the usual
// magnitudes ("12.5", "0.05", "-3").
QString number(double value);
QString number(float value);
// A fixed-point text without trailing zeros in its fraction: "14.0000" gives "14", "12.7500"
// gives "12.75".
QString trimFraction(const QString &text);
// "M/D/YYYY", with " h:mm:ss AM" (or PM) after it when the time is not midnight; a value on the
// zero day (12/30/1899) shows only its time. `fraction` holds the digits of a fraction of a
// second ("345" for .345), written after the seconds when there is one, so that a data
// source's timestamps keep it.
QString dateTime(const QDate &date, const QTime &time, const QString &fraction = QString());
// The same for a date held as days since 12/30/1899 with the time as the fraction. Values no
// calendar holds give the number's text.
QString oleDate(double days);
// Binary values as a string conversion turns them into text: every two bytes one UTF-16 code
// unit (an odd last byte padded with zero). The conversion writes them so; everything else
// keeps the bytes themselves.
QString bytes(QByteArrayView data);

} // namespace tabulon::ValueText
