// Compact column storage: what goes in comes out, across edits, nulls and compaction.
#include "db/textcolumn.h"
#include "testdb.h"

#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

class TestTextColumn final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void editsNullsAndResize();
    void lengthsOfEverySizeAcrossBlocks();
    void copiesShareUntilChanged();
};

// Edits, NULLs and resizing, then enough edits that the column compacts on its own.
void TestTextColumn::editsNullsAndResize()
{
    TextColumn c;
    const auto cells = [&c] { // every cell as its text, a NULL as \N
        QStringList texts;
        for (qsizetype i = 0; i < c.size(); ++i)
            texts << (c.isNull(i) ? qs("\\N") : c.text(i));
        return texts;
    };
    c.append(QString());
    c.append(qs("Müller, \"Łukasz\"\t\r\n"));
    c.appendNull();
    c.append(qs("last"));
    c.setText(2, qs("now set"));
    c.setNull(1);
    c.setText(3, qs("last, longer"));
    for (int pass = 0; pass < 2; ++pass, c.compact())
        QCOMPARE(cells(), sl({"", "\\N", "now set", "last, longer"}));

    // Shrinking keeps the edits of the cells that stay and forgets the others.
    c.setText(0, qs("A"));
    c.setText(2, qs("dropped"));
    c.resize(2);
    c.append(qs("z"));
    c.resize(4);
    QCOMPARE(cells(), sl({"A", "\\N", "z", ""}));

    // Enough edits to compact the column several times on the way.
    const int n = 20000;
    const auto expected = [](int i) { return i % 2 ? QString::number(i) : qs("e%1").arg(i); };
    for (int i = 4; i < n; ++i)
        c.append(QString::number(i));
    for (int i = 0; i < n; i += 2)
        c.setText(i, expected(i));
    for (int i = 4; i < n; ++i)
        if (c.text(i) != expected(i))
            QFAIL(qPrintable(qs("cell %1: %2").arg(i).arg(c.text(i))));
}

// Cell lengths that take one, two and three length bytes, nulls among them, read back across
// block boundaries, also after shrinking to sizes inside a block and growing again.
void TestTextColumn::lengthsOfEverySizeAcrossBlocks()
{
    const int lengths[] = {0, 1, 127, 128, 300, 16383, 16384, 70000, 5, 0};
    TextColumn c;
    std::vector<QByteArray> expected;
    const auto add = [&](int i) {
        const bool null = i % 13 == 7;
        expected.emplace_back(null ? 0 : lengths[i % 10], static_cast<char>('a' + i % 26));
        null ? c.appendNull() : c.append(QByteArrayView(expected.back()));
    };
    const auto check = [&] {
        QCOMPARE(c.size(), static_cast<qsizetype>(expected.size()));
        for (size_t i = 0; i < expected.size(); ++i) {
            QVERIFY2(c.utf8(static_cast<qsizetype>(i)) == QByteArrayView(expected[i]), qPrintable(QString::number(i)));
            QCOMPARE(c.isNull(static_cast<qsizetype>(i)), int(i) % 13 == 7);
        }
    };
    for (int i = 0; i < 100; ++i)
        add(i);
    check();
    for (const int size : {61, 48, 33, 1, 0}) {
        c.resize(size);
        expected.resize(static_cast<size_t>(size));
        check();
        for (int i = size; i < size + 20; ++i)
            add(i);
        check();
        c.resize(static_cast<qsizetype>(expected.size()));
    }
}

// A copy shares the storage; whichever side changes first gets its own, large buffers
// included (they grow by remapping and are faulted in ahead), and the other keeps its cells.
void TestTextColumn::copiesShareUntilChanged()
{
    TextColumn a;
    for (int i = 0; i < 40000; ++i) // about 400 KB of text
        a.append(QByteArrayView(QByteArray::number(i).repeated(2)));
    a.appendNull();
    TextColumn b = a;
    TextColumn c = a;
    b.append(qs("only in b"));
    c.resize(3);
    c.setText(1, qs("edited"));
    c.append(QByteArrayView(QByteArray(300000, 'x')));
    a.squeeze();
    QCOMPARE(a.size(), 40001);
    QCOMPARE(b.size(), 40002);
    QCOMPARE(c.size(), 4);
    for (const int i : {0, 1, 17, 39999}) {
        QCOMPARE(a.text(i), QString::number(i).repeated(2));
        QCOMPARE(b.text(i), a.text(i));
    }
    QVERIFY(a.isNull(40000) && b.isNull(40000) && !b.isNull(40001));
    QCOMPARE(b.text(40001), qs("only in b"));
    QCOMPARE(c.text(1), qs("edited"));
    QCOMPARE(c.text(2), qs("22"));
    QCOMPARE(c.byteLength(3), 300000);
    QVERIFY(!c.text(0).isNull()); // an empty-looking cell is empty text, never a null string
}

QTEST_APPLESS_MAIN(TestTextColumn)
#include "test_textcolumn.moc"
