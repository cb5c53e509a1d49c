// What a tool window borrows from the window that opened it: the shared session, the current
// connection settings, the hidden pop-up menus and the program's folder. The main window
// implements it; tools see only this, never the main window itself.
#pragma once

#include <QString>

class QMenu;
class QWidget;

namespace tabulon {

class DatabaseSession;

struct ConnectionSettings final {
    QString database;
    QString user;
    QString password;
    QString server;
};

class ToolHost {
public:
    ToolHost() = default;
    ToolHost(const ToolHost &) = delete;
    ToolHost &operator=(const ToolHost &) = delete;
    virtual ~ToolHost() = default;

    // The shared session, or null when there is none. Ask again at every use: setting up the
    // connection replaces it.
    virtual DatabaseSession *session() const = 0;
    // The settings as the last successful connection setup left them.
    virtual ConnectionSettings settings() const = 0;
    // One of the hidden pop-up menus ("mnupop", "mnupop1", "mnupopren"); null when unknown.
    virtual QMenu *popupMenu(const QString &name) const = 0;
    // The folder the program runs from.
    virtual QString programFolder() const = 0;
    // A line in the host's status bar that stays after the tool has closed.
    virtual void showStatus(const QString &text) = 0;

    // The session, or a closed one on which every statement fails as on a lost connection.
    DatabaseSession &sessionOrClosed() const;
};

} // namespace tabulon
