// The main window: the menu tree every tool is opened from, the shared session and the four
// current settings, the start-up sequence, and the registry through which tools plug in by
// the name of their menu command.
#pragma once

#include "app/startup.h"
#include "settings/settings.h"
#include "ui/toolhost.h"

#include <QHash>
#include <QList>
#include <QMainWindow>
#include <QPointer>

#include <functional>
#include <memory>

class QLabel;
class QMdiArea;
class QMenu;

namespace tabulon {

class DatabaseSession;

struct AppEnvironment final {
    QString settingsPath; // empty: the user's settings file
    ServerStartEnvironment serverStart = ServerStartEnvironment::platformDefault();
    QString programFolder; // empty: the executable's folder
};

class MDIForm1 final : public QMainWindow, public ToolHost {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MDIForm1)
public:
    using ToolFactory = std::function<QWidget *(MDIForm1 &)>;
    using Command = std::function<void(MDIForm1 &)>;

    explicit MDIForm1(AppEnvironment env = {}, QWidget *parent = nullptr);
    ~MDIForm1() override;

    // The current settings, replaced only by a successful connection setup.
    QString Database;
    QString User;
    QString Password;
    QString Server;

    // What tools borrow (ToolHost). The session is asked for at every use, since setup
    // replaces it.
    DatabaseSession *session() const override { return m_session.get(); }
    ConnectionSettings settings() const override { return {Database, User, Password, Server}; }
    QMenu *popupMenu(const QString &name) const override;
    QString programFolder() const override;
    void showStatus(const QString &text) override;

    void replaceSession();
    // The status bar's note on the shared session: encrypted (TLS version and cipher), not
    // encrypted and why, or not connected.
    void showSessionSecurity();
    Settings &settingsStore() { return m_settings; }

    // Shows the window's state after start-up: reads settings (a TlsMode that is none of the
    // modes is reported here; every connection refuses it), tries the server, starts it when
    // the trial fails, and shows the connection setup.
    void startUp();

    QAction *menuItem(const QString &name) const { return m_items.value(name); }
    QList<QAction *> menuItems() const { return m_order; }
    void enableAllMenus();
    // Every item but "Set Database", "Rename Folders & Files" and "Exit" is disabled.
    void disableDatabaseMenus();
    QMdiArea *mdiArea() const { return m_mdi; }

    void registerChildTool(const QString &menuName, ToolFactory factory);
    void registerModalTool(const QString &menuName, ToolFactory factory);
    void registerPopupCommand(const QString &menuName, Command command);
    QWidget *toolWindow(const QString &menuName) const;
    // The one instance, created loaded but not shown when missing.
    QWidget *ensureToolWindow(const QString &menuName);

    // Windows of the program in load order, this one first.
    QList<QWidget *> loadedWindows() const;
    void runCommand(const QString &menuName);

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    struct Tool {
        ToolFactory factory;
        bool modal = false;
        QPointer<QWidget> window;
    };
    QAction *addItem(QMenu *menu, const QString &name, const QString &caption, bool enabled);
    QMenu *addSubMenu(QMenu *parent, const QString &name, const QString &caption, bool enabled);
    void buildMenus();
    QWidget *createTool(const QString &menuName, Tool &tool);
    void showChild(const QString &menuName);
    void showModalTool(const QString &menuName);
    void setDatabase();
    void exitCommand();
    void convertCommand();
    void executeTextFile();
    void createTextFile();

    AppEnvironment m_env;
    Settings m_settings;
    std::unique_ptr<DatabaseSession> m_session;
    QMdiArea *m_mdi;
    QLabel *m_security;
    QHash<QString, QAction *> m_items;
    QList<QAction *> m_order;
    QHash<QString, QMenu *> m_popups;
    QHash<QString, Tool> m_tools;
    QHash<QString, Command> m_commands;
    QList<QPointer<QWidget>> m_loaded;
};

} // namespace tabulon
