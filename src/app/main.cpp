// Tabulon: administration of the Orvita client-records database.
#include "app/mdiform1.h"
#include "app/toolcatalog.h"
#include "db/memorypolicy.h"

#include <QApplication>
#include <QTimer>

int main(int argc, char **argv)
{
    tabulon::mapLargeBlocks();
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tabulon"));
    QApplication::setOrganizationName(QStringLiteral("Corvane"));

    tabulon::MDIForm1 main;
    tabulon::registerTools(main);
    main.showMaximized();
    // Start-up runs once the window is on screen, behind the connection setup it ends with.
    QTimer::singleShot(0, &main, [&main] { main.startUp(); });
    return app.exec();
}
