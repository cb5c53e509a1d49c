// The grid's cells without a view: row and column changes over the permuted row index, the
// generic sort, bulk column writes, and recordsets and paused table reads from the real server.
#include "grid/tableload.h"
#include "gridtexts.h"
#include "testdb.h"

#include <QRandomGenerator>

#include <algorithm>
#include <numeric>
#include <tuple>

using namespace tabulon;
using namespace tabulon::test;

namespace {

// Rows are written "a|b|c"; the grid has no fixed column.
GridData makeGrid(const QStringList &rows)
{
    GridData g;
    g.setFixedCols(0);
    g.setRows(static_cast<int>(rows.size()));
    g.setCols(static_cast<int>(rows.first().count(QLatin1Char('|'))) + 1);
    for (int r = 0; r < g.rows(); ++r)
        for (int c = 0; c < g.cols(); ++c)
            g.setText(r, c, rows[r].section(QLatin1Char('|'), c, c));
    return g;
}

// A cell's place in the grid's order, worked out the plain way: empty cells, then numbers by
// value, then texts case-folded in code point order. The values of the tests below start
// with a digit or '-' exactly when they are numbers.
struct SortKey {
    int rank;
    double number = 0;
    QByteArray folded;
    explicit SortKey(const QString &v) : rank(v.isEmpty() ? 0 : v.front().isDigit() || v.front() == u'-' ? 1 : 2)
    {
        if (rank == 1)
            number = v.toDouble();
        else if (rank == 2)
            folded = v.toCaseFolded().toUtf8();
    }
    bool operator<(const SortKey &o) const
    {
        if (rank != o.rank)
            return rank < o.rank;
        return rank == 1 ? number < o.number : folded < o.folded;
    }
};

} // namespace

class TestGridData final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void rowOperations();
    void columnOperations();
    void sort();
    void randomEditsMatchReference();
    void largeSortsMatchReference();
    void recordset();
    void tableLoad();
};

void TestGridData::rowOperations()
{
    GridData g = makeGrid(sl({"h", "a", "b", "c", "d"}));
    // The cells of dropped rows must not come back in rows added later.
    g.removeRow(4);
    g.insertRow(4);
    QCOMPARE(gridRowTexts(g), sl({"h", "a", "b", "c", ""}));
    g.setRows(2);
    g.setRows(4);
    g.setText(3, 0, qs("c"));
    g.insertRow(0);
    g.insertRow(2);
    g.removeRow(3);
    QCOMPARE(gridRowTexts(g), sl({"", "h", "", "", "c"}));

    // After a sort the row index is no longer the identity.
    g.setText(2, 0, qs("b"));
    g.sort(0, 2);
    QCOMPARE(gridRowTexts(g), sl({"", "h", "c", "b", ""}));
    g.setRows(3);
    g.setRows(5);
    g.setText(4, 0, qs("y"));
    QCOMPARE(gridRowTexts(g), sl({"", "h", "c", "", "y"}));

    // Numbering follows the rows as they stand, not the cells' places; the header keeps its text.
    g.setText(0, 0, qs("No."));
    g.setCols(2);
    g.setRowNumbers(0);
    g.copyColumn(0, 1);
    g.setText(2, 1, qs("x")); // the copy's cells are its own
    QCOMPARE(gridRowTexts(g), sl({"No.|No.", "1|1", "2|x", "3|3", "4|4"}));
}

void TestGridData::columnOperations()
{
    GridData g = makeGrid(sl({"A|B|C|D", "a1|b1|c1|d1", "a2|b2|c2|d2"}));
    g.sort(0, 2); // the rows travel in the row index, the columns must not care
    g.moveColumn(3, 1);
    QCOMPARE(gridRowTexts(g), sl({"A|D|B|C", "a2|d2|b2|c2", "a1|d1|b1|c1"}));
    g.moveColumn(0, 3);
    const QStringList moved = sl({"D|B|C|A", "d2|b2|c2|a2", "d1|b1|c1|a1"});
    QCOMPARE(gridRowTexts(g), moved);

    // Out of range is ignored.
    g.moveColumn(0, 4);
    g.insertRow(4);
    g.setText(1, 4, qs("x"));
    g.setColumnTexts(4, 0, 2, [](int) { return qs("x"); });
    QCOMPARE(gridRowTexts(g), moved);

    // Clearing a sorted grid leaves an empty header row that later rows start after.
    g.setFixedCols(1);
    g.clear();
    g.insertRow(1);
    g.setText(1, 1, qs("w"));
    QCOMPARE(gridRowTexts(g), sl({"|||", "|w||"}));
}

// Each value comes with its original position, so stability and rows keeping their cells show.
void TestGridData::sort()
{
    // order, values, original positions in sorted order
    const std::tuple<int, QStringList, QList<int>> cases[] = {
        // numbers as numbers; hex, thousands separators and "inf" are texts
        {1, sl({"10", "9", "-2", "2.5", "1e2", " 3 ", "+1", "-.5"}), {2, 7, 6, 3, 5, 1, 0, 4}},
        {1, sl({"0x1A", "1,000", "inf", "5", "1e"}), {3, 0, 1, 4, 2}},
        // texts case-folded, in code point order, also when they differ only after a long common start
        {1, sl({"banana", "Apple", "Ölberg", "zebra", "öde", "Äpfel", "cherry"}), {1, 0, 6, 3, 5, 4, 2}},
        {1, sl({"long shared text Z", "Long shared text b", "LONG SHARED TEXT Z", "long shared text"}), {3, 1, 0, 2}},
        // a total order even when a column mixes kinds: empty, numbers, then texts; stable both ways
        {1, sl({"b", "10", "", "9", "1a", "A"}), {2, 3, 1, 4, 5, 0}},
        {1, sl({"b", "a", "B", "A", "a"}), {1, 3, 4, 0, 2}},
        {2, sl({"b", "1.0", "", "B", "1", "a", "01", "-0", "0"}), {0, 3, 5, 1, 4, 6, 7, 8, 2}},
        // other orders do nothing
        {3, sl({"b", "a"}), {0, 1}},
    };
    for (const auto &[order, values, sorted] : cases) {
        QStringList rows{qs("h|at")}, expected = rows;
        for (int i = 0; i < values.size(); ++i) {
            rows << values[i] + QLatin1Char('|') + QString::number(i);
            expected << values[sorted[i]] + QLatin1Char('|') + QString::number(sorted[i]);
        }
        GridData g = makeGrid(rows);
        g.sort(0, order);
        QCOMPARE(gridRowTexts(g), expected);
        // Without a fixed row the first row sorts with the others: "at" goes after the numbers.
        g.setFixedRows(0);
        g.sort(1, 1);
        QCOMPARE(gridRowTexts(g).last(), qs("h|at"));
    }
}

// Many edits push the columns through their compaction, many removals through the grid's own,
// and texts that agree on long stretches and differ in case, length, non-ASCII letters and zero
// bytes push the sort through its eight-byte rounds, also over an already permuted grid. A plain
// table of strings follows the same steps, sorted by a plain stable sort in the grid's order
// (empty, then numbers, then texts case-folded), and must always agree.
void TestGridData::randomEditsMatchReference()
{
    QRandomGenerator rng(20240611);
    const QStringList pieces = sl({"a", "A", "b", "ä", "Ä", "z", "0", " ", "aaaaaaaa", "AbCdEfGh"});
    const auto value = [&rng, &pieces]() -> QString {
        const int kind = rng.bounded(10);
        if (kind == 0)
            return qs(""); // an empty text; a null QString stands for a NULL cell
        if (kind == 1)
            return QString::number(rng.bounded(200) - 100) + (rng.bounded(2) ? qs(".5") : QString());
        QString text = qs("Remark ");
        for (int n = rng.bounded(12); n > 0; --n)
            text += pieces[rng.bounded(static_cast<int>(pieces.size()))];
        return rng.bounded(20) == 0 ? text + QChar(u'\0') : text;
    };
    const auto less = [](const QString &a, const QString &b) { return SortKey(a) < SortKey(b); };
    // Loaded as a table is, with NULLs among the cells: edits, removals (and the compaction
    // they bring), sorts and column rebuilds must keep every NULL that was not written over.
    GridData g;
    g.setFixedCols(0);
    g.startAppending(sl({"", "", "", ""}));
    QList<QStringList> ref(6000, QStringList(4, qs("")));
    for (int r = 1; r < 6000; ++r) {
        for (int c = 0; c < 4; ++c) {
            if (c > 0 && (r + c) % 7 == 0) {
                ref[r][c] = QString();
                g.appendNullCell(c);
            } else {
                g.appendCell(c, QByteArrayView(ref[r][c].toUtf8()));
            }
        }
    }
    g.finishAppending();
    const auto nullsAsReference = [&g, &ref] {
        int nulls = 0;
        for (int r = 0; r < g.rows(); ++r) {
            for (int c = 0; c < 4; ++c) {
                if (g.isNull(r, c) != ref[r][c].isNull())
                    return -1;
                nulls += g.isNull(r, c);
            }
        }
        return nulls;
    };
    for (int step = 0; step < 12000; ++step) {
        if (step % 500 == 0) {
            const int nulls = nullsAsReference();
            QVERIFY2(nulls >= 0, qPrintable(qs("step %1").arg(step)));
        }
        // Column 0 gets the row numbers, 1 and 2 rebuilds of many cells, 3 edits only.
        const int op = rng.bounded(100), c = rng.bounded(4), rows = static_cast<int>(ref.size());
        if (op < 68) {
            const int r = rng.bounded(rows);
            ref[r][c] = value();
            g.setText(r, c, ref[r][c]);
        } else if (op < 70) {
            // A few rows are written as edits, many rebuild the column; ranges may run past the end.
            const int first = rng.bounded(rows);
            const int last = first + (rng.bounded(2) ? rng.bounded(20) : rng.bounded(rows));
            const auto text = [step](int r) { return qs("Remark %1/%2").arg(step).arg(r); };
            g.setColumnTexts(1 + c % 2, first, last, text);
            for (int r = first; r <= std::min(last, rows - 1); ++r)
                ref[r][1 + c % 2] = text(r);
        } else if (op < 90 && rows > 100) {
            const int r = rng.bounded(rows);
            g.removeRow(r);
            ref.removeAt(r);
        } else if (op < 97) {
            const int r = rng.bounded(rows + 1);
            g.insertRow(r);
            ref.insert(r, QStringList(4, qs("")));
        } else if (op < 98) {
            g.setRowNumbers(0);
            for (int r = 1; r < rows; ++r)
                ref[r][0] = QString::number(r);
        } else if (rng.bounded(6) == 0) {
            const bool ascending = rng.bounded(2) == 0;
            g.sort(c, ascending ? 1 : 2);
            std::stable_sort(ref.begin() + 1, ref.end(), [&](const QStringList &a, const QStringList &b) {
                return ascending ? less(a[c], b[c]) : less(b[c], a[c]);
            });
        }
    }
    QStringList expected;
    for (const QStringList &row : ref)
        expected << row.join(QLatin1Char('|'));
    QCOMPARE(gridRowTexts(g), expected);
}

// A column large enough for its sort to be shared between threads, with runs of thousands of
// texts that agree for dozens of bytes and differ in case and length, sorts as a plain stable
// sort does: both ways, over the scattered order an earlier sort leaves, and once cells have
// been edited, some of them to texts beyond ASCII.
void TestGridData::largeSortsMatchReference()
{
    constexpr int kRows = 100000;
    QRandomGenerator rng(20261126);
    const auto value = [&rng]() -> QString {
        const int kind = rng.bounded(40);
        if (kind < 2)
            return kind == 0 ? QString() : qs(""); // NULL and empty sort alike
        if (kind < 4)
            return QString::number(rng.bounded(1000) - 500) + qs(".25");
        const QChar letter = QLatin1Char("aAbBc"[rng.bounded(5)]);
        return qs("Remark ") + QString(rng.bounded(2) ? rng.bounded(7) : rng.bounded(45), letter) +
               (rng.bounded(3) == 0 ? qs("!") : QString());
    };
    // Column 0 the texts, 1 the row's identity, 2 a number to scatter the rows by.
    GridData g;
    g.setFixedCols(0);
    g.startAppending(sl({"text", "id", "scatter"}));
    std::vector<SortKey> keys;
    std::vector<int> scatter;
    for (int r = 0; r < kRows; ++r) {
        const QString v = value();
        keys.emplace_back(v);
        v.isNull() ? g.appendNullCell(0) : g.appendCell(0, QByteArrayView(v.toUtf8()));
        g.appendCell(1, QByteArrayView(QByteArray::number(r)));
        scatter.push_back(rng.bounded(1000));
        g.appendCell(2, QByteArrayView(QByteArray::number(scatter.back())));
    }
    g.finishAppending();
    std::vector<int> order(kRows);
    std::iota(order.begin(), order.end(), 0);
    const auto sortedAs = [&](int col, bool ascending) -> QString {
        g.sort(col, ascending ? 1 : 2);
        std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
            if (col == 2)
                return ascending ? scatter[a] < scatter[b] : scatter[b] < scatter[a];
            return ascending ? keys[a] < keys[b] : keys[b] < keys[a];
        });
        for (int r = 0; r < kRows; ++r) {
            if (g.text(r + 1, 1).toInt() != order[r])
                return qs("sort by %1 %2: row %3 holds %4, not %5")
                    .arg(col)
                    .arg(ascending ? qs("up") : qs("down"))
                    .arg(r + 1)
                    .arg(g.text(r + 1, 1), QString::number(order[r]));
        }
        return {};
    };
    QString wrong;
    for (const auto &[col, ascending] : {std::pair{0, true}, {0, false}, {2, true}, {0, true}, {0, false}})
        QVERIFY2((wrong = sortedAs(col, ascending)).isEmpty(), qPrintable(wrong));
    for (int n = 0; n < 500; ++n) {
        const int row = 1 + rng.bounded(kRows);
        const int id = g.text(row, 1).toInt();
        const QString v = qs("Remark ") + QString(rng.bounded(30), QLatin1Char('a')) + (n % 2 ? qs("Ä") : qs("ä"));
        g.setText(row, 0, v);
        keys[static_cast<size_t>(id)] = SortKey(v);
    }
    for (const auto &[col, ascending] : {std::pair{0, true}, {0, false}})
        QVERIFY2((wrong = sortedAs(col, ascending)).isEmpty(), qPrintable(wrong));
}

// Field names make the header row, NULLs empty cells, and the fixed column stays empty.
void TestGridData::recordset()
{
    DatabaseSession session;
    QVERIFY_DB(test::openSession(session, QString()));
    auto rs = session.openQuery(qs("SELECT 1 n, NULL nul, 'a,b\"c' t UNION ALL SELECT 2, 'two', 'Grüße'"));
    QVERIFY2(rs.ok(), qPrintable(rs.error().description));
    GridData copied = makeGrid(sl({"old", "x"}));
    copied.setFixedCols(1);
    copied.loadRecordset(*rs);
    QCOMPARE(gridRowTexts(copied), sl({"|n|nul|t", "|1||a,b\"c", "|2|two|Grüße"}));

    // Taken over with nothing fixed, the storage accepts new rows and sorting like any other.
    GridData taken = makeGrid(sl({"old"}));
    taken.setFixedRows(0);
    taken.adoptRecordset(std::move(*rs));
    taken.addRow();
    taken.setText(2, 0, qs("3"));
    taken.sort(0, 2);
    QCOMPARE(gridRowTexts(taken), sl({"3||", "2|two|Grüße", "1||a,b\"c"}));
}

namespace {
qint64 bytesSent(DatabaseSession &session)
{
    auto rs = session.openQuery(qs("SHOW SESSION STATUS LIKE 'Bytes_sent'"));
    return rs.ok() ? rs->text(0, 1).toLongLong() : -1;
}
} // namespace

// A table read in paused slices holds what the recordset holds, cell for cell, each slice's
// rows joining the grid at its pause; a stop keeps the rows before it, ends the statement on
// the server instead of taking the rest of the rows, and leaves the session ready.
void TestGridData::tableLoad()
{
    ScratchDatabase db(qs("tableload"));
    QVERIFY_DB(db.error());
    QVERIFY_DB(db.run({qs("CREATE TABLE t (id INT PRIMARY KEY, b BIT(10), v VARBINARY(4), pad VARCHAR(255))"),
                       qs("INSERT INTO t SELECT seq, seq % 1024, IF(seq % 3 = 0, NULL, UNHEX(HEX(seq % 65536))),"
                          " REPEAT('x', 250) FROM seq_1_to_150000")}));
    DatabaseSession session;
    QVERIFY_DB(openSession(session, db.name()));
    // Row numbers in column 0 and in column 1; the fields after them.
    GridData grid;
    const auto open = [&grid](const QStringList &names) -> GridData & {
        grid.startAppending(QStringList{QString(), QString()} + names);
        grid.numberAppendedRows(1);
        return grid;
    };
    QList<qsizetype> pauses;
    const TableLoad whole = TableLoad::read(session, qs("t"), 2, open, {15000, 0}, [&](qsizetype rows) {
        grid.commitAppended();
        pauses << rows << grid.rows() - 1;
        return false;
    });
    QVERIFY_DB(whole.error);
    QVERIFY(!whole.stopped);
    QList<qsizetype> expected;
    for (qsizetype rows = 15000; rows <= 150000; rows += 15000)
        expected << rows << rows;
    QCOMPARE(pauses, expected);
    grid.finishAppending();
    const qsizetype loadedBytes = grid.memoryUse();
    const qint64 wholeBytes = bytesSent(session);
    auto rs = session.openTable(qs("t"));
    QVERIFY2(rs.ok(), qPrintable(rs.error().description));
    QCOMPARE(whole.names, rs->fieldNames());
    QCOMPARE(whole.rows, rs->recordCount());
    QCOMPARE(grid.rows(), whole.rows + 1);
    QCOMPARE(grid.text(0, 2), qs("id"));
    for (qsizetype row = 0; row < whole.rows; row += 997) {
        const int at = static_cast<int>(row) + 1;
        QCOMPARE(grid.utf8(at, 0), QByteArray::number(row + 1));
        QCOMPARE(grid.utf8(at, 1), QByteArray::number(row + 1));
        for (int f = 0; f < rs->fieldCount(); ++f) {
            QCOMPARE(grid.isNull(at, f + 2), rs->isNull(row, f));
            QCOMPARE(grid.utf8(at, f + 2), rs->column(f).utf8(row));
        }
    }
    // The numbers are worked out when read: they cost nothing in load order, 4 bytes a row
    // once sorted, beside the 4 of the row index.
    qsizetype fieldBytes = 0;
    for (int f = 0; f < rs->fieldCount(); ++f) {
        TextColumn field = rs->column(f);
        field.squeeze();
        fieldBytes += field.memoryUse();
    }
    QVERIFY2(loadedBytes < fieldBytes + 4096, qPrintable(QString::number(loadedBytes - fieldBytes)));
    grid.sort(2, 2);
    grid.setRowNumbers(0);
    QVERIFY2(grid.memoryUse() < fieldBytes + 8 * whole.rows + 4096,
             qPrintable(QString::number(grid.memoryUse() - fieldBytes)));
    QCOMPARE(grid.utf8(1, 0), "1");
    QCOMPARE(grid.utf8(1, 1), "150000");
    QCOMPARE(grid.utf8(150000, 0), "150000");
    QCOMPARE(grid.utf8(150000, 1), "1");

    DatabaseSession stopping;
    QVERIFY_DB(openSession(stopping, db.name()));
    const TableLoad part =
        TableLoad::read(stopping, qs("t"), 2, open, {1000, 0}, [](qsizetype rows) { return rows == 3000; });
    QVERIFY_DB(part.error);
    QVERIFY(part.stopped);
    QCOMPARE(part.rows, 3000);
    grid.finishAppending();
    QCOMPARE(grid.rows(), 3001);
    QCOMPARE(grid.text(3000, 1), qs("3000"));
    QVERIFY2(bytesSent(stopping) < wholeBytes / 2, "the server sent the whole table after the stop");
    auto count = stopping.openQuery(qs("SELECT COUNT(*) FROM t"));
    QVERIFY2(count.ok(), qPrintable(count.error().description));
    QCOMPARE(count->text(0, 0), qs("150000"));

    // Without pauses there is nobody to ask; a table that is not there reads nothing.
    bool asked = false;
    const TableLoad unpaused =
        TableLoad::read(session, qs("t"), 2, open, {1, -1}, [&asked](qsizetype) { return asked = true; });
    QVERIFY(!asked && unpaused.rows == 150000);
    const TableLoad missing = TableLoad::read(session, qs("none"), 2, open, {1, 0}, {});
    QVERIFY(missing.error.description.contains(qs("doesn't exist")));
    QVERIFY(missing.names.isEmpty() && missing.rows == 0);
}

QTEST_GUILESS_MAIN(TestGridData)
#include "test_griddata.moc"
