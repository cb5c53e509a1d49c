// The error reports of Table Detail and Create Table through their windows against a real server:
// a session that is closed, a table dropped behind the tool's back, a field statement or a table
// the server refuses. Each reports the server's own words once, ends the program, and leaves the
// tables as they were.
#include "db/dberror.h"
#include "grid/grid.h"
#include "structure/createtable.h"
#include "structure/tableinfo.h"
#include "toolfixture.h"

#include <QComboBox>
#include <QPushButton>
#include <QRadioButton>

using namespace tabulon;
using namespace tabulon::test;

namespace {

QString closedReport()
{
    return Dialogs::runtimeErrorText(DbError::generic(qs("Operation is not allowed when the object is closed.")));
}

QString serverReport(const QString &description)
{
    return qs("Run-time error '-2147467259 (80004005)':\n\n") + description;
}

} // namespace

class TestStructureErrors final : public QObject, ToolFixture {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { createDatabase("structerr"); }
    void init();
    void cleanup() { closeMain(); }

    void detailListing_data();
    void detailListing();
    void fieldCommandRefused_data();
    void fieldCommandRefused();
    void createOverAView();

private:
    TableInfo *openDetail()
    {
        auto *w = qobject_cast<TableInfo *>(openTool("mnuTabDet"));
        return w;
    }
    QStringList columns(const char *table)
    {
        return m_db->rows(qs("SELECT column_name, column_type FROM information_schema.columns WHERE "
                             "table_schema = '%1' AND table_name = '%2' ORDER BY ordinal_position")
                              .arg(m_db->name(), qs(table)));
    }
};

void TestStructureErrors::init()
{
    QVERIFY_DB(m_db->run({
        qs("DROP VIEW IF EXISTS Clients"),
        qs("DROP TABLE IF EXISTS bill, solo, staff"),
        qs("CREATE TABLE bill (code VARCHAR(10), name VARCHAR(20))"),
        qs("CREATE TABLE solo (only_one INT)"),
        qs("CREATE TABLE staff (id INT, nick VARCHAR(8))"),
    }));
    openMain();
}

void TestStructureErrors::detailListing_data()
{
    QTest::addColumn<QString>("when");   // what goes wrong, and when
    QTest::addColumn<QString>("report"); // the one run-time error reported

    QTest::newRow("closed before opening") << "closed on open" << closedReport();
    QTest::newRow("closed before Show") << "closed on show" << closedReport();
    QTest::newRow("table dropped before Show")
        << "dropped" << serverReport(qs("Table '%1.staff' doesn't exist").arg(m_db->name()));
}

void TestStructureErrors::detailListing()
{
    QFETCH(QString, when);
    QFETCH(QString, report);
    const QStringList before = columns("staff");
    if (when == qs("closed on open")) {
        markLog();
        session().close();
        m_main->enableAllMenus();
        m_main->menuItem(qs("mnuTabDet"))->trigger();
    } else {
        TableInfo *w = openDetail();
        QVERIFY(w);
        QCOMPARE(m_operator->runtimeErrors, QStringList());
        if (when == qs("closed on show"))
            session().close();
        else
            QVERIFY_DB(m_db->run({qs("RENAME TABLE staff TO staff_gone")}));
        w->findChild<QRadioButton *>(qs("optall"))->click();
        w->findChild<QPushButton *>(qs("cmdshow"))->click();
        if (when == qs("dropped")) {
            QVERIFY_DB(m_db->run({qs("RENAME TABLE staff_gone TO staff")}));
            // The tables before the missing one were listed; the listing stopped there.
            QCOMPARE(w->grid()->textMatrix(w->grid()->rows() - 1, 0).section(u' ', 2), qs("solo"));
        }
    }
    QCOMPARE(m_operator->runtimeErrors, QStringList{report});
    QCOMPARE(m_operator->ends, QList<int>{1});
    QCOMPARE(m_operator->told, QStringList());
    QCOMPARE(columns("staff"), before);
}

void TestStructureErrors::fieldCommandRefused_data()
{
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("typed");
    QTest::addColumn<QString>("report");

    QTest::newRow("add a name already there")
        << "staff"
        << "mnuaf" << sl({"nick", "int"}) << serverReport(qs("Duplicate column name 'nick'"));
    QTest::newRow("modify to a width out of range")
        << "staff"
        << "mnumf" << sl({"", "int(999)"}) << serverReport(qs("Display width out of range for 'id' (max = 255)"));
    QTest::newRow("delete the only field")
        << "solo"
        << "mnudf" << QStringList()
        << serverReport(qs("You can't delete all columns with ALTER TABLE; use DROP TABLE instead"));
}

void TestStructureErrors::fieldCommandRefused()
{
    QFETCH(QString, table);
    QFETCH(QString, command);
    QFETCH(QStringList, typed);
    QFETCH(QString, report);
    const QStringList before = columns(table.toUtf8().constData());
    TableInfo *w = openDetail();
    QVERIFY(w);
    auto *combo = w->findChild<QComboBox *>(qs("Combo1"));
    combo->setCurrentIndex(combo->findText(table));
    w->findChild<QPushButton *>(qs("cmdshow"))->click();
    QCOMPARE(w->grid()->textMatrix(1, 0), qs("1 - ") + table);
    m_operator->typed = typed;
    m_main->menuItem(command)->trigger();
    QCOMPARE(m_operator->runtimeErrors, QStringList{report});
    QCOMPARE(m_operator->ends, QList<int>{1});
    QCOMPARE(columns(table.toUtf8().constData()), before);
}

void TestStructureErrors::createOverAView()
{
    // The name is taken by a view: the table cannot be created, and the view is not a table that
    // Drop Table would remove, so the second try is reported and the view stays.
    QVERIFY_DB(m_db->run({qs("CREATE VIEW Clients AS SELECT code FROM bill")}));
    auto *w = qobject_cast<CreateTable *>(openTool("mnuct"));
    QVERIFY(w);
    Grid &g = *w->grid();
    g.setRows(2);
    g.setTextMatrix(1, 0, qs("code"));
    g.setTextMatrix(1, 1, qs("int"));
    m_operator->typed = sl({"Clients"});
    w->findChild<QPushButton *>(qs("cmdsavetable"))->click();
    QCOMPARE(m_operator->asked, sl({"This Table is already exist, Do You still want to create Table"}));
    QCOMPARE(m_operator->runtimeErrors.size(), 1);
    QVERIFY2(m_operator->runtimeErrors.first().startsWith(serverReport(QString())) &&
                 m_operator->runtimeErrors.first().contains(qs("Clients")),
             qPrintable(m_operator->runtimeErrors.first()));
    QCOMPARE(m_operator->ends, QList<int>{1});
    QCOMPARE(m_db->rows(qs("SELECT table_type FROM information_schema.tables WHERE table_schema = '%1' AND "
                           "table_name = 'Clients'")
                            .arg(m_db->name())),
             sl({"VIEW"}));
    QCOMPARE(sent(), sl({"Create Table Clients (code int)", "Drop Table Clients"}));
}

QTEST_MAIN(TestStructureErrors)
#include "test_structureerrors.moc"
