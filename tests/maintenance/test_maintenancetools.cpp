// The check and repair tools through the main window's menu against a real server whose
// MyISAM files the tests damage: statements sent, messages shown, the pages, the file copy
// from another database's folder, the exit question and the menu item given back on close.
#include "grid/grid.h"
#include "gridtexts.h"
#include "maintenance/checktable.h"
#include "maintenance/repairtable.h"
#include "toolfixture.h"
#include "ui/tablechecklist.h"

#include <QAction>
#include <QFile>
#include <QFrame>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTimer>

using namespace tabulon;
using namespace tabulon::test;

namespace {

const QStringList kTables{qs("CREATE TABLE bill (id INT PRIMARY KEY, name VARCHAR(20), KEY(name)) ENGINE=MyISAM"),
                          qs("INSERT INTO bill VALUES (1,'a'),(2,'b'),(3,'c')"),
                          qs("CREATE TABLE sound (a INT) ENGINE=MyISAM"), qs("INSERT INTO sound VALUES (1)")};

} // namespace

class TestMaintenanceTools final : public QObject, ToolFixture {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup() { closeMain(); } // the tools are children of the main window and go with it

    void checkFindsDamageAndReplaceMendsIt();
    void repairThenCheckFindsNoError();
    void closeDuringCheckStopsThenCloses();

private:
    template <typename Tool> Tool *open(const char *menu)
    {
        m_main->menuItem(qs(menu))->trigger();
        return m_operator->modals.size() == 1 ? qobject_cast<Tool *>(m_operator->modals.first()) : nullptr;
    }
    DbError damageIndex();

    std::unique_ptr<ScratchDatabase> m_source;
    QString m_dataFolder;
};

void TestMaintenanceTools::initTestCase()
{
    createDatabase("maintenance");
    m_source = std::make_unique<ScratchDatabase>(qs("maintenance_source"));
    QVERIFY_DB(m_source->error());
    QVERIFY_DB(m_source->run(kTables + QStringList{qs("FLUSH TABLES")}));
    m_dataFolder = m_db->rows(qs("SELECT @@datadir")).value(0);
}

void TestMaintenanceTools::init()
{
    QVERIFY_DB(m_db->run(QStringList{qs("DROP TABLE IF EXISTS bill, sound")} + kTables));
    openMain();
    m_main->settingsStore().WriteRegistryString(Hive::LocalMachine, Settings::kKey, qs("DataFolder"), m_dataFolder);
    m_main->Database = m_db->name();
    markLog(); // the session the tools open on
    m_main->enableAllMenus();
}

DbError TestMaintenanceTools::damageIndex()
{
    if (DbError e = m_db->run({qs("FLUSH TABLES")}))
        return e;
    QFile index(m_dataFolder + m_db->name() + qs("/bill.MYI"));
    if (!index.open(QIODevice::ReadWrite) || !index.seek(1024) || index.write(QByteArray(2048, '\xff')) != 2048)
        return DbError::file(index.fileName(), index.errorString());
    return {};
}

void TestMaintenanceTools::checkFindsDamageAndReplaceMendsIt()
{
    QVERIFY_DB(damageIndex());
    QPointer<CheckTable> w = open<CheckTable>("mnuchktab");
    QVERIFY(w);
    TableChecklist *list = w->checklist();
    QCOMPARE(list->tables(), sl({"bill", "sound"}));
    m_operator->answer = Dialogs::Answer::No;
    click(list->selectionPage(), "cmdExit");
    QCOMPARE(m_operator->asked, sl({"Are you sure you want to exit?"}));
    QVERIFY(w->isVisible() && !m_main->menuItem(qs("mnuchktab"))->isEnabled());
    click(w, "cmdcheck");
    QCOMPARE(m_operator->told, sl({"No table has been selected"}));

    list->selectAll();
    click(w, "cmdcheck");
    QCOMPARE(sent(), sl({"SHOW Tables", "Check Table bill Extended", "Check Table sound Extended"}));
    auto *resultPage = w->findChild<QFrame *>(qs("Frame1"));
    QVERIFY(resultPage->isVisible() && !list->isVisible());
    const QStringList names = gridColumnTexts(w->resultGrid()->cells(), 1);
    QVERIFY2(names.contains(qs("bill.MYI")) && !names.contains(qs("sound")), qPrintable(names.join(u',')));

    // Back keeps the ticks; the good index comes from the other database's folder.
    click(resultPage, "cmdback");
    QVERIFY(list->selectionPage()->isVisible() && !resultPage->isVisible());
    QCOMPARE(list->tickedCount(), 2);
    click(w, "cmdcheck");
    w->findChild<QLineEdit *>(qs("Text1"))->setText(m_source->name());
    m_operator->told.clear();
    click(resultPage, "cmdreplace");
    QCOMPARE(m_operator->told, sl({"Completed."}));
    QVERIFY(w->isVisible());
    QVERIFY_DB(m_db->run({qs("FLUSH TABLES")}));
    QCOMPARE(m_db->rows(qs("CHECK TABLE bill EXTENDED")).last().section(QLatin1Char('|'), 3), qs("OK"));

    m_operator->answer = Dialogs::Answer::Yes;
    click(resultPage, "cmdExit");
    QCOMPARE(m_operator->asked.size(), 2);
    QTRY_VERIFY(w.isNull());
    QVERIFY(m_main->menuItem(qs("mnuchktab"))->isEnabled());
}

void TestMaintenanceTools::repairThenCheckFindsNoError()
{
    QVERIFY_DB(damageIndex());
    // A table dropped after the list was filled does not stop the loop.
    QVERIFY_DB(m_db->run({qs("CREATE TABLE gone (a INT)")}));
    QPointer<RepairTable> w = open<RepairTable>("mnureptab");
    QVERIFY(w);
    // Exit asks first; Escape leaves without asking.
    m_operator->answer = Dialogs::Answer::No;
    click(w, "cmdExit");
    QVERIFY(w->isVisible());
    QTest::keyClick(w, Qt::Key_Escape);
    QTRY_VERIFY(w.isNull());
    QCOMPARE(m_operator->asked, sl({"Are you sure you want to exit?"}));
    m_operator->answer = Dialogs::Answer::Yes;
    m_operator->modals.clear();
    w = open<RepairTable>("mnureptab");
    QVERIFY(w);
    QVERIFY_DB(m_db->run({qs("DROP TABLE gone")}));
    w->checklist()->setTicked(qs("gone"), true);
    w->checklist()->setTicked(qs("bill"), true);
    click(w, "cmdrepair");
    // One listing per window opened.
    QCOMPARE(sent(), sl({"SHOW Tables", "SHOW Tables", "Repair Table bill Extended", "Repair Table gone Extended"}));
    QCOMPARE(m_operator->told, sl({"Database Repaired Sucessfully"}));
    QTRY_VERIFY(w.isNull());
    QVERIFY(m_main->menuItem(qs("mnureptab"))->isEnabled());

    // Only "OK" answers: "No Error Found." and the check window closes.
    m_operator->modals.clear();
    m_operator->told.clear();
    QPointer<CheckTable> check = open<CheckTable>("mnuchktab");
    QVERIFY(check);
    check->checklist()->setTicked(qs("bill"), true);
    click(check, "cmdcheck");
    QCOMPARE(m_operator->told, sl({"No Error Found."}));
    QTRY_VERIFY(check.isNull());
}

// A close while the loop runs is held until the loop stops, before the next table.
void TestMaintenanceTools::closeDuringCheckStopsThenCloses()
{
    QPointer<CheckTable> w = open<CheckTable>("mnuchktab");
    QVERIFY(w);
    w->checklist()->selectAll();
    bool heldOpen = false;
    QTimer::singleShot(0, w, [&] {
        w->close();
        heldOpen = w && w->isVisible();
    });
    click(w, "cmdcheck");
    QVERIFY(heldOpen);
    QCOMPARE(sent(), sl({"SHOW Tables"}));
    QVERIFY(m_operator->told.isEmpty());
    QTRY_VERIFY(w.isNull());
}

QTEST_MAIN(TestMaintenanceTools)
#include "test_maintenancetools.moc"
