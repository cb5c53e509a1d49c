// The window of the import_db companion: the script's progress while it runs, then a summary of
// what ran and what failed. A close during the run asks first, stops after the statement that
// is running and leaves the window closed, so that the program can end at once.
#pragma once

#include "script/scriptrunner.h"
#include "ui/progressview.h"
#include "ui/toolwindow.h"

#include <QWidget>

class QLabel;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;

namespace tabulon {

class DatabaseSession;
class Settings;

class ImportDb final : public QWidget {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ImportDb)
public:
    static inline const QString kStopQuestion =
        QStringLiteral("The script is still running. Stop it after the current statement and exit?");

    explicit ImportDb(QWidget *parent = nullptr);
    ~ImportDb() override;

    // Runs the statements with the window's progress; a close during the run stops it.
    ScriptRunner::Summary run(DatabaseSession &session, const QStringList &statements);
    // True once the operator closed the window during a run: the program should end now.
    bool closedDuringRun() const { return m_closedDuringRun; }
    // Shows the final text and lets the window be closed.
    void showSummary(const QString &text);

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    QLabel *m_status;
    QProgressBar *m_bar;
    QPlainTextEdit *m_summary;
    QPushButton *m_close;
    BusyState m_busy;
    ProgressView m_progress;
    bool m_closedDuringRun = false;
};

// The companion's whole run, as its program makes it: the window comes up minimised (none with
// `batch`), so that the operator goes on working in the main program meanwhile; import.sql from
// `folder` runs on the server that `settings` name; the summary goes to the output and stays on
// screen until the window is closed. Returns the program's exit code.
int runImportDb(const QString &folder, const Settings &settings, bool batch);

} // namespace tabulon
