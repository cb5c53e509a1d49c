// The grid every tool window places (object name "Edi_Gr"): a header row and fixed first
// column, hidden columns, in-place editing, sorting by header click, multi-row selection,
// column sizing to contents, loading from a recordset, and its own file form.
#pragma once

#include "grid/griddata.h"

#include <QList>
#include <QTableView>

namespace tabulon {

class GridModel;

class Grid final : public QTableView {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Grid)
public:
    explicit Grid(QWidget *parent = nullptr);
    ~Grid() override;

    // Direct access for bulk work; call refresh() afterwards so the view catches up.
    GridData &cells();
    const GridData &cells() const;
    // Unchanged counts keep the current cell, selection and scroll position; changed counts
    // reset the view, keeping the current cell when it still exists. Column widths and hidden
    // columns stay by index either way.
    void refresh();

    int rows() const { return cells().rows(); }
    int cols() const { return cells().cols(); }
    void setRows(int n);
    void setCols(int n);
    int fixedRows() const { return cells().fixedRows(); }
    void setFixedRows(int n);
    int fixedCols() const { return cells().fixedCols(); }
    void setFixedCols(int n);

    QString textMatrix(int row, int col) const { return cells().text(row, col); }
    void setTextMatrix(int row, int col, const QString &text);

    void addRow();
    void insertRow(int at);
    void removeRow(int row);
    // The column keeps its width and hidden state at its new place; the remembered sort (for
    // the next header click) is forgotten.
    void moveColumn(int from, int to);

    // Removes every data row and empties the header row (rows() == fixedRows(), cols()
    // unchanged); every column is shown again at its default width.
    void clear();
    // New content: hidden columns are shown again, widths back to the default.
    void loadRecordset(const Recordset &rs);
    void adoptRecordset(Recordset &&rs);
    // New content from ready columns (GridData::adoptColumns), the fixed column first.
    void adoptColumns(std::vector<TextColumn> columns, const QStringList &names, qsizetype records);

    // Filling the grid as rows arrive (GridData::startAppending): the view starts on the
    // header row alone with the columns reset as for new content, shows the rows appended
    // so far at each commitAppendedRows(), and refuses sorts and edits until
    // finishAppending().
    void startAppending(const QStringList &headers);
    void commitAppendedRows();
    void finishAppending();

    // Hidden columns are ordinary columns: their cells move with their rows when sorting.
    void setColHidden(int col, bool hidden);
    bool isColHidden(int col) const { return isColumnHidden(col); }

    // Fits column widths to their texts. Big grids are sampled (the header, the first rows
    // and rows spread over the rest); long texts are capped at kMaxAutoWidth pixels.
    void autoSize(int firstCol, int lastCol);
    static constexpr int kMaxAutoWidth = 480;

    void setEditable(bool editable);
    bool isEditable() const;

    // The current cell in grid coordinates (row 0 is the header row); -1 when there is none.
    int row() const;
    int col() const;
    // Makes a data cell current, selects its row and scrolls to it. A header row has no cell
    // in the view: the current cell is dropped and the view scrolls to the column instead.
    void setCurrentCell(int row, int col);
    // The grid row of the data cell under a point in global coordinates; -1 when there is none.
    int rowAtGlobal(const QPoint &globalPos) const;
    // Grid rows that have any selected cell, ascending.
    QList<int> selectedRows() const;

    // order 1 ascending, 2 descending (GridData::sort); emits afterSort. Other orders do nothing.
    void sort(int col, int order);

    DbError saveGrid(const QString &path) const;
    // On failure the grid is left as it was.
    DbError loadGrid(const QString &path);

Q_SIGNALS:
    // After every sort, programmatic or by a header click. A click on the column sorted last
    // reverses its order; a click on any other column sorts it ascending.
    void afterSort(int col, int order);
    // Every mouse press in the cell area, and a right press inside an open cell editor (which
    // ends the edit first). A left press has already made its cell current; a right press
    // changes neither the current cell nor the selection.
    void mouseDown(Qt::MouseButton button, const QPoint &globalPos);
    void cellDoubleClicked(int row, int col);
    // An edit committed through the in-place editor.
    void cellEdited(int row, int col);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void resetColumnStates();
    void forgetSort();
    void onHeaderClicked(int section);
    void applyHeaderVisibility();
    void applyEditTriggers();

    GridModel *m_model;
    int m_sortCol = -1;
    int m_sortOrder = 0;
};

} // namespace tabulon
