// The shared table checklist: the two options, the loop's order and status line, and a close
// during the loop. Filling from the server and the count check are driven through the check
// and repair windows.
#include "operator.h"
#include "testdb.h"
#include "ui/tablechecklist.h"

#include <QCloseEvent>
#include <QDialog>
#include <QLabel>
#include <QListWidget>
#include <QPointer>
#include <QProgressBar>
#include <QRadioButton>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

namespace {

// A tool window the way tools hold the checklist: a close during a run is deferred.
class Tool final : public QDialog {
public:
    explicit Tool(const QStringList &tables) : list(new TableChecklist(qs("Checking Table "), tables, this))
    {
        setAttribute(Qt::WA_DeleteOnClose);
    }
    TableChecklist *list;

protected:
    void closeEvent(QCloseEvent *event) override
    {
        if (!list->busy().closeRequested()) {
            event->ignore();
            return;
        }
        QDialog::closeEvent(event);
    }
};

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
    void closeDuringRunStopsThenCloses();
};

void TestTableChecklist::optionsTickAndUntick()
{
    Tool tool(sl({"t1", "t2", "t3"}));
    tool.show();
    auto *lst = tool.findChild<QListWidget *>(qs("lsttables"));
    QCOMPARE(tool.findChild<QRadioButton *>(qs("optall"))->text(), qs("Select All"));
    QCOMPARE(tool.findChild<QRadioButton *>(qs("optdeselall"))->text(), qs("Deselect All"));

    lst->setCurrentRow(2);
    clickOption(*tool.list, "optall");
    QCOMPARE(tool.list->tickedTables(), sl({"t1", "t2", "t3"}));
    QCOMPARE(lst->currentRow(), 0);

    // A click on the option already set ticks everything again.
    tool.list->setTicked(qs("t2"), false);
    clickOption(*tool.list, "optall");
    QCOMPARE(tool.list->tickedCount(), 3);

    clickOption(*tool.list, "optdeselall");
    QCOMPARE(tool.list->tickedCount(), 0);
    lst->item(1)->setCheckState(Qt::Checked);
    QCOMPARE(tool.list->tickedTables(), sl({"t2"}));
}

void TestTableChecklist::runWalksTickedInOrderWithStatus()
{
    Operator op;
    Tool tool(sl({"t1", "t2", "t3", "bill"}));
    tool.show();
    tool.list->setTicked(qs("t1"), true);
    tool.list->setTicked(qs("t3"), true);
    tool.list->setTicked(qs("bill"), true);
    auto *status = tool.findChild<QLabel *>(qs("lblcopying"));
    auto *bar = tool.findChild<QProgressBar *>(qs("pb1"));

    QStringList seen;
    QStringList statuses;
    const auto result = tool.list->run([&](const QString &table) {
        seen << table;
        statuses << status->text();
        QVERIFY(tool.list->progressPage()->isVisible());
        QVERIFY(!tool.list->selectionPage()->isVisible());
    });
    QCOMPARE(result, TableChecklist::Run::Finished);
    QCOMPARE(seen, sl({"t1", "t3", "bill"}));
    QCOMPARE(statuses, sl({"Checking Table t1(1 of 3)", "Checking Table t3(2 of 3)", "Checking Table bill(3 of 3)"}));
    QCOMPARE(bar->maximum(), 3);
    QCOMPARE(bar->value(), 3);
    QVERIFY(op.told.isEmpty());

    tool.list->showSelectionPage();
    QVERIFY(tool.list->selectionPage()->isVisible());
    QCOMPARE(tool.list->tickedCount(), 3);
}

void TestTableChecklist::closeDuringRunStopsThenCloses()
{
    Operator op;
    QPointer<Tool> tool = new Tool(sl({"t1", "t2", "t3"}));
    tool->show();
    tool->list->selectAll();
    QStringList seen;
    int reentered = 0;
    const auto result = tool->list->run([&](const QString &table) {
        seen << table;
        // A second start while running is ignored.
        if (tool->list->run([&](const QString &) { ++reentered; }) != TableChecklist::Run::AlreadyRunning)
            ++reentered;
        tool->close();
        QVERIFY(tool->isVisible());
    });
    QCOMPARE(result, TableChecklist::Run::Stopped);
    QCOMPARE(seen, sl({"t1"}));
    QCOMPARE(reentered, 0);
    QTRY_VERIFY(tool.isNull());
}

QTEST_MAIN(TestTableChecklist)
#include "test_tablechecklist.moc"
