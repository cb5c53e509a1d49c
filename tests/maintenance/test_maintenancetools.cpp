// The check and repair rules (the file a message names, what a check of a missing or unnamable
// table gives, long statements, the file copy between database folders), and the check and
// repair tools through the main window's menu against a real server whose MyISAM files the
// tests damage: statements sent, messages shown, the pages, the file copy from another
// database's folder, the exit question and the menu item given back on close.
#include "files.h"
#include "grid/grid.h"
#include "gridtexts.h"
#include "maintenance/checktable.h"
#include "maintenance/repairtable.h"
#include "maintenance/tablecheck.h"
#include "toolfixture.h"
#include "ui/tablechecklist.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QFrame>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTimer>

#include <chrono>
#include <thread>

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

    void rules_data();
    void rules();
    void checkFindings();
    void longStatementsOutlastTheReadTimeout_data();
    void longStatementsOutlastTheReadTimeout();
    void replaceFiles();
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
    QVERIFY_DB(m_db->run(QStringList{qs("DROP TABLE IF EXISTS bill, sound, held, after_it")} + kTables));
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

// The file a check's message names, and the folder of a database's files.
// One row per line reads best here.
// clang-format off
void TestMaintenanceTools::rules_data()
{
    QTest::addColumn<QString>("actual");
    QTest::addColumn<QString>("expected");
    QTest::newRow("named file: file in quotes") << TableCheck::namedFile(qs("bill"), qs("Index for table './orvita/bill.MYI' is corrupt; try to repair it")) << qs("bill.MYI");
    QTest::newRow("named file: other case in message") << TableCheck::namedFile(qs("BILL"), qs("Can't find file: './x/bill.MYI' (errno: 2)")) << qs("bill.MYI");
    QTest::newRow("named file: name not in message") << TableCheck::namedFile(qs("bill"), qs("Corrupt")) << qs("bill");
    QTest::newRow("named file: no quote after name") << TableCheck::namedFile(qs("bill"), qs("Table bill is marked as crashed")) << qs("bill");
    QTest::newRow("named file: quote only before name") << TableCheck::namedFile(qs("bill"), qs("'x' bill")) << qs("bill");
    QTest::newRow("named file: first occurrence wins") << TableCheck::namedFile(qs("bill"), qs("bill_old and 'bill.MYD'")) << qs("bill_old and ");
    QTest::newRow("database folder") << TableCheck::databaseFolder(qs("/var/lib/mysql/"), qs("Orvita")) << qs("/var/lib/mysql/Orvita/");
}
// clang-format on

void TestMaintenanceTools::rules()
{
    QFETCH(QString, actual);
    QTEST(actual, "expected");
}

// A damaged table and its repair are checked through the windows, below.
void TestMaintenanceTools::checkFindings()
{
    DatabaseSession &session = this->session();
    // A missing table is still an answer (its messages); a statement the server refuses is not.
    const auto missing = TableCheck::checkTable(session, qs("nosuch"));
    QVERIFY(!missing.isEmpty());
    QCOMPARE(missing.first().name, qs("nosuch"));
    const QList<TableCheck::Finding> refused{{qs("Could open table"), qs("no such")}};
    QCOMPARE(TableCheck::checkTable(session, qs("no such")), refused);
}

void TestMaintenanceTools::longStatementsOutlastTheReadTimeout_data()
{
    QTest::addColumn<bool>("repair");
    QTest::newRow("check") << false;
    QTest::newRow("repair") << true;
}

// A check or repair that takes longer than the session's read time-out (here it waits for a
// table another connection holds locked) still gets its answer, and the tables after it are
// worked on the same connection.
void TestMaintenanceTools::longStatementsOutlastTheReadTimeout()
{
    QFETCH(bool, repair);
    QVERIFY_DB(m_db->run({qs("create table held (n int) engine=MyISAM"),
                          qs("create table after_it (n int) engine=MyISAM"), qs("insert into held values (1),(2)")}));
    DatabaseSession session;
    session.setTimeouts(5, 1, 5);
    QVERIFY_DB(openSession(session, m_db->name()));
    DatabaseSession holder;
    QVERIFY_DB(openSession(holder, m_db->name()));
    QVERIFY_DB(holder.execute(qs("LOCK TABLES held WRITE")));
    std::jthread release([&holder] {
        std::this_thread::sleep_for(std::chrono::milliseconds(2500));
        (void)holder.execute(qs("UNLOCK TABLES"));
    });

    for (const QString &table : {qs("held"), qs("after_it")}) {
        if (repair) {
            QVERIFY_DB(TableCheck::repairTable(session, table));
        } else {
            QCOMPARE(TableCheck::checkTable(session, table), QList<TableCheck::Finding>{});
        }
    }
    // The session's own time-out is back for everything else.
    QVERIFY(session.execute(qs("select sleep(2)")).isError());
}

void TestMaintenanceTools::replaceFiles()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString data = dir.path(); // no separator at the end: one is supplied
    write(data + qs("/good/t.MYI"), "good index");
    write(data + qs("/good/u.MYD"), "good data");
    write(data + qs("/bad/t.MYI"), "broken");
    write(data + qs("/bad/v.MYI"), "kept");

    const QList<DbError> failures =
        TableCheck::replaceFiles(data, qs("good"), qs("bad"), sl({"t.MYI", "", "u.MYD", "v.MYI"}));
    QCOMPARE(read(data + qs("/bad/t.MYI")), QByteArray("good index")); // overwritten
    QCOMPARE(read(data + qs("/bad/u.MYD")), QByteArray("good data"));  // created
    QCOMPARE(read(data + qs("/bad/v.MYI")), QByteArray("kept"));       // no source: untouched
    QCOMPARE(failures.size(), 1);
    QVERIFY(failures.first().isFileError());
    QVERIFY(failures.first().description.contains(qs("good/v.MYI")));
    QCOMPARE(QDir(data + qs("/bad")).entryList(QDir::Files), sl({"t.MYI", "u.MYD", "v.MYI"}));
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
