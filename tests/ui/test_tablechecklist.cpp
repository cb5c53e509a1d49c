// The shared table checklist: the two options, and the loop's order and status line. Filling
// from the server, the count check and a close during the loop are driven through the check
// and repair windows.
#include "testdb.h"
#include "ui/tablechecklist.h"

#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QRadioButton>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

namespace {

void clickOption(TableChecklist &list, const char *name)
{
    auto *option = list.findChild<QRadioButton *>(qs(name));
    QTest::mouseClick(option, Qt::LeftButton, {}, option->rect().center());
}

} // namespace

class TestTableChecklist final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void optionsTickAndUntick();
    void runWalksTickedInOrderWithStatus();
};

void TestTableChecklist::optionsTickAndUntick()
{
    QWidget window;
    auto *list = new TableChecklist(qs("Checking Table "), sl({"t1", "t2", "t3"}), &window);
    window.show();
    auto *lst = list->findChild<QListWidget *>(qs("lsttables"));
    lst->setCurrentRow(2);
    clickOption(*list, "optall");
    QCOMPARE(list->tickedTables(), sl({"t1", "t2", "t3"}));
    QCOMPARE(lst->currentRow(), 0);

    // A click on the option already set ticks everything again.
    list->setTicked(qs("t2"), false);
    clickOption(*list, "optall");
    QCOMPARE(list->tickedCount(), 3);

    clickOption(*list, "optdeselall");
    lst->item(1)->setCheckState(Qt::Checked);
    QCOMPARE(list->tickedTables(), sl({"t2"}));
}

void TestTableChecklist::runWalksTickedInOrderWithStatus()
{
    QWidget window;
    auto *list = new TableChecklist(qs("Checking Table "), sl({"t1", "t2", "t3", "bill"}), &window);
    window.show();
    for (const char *table : {"t1", "t3", "bill"})
        list->setTicked(qs(table), true);
    auto *status = list->findChild<QLabel *>(qs("lblcopying"));
    QStringList seen;
    const auto result = list->run([&](const QString &table) {
        seen << table + QLatin1Char(' ') + status->text();
        QVERIFY(list->progressPage()->isVisible() && !list->selectionPage()->isVisible());
        // A second start while running is refused.
        QCOMPARE(list->run([&](const QString &) { seen << qs("again"); }), TableChecklist::Run::AlreadyRunning);
    });
    QCOMPARE(result, TableChecklist::Run::Finished);
    QCOMPARE(seen,
             sl({"t1 Checking Table t1(1 of 3)", "t3 Checking Table t3(2 of 3)", "bill Checking Table bill(3 of 3)"}));
    QCOMPARE(list->findChild<QProgressBar *>(qs("pb1"))->value(), 3);
}

QTEST_MAIN(TestTableChecklist)
#include "test_tablechecklist.moc"
