// The cells of one grid, without any widget: a TextColumn per column and one row index that
// sorting and row moves permute, so a million-row grid costs little more than its texts.
#pragma once

#include "db/dberror.h"
#include "db/textcolumn.h"

#include <QByteArrayView>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <vector>

namespace tabulon {

class Recordset;

// Cells are addressed (row, col) with row 0 the header row when fixedRows() == 1 and col 0
// the fixed column when fixedCols() == 1. Counts include the fixed row and column. Reads out
// of range give empty text; writes and structural changes out of range are ignored.
//
// A new grid has only its fixed parts: one row and one column. One column holds at most 4 GiB
// of text (TextColumn throws std::length_error beyond that).
class GridData final {
public:
    GridData();

    int rows() const { return static_cast<int>(m_identity ? m_physicalRows : static_cast<qsizetype>(m_order.size())); }
    int cols() const { return static_cast<int>(m_columns.size()); }
    // Grows with empty cells or drops from the end.
    void setRows(int n);
    void setCols(int n);

    int fixedRows() const { return m_fixedRows; }
    void setFixedRows(int n) { m_fixedRows = n > 0 ? 1 : 0; }
    int fixedCols() const { return m_fixedCols; }
    void setFixedCols(int n) { m_fixedCols = n > 0 ? 1 : 0; }

    QString text(int row, int col) const;
    // The cell's UTF-8 bytes, valid until the grid is next changed; empty out of range.
    QByteArrayView utf8(int row, int col) const;
    void setText(int row, int col, const QString &text);
    // Whether the cell holds a NULL as read (shown as an empty cell); an edit clears it.
    bool isNull(int row, int col) const;
    // An identity of the row's cells that sorting, row inserts and column moves keep (not
    // removals of other rows, which may renumber); used to follow rows across a sort.
    std::uint32_t rowKey(int row) const { return physical(row); }

    void addRow() { insertRow(rows()); }
    // at == rows() appends.
    void insertRow(int at);
    void removeRow(int row);
    // As QList::move: column `from` ends up at index `to`.
    void moveColumn(int from, int to);

    // Removes every data row and empties the header row: rows() == fixedRows() afterwards,
    // cols() and the fixed counts stay as they were.
    void clear();

    // Writes rows firstRow..lastRow of one column in one pass instead of one edit per cell.
    void setColumnTexts(int col, int firstRow, int lastRow, const std::function<QString(int row)> &text);
    // Every data row's cell in the column becomes the row's number (row i reads "i"); the
    // fixed row keeps its text. The numbers travel with their rows like any text, but are
    // worked out when read: the column costs nothing while rows are in the order they were
    // read in, and 4 bytes a row otherwise.
    void setRowNumbers(int col);
    // Column `to` becomes a copy of column `from`, header included. The text bytes are shared
    // until either column changes, so a copy costs about 1.25 bytes a cell.
    void copyColumn(int from, int to);

    // Row 0 takes the field names (when fixedRows() == 1), one row per record follows, field k
    // lands in column fixedCols() + k and the fixed column stays empty. A NULL reads as an
    // empty cell. Afterwards rows() == recordCount + fixedRows(), cols() == fieldCount +
    // fixedCols(); the fixed counts are kept.
    void loadRecordset(const Recordset &rs);
    // The same grid, but the recordset's column storage is taken over instead of copied.
    void adoptRecordset(Recordset &&rs);
    // The whole grid from ready columns, taken over as they are: each holds `records` cells in
    // row order and gets `names` at its place as its header cell, or holds one cell more, its
    // header, already at the end (so that columns sharing their storage stay shared). The fixed
    // column is the first of `columns` like any other.
    void adoptColumns(std::vector<TextColumn> columns, const QStringList &names, qsizetype records);

    // Filling the grid in row order as rows arrive (a table being read). startAppending()
    // leaves the header row alone, `headers` as its cells (one per column, empty ones when the
    // header row is off). appendCell() and appendNullCell() add a cell at the end of one
    // column's storage, where it is not yet a row; commitAppended() makes the rows whose cells
    // every column holds into rows at the end of the grid (a row cut short is dropped) and
    // returns how many it added. A cell appended to a column that shares its storage with
    // another (copyColumn) goes to both. finishAppending() commits and gives back spare room.
    // Meanwhile sorts and edits through the views are refused, so that every row is seen.
    void startAppending(const QStringList &headers);
    // While appending, the column's cell of each row to come reads as the row's place in the
    // reading ("1", "2", ...) without being appended or stored; copies of the column
    // (copyColumn) count along.
    void numberAppendedRows(int col);
    void appendCell(int col, QByteArrayView utf8) { m_columns[static_cast<size_t>(col)].appendShared(utf8); }
    void appendNullCell(int col) { m_columns[static_cast<size_t>(col)].appendNullShared(); }
    qsizetype appendedRows() const;
    qsizetype commitAppended();
    void finishAppending();
    bool isAppending() const { return m_appending; }

    // Sorts rows fixedRows()..rows()-1 by one column. order 1 ascending, 2 descending, anything
    // else leaves the rows as they are. The comparison is the generic one: empty cells first,
    // then cells that read as plain decimal numbers (compared as numbers), then all other texts,
    // case-folded and compared in code point order (no locale). Stable in both directions;
    // only the row index moves. Needs 12 bytes per row of scratch while it runs.
    void sort(int col, int order);

    // The grid's own file form (see gridfile.h). A failed load leaves the grid unchanged.
    DbError saveToFile(const QString &path) const;
    DbError loadFromFile(const QString &path);

    // Builds a grid from ready columns, each resized to `rows` cells, in row order.
    static GridData fromColumns(std::vector<TextColumn> columns, int rows, int fixedRows, int fixedCols);

    qsizetype memoryUse() const;

private:
    std::uint32_t physical(int row) const
    {
        return m_identity ? static_cast<std::uint32_t>(row) : m_order[static_cast<size_t>(row)];
    }
    // Gives the rows an index of their own before a change that moves a row away from its cells.
    void makeRowIndex();
    void appendPhysicalRows(qsizetype count);
    void dropUnusedRows();
    // Rebuilds every column in row order, dropping cells no row refers to.
    void compact();
    void takeRecordsetColumns(std::vector<TextColumn> columns, QStringList names, qsizetype records);

    std::vector<TextColumn> m_columns;
    // Row -> physical cell index in every column; empty while m_identity, when row i is cell i
    // (a grid filled in row order needs no index until its rows are moved).
    std::vector<std::uint32_t> m_order;
    bool m_identity = true;
    bool m_appending = false;
    // Cells per column, including those of removed rows not yet compacted away.
    qsizetype m_physicalRows = 0;
    int m_fixedRows = 1;
    int m_fixedCols = 1;
};

} // namespace tabulon
