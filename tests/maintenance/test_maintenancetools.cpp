// The check and repair tools through the main window's menu against a real server whose
// MyISAM files the tests damage: statements sent, messages shown, the pages, the file copy
// from another database's folder and the menu item given back on close.
#include "app/mdiform1.h"
#include "app/toolcatalog.h"
#include "grid/grid.h"
#include "maintenance/checktable.h"
#include "maintenance/repairtable.h"
#include "operator.h"
#include "testdb.h"
#include "ui/tablechecklist.h"

#include <QAction>
#include <QFile>
#include <QFrame>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

namespace {

const QStringList kTables{qs("CREATE TABLE bill (id INT PRIMARY KEY, name VARCHAR(20), KEY(name)) ENGINE=MyISAM"),
                          qs("INSERT INTO bill VALUES (1,'a'),(2,'b'),(3,'c')"),
                          qs("CREATE TABLE sound (a INT) ENGINE=MyISAM"), qs("INSERT INTO sound VALUES (1)")};

void click(QWidget *window, const char *name, QWidget *inside = nullptr)
{
    auto *button = (inside ? inside : window)->findChild<QPushButton *>(qs(name));
    QVERIFY2(button, name);
    QTest::mouseClick(button, Qt::LeftButton);
}

} // namespace

class TestMaintenanceTools final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void checkFindsDamageAndReplaceMendsIt();
    void exitAsksFirst_data();
    void exitAsksFirst();
    void repairThenCheckFindsNoError();

private:
    template <typename Tool> Tool *open(const char *menu);
    QStringList sent() { return statementsReceived(m_db->admin(), m_main->session()->connectionId()); }
    QString indexFile(const QString &database) const { return m_dataFolder + database + qs("/bill.MYI"); }
    DbError damageIndex();

    std::unique_ptr<ScratchDatabase> m_db;
    std::unique_ptr<ScratchDatabase> m_source;
    QString m_dataFolder;
    QTemporaryDir m_settingsDir;
    std::unique_ptr<MDIForm1> m_main;
    std::unique_ptr<Operator> m_operator;
};

void TestMaintenanceTools::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(qs("maintenance"));
    QVERIFY_DB(m_db->error());
    m_source = std::make_unique<ScratchDatabase>(qs("maintenance_source"));
    QVERIFY_DB(m_source->error());
    QVERIFY_DB(m_source->run(kTables));
    QVERIFY_DB(m_source->run({qs("FLUSH TABLES")}));
    m_dataFolder = m_db->rows(qs("SELECT @@datadir")).value(0);
    QVERIFY(QFile::exists(indexFile(m_source->name())));
}

void TestMaintenanceTools::init()
{
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS bill, sound")}));
    QVERIFY_DB(m_db->run(kTables));
    m_operator = std::make_unique<Operator>();
    m_main = std::make_unique<MDIForm1>(AppEnvironment{m_settingsDir.filePath(qs("settings.ini")), {}, {}});
    m_main->settingsStore().WriteRegistryString(Hive::LocalMachine, Settings::kKey, qs("DataFolder"), m_dataFolder);
    m_main->Database = m_db->name();
    registerTools(*m_main);
    QVERIFY_DB(openSession(*m_main->session(), m_db->name()));
    m_main->enableAllMenus();
}

void TestMaintenanceTools::cleanup()
{
    // The tools are children of the main window and go with it.
    m_main.reset();
    m_operator.reset();
}

template <typename Tool> Tool *TestMaintenanceTools::open(const char *menu)
{
    m_main->menuItem(qs(menu))->trigger();
    if (m_operator->modals.size() != 1)
        return nullptr;
    return qobject_cast<Tool *>(m_operator->modals.first());
}

DbError TestMaintenanceTools::damageIndex()
{
    if (DbError e = m_db->run({qs("FLUSH TABLES")}))
        return e;
    QFile index(indexFile(m_db->name()));
    if (!index.open(QIODevice::ReadWrite) || !index.seek(1024) || index.write(QByteArray(2048, '\xff')) != 2048)
        return DbError::file(index.fileName(), index.errorString());
    return {};
}

void TestMaintenanceTools::checkFindsDamageAndReplaceMendsIt()
{
    QVERIFY_DB(damageIndex());
    QPointer<CheckTable> w = open<CheckTable>("mnuchktab");
    QVERIFY(w);
    QCOMPARE(w->objectName(), qs("CheckTable"));
    QCOMPARE(w->dataFolder(), m_dataFolder);
    QVERIFY(!m_main->menuItem(qs("mnuchktab"))->isEnabled());
    TableChecklist *list = w->checklist();
    QCOMPARE(list->tables(), sl({"bill", "sound"}));

    click(w, "cmdcheck");
    QCOMPARE(m_operator->told, sl({"No table has been selected"}));
    QVERIFY(list->selectionPage()->isVisible());

    list->selectAll();
    click(w, "cmdcheck");
    QCOMPARE(sent(), sl({"SHOW Tables", "Check Table bill Extended", "Check Table sound Extended"}));
    auto *resultPage = w->findChild<QFrame *>(qs("Frame1"));
    QVERIFY(resultPage->isVisible());
    QVERIFY(!list->isVisible());
    const Grid &g = *w->resultGrid();
    QVERIFY(g.rows() >= 3);
    QStringList names;
    for (int r = 1; r < g.rows(); ++r) {
        QVERIFY(g.textMatrix(r, 0) != qs("OK"));
        names << g.textMatrix(r, 1);
    }
    QVERIFY2(names.contains(qs("bill.MYI")), qPrintable(names.join(QLatin1Char(','))));
    QVERIFY(!names.contains(qs("sound")));

    // Back keeps the ticks; the good index comes from the other database's folder.
    click(w, "cmdback", resultPage);
    QVERIFY(list->selectionPage()->isVisible() && !resultPage->isVisible());
    QCOMPARE(list->tickedCount(), 2);
    click(w, "cmdcheck");
    w->findChild<QLineEdit *>(qs("Text1"))->setText(m_source->name());
    m_operator->told.clear();
    click(w, "cmdreplace", resultPage);
    QCOMPARE(m_operator->told, sl({"Completed."}));
    QVERIFY(w->isVisible());
    QVERIFY_DB(m_db->run({qs("FLUSH TABLES")}));
    QCOMPARE(m_db->rows(qs("CHECK TABLE bill EXTENDED")).last().section(QLatin1Char('|'), 3), qs("OK"));
    QCOMPARE(m_db->rows(qs("SELECT name FROM bill WHERE name > 'a' ORDER BY name")), sl({"b", "c"}));
}

void TestMaintenanceTools::exitAsksFirst_data()
{
    QTest::addColumn<QString>("menu");
    QTest::addColumn<bool>("yes");
    QTest::newRow("check, no") << qs("mnuchktab") << false;
    QTest::newRow("check, yes") << qs("mnuchktab") << true;
    QTest::newRow("repair, no") << qs("mnureptab") << false;
    QTest::newRow("repair, yes") << qs("mnureptab") << true;
}

void TestMaintenanceTools::exitAsksFirst()
{
    QFETCH(QString, menu);
    QFETCH(bool, yes);
    m_operator->answer = yes ? Dialogs::Answer::Yes : Dialogs::Answer::No;
    m_main->menuItem(menu)->trigger();
    QCOMPARE(m_operator->modals.size(), 1);
    QPointer<QDialog> w = m_operator->modals.first();
    w->show();
    click(w, "cmdExit", w->findChild<QFrame *>(qs("Frame2")));
    QCOMPARE(m_operator->asked, sl({"Are you sure you want to exit?"}));
    if (!yes) {
        QVERIFY(w->isVisible());
        QVERIFY(!m_main->menuItem(menu)->isEnabled());
        // Escape leaves without asking.
        QTest::keyClick(w, Qt::Key_Escape);
    }
    QTRY_VERIFY(w.isNull());
    QVERIFY(m_main->menuItem(menu)->isEnabled());
    QCOMPARE(m_operator->asked.size(), 1);
}

void TestMaintenanceTools::repairThenCheckFindsNoError()
{
    QVERIFY_DB(damageIndex());
    // A table dropped after the list was filled does not stop the loop.
    QVERIFY_DB(m_db->run({qs("CREATE TABLE gone (a INT)")}));
    QPointer<RepairTable> w = open<RepairTable>("mnureptab");
    QVERIFY(w);
    QCOMPARE(w->objectName(), qs("RepairTable"));
    QVERIFY_DB(m_db->run({qs("DROP TABLE gone")}));
    w->checklist()->setTicked(qs("gone"), true);
    w->checklist()->setTicked(qs("bill"), true);
    click(w, "cmdrepair");
    QCOMPARE(sent(), sl({"SHOW Tables", "Repair Table bill Extended", "Repair Table gone Extended"}));
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
    QVERIFY(m_main->menuItem(qs("mnuchktab"))->isEnabled());
}

QTEST_MAIN(TestMaintenanceTools)
#include "test_maintenancetools.moc"
