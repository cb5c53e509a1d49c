// The check before a whole-row write: which cells the usual INSERT values (the value rules of
// Save Table and of the restore) would not carry exactly, the exact literal for each of them,
// and the one question that lets the operator choose before anything is written.
#pragma once

#include "db/recordset.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <array>
#include <vector>

namespace tabulon::ExactValues {

// The value rules in force: Save Table and Delete Record have a date group the restore lacks,
// and only the grid knows which cells were NULL.
enum class Rules { TableData, Restore };

// Why the usual value would lose a cell; a cell may have several.
enum Reason : unsigned {
    Quote = 1u << 0,     // a text holding a single quote: the statement fails
    TimeStamp = 1u << 1, // a date and time, which the usual value writes as its year
    NotNumber = 1u << 2, // a number column's text that is not wholly a number
    Null = 1u << 3,      // a NULL, which the usual value writes as '' or 0
    Bytes = 1u << 4,     // binary bytes that are not UTF-8 text (or hold a zero byte)
    Bit = 1u << 5,       // a BIT value, whose digits the usual value writes as characters
};
constexpr int kReasonCount = 6;

// What the rules need to know of a column.
struct Column final {
    int adoType = 0;
    int serverType = 0;
    bool nullable = true;
    bool binary = false;
    bool isEnum = false;

    static Column of(const FieldInfo &field);
    // True for the column types in which '' is a value of its own (texts, binaries, SET).
    bool holdsEmptyText() const;
    bool isBit() const;
};

// The reasons for one cell. `isNull` is what the writer knows: the grid keeps NULLs; a table
// file cannot, so under the restore's rules an empty cell of a nullable column that cannot
// hold '' counts as a NULL, which is all it can have been.
unsigned reasons(Rules rules, const Column &column, QByteArrayView bytes, bool isNull);

// The literal that writes the cell exactly: NULL; a BIT as its number; bytes that are not UTF-8
// as X'…'; a text between quotes with its quotes doubled (the write mode has
// NO_BACKSLASH_ESCAPES); otherwise the usual value, which is then exact.
QByteArray exactLiteral(Rules rules, const Column &column, QByteArrayView bytes, bool isNull);
// The usual value, as the value rules write it.
QByteArray usualLiteral(Rules rules, const Column &column, QByteArrayView bytes);

// What the check found in one table.
struct TableFindings final {
    QString table;
    qint64 rows = 0;     // rows the command writes
    qint64 affected = 0; // of those, rows with at least one reason
    std::array<qint64, kReasonCount> byReason{};
    qint64 tooLong = 0;    // rows whose statement is longer than the server accepts
    qint64 longestRow = 0; // the first such row (1 = the first data row), for the message
    QString longestField;  // and its longest value's field

    // Counts one row with the reasons of its cells.
    void addRow(unsigned rowReasons);
    bool hasFindings() const { return affected > 0 || tooLong > 0; }
};

// The question for a command's findings, one line per table that has any; empty when there
// are none (then nothing is asked and every statement goes out as usual).
QString question(const std::vector<TableFindings> &tables);

// Whether Save Table, Delete Record and the restores check their values before the first write
// (on unless turned off). Only the benchmarks turn it off, to time the check against its
// absence; no window can. Off, those commands write the usual statements as if the check had
// found nothing.
bool checkBeforeWrites();
void setCheckBeforeWrites(bool on);

// An upper bound of the bytes a cell adds to its statement, whichever literal it takes: the
// check asks the server's limit only when a row could come near it.
inline qint64 literalBound(QByteArrayView bytes)
{
    return 3 * bytes.size() + 340;
}

} // namespace tabulon::ExactValues
