#include "script/importdb.h"

#include "db/connectionstring.h"
#include "db/databasesession.h"
#include "settings/settings.h"
#include "ui/dialogs.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include <cstdio>

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

int runImportDb(const QString &folder, const Settings &settings, bool batch)
{
    ImportDb window;
    if (!batch)
        window.showMinimized();

    // The summary always goes to the output; the window keeps it on screen until it is closed,
    // unless it was closed already.
    auto finish = [&](const QString &text, int code) {
        std::fputs(qPrintable(text + QLatin1Char('\n')), code == 1 ? stderr : stdout);
        std::fflush(code == 1 ? stderr : stdout);
        if (batch || window.closedDuringRun() || !window.isVisible())
            return code;
        window.showSummary(text);
        QApplication::exec();
        return code;
    };

    const QString path = folder + QLatin1String("/import.sql");
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return finish(QStringLiteral("%1: %2").arg(QDir::toNativeSeparators(path), file.errorString()), 1);
    const QStringList statements = ScriptRunner::splitStatements(QString::fromUtf8(file.readAll()));

    auto read = [&](const QString &name, const QString &fallback) {
        return settings.ReadRegistryString(Hive::LocalMachine, Settings::kKey, name, fallback);
    };
    DatabaseSession session;
    const QString server = read(Settings::kServer, Settings::kDefaultServer);
    if (const DbError e =
            session.open(ConnectionString::mysql(server, read(Settings::kUser, Settings::kDefaultUser),
                                                 read(Settings::kPassword, Settings::kDefaultPassword), QString())))
        return finish(QStringLiteral("Cannot connect to %1: %2").arg(server, e.description), 1);

    const ScriptRunner::Summary result = window.run(session, statements);
    return finish(ScriptRunner::summaryText(result), result.failures.empty() ? 0 : 2);
}

} // namespace tabulon
