// The statement text and the small rules of the table structure tools: listing a table's
// columns, adding, changing and dropping one, creating a table from rows of names and types.
#pragma once

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

namespace tabulon::StructureSql {

// "Repair Table " + T, sent before every listing of T's columns.
QString repairBeforeListing(const QString &table);
// "show columns from " + T
QString showColumns(const QString &table);

// Whether a column of a listing is shown, and whether it is the column looked for.
enum class ColumnMatch { Shown, Found, Skipped };
// An empty (trimmed) filter shows every column; otherwise only the column whose trimmed name
// equals the trimmed filter, letter case aside, and that one counts as found.
ColumnMatch matchColumn(const QString &column, const QString &filter);

// An input box left empty keeps what the current grid row holds.
QString answerOr(const QString &answer, const QString &current);

// "ALTER table " + T + " Add " + name + " " + type + ";"
QString addField(const QString &table, const QString &name, const QString &type);
// "ALTER table " + T + " change " + current + " " + name + " " + type + ";"
QString changeField(const QString &table, const QString &current, const QString &name, const QString &type);
// "ALTER table " + T + " Drop column " + name + ";"
QString dropField(const QString &table, const QString &name);

// "Create Table " + trimmed name + " (" + "name type" per field, comma-separated + ");"
using FieldRow = QPair<QString, QString>;
QString createTable(const QString &name, const QList<FieldRow> &fields);
// "Drop Table " + the name exactly as typed (the create trims it; this does not).
QString dropTable(const QString &name);

// The field names of a grid (one per grid row, the header row included) after a row is
// added at the end with `current` the current row: every row from current + 1 down to the
// new last row takes the current row's name; rows above it keep theirs.
QStringList namesAfterInsert(const QStringList &names, int current);

} // namespace tabulon::StructureSql
