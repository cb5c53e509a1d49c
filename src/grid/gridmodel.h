// The Qt model over a GridData: model rows are the grid's data rows, the header row is the
// horizontal header, every grid column is a model column. Cells are decoded only when a view
// asks for them, so a million rows cost no per-cell objects.
#pragma once

#include "grid/griddata.h"

#include <QAbstractTableModel>

namespace tabulon {

class GridModel final : public QAbstractTableModel {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(GridModel)
public:
    explicit GridModel(QObject *parent = nullptr);

    GridData &cells() { return m_cells; }
    const GridData &cells() const { return m_cells; }

    // Views learn the counts only through this model; after direct changes to cells() this
    // tells them: a repaint when the counts are unchanged, a reset otherwise. Returns whether
    // it had to reset.
    bool refresh();

    void setEditable(bool editable);
    bool isEditable() const { return m_editable; }

    // Grid coordinates <-> model indexes (the header row has no index).
    int gridRow(const QModelIndex &index) const { return index.isValid() ? index.row() + m_cells.fixedRows() : -1; }
    QModelIndex cellIndex(int row, int col) const;

    // Changes that keep views informed.
    void setCellText(int row, int col, const QString &text);
    void insertGridRow(int at);
    void removeGridRow(int row);
    void setGridRows(int n);
    void setGridCols(int n);
    void setFixedRows(int n);
    void setFixedCols(int n);
    void moveGridColumn(int from, int to);
    void clearGrid();
    // Rows follow their data: persistent indexes (current cell, selection) are moved with them.
    void sortGrid(int col, int order);
    // Rows appended to cells() since the last call (GridData::appendCell) join the views.
    void commitAppendedRows();
    // Replaces the content wholesale (recordset or file load).
    void resetWith(const std::function<void(GridData &)> &change);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;

Q_SIGNALS:
    // An edit made through a view's editor (not setCellText).
    void cellEdited(int row, int col);

private:
    int dataRows() const { return std::max(m_cells.rows() - m_cells.fixedRows(), 0); }
    void syncCounts();

    GridData m_cells;
    // The counts views were last told about.
    int m_rowCount = 0;
    int m_colCount = 0;
    bool m_editable = false;
};

} // namespace tabulon
