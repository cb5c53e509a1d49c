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

class TestTableChecklist final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void optionsThenRunTickedInOrder();
};

void TestTableChecklist::optionsThenRunTickedInOrder()
{
    QWidget window;
    auto *list = new TableChecklist(qs("Checking Table "), sl({"t1", "t2", "t3", "bill"}), &window);
    window.show();
    const auto clickOption = [list](const char *name) {
        auto *option = list->findChild<QRadioButton *>(qs(name));
        QTest::mouseClick(option, Qt::LeftButton, {}, option->rect().center());
    };
    auto *lst = list->findChild<QListWidget *>(qs("lsttables"));
    lst->setCurrentRow(2);
    clickOption("optall");
    QCOMPARE(list->tickedTables(), sl({"t1", "t2", "t3", "bill"}));
    QCOMPARE(lst->currentRow(), 0);
    // A click on the option already set ticks everything again.
    list->setTicked(qs("t2"), false);
    clickOption("optall");
    QCOMPARE(list->tickedCount(), 4);
    clickOption("optdeselall");
    lst->item(1)->setCheckState(Qt::Checked);
    QCOMPARE(list->tickedTables(), sl({"t2"}));

    // The run walks the ticked tables in list order with the status line, on the progress page.
    list->setTicked(qs("t2"), false);
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
