// The window kit: a tool's own Escape handler, for its own keys only; the busy
// guard around a loop that yields; the progress view's bar and status; the shared table
// checklist's options and its loop's order. Filling the checklist from the server, the count
// check and a close during its loop are driven through the check and repair windows.
#include "operator.h"
#include "testdb.h"
#include "ui/progressview.h"
#include "ui/tablechecklist.h"
#include "ui/toolwindow.h"

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

namespace {

// A tool with a long loop started by a button, as check, backup or search tools have.
class LoopTool final : public QWidget {
public:
    LoopTool() : m_busy(this), m_bar(new QProgressBar(this)), m_status(new QLabel(this)), m_view(m_bar, m_status)
    {
        m_view.setBusyState(&m_busy);
        m_view.setFormat([](const QString &name, int i, int n) {
            return qs("Checking Table %1(%2 of %3)").arg(name).arg(i).arg(n);
        });
    }
    void run(int steps)
    {
        BusyGuard busy(m_busy);
        if (!busy)
            return;
        m_view.begin(steps);
        for (int i = 0; i < steps && !m_view.stopRequested(); ++i) {
            m_view.step(qs("t%1").arg(i));
            if (onStep)
                onStep(i);
        }
        m_view.end();
    }
    std::function<void(int)> onStep;
    BusyState m_busy;
    QProgressBar *m_bar;
    QLabel *m_status;
    ProgressView m_view;

protected:
    void closeEvent(QCloseEvent *event) override
    {
        if (m_busy.closeRequested())
            QWidget::closeEvent(event);
        else
            event->ignore();
    }
};

} // namespace

class TestToolWindow final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void escapeReachesTheToolFirst();
    void busyLoopIgnoresRestartAndDefersClose();
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

// A second start while the loop yields is ignored; a close during the loop stops it after the
// current step and closes the window once the loop has returned. The bar and status follow.
void TestToolWindow::busyLoopIgnoresRestartAndDefersClose()
{
    auto *tool = new LoopTool;
    tool->setAttribute(Qt::WA_DeleteOnClose);
    QPointer<LoopTool> alive(tool);
    tool->show();
    QStringList statuses;
    tool->onStep = [&](int i) {
        statuses << tool->m_status->text();
        if (i == 1)
            tool->run(5); // a click on Start while running
        if (i == 2) {
            QVERIFY(!tool->close());
            QVERIFY(alive); // still there: the loop owns it until it returns
        }
    };
    tool->run(5);
    QVERIFY(alive.isNull() || !alive->isVisible());
    QTRY_VERIFY(alive.isNull());

    LoopTool plain;
    plain.run(3);
    QCOMPARE(plain.m_bar->value(), 3);
    QCOMPARE(plain.m_status->text(), qs("Checking Table t2(3 of 3)"));
    QCOMPARE(statuses, sl({"Checking Table t0(1 of 5)", "Checking Table t1(2 of 5)", "Checking Table t2(3 of 5)"}));
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

QTEST_MAIN(TestToolWindow)
#include "test_toolwindow.moc"
