// The grid's cells without a view: row and column changes over the permuted row index, the
// generic sort, bulk column writes, and recordsets taken over from the real server.
#include "grid/griddata.h"
#include "testdb.h"

#include <QRandomGenerator>
#include <QTest>

#include <algorithm>

using namespace tabulon;
using tabulon::test::sl;

namespace {

using Table = QList<QStringList>;

Table tbl(std::initializer_list<std::initializer_list<const char *>> rows)
{
    Table out;
    for (const auto &row : rows)
        out << sl(row);
    return out;
}

GridData makeGrid(const Table &rows)
{
    GridData g;
    g.setFixedCols(0);
    g.setRows(static_cast<int>(rows.size()));
    g.setCols(static_cast<int>(rows.first().size()));
    for (int r = 0; r < rows.size(); ++r)
        for (int c = 0; c < rows[r].size(); ++c)
            g.setText(r, c, rows[r][c]);
    return g;
}

Table contents(const GridData &g)
{
    Table out;
    for (int r = 0; r < g.rows(); ++r) {
        QStringList row;
        for (int c = 0; c < g.cols(); ++c)
            row << g.text(r, c);
        out << row;
    }
    return out;
}

QStringList column(const GridData &g, int col)
{
    QStringList out;
    for (int r = 0; r < g.rows(); ++r)
        out << g.text(r, col);
    return out;
}

} // namespace

class TestGridData final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void rowOperations();
    void columnOperations();
    void sort_data();
    void sort();
    void randomEditsMatchReference();
    void recordset();
};

void TestGridData::rowOperations()
{
    GridData g = makeGrid(tbl({{"h"}, {"a"}, {"b"}, {"c"}, {"d"}}));
    // The cells of dropped rows must not come back in rows added later.
    g.removeRow(4);
    g.insertRow(4);
    QCOMPARE(column(g, 0), sl({"h", "a", "b", "c", ""}));
    g.setRows(2);
    g.setRows(4);
    g.setText(3, 0, QStringLiteral("c"));
    g.insertRow(0);
    g.insertRow(2);
    g.removeRow(3);
    QCOMPARE(column(g, 0), sl({"", "h", "", "", "c"}));

    // After a sort the row index is no longer the identity.
    g.setText(2, 0, QStringLiteral("b"));
    g.sort(0, 2);
    QCOMPARE(column(g, 0), sl({"", "h", "c", "b", ""}));
    g.setRows(3);
    g.setRows(5);
    g.setText(4, 0, QStringLiteral("y"));
    QCOMPARE(column(g, 0), sl({"", "h", "c", "", "y"}));
    g.setRows(0);
    g.setRows(2);
    QCOMPARE(column(g, 0), sl({"", ""}));
}

void TestGridData::columnOperations()
{
    GridData g = makeGrid(tbl({{"A", "B", "C", "D"}, {"a1", "b1", "c1", "d1"}, {"a2", "b2", "c2", "d2"}}));
    g.sort(0, 2); // the rows travel in the row index, the columns must not care
    g.moveColumn(3, 1);
    QCOMPARE(contents(g), tbl({{"A", "D", "B", "C"}, {"a2", "d2", "b2", "c2"}, {"a1", "d1", "b1", "c1"}}));
    g.moveColumn(0, 3);
    const Table moved = tbl({{"D", "B", "C", "A"}, {"d2", "b2", "c2", "a2"}, {"d1", "b1", "c1", "a1"}});
    QCOMPARE(contents(g), moved);

    // Out of range is ignored.
    g.moveColumn(0, 4);
    g.moveColumn(-1, 0);
    g.insertRow(4);
    g.removeRow(3);
    g.removeRow(-1);
    g.setText(1, 4, QStringLiteral("x"));
    g.setText(3, 0, QStringLiteral("x"));
    g.sort(4, 1);
    g.setColumnTexts(4, 0, 2, [](int) { return QStringLiteral("x"); });
    QCOMPARE(contents(g), moved);
    QVERIFY(g.utf8(-1, 0).isEmpty());

    // Clearing a sorted grid leaves an empty header row that later rows start after.
    g.setFixedCols(1);
    g.clear();
    g.insertRow(1);
    g.setText(1, 1, QStringLiteral("w"));
    QCOMPARE(contents(g), tbl({{"", "", "", ""}, {"", "w", "", ""}}));
    g.setFixedRows(0);
    g.clear();
    QCOMPARE(g.rows(), 0);
    QCOMPARE(g.cols(), 4);
}

void TestGridData::sort_data()
{
    QTest::addColumn<QStringList>("values");
    QTest::addColumn<int>("order");
    QTest::addColumn<QStringList>("sortedTags");
    QTest::newRow("numbers as numbers") << sl({"10", "9", "-2", "2.5", "1e2", " 3 ", "+1", "-.5"}) << 1
                                        << sl({"2", "7", "6", "3", "5", "1", "0", "4"});
    QTest::newRow("hex, separators, inf are text")
        << sl({"0x1A", "1,000", "inf", "5", "1e"}) << 1 << sl({"3", "0", "1", "4", "2"});
    QTest::newRow("texts ignore case, code point order")
        << sl({"banana", "Apple", "Ölberg", "zebra", "öde", "Äpfel", "cherry"}) << 1
        << sl({"1", "0", "6", "3", "5", "4", "2"});
    QTest::newRow("long shared prefixes")
        << sl({"a long shared prefix Z", "A long shared prefix b", "a long shared prefix", "A LONG SHARED PREFIX"}) << 1
        << sl({"2", "3", "1", "0"});
    // a total order even when a column mixes kinds: empty, numbers, then texts
    QTest::newRow("mixed ascending") << sl({"b", "10", "", "9", "1a", "A"}) << 1 << sl({"2", "3", "1", "4", "5", "0"});
    QTest::newRow("stable ascending") << sl({"b", "a", "B", "A", "a"}) << 1 << sl({"1", "3", "4", "0", "2"});
    QTest::newRow("stable descending") << sl({"b", "1.0", "", "B", "1", "a", "01", "-0", "0"}) << 2
                                       << sl({"0", "3", "5", "1", "4", "6", "7", "8", "2"});
    QTest::newRow("other orders do nothing") << sl({"b", "a"}) << 3 << sl({"0", "1"});
}

// The sorted column comes with a tag column, so stability and rows keeping their cells show.
void TestGridData::sort()
{
    QFETCH(QStringList, values);
    QFETCH(int, order);
    QFETCH(QStringList, sortedTags);
    Table t{{QStringLiteral("h"), QStringLiteral("tag")}};
    for (int i = 0; i < values.size(); ++i)
        t << QStringList{values[i], QString::number(i)};
    GridData g = makeGrid(t);
    g.sort(0, order);
    QCOMPARE(column(g, 1), QStringList{QStringLiteral("tag")} + sortedTags);
    for (int r = 1; r < g.rows(); ++r)
        QCOMPARE(g.text(r, 0), values[g.text(r, 1).toInt()]);
    // Without a fixed row the first row sorts with the others: "tag" goes after the numbers.
    g.setFixedRows(0);
    g.sort(1, 1);
    QCOMPARE(column(g, 1).last(), QStringLiteral("tag"));
}

// Many edits push the columns through their compaction, many removals through the grid's own;
// a plain table of strings follows the same steps and must always agree. Every text is
// non-numeric, so the reference sorts in plain code point order.
void TestGridData::randomEditsMatchReference()
{
    QRandomGenerator rng(20240611);
    GridData g;
    g.setFixedCols(0);
    g.setCols(3);
    g.setRows(6000);
    Table ref(6000, QStringList{QString(), QString(), QString()});
    for (int step = 0; step < 12000; ++step) {
        const int op = rng.bounded(100);
        const int rows = static_cast<int>(ref.size());
        const int c = rng.bounded(3);
        if (op < 68) {
            const int r = rng.bounded(rows);
            ref[r][c] = rng.bounded(5) == 0 ? QString() : QString::number(rng.bounded(100000)) + QStringLiteral("ä");
            g.setText(r, c, ref[r][c]);
        } else if (op < 70) {
            // A few rows are written as edits, many rebuild the column; ranges may run past the end.
            const int first = rng.bounded(rows);
            const int last = first + (rng.bounded(2) ? rng.bounded(20) : rng.bounded(rows));
            const auto text = [step](int r) { return QStringLiteral("%1/%2").arg(step).arg(r); };
            g.setColumnTexts(c, first, last, text);
            for (int r = first; r <= std::min(last, rows - 1); ++r)
                ref[r][c] = text(r);
        } else if (op < 90 && rows > 100) {
            const int r = rng.bounded(rows);
            g.removeRow(r);
            ref.removeAt(r);
        } else if (op < 97) {
            const int r = rng.bounded(rows + 1);
            g.insertRow(r);
            ref.insert(r, QStringList{QString(), QString(), QString()});
        } else if (rng.bounded(12) == 0) {
            const bool ascending = rng.bounded(2) == 0;
            g.sort(c, ascending ? 1 : 2);
            std::stable_sort(ref.begin() + 1, ref.end(), [c, ascending](const QStringList &a, const QStringList &b) {
                return ascending ? a[c] < b[c] : b[c] < a[c];
            });
        }
    }
    QCOMPARE(contents(g), ref);
}

// Field names make the header row, NULLs empty cells, and the fixed column stays empty.
void TestGridData::recordset()
{
    DatabaseSession session;
    if (test::openSession(session, QString()).isError())
        QSKIP("the test server does not answer");
    auto rs = session.openQuery(
        QStringLiteral("SELECT 1 AS n, NULL AS `nul`, 'a,b\"c' AS `t` UNION ALL SELECT 2, 'two', 'Grüße'"));
    QVERIFY2(rs.ok(), qPrintable(rs.error().description));
    GridData copied = makeGrid(tbl({{"old"}, {"x"}}));
    copied.setFixedCols(1);
    copied.loadRecordset(*rs);
    QCOMPARE(contents(copied), tbl({{"", "n", "nul", "t"}, {"", "1", "", "a,b\"c"}, {"", "2", "two", "Grüße"}}));

    // Taken over with nothing fixed, the storage accepts new rows and sorting like any other.
    GridData taken;
    taken.setFixedRows(0);
    taken.setFixedCols(0);
    taken.adoptRecordset(std::move(*rs));
    taken.addRow();
    taken.setText(2, 0, QStringLiteral("3"));
    taken.sort(0, 2);
    QCOMPARE(contents(taken), tbl({{"3", "", ""}, {"2", "two", "Grüße"}, {"1", "", "a,b\"c"}}));
}

QTEST_GUILESS_MAIN(TestGridData)
#include "test_griddata.moc"
