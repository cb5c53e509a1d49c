// The grid file form: exact round trips of awkward grids, the documented byte layout, and
// rejection of every kind of damaged or foreign file without touching the grid.
#include "grid/griddata.h"
#include "grid/gridfile.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <zlib.h>

using namespace tabulon;

namespace {

using Damage = void (*)(QByteArray &bytes);

QList<QStringList> contents(const GridData &g)
{
    QList<QStringList> out;
    for (int r = 0; r < g.rows(); ++r) {
        QStringList row;
        for (int c = 0; c < g.cols(); ++c)
            row << g.text(r, c);
        out << row;
    }
    return out;
}

// Deterministic texts with everything a delimited format would stumble over; the last
// piece stands for a long text.
GridData filled(int rows, int cols, int fixedRows, int fixedCols)
{
    static const char *const pieces[] = {
        "",         ",",     "\"quoted\"",       "O'Brien", "tab\there", "line\r\nbreak", "lf\nonly", "Grüße, 東京 😀",
        " padded ", "END\n", "TABULON-GRID 1\n", nullptr};
    GridData g;
    g.setFixedRows(fixedRows);
    g.setFixedCols(fixedCols);
    g.setCols(cols);
    g.setRows(rows);
    for (int c = 0; c < cols; ++c) {
        g.setColumnTexts(c, 0, rows - 1, [c](int r) {
            const char *piece = pieces[(r * 7 + c * 3) % 12];
            const QString text = piece ? QString::fromUtf8(piece) : QString(200, QLatin1Char('x'));
            return r % 5 == 0 ? text : text + QString::number(r * 1000 + c);
        });
    }
    return g;
}

} // namespace

Q_DECLARE_METATYPE(Damage)

class TestGridFile final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void roundTrip_data();
    void roundTrip();
    void byteLayout();
    void damaged_data();
    void damaged();
    void fileErrors();

private:
    QTemporaryDir m_dir;
    QString path(const char *name) const { return m_dir.filePath(QString::fromUtf8(name)); }
};

void TestGridFile::roundTrip_data()
{
    QTest::addColumn<int>("rows");
    QTest::addColumn<int>("cols");
    QTest::addColumn<int>("fixedRows");
    QTest::addColumn<int>("fixedCols");
    QTest::newRow("empty 0x0") << 0 << 0 << 1 << 1;
    QTest::newRow("rows without columns, nothing fixed") << 4 << 0 << 0 << 0;
    QTest::newRow("header only") << 1 << 5 << 1 << 1;
    QTest::newRow("wide 300 columns") << 3 << 300 << 1 << 0;
    QTest::newRow("tall 20000 rows, no header row") << 20000 << 3 << 0 << 1;
}

// Sorted and edited grids are saved in their row order, without the cells of removed rows.
void TestGridFile::roundTrip()
{
    QFETCH(int, rows);
    QFETCH(int, cols);
    QFETCH(int, fixedRows);
    QFETCH(int, fixedCols);
    GridData saved = filled(rows, cols, fixedRows, fixedCols);
    saved.sort(cols - 1, 2);
    saved.removeRow(1);
    saved.setText(saved.rows() - 1, 0, QStringLiteral("edited"));
    QString error;
    // A longer file already there must be replaced whole.
    QVERIFY(filled(rows + 30, cols + 2, 1, 1).saveToFile(path("round.grid"), &error));
    QVERIFY2(saved.saveToFile(path("round.grid"), &error), qPrintable(error));

    GridData loaded;
    QVERIFY2(loaded.loadFromFile(path("round.grid"), &error), qPrintable(error));
    QCOMPARE(loaded.cols(), cols);
    QCOMPARE(loaded.fixedRows(), fixedRows);
    QCOMPARE(loaded.fixedCols(), fixedCols);
    QCOMPARE(contents(loaded), contents(saved));
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
    QFile file(path("layout.grid"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), body);
}

void TestGridFile::damaged_data()
{
    QTest::addColumn<Damage>("damage");
    QTest::addColumn<QString>("errorPart");
    const auto row = [](const char *name, const char *errorPart, Damage damage) {
        QTest::newRow(name) << damage << QString::fromUtf8(errorPart);
    };
    row("zero length", "empty", [](QByteArray &b) { b.clear(); });
    row("inside the magic line", "not a grid file", [](QByteArray &b) { b.truncate(9); });
    row("magic without newline", "truncated", [](QByteArray &b) { b.truncate(14); });
    row("inside the counts", "truncated", [](QByteArray &b) { b.truncate(25); });
    row("inside the cells", "truncated", [](QByteArray &b) { b.chop(300); });
    row("before the end marker", "truncated", [](QByteArray &b) { b.chop(8); });
    row("last byte missing", "truncated", [](QByteArray &b) { b.chop(1); });
    row("flipped text byte", "checksum", [](QByteArray &b) { b[b.indexOf(QByteArray(40, 'x')) + 20] ^= 0x40; });
    row("flipped end marker", "damaged", [](QByteArray &b) { b[b.size() - 6] ^= 0x40; });
    row("flipped fixed-row count", "damaged", [](QByteArray &b) { b[15] ^= 0x40; });
    row("row count far too large", "truncated or damaged", [](QByteArray &b) { b[26] ^= 0x40; });
    row("bytes after the end", "after its end", [](QByteArray &b) { b += 'x'; });
    row("text file", "not a grid file", [](QByteArray &b) { b = "name,age\r\nx,1\r\n"; });
    row("newer version", "newer version", [](QByteArray &b) { b[13] = '2'; });
    row("unknown old version", "unknown form", [](QByteArray &b) { b[13] = '0'; });
}

void TestGridFile::damaged()
{
    QFETCH(Damage, damage);
    QFETCH(QString, errorPart);
    QString error;
    QVERIFY2(filled(200, 4, 1, 1).saveToFile(path("bad.grid"), &error), qPrintable(error));
    QFile file(path("bad.grid"));
    QVERIFY(file.open(QIODevice::ReadWrite));
    QByteArray bytes = file.readAll();
    damage(bytes);
    QVERIFY(file.resize(0) && file.seek(0) && file.write(bytes) == bytes.size());
    file.close();

    GridData g = filled(5, 3, 1, 0);
    g.sort(1, 1);
    const QList<QStringList> before = contents(g);
    QVERIFY(!g.loadFromFile(path("bad.grid"), &error));
    QVERIFY2(error.contains(errorPart, Qt::CaseInsensitive), qPrintable(error));
    QCOMPARE(contents(g), before);
    QCOMPARE(g.fixedCols(), 0);
}

void TestGridFile::fileErrors()
{
    GridData g;
    QString error;
    QVERIFY(!g.loadFromFile(path("no-such.grid"), &error));
    QVERIFY2(error.contains(QLatin1String("no-such.grid")), qPrintable(error));
    error.clear();
    QVERIFY(!g.saveToFile(path("missing-folder/x.grid"), &error));
    QVERIFY(!error.isEmpty());
}

QTEST_GUILESS_MAIN(TestGridFile)
#include "test_gridfile.moc"
