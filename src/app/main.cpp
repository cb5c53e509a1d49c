// Tabulon: administration of the Orvita client-records database.
#include "app/mdiform1.h"
#include "app/toolcatalog.h"
#include "db/memorypolicy.h"

#include <QApplication>
#include <QIcon>
#include <QTimer>

#include <cstdio>
#include <cstring>

namespace {

// --version and --help answer before any window system is touched, so they work from a shell
// without a display (and from package scripts). Every other argument is left alone: the
// program's configuration lives in its settings, not on the command line.
bool answerInfoOption(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--version") == 0 || std::strcmp(argv[i], "-v") == 0) {
            std::printf("tabulon %s\n", TABULON_VERSION);
            return true;
        }
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            std::printf("Usage: tabulon [--help] [--version]\n"
                        "\n"
                        "Tabulon administers the MariaDB/MySQL database of the Orvita client-records\n"
                        "application: browse and edit tables, search and replace, check and repair,\n"
                        "back up and restore, convert Access databases, and write table scripts.\n"
                        "\n"
                        "The connection (server, user, password, database) is chosen in the program's\n"
                        "Set Database window and kept in its settings.\n"
                        "\n"
                        "  -h, --help     print this help and exit\n"
                        "  -v, --version  print the version and exit\n");
            return true;
        }
    }
    return false;
}

} // namespace

int main(int argc, char **argv)
{
    if (answerInfoOption(argc, argv))
        return 0;
    tabulon::mapLargeBlocks();
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tabulon"));
    QApplication::setOrganizationName(QStringLiteral("Corvane"));
    QApplication::setApplicationVersion(QStringLiteral(TABULON_VERSION));
    QApplication::setWindowIcon(
        QIcon::fromTheme(QStringLiteral("tabulon"), QIcon(QStringLiteral(":/icons/tabulon.png"))));

    tabulon::MDIForm1 main;
    tabulon::registerTools(main);
    main.showMaximized();
    // Start-up runs once the window is on screen, behind the connection setup it ends with.
    QTimer::singleShot(0, &main, [&main] { main.startUp(); });
    return app.exec();
}
