// The main window, connection setup and login window, driven offscreen against the server.
#include "app/databaseinfo.h"
#include "app/frmlogin.h"
#include "files.h"
#include "toolfixture.h"

#include <QAction>
#include <QDialog>
#include <QLineEdit>
#include <QMdiArea>
#include <QMenu>
#include <QMenuBar>
#include <QRegularExpression>
#include <QSettings>

using namespace tabulon;
using namespace tabulon::test;

namespace {

// Every command is enabled, or only those that need no database.
void verifyEnabled(const MDIForm1 &w, bool all)
{
    const QStringList kept = sl({"mnusetdb", "mnuExit", "mnurenfld"});
    for (QAction *a : w.menuItems())
        QVERIFY2(a->isEnabled() == (all || kept.contains(a->objectName())), qPrintable(a->objectName()));
}

} // namespace

class TestMainWindow final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup() { m_operator.reset(); }
    void menuTreeAtCreation();
    void startUpWithoutAServer();
    void goodAndBadSetup();
    void otherWindowsRuleAndExit();
    void databaseUtilities();
    void loginGate();

private:
    std::unique_ptr<MDIForm1> makeWindow(const QString &server);
    QString iniPath() const { return m_dir->filePath(qs("Tabulon.ini")); }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Operator> m_operator;
    QStringList m_started;
};

void TestMainWindow::init()
{
    m_operator = std::make_unique<Operator>();
    m_dir = std::make_unique<QTemporaryDir>();
    m_started.clear();
}

std::unique_ptr<MDIForm1> TestMainWindow::makeWindow(const QString &server)
{
    QSettings ini(iniPath(), QSettings::IniFormat);
    ini.setValue(qs("Software/Corvane/Tabulon/Server"), server);
    ini.setValue(qs("Software/Corvane/Tabulon/Password"), qs("not-the-password"));
    ini.setValue(qs("Software/Corvane/Tabulon/Database"), qs("mysql"));
    ini.sync();
    AppEnvironment env;
    env.settingsPath = iniPath();
    env.serverStart.profilePath = m_dir->filePath(qs("my.ini"));
    env.serverStart.candidate = m_dir->filePath(qs("mariadbd"));
    env.serverStart.launch = [this](const QString &p) {
        m_started << p;
        return true;
    };
    env.programFolder = m_dir->path();
    auto w = std::make_unique<MDIForm1>(env);
    registerTools(*w);
    return w;
}

void TestMainWindow::menuTreeAtCreation()
{
    auto w = makeWindow(serverAddress());
    // Every item in order: its name, its menu ("" on the bar), caption and state at creation.
    // clang-format off
    const QStringList tree = sl({
        "mnusetdb||Set &Database|on", "mnuTabDet||Table D&etail|off", "mnuTabData||Table D&ata|off",
        "mnuct||&Create Table|off", "mnusearch||&Search|off", "mnureplace||&Replace|off",
        "mnusch||S&heduler|off", "mnubackup|mnusch|&BackUp|on", "mnurestore|mnusch|&Restore|on",
        "mnurenfld||Re&name Folders && Files|off",
        "mnudbutil||Database &Utilities|off", "mnuchktab|mnudbutil|&Check Tables|off",
        "mnureptab|mnudbutil|&Repair Tables|off", "mnuconvertdb|mnudbutil|&Convert Database|off",
        "mnuimpdata|mnudbutil|&Import Data|off", "mnusafety|mnudbutil|Safety &Copies|off",
        "mnuctf|mnudbutil|Create &Text File|on",
        "mnuexet|mnudbutil|Execute Text &File|on",
        "mnuExit||E&xit|on",
        "mnupop|||on", "mnuaf|mnupop|Add Field|on", "mnudf|mnupop|Delete Field|on", "mnumf|mnupop|Modify Field|on",
        "mnupop1|||on", "mnudr|mnupop1|Delete Record|on", "mnumr|mnupop1|Modify Record|on",
        "mnusavetable|mnupop1|Save Table|on",
        "mnupopren|||on", "mnushow|mnupopren|Show|on", "mnushowall|mnushow|All|on",
        "mnushowfind|mnushow|Found Dirs & Files|on", "mnufindstr|mnupopren|Find String|on",
        "mnureplacestr|mnupopren|Replace String|on", "mnuren|mnupopren|Rename|on",
        "mnurensub|mnupopren|Rename Subfolders|on", "mnurenfiles|mnupopren|Rename Files|on",
        "mnurepfiles|mnupopren|Replace in Files|on", "mnuDelete|mnupopren|&Delete|on"});
    // clang-format on
    QStringList actual;
    for (QAction *a : w->menuItems()) {
        QString parent;
        for (QMenu *menu : w->findChildren<QMenu *>()) {
            if (menu->actions().contains(a))
                parent = menu->objectName();
        }
        actual << QStringList{a->objectName(), parent, a->text(), qs(a->isEnabled() ? "on" : "off")}.join(u'|');
    }
    QCOMPARE(actual, tree);
    QVERIFY(w->findChild<QAction *>(qs("mnushowall"))->isChecked());
    QVERIFY(!w->findChild<QAction *>(qs("mnushowfind"))->isChecked());
    for (const char *pop : {"mnupop", "mnupop1", "mnupopren"}) // shown only as context menus
        QVERIFY(!w->menuBar()->actions().contains(w->popupMenu(qs(pop))->menuAction()));
}

// No server answers: the program starts one, and the setup asks with the stored values.
void TestMainWindow::startUpWithoutAServer()
{
    auto w = makeWindow(qs("127.0.0.1:1"));
    w->startUp();
    QCOMPARE(m_started, QStringList{m_dir->filePath(qs("mariadbd"))});
    QCOMPARE(w->session()->state(), 0);
    QCOMPARE(m_operator->told, QStringList());
    QCOMPARE(m_operator->modals.size(), 1);
    QDialog *setup = m_operator->modals.first();
    QCOMPARE(setup->objectName(), qs("DatabaseInfo"));
    QCOMPARE(child<QLineEdit>(setup, "txtsvr")->text(), w->Server);
    QCOMPARE(child<QLineEdit>(setup, "txtpwd")->text(), qs("not-the-password"));
    QCOMPARE(child<QLineEdit>(setup, "txtuid")->text(), qs("dbop")); // the default
}

void TestMainWindow::goodAndBadSetup()
{
    ScratchDatabase db(qs("setup"));
    QVERIFY_DB(db.error());
    auto w = makeWindow(serverAddress());
    clearServerLog(db.admin());
    w->startUp();
    // The trial goes to the server's own database, as the stored user, and starts no server.
    // (Other tests may connect meanwhile, but not to that database.)
    const QStringList trials = connectsReceived(db.admin()).filter(qs(" on mysql "));
    QVERIFY2(trials.size() == 1 && trials.first().startsWith(qs("dbop@")), qPrintable(trials.join(u'\n')));
    QCOMPARE(m_started, QStringList());
    QDialog *setup = m_operator->modals.last();
    child<QLineEdit>(setup, "txtdbname")->setText(qs("  ") + db.name() + qs(" "));
    child<QLineEdit>(setup, "txtpwd")->clear();
    child<QLineEdit>(setup, "txtsvr")->setText(serverAddress() + qs(" "));
    click(setup, "cmdok");
    QCOMPARE(m_operator->told, QStringList());
    // The new session answers "Show Tables" before anything is stored.
    QCOMPARE(statementsReceived(db.admin(), w->session()->connectionId()), sl({"Show Tables"}));
    // The caption keeps the blanks; the session and the stored settings do not.
    QCOMPARE(w->windowTitle(), qs("Tabulon [   %1  : %2  ]").arg(db.name(), serverAddress()));
    QCOMPARE(w->session()->state(), 1);
    QCOMPARE(w->Database, db.name());
    verifyEnabled(*w, true);
    const QSettings ini(iniPath(), QSettings::IniFormat);
    QCOMPARE(ini.value(qs("Software/Corvane/Tabulon/Database")).toString(), db.name());
    QCOMPARE(ini.value(qs("Software/Corvane/Tabulon/Server")).toString(), serverAddress());
    QCOMPARE(ini.value(qs("Software/Corvane/Tabulon/Password")).toString(), QString());

    // A failure after the success: only the three commands stay usable.
    w->menuItem(qs("mnusetdb"))->trigger();
    setup = m_operator->modals.last();
    child<QLineEdit>(setup, "txtdbname")->setText(qs("no_such_db_here"));
    click(setup, "cmdok");
    QCOMPARE(m_operator->told, sl({"Error connecting to Database."}));
    QCOMPARE(m_operator->prompts.last().icon, Dialogs::Icon::Information);
    QVERIFY(m_operator->prompts.last().title.isEmpty());
    QVERIFY(setup->isVisible());
    verifyEnabled(*w, false);
    QCOMPARE(w->session()->state(), 0);
    QCOMPARE(w->Database, db.name()); // nothing stored by the failed attempt
}

void TestMainWindow::otherWindowsRuleAndExit()
{
    ScratchDatabase db(qs("otherwin"));
    QVERIFY_DB(db.error());
    QVERIFY_DB(db.run({qs("CREATE TABLE t (a INT)")}));
    auto w = makeWindow(serverAddress());
    w->show();
    QVERIFY_DB(w->session()->open(connectionString(db.name())));
    w->enableAllMenus();
    // A tool loaded by a pop-up command but never shown does not block "Set Database".
    QVERIFY(w->ensureToolWindow(qs("mnuTabData")));
    w->menuItem(qs("mnusetdb"))->trigger();
    QCOMPARE(m_operator->modals.size(), 1);
    m_operator->modals.last()->close();
    // A shown one does.
    w->menuItem(qs("mnuTabData"))->trigger();
    QVERIFY(!w->menuItem(qs("mnuTabData"))->isEnabled());
    w->menuItem(qs("mnusetdb"))->trigger();
    QCOMPARE(m_operator->told, sl({"Please Unload Other Forms"}));
    QCOMPARE(m_operator->modals.size(), 1);

    // Exit closes the child first, which gives its command back; the next Exit ends.
    w->menuItem(qs("mnuExit"))->trigger();
    QVERIFY(m_operator->ends.isEmpty());
    QTRY_VERIFY(!w->toolWindow(qs("mnuTabData")));
    QVERIFY(w->menuItem(qs("mnuTabData"))->isEnabled());
    QTRY_VERIFY(w->mdiArea()->subWindowList().isEmpty());
    w->menuItem(qs("mnuExit"))->trigger();
    QCOMPARE(m_operator->ends, QList<int>{0});
}

// "Create Text File" writes the script of the current database's tables into the program's
// folder and says "Finished"; a failure is the run-time report. "Execute Text File" starts the
// companion program there, or says it is missing.
void TestMainWindow::databaseUtilities()
{
    ScratchDatabase db(qs("textfile"));
    QVERIFY_DB(db.error());
    QVERIFY_DB(db.run({qs("CREATE TABLE clients (code_no VARCHAR(10), born DATE)")}));
    auto w = makeWindow(serverAddress());
    w->Database = db.name();
    w->menuItem(qs("mnuctf"))->trigger(); // no session yet
    QCOMPARE(m_operator->runtimeErrors.size(), 1);
    QCOMPARE(m_operator->told, QStringList());
    QVERIFY_DB(openSession(*w->session(), db.name()));
    w->menuItem(qs("mnuctf"))->trigger();
    QCOMPARE(m_operator->told, sl({"Finished"}));
    QVERIFY(read(m_dir->filePath(qs("import.sql"))).contains("clients"));
    QVERIFY(QFile::exists(m_dir->filePath(qs("Cr_Db.bat"))));
    m_operator->told.clear();

    QAction *execute = w->menuItem(qs("mnuexet"));
    execute->trigger();
    QCOMPARE(m_operator->told, sl({"EXe not found"}));

    // A program of that name in the program's folder is started, without waiting for it.
    const QString marker = m_dir->filePath(qs("ran"));
    const QString program = m_dir->filePath(qs("import_db"));
    write(program, qs("#!/bin/sh\ntouch '%1'\n").arg(marker).toUtf8());
    QFile::setPermissions(program, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    execute->trigger();
    QTRY_VERIFY(QFile::exists(marker));
    QCOMPARE(m_operator->told.size(), 1);

    // "Convert Database" asks for the source file, goes to its folder and hands its name over.
    // (What the conversion window does with it is test_convertdb's.)
    w->enableAllMenus();
    QAction *convert = w->menuItem(qs("mnuconvertdb"));
    convert->trigger(); // cancelled: nothing opens
    QCOMPARE(m_operator->fileFilters, sl({"Access Database|*.mdb|DSN|*.dsn"}));
    QVERIFY(m_operator->modals.isEmpty());
    QVERIFY(convert->isEnabled());

    const QString before = QDir::currentPath();
    QVERIFY(QDir(m_dir->path()).mkpath(qs("src")));
    m_operator->chosenFile = m_dir->filePath(qs("src/Old Clients.mdb"));
    convert->trigger();
    const QString current = QDir::currentPath();
    QDir::setCurrent(before);
    QCOMPARE(m_operator->modals.size(), 1);
    QCOMPARE(child<QLineEdit>(m_operator->modals.first(), "Text1")->text(), qs("Old Clients.mdb"));
    QCOMPARE(QFileInfo(current).canonicalFilePath(), QFileInfo(m_dir->filePath(qs("src"))).canonicalFilePath());
}

void TestMainWindow::loginGate()
{
    auto w = makeWindow(serverAddress());
    auto *login = new frmlogin(*w);
    login->activate();
    QVERIFY2(QRegularExpression(qs("^[0-9]{5,15}$")).match(login->challenge()).hasMatch(),
             qPrintable(login->challenge()));
    const QString answer = login->expectedAnswer();
    QVERIFY2(QRegularExpression(qs("^[a-z]{5}$")).match(answer).hasMatch(), qPrintable(answer));
    login->show();
    // The right answer is refused like any other non-empty text; only an empty one passes.
    child<QLineEdit>(login, "txtpassword")->setText(answer);
    click(login, "cmdok");
    QCOMPARE(m_operator->told, sl({"Invalid Password"}));
    child<QLineEdit>(login, "txtpassword")->clear();
    click(login, "cmdok");
    QCOMPARE(m_operator->modals.size(), 1);
    QCOMPARE(m_operator->modals.first()->objectName(), qs("DatabaseInfo"));
    click(new frmlogin(*w), "cmdcancel");
    QCOMPARE(m_operator->ends, QList<int>{0});
}

QTEST_MAIN(TestMainWindow)
#include "test_mainwindow.moc"
