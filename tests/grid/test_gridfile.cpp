// The grid file form: exact round trips of awkward grids, row-by-row writing and reading, the
// documented byte layout, and rejection of every kind of damaged or foreign file without
// touching the grid.
#include "files.h"
#include "grid/gridfile.h"
#include "gridtexts.h"
#include "testdb.h"

#include <QTemporaryDir>
#include <QtEndian>

#include <zlib.h>

#include <tuple>

using namespace tabulon;
using namespace tabulon::test;

namespace {

// The counts, the fixed parts and every cell row by row, for comparing whole grids.
QStringList contents(const GridData &g)
{
    return QStringList{qs("%1 %2 %3 %4").arg(g.rows()).arg(g.cols()).arg(g.fixedRows()).arg(g.fixedCols())} +
           gridRowTexts(g);
}

// Deterministic texts with everything a delimited format would stumble over; the last
// piece stands for a long text.
GridData filled(int rows, int cols, int fixedRows, int fixedCols)
{
    static const char *const pieces[] = {
        "",         ",",     "\"quoted\"",       "O'Brien", "tab\there", "line\r\nbreak", "lf\nonly", "Grüße, 東京 😀",
        " padded ", "END\n", "TABULON-GRID 1\n", nullptr};
    std::vector<TextColumn> columns(static_cast<size_t>(cols));
    for (int c = 0; c < cols; ++c)
        for (int r = 0; r < rows; ++r) {
            const char *piece = pieces[(r * 7 + c * 3) % 12];
            const QString text = piece ? QString::fromUtf8(piece) : QString(200, QLatin1Char('x'));
            columns[static_cast<size_t>(c)].append(r % 5 == 0 ? text : text + QString::number(r * 1000 + c));
        }
    return GridData::fromColumns(std::move(columns), rows, fixedRows, fixedCols);
}

} // namespace

class TestGridFile final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void roundTrip();
    void streaming();
    void byteLayout();
    void rejected();

private:
    QTemporaryDir m_dir;
    QString path(const char *name) const { return m_dir.filePath(QString::fromUtf8(name)); }
};

// Sorted and edited grids are saved in their row order, without the cells of removed rows,
// and replace a longer file already there.
void TestGridFile::roundTrip()
{
    // rows, cols, fixedRows, fixedCols
    const int shapes[][4] = {{0, 0, 1, 1}, {4, 0, 0, 0}, {1, 5, 1, 1}, {3, 300, 1, 0}, {20000, 3, 0, 1}};
    for (const auto &[rows, cols, fixedRows, fixedCols] : shapes) {
        GridData saved = filled(rows, cols, fixedRows, fixedCols);
        saved.sort(cols - 1, 2);
        saved.removeRow(1);
        saved.setText(saved.rows() - 1, 0, qs("edited"));
        GridData loaded;
        QVERIFY_DB(filled(rows + 30, cols + 2, 1, 1).saveToFile(path("round.grid")));
        QVERIFY_DB(saved.saveToFile(path("round.grid")));
        QVERIFY_DB(loaded.loadFromFile(path("round.grid")));
        QCOMPARE(contents(loaded), contents(saved));
    }
}

// Rows fed one at a time come back one at a time; short rows are padded, long ones cut; the
// file is at its path only once committed, and an abandoned one leaves nothing behind.
void TestGridFile::streaming()
{
    const QString file = path("stream.grid");
    {
        GridFileWriter out;
        QVERIFY_DB(out.open(file, 1, 0, 3));
        QVERIFY_DB(out.writeRow(sl({"id", "name", "note"})));
        for (int r = 1; r <= 50000; ++r)
            QVERIFY_DB(out.writeRow(QStringList{QString::number(r), qs("n,'\"\n%1").arg(r)}));
        QVERIFY_DB(out.writeRow(sl({"a", "b", "c", "dropped"})));
        QVERIFY(!QFile::exists(file));
        QCOMPARE(out.rows(), 50002);
        QVERIFY_DB(out.commit());
    }
    GridFileReader in;
    QVERIFY_DB(in.open(file));
    QCOMPARE(QList<int>({in.fixedRows(), in.fixedCols(), in.cols()}), QList<int>({1, 0, 3}));
    QVERIFY(in.next());
    QCOMPARE(in.row(), (std::vector<QByteArray>{"id", "name", "note"}));
    for (int r = 1; r <= 50000; ++r) {
        QVERIFY(in.next());
        QCOMPARE(in.row(), (std::vector<QByteArray>{QByteArray::number(r), "n,'\"\n" + QByteArray::number(r), ""}));
    }
    QVERIFY(in.next());
    QCOMPARE(in.row(), (std::vector<QByteArray>{"a", "b", "c"}));
    QVERIFY(!in.next());
    QVERIFY_DB(in.error());
    qint64 rows = 0;
    QVERIFY_DB(GridFileReader::verify(file, &rows));
    QCOMPARE(rows, 50002);

    {
        GridFileWriter abandoned;
        QVERIFY_DB(abandoned.open(path("abandoned.grid"), 1, 1, 1));
        QVERIFY_DB(abandoned.writeRow(sl({"x"})));
    }
    QCOMPARE(QDir(m_dir.path()).entryList({qs("*abandoned*")}, QDir::Files | QDir::Hidden), QStringList());
}

// Backups written today must stay readable, so the layout is pinned byte for byte.
void TestGridFile::byteLayout()
{
    GridData g;
    g.setFixedCols(0);
    g.setCols(2);
    g.setRows(2);
    g.setText(0, 0, qs("ab"));
    g.setText(1, 0, qs("ü"));
    g.setText(0, 1, QString(130, QLatin1Char('z')));
    QVERIFY_DB(g.saveToFile(path("layout.grid")));

    // fixedRows 1, fixedCols 0, cols 2
    QByteArray body = QByteArrayLiteral("TABULON-GRID 2\n") + QByteArray("\1\0\0\0\0\0\0\0\2\0\0\0", 12);
    body += QByteArrayLiteral("\x01\x02") + "ab" + "\x82\x01" + QByteArray(130, 'z'); // row 0; 130 in two bytes
    body += QByteArrayLiteral("\x01\x02\xc3\xbc") + QByteArray(1, '\0');              // row 1, its empty cell
    body += QByteArray("\0\2\0\0\0", 5) + "END\n";                                    // end tag, rows, marker
    const quint32 crc = qToLittleEndian(static_cast<quint32>(
        crc32(0, reinterpret_cast<const Bytef *>(body.constData()), static_cast<uInt>(body.size()))));
    body.append(reinterpret_cast<const char *>(&crc), 4);
    QCOMPARE(read(path("layout.grid")), body);
}

// Every failed load says why, names the file and leaves the grid as it was.
void TestGridFile::rejected()
{
    const std::tuple<const char *, const char *, void (*)(QByteArray &)> cases[] = {
        {"zero length", "empty", [](QByteArray &b) { b.clear(); }},
        {"inside the magic line", "not a grid file", [](QByteArray &b) { b.truncate(9); }},
        {"magic without newline", "truncated", [](QByteArray &b) { b.truncate(14); }},
        {"inside the counts", "truncated", [](QByteArray &b) { b.truncate(25); }},
        {"no end tag", "truncated", [](QByteArray &b) { b.truncate(b.size() - 13); }},
        {"inside the cells", "truncated", [](QByteArray &b) { b.chop(300); }},
        {"last byte missing", "truncated", [](QByteArray &b) { b.chop(1); }},
        {"flipped text byte", "checksum", [](QByteArray &b) { b[b.indexOf(QByteArray(40, 'x')) + 20] ^= 0x40; }},
        {"flipped end marker", "damaged", [](QByteArray &b) { b[b.size() - 6] ^= 0x40; }},
        {"wrong row count", "damaged", [](QByteArray &b) { b[b.size() - 12] ^= 0x01; }},
        {"unknown row tag", "damaged", [](QByteArray &b) { b[27] = '\x07'; }},
        {"flipped fixed-row count", "damaged", [](QByteArray &b) { b[15] ^= 0x40; }},
        {"column count far too large", "damaged", [](QByteArray &b) { b[26] ^= 0x40; }},
        {"bytes after the end", "after its end", [](QByteArray &b) { b += 'x'; }},
        {"text file", "not a grid file", [](QByteArray &b) { b = "name,age\r\nx,1\r\n"; }},
        {"newer version", "newer version", [](QByteArray &b) { b[13] = '3'; }},
        {"unknown old version", "unknown form", [](QByteArray &b) { b[13] = '1'; }},
    };
    QVERIFY_DB(filled(200, 4, 1, 1).saveToFile(path("good.grid")));
    const QByteArray good = read(path("good.grid"));
    GridData g = filled(5, 3, 1, 0);
    const QStringList before = contents(g);
    for (const auto &[name, errorPart, damage] : cases) {
        QByteArray bytes = good;
        damage(bytes);
        write(path("bad.grid"), bytes);
        const DbError error = g.loadFromFile(path("bad.grid"));
        const QString text = qs("%1: %2").arg(QString::fromUtf8(name), error.description);
        QVERIFY2(error.isFileError() && error.description.contains(QLatin1String("bad.grid")), qPrintable(text));
        QVERIFY2(error.description.contains(QString::fromUtf8(errorPart), Qt::CaseInsensitive), qPrintable(text));
        QVERIFY2(GridFileReader::verify(path("bad.grid")).isError(), name);
        QCOMPARE(contents(g), before);
    }

    // Files that cannot be opened or written are named in the error.
    DbError error = g.loadFromFile(path("no-such.grid"));
    QVERIFY2(error.isFileError() && error.description.contains(QLatin1String("no-such.grid")),
             qPrintable(error.description));
    error = g.saveToFile(path("missing-folder/x.grid"));
    QVERIFY2(error.isFileError() && error.description.contains(QLatin1String("x.grid")), qPrintable(error.description));
}

QTEST_GUILESS_MAIN(TestGridFile)
#include "test_gridfile.moc"
