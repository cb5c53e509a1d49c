// Table detail and create table through the main window's menus against a real server: the
// statements sent, the narrowing of the table list, the field commands of the pop-up menu,
// the keys and rows of the create grid, what a save says, and the untrapped errors that end
// the program with the server's own words and the tables as they were.
#include "grid/grid.h"
#include "gridtexts.h"
#include "structure/createtable.h"
#include "structure/tableinfo.h"
#include "toolfixture.h"

#include <QAction>
#include <QComboBox>
#include <QLineEdit>
#include <QMenu>
#include <QPointer>
#include <QPushButton>
#include <QRadioButton>

using namespace tabulon;
using namespace tabulon::test;

namespace {

// The server's log leaves out a statement's closing semicolon and blanks, so statements sent are
// compared without them.
const QStringList kListAll{qs("Repair Table bill"),        qs("show columns from bill"), qs("Repair Table owner1"),
                           qs("show columns from owner1"), qs("Repair Table staff"),     qs("show columns from staff")};

QStringList items(const QComboBox *combo)
{
    QStringList out;
    for (int i = 0; i < combo->count(); ++i)
        out << combo->itemText(i);
    return out;
}

} // namespace

class TestStructureTools final : public QObject, ToolFixture {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { createDatabase("structure"); }
    void init();
    void cleanup() { closeMain(); }

    void detailListsAndNarrows();
    void fieldCommands_data();
    void fieldCommands();
    void fieldCommandsNeedARowAndATable();
    void untrappedErrors_data();
    void untrappedErrors();
    void createGridKeysAndRows();
    void saveTable_data();
    void saveTable();

private:
    template <typename Tool> Tool *open(const char *menu)
    {
        m_main->menuItem(qs(menu))->trigger();
        return qobject_cast<Tool *>(m_main->toolWindow(qs(menu)));
    }
    QComboBox *combo(QWidget *w) { return child<QComboBox>(w, "Combo1"); }
    // The texts of every box shown but the run-time error reports.
    QStringList prompts() const
    {
        QStringList out;
        for (const Dialogs::Prompt &p : m_operator->prompts)
            if (p.kind != Dialogs::Prompt::Kind::RuntimeError)
                out << p.text;
        return out;
    }
    QStringList columns(const QString &table)
    {
        return m_db->rows(qs("SELECT column_name, column_type FROM information_schema.columns WHERE "
                             "table_schema = '%1' AND table_name = '%2' ORDER BY ordinal_position")
                              .arg(m_db->name(), table));
    }
};

void TestStructureTools::init()
{
    QVERIFY_DB(m_db->run({
        qs("DROP VIEW IF EXISTS Clients"),
        qs("DROP TABLE IF EXISTS bill, owner1, staff, solo, Clients"),
        qs("CREATE TABLE bill (code VARCHAR(10), name VARCHAR(20)) ENGINE=MyISAM"),
        qs("CREATE TABLE owner1 (code VARCHAR(10), code_no INT)"),
        qs("CREATE TABLE staff (id INT, nick VARCHAR(8))"),
    }));
    openMain();
    markLog(); // the session the tools open on
    m_main->enableAllMenus();
}

void TestStructureTools::detailListsAndNarrows()
{
    TableInfo *w = open<TableInfo>("mnuTabDet");
    QVERIFY(w);
    QVERIFY(!m_main->menuItem(qs("mnuTabDet"))->isEnabled());
    QCOMPARE(items(combo(w)), sl({"bill", "owner1", "staff"}));
    QCOMPARE(sent(), sl({"SHOW Tables", "Repair Table bill", "show columns from bill"}));
    QCOMPARE(gridRowTexts(w->grid()->cells(), 1), sl({"1 - bill|code|varchar(10)", "2 - bill|name|varchar(20)"}));
    QCOMPARE(w->grid()->row(), 1);

    markLog();
    combo(w)->setCurrentIndex(2);
    Q_EMIT combo(w)->activated(2);
    QCOMPARE(sent(), sl({"Repair Table staff", "show columns from staff"}));

    // "All Tables" with a column name: that column (trimmed, in any case, whole) of every table,
    // and the tables having it leave the list.
    QTest::mouseClick(child<QRadioButton>(w, "optall"), Qt::LeftButton);
    QVERIFY(!combo(w)->isEnabled());
    child<QLineEdit>(w, "txtflname")->setText(qs(" CODE "));
    markLog();
    QTest::mouseClick(child<QPushButton>(w, "cmdshow"), Qt::LeftButton);
    QCOMPARE(sent(), kListAll);
    QCOMPARE(gridRowTexts(w->grid()->cells(), 1), sl({"1 - bill|code|varchar(10)", "2 - owner1|code|varchar(10)"}));
    QCOMPARE(items(combo(w)), sl({"staff"}));

    // With no table selected Show asks for one.
    child<QRadioButton>(w, "optseltab")->click();
    combo(w)->setCurrentIndex(-1);
    child<QPushButton>(w, "cmdshow")->click();
    QCOMPARE(prompts(), sl({"Please select a Table"}));
    // A column no table has lists nothing, and an empty grid has no pop-up menu.
    child<QRadioButton>(w, "optall")->click();
    child<QLineEdit>(w, "txtflname")->setText(qs("none"));
    child<QPushButton>(w, "cmdshow")->click();
    QCOMPARE(w->grid()->rows(), 1);
    QTest::mousePress(w->grid()->viewport(), Qt::RightButton, {}, QPoint(20, 20));
    QVERIFY(!m_main->popupMenu(qs("mnupop"))->isVisible());
    // A blank name lists every column; Refresh brings every table back.
    child<QLineEdit>(w, "txtflname")->setText(qs("  "));
    child<QPushButton>(w, "cmdreload")->click();
    QCOMPARE(items(combo(w)), sl({"bill", "owner1", "staff"}));
    QCOMPARE(w->grid()->rows(), 3);

    // Escape closes the window and gives the command back.
    QPointer<TableInfo> guard = w;
    QTest::keyClick(w->grid(), Qt::Key_Escape);
    QTRY_VERIFY(guard.isNull());
    QVERIFY(m_main->menuItem(qs("mnuTabDet"))->isEnabled());
}

// clang-format off
void TestStructureTools::fieldCommands_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("typed");
    QTest::addColumn<QStringList>("prompts");
    QTest::addColumn<QString>("statement");
    const QString type = qs("Enter the DataType for the Field");
    const QStringList modify{qs("Enter the Field Name you want to change with"), type, qs("This will Modify the field from Table")};
    const QStringList add{qs("Enter the Field Name you want to create"), type, qs("This will Add the field from Table")};
    QTest::newRow("add") << "mnuaf" << sl({"paid", "int"}) << add << "ALTER table owner1 Add paid int";
    QTest::newRow("modify") << "mnumf" << sl({"total", "bigint"}) << modify << "ALTER table owner1 change nick total bigint";
    QTest::newRow("modify, empty answers") << "mnumf" << QStringList() << modify << "ALTER table owner1 change nick nick varchar(8)";
    QTest::newRow("delete") << "mnudf" << QStringList() << sl({"This will Delete the field from Table"}) << "ALTER table owner1 Drop column nick";
}
// clang-format on

// In "All Tables" the grid row may belong to another table: the edit acts on Combo1's table
// with the row's name and type. The commands come from the main window's pop-up menu.
void TestStructureTools::fieldCommands()
{
    QFETCH(QString, command);
    QFETCH(QStringList, typed);
    QFETCH(QStringList, prompts);
    QFETCH(QString, statement);
    QVERIFY_DB(m_db->run({qs("ALTER TABLE owner1 ADD nick VARCHAR(8)")}));
    TableInfo *w = open<TableInfo>("mnuTabDet");
    QVERIFY(w && QTest::qWaitForWindowExposed(w));
    combo(w)->setCurrentIndex(1);
    child<QRadioButton>(w, "optall")->click();
    child<QPushButton>(w, "cmdshow")->click();
    Grid &g = *w->grid();
    const int rows = g.rows();
    QCOMPARE(g.textMatrix(rows - 1, 1), qs("nick")); // staff.nick, the last row
    // The right click alone makes the row under the pointer current.
    QCOMPARE(g.row(), 1);
    const QPoint cell = g.visualRect(g.model()->index(rows - 2, 1)).center();
    QTest::mousePress(g.viewport(), Qt::RightButton, {}, cell);
    QCOMPARE(g.row(), rows - 1);
    QVERIFY(m_main->popupMenu(qs("mnupop"))->isVisible());
    m_main->popupMenu(qs("mnupop"))->hide();

    // No to the question sends nothing; Yes sends the statement.
    m_operator->typed = typed + typed;
    m_operator->answer = Dialogs::Answer::No;
    markLog();
    m_main->menuItem(command)->trigger();
    QCOMPARE(sent(), QStringList());
    m_operator->answer = Dialogs::Answer::Yes;
    m_main->menuItem(command)->trigger();
    QCOMPARE(this->prompts(), prompts + prompts);
    if (command == qs("mnudf")) { // the row goes; nothing is listed again
        QCOMPARE(sent(), QStringList{statement});
        QCOMPARE(g.rows(), rows - 1);
        QCOMPARE(g.textMatrix(rows - 2, 1), qs("id"));
    } else { // listed again as Show would: every table in "All Tables"
        QCOMPARE(sent(), QStringList{statement} + kListAll);
    }
}

// No statement goes out without a column name or a table: without a current row the commands do
// nothing, and a listing that took the chosen table out of the list has them ask for one.
void TestStructureTools::fieldCommandsNeedARowAndATable()
{
    TableInfo *w = open<TableInfo>("mnuTabDet");
    QVERIFY(w && QTest::qWaitForWindowExposed(w));
    Grid &g = *w->grid();
    // A right click below the rows keeps the current row.
    QTest::mousePress(g.viewport(), Qt::RightButton, {}, QPoint(20, g.viewport()->height() - 5));
    QVERIFY(m_main->popupMenu(qs("mnupop"))->isVisible());
    m_main->popupMenu(qs("mnupop"))->hide();
    QCOMPARE(g.row(), 1);

    const char *commands[] = {"mnuaf", "mnumf", "mnudf"};
    m_operator->answer = Dialogs::Answer::Yes;
    g.setCurrentCell(0, 1);
    QCOMPARE(g.row(), -1);
    markLog();
    for (const char *command : commands)
        m_main->menuItem(qs(command))->trigger();
    QCOMPARE(sent(), QStringList());
    QCOMPARE(prompts(), QStringList());

    child<QLineEdit>(w, "txtflname")->setText(qs("code"));
    child<QPushButton>(w, "cmdshow")->click();
    QCOMPARE(combo(w)->currentIndex(), -1);
    QCOMPARE(g.row(), 1);
    markLog();
    for (const char *command : commands)
        m_main->menuItem(qs(command))->trigger();
    QCOMPARE(sent(), QStringList());
    QCOMPARE(prompts(), QStringList(3, qs("Please select a Table")));
    QCOMPARE(m_operator->ends, QList<int>());
}

// clang-format off
void TestStructureTools::untrappedErrors_data()
{
    QTest::addColumn<QString>("when");  // what goes wrong and when, or the field command the server refuses
    QTest::addColumn<QString>("table"); // the table that must stay as it was
    QTest::addColumn<QStringList>("typed");
    QTest::addColumn<QString>("report");
    QTest::newRow("closed before opening") << "closed on open" << "staff" << QStringList() << closedReport();
    QTest::newRow("closed before Show") << "closed on show" << "staff" << QStringList() << closedReport();
    QTest::newRow("table dropped before Show") << "dropped" << "staff" << QStringList() << serverReport(qs("Table '%1.staff' doesn't exist").arg(m_db->name()));
    QTest::newRow("add a name already there") << "mnuaf" << "staff" << sl({"nick", "int"}) << serverReport(qs("Duplicate column name 'nick'"));
    QTest::newRow("modify to a width out of range") << "mnumf" << "staff" << sl({"", "int(999)"}) << serverReport(qs("Display width out of range for 'id' (max = 255)"));
    QTest::newRow("delete the only field") << "mnudf" << "solo" << QStringList() << serverReport(qs("You can't delete all columns with ALTER TABLE; use DROP TABLE instead"));
}
// clang-format on

// Nothing is trapped: a listing that fails or a field statement the server refuses ends the
// program with the server's own words, and the table stays as it was.
void TestStructureTools::untrappedErrors()
{
    QFETCH(QString, when);
    QFETCH(QString, table);
    if (table == qs("solo"))
        QVERIFY_DB(m_db->run({qs("CREATE TABLE solo (only_one INT)")}));
    const QStringList before = columns(table);
    if (when == qs("closed on open")) {
        session().close();
        m_main->menuItem(qs("mnuTabDet"))->trigger();
    } else {
        TableInfo *w = open<TableInfo>("mnuTabDet");
        QVERIFY(w);
        QCOMPARE(m_operator->runtimeErrors, QStringList());
        if (when.startsWith(qs("mnu"))) {
            combo(w)->setCurrentIndex(combo(w)->findText(table));
            click(w, "cmdshow");
            QCOMPARE(w->grid()->textMatrix(1, 0), qs("1 - ") + table);
            QFETCH(QStringList, typed);
            m_operator->typed = typed;
            m_main->menuItem(when)->trigger();
        } else {
            if (when == qs("closed on show"))
                session().close();
            else
                QVERIFY_DB(m_db->run({qs("RENAME TABLE staff TO staff_gone")}));
            child<QRadioButton>(w, "optall")->click();
            click(w, "cmdshow");
        }
        if (when == qs("dropped")) {
            QVERIFY_DB(m_db->run({qs("RENAME TABLE staff_gone TO staff")}));
            // The tables before the missing one were listed; the listing stopped there.
            QCOMPARE(w->grid()->textMatrix(w->grid()->rows() - 1, 0).section(u' ', 2), qs("owner1"));
        }
    }
    QFETCH(QString, report);
    QCOMPARE(m_operator->runtimeErrors, QStringList{report});
    QCOMPARE(m_operator->ends, QList<int>{1});
    if (!when.startsWith(qs("mnu"))) // the field commands' input boxes are all they show besides
        QCOMPARE(m_operator->told, QStringList());
    QCOMPARE(columns(table), before);
}

void TestStructureTools::createGridKeysAndRows()
{
    CreateTable *w = open<CreateTable>("mnuct");
    QVERIFY(w && QTest::qWaitForWindowExposed(w));
    Grid &g = *w->grid();
    g.setFocus();
    QTest::keyClick(&g, Qt::Key_Delete);
    QCOMPARE(prompts(), sl({"One Field is Must"}));
    QCOMPARE(g.rows(), 2);

    // Tab moves from name to type, and from type (as Enter) to the next row's name; Enter on
    // the last row adds a row, on a row above it only moves down.
    g.setCurrentCell(1, 0);
    g.edit(g.currentIndex());
    const auto typeInto = [&](const char *text, Qt::Key key) {
        QWidget *editor = QApplication::focusWidget();
        QVERIFY(editor && editor->parentWidget() == g.viewport());
        QTest::keyClicks(editor, qs(text));
        QTest::keyClick(editor, key);
    };
    typeInto("code", Qt::Key_Tab);
    typeInto("int", Qt::Key_Tab);
    typeInto("name", Qt::Key_Tab);
    typeInto("varchar(40)", Qt::Key_Return);
    QCOMPARE(g.row(), 3);
    QCOMPARE(gridRowTexts(g.cells(), 1), sl({"code|int", "name|varchar(40)", "|"}));
    g.setCurrentCell(1, 1);
    g.edit(g.currentIndex());
    typeInto("", Qt::Key_Enter);
    QCOMPARE(g.rows(), 4);
    QCOMPARE(g.row(), 2);
    QCOMPARE(g.col(), 0);

    // Insert Row and Delete Row come from the grid's own right-click menu and from the keys. A
    // new row goes at the end, and the rows below the current one take its name.
    g.setFocus();
    QTest::mousePress(g.viewport(), Qt::RightButton, {}, g.visualRect(g.model()->index(1, 0)).center());
    QVERIFY(w->rowMenu()->isVisible());
    w->rowMenu()->hide();
    w->rowMenu()->findChild<QAction *>(qs("mnuInsertRow"))->trigger();
    QTest::keyClick(&g, Qt::Key_Insert);
    QCOMPARE(gridRowTexts(g.cells(), 1), sl({"code|int", "name|varchar(40)", "name|", "name|", "name|"}));
    w->rowMenu()->findChild<QAction *>(qs("mnuDeleteRow"))->trigger();
    g.setCurrentCell(2, 0);
    QTest::keyClick(&g, Qt::Key_Delete);
    QCOMPARE(gridRowTexts(g.cells(), 1), sl({"code|int", "name|", "name|"}));
}

// One row per line reads best here.
// clang-format off
void TestStructureTools::saveTable_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("fields"); // name|type per row
    QTest::addColumn<QString>("setup"); // "exists": a table Clients already, answered Yes, or No if named
    QTest::addColumn<QStringList>("prompts");
    QTest::addColumn<QStringList>("statements");
    const QStringList ask{qs("Please Give the Table Name")};
    const QStringList askAgain = ask + sl({"This Table is already exist, Do You still want to create Table"});
    const QString create = qs("Create Table Clients (code int,name varchar(40))");
    const QStringList two{qs("code|int"), qs("name|varchar(40)")};
    QTest::newRow("new table") << "  Clients " << two << "" << ask << QStringList{create};
    QTest::newRow("exists, yes") << "  Clients " << two << "exists" << askAgain << QStringList{create, qs("Drop Table   Clients"), create};
    QTest::newRow("exists, no") << "Clients" << two << "exists, No" << askAgain << QStringList{create};
    QTest::newRow("no name") << "   " << two << "" << ask << QStringList();
    QTest::newRow("syntax error passed over") << "Clients" << sl({"code|int", "|"}) << "" << ask << sl({"Create Table Clients (code int, )"});
    QTest::newRow("not allowed") << "Clients" << two << "read-only" << ask + sl({"Can't create Table"}) << QStringList{create};
    // A view is no table that Drop Table removes: the drop is the untrapped error, and the view stays.
    QTest::newRow("name of a view") << "Clients" << two << "view" << askAgain << QStringList{create, qs("Drop Table Clients")};
}
// clang-format on

void TestStructureTools::saveTable()
{
    QFETCH(QString, name);
    QFETCH(QStringList, fields);
    QFETCH(QString, setup);
    const QString user = qs("tabulon_t_readonly");
    if (setup.startsWith(qs("exists")))
        QVERIFY_DB(m_db->run({qs("CREATE TABLE Clients (old INT)")}));
    if (setup == qs("view"))
        QVERIFY_DB(m_db->run({qs("CREATE VIEW Clients AS SELECT code FROM bill")}));
    markLog();
    if (setup == qs("read-only")) {
        QVERIFY_DB(m_db->run({qs("DROP USER IF EXISTS '%1'@'127.0.0.1'").arg(user),
                              qs("CREATE USER '%1'@'127.0.0.1' IDENTIFIED BY ''").arg(user),
                              qs("GRANT SELECT ON `%1`.* TO '%2'@'127.0.0.1'").arg(m_db->name(), user)}));
        QVERIFY_DB(session().open(connectionString(m_db->name()), user));
    }
    CreateTable *w = open<CreateTable>("mnuct");
    QVERIFY(w);
    Grid &g = *w->grid();
    g.setRows(static_cast<int>(fields.size()) + 1);
    for (int r = 1; r < g.rows(); ++r)
        for (int c : {0, 1})
            g.setTextMatrix(r, c, fields[r - 1].section(u'|', c, c));
    m_operator->typed = QStringList{name};
    m_operator->answer = setup.endsWith(qs("No")) ? Dialogs::Answer::No : Dialogs::Answer::Yes;
    child<QPushButton>(w, "cmdsavetable")->click();
    QTEST(prompts(), "prompts");
    QTEST(sent(), "statements");
    QCOMPARE(m_operator->ends.size(), setup == qs("view") ? 1 : 0);
    QCOMPARE(m_operator->runtimeErrors.size(), m_operator->ends.size());
    if (setup == qs("view")) {
        QVERIFY2(m_operator->runtimeErrors.first().startsWith(serverReport(QString())),
                 qPrintable(m_operator->runtimeErrors.first()));
        QCOMPARE(m_db->rows(qs("SELECT table_type FROM information_schema.tables WHERE table_schema = '%1' AND "
                               "table_name = 'Clients'")
                                .arg(m_db->name())),
                 sl({"VIEW"}));
    }
    if (setup == qs("read-only"))
        QVERIFY_DB(m_db->run({qs("DROP USER '%1'@'127.0.0.1'").arg(user)}));
}

QTEST_MAIN(TestStructureTools)
#include "test_structuretools.moc"
