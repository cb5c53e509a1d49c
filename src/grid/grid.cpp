#include "grid/grid.h"

#include "db/recordset.h"
#include "grid/gridmodel.h"

#include <QHash>
#include <QHeaderView>
#include <QMouseEvent>

#include <algorithm>
#include <array>

namespace tabulon {

namespace {

// Rows measured by autoSize on a big grid: enough to catch the typical width without
// walking a million cells.
constexpr int kAutoSizeHeadRows = 200;
constexpr int kAutoSizeSpreadRows = 300;
// Characters of one cell that are worth measuring; wider texts hit the cap anyway.
constexpr int kAutoSizeMaxChars = 200;
// Texts of a column's sample measured exactly, those whose estimated widths are the largest.
constexpr size_t kAutoSizeMeasuredTexts = 6;
constexpr int kCellPadding = 12;
// Room for the sort indicator beside a header text.
constexpr int kHeaderPadding = 24;

} // namespace

Grid::Grid(QWidget *parent) : QTableView(parent), m_model(new GridModel(this))
{
    setObjectName(QStringLiteral("Edi_Gr"));
    setModel(m_model);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setWordWrap(false);
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    viewport()->installEventFilter(this);

    // Fixed row heights let the view place a million rows without measuring any of them.
    QHeaderView *vertical = verticalHeader();
    vertical->hide();
    vertical->setSectionResizeMode(QHeaderView::Fixed);
    vertical->setDefaultSectionSize(fontMetrics().height() + 6);

    QHeaderView *horizontal = horizontalHeader();
    horizontal->setSectionsClickable(true);
    horizontal->setHighlightSections(false);
    horizontal->setSortIndicatorShown(false);
    connect(horizontal, &QHeaderView::sectionClicked, this, &Grid::onHeaderClicked);

    connect(this, &QAbstractItemView::doubleClicked, this,
            [this](const QModelIndex &index) { Q_EMIT cellDoubleClicked(m_model->gridRow(index), index.column()); });
    connect(m_model, &GridModel::cellEdited, this, &Grid::cellEdited);
    applyEditTriggers();
    applyHeaderVisibility();
}

Grid::~Grid() = default;

GridData &Grid::cells()
{
    return m_model->cells();
}

const GridData &Grid::cells() const
{
    return m_model->cells();
}

void Grid::resetColumnStates()
{
    const int width = horizontalHeader()->defaultSectionSize();
    for (int c = 0; c < m_model->columnCount(); ++c) {
        setColumnHidden(c, false);
        setColumnWidth(c, width);
    }
    forgetSort();
    applyHeaderVisibility();
}

void Grid::forgetSort()
{
    m_sortCol = -1;
    m_sortOrder = 0;
    horizontalHeader()->setSortIndicatorShown(false);
}

void Grid::applyHeaderVisibility()
{
    horizontalHeader()->setVisible(cells().fixedRows() > 0);
}

void Grid::applyEditTriggers()
{
    setEditTriggers(m_model->isEditable() ? (QAbstractItemView::DoubleClicked | QAbstractItemView::AnyKeyPressed |
                                             QAbstractItemView::EditKeyPressed)
                                          : QAbstractItemView::NoEditTriggers);
}

void Grid::refresh()
{
    const int currentRow = row();
    const int currentCol = col();
    // The header keeps widths and hidden sections by index across a reset; the current
    // cell and selection are what a reset loses.
    if (m_model->refresh()) {
        if (currentRow >= fixedRows() && currentRow < rows() && currentCol >= 0 && currentCol < cols())
            selectionModel()->setCurrentIndex(m_model->cellIndex(currentRow, currentCol),
                                              QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    }
    applyHeaderVisibility();
}

void Grid::setRows(int n)
{
    m_model->setGridRows(n);
}

void Grid::setCols(int n)
{
    m_model->setGridCols(n);
}

void Grid::setFixedRows(int n)
{
    m_model->setFixedRows(n);
    applyHeaderVisibility();
}

void Grid::setFixedCols(int n)
{
    m_model->setFixedCols(n);
}

void Grid::setTextMatrix(int row, int col, const QString &text)
{
    m_model->setCellText(row, col, text);
}

void Grid::addRow()
{
    insertRow(rows());
}

void Grid::insertRow(int at)
{
    m_model->insertGridRow(at);
}

void Grid::removeRow(int row)
{
    m_model->removeGridRow(row);
}

void Grid::moveColumn(int from, int to)
{
    if (from < 0 || from >= cols() || to < 0 || to >= cols() || from == to)
        return;
    // The header moves the section with its width and hidden state.
    m_model->moveGridColumn(from, to);
    forgetSort();
}

void Grid::clear()
{
    m_model->clearGrid();
    resetColumnStates();
}

void Grid::loadRecordset(const Recordset &rs)
{
    m_model->resetWith([&rs](GridData &cells) { cells.loadRecordset(rs); });
    resetColumnStates();
}

void Grid::adoptRecordset(Recordset &&rs)
{
    m_model->resetWith([&rs](GridData &cells) { cells.adoptRecordset(std::move(rs)); });
    resetColumnStates();
}

void Grid::adoptColumns(std::vector<TextColumn> columns, const QStringList &names, qsizetype records)
{
    m_model->resetWith(
        [&columns, &names, records](GridData &cells) { cells.adoptColumns(std::move(columns), names, records); });
    resetColumnStates();
}

void Grid::startAppending(const QStringList &headers)
{
    m_model->resetWith([&headers](GridData &cells) { cells.startAppending(headers); });
    resetColumnStates();
}

void Grid::commitAppendedRows()
{
    m_model->commitAppendedRows();
}

void Grid::finishAppending()
{
    m_model->commitAppendedRows();
    cells().finishAppending();
}

void Grid::setColHidden(int col, bool hidden)
{
    if (col >= 0 && col < cols())
        setColumnHidden(col, hidden);
}

void Grid::autoSize(int firstCol, int lastCol)
{
    firstCol = std::max(firstCol, 0);
    lastCol = std::min(lastCol, m_model->columnCount() - 1);
    const GridData &data = cells();
    std::vector<int> sample;
    const int first = data.fixedRows();
    const int count = std::max(data.rows() - first, 0);
    if (count <= kAutoSizeHeadRows + kAutoSizeSpreadRows) {
        for (int r = first; r < data.rows(); ++r)
            sample.push_back(r);
    } else {
        for (int r = first; r < first + kAutoSizeHeadRows; ++r)
            sample.push_back(r);
        const int rest = count - kAutoSizeHeadRows;
        for (int i = 0; i < kAutoSizeSpreadRows; ++i)
            sample.push_back(first + kAutoSizeHeadRows + static_cast<int>(qint64(rest) * i / kAutoSizeSpreadRows));
    }
    const auto measure = [](const QFontMetrics &metrics, QString text) {
        if (text.size() > kAutoSizeMaxChars)
            text.truncate(kAutoSizeMaxChars);
        text.replace(QLatin1Char('\n'), QLatin1Char(' '));
        return metrics.horizontalAdvance(text);
    };
    const QFontMetrics cellMetrics = fontMetrics();
    const QFontMetrics headerMetrics = horizontalHeader()->fontMetrics();
    // Measuring a text shapes it, some microseconds a cell: too slow for a sample of every
    // column on each load. Each cell is estimated instead as the sum of its characters'
    // advances, and only the texts with the widest estimates are measured.
    std::array<int, 128> asciiAdvance{};
    for (int ch = 0; ch < 128; ++ch)
        asciiAdvance[static_cast<size_t>(ch)] = cellMetrics.horizontalAdvance(QChar(ch == '\n' ? ' ' : ch));
    QHash<char16_t, int> otherAdvance;
    const auto estimate = [&](QByteArrayView utf8) {
        int width = 0;
        qsizetype chars = 0;
        for (qsizetype i = 0; i < utf8.size() && chars < kAutoSizeMaxChars; ++i, ++chars) {
            const auto byte = static_cast<unsigned char>(utf8[i]);
            if (byte < 0x80) {
                width += asciiAdvance[byte];
                continue;
            }
            const QString text = QString::fromUtf8(utf8.sliced(i, std::min<qsizetype>(utf8.size() - i, 4)));
            const char16_t ch = text.isEmpty() ? u' ' : text.front().unicode();
            auto at = otherAdvance.constFind(ch);
            if (at == otherAdvance.cend())
                at = otherAdvance.insert(ch, cellMetrics.horizontalAdvance(QChar(ch)));
            width += *at;
            while (i + 1 < utf8.size() && (static_cast<unsigned char>(utf8[i + 1]) & 0xC0) == 0x80)
                ++i;
        }
        return width;
    };
    std::vector<std::pair<int, int>> widest; // estimate, row
    for (int c = firstCol; c <= lastCol; ++c) {
        if (isColumnHidden(c))
            continue;
        int width = 0;
        if (data.fixedRows() > 0)
            width = measure(headerMetrics, data.text(0, c)) + kHeaderPadding;
        widest.clear();
        for (const int r : sample)
            widest.emplace_back(estimate(data.utf8(r, c)), r);
        const auto measured = std::min<size_t>(widest.size(), kAutoSizeMeasuredTexts);
        std::partial_sort(widest.begin(), widest.begin() + static_cast<std::ptrdiff_t>(measured), widest.end(),
                          [](const auto &a, const auto &b) { return a.first > b.first; });
        for (size_t i = 0; i < measured && width < kMaxAutoWidth; ++i)
            width = std::max(width, measure(cellMetrics, data.text(widest[i].second, c)) + kCellPadding);
        setColumnWidth(c, std::clamp(width, kCellPadding * 2, kMaxAutoWidth));
    }
}

void Grid::setEditable(bool editable)
{
    m_model->setEditable(editable);
    applyEditTriggers();
}

bool Grid::isEditable() const
{
    return m_model->isEditable();
}

int Grid::row() const
{
    return m_model->gridRow(currentIndex());
}

int Grid::col() const
{
    const QModelIndex index = currentIndex();
    return index.isValid() ? index.column() : -1;
}

void Grid::setCurrentCell(int row, int col)
{
    if (col < 0 || col >= cols() || row < 0 || row >= rows())
        return;
    if (row < fixedRows()) {
        selectionModel()->clearSelection();
        selectionModel()->clearCurrentIndex();
        if (m_model->rowCount() > 0)
            scrollTo(m_model->index(0, col));
        return;
    }
    const QModelIndex index = m_model->cellIndex(row, col);
    selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    scrollTo(index);
}

int Grid::rowAtGlobal(const QPoint &globalPos) const
{
    const QModelIndex index = indexAt(viewport()->mapFromGlobal(globalPos));
    return index.isValid() ? m_model->gridRow(index) : -1;
}

QList<int> Grid::selectedRows() const
{
    std::vector<int> modelRows;
    for (const QItemSelectionRange &range : selectionModel()->selection()) {
        for (int r = range.top(); r <= range.bottom(); ++r)
            modelRows.push_back(r);
    }
    std::sort(modelRows.begin(), modelRows.end());
    modelRows.erase(std::unique(modelRows.begin(), modelRows.end()), modelRows.end());
    QList<int> rows;
    rows.reserve(static_cast<qsizetype>(modelRows.size()));
    for (const int r : modelRows)
        rows.push_back(r + fixedRows());
    return rows;
}

void Grid::sort(int col, int order)
{
    if (col < 0 || col >= cols() || (order != 1 && order != 2) || cells().isAppending())
        return;
    m_model->sortGrid(col, order);
    m_sortCol = col;
    m_sortOrder = order;
    horizontalHeader()->setSortIndicatorShown(true);
    horizontalHeader()->setSortIndicator(col, order == 1 ? Qt::AscendingOrder : Qt::DescendingOrder);
    Q_EMIT afterSort(col, order);
}

void Grid::onHeaderClicked(int section)
{
    sort(section, section == m_sortCol && m_sortOrder == 1 ? 2 : 1);
}

DbError Grid::saveGrid(const QString &path) const
{
    return cells().saveToFile(path);
}

DbError Grid::loadGrid(const QString &path)
{
    GridData loaded;
    if (DbError error = loaded.loadFromFile(path))
        return error;
    m_model->resetWith([&loaded](GridData &cells) { cells = std::move(loaded); });
    resetColumnStates();
    return {};
}

void Grid::mousePressEvent(QMouseEvent *event)
{
    // A right press leaves the current cell and the selection as the operator made them: the
    // pop-up that follows acts on those. Other buttons move the current cell first, so
    // handlers read the pressed cell.
    if (event->button() != Qt::RightButton)
        QTableView::mousePressEvent(event);
    Q_EMIT mouseDown(event->button(), event->globalPosition().toPoint());
}

bool Grid::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == viewport()) {
        // Cell editors are created inside the viewport; watch each one once it is complete.
        if (event->type() == QEvent::ChildPolished) {
            if (auto *editor = qobject_cast<QWidget *>(static_cast<QChildEvent *>(event)->child()))
                editor->installEventFilter(this);
        }
        return QTableView::eventFilter(watched, event);
    }
    auto *editor = qobject_cast<QWidget *>(watched);
    if (!editor || editor->parentWidget() != viewport())
        return QTableView::eventFilter(watched, event);
    // A right click in an open editor ends the edit and then behaves as on the grid; the
    // editor's own text menu never shows.
    if (event->type() == QEvent::ContextMenu)
        return true;
    if (event->type() == QEvent::MouseButtonPress) {
        auto *press = static_cast<QMouseEvent *>(event);
        if (press->button() == Qt::RightButton) {
            const QPoint global = press->globalPosition().toPoint();
            commitData(editor);
            closeEditor(editor, QAbstractItemDelegate::NoHint);
            Q_EMIT mouseDown(Qt::RightButton, global);
            return true;
        }
    }
    return QTableView::eventFilter(watched, event);
}

} // namespace tabulon
