// The grid's cells without a view: row and column changes over the permuted row index, the
// generic sort, bulk column writes, and recordsets taken over from the real server.
#include "grid/griddata.h"
#include "testdb.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTest>

#include <algorithm>

using namespace tabulon;

namespace {

using Table = QList<QStringList>;

QStringList sl(std::initializer_list<const char *> items)
{
    QStringList out;
    for (const char *item : items)
        out << QString::fromUtf8(item);
    return out;
}

QList<QStringList> tbl(std::initializer_list<std::initializer_list<const char *>> rows)
{
    QList<QStringList> out;
    for (const auto &row : rows)
        out << sl(row);
    return out;
}

GridData makeGrid(const Table &rows, int fixedRows = 1, int fixedCols = 0)
{
    GridData g;
    g.setFixedRows(fixedRows);
    g.setFixedCols(fixedCols);
    g.setRows(static_cast<int>(rows.size()));
    g.setCols(rows.isEmpty() ? 0 : static_cast<int>(rows.first().size()));
    for (int r = 0; r < rows.size(); ++r) {
        for (int c = 0; c < rows[r].size(); ++c)
            g.setText(r, c, rows[r][c]);
    }
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

// A one-column grid (header "h") followed by a tag column, so stability is visible.
GridData sortGrid(const QStringList &values)
{
    Table t{{QStringLiteral("h"), QStringLiteral("tag")}};
    for (int i = 0; i < values.size(); ++i)
        t << QStringList{values[i], QString::number(i)};
    return makeGrid(t);
}

} // namespace

class TestGridData final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void rowOperations_data();
    void rowOperations();
    void outOfRangeIsHarmless();
    void moveColumn_data();
    void moveColumn();
    void clearKeepsColumns();
    void setColumnTexts_data();
    void setColumnTexts();
    void sort_data();
    void sort();
    void sortIgnoresHeaderAndOtherOrders();
    void randomEditsMatchReference();
    void memoryStaysNearTexts();
    void largeSortIsQuick();
    void recordset_data();
    void recordset();
};

// Each script runs on the grid h / a / b / c / d (one column); "sort" sorts descending first
// so the row index is no longer the identity and every later step goes through it.
void TestGridData::rowOperations_data()
{
    QTest::addColumn<QStringList>("script");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("add") << sl({"add"}) << sl({"h", "a", "b", "c", "d", ""});
    QTest::newRow("insert middle") << sl({"insert 2"}) << sl({"h", "a", "", "b", "c", "d"});
    QTest::newRow("insert at end") << sl({"insert 5"}) << sl({"h", "a", "b", "c", "d", ""});
    QTest::newRow("insert above header") << sl({"insert 0"}) << sl({"", "h", "a", "b", "c", "d"});
    QTest::newRow("remove middle") << sl({"remove 2"}) << sl({"h", "a", "c", "d"});
    QTest::newRow("remove last") << sl({"remove 4"}) << sl({"h", "a", "b", "c"});
    QTest::newRow("remove then add") << sl({"remove 1", "add", "set 4 z"}) << sl({"h", "b", "c", "d", "z"});
    QTest::newRow("shrink") << sl({"rows 2"}) << sl({"h", "a"});
    QTest::newRow("shrink to nothing and grow") << sl({"rows 0", "rows 2"}) << sl({"", ""});
    QTest::newRow("grow") << sl({"rows 7"}) << sl({"h", "a", "b", "c", "d", "", ""});
    QTest::newRow("sorted, remove") << sl({"sort", "remove 1"}) << sl({"h", "c", "b", "a"});
    QTest::newRow("sorted, insert, set") << sl({"sort", "insert 2", "set 2 x"}) << sl({"h", "d", "x", "c", "b", "a"});
    QTest::newRow("sorted, shrink") << sl({"sort", "rows 3"}) << sl({"h", "d", "c"});
    QTest::newRow("sorted, shrink, grow")
        << sl({"sort", "rows 3", "rows 5", "set 4 y"}) << sl({"h", "d", "c", "", "y"});
    QTest::newRow("sorted, edit, clear, add") << sl({"sort", "set 1 q", "clear", "add", "set 1 w"}) << sl({"", "w"});
}

void TestGridData::rowOperations()
{
    QFETCH(QStringList, script);
    QFETCH(QStringList, expected);
    GridData g = makeGrid(tbl({{"h"}, {"a"}, {"b"}, {"c"}, {"d"}}));
    for (const QString &step : script) {
        const QStringList w = step.split(QLatin1Char(' '));
        const int n = w.size() > 1 ? w[1].toInt() : 0;
        if (w[0] == QLatin1String("add"))
            g.addRow();
        else if (w[0] == QLatin1String("insert"))
            g.insertRow(n);
        else if (w[0] == QLatin1String("remove"))
            g.removeRow(n);
        else if (w[0] == QLatin1String("rows"))
            g.setRows(n);
        else if (w[0] == QLatin1String("set"))
            g.setText(n, 0, w[2]);
        else if (w[0] == QLatin1String("sort"))
            g.sort(0, 2);
        else if (w[0] == QLatin1String("clear"))
            g.clear();
    }
    QCOMPARE(column(g, 0), expected);
}

void TestGridData::outOfRangeIsHarmless()
{
    GridData g = makeGrid(tbl({{"h", "i"}, {"a", "b"}}));
    g.setText(2, 0, QStringLiteral("x"));
    g.setText(0, 2, QStringLiteral("x"));
    g.setText(-1, 0, QStringLiteral("x"));
    g.insertRow(5);
    g.removeRow(2);
    g.removeRow(-1);
    g.moveColumn(0, 2);
    g.sort(7, 1);
    g.setColumnTexts(3, 0, 1, [](int) { return QStringLiteral("x"); });
    QCOMPARE(contents(g), (tbl({{"h", "i"}, {"a", "b"}})));
    QCOMPARE(g.text(9, 9), QString());
    QVERIFY(g.utf8(-1, 0).isEmpty());
}

void TestGridData::moveColumn_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::addColumn<QStringList>("header");
    QTest::newRow("last to 1") << 3 << 1 << sl({"A", "D", "B", "C"});
    QTest::newRow("1 to last") << 1 << 3 << sl({"A", "C", "D", "B"});
    QTest::newRow("first to last") << 0 << 3 << sl({"B", "C", "D", "A"});
    QTest::newRow("neighbours") << 2 << 1 << sl({"A", "C", "B", "D"});
    QTest::newRow("same place") << 2 << 2 << sl({"A", "B", "C", "D"});
}

void TestGridData::moveColumn()
{
    QFETCH(int, from);
    QFETCH(int, to);
    QFETCH(QStringList, header);
    GridData g = makeGrid(tbl({{"A", "B", "C", "D"}, {"a1", "b1", "c1", "d1"}, {"a2", "b2", "c2", "d2"}}));
    g.sort(0, 2); // the rows travel in the row index, the columns must not care
    g.moveColumn(from, to);
    QCOMPARE(contents(g).first(), header);
    for (int c = 0; c < 4; ++c) {
        const QString letter = header[c].toLower();
        QCOMPARE(column(g, c), (QStringList{header[c], letter + QLatin1Char('2'), letter + QLatin1Char('1')}));
    }
}

void TestGridData::clearKeepsColumns()
{
    GridData g = makeGrid(tbl({{"x", "h1", "h2"}, {"1", "a", "b"}, {"2", "c", "d"}}), 1, 1);
    g.clear();
    QCOMPARE(g.rows(), 1);
    QCOMPARE(g.cols(), 3);
    QCOMPARE(contents(g), (tbl({{"", "", ""}})));
    g.setFixedRows(0);
    g.clear();
    QCOMPARE(g.rows(), 0);
    QCOMPARE(g.cols(), 3);
}

// Small ranges are written as single edits, large ones rebuild the column; both must land
// on the rows as they stand after a sort and after removals left unused cells behind.
void TestGridData::setColumnTexts_data()
{
    QTest::addColumn<int>("rows");
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("last");
    QTest::addColumn<bool>("removeSome");
    QTest::newRow("few rows of many") << 2000 << 10 << 20 << false;
    QTest::newRow("all rows") << 2000 << 1 << 1999 << false;
    QTest::newRow("all rows after removals") << 2000 << 1 << 1500 << true;
    QTest::newRow("range past the end is clipped") << 50 << 1 << 500 << false;
}

void TestGridData::setColumnTexts()
{
    QFETCH(int, rows);
    QFETCH(int, first);
    QFETCH(int, last);
    QFETCH(bool, removeSome);
    GridData g;
    g.setCols(3);
    g.setRows(rows);
    g.setText(0, 0, QStringLiteral("#"));
    for (int r = 1; r < rows; ++r) {
        g.setText(r, 1, QString::number(r));
        g.setText(r, 2, QStringLiteral("keep%1").arg(r));
    }
    g.sort(1, 2);
    if (removeSome) {
        for (int i = 0; i < 300; ++i)
            g.removeRow(1 + i);
    }
    const QStringList before1 = column(g, 1);
    const QStringList before2 = column(g, 2);
    QStringList expected0 = column(g, 0);
    for (int r = std::max(first, 0); r <= std::min(last, g.rows() - 1); ++r)
        expected0[r] = QString::number(r);

    g.setColumnTexts(0, first, last, [](int r) { return QString::number(r); });

    QCOMPARE(column(g, 0), expected0);
    QCOMPARE(column(g, 1), before1);
    QCOMPARE(column(g, 2), before2);
    // The rewritten column keeps working with later edits and row changes.
    g.setText(g.rows() - 1, 0, QStringLiteral("end"));
    g.removeRow(1);
    QCOMPARE(g.text(g.rows() - 1, 0), QStringLiteral("end"));
    QCOMPARE(g.text(1, 1), before1[2]);
}

void TestGridData::sort_data()
{
    QTest::addColumn<QStringList>("values");
    QTest::addColumn<int>("order");
    QTest::addColumn<QStringList>("sortedTags");
    // numbers compare as numbers, not as texts
    QTest::newRow("numbers ascending") << sl({"10", "9", "-2", "2.5", "1e2"}) << 1 << sl({"2", "3", "1", "0", "4"});
    QTest::newRow("numbers descending") << sl({"10", "9", "-2", "2.5", "1e2"}) << 2 << sl({"4", "0", "1", "3", "2"});
    QTest::newRow("padded and signed numbers") << sl({" 3 ", "+1", "-.5", "0"}) << 1 << sl({"2", "3", "1", "0"});
    QTest::newRow("texts ignore case") << sl({"banana", "Apple", "cherry", "apricot"}) << 1 << sl({"1", "3", "0", "2"});
    QTest::newRow("non-ASCII ignores case") << sl({"Ölberg", "zebra", "öde", "Äpfel"}) << 1 << sl({"1", "3", "2", "0"});
    // a total order even when a column mixes kinds: empty, numbers, then texts
    QTest::newRow("mixed ascending") << sl({"b", "10", "", "9", "1a", "A"}) << 1 << sl({"2", "3", "1", "4", "5", "0"});
    QTest::newRow("mixed descending") << sl({"b", "10", "", "9", "1a", "A"}) << 2 << sl({"0", "5", "4", "1", "3", "2"});
    QTest::newRow("hex, separators, inf are text")
        << sl({"0x1A", "1,000", "inf", "5"}) << 1 << sl({"3", "0", "1", "2"});
    QTest::newRow("stable ascending") << sl({"b", "a", "B", "A", "a"}) << 1 << sl({"1", "3", "4", "0", "2"});
    QTest::newRow("stable descending") << sl({"b", "a", "B", "A", "a"}) << 2 << sl({"0", "2", "1", "3", "4"});
    QTest::newRow("equal numbers keep order") << sl({"1.0", "1", "01", "0"}) << 2 << sl({"0", "1", "2", "3"});
}

void TestGridData::sort()
{
    QFETCH(QStringList, values);
    QFETCH(int, order);
    QFETCH(QStringList, sortedTags);
    GridData g = sortGrid(values);
    g.sort(0, order);
    QStringList tags = column(g, 1);
    QCOMPARE(tags.takeFirst(), QStringLiteral("tag"));
    QCOMPARE(tags, sortedTags);
    // Every row keeps its own cells.
    for (int r = 1; r < g.rows(); ++r)
        QCOMPARE(g.text(r, 0), values[g.text(r, 1).toInt()]);
}

void TestGridData::sortIgnoresHeaderAndOtherOrders()
{
    GridData g = sortGrid(sl({"b", "a"}));
    g.setText(0, 0, QStringLiteral("zzz"));
    g.sort(0, 1);
    QCOMPARE(column(g, 0), (sl({"zzz", "a", "b"})));
    g.sort(0, 0);
    g.sort(0, 3);
    QCOMPARE(column(g, 0), (sl({"zzz", "a", "b"})));
    GridData headerless = sortGrid(sl({"b", "a"}));
    headerless.setFixedRows(0);
    headerless.sort(0, 1);
    QCOMPARE(column(headerless, 0), (sl({"a", "b", "h"})));
}

// Many edits push the columns through their compaction, many removals through the grid's own;
// a plain table of strings follows the same steps and must always agree.
void TestGridData::randomEditsMatchReference()
{
    QRandomGenerator rng(20240611);
    GridData g;
    g.setFixedCols(0);
    g.setCols(3);
    g.setRows(6000);
    Table ref(6000, QStringList{QString(), QString(), QString()});
    const auto randomText = [&rng] {
        return rng.bounded(5) == 0 ? QString() : QString::number(rng.bounded(100000)) + QStringLiteral("ä");
    };
    for (int step = 0; step < 12000; ++step) {
        const int op = rng.bounded(100);
        const int rows = static_cast<int>(ref.size());
        if (op < 70) {
            const int r = rng.bounded(rows), c = rng.bounded(3);
            const QString t = randomText();
            g.setText(r, c, t);
            ref[r][c] = t;
        } else if (op < 90 && rows > 100) {
            const int r = rng.bounded(rows);
            g.removeRow(r);
            ref.removeAt(r);
        } else if (op < 97) {
            const int r = rng.bounded(rows + 1);
            g.insertRow(r);
            ref.insert(r, QStringList{QString(), QString(), QString()});
        } else if (op < 98 && rng.bounded(8) == 0) {
            // Column 2 holds numbers only, so the reference can sort it numerically.
            for (int r = 1; r < rows; ++r) {
                const QString t = QString::number(rng.bounded(50));
                g.setText(r, 2, t);
                ref[r][2] = t;
            }
            g.sort(2, 1);
            std::stable_sort(ref.begin() + 1, ref.end(),
                             [](const QStringList &a, const QStringList &b) { return a[2].toInt() < b[2].toInt(); });
        } else if (op >= 98) {
            g.moveColumn(0, 2);
            for (auto &row : ref)
                row.move(0, 2);
        }
        if (step % 3000 == 0)
            QCOMPARE(contents(g), ref);
    }
    QCOMPARE(contents(g), ref);
}

void TestGridData::memoryStaysNearTexts()
{
    constexpr int kRows = 200000;
    std::vector<TextColumn> columns(4);
    for (auto &c : columns) {
        for (int r = 0; r < kRows; ++r)
            c.append(QByteArrayView("12345678"));
    }
    GridData g = GridData::fromColumns(std::move(columns), kRows, 1, 1);
    // 8 text bytes and a 4-byte end per cell, plus the 4-byte row index per row.
    const qsizetype floor = qsizetype(kRows) * 4 * 12 + qsizetype(kRows) * 4;
    QVERIFY2(g.memoryUse() < floor * 3 / 2, qPrintable(QString::number(g.memoryUse())));
    g.sort(2, 2);
    QVERIFY2(g.memoryUse() < floor * 3 / 2, qPrintable(QString::number(g.memoryUse())));
}

void TestGridData::largeSortIsQuick()
{
    constexpr int kRows = 400000;
    QRandomGenerator rng(7);
    TextColumn numbers, texts;
    for (int r = 0; r < kRows; ++r) {
        numbers.append(QString::number(rng.bounded(1000000)));
        texts.append(QStringLiteral("Name %1").arg(rng.bounded(1000000)));
    }
    std::vector<TextColumn> columns;
    columns.push_back(std::move(numbers));
    columns.push_back(std::move(texts));
    GridData g = GridData::fromColumns(std::move(columns), kRows, 1, 0);
    QElapsedTimer timer;
    timer.start();
    g.sort(0, 1);
    g.sort(1, 2);
    const qint64 ms = timer.elapsed();
    QVERIFY2(ms < 2500, qPrintable(QStringLiteral("two sorts took %1 ms").arg(ms)));
    for (int r = 2; r < kRows; r += 997)
        QVERIFY(g.text(r - 1, 1).compare(g.text(r, 1), Qt::CaseInsensitive) >= 0);
}

void TestGridData::recordset_data()
{
    QTest::addColumn<bool>("adopt");
    QTest::addColumn<int>("fixedRows");
    QTest::addColumn<int>("fixedCols");
    QTest::newRow("copy") << false << 1 << 1;
    QTest::newRow("adopt") << true << 1 << 1;
    QTest::newRow("adopt, no fixed column") << true << 1 << 0;
    QTest::newRow("copy, no header row") << false << 0 << 1;
}

void TestGridData::recordset()
{
    QFETCH(bool, adopt);
    QFETCH(int, fixedRows);
    QFETCH(int, fixedCols);
    DatabaseSession session;
    if (test::openSession(session, QString()).isError())
        QSKIP("the test server does not answer");
    auto rs = session.openQuery(QStringLiteral("SELECT 1 AS n, NULL AS `nul`, 'a,b\"c' AS `t` UNION ALL SELECT 2, "
                                               "'two', '' UNION ALL SELECT 3, NULL, 'Grüße'"));
    QVERIFY2(rs.ok(), qPrintable(rs.error().description));

    GridData g = makeGrid(tbl({{"old", "old"}, {"x", "y"}}));
    g.setFixedRows(fixedRows);
    g.setFixedCols(fixedCols);
    if (adopt)
        g.adoptRecordset(std::move(*rs));
    else
        g.loadRecordset(*rs);

    const Table records = tbl({{"1", "", "a,b\"c"}, {"2", "two", ""}, {"3", "", "Grüße"}});
    Table expected;
    if (fixedRows)
        expected << sl({"n", "nul", "t"});
    expected << records;
    if (fixedCols) {
        for (auto &row : expected)
            row.prepend(QString());
    }
    QCOMPARE(contents(g), expected);
    if (!adopt)
        QCOMPARE(rs->recordCount(), 3);

    // The taken storage accepts edits and new rows like any other.
    g.addRow();
    g.setText(g.rows() - 1, fixedCols, QStringLiteral("4"));
    g.setText(fixedRows, fixedCols + 1, QStringLiteral("one"));
    g.sort(fixedCols, 2);
    QCOMPARE(g.text(fixedRows, fixedCols), QStringLiteral("4"));
    QCOMPARE(g.text(g.rows() - 1, fixedCols + 1), QStringLiteral("one"));
    if (fixedRows)
        QCOMPARE(g.text(0, fixedCols + 2), QStringLiteral("t"));
}

QTEST_GUILESS_MAIN(TestGridData)
#include "test_griddata.moc"
