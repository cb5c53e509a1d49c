// The Safety Copies window through the main window's menu: nothing to put back without copies,
// the copies newest first with the newest chosen, Put Back's question naming the tables and its
// summary, No changing nothing, Escape and the exit question, and the menu item given back on
// close.
#include "db/databasesession.h"
#include "safety/safetycopies.h"
#include "safety/safetynet.h"
#include "safetytest.h"
#include "toolfixture.h"

#include <QAction>
#include <QPointer>
#include <QPushButton>
#include <QSettings>
#include <QTreeWidget>

using namespace tabulon;
using namespace tabulon::test;

class TestSafetyCopies final : public QObject, ToolFixture {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { createDatabase("safetycopies"); }
    void init();
    void cleanup() { closeMain(); }

    void listsNewestFirstAndPutsBack();
    void wrongSettingToldAtStart();

private:
    SafetyCopies *open()
    {
        m_operator->modals.clear();
        m_main->menuItem(qs("mnusafety"))->trigger();
        return m_operator->modals.size() == 1 ? qobject_cast<SafetyCopies *>(m_operator->modals.first()) : nullptr;
    }
    ScratchSafety m_safety;
};

void TestSafetyCopies::init()
{
    QVERIFY_DB(m_db->run(awkwardTable(qs("t"), qs("InnoDB")) + QStringList{qs("DROP TABLE IF EXISTS u"),
                                                                           qs("CREATE TABLE u (a INT) ENGINE=MyISAM"),
                                                                           qs("INSERT INTO u VALUES (1), (NULL)")}));
    openMain();
    QDir(m_safety.settings().folder).removeRecursively();
    SafetySettings::store(m_safety.settings());
    m_main->Database = m_db->name();
    markLog();
    m_main->enableAllMenus();
}

void TestSafetyCopies::listsNewestFirstAndPutsBack()
{
    QPointer<SafetyCopies> w = open();
    QVERIFY(w);
    QVERIFY(!w->findChild<QPushButton *>(qs("cmdputback"))->isEnabled());
    QTest::keyClick(w, Qt::Key_Escape);
    QTRY_VERIFY(w.isNull());
    QVERIFY(m_main->menuItem(qs("mnusafety"))->isEnabled());

    QVERIFY_DB(SafetyNet::protectTables(session(), qs("Delete Record"), {qs("u")}));
    QVERIFY_DB(m_db->run({qs("UPDATE t SET name = 'first' WHERE id = 1")}));
    const QList<TableState> before = tableStates(*m_db, sl({"t", "u"}));
    QVERIFY_DB(SafetyNet::protectTables(session(), qs("Replace All"), {qs("t"), qs("u")}));
    // The copies' statements went over a connection of their own.
    QCOMPARE(sent(), QStringList());
    QVERIFY_DB(m_db->run({qs("DELETE FROM t WHERE id > 0"), qs("DROP TABLE u")}));

    w = open();
    QVERIFY(w);
    QVERIFY(!m_main->menuItem(qs("mnusafety"))->isEnabled());
    auto *list = w->findChild<QTreeWidget *>(qs("lstcopies"));
    QCOMPARE(list->topLevelItemCount(), 2);
    QCOMPARE(list->currentItem(), list->topLevelItem(0));
    const QTreeWidgetItem *newest = list->topLevelItem(0);
    QCOMPARE((QStringList{newest->text(1), newest->text(2), newest->text(3), newest->text(4),
                          list->topLevelItem(1)->text(1)}),
             (QStringList{qs("Replace All"), m_db->name(), qs("t, u"), qs("6"), qs("Delete Record")}));

    m_operator->answer = Dialogs::Answer::No;
    QTest::mouseClick(w->findChild<QPushButton *>(qs("cmdputback")), Qt::LeftButton);
    QCOMPARE(m_operator->told, QStringList());
    QCOMPARE(m_db->rows(qs("SELECT COUNT(*) FROM t")), sl({"1"}));
    m_operator->answer = Dialogs::Answer::Yes;
    QTest::mouseClick(w->findChild<QPushButton *>(qs("cmdputback")), Qt::LeftButton);
    QCOMPARE(m_operator->asked.size(), 2);
    const QString question = m_operator->asked.last();
    QVERIFY2(question.contains(qs("t, u")) && question.contains(m_db->name()), qPrintable(question));
    QCOMPARE(m_operator->told.size(), 1);
    QVERIFY2(m_operator->told.first().startsWith(qs("Put back 2 table(s) with 6 row(s)")),
             qPrintable(m_operator->told.first()));
    QCOMPARE(tableStates(*m_db, sl({"t", "u"})), before);
    // What the put-back replaced is listed as a copy of its own.
    QCOMPARE(list->topLevelItemCount(), 3);
    QCOMPARE(list->topLevelItem(0)->text(1), qs("Put Back"));
    QVERIFY2(m_operator->told.first().contains(qs("as they were before this put-back")),
             qPrintable(m_operator->told.first()));

    // Exit asks first.
    m_operator->answer = Dialogs::Answer::No;
    QTest::mouseClick(w->findChild<QPushButton *>(qs("cmdexit")), Qt::LeftButton);
    QVERIFY(w);
    m_operator->answer = Dialogs::Answer::Yes;
    QTest::mouseClick(w->findChild<QPushButton *>(qs("cmdexit")), Qt::LeftButton);
    QTRY_VERIFY(w.isNull());
    QVERIFY(m_main->menuItem(qs("mnusafety"))->isEnabled());
}

// A safety setting that is not a count is told at start, and the net refuses to work with it
// rather than using a value of its own.
void TestSafetyCopies::wrongSettingToldAtStart()
{
    closeMain();
    {
        QSettings ini(m_settingsDir.filePath(qs("settings.ini")), QSettings::IniFormat);
        ini.setValue(qs("Software/Corvane/Tabulon/SafetyMaxMB"), qs("0"));
    }
    openMain();
    QCOMPARE(m_operator->told.size(), 1);
    QVERIFY2(m_operator->told.first().contains(qs("SafetyMaxMB is \"0\"")), qPrintable(m_operator->told.first()));
    m_main->Database = m_db->name();
    markLog();
    const DbError refused = SafetyNet::protectTables(session(), qs("Save Table"), {qs("u")});
    QCOMPARE(refused.description, m_operator->told.first());
    QVERIFY(SafetyNet::listCopies(m_safety.settings().folder).isEmpty());
    SafetySettings::store(m_safety.settings());
}

QTEST_MAIN(TestSafetyCopies)
#include "test_safetycopies.moc"
