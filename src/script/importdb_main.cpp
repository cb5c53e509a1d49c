// import_db: the companion that "Execute Text File" starts. It reads the saved connection
// settings, runs import.sql from its own folder against that server statement by statement,
// shows its progress, and ends with a summary of what ran and what failed. A close of the window
// during the run asks, stops after the current statement, prints what ran and ends the program;
// with --batch it prints the summary and ends at once.
#include "db/connectionstring.h"
#include "db/databasesession.h"
#include "script/importdb.h"
#include "settings/settings.h"

#include <QApplication>

using namespace tabulon;

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("import_db"));
    return runImportDb(QCoreApplication::applicationDirPath(), Settings(),
                       QApplication::arguments().contains(QStringLiteral("--batch")));
}
