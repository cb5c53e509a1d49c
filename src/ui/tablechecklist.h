// The table checklist that the tools working on many tables share (check, repair, backup,
// restore): a list of tables with a tick box each, "Select All" / "Deselect All", and a
// progress page whose status line reads verb + table + "(" + i + " of " + n + ")".
//
// Use from a tool window:
//
//   m_list = new TableChecklist(QStringLiteral("Checking Table "), {}, this);  // parent: the tool
//   m_list->fillTables(host.sessionOrClosed());     // "SHOW Tables"; or setTables(fileNames)
//   m_list->addSelectionWidget(checkButton);        // the tool's own buttons on the selection page
//   ...
//   void Tool::onCheck() {
//       const auto result = m_list->run([&](const QString &table) { ...one table... });
//       if (result == TableChecklist::Run::Finished) ...  // NoneTicked: the operator was told
//   }
//   exitOnConfirm(exitButton, this);                // the exit question (ui/toolwindow.h)
//
// A close of the tool window during run() stops the loop and closes the window when the loop
// has ended; the tool's own closeEvent sees only the close that goes through.
//
// Reading the ticks: tickedTables(), tickedCount(), tables(); setting them: selectAll(),
// deselectAll(), setTicked(). Pages: selectionPage() (default object name "Frame2") and
// progressPage() ("Frame3"), shown with showSelectionPage() / showProgressPage(); tools rename
// them to their own frame names. Controls: lsttables, optall, optdeselall, pb1, lblcopying.
#pragma once

#include "db/dberror.h"
#include "ui/progressview.h"
#include "ui/toolwindow.h"

#include <QStringList>
#include <QWidget>

#include <functional>

class QFrame;
class QHBoxLayout;
class QLabel;
class QListWidget;
class QProgressBar;
class QRadioButton;

namespace tabulon {

class DatabaseSession;

class TableChecklist final : public QWidget {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TableChecklist)
public:
    using TableAction = std::function<void(const QString &table)>;
    enum class Run { Finished, Stopped, NoneTicked, AlreadyRunning };

    // `verb` starts the status line as it stands ("Checking Table ", "Restoring Table "...).
    // `parent` is the tool window: a close of it during run() stops the loop, then closes.
    TableChecklist(const QString &verb, const QStringList &tables, QWidget *parent);
    ~TableChecklist() override;

    // Replaces the list with the first field of every "SHOW Tables" row, all unticked. On a
    // failure the list is left empty and the error handed back.
    DbError fillTables(DatabaseSession &session);
    // Replaces the list, all unticked.
    void setTables(const QStringList &tables);
    QStringList tables() const;

    QStringList tickedTables() const;
    int tickedCount() const;
    void setTicked(const QString &table, bool ticked);
    // As clicking the options: "Select All" ticks every item and makes the first current.
    void selectAll();
    void deselectAll();

    // Runs `action` on every ticked table from first to last. None ticked: "No table has been
    // selected" and nothing else. Otherwise the progress page replaces the selection page
    // and before each table the window yields to events and the status line is set. The loop
    // ends early when the window is closed meanwhile. The progress page stays shown after.
    Run run(const TableAction &action);

    void showSelectionPage();
    void showProgressPage();
    QFrame *selectionPage() const { return m_selectionPage; }
    QFrame *progressPage() const { return m_progressPage; }
    // Adds a tool's own control (its start and exit buttons) to the selection page.
    void addSelectionWidget(QWidget *widget);

    BusyState &busy() { return m_busy; }
    const QString &verb() const { return m_verb; }
    // For a tool whose runs differ in their verb (the backup of whole tables or of one client).
    void setVerb(const QString &verb) { m_verb = verb; }
    // verb + name + "(" + index + " of " + total + ")", index counting from 1.
    static QString statusText(const QString &verb, const QString &name, int index, int total);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void tickAll(bool ticked);

    QString m_verb;
    QFrame *m_selectionPage;
    QFrame *m_progressPage;
    QListWidget *m_list;
    QRadioButton *m_optAll;
    QRadioButton *m_optDeselAll;
    QHBoxLayout *m_selectionButtons;
    QProgressBar *m_bar;
    QLabel *m_status;
    BusyState m_busy;
    ProgressView m_progress;
};

} // namespace tabulon
