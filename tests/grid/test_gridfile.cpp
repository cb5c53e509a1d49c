// The grid file form: exact round trips of awkward grids, the documented byte layout, and
// rejection of every kind of damaged or foreign file without touching the grid.
#include "grid/griddata.h"
#include "grid/gridfile.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <zlib.h>

#include <tuple>

using namespace tabulon;

namespace {

// The counts, the fixed parts and every cell row by row, for comparing whole grids.
QStringList contents(const GridData &g)
{
    QStringList out{QStringLiteral("%1 %2 %3 %4").arg(g.rows()).arg(g.cols()).arg(g.fixedRows()).arg(g.fixedCols())};
    for (int r = 0; r < g.rows(); ++r)
        for (int c = 0; c < g.cols(); ++c)
            out << g.text(r, c);
    return out;
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

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestGridFile final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void roundTrip();
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
        saved.setText(saved.rows() - 1, 0, QStringLiteral("edited"));
        GridData loaded;
        QString error;
        QVERIFY(filled(rows + 30, cols + 2, 1, 1).saveToFile(path("round.grid"), &error));
        QVERIFY2(saved.saveToFile(path("round.grid"), &error), qPrintable(error));
        QVERIFY2(loaded.loadFromFile(path("round.grid"), &error), qPrintable(error));
        QCOMPARE(contents(loaded), contents(saved));
    }
}

// Backups written today must stay readable, so the layout is pinned byte for byte.
void TestGridFile::byteLayout()
{
    GridData g;
    g.setFixedCols(0);
    g.setCols(2);
    g.setRows(2);
    g.setText(0, 0, QStringLiteral("ab"));
    g.setText(1, 0, QStringLiteral("ü"));
    g.setText(0, 1, QString(130, QLatin1Char('z')));
    QString error;
    QVERIFY2(g.saveToFile(path("layout.grid"), &error), qPrintable(error));

    // fixedRows 1, fixedCols 0, rows 2, cols 2
    QByteArray body = QByteArrayLiteral("TABULON-GRID 1\n") + QByteArray("\1\0\0\0\0\0\0\0\2\0\0\0\2\0\0\0", 16);
    body += QByteArrayLiteral("\x02") + "ab" + "\x02\xc3\xbc";    // column 0, top to bottom
    body += QByteArrayLiteral("\x82\x01") + QByteArray(130, 'z'); // 130 as a two-byte varint
    body += QByteArray(1, '\0') + "END\n";                        // the empty cell, the marker
    const quint32 crc = qToLittleEndian(static_cast<quint32>(
        crc32(0, reinterpret_cast<const Bytef *>(body.constData()), static_cast<uInt>(body.size()))));
    body.append(reinterpret_cast<const char *>(&crc), 4);
    QCOMPARE(readAll(path("layout.grid")), body);
}

// Every failed load says why and leaves the grid as it was.
void TestGridFile::rejected()
{
    const std::tuple<const char *, const char *, void (*)(QByteArray &)> cases[] = {
        {"zero length", "empty", [](QByteArray &b) { b.clear(); }},
        {"inside the magic line", "not a grid file", [](QByteArray &b) { b.truncate(9); }},
        {"magic without newline", "truncated", [](QByteArray &b) { b.truncate(14); }},
        {"inside the counts", "truncated", [](QByteArray &b) { b.truncate(25); }},
        {"inside the cells", "truncated", [](QByteArray &b) { b.chop(300); }},
        {"last byte missing", "truncated", [](QByteArray &b) { b.chop(1); }},
        {"flipped text byte", "checksum", [](QByteArray &b) { b[b.indexOf(QByteArray(40, 'x')) + 20] ^= 0x40; }},
        {"flipped end marker", "damaged", [](QByteArray &b) { b[b.size() - 6] ^= 0x40; }},
        {"flipped fixed-row count", "damaged", [](QByteArray &b) { b[15] ^= 0x40; }},
        {"row count far too large", "truncated or damaged", [](QByteArray &b) { b[26] ^= 0x40; }},
        {"bytes after the end", "after its end", [](QByteArray &b) { b += 'x'; }},
        {"text file", "not a grid file", [](QByteArray &b) { b = "name,age\r\nx,1\r\n"; }},
        {"newer version", "newer version", [](QByteArray &b) { b[13] = '2'; }},
        {"unknown old version", "unknown form", [](QByteArray &b) { b[13] = '0'; }},
    };
    QString error;
    QVERIFY2(filled(200, 4, 1, 1).saveToFile(path("good.grid"), &error), qPrintable(error));
    const QByteArray good = readAll(path("good.grid"));
    GridData g = filled(5, 3, 1, 0);
    const QStringList before = contents(g);
    for (const auto &[name, errorPart, damage] : cases) {
        QByteArray bytes = good;
        damage(bytes);
        QFile file(path("bad.grid"));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush());
        QVERIFY2(!g.loadFromFile(path("bad.grid"), &error), name);
        QVERIFY2(error.contains(QString::fromUtf8(errorPart), Qt::CaseInsensitive),
                 qPrintable(QStringLiteral("%1: %2").arg(QString::fromUtf8(name), error)));
        QCOMPARE(contents(g), before);
    }

    // Files that cannot be opened or written are named in the error.
    QVERIFY(!g.loadFromFile(path("no-such.grid"), &error));
    QVERIFY2(error.contains(QLatin1String("no-such.grid")), qPrintable(error));
    QVERIFY(!g.saveToFile(path("missing-folder/x.grid"), &error));
    QVERIFY2(error.contains(QLatin1String("x.grid")), qPrintable(error));
}

QTEST_GUILESS_MAIN(TestGridFile)
#include "test_gridfile.moc"
