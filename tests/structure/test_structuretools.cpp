// Table detail and create table through the main window's menus against a real server: the
// statements sent word for word, the grid, the narrowing of the table list, the field pop-up
// commands with their input boxes, and the keys and error rules of create table.
#include "app/mdiform1.h"
#include "app/toolcatalog.h"
#include "grid/grid.h"
#include "operator.h"
#include "structure/createtable.h"
#include "structure/tableinfo.h"
#include "testdb.h"

#include <QAction>
#include <QComboBox>
#include <QLineEdit>
#include <QMdiSubWindow>
#include <QMenu>
#include <QPointer>
#include <QPushButton>
#include <QRadioButton>
#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

namespace {

// Answers input boxes from a queue (empty once it runs out) on top of the operator's answers
// to everything else, and keeps every prompt in order.
struct Answers final {
    QStringList inputs;
    Dialogs::Answer answer = Dialogs::Answer::Yes;
    QStringList prompts;
    QStringList runtimeErrors;

    void install()
    {
        Dialogs::setResponder([this](const Dialogs::Prompt &p) {
            prompts << p.text;
            if (p.kind == Dialogs::Prompt::Kind::Input)
                return Dialogs::Reply{Dialogs::Answer::Ok, inputs.isEmpty() ? QString() : inputs.takeFirst()};
            if (p.kind == Dialogs::Prompt::Kind::Question)
                return Dialogs::Reply{answer, {}};
            if (p.kind == Dialogs::Prompt::Kind::RuntimeError)
                runtimeErrors << p.text;
            return Dialogs::Reply{Dialogs::Answer::Ok, {}};
        });
    }
};

// The server's log leaves out a statement's closing semicolon and blanks, so statements sent are
// compared without them here; the statement text itself is checked whole in the logic's tests.
QStringList gridRows(const Grid &g)
{
    QStringList out;
    for (int r = 1; r < g.rows(); ++r) {
        QStringList cells;
        for (int c = 0; c < g.cols(); ++c)
            cells << g.textMatrix(r, c);
        out << cells.join(QLatin1Char('|'));
    }
    return out;
}

QStringList items(const QComboBox *combo)
{
    QStringList out;
    for (int i = 0; i < combo->count(); ++i)
        out << combo->itemText(i);
    return out;
}

} // namespace

class TestStructureTools final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void detailListsTheFirstTable();
    void allTablesWithAColumnNarrowsTheList();
    void fieldCommandsFromThePopup_data();
    void fieldCommandsFromThePopup();
    void deleteFieldRemovesTheRowOnly();
    void detailWithoutTablesAndFailures();

    void createTableKeysGrowTheGrid();
    void insertAndDeleteRow();
    void saveTable_data();
    void saveTable();
    void permissionDeniedCannotCreate();

private:
    template <typename Tool> Tool *open(const char *menu);
    QStringList sent() { return statementsReceived(m_db->admin(), m_main->session()->connectionId()); }
    void markLog() { QVERIFY_DB(openSession(*m_main->session(), m_db->name())); }
    QComboBox *combo(QWidget *w) { return w->findChild<QComboBox *>(qs("Combo1")); }

    std::unique_ptr<ScratchDatabase> m_db;
    std::unique_ptr<ScratchDatabase> m_empty;
    QTemporaryDir m_settingsDir;
    std::unique_ptr<MDIForm1> m_main;
    std::unique_ptr<Operator> m_operator;
    Answers m_answers;
};

void TestStructureTools::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(qs("structure"));
    QVERIFY_DB(m_db->error());
    m_empty = std::make_unique<ScratchDatabase>(qs("structure_empty"));
    QVERIFY_DB(m_empty->error());
}

void TestStructureTools::init()
{
    QVERIFY_DB(m_db->run({
        qs("DROP TABLE IF EXISTS bill, owner1, staff, Clients"),
        qs("CREATE TABLE bill (code VARCHAR(10), name VARCHAR(20)) ENGINE=MyISAM"),
        qs("CREATE TABLE owner1 (code VARCHAR(10), amount INT)"),
        qs("CREATE TABLE staff (id INT, nick VARCHAR(8))"),
    }));
    m_operator = std::make_unique<Operator>();
    m_answers = Answers{};
    m_answers.install();
    m_main = std::make_unique<MDIForm1>(AppEnvironment{m_settingsDir.filePath(qs("settings.ini")), {}, {}});
    registerTools(*m_main);
    m_main->resize(1000, 700);
    m_main->show();
    QVERIFY_DB(openSession(*m_main->session(), m_db->name()));
    m_main->enableAllMenus();
}

void TestStructureTools::cleanup()
{
    m_main.reset();
    m_operator.reset();
}

template <typename Tool> Tool *TestStructureTools::open(const char *menu)
{
    m_main->menuItem(qs(menu))->trigger();
    return qobject_cast<Tool *>(m_main->toolWindow(qs(menu)));
}

void TestStructureTools::detailListsTheFirstTable()
{
    TableInfo *w = open<TableInfo>("mnuTabDet");
    QVERIFY(w);
    QCOMPARE(w->objectName(), qs("TableInfo"));
    QVERIFY(!m_main->menuItem(qs("mnuTabDet"))->isEnabled());
    QCOMPARE(items(combo(w)), sl({"bill", "owner1", "staff"}));
    QCOMPARE(combo(w)->currentText(), qs("bill"));
    QCOMPARE(sent(), sl({"SHOW Tables", "Repair Table bill", "show columns from bill"}));
    QCOMPARE(gridRows(*w->grid()), sl({"1 - bill|code|varchar(10)", "2 - bill|name|varchar(20)"}));
    QVERIFY(w->hasRows());

    // Picking a table lists it alone; "All Tables" turns the list off and lists every table.
    markLog();
    combo(w)->setCurrentIndex(2);
    Q_EMIT combo(w)->activated(2);
    QCOMPARE(sent(), sl({"Repair Table staff", "show columns from staff"}));
    QTest::mouseClick(w->findChild<QRadioButton *>(qs("optall")), Qt::LeftButton);
    QVERIFY(!combo(w)->isEnabled());
    QTest::mouseClick(w->findChild<QPushButton *>(qs("cmdshow")), Qt::LeftButton);
    QCOMPARE(w->grid()->rows(), 7);
    QCOMPARE(w->grid()->textMatrix(6, 0), qs("6 - staff"));

    // Escape closes the window and gives the command back.
    QPointer<TableInfo> guard = w;
    QTest::keyClick(w->grid(), Qt::Key_Escape);
    QTRY_VERIFY(guard.isNull());
    QVERIFY(m_main->menuItem(qs("mnuTabDet"))->isEnabled());
}

void TestStructureTools::allTablesWithAColumnNarrowsTheList()
{
    TableInfo *w = open<TableInfo>("mnuTabDet");
    QVERIFY(w);
    w->findChild<QRadioButton *>(qs("optall"))->click();
    w->findChild<QLineEdit *>(qs("txtflname"))->setText(qs(" CODE "));
    markLog();
    w->findChild<QPushButton *>(qs("cmdshow"))->click();
    QCOMPARE(sent(), sl({"Repair Table bill", "show columns from bill", "Repair Table owner1",
                         "show columns from owner1", "Repair Table staff", "show columns from staff"}));
    QCOMPARE(gridRows(*w->grid()), sl({"1 - bill|code|varchar(10)", "2 - owner1|code|varchar(10)"}));
    QCOMPARE(items(combo(w)), sl({"staff"}));
    QVERIFY(w->findChild<QPushButton *>(qs("cmdshow"))->isEnabled());

    // With the selected table gone from the list, Show asks for one; Refresh brings all back.
    w->findChild<QRadioButton *>(qs("optseltab"))->click();
    combo(w)->setCurrentIndex(-1);
    w->findChild<QPushButton *>(qs("cmdshow"))->click();
    QCOMPARE(m_answers.prompts, sl({"Please select a Table"}));
    w->findChild<QLineEdit *>(qs("txtflname"))->clear();
    w->findChild<QPushButton *>(qs("cmdreload"))->click();
    QCOMPARE(items(combo(w)), sl({"bill", "owner1", "staff"}));
    QCOMPARE(combo(w)->currentText(), qs("bill"));
    QCOMPARE(w->grid()->rows(), 3);
}

void TestStructureTools::fieldCommandsFromThePopup_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("inputs");
    QTest::addColumn<QStringList>("prompts");
    QTest::addColumn<QString>("statement");
    QTest::addColumn<QStringList>("columns"); // owner1's afterwards
    QTest::newRow("add") << qs("mnuaf") << sl({"paid", "int"})
                         << sl({"Enter the Field Name you want to create", "Enter the DataType for the Field",
                                "This will Add the field from Table"})
                         << qs("ALTER table owner1 Add paid int") << sl({"code", "amount", "paid"});
    QTest::newRow("modify") << qs("mnumf") << sl({"total", "bigint"})
                            << sl({"Enter the Field Name you want to change with", "Enter the DataType for the Field",
                                   "This will Modify the field from Table"})
                            << qs("ALTER table owner1 change nick total bigint") << QStringList();
    QTest::newRow("modify, empty answers")
        << qs("mnumf") << QStringList()
        << sl({"Enter the Field Name you want to change with", "Enter the DataType for the Field",
               "This will Modify the field from Table"})
        << qs("ALTER table owner1 change nick nick varchar(8)") << QStringList();
}

// In "All Tables" the grid row may belong to another table: the edit acts on Combo1's table
// with the row's name and type. The commands come from the main window's pop-up menu.
void TestStructureTools::fieldCommandsFromThePopup()
{
    QFETCH(QString, command);
    QFETCH(QStringList, inputs);
    QFETCH(QStringList, prompts);
    QFETCH(QString, statement);
    QFETCH(QStringList, columns);
    if (command == qs("mnumf"))
        QVERIFY_DB(m_db->run({qs("ALTER TABLE owner1 ADD nick VARCHAR(8)")}));
    TableInfo *w = open<TableInfo>("mnuTabDet");
    QVERIFY(w);
    QVERIFY(QTest::qWaitForWindowExposed(w));
    combo(w)->setCurrentIndex(1);
    w->findChild<QRadioButton *>(qs("optall"))->click();
    w->findChild<QPushButton *>(qs("cmdshow"))->click();
    Grid &g = *w->grid();
    const int nickRow = g.rows() - 1; // staff.nick, the last row
    QCOMPARE(g.textMatrix(nickRow, 1), qs("nick"));
    const QPoint cell = g.visualRect(g.model()->index(nickRow - 1, 1)).center();
    QTest::mouseClick(g.viewport(), Qt::LeftButton, {}, cell);
    QTest::mousePress(g.viewport(), Qt::RightButton, {}, cell);
    QMenu *popup = m_main->popupMenu(qs("mnupop"));
    QVERIFY(popup->isVisible());
    popup->hide();

    m_answers.inputs = inputs;
    m_answers.answer = Dialogs::Answer::No;
    markLog();
    m_main->menuItem(command)->trigger();
    QCOMPARE(m_answers.prompts, prompts);
    QCOMPARE(sent(), QStringList());

    m_answers.prompts.clear();
    m_answers.inputs = inputs;
    m_answers.answer = Dialogs::Answer::Yes;
    m_main->menuItem(command)->trigger();
    QCOMPARE(m_answers.prompts, prompts);
    const QStringList received = sent();
    QCOMPARE(received.value(0), statement);
    // Listed again as Show would: every table in "All Tables".
    QCOMPARE(received.mid(1), sl({"Repair Table bill", "show columns from bill", "Repair Table owner1",
                                  "show columns from owner1", "Repair Table staff", "show columns from staff"}));
    QVERIFY(m_answers.runtimeErrors.isEmpty());
    if (!columns.isEmpty())
        QCOMPARE(m_db->rows(qs("SELECT column_name FROM information_schema.columns WHERE table_schema = '") +
                            m_db->name() + qs("' AND table_name = 'owner1' ORDER BY ordinal_position")),
                 columns);
}

void TestStructureTools::deleteFieldRemovesTheRowOnly()
{
    TableInfo *w = open<TableInfo>("mnuTabDet");
    QVERIFY(w);
    w->grid()->setCurrentCell(1, 1);
    markLog();
    m_main->menuItem(qs("mnudf"))->trigger();
    QCOMPARE(m_answers.prompts, sl({"This will Delete the field from Table"}));
    QCOMPARE(sent(), sl({"ALTER table bill Drop column code"}));
    QCOMPARE(gridRows(*w->grid()), sl({"2 - bill|name|varchar(20)"}));
    QCOMPARE(m_db->rows(qs("SHOW COLUMNS FROM bill")).size(), 1);
}

void TestStructureTools::detailWithoutTablesAndFailures()
{
    QVERIFY_DB(openSession(*m_main->session(), m_empty->name()));
    TableInfo *w = open<TableInfo>("mnuTabDet");
    QVERIFY(w);
    QVERIFY(QTest::qWaitForWindowExposed(w));
    QCOMPARE(combo(w)->count(), 0);
    QCOMPARE(w->grid()->rows(), 1);
    QVERIFY(!w->hasRows());
    QTest::mousePress(w->grid()->viewport(), Qt::RightButton, {}, QPoint(20, 20));
    QVERIFY(!m_main->popupMenu(qs("mnupop"))->isVisible());

    // Nothing is trapped: a statement the server refuses ends the program.
    m_answers.inputs = sl({"x", "no_such_type"});
    w->AddField();
    QCOMPARE(m_answers.runtimeErrors.size(), 1);
    QVERIFY(m_answers.runtimeErrors.first().startsWith(qs("Run-time error '")));
    QCOMPARE(m_operator->ends, QList<int>{1});
}

void TestStructureTools::createTableKeysGrowTheGrid()
{
    CreateTable *w = open<CreateTable>("mnuct");
    QVERIFY(w);
    QCOMPARE(w->objectName(), qs("CreateTable"));
    QVERIFY(QTest::qWaitForWindowExposed(w));
    Grid &g = *w->grid();
    QCOMPARE(g.textMatrix(0, 0), qs("Field Name"));
    QCOMPARE(g.textMatrix(0, 1), qs("Field Type"));
    QCOMPARE(g.rows(), 2);

    // Type a name, Tab to the type, type it, Tab (as Enter) to a new row's name, then Enter.
    g.setFocus();
    g.setCurrentCell(1, 0);
    g.edit(g.currentIndex());
    const auto typeInto = [&](const char *text, Qt::Key key) {
        QWidget *editor = QApplication::focusWidget();
        QVERIFY(editor && editor->parentWidget() == g.viewport());
        if (*text)
            QTest::keyClicks(editor, qs(text));
        QTest::keyClick(editor, key);
    };
    typeInto("code", Qt::Key_Tab);
    QCOMPARE(g.row(), 1);
    QCOMPARE(g.col(), 1);
    typeInto("int", Qt::Key_Tab);
    QCOMPARE(g.rows(), 3);
    QCOMPARE(g.row(), 2);
    QCOMPARE(g.col(), 0);
    typeInto("name", Qt::Key_Tab);
    typeInto("varchar(40)", Qt::Key_Return);
    QCOMPARE(g.rows(), 4);
    QCOMPARE(g.row(), 3);
    QCOMPARE(gridRows(g), sl({"code|int", "name|varchar(40)", "|"}));
    // Enter on a row above the last moves down without growing.
    g.setCurrentCell(1, 1);
    g.edit(g.currentIndex());
    typeInto("", Qt::Key_Enter);
    QCOMPARE(g.rows(), 4);
    QCOMPARE(g.row(), 2);
    QCOMPARE(g.col(), 0);
}

void TestStructureTools::insertAndDeleteRow()
{
    CreateTable *w = open<CreateTable>("mnuct");
    QVERIFY(w);
    QVERIFY(QTest::qWaitForWindowExposed(w));
    Grid &g = *w->grid();
    g.setFocus();
    QTest::keyClick(&g, Qt::Key_Delete);
    QCOMPARE(m_answers.prompts, sl({"One Field is Must"}));
    QCOMPARE(g.rows(), 2);

    g.setRows(4);
    const QStringList names{qs("A"), qs("B"), qs("C")};
    for (int r = 1; r <= 3; ++r) {
        g.setTextMatrix(r, 0, names[r - 1]);
        g.setTextMatrix(r, 1, qs("t%1").arg(r));
    }
    g.refresh();
    g.setCurrentCell(2, 0);
    // The grid's own right-click menu, then the Insert key.
    QTest::mousePress(g.viewport(), Qt::RightButton, {}, g.visualRect(g.model()->index(1, 0)).center());
    QVERIFY(w->rowMenu()->isVisible());
    w->rowMenu()->hide();
    w->rowMenu()->findChild<QAction *>(qs("mnuInsertRow"))->trigger();
    QCOMPARE(gridRows(g), sl({"A|t1", "B|t2", "B|t3", "B|"}));
    QTest::keyClick(&g, Qt::Key_Insert);
    QCOMPARE(gridRows(g), sl({"A|t1", "B|t2", "B|t3", "B|", "B|"}));

    g.setCurrentCell(1, 0);
    w->rowMenu()->findChild<QAction *>(qs("mnuDeleteRow"))->trigger();
    QTest::keyClick(&g, Qt::Key_Delete);
    QCOMPARE(gridRows(g), sl({"B|t3", "B|", "B|"}));
    QCOMPARE(m_answers.prompts, sl({"One Field is Must"}));
}

void TestStructureTools::saveTable_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("fields"); // name|type per row
    QTest::addColumn<bool>("exists");
    QTest::addColumn<bool>("yes");
    QTest::addColumn<QStringList>("prompts");
    QTest::addColumn<QStringList>("statements");
    QTest::addColumn<QStringList>("columns"); // of Clients afterwards
    const QStringList ask{qs("Please Give the Table Name")};
    const QStringList askAgain = ask + sl({"This Table is already exist, Do You still want to create Table"});
    const QString create = qs("Create Table Clients (code int,name varchar(40))");
    const QStringList two{qs("code|int"), qs("name|varchar(40)")};
    const QStringList created{qs("code"), qs("name")};
    QTest::newRow("new table") << qs("  Clients ") << two << false << true << ask << QStringList{create} << created;
    QTest::newRow("exists, yes") << qs("  Clients ") << two << true << true << askAgain
                                 << QStringList{create, qs("Drop Table   Clients"), create} << created;
    QTest::newRow("exists, no") << qs("Clients") << two << true << false << askAgain << QStringList{create}
                                << sl({"old"});
    QTest::newRow("no name") << qs("   ") << two << false << true << ask << QStringList() << QStringList();
    QTest::newRow("syntax error passed over") << qs("Clients") << sl({"code|int", "|"}) << false << true << ask
                                              << sl({"Create Table Clients (code int, )"}) << QStringList();
}

void TestStructureTools::saveTable()
{
    QFETCH(QString, name);
    QFETCH(QStringList, fields);
    QFETCH(bool, exists);
    QFETCH(bool, yes);
    QFETCH(QStringList, prompts);
    QFETCH(QStringList, statements);
    QFETCH(QStringList, columns);
    if (exists)
        QVERIFY_DB(m_db->run({qs("CREATE TABLE Clients (old INT)")}));
    CreateTable *w = open<CreateTable>("mnuct");
    QVERIFY(w);
    Grid &g = *w->grid();
    g.setRows(static_cast<int>(fields.size()) + 1);
    for (int r = 1; r < g.rows(); ++r) {
        g.setTextMatrix(r, 0, fields[r - 1].section(QLatin1Char('|'), 0, 0));
        g.setTextMatrix(r, 1, fields[r - 1].section(QLatin1Char('|'), 1));
    }
    m_answers.inputs = QStringList{name};
    m_answers.answer = yes ? Dialogs::Answer::Yes : Dialogs::Answer::No;
    markLog();
    w->findChild<QPushButton *>(qs("cmdsavetable"))->click();
    QCOMPARE(m_answers.prompts, prompts);
    QCOMPARE(sent(), statements);
    QVERIFY(m_answers.runtimeErrors.isEmpty());
    QCOMPARE(m_db->rows(qs("SELECT column_name FROM information_schema.columns WHERE table_schema = '") + m_db->name() +
                        qs("' AND table_name = 'Clients' ORDER BY ordinal_position")),
             columns);
    QCOMPARE(g.rows(), static_cast<int>(fields.size()) + 1); // the grid is kept
}

void TestStructureTools::permissionDeniedCannotCreate()
{
    const QString user = qs("tabulon_t_readonly");
    QVERIFY_DB(m_db->run({qs("DROP USER IF EXISTS '%1'@'127.0.0.1'").arg(user),
                          qs("CREATE USER '%1'@'127.0.0.1' IDENTIFIED BY ''").arg(user),
                          qs("GRANT SELECT ON `%1`.* TO '%2'@'127.0.0.1'").arg(m_db->name(), user)}));
    QVERIFY_DB(m_main->session()->open(connectionString(m_db->name()), user));
    CreateTable *w = open<CreateTable>("mnuct");
    QVERIFY(w);
    w->grid()->setTextMatrix(1, 0, qs("a"));
    w->grid()->setTextMatrix(1, 1, qs("int"));
    m_answers.inputs = sl({"Clients"});
    w->SaveTable();
    QCOMPARE(m_answers.prompts, sl({"Please Give the Table Name", "Can't create Table"}));
    QVERIFY_DB(m_db->run({qs("DROP USER '%1'@'127.0.0.1'").arg(user)}));
}

QTEST_MAIN(TestStructureTools)
#include "test_structuretools.moc"
