// The behaviour every tool window shares: Escape closes it from whichever control has the
// focus (open cell editors included, since the window sees keys first), optionally behind the
// exit question, and a busy state that makes a second click on a running command a no-op and
// turns a close during a long loop into a stop followed by the close.
#pragma once

#include "db/progress.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QWidget>

#include <functional>

class QAbstractButton;

namespace tabulon {

// Closes a tool window: its frame inside the main window when it has one, else the window.
void closeToolWindow(QWidget *tool);

// "Are you sure you want to exit?" with Yes and No; true for Yes.
bool confirmExit(QWidget *parent);
// Makes `button` the tool's exit: a click asks the exit question and Yes closes the tool.
void exitOnConfirm(QAbstractButton *button, QWidget *tool);

// Takes the default role from every push button in `window`: Enter typed in a list or a text
// box of a tool dialog must not start its work (a check, a restore, a conversion). Call once
// the buttons exist, before the window is shown.
void noDefaultButtons(QWidget *window);

// Sees every key press meant for `tool` or any widget inside it before that widget does.
// Escape calls `onEscape` (by default closeToolWindow(tool)) and is swallowed.
class KeyPreview final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(KeyPreview)
public:
    explicit KeyPreview(QWidget *tool, std::function<void()> onEscape = {});
    ~KeyPreview() override;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QWidget *m_tool;
    std::function<void()> m_onEscape;
};

// A window's busy state around a long loop that yields to events.
//
//   void Tool::onStart() {
//       BusyGuard busy(m_busy);
//       if (!busy) return;            // already running: the click is ignored
//       runLoop(progress);            // polls progress.stopRequested()
//   }                                 // a close asked for meanwhile happens here
//
// While busy, closeRequested() (from the window's closeEvent) sets the stop request and
// defers the close until the loop ends; the window must then ignore its close event.
class BusyState final {
public:
    explicit BusyState(QWidget *window) : m_window(window) {}
    BusyState(const BusyState &) = delete;
    BusyState &operator=(const BusyState &) = delete;

    bool isBusy() const { return m_busy; }
    bool stopRequested() const { return m_stop; }
    void requestStop()
    {
        if (m_busy)
            m_stop = true;
    }
    void clearStop() { m_stop = false; }
    // Returns true when the window may close now; otherwise the close is remembered.
    bool closeRequested();

private:
    friend class BusyGuard;
    QPointer<QWidget> m_window;
    bool m_busy = false;
    bool m_stop = false;
    bool m_closePending = false;
};

// Every loop that tool windows run, as the window that owns their session sees them. A loop
// holds the session it started with across its yields, so that session may be replaced or
// released only once no loop runs: the owner stops them and waits.
namespace RunningLoops {
// True while any BusyGuard is entered.
bool any();
// Asks every running loop to stop at its next step.
void stopAll();
// Calls `then` from the event loop once no loop runs, after the last one has unwound; at once
// when none runs. Nothing is called when `context` is gone by then.
void whenNoneRuns(QObject *context, std::function<void()> then);
} // namespace RunningLoops

class BusyGuard final {
public:
    explicit BusyGuard(BusyState &state);
    ~BusyGuard();
    BusyGuard(const BusyGuard &) = delete;
    BusyGuard &operator=(const BusyGuard &) = delete;
    // False when the state was already busy: the caller returns at once.
    explicit operator bool() const { return m_entered; }

private:
    BusyState &m_state;
    bool m_entered;
};

} // namespace tabulon
