// The main window, connection setup and login window, driven offscreen against the server.
#include "app/databaseinfo.h"
#include "app/dialogs.h"
#include "app/frmlogin.h"
#include "app/mdiform1.h"
#include "app/toolcatalog.h"
#include "testdb.h"

#include <QAction>
#include <QDialog>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLineEdit>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenu>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

class TestMainWindow final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void menuTreeAtCreation();
    void startUpWithServerThatAnswers();
    void startUpWithServerThatDoesNot();
    void goodAndBadSetup();
    void otherWindowsRule();
    void exitClosesChildFirst();
    void conversionFileChoice();
    void executeTextFile();
    void loginGate();

private:
    std::unique_ptr<MDIForm1> makeWindow(const QString &server);
    DatabaseInfo *openSetup();
    QString iniPath() const { return m_dir->filePath(QStringLiteral("Tabulon.ini")); }

    std::unique_ptr<QTemporaryDir> m_dir;
    QStringList m_prompts;
    QList<QDialog *> m_modals;
    QList<int> m_ended;
    QStringList m_started;
    QString m_chosenFile;
};

void TestMainWindow::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_prompts.clear();
    m_modals.clear();
    m_ended.clear();
    m_started.clear();
    m_chosenFile.clear();
    Dialogs::setResponder([this](const Dialogs::Prompt &p) {
        if (p.kind == Dialogs::Prompt::Kind::OpenFile) {
            m_prompts << QStringLiteral("open ") + p.defaultText;
            return Dialogs::Reply{Dialogs::Answer::Ok, m_chosenFile};
        }
        m_prompts << p.text;
        return Dialogs::Reply{Dialogs::Answer::Yes, {}};
    });
    Dialogs::setModalRunner([this](QDialog *d) {
        m_modals << d;
        d->show();
    });
    Dialogs::setProgramEnder([this](int code) { m_ended << code; });
}

void TestMainWindow::cleanup()
{
    Dialogs::setResponder({});
    Dialogs::setModalRunner({});
    Dialogs::setProgramEnder({});
}

std::unique_ptr<MDIForm1> TestMainWindow::makeWindow(const QString &server)
{
    QSettings ini(iniPath(), QSettings::IniFormat);
    ini.setValue(QStringLiteral("Software/Corvane/Tabulon/Server"), server);
    ini.setValue(QStringLiteral("Software/Corvane/Tabulon/Password"), QStringLiteral("not-the-password"));
    ini.setValue(QStringLiteral("Software/Corvane/Tabulon/Database"), QStringLiteral("mysql"));
    ini.sync();
    AppEnvironment env;
    env.settingsPath = iniPath();
    env.serverStart.profilePath = m_dir->filePath(QStringLiteral("my.ini"));
    env.serverStart.candidate = m_dir->filePath(QStringLiteral("mariadbd"));
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
    const QStringList off{QStringLiteral("mnuTabDet"), QStringLiteral("mnuTabData"),   QStringLiteral("mnuct"),
                          QStringLiteral("mnusearch"), QStringLiteral("mnureplace"),   QStringLiteral("mnusch"),
                          QStringLiteral("mnurenfld"), QStringLiteral("mnudbutil"),    QStringLiteral("mnuchktab"),
                          QStringLiteral("mnureptab"), QStringLiteral("mnuconvertdb"), QStringLiteral("mnuimpdata")};
    QCOMPARE(w->menuItems().size(), 37);
    for (QAction *a : w->menuItems())
        QVERIFY2(a->isEnabled() == !off.contains(a->objectName()), qPrintable(a->objectName()));
    QCOMPARE(w->findChild<QAction *>(QStringLiteral("mnurenfld"))->text(), QStringLiteral("Re&name Folders && Files"));
    QVERIFY(w->findChild<QAction *>(QStringLiteral("mnushowall"))->isChecked());
    QMenu *pop1 = w->popupMenu(QStringLiteral("mnupop1"));
    QVERIFY(pop1);
    QCOMPARE(pop1->actions().size(), 3);
    QCOMPARE(pop1->actions().at(2)->objectName(), QStringLiteral("mnusavetable"));
    QCOMPARE(w->windowTitle(), QStringLiteral("Tabulon"));
}

void TestMainWindow::startUpWithServerThatAnswers()
{
    auto w = makeWindow(serverAddress());
    w->startUp();
    QVERIFY(m_started.isEmpty());       // the trial connected (with an empty password)
    QCOMPARE(w->session()->state(), 0); // and was closed again
    QCOMPARE(m_modals.size(), 1);
    QCOMPARE(m_modals.first()->objectName(), QStringLiteral("DatabaseInfo"));
    QCOMPARE(m_modals.first()->findChild<QLineEdit *>(QStringLiteral("txtsvr"))->text(), serverAddress());
    QCOMPARE(m_modals.first()->findChild<QLineEdit *>(QStringLiteral("txtpwd"))->text(),
             QStringLiteral("not-the-password"));
    QCOMPARE(w->User, QStringLiteral("dbop")); // the default
}

void TestMainWindow::startUpWithServerThatDoesNot()
{
    auto w = makeWindow(QStringLiteral("127.0.0.1:1"));
    w->startUp();
    QCOMPARE(m_started, QStringList{m_dir->filePath(QStringLiteral("mariadbd"))});
    QCOMPARE(m_modals.size(), 1);
    QVERIFY(m_prompts.isEmpty());
}

DatabaseInfo *TestMainWindow::openSetup()
{
    return qobject_cast<DatabaseInfo *>(m_modals.last());
}

void TestMainWindow::goodAndBadSetup()
{
    ScratchDatabase db(QStringLiteral("setup"));
    QVERIFY_DB(db.error());
    auto w = makeWindow(serverAddress());
    w->startUp();
    DatabaseInfo *setup = openSetup();
    setup->findChild<QLineEdit *>(QStringLiteral("txtdbname"))
        ->setText(QStringLiteral("  ") + db.name() + QStringLiteral(" "));
    setup->findChild<QLineEdit *>(QStringLiteral("txtpwd"))->setText(QString());
    setup->findChild<QLineEdit *>(QStringLiteral("txtsvr"))->setText(serverAddress() + QStringLiteral(" "));
    QTest::mouseClick(setup->findChild<QPushButton *>(QStringLiteral("cmdok")), Qt::LeftButton);
    QVERIFY(m_prompts.isEmpty());
    QCOMPARE(w->windowTitle(), QStringLiteral("Tabulon [   %1  : %2  ]").arg(db.name(), serverAddress()));
    QCOMPARE(w->session()->state(), 1);
    QCOMPARE(w->Database, db.name());
    for (QAction *a : w->menuItems())
        QVERIFY2(a->isEnabled(), qPrintable(a->objectName()));
    {
        QSettings ini(iniPath(), QSettings::IniFormat);
        QCOMPARE(ini.value(QStringLiteral("Software/Corvane/Tabulon/Database")).toString(), db.name());
        QCOMPARE(ini.value(QStringLiteral("Software/Corvane/Tabulon/Server")).toString(), serverAddress());
        QCOMPARE(ini.value(QStringLiteral("Software/Corvane/Tabulon/Password")).toString(), QString());
    }

    // A failure after the success: only the three commands stay usable.
    w->menuItem(QStringLiteral("mnusetdb"))->trigger();
    setup = openSetup();
    setup->findChild<QLineEdit *>(QStringLiteral("txtdbname"))->setText(QStringLiteral("no_such_db_here"));
    QTest::mouseClick(setup->findChild<QPushButton *>(QStringLiteral("cmdok")), Qt::LeftButton);
    QCOMPARE(m_prompts, QStringList{QStringLiteral("Error connecting to Database.")});
    QVERIFY(setup->isVisible());
    for (QAction *a : w->menuItems()) {
        const bool kept =
            QStringList{QStringLiteral("mnusetdb"), QStringLiteral("mnuExit"), QStringLiteral("mnurenfld")}.contains(
                a->objectName());
        QVERIFY2(a->isEnabled() == kept, qPrintable(a->objectName()));
    }
    QCOMPARE(w->session()->state(), 0);
    QCOMPARE(w->Database, db.name()); // nothing stored by the failed attempt
}

void TestMainWindow::otherWindowsRule()
{
    ScratchDatabase db(QStringLiteral("otherwin"));
    QVERIFY_DB(db.error());
    QVERIFY_DB(db.run({QStringLiteral("CREATE TABLE t (a INT)")}));
    auto w = makeWindow(serverAddress());
    w->show();
    QVERIFY_DB(w->session()->open(connectionString(db.name())));
    w->enableAllMenus();
    // A tool loaded by a pop-up command but never shown does not block.
    QVERIFY(w->ensureToolWindow(QStringLiteral("mnuTabData")));
    w->menuItem(QStringLiteral("mnusetdb"))->trigger();
    QCOMPARE(m_modals.size(), 1);
    m_modals.last()->close();
    // A shown one does.
    w->menuItem(QStringLiteral("mnuTabData"))->trigger();
    QVERIFY(!w->menuItem(QStringLiteral("mnuTabData"))->isEnabled());
    w->menuItem(QStringLiteral("mnusetdb"))->trigger();
    QCOMPARE(m_prompts, QStringList{QStringLiteral("Please Unload Other Forms")});
    QCOMPARE(m_modals.size(), 1);
}

void TestMainWindow::exitClosesChildFirst()
{
    ScratchDatabase db(QStringLiteral("exit"));
    QVERIFY_DB(db.error());
    auto w = makeWindow(serverAddress());
    w->show();
    QVERIFY_DB(w->session()->open(connectionString(db.name())));
    w->enableAllMenus();
    w->menuItem(QStringLiteral("mnuTabData"))->trigger();
    QVERIFY(w->toolWindow(QStringLiteral("mnuTabData")));
    w->menuItem(QStringLiteral("mnuExit"))->trigger();
    QVERIFY(m_ended.isEmpty());
    QTRY_VERIFY(!w->toolWindow(QStringLiteral("mnuTabData")));
    QVERIFY(w->menuItem(QStringLiteral("mnuTabData"))->isEnabled()); // given back on close
    QTRY_VERIFY(w->mdiArea()->subWindowList().isEmpty());
    w->menuItem(QStringLiteral("mnuExit"))->trigger();
    QCOMPARE(m_ended, QList<int>{0});
}

void TestMainWindow::conversionFileChoice()
{
    auto w = makeWindow(serverAddress());
    w->enableAllMenus();
    // A stand-in for the conversion window: a modal tool with the source box it is handed.
    w->registerModalTool(QStringLiteral("mnuconvertdb"), [](MDIForm1 &m) -> QWidget * {
        auto *d = new QDialog(&m);
        (new QLineEdit(d))->setObjectName(QStringLiteral("Text1"));
        return d;
    });
    QAction *convert = w->menuItem(QStringLiteral("mnuconvertdb"));
    convert->trigger(); // cancelled: nothing opens
    QCOMPARE(m_prompts, QStringList{QStringLiteral("open Access Database|*.mdb|DSN|*.dsn")});
    QVERIFY(m_modals.isEmpty());
    QVERIFY(convert->isEnabled());

    const QString before = QDir::currentPath();
    QVERIFY(QDir(m_dir->path()).mkpath(QStringLiteral("src")));
    m_chosenFile = m_dir->filePath(QStringLiteral("src/Old Clients.mdb"));
    convert->trigger();
    const QString current = QDir::currentPath();
    QDir::setCurrent(before);
    QCOMPARE(m_modals.size(), 1);
    QCOMPARE(m_modals.first()->findChild<QLineEdit *>(QStringLiteral("Text1"))->text(),
             QStringLiteral("Old Clients.mdb"));
    QCOMPARE(QFileInfo(current).canonicalFilePath(),
             QFileInfo(m_dir->filePath(QStringLiteral("src"))).canonicalFilePath());
    QVERIFY(!convert->isEnabled());
    m_modals.first()->close();
    QTRY_VERIFY(convert->isEnabled());
}

void TestMainWindow::executeTextFile()
{
    auto w = makeWindow(serverAddress());
    QAction *execute = w->menuItem(QStringLiteral("mnuexet"));
    execute->trigger();
    QCOMPARE(m_prompts, QStringList{QStringLiteral("EXe not found")});

    // A program of that name in the program's folder is started, without waiting for it.
    const QString marker = m_dir->filePath(QStringLiteral("ran"));
    QFile program(m_dir->filePath(QStringLiteral("import_db")));
    QVERIFY(program.open(QIODevice::WriteOnly));
    program.write(QStringLiteral("#!/bin/sh\ntouch '%1'\n").arg(marker).toUtf8());
    program.close();
    program.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    execute->trigger();
    QTRY_VERIFY(QFile::exists(marker));
    QCOMPARE(m_prompts.size(), 1);
}

void TestMainWindow::loginGate()
{
    auto w = makeWindow(serverAddress());
    auto *login = new frmlogin(*w);
    login->activate();
    const QString challenge = login->challenge();
    QVERIFY(challenge.size() >= 5 && challenge.size() <= 15);
    QVERIFY(std::all_of(challenge.begin(), challenge.end(), [](QChar c) { return c.isDigit(); }));
    const QString answer = login->expectedAnswer();
    QCOMPARE(answer.size(), 5);
    QVERIFY(std::all_of(answer.begin(), answer.end(),
                        [](QChar c) { return c >= QLatin1Char('a') && c <= QLatin1Char('z'); }));
    login->show();
    // The right answer is refused like any other non-empty text.
    login->findChild<QLineEdit *>(QStringLiteral("txtpassword"))->setText(answer);
    QTest::mouseClick(login->findChild<QPushButton *>(QStringLiteral("cmdok")), Qt::LeftButton);
    QCOMPARE(m_prompts, QStringList{QStringLiteral("Invalid Password")});
    login->findChild<QLineEdit *>(QStringLiteral("txtpassword"))->clear();
    QTest::mouseClick(login->findChild<QPushButton *>(QStringLiteral("cmdok")), Qt::LeftButton);
    QCOMPARE(m_modals.size(), 1);
    QCOMPARE(m_modals.first()->objectName(), QStringLiteral("DatabaseInfo"));
    auto *second = new frmlogin(*w);
    QTest::mouseClick(second->findChild<QPushButton *>(QStringLiteral("cmdcancel")), Qt::LeftButton);
    QCOMPARE(m_ended, QList<int>{0});
}

QTEST_MAIN(TestMainWindow)
#include "test_mainwindow.moc"
