#include "ui/toolwindow.h"

#include "ui/dialogs.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMdiSubWindow>
#include <QPushButton>
#include <QTimer>
#include <QWidget>

#include <algorithm>
#include <utility>
#include <vector>

namespace tabulon {

void closeToolWindow(QWidget *tool)
{
    if (!tool)
        return;
    if (auto *frame = qobject_cast<QMdiSubWindow *>(tool->parentWidget())) {
        frame->close();
        return;
    }
    tool->close();
}

bool confirmExit(QWidget *parent)
{
    return Dialogs::ask(parent, QStringLiteral("Are you sure you want to exit?"), Dialogs::Buttons::YesNo) ==
           Dialogs::Answer::Yes;
}

void exitOnConfirm(QAbstractButton *button, QWidget *tool)
{
    QObject::connect(button, &QAbstractButton::clicked, tool, [tool] {
        if (confirmExit(tool))
            closeToolWindow(tool);
    });
}

void noDefaultButtons(QWidget *window)
{
    for (QPushButton *button : window->findChildren<QPushButton *>()) {
        button->setAutoDefault(false);
        button->setDefault(false);
    }
}

KeyPreview::KeyPreview(QWidget *tool, std::function<void()> onEscape)
    : QObject(tool), m_tool(tool), m_onEscape(std::move(onEscape))
{
    // The application sees every key event before its receiver, editors in item views
    // included, which is what a window that previews keys needs.
    qApp->installEventFilter(this);
}

KeyPreview::~KeyPreview()
{
    if (qApp)
        qApp->removeEventFilter(this);
}

bool KeyPreview::eventFilter(QObject *watched, QEvent *event)
{
    const QEvent::Type type = event->type();
    if (type != QEvent::KeyPress && type != QEvent::ShortcutOverride)
        return false;
    if (static_cast<QKeyEvent *>(event)->key() != Qt::Key_Escape)
        return false;
    auto *widget = qobject_cast<QWidget *>(watched);
    if (!widget || (widget != m_tool && !m_tool->isAncestorOf(widget)))
        return false;
    // A window of its own inside the tool (a message box, a menu) handles its own Escape.
    if (widget->window() != m_tool->window())
        return false;
    if (type == QEvent::ShortcutOverride) {
        // Claim the key so that no shortcut takes it; the key press follows.
        event->accept();
        return true;
    }
    if (m_onEscape)
        m_onEscape();
    else
        closeToolWindow(m_tool);
    return true;
}

namespace {

// Everything runs on the one user-interface thread.
std::vector<BusyState *> &runningStates()
{
    static std::vector<BusyState *> states;
    return states;
}

struct Waiter final {
    QPointer<QObject> context;
    std::function<void()> then;
};

std::vector<Waiter> &waiters()
{
    static std::vector<Waiter> list;
    return list;
}

void callWaiters()
{
    // A loop started meanwhile: its own end calls again.
    if (RunningLoops::any())
        return;
    std::vector<Waiter> due = std::exchange(waiters(), {});
    for (Waiter &w : due) {
        if (w.context)
            w.then();
    }
}

} // namespace

bool RunningLoops::any()
{
    return !runningStates().empty();
}

void RunningLoops::stopAll()
{
    for (BusyState *state : runningStates())
        state->requestStop();
}

void RunningLoops::whenNoneRuns(QObject *context, std::function<void()> then)
{
    if (!any()) {
        then();
        return;
    }
    waiters().push_back(Waiter{context, std::move(then)});
}

bool BusyState::closeRequested()
{
    if (!m_busy)
        return true;
    m_stop = true;
    m_closePending = true;
    return false;
}

BusyGuard::BusyGuard(BusyState &state) : m_state(state), m_entered(!state.m_busy)
{
    if (!m_entered)
        return;
    m_state.m_busy = true;
    m_state.m_stop = false;
    m_state.m_closePending = false;
    runningStates().push_back(&m_state);
}

BusyGuard::~BusyGuard()
{
    if (!m_entered)
        return;
    m_state.m_busy = false;
    m_state.m_stop = false;
    auto &running = runningStates();
    running.erase(std::remove(running.begin(), running.end(), &m_state), running.end());
    // The loop's caller is still on the stack and may still use its session: whoever waits
    // for the loops hears of their end from the event loop.
    if (running.empty() && !waiters().empty())
        QTimer::singleShot(0, qApp, callWaiters);
    if (m_state.m_closePending) {
        m_state.m_closePending = false;
        if (m_state.m_window)
            closeToolWindow(m_state.m_window);
    }
}

} // namespace tabulon
