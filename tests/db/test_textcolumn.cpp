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
    void manyEditsCompactOnTheirOwn();
    void lengthsOfEverySizeAcrossBlocks();
};

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
}

void TestTextColumn::manyEditsCompactOnTheirOwn()
{
    // Enough edits to trigger compaction several times on the way.
    TextColumn c;
    const int n = 20000;
    for (int i = 0; i < n; ++i)
        c.append(QString::number(i));
    const auto expected = [](int i) { return i % 2 ? QString::number(i) : qs("e%1").arg(i); };
    for (int i = 0; i < n; i += 2)
        c.setText(i, expected(i));
    for (int i = 0; i < n; ++i)
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

QTEST_APPLESS_MAIN(TestTextColumn)
#include "test_textcolumn.moc"
