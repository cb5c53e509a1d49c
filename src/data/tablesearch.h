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

// Which row of its table a hit was read from: the row's whole unique key (DatabaseSession::rowKey)
// or, in a table without one or through a view, every value of the row, as the scan read their
// bytes.
struct RowIdentity final {
    QStringList fields;
    std::vector<std::optional<QByteArray>> values;

    bool operator==(const RowIdentity &) const = default;
    // Whether row `row` of `records` (which must hold every identity field) holds the very
    // bytes this row was read with.
    bool matches(const Recordset &records, qsizetype row) const;
};

struct Hit final {
    QString table;
    QString field;
    QString foundValue;
    int fieldPosition = -1;
    RowIdentity row;
};

// The rows of one field that hold the find text, one hit each.
struct FieldHits final {
    QString table;
    int tablePosition = 0;
    QString field;
    int fieldPosition = 0; // in the table, from 0
    std::vector<Hit> hits;
};

// The statement that reads the rows of a field's hits with what identifies each row: the key's
// fields (`key`, positions in `fields`) and the field, or without a key every field. `value` as
// for fieldQuery.
QString identityQuery(const QString &table, const std::vector<FieldInfo> &fields, const std::vector<int> &key,
                      int field, const QString &value);

// Every field of every table: "Repair Table" before the table and again before each field's
// query, one query per comparable field; a field whose query returns rows has them read again
// with their identities, every row a hit. Stops at the first failing statement and returns it.
DbError scanTables(DatabaseSession &session, const QStringList &tables, const QString &findText, Progress &progress,
                   const std::function<void(const FieldHits &)> &onHits);

// "select * from T where F='value'": always quoted, whatever the field's type.
QString replaceQuery(const QString &table, const QString &field, const QString &foundValue);
// What the field is given: for the numeric group the number read from the replacement text
// when it is one, otherwise the text as typed.
QString replacementValue(int adoType, const QString &replaceText);

enum class ReplaceOutcome {
    Replaced,
    // The hit's row is gone, or its field no longer holds the value found: nothing was written.
    RowChanged,
    // The field's text is not the find text (upper case against upper case); the server only
    // took them as equal when comparing, as it does 0 with 'N/A'. Nothing was written.
    NotFindText,
};

struct ReplaceResult final {
    ReplaceOutcome outcome = ReplaceOutcome::RowChanged;
    QString written; // the field's new value, when replaced
};

// Replaces the value of one hit in exactly its own row: the row of the replace query whose
// identity is the hit's, and only when its field still holds the value found and that value
// is the find text in upper case. The record is written through the session's keyed update,
// located by its primary key or else by every value it was read with, at most one row; a
// record that can no longer be located gives AdoError::RowNotFound and changes nothing.
DbResult<ReplaceResult> replaceHit(DatabaseSession &session, const Hit &hit, const QString &findText,
                                   const QString &replaceText);

// After `replaced` was written with `written`: the hits of the same row (other fields of it)
// take the row's new identity, so that they still find it. The replaced hit keeps its own.
void followReplacement(std::vector<Hit> &hits, const Hit &replaced, const QString &written);

} // namespace TableSearch

} // namespace tabulon
