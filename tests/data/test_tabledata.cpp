// The table data window against the real server: what it sends, in order and word for word,
// what the table holds afterwards, and how the grid, the find box and the questions behave.
#include "data/tabledata.h"
#include "db/statementhook.h"
#include "db/writemode.h"
#include "grid/grid.h"
#include "gridtexts.h"
#include "toolfixture.h"

#include <QApplication>
#include <QComboBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QMenu>
#include <QPointer>
#include <QStatusBar>

#include <utility>

using namespace tabulon;
using namespace tabulon::test;

namespace {

QStringList column(const Grid &grid, int col, int firstRow = 1)
{
    return gridColumnTexts(grid.cells(), col, firstRow);
}

// Types `key` into the current cell, which opens its editor, and returns that editor.
QLineEdit *openEditor(Grid &grid, Qt::Key key)
{
    QTest::keyClick(&grid, key);
    auto *editor = qobject_cast<QLineEdit *>(QApplication::focusWidget());
    return editor && editor->parentWidget() == grid.viewport() ? editor : nullptr;
}

} // namespace

class TestTableData final : public QObject, ToolFixture {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { createDatabase("tabledata"); }
    void init();
    void cleanup()
    {
        // The tool goes first, while the main window that re-enables its command is still whole.
        delete m_window;
        closeMain();
        TableData::setDefaultLoadPace({});
    }

    void loadListsTablesAndShowsTheFirst();
    void saveTableRewritesInGridOrder_data() { sentAhead(); }
    void saveTableRewritesInGridOrder();
    void saveTableExactValues_data();
    void saveTableExactValues();
    void popupCommandsAskFirst();
    void saveTableFailures_data();
    void saveTableFailures();
    void saveTableLostPartWay_data() { sentAhead(); }
    void saveTableLostPartWay();
    void modifyRecordKeepsTheSort();
    void findNarrowsAndResets();
    void rightClickShowsTheRecordMenu();
    void escapeClosesAndPopupReopens();
    void loadStopsWithTheRowsSoFar_data();
    void loadStopsWithTheRowsSoFar();
    void lockedAndFailedLoadsWriteNothing();

private:
    // Rows for a rewrite whose inserts go one at a time, and sent ahead of their answers: the
    // operator must not see a difference.
    static void sentAhead()
    {
        QTest::addColumn<bool>("ahead");
        QTest::newRow("one at a time") << false;
        QTest::newRow("sent ahead") << true;
    }
    void setAhead(bool ahead)
    {
        session().setPipelining(ahead ? DatabaseSession::Pipelining::Always : DatabaseSession::Pipelining::Never);
    }
    TableData *openWindow(const char *table = nullptr);
    void find(const char *text) const
    {
        m_window->findChild<QLineEdit *>(qs("Text1"))->setText(qs(text));
        m_window->findChild<QPushButton *>(qs("cmdfind"))->click();
    }

    QPointer<TableData> m_window;
};

void TestTableData::init()
{
    QVERIFY_DB(m_db->run({
        qs("DROP TABLE IF EXISTS people, people_away, keyed, nothing, vague, everything"),
        qs("CREATE TABLE people (name VARCHAR(20), age INT, city VARCHAR(20))"),
        qs("INSERT INTO people VALUES ('Cleo',31,'Oslo'), ('amy',25,'Rome'), ('Bob',47,'Oslo'), ('dan',25,'Lima'),"
           "('Eve',52,NULL)"),
        qs("CREATE TABLE keyed (id INT PRIMARY KEY, name VARCHAR(20), born DATE)"),
        qs("INSERT INTO keyed VALUES (3,'c','2001-03-03'), (1,'a','2001-01-01'), (2,'b','2001-02-02')"),
        qs("CREATE TABLE nothing (a INT, b VARCHAR(5))"),
        // A table whose rows the server refuses to change.
        qs("CREATE TABLE vague (name VARCHAR(20), age FLOAT, city VARCHAR(20))"),
        qs("INSERT INTO vague VALUES ('Cleo',31.1,'Oslo'), ('amy',25.2,'Rome'), ('Bob',47.3,'Oslo'),"
           "('dan',25.4,'Lima'), ('Eve',52.5,'')"),
        qs("CREATE TRIGGER vague_fixed BEFORE UPDATE ON vague FOR EACH ROW "
           "SIGNAL SQLSTATE '45000' SET MESSAGE_TEXT = 'These rows stay as they are'"),
    }));
    openMain();
}

// Opens the window through the main window's "Table D&ata" on a fresh session and, when given,
// selects `table` in it.
TableData *TestTableData::openWindow(const char *table)
{
    m_window = qobject_cast<TableData *>(openTool("mnuTabData"));
    if (m_window && table)
        m_window->selectTable(m_window->findChild<QComboBox *>(qs("Combo1"))->findText(qs(table)));
    return m_window;
}

void TestTableData::loadListsTablesAndShowsTheFirst()
{
    TableData *w = openWindow();
    QVERIFY(w);
    auto *combo = w->findChild<QComboBox *>(qs("Combo1"));
    QCOMPARE(combo->count(), 4);
    QCOMPARE(sent(), sl({"SHOW Tables", "Flush Tables", "Flush Logs", "SELECT * FROM `keyed`"}));

    w->selectTable(combo->findText(qs("people")));
    const Grid &g = *w->grid();
    QCOMPARE(column(g, 4, 0), sl({"city", "Oslo", "Rome", "Oslo", "Lima", ""})); // NULL shows empty
    QCOMPARE(column(g, 1), sl({"1", "2", "3", "4", "5"}));
    QVERIFY(g.isColHidden(1) && !g.isColHidden(0));

    // Picking the entry already shown loads it again, discarding edits, on the session the
    // main window holds at the time.
    w->grid()->setTextMatrix(1, 3, qs("edited"));
    m_main->replaceSession();
    markLog();
    Q_EMIT combo->activated(combo->currentIndex());
    QCOMPARE(sent(), sl({"Flush Tables", "Flush Logs", "SELECT * FROM `people`"}));
    QCOMPARE(w->grid()->textMatrix(1, 3), qs("31"));

    // A plain load traps nothing: it reports the error and ends the program.
    QVERIFY_DB(m_db->run({qs("DROP TABLE people")}));
    w->LoadTable();
    QCOMPARE(m_operator->runtimeErrors,
             QStringList{serverReport(qs("Table '%1.people' doesn't exist").arg(m_db->name()))});
    QCOMPARE(m_operator->ends, QList<int>{1});
}

// Answered No, the check's question leaves every statement as the value rules write it (Eve's
// NULL city as ''), sent in the write mode, and the table ends in the grid's order.
void TestTableData::saveTableRewritesInGridOrder()
{
    QFETCH(bool, ahead);
    TableData *w = openWindow("people");
    QVERIFY(w);
    setAhead(ahead);
    Grid &g = *w->grid();
    g.sort(2, 2); // name, descending
    const QStringList shown = gridRowTexts(g.cells(), 1, 2);
    QCOMPARE(shown, sl({"Eve|52|", "dan|25|Lima", "Cleo|31|Oslo", "Bob|47|Oslo", "amy|25|Rome"}));
    const QString mode = m_db->rows(qs("SELECT @@GLOBAL.sql_mode")).value(0);
    markLog();
    m_operator->answers = {Dialogs::Answer::Yes, Dialogs::Answer::No};
    w->SaveTable();
    QCOMPARE(m_operator->told, QStringList());
    QCOMPARE(m_operator->asked.size(), 2);
    QVERIFY2(m_operator->asked.last().contains(
                 qs("1 of 5 rows of people hold a NULL the usual statement writes as '' or 0.")),
             qPrintable(m_operator->asked.last()));
    QCOMPARE(sent(), sl({"SELECT * FROM `people`", "SELECT @@SESSION.sql_mode"}) +
                         QStringList{qs("SET SESSION sql_mode='%1'").arg(SessionSql::writeSqlMode(mode))} +
                         sl({"SELECT TABLE_NAME, ENGINE FROM information_schema.TABLES WHERE TABLE_SCHEMA = DATABASE() "
                             "AND TABLE_NAME = 'people'",
                             "SET SESSION autocommit=0", "START TRANSACTION", "Delete from people where 1>0",
                             "Insert into people (name,age,city) values ('Eve',52,'')",
                             "Insert into people (name,age,city) values ('dan',25,'Lima')",
                             "Insert into people (name,age,city) values ('Cleo',31,'Oslo')",
                             "Insert into people (name,age,city) values ('Bob',47,'Oslo')",
                             "Insert into people (name,age,city) values ('amy',25,'Rome')", "COMMIT",
                             "SET SESSION autocommit=1"}) +
                         QStringList{qs("SET SESSION sql_mode='%1'").arg(mode)} +
                         sl({"Flush Tables", "Flush Logs", "SELECT * FROM `people`"}));
    QCOMPARE(m_db->rows(qs("SELECT * FROM people")), shown);
    // Reloaded, sorted again the operator's way and numbered from the top.
    QCOMPARE(gridRowTexts(g.cells(), 1, 2), shown);
    QCOMPARE(column(g, 0), sl({"1", "2", "3", "4", "5"}));
}

// Answered Yes, an untouched grid goes back exactly, whatever its columns hold; Cancel sends
// nothing that writes.
void TestTableData::saveTableExactValues_data()
{
    QTest::addColumn<QString>("engine");
    QTest::addColumn<int>("answer");
    QTest::newRow("MyISAM, Yes") << "MyISAM" << int(Dialogs::Answer::Yes);
    QTest::newRow("InnoDB, Yes") << "InnoDB" << int(Dialogs::Answer::Yes);
    QTest::newRow("InnoDB, Cancel") << "InnoDB" << int(Dialogs::Answer::Cancel);
}

void TestTableData::saveTableExactValues()
{
    QFETCH(QString, engine);
    QFETCH(int, answer);
    QVERIFY_DB(m_db->run({
        qs("CREATE TABLE everything (t VARCHAR(40), n INT, d DECIMAL(8,2), dt DATETIME, dd DATE, ts TIMESTAMP NULL, "
           "y YEAR, e ENUM('a','b'), st SET('x','y'), b BLOB, bt BIT(1), bw BIT(5), big BIGINT, tx TEXT, "
           "bin VARBINARY(8)) ENGINE=%1")
            .arg(engine),
        qs(R"(INSERT INTO everything VALUES ('C:\\new\\table.txt', 1, 12.50, '2007-12-25 10:30:00', '2020-01-02', )"
           R"('2021-03-04 05:06:07', 2024, 'b', 'x,y', X'00FF80', 0, 21, 9007199254740993, 'O''Brien', X'80'),)"
           R"(('', NULL, NULL, NULL, NULL, NULL, NULL, NULL, '', NULL, NULL, NULL, NULL, NULL, NULL),)"
           R"(('Müller', 0, -0.01, '0000-00-00 00:00:00', '0000-00-00', NULL, 0, 'a', '', X'', 1, 0, -1, '', X'81'))"),
    }));
    const QString before = m_db->rows(qs("CHECKSUM TABLE everything")).value(0);
    TableData *w = openWindow("everything");
    QVERIFY(w);
    markLog();
    m_operator->answers = {Dialogs::Answer::Yes, Dialogs::Answer(answer)};
    w->SaveTable();
    QCOMPARE(m_operator->told, QStringList());
    QCOMPARE(m_operator->asked.size(), 2);
    QVERIFY2(m_operator->asked.last().contains(qs("3 of 3 rows of everything hold")),
             qPrintable(m_operator->asked.last()));
    QCOMPARE(m_db->rows(qs("CHECKSUM TABLE everything")).value(0), before);
    if (answer == int(Dialogs::Answer::Cancel))
        QCOMPARE(sent(), sl({"SELECT * FROM `everything`"}));
}

// The record menu's commands reach the open window, which asks first; No sends nothing.
void TestTableData::popupCommandsAskFirst()
{
    QVERIFY(openWindow());
    m_window->grid()->setCurrentCell(1, 2);
    m_operator->answer = Dialogs::Answer::No;
    markLog();
    for (const char *command : {"mnudr", "mnumr", "mnusavetable"})
        m_main->menuItem(qs(command))->trigger();
    QCOMPARE(m_operator->asked, sl({"This will Delete the record from Table",
                                    "This will Update the current record in Table", "This will update the Table"}));
    QCOMPARE(sent(), QStringList());
}

// A failed ModifyRecord says why, changes nothing and sorts again by the remembered sort, which
// moves the edited row up; the grid is not reloaded. Header clicks sort, renumber and are
// remembered; ModifyRecord then writes the current row into the record it was loaded from,
// whatever its place on screen.
void TestTableData::modifyRecordKeepsTheSort()
{
    TableData *w = openWindow("vague");
    QVERIFY(w);
    Grid &g = *w->grid();
    g.sort(4, 1); // city ascending: Eve, dan, Cleo, Bob, amy
    g.setCurrentCell(4, 2);
    g.setTextMatrix(4, 2, qs("Rob"));
    g.setTextMatrix(4, 4, qs("Aachen"));
    w->ModifyRecord();
    QCOMPARE(m_operator->told, sl({"These rows stay as they are"}));
    QCOMPARE(m_db->rows(qs("SELECT name FROM vague WHERE city='Aachen'")), QStringList());
    QCOMPARE(column(g, 2), sl({"Eve", "Rob", "dan", "Cleo", "amy"}));
    QCOMPARE(column(g, 1), sl({"5", "3", "4", "1", "2"}));

    m_operator->told.clear();
    w->selectTable(w->findChild<QComboBox *>(qs("Combo1"))->findText(qs("keyed"))); // loaded by key: 1, 2, 3
    QHeaderView *header = g.horizontalHeader();
    const QPoint name(header->sectionViewportPosition(3) + header->sectionSize(3) / 2, header->height() / 2);
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, name);
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, name); // again: descending
    QCOMPARE(column(g, 3), sl({"c", "b", "a"}));
    QCOMPARE(column(g, 1), sl({"3", "2", "1"}));
    g.setCurrentCell(1, 3); // c, displayed first, loaded third
    g.setTextMatrix(1, 3, qs("sea"));
    g.setTextMatrix(1, 4, qs("2003-03-03"));
    markLog();
    w->ModifyRecord();
    QCOMPARE(m_operator->told, QStringList());
    QCOMPARE(m_db->rows(qs("SELECT * FROM keyed ORDER BY id")),
             sl({"1|a|2001-01-01", "2|b|2001-02-02", "3|sea|2003-03-03"}));
    // In the write mode: the table, its key, the update by the key alone, the mode put back; the
    // grid is not reloaded.
    const QStringList statements = sent();
    QCOMPARE(statements.size(), 6);
    QCOMPARE(statements.mid(2, 3), sl({"SELECT * FROM `keyed`", "SHOW INDEX FROM `tabulon_t_tabledata`.`keyed`",
                                       "UPDATE `tabulon_t_tabledata`.`keyed` SET `name`='sea',`born`='2003-03-03 "
                                       "00:00:00' WHERE `id`='3' LIMIT 1"}));
}

void TestTableData::findNarrowsAndResets()
{
    TableData *w = openWindow("people");
    QVERIFY(w);
    Grid &g = *w->grid();
    const auto cursor = [w] { return QStringLiteral("%1,%2").arg(w->findRow()).arg(w->findCol()); };
    const auto current = [&g] { return QStringLiteral("%1,%2").arg(g.row()).arg(g.col()); };
    auto *text = w->findChild<QLineEdit *>(qs("Text1"));
    text->setText(qs("  "));
    QVERIFY(!w->findChild<QPushButton *>(qs("cmdfind"))->isEnabled());

    find("25");
    QCOMPARE(current(), qs("2,3"));
    QCOMPARE(cursor(), qs("2,4"));
    find("25"); // dan's 25 is in column 3 too, left of the cursor: passed over
    QCOMPARE(m_operator->told, sl({"Finished searching"}));
    QCOMPARE(cursor(), qs("0,2"));
    find("25");
    text->setText(qs(" "));
    QCOMPARE(cursor(), qs("2,4")); // a blank text resets nothing

    find("oslo"); // a new text starts below the header again
    QCOMPARE(current(), qs("1,4"));
    w->LoadTable();
    QCOMPARE(cursor(), qs("1,2"));
}

// clang-format off
void TestTableData::saveTableFailures_data()
{
    QTest::addColumn<QString>("change"); // a statement run behind the window's back, or a name typed in row 3
    QTest::addColumn<QStringList>("told"); // what each message contains, in order
    QTest::addColumn<QStringList>("names"); // left in the table
    QTest::addColumn<bool>("ahead"); // inserts sent ahead of their answers
    // The quote ends the text early: the server refuses the row, and the rewrite goes on.
    QTest::newRow("quote in text loses its row") << "O'Brien" << sl({"SQL syntax"})
        << sl({"Cleo", "amy", "dan", "Eve"}) << false;
    QTest::newRow("quote in text, sent ahead") << "O'Brien" << sl({"SQL syntax"})
        << sl({"Cleo", "amy", "dan", "Eve"}) << true;
    // The type of each column is looked up by its header; a header that names no field of the
    // table is reported (and its column written as text) before the rewrite goes on.
    QTest::newRow("unknown header") << "ALTER TABLE people CHANGE city town VARCHAR(20)"
        << QStringList{qs("Item cannot be found in the collection corresponding to the requested name or ordinal.")}
               + QStringList(5, qs("Unknown column 'city' in 'INSERT INTO'"))
        << QStringList() << true;
    // The open for the types, the delete, five inserts and the reload each fail and say so.
    QTest::newRow("table vanished") << "DROP TABLE people" << QStringList(8, qs("people' doesn't exist"))
        << QStringList() << false;
}
// clang-format on

// Save Table traps every failure, says so and goes on.
void TestTableData::saveTableFailures()
{
    QFETCH(QString, change);
    QFETCH(QStringList, told);
    QFETCH(QStringList, names);
    QFETCH(bool, ahead);
    TableData *w = openWindow("people");
    QVERIFY(w);
    setAhead(ahead);
    if (change.contains(u' '))
        QVERIFY_DB(m_db->run({change}));
    else
        w->grid()->setTextMatrix(3, 2, change);
    // No to the check's question: the statements as the value rules write them.
    m_operator->answers = {Dialogs::Answer::Yes, Dialogs::Answer::No};
    w->SaveTable();
    QCOMPARE(m_operator->told.size(), told.size());
    for (qsizetype i = 0; i < told.size(); ++i)
        QVERIFY2(m_operator->told.at(i).contains(told.at(i)), qPrintable(m_operator->told.at(i)));
    if (!names.isEmpty())
        QCOMPARE(m_db->rows(qs("SELECT name FROM people")), names);
    QCOMPARE(m_operator->runtimeErrors, QStringList());
}

// A connection lost part-way through an InnoDB rewrite leaves the table exactly as it was: the
// operator is told that, and which safety copy holds the table, once rather than once per row.
void TestTableData::saveTableLostPartWay()
{
    QFETCH(bool, ahead);
    TableData *w = openWindow("people");
    QVERIFY(w);
    setAhead(ahead);
    w->grid()->setTextMatrix(1, 2, qs("changed"));
    const QString before = m_db->rows(qs("CHECKSUM TABLE people")).value(0);
    const unsigned long id = session().connectionId();
    int inserts = 0;
    StatementHook::set([&](QByteArrayView sql) {
        if (sql.startsWith("Insert into") && ++inserts == 3)
            (void)m_db->admin().execute(qs("KILL CONNECTION %1").arg(id));
    });
    m_operator->answers = {Dialogs::Answer::Yes, Dialogs::Answer::No};
    w->SaveTable();
    StatementHook::clear();
    // Sent ahead, an insert or two more may leave before the loss is known.
    QVERIFY2(ahead ? inserts >= 3 : inserts == 3, qPrintable(QString::number(inserts)));
    QCOMPARE(m_db->rows(qs("CHECKSUM TABLE people")).value(0), before);
    QVERIFY(!m_operator->told.isEmpty());
    const QString told = m_operator->told.first();
    QVERIFY2(told.startsWith(qs("The server rolled back the writes to people (")) &&
                 told.contains(qs("the table is as it was before")) && told.contains(qs("The safety copy of ")),
             qPrintable(told));
    QCOMPARE(m_operator->told.filter(qs("Insert")), QStringList());
}

// A right press shows the record pop-up without touching the operator's marks, so "Delete
// Record" from it deletes the rows marked (and writes edits to the rows that stay), not the row
// under the pointer. A right press inside an open cell editor ends the edit and shows the pop-up.
void TestTableData::rightClickShowsTheRecordMenu()
{
    TableData *w = openWindow("people");
    QVERIFY(w);
    QVERIFY(QTest::qWaitForWindowExposed(w));
    Grid &g = *w->grid();
    g.setTextMatrix(1, 3, qs("32"));
    QMenu *menu = m_main->popupMenu(qs("mnupop1"));
    const auto cellAt = [&g](int row) { return g.visualRect(g.model()->index(row - 1, 2)).center(); };
    QTest::mouseClick(g.viewport(), Qt::LeftButton, {}, cellAt(2));
    QTest::mouseClick(g.viewport(), Qt::LeftButton, Qt::ControlModifier, cellAt(4));
    QTest::mousePress(g.viewport(), Qt::RightButton, {}, cellAt(1));
    QVERIFY(menu->isVisible());
    menu->hide();
    QCOMPARE(g.selectedRows(), QList<int>({2, 4}));
    m_main->menuItem(qs("mnudr"))->trigger();
    QCOMPARE(m_db->rows(qs("SELECT * FROM people")), sl({"Cleo|32|Oslo", "Bob|47|Oslo", "Eve|52|\\N"}));

    g.setCurrentCell(1, 4);
    QLineEdit *editor = openEditor(g, Qt::Key_X);
    QVERIFY(editor);
    QTest::mousePress(editor, Qt::RightButton, {}, QPoint(3, 3));
    QVERIFY(menu->isVisible());
    menu->hide();
    QCOMPARE(g.textMatrix(1, 4), qs("x"));

    w->selectTable(w->findChild<QComboBox *>(qs("Combo1"))->findText(qs("nothing")));
    QTest::mousePress(g.viewport(), Qt::RightButton, {}, QPoint(20, 20)); // no data row current
    QVERIFY(!menu->isVisible());
}

void TestTableData::escapeClosesAndPopupReopens()
{
    QVERIFY(openWindow());
    QAction *command = m_main->menuItem(qs("mnuTabData"));
    QVERIFY(!command->isEnabled());
    QTest::keyClick(m_window->findChild<QLineEdit *>(qs("Text1")), Qt::Key_Escape);
    QTRY_VERIFY(m_window.isNull());
    QVERIFY(command->isEnabled());

    // The window sees the key first, also while a cell editor is open.
    QVERIFY(openWindow());
    QVERIFY(QTest::qWaitForWindowExposed(m_window));
    m_window->grid()->setCurrentCell(1, 2);
    QLineEdit *editor = openEditor(*m_window->grid(), Qt::Key_Q);
    QVERIFY(editor);
    QTest::keyClick(editor, Qt::Key_Escape);
    QTRY_VERIFY(m_window.isNull());

    // Without the window, a pop-up command creates it (loaded, not shown) and runs on it.
    markLog();
    m_main->menuItem(qs("mnusavetable"))->trigger();
    m_window = qobject_cast<TableData *>(m_main->toolWindow(qs("mnuTabData")));
    QVERIFY(m_window && !m_window->isVisible());
    QCOMPARE(sent().mid(0, 5),
             sl({"SHOW Tables", "Flush Tables", "Flush Logs", "SELECT * FROM `keyed`", "SELECT * FROM `keyed`"}));
    QCOMPARE(sent().at(10), qs("Delete from keyed where 1>0"));
}

void TestTableData::loadStopsWithTheRowsSoFar_data()
{
    QTest::addColumn<QString>("stop");
    QTest::newRow("Escape") << qs("Escape");
    QTest::newRow("Exit") << qs("Exit");
    QTest::newRow("none") << QString();
}

// A load pauses for the window every other row here: the status line counts, the grid shows
// the rows read so far and refuses a sort until the last row is in, and Escape or the main
// window's Exit stops the load with the rows read so far, which the grid shows and searches as
// usual. Save Table and Delete Record refuse to write them as the whole table; a new pick loads
// it whole on the same connection.
void TestTableData::loadStopsWithTheRowsSoFar()
{
    QFETCH(QString, stop);
    TableData::setDefaultLoadPace({2, 0});
    TableData *w = openWindow();
    QVERIFY(w);
    QStringList status;
    QStringList shown; // the grid's names at each pause, after a click on that column's header
    bool stopAtPause = !stop.isEmpty();
    const auto watch = connect(m_main->statusBar(), &QStatusBar::messageChanged, this, [&](const QString &text) {
        if (!text.contains(qs("people")))
            return;
        status << text;
        if (!text.startsWith(qs("Loading")))
            return;
        Q_EMIT w->grid()->horizontalHeader()->sectionClicked(2);
        shown << column(*w->grid(), 2).join(QLatin1Char(','));
        if (!std::exchange(stopAtPause, false))
            return;
        if (stop == QLatin1String("Exit"))
            m_main->menuItem(qs("mnuExit"))->trigger();
        else
            QTest::keyClick(w->findChild<QLineEdit *>(qs("Text1")), Qt::Key_Escape);
    });
    auto *combo = w->findChild<QComboBox *>(qs("Combo1"));
    w->selectTable(combo->findText(qs("people")));
    if (stop.isEmpty()) {
        QCOMPARE(status, sl({"Loading people: 2 rows", "Loading people: 4 rows", "people: 5 rows loaded"}));
        QCOMPARE(shown, sl({"Cleo,amy", "Cleo,amy,Bob,dan"}));
        Q_EMIT w->grid()->horizontalHeader()->sectionClicked(2);
        QCOMPARE(column(*w->grid(), 2), sl({"amy", "Bob", "Cleo", "dan", "Eve"}));
        QCOMPARE(column(*w->grid(), 0), sl({"1", "2", "3", "4", "5"}));
        QCOMPARE(column(*w->grid(), 1), sl({"2", "3", "1", "4", "5"}));
        disconnect(watch);
        return;
    }
    QCOMPARE(status, sl({"Loading people: 2 rows", "people: loading stopped after 2 rows"}));
    QVERIFY(!m_window.isNull() && w->isPartlyLoaded() && combo->isEnabled());
    const Grid &g = *w->grid();
    QCOMPARE(column(g, 0), sl({"1", "2"}));
    QCOMPARE(column(g, 2), sl({"Cleo", "amy"}));
    find("AMY");
    QCOMPARE(g.row(), 2);

    m_operator->told.clear();
    w->SaveTable();
    w->DeleteRecord();
    QCOMPARE(m_operator->told.size(), 2);
    QVERIFY2(m_operator->told.first().startsWith(qs("Only the first 2 rows of people are loaded")),
             qPrintable(m_operator->told.first()));
    QVERIFY(m_operator->asked.isEmpty());
    QCOMPARE(m_db->rows(qs("SELECT COUNT(*) FROM people")), sl({"5"}));

    w->selectTable(combo->currentIndex());
    QVERIFY(!w->isPartlyLoaded());
    QCOMPARE(column(g, 2), sl({"Cleo", "amy", "Bob", "dan", "Eve"}));
    QCOMPARE(status.last(), qs("people: 5 rows loaded"));
    disconnect(watch);
}

// A table that another connection holds locked keeps the load from starting: the window stays
// alive meanwhile and Escape stops it with no rows. A load that fails leaves no rows either.
// Save Table and Delete Record then refuse to write the table, which keeps its rows, and the
// next pick loads it. Without the turns the load would fail at the lock timeout.
void TestTableData::lockedAndFailedLoadsWriteNothing()
{
    TableData *w = openWindow();
    QVERIFY(w);
    QVERIFY_DB(session().execute(qs("SET SESSION lock_wait_timeout = 5")));
    auto *combo = w->findChild<QComboBox *>(qs("Combo1"));
    const auto refused = [&](const char *start) {
        m_operator->told.clear();
        m_operator->asked.clear();
        w->SaveTable();
        w->DeleteRecord();
        QCOMPARE(m_operator->told.size(), 2);
        QVERIFY2(m_operator->told.first().startsWith(qs(start)), qPrintable(m_operator->told.first()));
        QVERIFY(m_operator->asked.isEmpty());
        QCOMPARE(m_db->rows(qs("SELECT COUNT(*) FROM people")), sl({"5"}));
    };

    QVERIFY_DB(m_db->run({qs("LOCK TABLES people WRITE")}));
    QStringList status;
    const auto watch = connect(m_main->statusBar(), &QStatusBar::messageChanged, this, [&](const QString &text) {
        status << text;
        if (text == qs("Loading people: 0 rows"))
            QTest::keyClick(w->findChild<QLineEdit *>(qs("Text1")), Qt::Key_Escape);
    });
    w->selectTable(combo->findText(qs("people")));
    disconnect(watch);
    QVERIFY_DB(m_db->run({qs("UNLOCK TABLES")}));
    QCOMPARE(status.filter(qs("people")), sl({"Loading people: 0 rows", "people: loading stopped after 0 rows"}));
    QVERIFY(!m_window.isNull() && w->isPartlyLoaded() && combo->isEnabled());
    QCOMPARE(m_operator->runtimeErrors, QStringList());
    refused("Only the first 0 rows of people are loaded");

    StatementHook::set([&](QByteArrayView sql) {
        if (sql == "SELECT * FROM `people`")
            (void)m_db->admin().execute(qs("RENAME TABLE people TO people_away"));
    });
    w->selectTable(combo->currentIndex());
    StatementHook::clear();
    QVERIFY_DB(m_db->run({qs("RENAME TABLE people_away TO people")}));
    QVERIFY(w->loadFailed() && w->grid()->rows() <= 1);
    QCOMPARE(m_operator->runtimeErrors.size(), 1);
    refused("people could not be read, so none of its rows are loaded");

    w->selectTable(combo->currentIndex());
    QVERIFY(!w->loadFailed() && !w->isPartlyLoaded());
    QCOMPARE(column(*w->grid(), 2), sl({"Cleo", "amy", "Bob", "dan", "Eve"}));
}

QTEST_MAIN(TestTableData)
#include "test_tabledata.moc"
