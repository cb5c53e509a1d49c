// The grid through the real view (offscreen): header clicks, the current cell and multi-row
// selection, in-place editing, column state across changes, and a million rows.
#include "grid/grid.h"
#include "testdb.h"

#include <QHeaderView>
#include <QLineEdit>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;
using tabulon::test::sl;

namespace {

using Events = QList<QPair<int, int>>;

// Header "#", "load", "name", "qty"; data rows numbered in column 0 and 1 as loaded.
const QList<QStringList> kTable{sl({"", "load", "name", "qty"}), sl({"1", "1", "pear", "10"}),
                                sl({"2", "2", "Apple", "9"}),    sl({"3", "3", "fig", "100"}),
                                sl({"4", "4", "banana", ""}),    sl({"5", "5", "cherry", "9"}),
                                sl({"6", "6", "date", "-1"})};
const QStringList kNames = sl({"pear", "Apple", "fig", "banana", "cherry", "date"});

QStringList column(const Grid &grid, int col)
{
    QStringList out;
    for (int r = 1; r < grid.rows(); ++r)
        out << grid.textMatrix(r, col);
    return out;
}

void clickHeader(Grid &grid, int section)
{
    QHeaderView *header = grid.horizontalHeader();
    const QPoint at(header->sectionViewportPosition(section) + header->sectionSize(section) / 2, header->height() / 2);
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, at);
}

QPoint cellCenter(const Grid &grid, int row, int col)
{
    return grid.visualRect(grid.model()->index(row - grid.fixedRows(), col)).center();
}

} // namespace

class TestGrid final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup() { m_grid.reset(); }
    void sortByHeaderClicks();
    void currentCellAndMouseSelection();
    void editInPlace_data();
    void editInPlace();
    void columnStateAcrossChanges();
    void loadGrid();
    void autoSize();
    void millionRows();

private:
    std::unique_ptr<Grid> m_grid;
};

void TestGrid::init()
{
    m_grid = std::make_unique<Grid>();
    m_grid->cells().setCols(4);
    m_grid->cells().setRows(7);
    for (int r = 0; r < 7; ++r)
        for (int c = 0; c < 4; ++c)
            m_grid->cells().setText(r, c, kTable[r][c]);
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
    g.setColumnWidth(2, 123);
    g.setCurrentCell(3, 2); // "fig"
    Events sorts;
    connect(&g, &Grid::afterSort, &g, [&](int col, int order) {
        sorts.append({col, order});
        g.cells().setColumnTexts(0, 1, g.rows() - 1, [](int r) { return QString::number(r); });
        g.refresh();
    });
    clickHeader(g, 2);
    QCOMPARE(column(g, 2), sl({"Apple", "banana", "cherry", "date", "fig", "pear"}));
    QCOMPARE(column(g, 1), sl({"2", "4", "5", "6", "3", "1"}));
    QCOMPARE(column(g, 0), sl({"1", "2", "3", "4", "5", "6"}));
    QCOMPARE(g.textMatrix(g.row(), 2), QStringLiteral("fig"));
    QVERIFY(g.isColHidden(1));
    QCOMPARE(g.columnWidth(2), 123);

    clickHeader(g, 2);
    clickHeader(g, 2);
    clickHeader(g, 3);
    // numbers as numbers, the empty cell first; equal 9s keep the order of the previous sort
    QCOMPARE(column(g, 3), sl({"", "-1", "9", "9", "10", "100"}));
    QCOMPARE(column(g, 2), sl({"banana", "date", "Apple", "cherry", "pear", "fig"}));
    clickHeader(g, 3);
    QCOMPARE(g.horizontalHeader()->sortIndicatorSection(), 3);
    QCOMPARE(g.horizontalHeader()->sortIndicatorOrder(), Qt::DescendingOrder);

    // A programmatic sort counts as the last sort for the next click; other orders do nothing.
    g.sort(2, 1);
    clickHeader(g, 2);
    g.sort(2, 0);
    QCOMPARE(sorts, (Events{{2, 1}, {2, 2}, {2, 1}, {3, 1}, {3, 2}, {2, 1}, {2, 2}}));
}

void TestGrid::currentCellAndMouseSelection()
{
    Grid &g = *m_grid;
    g.setCurrentCell(3, 2);
    QTest::mouseClick(g.viewport(), Qt::LeftButton, Qt::ControlModifier, cellCenter(g, 5, 3));
    QTest::mouseClick(g.viewport(), Qt::LeftButton, Qt::ControlModifier, cellCenter(g, 1, 2));
    QCOMPARE(g.selectedRows(), QList<int>({1, 3, 5}));
    QCOMPARE(g.row(), 1);

    // Handlers of mouseDown see the pressed cell as current, and a right press on the
    // selection keeps it (the record pop-up acts on all selected rows).
    Events presses;
    connect(&g, &Grid::mouseDown, &g, [&](Qt::MouseButton button) { presses.append({int(button), g.row()}); });
    QTest::mousePress(g.viewport(), Qt::RightButton, {}, cellCenter(g, 5, 2));
    QTest::mouseRelease(g.viewport(), Qt::RightButton, {}, cellCenter(g, 5, 2));
    QCOMPARE(g.selectedRows(), QList<int>({1, 3, 5}));
    QTest::mouseClick(g.viewport(), Qt::LeftButton, Qt::ShiftModifier, cellCenter(g, 2, 2));
    QCOMPARE(g.selectedRows(), QList<int>({2, 3, 4, 5}));
    QTest::mouseClick(g.viewport(), Qt::LeftButton, {}, cellCenter(g, 6, 1));
    QCOMPARE(g.selectedRows(), QList<int>({6}));
    QCOMPARE(presses, (Events{{Qt::RightButton, 5}, {Qt::LeftButton, 2}, {Qt::LeftButton, 6}}));

    // The header row has no cell in the view.
    g.setCurrentCell(0, 2);
    QCOMPARE(g.row(), -1);
    QVERIFY(g.selectedRows().isEmpty());
}

void TestGrid::editInPlace_data()
{
    QTest::addColumn<bool>("editable");
    QTest::addColumn<int>("col");
    QTest::addColumn<bool>("changes");
    QTest::newRow("data column") << true << 2 << true;
    QTest::newRow("first column after the fixed one") << true << 1 << true;
    QTest::newRow("fixed column") << true << 0 << false;
    QTest::newRow("grid not editable") << false << 2 << false;
}

// A key typed on the current cell opens the editor with that key; Return commits.
void TestGrid::editInPlace()
{
    QFETCH(bool, editable);
    QFETCH(int, col);
    QFETCH(bool, changes);
    Grid &g = *m_grid;
    g.setEditable(editable);
    QSignalSpy edited(&g, &Grid::cellEdited);
    g.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&g));
    g.setFocus();
    g.setCurrentCell(4, col);
    const QString before = g.textMatrix(4, col);
    QTest::keyClick(&g, Qt::Key_4);
    auto *editor = g.viewport()->findChild<QLineEdit *>();
    QCOMPARE(editor != nullptr, changes);
    if (editor) {
        QTest::keyClicks(editor, QStringLiteral("2, \"text\""));
        QTest::keyClick(editor, Qt::Key_Return);
    }
    QTRY_COMPARE(g.textMatrix(4, col), changes ? QStringLiteral("42, \"text\"") : before);
    QCOMPARE(edited.size(), changes ? 1 : 0);
    if (changes)
        QCOMPARE(edited[0], (QVariantList{4, col}));
}

void TestGrid::columnStateAcrossChanges()
{
    Grid &g = *m_grid;
    g.setColHidden(1, true);
    g.setColumnWidth(3, 77);
    g.setCurrentCell(3, 2);
    g.cells().setRows(40); // a count change resets the view
    g.refresh();
    QCOMPARE(g.model()->rowCount(), 39);
    QCOMPARE(g.row(), 3);
    QCOMPARE(g.col(), 2);
    QVERIFY(g.isColHidden(1));
    QCOMPARE(g.columnWidth(3), 77);

    g.setCols(6);
    g.moveColumn(3, 0);
    QCOMPARE(g.columnWidth(0), 77);
    QVERIFY(g.isColHidden(2));
    QCOMPARE(g.model()->headerData(0, Qt::Horizontal).toString(), QStringLiteral("qty"));

    // Without a fixed row the header row is an ordinary row.
    g.setFixedRows(0);
    QVERIFY(!g.horizontalHeader()->isVisible());
    QCOMPARE(g.model()->index(0, 0).data().toString(), QStringLiteral("qty"));
    g.clear();
    QCOMPARE(g.model()->rowCount(), 0);
    QVERIFY(!g.isColHidden(2));
}

// A failed load leaves the grid as it was; a good one is new content, all columns shown.
void TestGrid::loadGrid()
{
    Grid &g = *m_grid;
    QTemporaryDir dir;
    const QString good = dir.filePath(QStringLiteral("good.grid"));
    QString error;
    QVERIFY2(g.saveGrid(good, &error), qPrintable(error));
    g.setColHidden(1, true);
    g.setCurrentCell(2, 2);
    QVERIFY(!g.loadGrid(dir.filePath(QStringLiteral("missing.grid")), &error));
    QCOMPARE(column(g, 2), kNames);
    QVERIFY(g.isColHidden(1));
    QCOMPARE(g.row(), 2);

    g.setRows(2);
    QVERIFY2(g.loadGrid(good, &error), qPrintable(error));
    QCOMPARE(g.model()->rowCount(), 6);
    QCOMPARE(column(g, 2), kNames);
    QVERIFY(!g.isColHidden(1));
}

void TestGrid::autoSize()
{
    Grid &g = *m_grid;
    g.setTextMatrix(2, 2, QStringLiteral("a considerably longer name than the others"));
    g.setTextMatrix(3, 3, QString(2000, QLatin1Char('w')));
    g.setColHidden(1, true);
    g.autoSize(0, g.cols() - 1);
    const int textWidth = g.fontMetrics().horizontalAdvance(g.textMatrix(2, 2));
    QVERIFY(g.columnWidth(2) >= textWidth);
    QVERIFY(g.columnWidth(2) < textWidth + 40);
    QCOMPARE(g.columnWidth(3), Grid::kMaxAutoWidth);
    QVERIFY(g.isColHidden(1));
}

// Loading, sizing, sorting by numbers and by texts and scrolling to the end stay quick, and the
// cells cost little more than their texts once the sorts are done.
void TestGrid::millionRows()
{
    constexpr int kRows = 1000000;
    std::vector<TextColumn> columns(3);
    qsizetype textBytes = 0;
    for (int r = 0; r < kRows; ++r) {
        const QByteArray number = QByteArray::number((qint64(r) * 7919) % 1000003);
        const QByteArray name = "Name " + QByteArray::number((qint64(r) * 104729) % 1000003);
        columns[1].append(QByteArrayView(number));
        columns[2].append(QByteArrayView(name));
        textBytes += number.size() + name.size();
    }
    Grid &g = *m_grid;
    g.cells() = GridData::fromColumns(std::move(columns), kRows, 1, 1);
    g.refresh();
    g.autoSize(0, 2);
    QCoreApplication::processEvents();
    clickHeader(g, 1);
    clickHeader(g, 2);
    g.setCurrentCell(kRows - 1, 2);
    QCoreApplication::processEvents();
    QCOMPARE(g.row(), kRows - 1);
    QVERIFY(g.textMatrix(kRows - 2, 2) <= g.textMatrix(kRows - 1, 2));
    // A 4-byte end per cell and a 4-byte row index per row.
    const qsizetype floor = textBytes + qsizetype(kRows) * 16;
    QVERIFY2(g.cells().memoryUse() < floor * 3 / 2, qPrintable(QString::number(g.cells().memoryUse())));
}

QTEST_MAIN(TestGrid)
#include "test_grid.moc"
