#include "grid/gridmodel.h"

#include <QGuiApplication>
#include <QHash>
#include <QPalette>

namespace tabulon {

GridModel::GridModel(QObject *parent) : QAbstractTableModel(parent)
{
    syncCounts();
}

void GridModel::syncCounts()
{
    m_rowCount = dataRows();
    m_colCount = m_cells.cols();
}

bool GridModel::refresh()
{
    if (m_rowCount == dataRows() && m_colCount == m_cells.cols()) {
        if (m_colCount > 0) {
            if (m_rowCount > 0)
                Q_EMIT dataChanged(index(0, 0), index(m_rowCount - 1, m_colCount - 1));
            Q_EMIT headerDataChanged(Qt::Horizontal, 0, m_colCount - 1);
        }
        return false;
    }
    beginResetModel();
    syncCounts();
    endResetModel();
    return true;
}

void GridModel::setEditable(bool editable)
{
    if (m_editable == editable)
        return;
    m_editable = editable;
    // Flags changed for every cell; views re-query them on the next edit attempt.
    if (m_rowCount > 0 && m_colCount > 0)
        Q_EMIT dataChanged(index(0, 0), index(m_rowCount - 1, m_colCount - 1));
}

QModelIndex GridModel::cellIndex(int row, int col) const
{
    return index(row - m_cells.fixedRows(), col);
}

void GridModel::setCellText(int row, int col, const QString &text)
{
    if (row < 0 || row >= m_cells.rows() || col < 0 || col >= m_cells.cols())
        return;
    m_cells.setText(row, col, text);
    if (row < m_cells.fixedRows()) {
        Q_EMIT headerDataChanged(Qt::Horizontal, col, col);
    } else {
        const QModelIndex i = cellIndex(row, col);
        Q_EMIT dataChanged(i, i);
    }
}

void GridModel::insertGridRow(int at)
{
    if (at < 0 || at > m_cells.rows())
        return;
    // A row that becomes the header (or pushes the header down) changes more than one row.
    if (at < m_cells.fixedRows()) {
        resetWith([at](GridData &cells) { cells.insertRow(at); });
        return;
    }
    const int modelRow = at - m_cells.fixedRows();
    beginInsertRows(QModelIndex(), modelRow, modelRow);
    m_cells.insertRow(at);
    syncCounts();
    endInsertRows();
}

void GridModel::removeGridRow(int row)
{
    if (row < 0 || row >= m_cells.rows())
        return;
    if (row < m_cells.fixedRows()) {
        resetWith([row](GridData &cells) { cells.removeRow(row); });
        return;
    }
    const int modelRow = row - m_cells.fixedRows();
    beginRemoveRows(QModelIndex(), modelRow, modelRow);
    m_cells.removeRow(row);
    syncCounts();
    endRemoveRows();
}

void GridModel::setGridRows(int n)
{
    n = std::max(n, 0);
    const int fixed = m_cells.fixedRows();
    if (n == m_cells.rows())
        return;
    if (n < fixed || m_cells.rows() < fixed) {
        resetWith([n](GridData &cells) { cells.setRows(n); });
        return;
    }
    const int now = m_cells.rows() - fixed;
    const int wanted = n - fixed;
    if (wanted > now) {
        beginInsertRows(QModelIndex(), now, wanted - 1);
        m_cells.setRows(n);
        syncCounts();
        endInsertRows();
    } else {
        beginRemoveRows(QModelIndex(), wanted, now - 1);
        m_cells.setRows(n);
        syncCounts();
        endRemoveRows();
    }
}

void GridModel::setGridCols(int n)
{
    n = std::max(n, 0);
    const int now = m_cells.cols();
    if (n > now) {
        beginInsertColumns(QModelIndex(), now, n - 1);
        m_cells.setCols(n);
        syncCounts();
        endInsertColumns();
    } else if (n < now) {
        beginRemoveColumns(QModelIndex(), n, now - 1);
        m_cells.setCols(n);
        syncCounts();
        endRemoveColumns();
    }
}

void GridModel::setFixedRows(int n)
{
    if ((n > 0 ? 1 : 0) != m_cells.fixedRows())
        resetWith([n](GridData &cells) { cells.setFixedRows(n); });
}

void GridModel::setFixedCols(int n)
{
    if ((n > 0 ? 1 : 0) != m_cells.fixedCols())
        resetWith([n](GridData &cells) { cells.setFixedCols(n); });
}

void GridModel::moveGridColumn(int from, int to)
{
    const int n = m_cells.cols();
    if (from < 0 || from >= n || to < 0 || to >= n || from == to)
        return;
    // Qt names the destination as the column before which the moved one is placed.
    beginMoveColumns(QModelIndex(), from, from, QModelIndex(), to > from ? to + 1 : to);
    m_cells.moveColumn(from, to);
    endMoveColumns();
}

void GridModel::clearGrid()
{
    resetWith([](GridData &cells) { cells.clear(); });
}

void GridModel::commitAppendedRows()
{
    const qsizetype added = m_cells.appendedRows();
    if (added <= 0)
        return;
    beginInsertRows(QModelIndex(), m_rowCount, static_cast<int>(m_rowCount + added - 1));
    m_cells.commitAppended();
    syncCounts();
    endInsertRows();
}

void GridModel::sortGrid(int col, int order)
{
    if (col < 0 || col >= m_cells.cols() || (order != 1 && order != 2) || m_cells.isAppending())
        return;
    Q_EMIT layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const QModelIndexList before = persistentIndexList();
    std::vector<std::uint32_t> keys;
    keys.reserve(static_cast<size_t>(before.size()));
    for (const QModelIndex &i : before)
        keys.push_back(m_cells.rowKey(gridRow(i)));

    m_cells.sort(col, order);

    QModelIndexList after;
    after.reserve(before.size());
    if (!before.isEmpty()) {
        QHash<std::uint32_t, int> rowOfKey;
        for (const std::uint32_t k : keys)
            rowOfKey.insert(k, -1);
        for (int r = m_cells.fixedRows(); r < m_cells.rows(); ++r) {
            const auto it = rowOfKey.find(m_cells.rowKey(r));
            if (it != rowOfKey.end())
                *it = r;
        }
        for (qsizetype i = 0; i < before.size(); ++i)
            after.push_back(cellIndex(rowOfKey.value(keys[static_cast<size_t>(i)]), before[i].column()));
    }
    changePersistentIndexList(before, after);
    Q_EMIT layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

void GridModel::resetWith(const std::function<void(GridData &)> &change)
{
    beginResetModel();
    change(m_cells);
    syncCounts();
    endResetModel();
}

int GridModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_rowCount;
}

int GridModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_colCount;
}

QVariant GridModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return {};
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole: return m_cells.text(gridRow(index), index.column());
    case Qt::BackgroundRole:
        if (index.column() < m_cells.fixedCols())
            return QGuiApplication::palette().brush(QPalette::Button);
        return {};
    case Qt::ForegroundRole:
        if (index.column() < m_cells.fixedCols())
            return QGuiApplication::palette().brush(QPalette::ButtonText);
        return {};
    default: return {};
    }
}

QVariant GridModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    if (orientation == Qt::Horizontal)
        return m_cells.fixedRows() > 0 ? m_cells.text(0, section) : QString();
    return QString::number(section + m_cells.fixedRows());
}

Qt::ItemFlags GridModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    Qt::ItemFlags f = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (m_editable && index.column() >= m_cells.fixedCols() && !m_cells.isAppending())
        f |= Qt::ItemIsEditable;
    return f;
}

bool GridModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    if (role != Qt::EditRole || !(flags(index) & Qt::ItemIsEditable))
        return false;
    const int row = gridRow(index);
    const QString text = value.toString();
    // An editor closed without a change leaves the cell as read: a NULL stays NULL, and bytes
    // that are not UTF-8 keep their bytes rather than the replacement characters shown.
    if (text == m_cells.text(row, index.column()))
        return true;
    m_cells.setText(row, index.column(), text);
    Q_EMIT dataChanged(index, index);
    Q_EMIT cellEdited(row, index.column());
    return true;
}

} // namespace tabulon
