// The grid through the real view (offscreen): header clicks, the current cell and multi-row
// selection, in-place editing, column state across changes, and a million rows.
#include "grid/grid.h"
#include "gridtexts.h"
#include "testdb.h"

#include <QApplication>
#include <QHeaderView>
#include <QLineEdit>
#include <QMenu>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <tuple>

using namespace tabulon;
using namespace tabulon::test;

namespace {

// Header "", "load", "name", "qty"; data rows numbered in columns 0 and 1 as loaded.
const QStringList kTable =
    sl({"|load|name|qty", "1|1|pear|10", "2|2|Apple|9", "3|3|fig|100", "4|4|banana|", "5|5|cherry|9", "6|6|date|-1"});

QStringList column(const Grid &grid, int col)
{
    return test::gridColumnTexts(grid.cells(), col);
}

void clickHeader(Grid &grid, int section)
{
    QHeaderView *header = grid.horizontalHeader();
    const QPoint at(header->sectionViewportPosition(section) + header->sectionSize(section) / 2, header->height() / 2);
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, at);
}

void clickCell(Grid &grid, int row, int col, Qt::KeyboardModifiers mods = {}, Qt::MouseButton button = Qt::LeftButton)
{
    const QRect cell = grid.visualRect(grid.model()->index(row - grid.fixedRows(), col));
    QTest::mouseClick(grid.viewport(), button, mods, cell.center());
}

} // namespace

class TestGrid final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup() { m_grid.reset(); }
    void sortByHeaderClicks();
    void selectAndEdit();
    void columnStateAndLoading();
    void millionRows();

private:
    std::unique_ptr<Grid> m_grid;
};

void TestGrid::init()
{
    m_grid = std::make_unique<Grid>();
    m_grid->cells().setCols(4);
    m_grid->cells().setRows(7);
    for (int c = 0; c < 4; ++c)
        m_grid->cells().setColumnTexts(c, 0, 6, [c](int r) { return kTable[r].section(QLatin1Char('|'), c, c); });
    m_grid->refresh();
    m_grid->resize(800, 400);
    m_grid->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_grid.get()));
}

// The table data window's pattern: renumber the display column after every sort, while the
// hidden load numbers travel with their rows and the view keeps its state.
void TestGrid::sortByHeaderClicks()
{
    Grid &g = *m_grid;
    g.setColHidden(1, true);
    g.setCurrentCell(3, 2); // "fig"
    QList<QPair<int, int>> sorts;
    connect(&g, &Grid::afterSort, &g, [&](int col, int order) {
        sorts.append({col, order});
        g.cells().setColumnTexts(0, 1, g.rows() - 1, [](int r) { return QString::number(r); });
        g.refresh();
    });
    clickHeader(g, 2);
    QCOMPARE(column(g, 2), sl({"Apple", "banana", "cherry", "date", "fig", "pear"}));
    QCOMPARE(column(g, 1), sl({"2", "4", "5", "6", "3", "1"}));
    QCOMPARE(column(g, 0), sl({"1", "2", "3", "4", "5", "6"}));
    QCOMPARE(g.textMatrix(g.row(), 2), qs("fig"));

    for (const int section : {2, 2, 3})
        clickHeader(g, section);
    // numbers as numbers, the empty cell first; equal 9s keep the order of the previous sort
    QCOMPARE(column(g, 3), sl({"", "-1", "9", "9", "10", "100"}));
    QCOMPARE(column(g, 2), sl({"banana", "date", "Apple", "cherry", "pear", "fig"}));
    clickHeader(g, 3);

    // A programmatic sort counts as the last sort for the next click; other orders do nothing.
    g.sort(2, 1);
    clickHeader(g, 2);
    g.sort(2, 0);
    QCOMPARE(sorts, (QList<QPair<int, int>>{{2, 1}, {2, 2}, {2, 1}, {3, 1}, {3, 2}, {2, 1}, {2, 2}}));
}

// The current cell and multi-row selection by mouse; then a key typed on the current cell of an
// editable grid opens the editor with that key and Return commits, except in the fixed column.
void TestGrid::selectAndEdit()
{
    Grid &g = *m_grid;
    g.setCurrentCell(3, 2);
    clickCell(g, 5, 3, Qt::ControlModifier);
    clickCell(g, 1, 2, Qt::ControlModifier);
    QCOMPARE(g.selectedRows(), QList<int>({1, 3, 5}));

    // A left press makes its cell current before handlers of mouseDown run; a right press,
    // inside or outside the selection, moves neither the current cell nor the selection (the
    // record pop-up acts on what the operator marked).
    QList<QPair<int, int>> presses;
    connect(&g, &Grid::mouseDown, &g, [&](Qt::MouseButton button) { presses.append({int(button), g.row()}); });
    clickCell(g, 5, 2, {}, Qt::RightButton);
    clickCell(g, 6, 2, {}, Qt::RightButton);
    QCOMPARE(g.selectedRows(), QList<int>({1, 3, 5}));
    clickCell(g, 2, 2);
    clickCell(g, 5, 2, Qt::ShiftModifier);
    QCOMPARE(g.selectedRows(), QList<int>({2, 3, 4, 5}));
    QCOMPARE(presses, (QList<QPair<int, int>>{
                          {Qt::RightButton, 1}, {Qt::RightButton, 1}, {Qt::LeftButton, 2}, {Qt::LeftButton, 5}}));

    // The header row has no cell in the view.
    g.setCurrentCell(0, 2);
    QCOMPARE(g.row(), -1);
    QVERIFY(g.selectedRows().isEmpty());

    QSignalSpy edited(&g, &Grid::cellEdited);
    g.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&g));
    // editable, column of row 4, takes the edit: a data column, the first one after the fixed
    // column, the fixed column, a read-only grid
    const std::tuple<bool, int, bool> cases[] = {{true, 2, true}, {true, 1, true}, {true, 0, false}, {false, 2, false}};
    for (const auto &[editable, col, changes] : cases) {
        const QString before = g.textMatrix(4, col);
        g.setEditable(editable);
        g.setCurrentCell(4, col);
        QTest::keyClick(&g, Qt::Key_4);
        auto *editor = qobject_cast<QLineEdit *>(QApplication::focusWidget());
        QCOMPARE(editor != nullptr, changes);
        if (editor) {
            QTest::keyClicks(editor, qs("2, \"text\""));
            QTest::keyClick(editor, Qt::Key_Return);
        }
        QTRY_COMPARE(g.textMatrix(4, col), changes ? qs("42, \"text\"") : before);
    }
    QCOMPARE(QList<QVariantList>(edited), (QList<QVariantList>{{4, 2}, {4, 1}}));

    // A right press inside an open editor commits the edit, closes the editor and is then a
    // right press on the grid; the editor's own text menu never opens.
    g.setEditable(true);
    g.setCurrentCell(4, 3);
    QTest::keyClick(&g, Qt::Key_7);
    auto *editor = qobject_cast<QLineEdit *>(QApplication::focusWidget());
    QVERIFY(editor);
    presses.clear();
    QTest::mousePress(editor, Qt::RightButton, {}, QPoint(2, 2));
    QTRY_COMPARE(g.textMatrix(4, 3), qs("7"));
    QTRY_VERIFY(!g.viewport()->findChild<QLineEdit *>(QString(), Qt::FindDirectChildrenOnly));
    QCOMPARE(presses, (QList<QPair<int, int>>{{Qt::RightButton, 4}}));
    QVERIFY(!qobject_cast<QMenu *>(QApplication::activePopupWidget()));
}

// Widths and hidden columns stay by index through count changes and move with their column;
// a failed load leaves the grid as it was, a good one is new content with every column shown.
void TestGrid::columnStateAndLoading()
{
    Grid &g = *m_grid;
    QTemporaryDir dir;
    QVERIFY_DB(g.saveGrid(dir.filePath(qs("good.grid"))));
    g.setColHidden(1, true);
    g.setTextMatrix(2, 2, qs("a considerably longer name than the others"));
    g.setTextMatrix(3, 3, QString(2000, QLatin1Char('w')));
    g.autoSize(0, g.cols() - 1);
    const int textWidth = g.fontMetrics().horizontalAdvance(g.textMatrix(2, 2));
    QVERIFY(g.columnWidth(2) >= textWidth && g.columnWidth(2) < textWidth + 40);
    QCOMPARE(g.columnWidth(3), Grid::kMaxAutoWidth);

    g.setCurrentCell(3, 2);
    g.cells().setRows(40); // a count change resets the view
    g.refresh();
    QVERIFY(g.loadGrid(dir.filePath(qs("missing.grid"))).isFileError());
    QCOMPARE(g.model()->rowCount(), 39);
    QCOMPARE(QPair(g.row(), g.col()), QPair(3, 2));
    QVERIFY(g.isColHidden(1));
    QCOMPARE(g.columnWidth(3), Grid::kMaxAutoWidth);

    g.setCols(6);
    g.moveColumn(3, 0);
    QCOMPARE(g.columnWidth(0), Grid::kMaxAutoWidth);
    QVERIFY(g.isColHidden(2));
    QCOMPARE(g.model()->headerData(0, Qt::Horizontal).toString(), qs("qty"));

    QVERIFY_DB(g.loadGrid(dir.filePath(qs("good.grid"))));
    QCOMPARE(column(g, 2), sl({"pear", "Apple", "fig", "banana", "cherry", "date"}));
    QVERIFY(!g.isColHidden(2));
    QVERIFY(g.columnWidth(0) < Grid::kMaxAutoWidth);

    // Without a fixed row the header row is an ordinary row.
    g.setColHidden(1, true);
    g.setFixedRows(0);
    QVERIFY(!g.horizontalHeader()->isVisible());
    QCOMPARE(g.model()->index(0, 3).data().toString(), qs("qty"));
    g.clear();
    QCOMPARE(g.model()->rowCount(), 0);
    QVERIFY(!g.isColHidden(1));
}

// Sizing, sorting by numbers and by texts and scrolling to the end work on a million rows, and
// the cells cost little more than their texts once the sorts are done.
void TestGrid::millionRows()
{
    constexpr int kRows = 1000000;
    std::vector<TextColumn> columns(3);
    qsizetype textBytes = 0;
    for (int r = 0; r < kRows; ++r) {
        const QByteArray number = QByteArray::number((qint64(r) * 7919) % 1000003);
        columns[1].append(QByteArrayView(number));
        columns[2].append(QByteArrayView(QByteArray("Name " + number)));
        textBytes += 2 * number.size() + 5;
    }
    Grid &g = *m_grid;
    g.cells() = GridData::fromColumns(std::move(columns), kRows, 1, 1);
    g.refresh();
    g.autoSize(0, 2);
    clickHeader(g, 1);
    clickHeader(g, 2);
    g.setCurrentCell(kRows - 1, 2);
    QCoreApplication::processEvents();
    QCOMPARE(g.row(), kRows - 1);
    QVERIFY(g.textMatrix(kRows - 2, 2) <= g.textMatrix(kRows - 1, 2));
    // The texts, a 4-byte end per cell and a 4-byte row index per row.
    const qsizetype floor = textBytes + qsizetype(kRows) * 16;
    QVERIFY2(g.cells().memoryUse() < floor * 3 / 2, qPrintable(QString::number(g.cells().memoryUse())));
}

QTEST_MAIN(TestGrid)
#include "test_grid.moc"
