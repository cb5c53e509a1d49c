// How the table data tool turns grid texts back into SQL: the value rules per ADO type code and
// the statement texts of the whole-table rewrite, kept free of widgets so tests can call them.
#pragma once

#include <QDate>
#include <QLocale>
#include <QString>
#include <QStringList>
#include <QStringView>

#include <optional>

namespace tabulon::RecordWriter {

// How a field's value is written. Code 135 (date-time stamp) belongs to the numeric group: the
// rewrite writes only the year of such a cell and ModifyRecord leaves it as it is.
enum class ValueGroup { Numeric, Date, Other };
ValueGroup groupOf(int adoType);

// The number at the start of the text: leading blanks skipped, reading stops at the first
// character that cannot continue a number, nothing readable gives 0. A value beyond the double
// range gives an infinity; one too small to hold gives 0.
double leadingNumber(QStringView text);
// True when the whole text, blanks around it aside, is one number; *value receives it.
bool isNumeric(QStringView text, double *value = nullptr);
// Shortest text that reads back as the same double, in plain decimal form with "." as the
// separator and never an exponent: 12.5, 0, 2007, 0.0001.
QString numberText(double value);

// The date a cell names: "yyyy-MM-dd" with or without a time, or the locale's short date.
std::optional<QDate> parseDate(QStringView text, const QLocale &locale = QLocale());
// "yyyy-MM-dd 00:00:00" for a cell that names a date, otherwise the text as it stands.
QString dateText(const QString &text, const QLocale &locale = QLocale());

// A value of the INSERT statement. Texts go between quotes unescaped: a quote inside a cell
// breaks its own statement, and the operator sees the server's complaint.
QString insertValue(int adoType, const QString &cellText, const QLocale &locale = QLocale());
QString insertStatement(const QString &table, const QStringList &fieldNames, const QStringList &values);
QString deleteAllStatement(const QString &table);

// What ModifyRecord gives a field: nullopt leaves the field as it is; an inner nullopt is NULL.
using FieldChange = std::optional<std::optional<QString>>;
FieldChange modifyValue(int adoType, const QString &cellText, const QLocale &locale = QLocale());

} // namespace tabulon::RecordWriter
