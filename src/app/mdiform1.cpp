#include "app/mdiform1.h"

#include "app/databaseinfo.h"
#include "db/connectionstring.h"
#include "db/databasesession.h"
#include "db/textsplit.h"
#include "script/tablescript.h"
#include "ui/dialogs.h"
#include "ui/toolwindow.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QDialog>
#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenuBar>
#include <QProcess>
#include <QStatusBar>

namespace tabulon {

MDIForm1::MDIForm1(AppEnvironment env, QWidget *parent)
    : QMainWindow(parent), m_env(std::move(env)),
      m_settings(m_env.settingsPath.isEmpty() ? Settings() : Settings(m_env.settingsPath)), m_mdi(new QMdiArea(this)),
      m_security(new QLabel(this))
{
    setObjectName(QStringLiteral("MDIForm1"));
    setWindowTitle(QStringLiteral("Tabulon"));
    setCentralWidget(m_mdi);
    // Beside the tools' status lines, which come and go.
    m_security->setObjectName(QStringLiteral("lblTls"));
    m_security->setText(QStringLiteral("Not connected"));
    statusBar()->addPermanentWidget(m_security);
    m_loaded << QPointer<QWidget>(this);
    buildMenus();
}

MDIForm1::~MDIForm1()
{
    SessionTls::setProgramDefault(std::nullopt);
    // Tool windows go first, while the menu items their close handlers touch still exist.
    for (Tool &tool : m_tools) {
        if (tool.window) {
            disconnect(tool.window, nullptr, this, nullptr);
            delete tool.window.data();
        }
    }
}

QAction *MDIForm1::addItem(QMenu *menu, const QString &name, const QString &caption, bool enabled)
{
    QAction *a = menu ? menu->addAction(caption) : menuBar()->addAction(caption);
    a->setObjectName(name);
    a->setEnabled(enabled);
    m_items.insert(name, a);
    m_order << a;
    connect(a, &QAction::triggered, this, [this, name] { runCommand(name); });
    return a;
}

QMenu *MDIForm1::addSubMenu(QMenu *parent, const QString &name, const QString &caption, bool enabled)
{
    QMenu *m = parent ? parent->addMenu(caption) : (caption.isEmpty() ? new QMenu(this) : menuBar()->addMenu(caption));
    m->setObjectName(name);
    m->menuAction()->setObjectName(name);
    m->menuAction()->setEnabled(enabled);
    m_items.insert(name, m->menuAction());
    m_order << m->menuAction();
    return m;
}

void MDIForm1::buildMenus()
{
    addItem(nullptr, QStringLiteral("mnusetdb"), QStringLiteral("Set &Database"), true);
    addItem(nullptr, QStringLiteral("mnuTabDet"), QStringLiteral("Table D&etail"), false);
    addItem(nullptr, QStringLiteral("mnuTabData"), QStringLiteral("Table D&ata"), false);
    addItem(nullptr, QStringLiteral("mnuct"), QStringLiteral("&Create Table"), false);
    addItem(nullptr, QStringLiteral("mnusearch"), QStringLiteral("&Search"), false);
    addItem(nullptr, QStringLiteral("mnureplace"), QStringLiteral("&Replace"), false);
    QMenu *sch = addSubMenu(nullptr, QStringLiteral("mnusch"), QStringLiteral("S&heduler"), false);
    addItem(sch, QStringLiteral("mnubackup"), QStringLiteral("&BackUp"), true);
    addItem(sch, QStringLiteral("mnurestore"), QStringLiteral("&Restore"), true);
    addItem(nullptr, QStringLiteral("mnurenfld"), QStringLiteral("Re&name Folders && Files"), false);
    QMenu *util = addSubMenu(nullptr, QStringLiteral("mnudbutil"), QStringLiteral("Database &Utilities"), false);
    addItem(util, QStringLiteral("mnuchktab"), QStringLiteral("&Check Tables"), false);
    addItem(util, QStringLiteral("mnureptab"), QStringLiteral("&Repair Tables"), false);
    addItem(util, QStringLiteral("mnuconvertdb"), QStringLiteral("&Convert Database"), false);
    addItem(util, QStringLiteral("mnuimpdata"), QStringLiteral("&Import Data"), false);
    addItem(util, QStringLiteral("mnusafety"), QStringLiteral("Safety &Copies"), false);
    addItem(util, QStringLiteral("mnuctf"), QStringLiteral("Create &Text File"), true);
    addItem(util, QStringLiteral("mnuexet"), QStringLiteral("Execute Text &File"), true);
    addItem(nullptr, QStringLiteral("mnuExit"), QStringLiteral("E&xit"), true);

    // The pop-up menus are not on the bar: tools show them as context menus.
    QMenu *pop = addSubMenu(nullptr, QStringLiteral("mnupop"), QString(), true);
    addItem(pop, QStringLiteral("mnuaf"), QStringLiteral("Add Field"), true);
    addItem(pop, QStringLiteral("mnudf"), QStringLiteral("Delete Field"), true);
    addItem(pop, QStringLiteral("mnumf"), QStringLiteral("Modify Field"), true);
    QMenu *pop1 = addSubMenu(nullptr, QStringLiteral("mnupop1"), QString(), true);
    addItem(pop1, QStringLiteral("mnudr"), QStringLiteral("Delete Record"), true);
    addItem(pop1, QStringLiteral("mnumr"), QStringLiteral("Modify Record"), true);
    addItem(pop1, QStringLiteral("mnusavetable"), QStringLiteral("Save Table"), true);
    QMenu *ren = addSubMenu(nullptr, QStringLiteral("mnupopren"), QString(), true);
    QMenu *show = addSubMenu(ren, QStringLiteral("mnushow"), QStringLiteral("Show"), true);
    QAction *all = addItem(show, QStringLiteral("mnushowall"), QStringLiteral("All"), true);
    all->setCheckable(true);
    all->setChecked(true);
    addItem(show, QStringLiteral("mnushowfind"), QStringLiteral("Found Dirs & Files"), true)->setCheckable(true);
    addItem(ren, QStringLiteral("mnufindstr"), QStringLiteral("Find String"), true);
    addItem(ren, QStringLiteral("mnureplacestr"), QStringLiteral("Replace String"), true);
    addItem(ren, QStringLiteral("mnuren"), QStringLiteral("Rename"), true);
    addItem(ren, QStringLiteral("mnurensub"), QStringLiteral("Rename Subfolders"), true);
    addItem(ren, QStringLiteral("mnurenfiles"), QStringLiteral("Rename Files"), true);
    addItem(ren, QStringLiteral("mnurepfiles"), QStringLiteral("Replace in Files"), true);
    addItem(ren, QStringLiteral("mnuDelete"), QStringLiteral("&Delete"), true);
    m_popups.insert(QStringLiteral("mnupop"), pop);
    m_popups.insert(QStringLiteral("mnupop1"), pop1);
    m_popups.insert(QStringLiteral("mnupopren"), ren);

    m_session = std::make_unique<DatabaseSession>();
}

QMenu *MDIForm1::popupMenu(const QString &name) const
{
    return m_popups.value(name);
}

void MDIForm1::enableAllMenus()
{
    for (QAction *a : std::as_const(m_order))
        a->setEnabled(true);
}

void MDIForm1::disableDatabaseMenus()
{
    static const QStringList keep{QStringLiteral("mnusetdb"), QStringLiteral("mnuExit"), QStringLiteral("mnurenfld")};
    for (QAction *a : std::as_const(m_order)) {
        if (!keep.contains(a->objectName()))
            a->setEnabled(false);
    }
}

void MDIForm1::replaceSession()
{
    m_session = std::make_unique<DatabaseSession>();
    m_session->setCursorLocation(3);
}

void MDIForm1::showSessionSecurity()
{
    QString text = QStringLiteral("Not connected");
    if (m_session && m_session->isOpen()) {
        const TlsState tls = m_session->tlsState();
        if (tls.encrypted())
            text = QStringLiteral("Encrypted: %1, %2").arg(tls.version, tls.cipher);
        else if (SessionTls::programDefault().mode == TlsMode::Off)
            text = QStringLiteral("Not encrypted: TlsMode is off");
        else
            text = QStringLiteral("Not encrypted: the server offers no TLS");
    }
    m_security->setText(text);
}

void MDIForm1::startUp()
{
    show();
    Database = m_settings.ReadRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kDatabase,
                                             Settings::kDefaultDatabase);
    User = m_settings.ReadRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kUser, Settings::kDefaultUser);
    Password = m_settings.ReadRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kPassword,
                                             Settings::kDefaultPassword);
    Server =
        m_settings.ReadRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kServer, Settings::kDefaultServer);
    // Every connection the program opens, the tools' own included, takes this store's TLS
    // settings.
    const TlsConfig tls = m_settings.readTls();
    SessionTls::setProgramDefault(tls);
    if (!tls.problem.isEmpty())
        Dialogs::message(this, tls.problem);
    if (!m_session)
        m_session = std::make_unique<DatabaseSession>();
    m_session->setCursorLocation(3);
    // The trial deliberately uses an empty password and the server's own "mysql" database.
    const DbError trial = m_session->open(ConnectionString::mysql(Server, User, QString(), QStringLiteral("mysql")),
                                          QString(), QString());
    if (m_session->state() == 1)
        m_session->close();
    else if (!SessionTls::isRefusal(trial)) // a refusal for TLS reasons came from a running server
        StartMySqlServer(m_env.serverStart);
    auto *setup = new DatabaseInfo(*this);
    Dialogs::showModal(setup);
}

void MDIForm1::registerChildTool(const QString &menuName, ToolFactory factory)
{
    m_tools.insert(menuName, Tool{std::move(factory), false, {}});
}

void MDIForm1::registerModalTool(const QString &menuName, ToolFactory factory)
{
    m_tools.insert(menuName, Tool{std::move(factory), true, {}});
}

void MDIForm1::registerPopupCommand(const QString &menuName, Command command)
{
    m_commands.insert(menuName, std::move(command));
}

QWidget *MDIForm1::toolWindow(const QString &menuName) const
{
    const auto it = m_tools.constFind(menuName);
    return it == m_tools.constEnd() ? nullptr : it->window.data();
}

QWidget *MDIForm1::createTool(const QString &menuName, Tool &tool)
{
    QWidget *w = tool.factory(*this);
    if (!w)
        return nullptr;
    w->setAttribute(Qt::WA_DeleteOnClose);
    tool.window = w;
    m_loaded << QPointer<QWidget>(w);
    // Closing a tool gives its command back.
    connect(w, &QObject::destroyed, this, [this, menuName] {
        if (QAction *a = menuItem(menuName))
            a->setEnabled(true);
    });
    if (!tool.modal) {
        QMdiSubWindow *sub = m_mdi->addSubWindow(w);
        sub->setAttribute(Qt::WA_DeleteOnClose);
        connect(w, &QObject::destroyed, sub, &QObject::deleteLater);
        sub->hide();
    }
    return w;
}

QWidget *MDIForm1::ensureToolWindow(const QString &menuName)
{
    auto it = m_tools.find(menuName);
    if (it == m_tools.end())
        return nullptr;
    if (it->window)
        return it->window;
    return createTool(menuName, *it);
}

void MDIForm1::showChild(const QString &menuName)
{
    QWidget *w = ensureToolWindow(menuName);
    if (!w)
        return;
    menuItem(menuName)->setEnabled(false);
    for (QMdiSubWindow *sub : m_mdi->subWindowList()) {
        if (sub->widget() == w) {
            sub->showMaximized();
            w->show();
            m_mdi->setActiveSubWindow(sub);
        }
    }
}

void MDIForm1::showModalTool(const QString &menuName)
{
    auto it = m_tools.find(menuName);
    if (it == m_tools.end())
        return;
    auto *dialog = qobject_cast<QDialog *>(ensureToolWindow(menuName));
    if (!dialog)
        return;
    menuItem(menuName)->setEnabled(false);
    Dialogs::showModal(dialog);
}

QList<QWidget *> MDIForm1::loadedWindows() const
{
    QList<QWidget *> out;
    for (const auto &w : m_loaded) {
        if (w)
            out << w.data();
    }
    return out;
}

void MDIForm1::runCommand(const QString &name)
{
    if (name == QLatin1String("mnusetdb"))
        return setDatabase();
    if (name == QLatin1String("mnuExit"))
        return exitCommand();
    if (name == QLatin1String("mnuconvertdb"))
        return convertCommand();
    if (name == QLatin1String("mnuexet"))
        return executeTextFile();
    if (name == QLatin1String("mnuctf"))
        return createTextFile();
    if (name == QLatin1String("mnushowall") || name == QLatin1String("mnushowfind")) {
        menuItem(QStringLiteral("mnushowall"))->setChecked(name == QLatin1String("mnushowall"));
        menuItem(QStringLiteral("mnushowfind"))->setChecked(name == QLatin1String("mnushowfind"));
    }
    if (const auto c = m_commands.constFind(name); c != m_commands.constEnd()) {
        (*c)(*this);
        return;
    }
    const auto t = m_tools.constFind(name);
    if (t == m_tools.constEnd())
        return; // the command's tool is not part of this build
    if (t->modal)
        showModalTool(name);
    else
        showChild(name);
}

void MDIForm1::setDatabase()
{
    // Windows are told apart by caption: one captioned like this window counts as this window.
    for (QWidget *w : loadedWindows()) {
        if (w->windowTitle() != windowTitle() && w->isVisible()) {
            Dialogs::message(this, QStringLiteral("Please Unload Other Forms"));
            return;
        }
    }
    // A tool's loop may run while its window is hidden (one loaded by a pop-up command): the
    // setup replaces the session that loop holds, so the loop stops first and the setup
    // follows once it has ended.
    if (RunningLoops::any()) {
        RunningLoops::stopAll();
        RunningLoops::whenNoneRuns(this, [this] { setDatabase(); });
        return;
    }
    Dialogs::showModal(new DatabaseInfo(*this));
}

void MDIForm1::exitCommand()
{
    if (QMdiSubWindow *child = m_mdi->currentSubWindow(); child && child->isVisible()) {
        child->close();
        return;
    }
    Dialogs::endProgram(0);
}

void MDIForm1::convertCommand()
{
    const QString path = Dialogs::openFileName(this, QStringLiteral("Access Database|*.mdb|DSN|*.dsn"));
    if (path.isEmpty())
        return;
    // The conversion gets the file's bare name: a data source file's name is its source's
    // name, and an Access file's name resolves against the current folder, which is made the
    // chosen file's folder here.
    QWidget *conversion = ensureToolWindow(QStringLiteral("mnuconvertdb"));
    if (!conversion)
        return; // the conversion window is not part of this build
    QDir::setCurrent(QFileInfo(path).absolutePath());
    if (auto *source = conversion->findChild<QLineEdit *>(QStringLiteral("Text1")))
        source->setText(SplitAtLastChar(path, QLatin1Char('/'), false));
    showModalTool(QStringLiteral("mnuconvertdb"));
}

void MDIForm1::showStatus(const QString &text)
{
    statusBar()->showMessage(text);
}

QString MDIForm1::programFolder() const
{
    return m_env.programFolder.isEmpty() ? QCoreApplication::applicationDirPath() : m_env.programFolder;
}

void MDIForm1::createTextFile()
{
    // Nothing on this path traps an error: a failure is the run-time report.
    if (const DbError error = TableScript::CreateScriptFile(sessionOrClosed(), programFolder(), Database)) {
        Dialogs::runtimeError(this, error);
        return;
    }
    Dialogs::message(this, QStringLiteral("Finished"));
}

void MDIForm1::executeTextFile()
{
    const QString folder = programFolder();
    for (const QString &name : {QStringLiteral("import_db"), QStringLiteral("import_db.exe")}) {
        const QString program = folder + QLatin1Char('/') + name;
        if (QFileInfo(program).isExecutable() && QProcess::startDetached(program, {}, folder))
            return;
    }
    Dialogs::message(this, QStringLiteral("EXe not found"));
}

void MDIForm1::closeEvent(QCloseEvent *event)
{
    // Releasing the session under a loop that is yielding would leave it working on a freed
    // connection: the loops stop first, and the window closes once the last has ended.
    if (RunningLoops::any()) {
        event->ignore();
        RunningLoops::stopAll();
        RunningLoops::whenNoneRuns(this, [this] { close(); });
        return;
    }
    replaceSession(); // releases the connection; tools still alive see a closed session
    QMainWindow::closeEvent(event);
}

} // namespace tabulon
