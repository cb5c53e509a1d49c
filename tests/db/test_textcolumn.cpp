// Compact column storage: what goes in comes out, across edits, nulls and compaction.
#include "db/textcolumn.h"

#include <QTest>

using namespace tabulon;

class TestTextColumn final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void editsNullsAndResize();
    void manyEditsCompactOnTheirOwn();
};

void TestTextColumn::editsNullsAndResize()
{
    TextColumn c;
    c.append(QString());
    c.append(QStringLiteral("Müller, \"Łukasz\"\t\r\n"));
    c.appendNull();
    c.append(QStringLiteral("last"));
    c.setText(2, QStringLiteral("now set"));
    c.setNull(1);
    c.setText(3, QStringLiteral("last, longer"));
    for (int pass = 0; pass < 2; ++pass, c.compact()) {
        QVERIFY(!c.isNull(0));
        QCOMPARE(c.text(0), QString());
        QVERIFY(c.isNull(1));
        QVERIFY(!c.isNull(2));
        QCOMPARE(c.text(2), QStringLiteral("now set"));
        QCOMPARE(c.text(3), QStringLiteral("last, longer"));
    }

    // Shrinking keeps the edits of the cells that stay and forgets the others.
    c.setText(0, QStringLiteral("A"));
    c.setText(2, QStringLiteral("dropped"));
    c.resize(2);
    c.append(QStringLiteral("z"));
    c.resize(4);
    QCOMPARE(c.size(), 4);
    QCOMPARE(c.text(0), QStringLiteral("A"));
    QVERIFY(c.isNull(1));
    QCOMPARE(c.text(2), QStringLiteral("z"));
    QVERIFY(!c.isNull(3));
    QCOMPARE(c.text(3), QString());
}

void TestTextColumn::manyEditsCompactOnTheirOwn()
{
    // Enough edits to trigger compaction several times on the way.
    TextColumn c;
    const int n = 20000;
    for (int i = 0; i < n; ++i)
        c.append(QString::number(i));
    const auto expected = [](int i) { return i % 2 ? QString::number(i) : QStringLiteral("e%1").arg(i); };
    for (int i = 0; i < n; i += 2)
        c.setText(i, expected(i));
    for (int i = 0; i < n; ++i)
        if (c.text(i) != expected(i))
            QFAIL(qPrintable(QStringLiteral("cell %1: %2").arg(i).arg(c.text(i))));
}

QTEST_APPLESS_MAIN(TestTextColumn)
#include "test_textcolumn.moc"
