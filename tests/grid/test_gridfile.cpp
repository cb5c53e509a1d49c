// The grid file form: exact round trips of awkward grids, the documented byte layout, and
// rejection of every kind of damaged or foreign file without touching the grid.
#include "grid/griddata.h"
#include "grid/gridfile.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <zlib.h>

using namespace tabulon;

namespace {

using Table = QList<QStringList>;

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

// Deterministic texts that include everything a delimited format would stumble over.
QString awkward(int r, int c)
{
    static const QStringList pieces{QString(),
                                    QStringLiteral(","),
                                    QStringLiteral("\"quoted\""),
                                    QStringLiteral("O'Brien"),
                                    QStringLiteral("tab\there"),
                                    QStringLiteral("line\r\nbreak"),
                                    QStringLiteral("lf\nonly"),
                                    QStringLiteral("Grüße, 東京 😀"),
                                    QStringLiteral(" padded "),
                                    QStringLiteral("END\n"),
                                    QStringLiteral("TABULON-GRID 1\n"),
                                    QString(200, QLatin1Char('x'))};
    return pieces[(r * 7 + c * 3) % pieces.size()] + (r % 5 == 0 ? QString() : QString::number(r * 1000 + c));
}

GridData filled(int rows, int cols, int fixedRows, int fixedCols)
{
    GridData g;
    g.setFixedRows(fixedRows);
    g.setFixedCols(fixedCols);
    g.setCols(cols);
    g.setRows(rows);
    for (int c = 0; c < cols; ++c)
        g.setColumnTexts(c, 0, rows - 1, [c](int r) { return awkward(r, c); });
    return g;
}

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool writeAll(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

QByteArray le32(quint32 v)
{
    QByteArray b(4, '\0');
    for (int i = 0; i < 4; ++i)
        b[i] = char((v >> (8 * i)) & 0xFF);
    return b;
}

QByteArray withCrc(const QByteArray &body)
{
    return body + le32(static_cast<quint32>(
                      crc32(0, reinterpret_cast<const Bytef *>(body.constData()), static_cast<uInt>(body.size()))));
}

} // namespace

class TestGridFile final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void roundTrip_data();
    void roundTrip();
    void roundTripKeepsSortedOrderAndEdits();
    void byteLayout();
    void damaged_data();
    void damaged();
    void missingFile();
    void unwritablePath();
    void smallerSaveReplacesWholeFile();

private:
    QTemporaryDir m_dir;
    QString path(const QString &name) const { return m_dir.filePath(name); }
};

void TestGridFile::initTestCase()
{
    QVERIFY(m_dir.isValid());
}

void TestGridFile::roundTrip_data()
{
    QTest::addColumn<int>("rows");
    QTest::addColumn<int>("cols");
    QTest::addColumn<int>("fixedRows");
    QTest::addColumn<int>("fixedCols");
    QTest::newRow("empty 0x0") << 0 << 0 << 1 << 1;
    QTest::newRow("rows without columns") << 4 << 0 << 1 << 0;
    QTest::newRow("header only") << 1 << 5 << 1 << 1;
    QTest::newRow("one cell, nothing fixed") << 1 << 1 << 0 << 0;
    QTest::newRow("small awkward") << 13 << 4 << 1 << 1;
    QTest::newRow("wide 300 columns") << 3 << 300 << 1 << 0;
    QTest::newRow("tall 20000 rows") << 20000 << 3 << 1 << 1;
}

void TestGridFile::roundTrip()
{
    QFETCH(int, rows);
    QFETCH(int, cols);
    QFETCH(int, fixedRows);
    QFETCH(int, fixedCols);
    const GridData saved = filled(rows, cols, fixedRows, fixedCols);
    const QString file = path(QStringLiteral("round.grid"));
    QString error;
    QVERIFY2(saved.saveToFile(file, &error), qPrintable(error));

    GridData loaded;
    loaded.setCols(7); // anything different from what the file holds
    QVERIFY2(loaded.loadFromFile(file, &error), qPrintable(error));
    QCOMPARE(loaded.rows(), rows);
    QCOMPARE(loaded.cols(), cols);
    QCOMPARE(loaded.fixedRows(), fixedRows);
    QCOMPARE(loaded.fixedCols(), fixedCols);
    QCOMPARE(contents(loaded), contents(saved));
}

void TestGridFile::roundTripKeepsSortedOrderAndEdits()
{
    GridData g = filled(3000, 3, 1, 1);
    g.setColumnTexts(1, 1, 2999, [](int r) { return QString::number((r * 37) % 101); });
    g.sort(1, 2);
    g.setText(5, 2, QStringLiteral("edited"));
    g.removeRow(7);
    g.insertRow(3);
    const QString file = path(QStringLiteral("sorted.grid"));
    QString error;
    QVERIFY2(g.saveToFile(file, &error), qPrintable(error));
    GridData loaded;
    QVERIFY2(loaded.loadFromFile(file, &error), qPrintable(error));
    QCOMPARE(contents(loaded), contents(g));
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
    const QString file = path(QStringLiteral("layout.grid"));
    QString error;
    QVERIFY2(g.saveToFile(file, &error), qPrintable(error));

    QByteArray body = QByteArrayLiteral("TABULON-GRID 1\n");
    body += le32(1) + le32(0) + le32(2) + le32(2);
    body += QByteArrayLiteral("\x02"
                              "ab") +
            QByteArrayLiteral("\x02\xc3\xbc");                    // column 0, top to bottom
    body += QByteArrayLiteral("\x82\x01") + QByteArray(130, 'z'); // 130 as a two-byte varint
    body += QByteArray(1, '\0');                                  // the empty cell
    body += QByteArrayLiteral("END\n");
    QCOMPARE(readAll(file), withCrc(body));
}

void TestGridFile::damaged_data()
{
    QTest::addColumn<QString>("damage");
    QTest::addColumn<QString>("errorPart");
    QTest::newRow("zero length") << "truncate 0"
                                 << "empty";
    QTest::newRow("inside the magic line") << "truncate 9"
                                           << "not a grid file";
    QTest::newRow("magic without newline") << "truncate 14"
                                           << "truncated";
    QTest::newRow("after the magic line") << "truncate 15"
                                          << "truncated";
    QTest::newRow("inside the counts") << "truncate 25"
                                       << "truncated";
    QTest::newRow("after the counts") << "truncate 31"
                                      << "truncated";
    QTest::newRow("counts claim more than the size") << "truncate 600"
                                                     << "truncated or damaged";
    QTest::newRow("inside the cells") << "truncate -300"
                                      << "truncated";
    QTest::newRow("before the end marker") << "truncate -8"
                                           << "truncated";
    QTest::newRow("before the checksum") << "truncate -4"
                                         << "truncated";
    QTest::newRow("last byte missing") << "truncate -1"
                                       << "truncated";
    QTest::newRow("flipped text byte") << "flipin xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"
                                       << "checksum";
    QTest::newRow("flipped checksum byte") << "flip -2"
                                           << "checksum";
    QTest::newRow("flipped end marker") << "flip -6"
                                        << "damaged";
    QTest::newRow("flipped fixed-row count") << "flip 15"
                                             << "damaged";
    QTest::newRow("row count far too large") << "flip 26"
                                             << "truncated or damaged";
    QTest::newRow("bytes after the end") << "append x"
                                         << "after its end";
    QTest::newRow("wrong magic") << "replace TABULON-GRID|TABULON-GRIT"
                                 << "not a grid file";
    QTest::newRow("text file") << "whole name,age\r\nx,1\r\n"
                               << "not a grid file";
    QTest::newRow("newer version") << "replace GRID 1\n|GRID 2\n"
                                   << "newer version";
    QTest::newRow("unknown old version") << "replace GRID 1\n|GRID 0\n"
                                         << "unknown form";
}

void TestGridFile::damaged()
{
    QFETCH(QString, damage);
    QFETCH(QString, errorPart);
    const QString good = path(QStringLiteral("good.grid"));
    QString error;
    QVERIFY2(filled(200, 4, 1, 1).saveToFile(good, &error), qPrintable(error));
    QByteArray bytes = readAll(good);
    QVERIFY(bytes.size() > 1000);

    const qsizetype space = damage.indexOf(QLatin1Char(' '));
    const QString how = damage.left(space);
    const QString arg = damage.mid(space + 1);
    const auto offset = [&bytes](const QString &n) {
        return n.toLongLong() < 0 ? bytes.size() + n.toLongLong() : n.toLongLong();
    };
    if (how == QLatin1String("truncate")) {
        bytes.truncate(offset(arg));
    } else if (how == QLatin1String("flip")) {
        const qsizetype at = offset(arg);
        bytes[at] = char(bytes[at] ^ 0x40);
    } else if (how == QLatin1String("flipin")) {
        const qsizetype at = bytes.indexOf(arg.toUtf8()) + arg.size() / 2;
        QVERIFY(at > 100);
        bytes[at] = char(bytes[at] ^ 0x40);
    } else if (how == QLatin1String("append")) {
        bytes += arg.toUtf8();
    } else if (how == QLatin1String("replace")) {
        const QStringList p = arg.split(QLatin1Char('|'));
        bytes.replace(p[0].toUtf8(), p[1].toUtf8());
    } else {
        bytes = arg.toUtf8();
    }
    const QString bad = path(QStringLiteral("bad.grid"));
    QVERIFY(writeAll(bad, bytes));

    GridData g = filled(5, 3, 1, 0);
    g.sort(1, 1);
    const Table before = contents(g);
    error.clear();
    QVERIFY(!g.loadFromFile(bad, &error));
    QVERIFY2(error.contains(errorPart, Qt::CaseInsensitive), qPrintable(error));
    QCOMPARE(contents(g), before);
    QCOMPARE(g.fixedRows(), 1);
    QCOMPARE(g.fixedCols(), 0);
}

void TestGridFile::missingFile()
{
    GridData g = filled(3, 2, 1, 1);
    QString error;
    QVERIFY(!g.loadFromFile(path(QStringLiteral("no-such.grid")), &error));
    QVERIFY(error.contains(QLatin1String("no-such.grid")));
    QCOMPARE(contents(g), contents(filled(3, 2, 1, 1)));
}

void TestGridFile::unwritablePath()
{
    QString error;
    QVERIFY(!filled(3, 2, 1, 1).saveToFile(path(QStringLiteral("missing-folder/x.grid")), &error));
    QVERIFY(!error.isEmpty());
}

void TestGridFile::smallerSaveReplacesWholeFile()
{
    const QString file = path(QStringLiteral("replace.grid"));
    QString error;
    QVERIFY(filled(500, 6, 1, 1).saveToFile(file, &error));
    const GridData small = filled(2, 2, 0, 0);
    QVERIFY(small.saveToFile(file, &error));
    GridData loaded;
    QVERIFY2(loaded.loadFromFile(file, &error), qPrintable(error));
    QCOMPARE(contents(loaded), contents(small));
}

QTEST_GUILESS_MAIN(TestGridFile)
#include "test_gridfile.moc"
