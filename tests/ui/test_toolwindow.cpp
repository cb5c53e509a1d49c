// The window kit: a tool's own Escape handler, for its own keys only; the shared table
// checklist's options, and its loop (the busy guard around it, the progress view's bar and
// status, the order of the ticked tables). Filling the checklist from the server, the count
// check and a close during its loop are driven through the check and repair windows.
#include "operator.h"
#include "testdb.h"
#include "ui/tablechecklist.h"
#include "ui/toolwindow.h"

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

class TestToolWindow final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void escapeReachesTheToolFirst();
    void checklistOptionsThenRunTickedInOrder();
};

// A tool given its own Escape handler (an exit question) runs that instead of closing, for its
// own keys only. (Escape closing a tool from an open cell editor, in its MDI frame: the table
// data window's test.)
void TestToolWindow::escapeReachesTheToolFirst()
{
    Operator op;
    op.answer = Dialogs::Answer::No;
    QWidget asking;
    auto *button = new QPushButton(&asking);
    new KeyPreview(&asking, [&asking] {
        if (confirmExit(&asking))
            asking.close();
    });
    asking.show();
    QTest::keyClick(button, Qt::Key_Escape);
    QCOMPARE(op.asked, sl({"Are you sure you want to exit?"}));
    QCOMPARE(op.prompts.last().buttons, Dialogs::Buttons::YesNo);
    QVERIFY(asking.isVisible());
    op.answer = Dialogs::Answer::Yes;
    QLineEdit elsewhere; // another window's control: not this tool's key
    elsewhere.show();
    QTest::keyClick(&elsewhere, Qt::Key_Escape);
    QCOMPARE(op.asked.size(), 1);
    QTest::keyClick(button, Qt::Key_Escape);
    QVERIFY(!asking.isVisible());
}

void TestToolWindow::checklistOptionsThenRunTickedInOrder()
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

    // The run walks the ticked tables in list order with the status line, on the progress page;
    // the busy guard refuses a second start while it yields.
    list->setTicked(qs("t2"), false);
    for (const char *table : {"t1", "t3", "bill"})
        list->setTicked(qs(table), true);
    auto *status = list->findChild<QLabel *>(qs("lblcopying"));
    QStringList seen;
    const auto result = list->run([&](const QString &table) {
        seen << table + QLatin1Char(' ') + status->text();
        QVERIFY(list->progressPage()->isVisible() && !list->selectionPage()->isVisible());
        QCOMPARE(list->run([&](const QString &) { seen << qs("again"); }), TableChecklist::Run::AlreadyRunning);
    });
    QCOMPARE(result, TableChecklist::Run::Finished);
    QCOMPARE(seen,
             sl({"t1 Checking Table t1(1 of 3)", "t3 Checking Table t3(2 of 3)", "bill Checking Table bill(3 of 3)"}));
    QCOMPARE(list->findChild<QProgressBar *>(qs("pb1"))->value(), 3);
}

QTEST_MAIN(TestToolWindow)
#include "test_toolwindow.moc"
