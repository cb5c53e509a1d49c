// The conversion's rules, without a server: names made safe for MySQL, source types mapped to
// column types, the texts of the values and the statements that create and fill a table.
#pragma once

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace tabulon::Conversion {

// The MySQL column type for an ADO type code; unlisted codes give "LONGTEXT".
QString MapFieldType(int adoType);
// Replaces a few whole names, blanks, dashes and parentheses, and suffixes some reserved words
// with "_c" (see the steps in the definition); changes `name` and returns it.
QString &SanitizeName(QString &name);

// "Create Table db.table (f1 TYPE, f2 TYPE);", the names as given. The retry appends "1" to
// every column name.
QString createTableStatement(const QString &database, const QString &table, const QStringList &fieldNames,
                             const std::vector<int> &fieldTypes, bool retry);

// A value as the row copy writes it between quotes: null and empty give "", apostrophes become
// "_", dates are rewritten as "dd-mm-yyyy" and booleans as 1 or 0.
QString copyValue(const std::optional<QString> &value, int adoType);
// A text as the old date format "dd-mm-yyyy" renders it: texts that read as a US date (month
// first, "-" or "/" between the parts, a time after them allowed) or as a time alone give the
// day, month and four-digit year; any other text stays as it is.
QString dayMonthYear(const QString &text);
// "Insert into db.table values ('v1','v2')": the values as given, positional, quoted.
QString insertStatement(const QString &database, const QString &table, const QStringList &values);

// The database name a source file name proposes: its last path component without its last
// four characters; nothing for names shorter than that.
std::optional<QString> proposedDatabaseName(const QString &sourceFileName);
// True when the source names a data source file (".dsn", in any case).
bool isDataSourceFile(const QString &sourceFileName);
// The data source name a .dsn file names: the name without its last four characters.
QString dataSourceName(const QString &sourceFileName);
// False for a data source name holding ';', '{', '}' or '=': such a name would add settings of
// its own to the connection string it goes into.
bool isPlainDataSourceName(const QString &name);

// The session mode the conversion runs its statements in: the server's mode without the strict
// modes (a value the server must change is kept, changed, and reported as a warning, instead of
// refusing its row) and with NO_BACKSLASH_ESCAPES (values go between quotes as they are, so a
// backslash must stay a backslash).
QString lenientSqlMode(const QString &serverMode);
// False when a value's text cannot travel through a statement unchanged: binary values turned
// into text can hold halves of UTF-16 pairs, which no UTF-8 statement can carry.
bool carriesExactly(const QString &value);

} // namespace tabulon::Conversion
