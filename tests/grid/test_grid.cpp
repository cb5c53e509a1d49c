// The grid through the real view (offscreen): header clicks, the current cell and multi-row
// selection, in-place editing, column state across changes, and a million rows.
#include "grid/grid.h"
#include "testdb.h"

#include <QElapsedTimer>
#include <QFile>
#include <QHeaderView>
#include <QLineEdit>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;

namespace {

// Header "#", "load", "name", "qty"; data rows numbered in column 0 and 1 as loaded.
void fill(Grid &grid, const QStringList &names, const QStringList &quantities)
{
    GridData &cells = grid.cells();
    cells.setCols(4);
    cells.setRows(static_cast<int>(names.size()) + 1);
    cells.setText(0, 1, QStringLiteral("load"));
    cells.setText(0, 2, QStringLiteral("name"));
    cells.setText(0, 3, QStringLiteral("qty"));
    for (int i = 0; i < names.size(); ++i) {
        cells.setText(i + 1, 0, QString::number(i + 1));
        cells.setText(i + 1, 1, QString::number(i + 1));
        cells.setText(i + 1, 2, names[i]);
        cells.setText(i + 1, 3, quantities[i]);
    }
    grid.refresh();
}

QStringList column(const Grid &grid, int col)
{
    QStringList out;
    for (int r = 1; r < grid.rows(); ++r)
        out << grid.textMatrix(r, col);
    return out;
}

QStringList sl(std::initializer_list<const char *> items)
{
    QStringList out;
    for (const char *item : items)
        out << QString::fromUtf8(item);
    return out;
}

const QStringList kNames = sl({"pear", "Apple", "fig", "banana", "cherry", "date"});
const QStringList kQuantities = sl({"10", "9", "100", "", "9", "-1"});

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
    void cleanup();
    void layout();
    void headerClicksSortAndToggle();
    void afterSortRenumbering();
    void currentCellAndMouseSelection();
    void selectionModelRows();
    void editInPlace_data();
    void editInPlace();
    void typingStartsEdit();
    void columnStateAcrossChanges();
    void newContentShowsAllColumns();
    void failedLoadLeavesGrid();
    void autoSize();
    void millionRows();

private:
    std::unique_ptr<Grid> m_grid;
};

void TestGrid::init()
{
    m_grid = std::make_unique<Grid>();
    m_grid->resize(800, 400);
    fill(*m_grid, kNames, kQuantities);
    m_grid->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_grid.get()));
}

void TestGrid::cleanup()
{
    m_grid.reset();
}

void TestGrid::layout()
{
    Grid &g = *m_grid;
    QCOMPARE(g.objectName(), QStringLiteral("Edi_Gr"));
    QCOMPARE(g.model()->rowCount(), 6);
    QCOMPARE(g.model()->columnCount(), 4);
    QCOMPARE(g.model()->headerData(2, Qt::Horizontal).toString(), QStringLiteral("name"));
    QVERIFY(!g.verticalHeader()->isVisible());
    QCOMPARE(g.model()->index(0, 0).data(Qt::BackgroundRole).value<QBrush>(), g.palette().brush(QPalette::Button));
    QVERIFY(!g.model()->index(0, 1).data(Qt::BackgroundRole).isValid());

    g.setFixedRows(0);
    QVERIFY(!g.horizontalHeader()->isVisible());
    QCOMPARE(g.model()->rowCount(), 7);
    QCOMPARE(g.model()->index(0, 2).data().toString(), QStringLiteral("name"));
    g.setFixedCols(0);
    QVERIFY(!g.model()->index(0, 0).data(Qt::BackgroundRole).isValid());
}

void TestGrid::headerClicksSortAndToggle()
{
    Grid &g = *m_grid;
    QSignalSpy spy(&g, &Grid::afterSort);
    clickHeader(g, 2);
    QCOMPARE(column(g, 2), sl({"Apple", "banana", "cherry", "date", "fig", "pear"}));
    clickHeader(g, 2);
    QCOMPARE(column(g, 2), sl({"pear", "fig", "date", "cherry", "banana", "Apple"}));
    clickHeader(g, 2);
    clickHeader(g, 3);
    // numbers as numbers, the empty cell first; equal 9s keep the order of the previous sort
    QCOMPARE(column(g, 3), sl({"", "-1", "9", "9", "10", "100"}));
    QCOMPARE(column(g, 2), sl({"banana", "date", "Apple", "cherry", "pear", "fig"}));
    clickHeader(g, 3);
    QCOMPARE(column(g, 3), sl({"100", "10", "9", "9", "-1", ""}));

    QCOMPARE(spy.size(), 5);
    const QList<QPair<int, int>> expected{{2, 1}, {2, 2}, {2, 1}, {3, 1}, {3, 2}};
    for (int i = 0; i < spy.size(); ++i) {
        QCOMPARE(spy[i][0].toInt(), expected[i].first);
        QCOMPARE(spy[i][1].toInt(), expected[i].second);
    }
    QCOMPARE(g.horizontalHeader()->sortIndicatorSection(), 3);
    QCOMPARE(g.horizontalHeader()->sortIndicatorOrder(), Qt::DescendingOrder);

    // A programmatic sort counts as the last sort for the next click.
    g.sort(2, 1);
    QCOMPARE(spy.size(), 6);
    clickHeader(g, 2);
    QCOMPARE(spy.last()[1].toInt(), 2);
    g.sort(2, 0);
    QCOMPARE(spy.size(), 7);
}

// The table data window's pattern: renumber the display column after every sort, while the
// hidden load numbers travel with their rows and the view keeps its state.
void TestGrid::afterSortRenumbering()
{
    Grid &g = *m_grid;
    g.setColHidden(1, true);
    g.setColumnWidth(2, 123);
    connect(&g, &Grid::afterSort, &g, [&g] {
        g.cells().setColumnTexts(0, 1, g.rows() - 1, [](int r) { return QString::number(r); });
        g.refresh();
    });
    g.setCurrentCell(3, 2); // "fig"
    clickHeader(g, 2);
    QCOMPARE(column(g, 0), sl({"1", "2", "3", "4", "5", "6"}));
    QCOMPARE(column(g, 1), sl({"2", "4", "5", "6", "3", "1"}));
    for (int r = 1; r < g.rows(); ++r)
        QCOMPARE(g.textMatrix(r, 2), kNames[g.textMatrix(r, 1).toInt() - 1]);
    QVERIFY(g.isColHidden(1));
    QCOMPARE(g.columnWidth(2), 123);
    QCOMPARE(g.row(), 5);
    QCOMPARE(g.textMatrix(g.row(), 2), QStringLiteral("fig"));
}

void TestGrid::currentCellAndMouseSelection()
{
    Grid &g = *m_grid;
    g.setCurrentCell(3, 2);
    QCOMPARE(g.row(), 3);
    QCOMPARE(g.col(), 2);
    QCOMPARE(g.selectedRows(), QList<int>({3}));

    QTest::mouseClick(g.viewport(), Qt::LeftButton, Qt::ControlModifier, cellCenter(g, 5, 3));
    QTest::mouseClick(g.viewport(), Qt::LeftButton, Qt::ControlModifier, cellCenter(g, 1, 2));
    QCOMPARE(g.selectedRows(), QList<int>({1, 3, 5}));
    QCOMPARE(g.row(), 1);

    // Handlers of mouseDown see the pressed cell as current, and a right press on the
    // selection keeps it (the record pop-up acts on all selected rows).
    QList<int> rowsSeen;
    QList<Qt::MouseButton> buttons;
    connect(&g, &Grid::mouseDown, &g, [&](Qt::MouseButton button, const QPoint &) {
        rowsSeen << g.row();
        buttons << button;
    });
    QTest::mousePress(g.viewport(), Qt::RightButton, {}, cellCenter(g, 5, 2));
    QTest::mouseRelease(g.viewport(), Qt::RightButton, {}, cellCenter(g, 5, 2));
    QCOMPARE(rowsSeen, QList<int>({5}));
    QCOMPARE(buttons, QList<Qt::MouseButton>({Qt::RightButton}));
    QCOMPARE(g.selectedRows(), QList<int>({1, 3, 5}));

    QTest::mouseClick(g.viewport(), Qt::LeftButton, Qt::ShiftModifier, cellCenter(g, 2, 2));
    QCOMPARE(g.selectedRows(), QList<int>({2, 3, 4, 5}));
    QTest::mouseClick(g.viewport(), Qt::LeftButton, {}, cellCenter(g, 6, 1));
    QCOMPARE(rowsSeen.last(), 6);
    QCOMPARE(g.selectedRows(), QList<int>({6}));

    // The header row has no cell in the view.
    g.setCurrentCell(0, 2);
    QCOMPARE(g.row(), -1);
    QVERIFY(g.selectedRows().isEmpty());
}

void TestGrid::selectionModelRows()
{
    Grid &g = *m_grid;
    QAbstractItemModel *m = g.model();
    QItemSelection selection(m->index(1, 0), m->index(3, 3));
    selection.select(m->index(5, 2), m->index(5, 2)); // a single cell counts for its row
    g.selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
    QCOMPARE(g.selectedRows(), QList<int>({2, 3, 4, 6}));
    g.selectAll();
    QCOMPARE(g.selectedRows(), QList<int>({1, 2, 3, 4, 5, 6}));
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

void TestGrid::editInPlace()
{
    QFETCH(bool, editable);
    QFETCH(int, col);
    QFETCH(bool, changes);
    Grid &g = *m_grid;
    g.setEditable(editable);
    QCOMPARE(g.isEditable(), editable);
    QSignalSpy edited(&g, &Grid::cellEdited);
    const QString before = g.textMatrix(4, col);
    g.setCurrentCell(4, col);
    if (!changes)
        QTest::ignoreMessage(QtWarningMsg, "edit: editing failed");
    g.edit(g.currentIndex());
    auto *editor = g.viewport()->findChild<QLineEdit *>();
    QCOMPARE(editor != nullptr, changes);
    if (!editor)
        return;
    editor->selectAll();
    QTest::keyClicks(editor, QStringLiteral("new, \"text\""));
    QTest::keyClick(editor, Qt::Key_Return);
    QTRY_COMPARE(g.textMatrix(4, col), QStringLiteral("new, \"text\""));
    QVERIFY(g.textMatrix(4, col) != before);
    QCOMPARE(edited.size(), 1);
    QCOMPARE(edited[0][0].toInt(), 4);
    QCOMPARE(edited[0][1].toInt(), col);
}

void TestGrid::typingStartsEdit()
{
    Grid &g = *m_grid;
    g.setEditable(true);
    g.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&g));
    g.setFocus();
    g.setCurrentCell(2, 3);
    QTest::keyClick(&g, Qt::Key_4);
    auto *editor = g.viewport()->findChild<QLineEdit *>();
    QVERIFY(editor);
    QTest::keyClick(editor, Qt::Key_2);
    QTest::keyClick(editor, Qt::Key_Return);
    QTRY_COMPARE(g.textMatrix(2, 3), QStringLiteral("42"));
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

    g.addRow();
    g.insertRow(1);
    g.removeRow(2);
    g.setRows(10);
    QCOMPARE(g.rows(), 10);
    QCOMPARE(g.model()->rowCount(), 9);
    QVERIFY(g.isColHidden(1));

    g.setCols(6);
    QCOMPARE(g.model()->columnCount(), 6);
    g.moveColumn(3, 0);
    QCOMPARE(g.columnWidth(0), 77);
    QVERIFY(g.isColHidden(2));
    QVERIFY(!g.isColHidden(1));
    QCOMPARE(g.textMatrix(0, 0), QStringLiteral("qty"));
    QCOMPARE(g.model()->headerData(0, Qt::Horizontal).toString(), QStringLiteral("qty"));

    g.setTextMatrix(0, 4, QStringLiteral("extra"));
    g.setTextMatrix(1, 4, QStringLiteral("cell"));
    QCOMPARE(g.model()->headerData(4, Qt::Horizontal).toString(), QStringLiteral("extra"));
    QCOMPARE(g.model()->index(0, 4).data().toString(), QStringLiteral("cell"));

    g.clear();
    QCOMPARE(g.rows(), 1);
    QCOMPARE(g.cols(), 6);
    QCOMPARE(g.model()->rowCount(), 0);
    QVERIFY(!g.isColHidden(2));
}

// A new table must not inherit the hidden columns of the previous one.
void TestGrid::newContentShowsAllColumns()
{
    Grid &g = *m_grid;
    DatabaseSession session;
    if (test::openSession(session, QString()).isError())
        QSKIP("the test server does not answer");
    auto rs = session.openQuery(QStringLiteral("SELECT 'x' AS a, NULL AS b, 3 AS c"));
    QVERIFY2(rs.ok(), qPrintable(rs.error().description));
    g.setColHidden(1, true);
    g.setCurrentCell(2, 2);
    g.adoptRecordset(std::move(*rs));
    QCOMPARE(g.rows(), 2);
    QCOMPARE(g.cols(), 4);
    QVERIFY(!g.isColHidden(1));
    QCOMPARE(g.model()->headerData(3, Qt::Horizontal).toString(), QStringLiteral("c"));
    QCOMPARE(g.textMatrix(1, 1), QStringLiteral("x"));
    QCOMPARE(g.textMatrix(1, 2), QString());
    QCOMPARE(g.row(), -1);
}

void TestGrid::failedLoadLeavesGrid()
{
    Grid &g = *m_grid;
    QTemporaryDir dir;
    const QString good = dir.filePath(QStringLiteral("good.grid"));
    const QString bad = dir.filePath(QStringLiteral("bad.grid"));
    QString error;
    QVERIFY2(g.saveGrid(good, &error), qPrintable(error));
    QFile f(bad);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("TABULON-GRID 1\n\x01\x00");
    f.close();

    Grid other;
    other.setColHidden(0, true);
    QVERIFY(!other.loadGrid(bad, &error));
    QVERIFY(!error.isEmpty());
    QCOMPARE(other.rows(), 1);
    QVERIFY(other.isColHidden(0));
    QVERIFY2(other.loadGrid(good, &error), qPrintable(error));
    QCOMPARE(other.rows(), 7);
    QCOMPARE(other.model()->rowCount(), 6);
    QCOMPARE(column(other, 2), kNames);
    QVERIFY(!other.isColHidden(0));
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
    QVERIFY(g.columnWidth(0) < g.columnWidth(2));
    QCOMPARE(g.columnWidth(3), Grid::kMaxAutoWidth);
    QVERIFY(g.isColHidden(1));
}

void TestGrid::millionRows()
{
    constexpr int kRows = 1000000;
    std::vector<TextColumn> columns(3);
    for (int r = 0; r < kRows; ++r) {
        columns[1].append(QByteArrayView(QByteArray::number((qint64(r) * 7919) % 1000003)));
        columns[2].append(QByteArrayView("text"));
    }
    QElapsedTimer timer;
    timer.start();
    Grid &g = *m_grid;
    g.cells() = GridData::fromColumns(std::move(columns), kRows, 1, 1);
    g.refresh();
    g.autoSize(0, 2);
    QCoreApplication::processEvents();
    clickHeader(g, 1);
    g.setCurrentCell(kRows - 1, 1);
    QCoreApplication::processEvents();
    const qint64 ms = timer.elapsed();
    QVERIFY2(ms < 4000, qPrintable(QStringLiteral("%1 ms").arg(ms)));
    QCOMPARE(g.model()->rowCount(), kRows - 1);
    QCOMPARE(g.row(), kRows - 1);
    QVERIFY(g.textMatrix(1, 1).toInt() <= g.textMatrix(2, 1).toInt());
}

QTEST_MAIN(TestGrid)
#include "test_grid.moc"
