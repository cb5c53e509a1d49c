// Importing chosen fields of one source table (an Access file or an ODBC data source) into a
// new or an existing table of the current database: which source field goes to which column,
// the statements that create and fill the table, the value literals, and the row copy.
// Unlike the database conversion, values are escaped on the session, NULL stays NULL, date
// texts are rewritten into the form the target column takes and binary values go as bytes.
#pragma once

#include "convert/sourcetable.h"
#include "db/databasesession.h"

#include <QDateTime>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>
#include <vector>

namespace tabulon {

class Progress;

namespace Import {

// A column of the target table, as "SHOW COLUMNS" lists it.
struct TargetColumn final {
    QString name;
    QString type; // e.g. "varchar(255)", "datetime", "int(11)"
};

// One ticked source field and the column it is written to.
struct FieldMapping final {
    int sourceIndex = 0; // position of the field in the source's rows
    SourceField field;
    QString column;     // empty: the field matches no column and is skipped
    QString columnType; // the column's type (for a new table, the type it is created with)
};

// The sanitised copy of a source name (table or field).
QString sanitized(const QString &name);
// The column type a new table gives a source field: the conversion's type, except that binary
// fields get a binary column, which holds any byte.
QString mappedType(int adoType);
bool isBinaryType(int adoType);
// Why a column of `columnType` cannot hold every value of the source field ("" when it can):
// a narrower text, a text or a date into a number, a date into a column that holds no dates,
// bytes into a text. Judged by the types alone, before anything is read or written.
QString fitProblem(const SourceField &field, const QString &columnType);

// A new table takes every ticked field under its sanitised name, with the mapped type.
std::vector<FieldMapping> newTableMapping(const std::vector<SourceField> &fields, const std::vector<int> &ticked);
// An existing table takes a ticked field in the column whose name equals the field's sanitised
// name, case aside. A column goes to the first field that matches it; later ones match nothing.
std::vector<FieldMapping> existingTableMapping(const std::vector<SourceField> &fields, const std::vector<int> &ticked,
                                               const std::vector<TargetColumn> &columns);
int matchedCount(const std::vector<FieldMapping> &mapping);

DbResult<std::vector<TargetColumn>> readColumns(DatabaseSession &session, const QString &table);
DbResult<bool> tableExists(DatabaseSession &session, const QString &table);
// Whether the table's engine takes transactions (InnoDB and its kind).
DbResult<bool> isTransactional(DatabaseSession &session, const QString &table);

// "CREATE TABLE `t` (`c1` TYPE, ...)" for the matched fields.
QString createStatement(const QString &table, const std::vector<FieldMapping> &mapping);

// A date read from a source text: the date and time to the second, and the digits of a
// fraction of a second as the source wrote them ("345" for .345; empty for none).
struct SourceDate final {
    QDateTime value;
    QString fraction;
};
// A source date text ("M/D/YYYY", "M/D/YYYY h:mm:ss[.fff] AM", a time alone on the zero day
// 12/30/1899, or already "YYYY-MM-DD[ hh:mm:ss[.fff]]"); nothing for other texts.
std::optional<SourceDate> parseSourceDate(const QString &text);
// A source value as an SQL literal for a column of `columnType`: NULL, 1/0 for booleans, a date
// in the form the column takes, the bytes of a binary field as a hexadecimal literal, anything
// else escaped between quotes.
QByteArray valueLiteral(const SourceValue &value, int sourceType, const QString &columnType,
                        const SessionSql::Escaper &escape);
// The value a column of `columnType` keeps when it cannot keep `value` as the source has it,
// which the server does without a warning: a number rounded by a FLOAT or a DOUBLE, a fraction
// of a second cut by a time column of fewer digits. Empty when the column keeps it exactly.
QString heldValue(const SourceValue &value, int sourceType, const QString &columnType);
// "INSERT INTO `t` (`c1`,...) VALUES (...)" for the matched fields of one source row.
QByteArray insertStatement(const QString &table, const std::vector<FieldMapping> &mapping, const SourceRow &row,
                           const SessionSql::Escaper &escape);

// What one import did. The rows copied and changed are the rows the table keeps.
struct Outcome final {
    qint64 copied = 0;  // rows the server took as they were sent
    qint64 changed = 0; // rows it took with some value cut, rounded or replaced
    qint64 refused = 0;
    qint64 tooLong = 0;   // of the refused rows, those whose statement the server's packet limit
                          // (max_allowed_packet) would not take: they were not sent
    QStringList refusals; // the server's texts for the first kKeptRefusals refused rows
    QStringList warnings; // the first warnings of the changed rows, at most kKeptRefusals
    bool stopped = false;
    DbError error;              // the table could not be created, or the source could not be read
    bool transactional = false; // the rows went in one transaction
    bool rolledBack = false;    // ... and were taken back after a stop or a failure
    // The server ended the transaction itself (a deadlock, a lock wait time-out, a lost
    // connection): the rows it had taken are gone, and the copy stopped there.
    bool transactionLost = false;
    qint64 lost = 0; // rows the server took that the table does not keep
    // Where the answers left it open how many rows the table keeps (a connection lost while a
    // row or the commit was under way), the table was counted afterwards: true when it was,
    // and `uncounted` says why it could not be.
    bool counted = false;
    QString uncounted;
    static constexpr int kKeptRefusals = 5;
};

struct Plan final {
    QString sourceTable;
    QString targetTable;
    bool newTable = true;
    std::vector<FieldMapping> mapping;
};

// Rows copied between two progress steps (and yields to the window's events).
constexpr int kRowsPerStep = 50;

// Asked after a stop or a failure in a transaction, with what was done so far: true keeps the
// rows copied, false rolls them back.
using KeepRows = std::function<bool(const Outcome &sofar)>;

// Creates the new table (a table of that name already there fails the run before any row),
// then copies every source row one insert each. A row the server refuses is counted and the
// copy goes on, unless the refusal ended the transaction or the connection; a stop request
// ends it between steps. Into a table that takes transactions the rows go in one transaction,
// committed at the end or as `keep` decides after a stop or a failure; elsewhere every row
// stays as it was written.
Outcome run(ConversionSource &source, DatabaseSession &session, const Plan &plan, Progress &progress,
            const KeepRows &keep);

} // namespace Import
} // namespace tabulon
