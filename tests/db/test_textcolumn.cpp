// Compact column storage: what goes in comes out, across edits, nulls and compaction.
#include "db/textcolumn.h"

#include <QTest>

using namespace tabulon;

class TestTextColumn final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void appendAndRead();
    void nullsAreNotEmptyText();
    void editsSurviveCompaction();
    void resizeKeepsAndDrops();
};

void TestTextColumn::appendAndRead()
{
    TextColumn c;
    const QStringList texts{QString(), QStringLiteral("a"), QStringLiteral("Müller, \"Łukasz\"\t\r\n"),
                            QString(5000, QLatin1Char('x')), QStringLiteral("O'Brien")};
    for (const auto &t : texts)
        c.append(t);
    QCOMPARE(c.size(), texts.size());
    for (qsizetype i = 0; i < texts.size(); ++i) {
        QCOMPARE(c.text(i), texts.at(i));
        QVERIFY(!c.isNull(i));
    }
}

void TestTextColumn::nullsAreNotEmptyText()
{
    TextColumn c;
    c.append(QStringLiteral("x"));
    c.appendNull();
    c.append(QString());
    QVERIFY(!c.isNull(0));
    QVERIFY(c.isNull(1));
    QVERIFY(!c.isNull(2));
    QCOMPARE(c.text(1), QString());
    c.setText(1, QStringLiteral("now set"));
    QVERIFY(!c.isNull(1));
    c.setNull(0);
    QVERIFY(c.isNull(0));
    c.compact();
    QVERIFY(c.isNull(0));
    QCOMPARE(c.text(1), QStringLiteral("now set"));
    QVERIFY(!c.isNull(2));
}

void TestTextColumn::editsSurviveCompaction()
{
    // Enough edits to trigger compaction several times on the way.
    TextColumn c;
    const int n = 20000;
    for (int i = 0; i < n; ++i)
        c.append(QString::number(i));
    for (int i = 0; i < n; i += 2)
        c.setText(i, QStringLiteral("e") + QString::number(i * 3));
    c.setText(n - 1, QStringLiteral("last"));
    for (int i = 0; i < n; ++i) {
        const QString expected = i == n - 1 ? QStringLiteral("last")
                                 : i % 2 == 0 ? QStringLiteral("e") + QString::number(i * 3)
                                              : QString::number(i);
        if (c.text(i) != expected)
            QFAIL(qPrintable(QStringLiteral("cell %1: %2 != %3").arg(i).arg(c.text(i), expected)));
    }
    c.compact();
    QCOMPARE(c.text(2), QStringLiteral("e6"));
    QCOMPARE(c.text(3), QStringLiteral("3"));
}

void TestTextColumn::resizeKeepsAndDrops()
{
    TextColumn c;
    c.append(QStringLiteral("a"));
    c.append(QStringLiteral("b"));
    c.setText(0, QStringLiteral("A"));
    c.resize(5);
    QCOMPARE(c.size(), 5);
    QCOMPARE(c.text(0), QStringLiteral("A"));
    QCOMPARE(c.text(4), QString());
    c.setText(4, QStringLiteral("tail"));
    c.resize(1);
    QCOMPARE(c.size(), 1);
    QCOMPARE(c.text(0), QStringLiteral("A"));
    c.append(QStringLiteral("z"));
    QCOMPARE(c.text(1), QStringLiteral("z"));
}

QTEST_APPLESS_MAIN(TestTextColumn)
#include "test_textcolumn.moc"
