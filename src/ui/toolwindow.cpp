#include "ui/toolwindow.h"

#include "ui/dialogs.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMdiSubWindow>
#include <QWidget>

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
}

BusyGuard::~BusyGuard()
{
    if (!m_entered)
        return;
    m_state.m_busy = false;
    m_state.m_stop = false;
    if (m_state.m_closePending) {
        m_state.m_closePending = false;
        if (m_state.m_window)
            closeToolWindow(m_state.m_window);
    }
}

} // namespace tabulon
