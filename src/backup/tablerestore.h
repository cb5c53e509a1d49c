// The work of the restore tool without its window: the INSERT statement of one table-file row
// under the target's field types, the existence test, and the client restore's deletes and
// code columns. Table files are read row by row, so a table of any size passes with one row
// and one statement in memory.
#pragma once

#include "data/exactvalues.h"
#include "db/dberror.h"
#include "db/recordset.h"
#include "db/statementpipeline.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <functional>
#include <vector>

namespace tabulon {

class DatabaseSession;

namespace TableRestore {

// A cell as the restore writes it: the leading number of the text for tiny, small and plain
// integers, single, double and date-time stamp fields; the text between single quotes, with
// no escaping, for every other type.
QString value(int adoType, const QString &cellText);

// "Insert into T (a,b) values (v1,v2)".
QString insertStatement(const QString &table, const QStringList &header, const QStringList &values);
// "DELETE from T where 1>0;"
QString deleteAllStatement(const QString &table);
// "Select * from T": the table exists when it runs without an error.
QString existenceTest(const QString &table);

// The target table's fields by upper-case name, with what the value rules and the exact-value
// check need of each, learnt from its fields alone (no row is read).
using FieldColumns = QHash<QString, ExactValues::Column>;
DbResult<FieldColumns> fieldColumns(DatabaseSession &target, const QString &table);

// The table file set against the target table before the first statement that changes it: the
// file must hold exactly the table's fields, each once, for its rows to go in whole. `misfit`
// says why one does not (a file that cannot be read included); server errors while learning
// the table's fields come back as the error.
struct TableFit final {
    QHash<QString, int> types;
    FieldColumns columns;
    QString misfit; // empty when the file fits
};
DbResult<TableFit> checkFit(DatabaseSession &target, const QString &table, const QString &tableFile);

// The client restore's code: what goes into NAME (in BILL and TABLE4), CODE_NO and CODE.
struct ClientCode final {
    QString code;
    // Whether a row of the table file (its cells as read) is the client's; a row it turns
    // down is not inserted. Unset: every row is.
    std::function<bool(const std::vector<QByteArray> &row)> isClientRow;
};

// The client's old rows in one table, removed before its rows are inserted: by the code the
// rows are restored under, in exactly the columns that code is written into, so only rows of
// that code are touched. Only columns the table has (`types`, by upper-case name) are used,
// so a delete that fails is a real failure.
QStringList clientDeletes(const QString &table, const QString &code, const QHash<QString, int> &types);
// Whether the code may be written into statements: a quote or backslash in it could turn a
// delete into one that matches other clients' rows.
bool isSafeClientCode(const QString &code);

// The check before the first statement: which rows of the table file the usual values would not
// restore exactly, and which are longer than `target` accepts. The file is read through once,
// a row at a time.
DbResult<ExactValues::TableFindings> checkValues(DatabaseSession &target, const QString &table,
                                                 const QString &tableFile, const FieldColumns &columns,
                                                 const ClientCode *client);

// Inserts every row of the table file into `table` on `target`. With `client`, only its rows
// (ClientCode::isClientRow), and the code columns take its code. With `exact`, a row the usual values would not carry
// exactly is written with exact values instead (ExactValues::exactLiteral); other rows go as usual. `onStatementError`
// decides about a failed statement: return true to go on with the next row, false to stop and return the error (the
// table restore's untrapped error). File errors are always returned. `sending` says whether rows
// may go out ahead of earlier rows' answers: not where a refused row stops the work on a table
// that keeps what was written, or the rows sent after it would go in all the same.
using StatementErrorHandler = std::function<bool(const DbError &error)>;
DbError insertRows(DatabaseSession &target, const QString &table, const QString &tableFile, const FieldColumns &columns,
                   const ClientCode *client, bool exact, StatementPipeline::Sending sending,
                   const StatementErrorHandler &onStatementError);

} // namespace TableRestore
} // namespace tabulon
