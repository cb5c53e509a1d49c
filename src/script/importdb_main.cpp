// import_db: the companion that "Execute Text File" starts. It reads the saved connection
// settings, runs import.sql from its own folder against that server statement by statement,
// shows its progress, and ends with a summary of what ran and what failed. A close of the window
// during the run asks, stops after the current statement, prints what ran and ends the program;
// with --batch it prints the summary and ends at once.
#include "db/connectionstring.h"
#include "db/databasesession.h"
#include "script/importdb.h"
#include "script/scriptrunner.h"
#include "settings/settings.h"

#include <QApplication>
#include <QDir>
#include <QFile>

#include <cstdio>

using namespace tabulon;

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("import_db"));
    const bool batch = QApplication::arguments().contains(QStringLiteral("--batch"));

    // Started minimised: the operator goes on working in the main program meanwhile.
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

    const ScriptRunner::Summary result = window.run(session, statements);
    return finish(ScriptRunner::summaryText(result), result.failures.empty() ? 0 : 2);
}
