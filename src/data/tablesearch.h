// The work behind the search and find-and-replace tools: the value a field is compared with,
// the statements they send, the table-by-table loops and the replacement of one hit. Errors
// come back to the window, which decides whether the operator sees them trapped or untrapped.
#pragma once

#include "db/dberror.h"
#include "db/recordset.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace tabulon {

class DatabaseSession;
class Progress;

namespace TableSearch {

// The text a field of the given type is compared with. The numeric group (codes 2, 3, 4, 5, 16
// and 135) takes the number read from the search text, bare, and skips the field (nullopt)
// when the text is not a number; every other type takes the text between single quotes as it
// stands, unescaped.
std::optional<QString> comparisonValue(int adoType, const QString &searchText);

QString repairStatement(const QString &table);
// "select F from T where F=V"
QString fieldQuery(const QString &table, const QString &field, const QString &value);

// --- Search -------------------------------------------------------------------------------

struct TableHit final {
    QString table;
    int position = 0; // in the table list
};

// Searches tables[first..last] (positions in `tables`): for each table, a progress step (the
// window yields there), the stop check, "Repair Table", the table's fields, and one query per
// comparable field until the first one that returns a row. A table is reported at most once.
// Stops at the first failing statement and returns it.
DbError searchTables(DatabaseSession &session, const QStringList &tables, int first, int last,
                     const QString &searchText, Progress &progress, const std::function<void(const TableHit &)> &onHit);

// --- Find and replace ----------------------------------------------------------------------

// The client-code guard's two queries, spaced as the tool has always sent them.
QString mainInfoCodeQuery(const QString &code);
QString ownerCodeQuery(const QString &code);
// True when `code` is already a client code in main_info1 or an owner code in owner1; each
// table is repaired before it is asked.
DbResult<bool> clientCodeExists(DatabaseSession &session, const QString &code);

// The rows of one field's query that hold the find text.
struct FieldHits final {
    QString table;
    int tablePosition = 0;
    QString field;
    int fieldPosition = 0;           // in the table, from 0
    const Recordset *rows = nullptr; // one field: the value found, NULL included
};

// Every field of every table: "Repair Table" before the table and again before each field's
// query, one query per comparable field, every returned row a hit. Stops at the first
// failing statement and returns it.
DbError scanTables(DatabaseSession &session, const QStringList &tables, const QString &findText, Progress &progress,
                   const std::function<void(const FieldHits &)> &onHits);

// "select * from T where F='value'": always quoted, whatever the field's type.
QString replaceQuery(const QString &table, const QString &field, const QString &foundValue);
// What the field is given: for the numeric group the number read from the replacement text
// when it is one, otherwise the text as typed.
QString replacementValue(int adoType, const QString &replaceText);

struct Hit final {
    QString table;
    QString field;
    QString foundValue;
    int fieldPosition = -1;
};

enum class ReplaceOutcome {
    Replaced,
    // No row holds the value any more (replaced already, or changed by someone else): nothing
    // was written.
    NothingToReplace,
};

// Replaces the value of one hit in one record: the first row of the replace query whose
// field, in upper case, equals the find text in upper case (or holds exactly the value the
// scan found). The record is written through the session's keyed update, located by its
// primary key or else by every value it was read with, at most one row; a record that can no
// longer be located gives AdoError::RowNotFound and changes nothing.
DbResult<ReplaceOutcome> replaceHit(DatabaseSession &session, const Hit &hit, const QString &findText,
                                    const QString &replaceText);

} // namespace TableSearch

} // namespace tabulon
