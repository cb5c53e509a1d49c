// The restore's check before its first statement, over every ticked table at once: what the
// target database and the table files say that the restore's statements could not carry, or
// that a delete would take with it, and which rows of a file are the client's.
#pragma once

#include "db/dberror.h"

#include <QByteArray>
#include <QSet>
#include <QString>
#include <QStringList>

#include <vector>

namespace tabulon {

class DatabaseSession;

namespace RestoreCheck {

struct Findings final {
    // "table: why" for each ticked table the restore must not start with; nothing is sent
    // while there is one.
    QStringList refusals;
    // Tables that a delete of a ticked table reaches through ON DELETE CASCADE or SET NULL.
    QStringList cascaded;
    // Whether such a delete reaches another ticked table: its restored rows would be undone
    // by a later delete unless the run keeps the cascade from acting.
    bool cascadesAmongTicked = false;
};

// `tables` are the ticked table files in `folder`; `deletes` says whether the run deletes
// rows (every row, or the client's) before it inserts. Tables the target lacks are left to
// the restore's own question. Checked: views, names the server reserves or the unquoted
// statements cannot carry (the table's and its file's columns), generated columns, and
// foreign keys that cascade a delete into a table that is not ticked.
DbResult<Findings> check(DatabaseSession &target, const QStringList &tables, const QString &folder, bool deletes);

// The rows of one table file that belong to a client: those whose code column (NAME in BILL
// and TABLE4, else CODE_NO, else CODE) holds the client's code as the server compares it,
// "ucase(column) = code" under the target column's collation. A file without a code column
// has no rows of any client.
struct ClientRows final {
    int column = -1;
    QSet<QByteArray> codes; // the column's cells that match, byte for byte
    bool owns(const std::vector<QByteArray> &row) const
    {
        return column >= 0 && size_t(column) < row.size() && codes.contains(row[size_t(column)]);
    }
};
// `code` is upper case and holds no quote or backslash (TableRestore::isSafeClientCode).
DbResult<ClientRows> clientRows(DatabaseSession &target, const QString &table, const QString &tableFile,
                                const QString &code);

} // namespace RestoreCheck
} // namespace tabulon
