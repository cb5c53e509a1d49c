// The main window and the loops its tools run on the shared session: closing the main window or
// setting up the connection while a loop yields stops the loop first and happens after it, and
// Enter typed into a tool dialog's list or text box starts none of its work.
#include "backup/backup.h"
#include "backup/backuparchive.h"
#include "backup/folderlists.h"
#include "toolfixture.h"
#include "ui/tablechecklist.h"
#include "ui/toolwindow.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDate>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QRadioButton>
#include <QTimer>

using namespace tabulon;
using namespace tabulon::test;

class TestToolLoops final : public QObject, ToolFixture {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup()
    {
        closeMain();
        m_db.reset();
    }

    void closeMainDuringLoop_data();
    void closeMainDuringLoop();
    void setDatabaseWaitsForHiddenLoop();
    void enterStartsNothing_data();
    void enterStartsNothing();

private:
    QWidget *openModal(const char *command)
    {
        const qsizetype before = m_operator->modals.size();
        openTool(command);
        return m_operator->modals.size() > before ? m_operator->modals.last() : nullptr;
    }
    QString archive() const { return m_folder.filePath(BackupArchive::datedName(QDate::currentDate()) + qs(".zip")); }
    void makeArchive();

    QTemporaryDir m_folder;
};

void TestToolLoops::init()
{
    createDatabase("toolloops");
    for (const QString &n : {qs("1"), qs("2"), qs("3")}) // t1, t2, t3, one row each
        QVERIFY_DB(m_db->run({qs("CREATE TABLE t%1 (code VARCHAR(10), city VARCHAR(20)) ENGINE=MyISAM").arg(n),
                              qs("INSERT INTO t%1 VALUES ('C%1','Oslo')").arg(n)}));
    openMain();
    m_main->Database = m_db->name();
    m_main->Server = serverAddress();
    m_main->User = qs("dbop");
}

void TestToolLoops::makeArchive()
{
    QPointer<BackUp> w = qobject_cast<BackUp *>(openModal("mnubackup"));
    QVERIFY(w);
    w->folderLists()->setFolder(m_folder.path());
    click(w, "cmdok");
    click(w, "cmdBackup");
    QCOMPARE(m_operator->told, sl({"Backup Sucessfully"}));
    QTRY_VERIFY(!w);
    m_operator->told.clear();
}

void TestToolLoops::closeMainDuringLoop_data()
{
    QTest::addColumn<QString>("command");
    QTest::newRow("search") << qs("mnusearch");
    QTest::newRow("replace scan") << qs("mnureplace");
    QTest::newRow("check") << qs("mnuchktab");
    QTest::newRow("restore") << qs("mnurestore");
}

// The close arrives while the loop yields before its first table: the main window stays open
// on the same open session until the loop has stopped, then closes and releases it.
void TestToolLoops::closeMainDuringLoop()
{
    QFETCH(QString, command);
    QPushButton *start = nullptr;
    if (command == qs("mnusearch") || command == qs("mnureplace")) {
        QWidget *w = openTool(qPrintable(command));
        QVERIFY(w);
        const bool search = command == qs("mnusearch");
        if (search)
            child<QRadioButton>(w, "optall")->click();
        child<QLineEdit>(w, search ? "txtsdata" : "txtfind")->setText(qs("Oslo"));
        start = child<QPushButton>(w, search ? "cmdsearch" : "cmdfind");
    } else if (command == qs("mnuchktab")) {
        QWidget *w = openModal("mnuchktab");
        QVERIFY(w);
        w->findChild<TableChecklist *>()->selectAll();
        start = child<QPushButton>(w, "cmdcheck");
    } else {
        makeArchive();
        QWidget *w = openModal("mnurestore");
        QVERIFY(w);
        child<QLineEdit>(w, "txtpath")->setText(archive());
        click(w, "cmdok");
        child<QLineEdit>(w, "txtdbpath")->setText(m_db->name());
        click(w, "Command2");
        QCOMPARE(w->findChild<TableChecklist *>()->tickedCount(), 3);
        start = child<QPushButton>(w, "cmdrestore");
    }
    QVERIFY(start);
    const QStringList before = m_db->rows(qs("SELECT * FROM t3"));
    markLog();
    DatabaseSession *session = m_main->session();
    const unsigned long connection = session->connectionId();
    bool heldOpen = false;
    QTimer::singleShot(0, m_main.get(), [&] {
        m_main->close();
        heldOpen = m_main->isVisible() && m_main->session() == session && session->isOpen();
    });
    start->click();
    QVERIFY(heldOpen);
    QTRY_VERIFY(!m_main->isVisible());
    QVERIFY(!m_main->session()->isOpen());
    // Stopped before its first table: nothing of the last one was read or written.
    QVERIFY(statementsReceived(m_db->admin(), connection).filter(qs("t3")).isEmpty());
    QCOMPARE(m_db->rows(qs("SELECT * FROM t3")), before);
    QVERIFY(m_operator->runtimeErrors.isEmpty());
}

// A tool loaded by a pop-up command may run a loop while hidden, so the other-windows rule lets
// the connection setup through; the setup then waits for that loop to stop.
void TestToolLoops::setDatabaseWaitsForHiddenLoop()
{
    markLog();
    QWidget hiddenTool;
    BusyState busy(&hiddenTool);
    DatabaseSession *session = m_main->session();
    int steps = 0;
    bool sessionKept = true;
    {
        BusyGuard guard(busy);
        QVERIFY(bool(guard));
        for (; steps < 5 && !busy.stopRequested(); ++steps) {
            if (steps == 1)
                m_main->menuItem(qs("mnusetdb"))->trigger();
            QCoreApplication::processEvents();
            sessionKept = sessionKept && m_main->session() == session && session->isOpen();
        }
        QVERIFY(m_operator->modals.isEmpty());
    }
    QCOMPARE(steps, 2);
    QVERIFY(sessionKept);
    QTRY_COMPARE(m_operator->modals.size(), 1);
    QCOMPARE(m_operator->modals.first()->objectName(), qs("DatabaseInfo"));
    QVERIFY(m_operator->told.isEmpty());
}

void TestToolLoops::enterStartsNothing_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("box");
    QTest::newRow("check") << qs("mnuchktab") << qs("lsttables");
    QTest::newRow("repair") << qs("mnureptab") << qs("lsttables");
    QTest::newRow("backup") << qs("mnubackup") << qs("txtpath");
    QTest::newRow("restore") << qs("mnurestore") << qs("txtpath");
    QTest::newRow("conversion") << qs("mnuconvertdb") << qs("Text1");
}

// Each row's Enter would start the tool's work (or its first page's) through a default button:
// a check or repair of the ticked tables, a page change that asks for a path, a conversion.
void TestToolLoops::enterStartsNothing()
{
    QFETCH(QString, command);
    QFETCH(QString, box);
    m_operator->chosenFile = m_folder.filePath(qs("source.mdb"));
    QPointer<QWidget> w = openModal(qPrintable(command));
    QVERIFY(w);
    if (auto *list = w->findChild<TableChecklist *>())
        list->selectAll();
    QWidget *target = w->findChild<QWidget *>(box);
    QVERIFY(target && target->isVisible());
    target->setFocus();
    QTest::keyClick(target, Qt::Key_Return);
    QTest::keyClick(target, Qt::Key_Enter);
    QCoreApplication::processEvents();
    QVERIFY(w && w->isVisible());
    QCOMPARE(m_operator->told, QStringList());
    QCOMPARE(m_operator->asked, QStringList());
    QCOMPARE(sent().filter(qs(" Extended")), QStringList());
}

QTEST_MAIN(TestToolLoops)
#include "test_toolloops.moc"
