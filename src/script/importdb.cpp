#include "script/importdb.h"

#include "ui/dialogs.h"

#include <QCloseEvent>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

namespace tabulon {

ImportDb::ImportDb(QWidget *parent)
    : QWidget(parent), m_status(new QLabel(this)), m_bar(new QProgressBar(this)), m_summary(new QPlainTextEdit(this)),
      m_close(new QPushButton(QStringLiteral("&Close"), this)), m_busy(this), m_progress(m_bar, m_status)
{
    setObjectName(QStringLiteral("ImportDb"));
    setWindowTitle(QStringLiteral("Import Database"));
    m_status->setObjectName(QStringLiteral("lblStatus"));
    m_bar->setObjectName(QStringLiteral("ProgressBar1"));
    m_summary->setObjectName(QStringLiteral("txtSummary"));
    m_summary->setReadOnly(true);
    m_close->setObjectName(QStringLiteral("cmdClose"));
    m_close->setEnabled(false);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_status);
    layout->addWidget(m_bar);
    layout->addWidget(m_summary);
    layout->addWidget(m_close);
    connect(m_close, &QPushButton::clicked, this, &QWidget::close);
    m_progress.setBusyState(&m_busy);
    resize(640, 420);
}

ImportDb::~ImportDb() = default;

ScriptRunner::Summary ImportDb::run(DatabaseSession &session, const QStringList &statements)
{
    BusyGuard busy(m_busy);
    if (!busy)
        return {};
    ScriptRunner::Summary summary = ScriptRunner::runStatements(session, statements, m_progress);
    m_status->setText(m_closedDuringRun ? QStringLiteral("Stopped") : QStringLiteral("Finished"));
    return summary;
}

void ImportDb::showSummary(const QString &text)
{
    m_summary->setPlainText(text);
    m_close->setEnabled(true);
}

void ImportDb::closeEvent(QCloseEvent *event)
{
    if (!m_busy.isBusy()) {
        QWidget::closeEvent(event);
        return;
    }
    // The statement that is running cannot be taken back; the question says the stop waits
    // for it. The window closes once the run has returned.
    event->ignore();
    if (m_closedDuringRun || Dialogs::ask(this, kStopQuestion) != Dialogs::Answer::Yes)
        return;
    m_closedDuringRun = true;
    m_busy.closeRequested();
}

} // namespace tabulon
