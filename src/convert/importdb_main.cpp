// import_db: the companion that "Execute Text File" starts. It reads the saved connection
// settings, runs import.sql from its own folder against that server statement by statement,
// shows its progress, and ends with a summary of what ran and what failed. Closing the window
// ends it; with --batch it prints the summary and ends at once.
#include "convert/scriptrunner.h"
#include "db/connectionstring.h"
#include "db/databasesession.h"
#include "settings/settings.h"
#include "ui/progressview.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>
#include <QWidget>

#include <cstdio>

using namespace tabulon;

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("import_db"));
    const bool batch = QApplication::arguments().contains(QStringLiteral("--batch"));

    QWidget window;
    window.setObjectName(QStringLiteral("ImportDb"));
    window.setWindowTitle(QStringLiteral("Import Database"));
    auto *layout = new QVBoxLayout(&window);
    auto *status = new QLabel(&window);
    auto *bar = new QProgressBar(&window);
    auto *summary = new QPlainTextEdit(&window);
    summary->setReadOnly(true);
    auto *close = new QPushButton(QStringLiteral("&Close"), &window);
    close->setEnabled(false);
    layout->addWidget(status);
    layout->addWidget(bar);
    layout->addWidget(summary);
    layout->addWidget(close);
    QObject::connect(close, &QPushButton::clicked, &window, &QWidget::close);
    window.resize(640, 420);
    if (!batch)
        window.show();

    auto finish = [&](const QString &text, int code) {
        std::fputs(qPrintable(text + QLatin1Char('\n')), code == 1 ? stderr : stdout);
        if (batch)
            return code;
        summary->setPlainText(text);
        close->setEnabled(true);
        app.exec();
        return code;
    };

    const QString path = QCoreApplication::applicationDirPath() + QLatin1String("/import.sql");
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return finish(QStringLiteral("%1: %2").arg(QDir::toNativeSeparators(path), file.errorString()), 1);
    const QStringList statements = ScriptRunner::splitStatements(QString::fromUtf8(file.readAll()));

    const Settings settings;
    auto read = [&](const QString &name, const QString &fallback) {
        return settings.ReadRegistryString(Hive::LocalMachine, Settings::kKey, name, fallback);
    };
    DatabaseSession session;
    const QString server = read(Settings::kServer, Settings::kDefaultServer);
    if (const DbError e =
            session.open(ConnectionString::mysql(server, read(Settings::kUser, Settings::kDefaultUser),
                                                 read(Settings::kPassword, Settings::kDefaultPassword), QString())))
        return finish(QStringLiteral("Cannot connect to %1: %2").arg(server, e.description), 1);

    ProgressView progress(bar, status);
    const ScriptRunner::Summary result = ScriptRunner::runStatements(session, statements, progress);
    status->setText(QStringLiteral("Finished"));
    return finish(ScriptRunner::summaryText(result), result.failures.empty() ? 0 : 2);
}
