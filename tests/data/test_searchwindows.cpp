// The search and find-and-replace windows against the real server, opened through the main
// window's "&Search" and "&Replace": what they send, the hit rows, stops and closes during a
// run, the client-code guard, replace / ignore / Replace All, and opening a search hit; and how
// these and Table Data fail: on a closed session, or with nothing chosen to act on.
#include "data/search.h"
#include "data/tabledata.h"
#include "grid/grid.h"
#include "gridtexts.h"
#include "toolfixture.h"

#include <QComboBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QPointer>
#include <QRadioButton>
#include <QTimer>

#include <optional>

using namespace tabulon;
using namespace tabulon::test;

class TestSearchWindows final : public QObject, ToolFixture {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { createDatabase("searchwindows"); }
    void init();
    void cleanup()
    {
        delete m_window;
        closeMain();
    }

    void searchAllOrOneTable();
    void interruptedRun_data();
    void interruptedRun();
    void clientCodeGuard_data();
    void clientCodeGuard();
    void replaceIgnoreWrapAndCancel();
    void replaceActsOnTheRowShown();
    void replaceAll();
    void runsThatCannotStart_data();
    void runsThatCannotStart();

private:
    QWidget *open(const char *command) { return m_window = openTool(command); }
    template <typename T> T *child(const char *name) const { return m_window->findChild<T *>(qs(name)); }
    void click(const char *button) const { child<QPushButton>(button)->click(); }
    void type(const char *box, const char *text) const { child<QLineEdit>(box)->setText(qs(text)); }
    void search(const char *text) const
    {
        child<QRadioButton>("optall")->click();
        type("txtsdata", text);
        click("cmdsearch");
    }
    void find(const char *text, const char *replacement, int kind = 1) const
    {
        type("txtfind", text);
        type("txtreplace", replacement);
        child<QComboBox>("cbofield")->setCurrentIndex(kind);
        click("cmdfind");
    }
    Grid *grid() const { return m_window->findChild<Grid *>(qs("Edi_Gr")); }
    QStringList hits() const { return gridRowTexts(grid()->cells(), 1); }
    // Readies a tool for a run on "C1": the kind of field, or what is chosen.
    void prepare(const QString &command, const QString &kind) const
    {
        if (command == qs("mnusearch")) {
            type("txtsdata", "C1");
            if (kind == qs("all"))
                child<QRadioButton>("optall")->click();
        } else if (command == qs("mnureplace")) {
            type("txtfind", "C1");
            type("txtreplace", "C9");
            child<QComboBox>("cbofield")->setCurrentIndex(kind == qs("code") ? 0 : kind == qs("others") ? 1 : -1);
        } else {
            type("Text1", "C1");
        }
    }
    QStringList data() { return m_db->rows(qs("SELECT * FROM main_info1 ORDER BY 1")); }

    QPointer<QWidget> m_window;
};

void TestSearchWindows::init()
{
    // "SHOW Tables" lists them in this order. fuzzy has a float and no key; owner1.n and people.id
    // refuse a text.
    QVERIFY_DB(m_db->run({
        qs("DROP TABLE IF EXISTS fuzzy, main_info1, owner1, people, towns"),
        qs("CREATE TABLE fuzzy (name VARCHAR(20), w FLOAT)"),
        qs("INSERT INTO fuzzy VALUES ('Oslo', 31.1)"),
        qs("CREATE TABLE main_info1 (code_no VARCHAR(10), code VARCHAR(10))"),
        qs("INSERT INTO main_info1 VALUES ('C1','C1'), ('C2','A2')"),
        qs("CREATE TABLE owner1 (code VARCHAR(10), city VARCHAR(20), n INT)"),
        qs("INSERT INTO owner1 VALUES ('O1','oslo',2)"),
        qs("CREATE TABLE people (id INT PRIMARY KEY, name VARCHAR(20), city VARCHAR(20))"),
        qs("INSERT INTO people VALUES (1,'Oslo','Rome'), (2,'amy','Oslo'), (3,'C2','Lima')"),
    }));
    openMain();
}

void TestSearchWindows::searchAllOrOneTable()
{
    QVERIFY(open("mnusearch"));
    QVERIFY(!m_main->menuItem(qs("mnusearch"))->isEnabled());
    QCOMPARE(sent(), sl({"SHOW Tables"}));
    markLog();
    search("oslo");
    QCOMPARE(hits(), sl({"1|fuzzy|0", "2|owner1|2", "3|people|3"}));
    QCOMPARE(sent().filter(qs("Repair")).size(), 4);
    QVERIFY(!sent().contains(qs("select city from people where city='oslo'"))); // a table's first hit ends it

    // A hit opens its table in the table data window, which keeps to it.
    qobject_cast<Search *>(m_window)->OpenHit(); // no hit row current yet: nothing opens
    QVERIFY(!m_main->toolWindow(qs("mnuTabData")));
    grid()->setCurrentCell(3, 1);
    Q_EMIT grid()->doubleClicked(grid()->model()->index(2, 1)); // the view's row 2 is grid row 3
    QPointer<TableData> data = qobject_cast<TableData *>(m_main->toolWindow(qs("mnuTabData")));
    QVERIFY(data && data->isVisible());
    const auto *list = data->findChild<QComboBox *>(qs("Combo1"));
    QVERIFY(list->currentText() == qs("people") && !list->isEnabled());
    delete data;

    // One chosen table: only it is searched, and the grid starts afresh.
    child<QRadioButton>("optseltab")->click();
    child<QComboBox>("Combo1")->setCurrentIndex(2);
    type("txtsdata", "2");
    markLog();
    click("cmdsearch");
    QCOMPARE(hits(), sl({"1|owner1|2"}));
    QCOMPARE(sent(),
             sl({"Repair Table owner1", "SELECT * FROM `owner1` LIMIT 0", "select code from owner1 where code='2'",
                 "select city from owner1 where city='2'", "select n from owner1 where n=2"}));

    // A failing query is not trapped: reported, and the program ends.
    search("O'Brien");
    QCOMPARE(m_operator->runtimeErrors.size(), 1);
    QVERIFY(m_operator->runtimeErrors.first().contains(qs("SQL syntax")));
    QCOMPARE(m_operator->ends.size(), 1);
}

void TestSearchWindows::interruptedRun_data()
{
    QTest::addColumn<QString>("command");
    QTest::newRow("search") << "mnusearch";
    QTest::newRow("scan") << "mnureplace";
}

// What the operator does at the first table's yield is seen before that table is touched; the
// stop does not outlive its run, and a close waits for the run's end.
void TestSearchWindows::interruptedRun()
{
    QFETCH(QString, command);
    QVERIFY(open(qPrintable(command)));
    const bool search = command == qs("mnusearch");
    auto *start = child<QPushButton>(search ? "cmdsearch" : "cmdfind");
    const QString caption = start->text();
    search ? child<QRadioButton>("optall")->click() : type("txtfind", "Oslo");
    markLog();
    QTimer::singleShot(0, m_window, [start] { start->click(); });
    start->click();
    QCOMPARE(sent(), QStringList());
    QCOMPARE(start->text(), caption);
    start->click();
    QCOMPARE(sent().filter(qs("SELECT * FROM")).size(), 4);

    markLog();
    QTimer::singleShot(0, m_window, [this] { m_window->parentWidget()->close(); });
    start->click();
    QCOMPARE(sent(), QStringList());
    QTRY_VERIFY(m_window.isNull());
    QVERIFY(m_main->menuItem(command)->isEnabled());
}

// clang-format off
void TestSearchWindows::clientCodeGuard_data()
{
    QTest::addColumn<QString>("replacement");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QStringList>("guard"); // empty: the scan follows
    QTest::newRow("existing client code") << "C2" << 0
        << sl({"Repair Table main_info1", "select code_no from main_info1 where code_no ='C2'"});
    QTest::newRow("existing owner code") << "O1" << 0
        << sl({"Repair Table main_info1", "select code_no from main_info1 where code_no ='O1'",
               "Repair Table owner1", "select code from owner1 where code = 'O1'"});
    QTest::newRow("new code") << "N1" << 0 << QStringList();
    QTest::newRow("other fields unguarded") << "C2" << 1 << QStringList();
}
// clang-format on

void TestSearchWindows::clientCodeGuard()
{
    QFETCH(QString, replacement);
    QFETCH(int, kind);
    QFETCH(QStringList, guard);
    QVERIFY(open("mnureplace"));
    markLog();
    find("C1", qPrintable(replacement), kind);
    if (!guard.isEmpty()) {
        QCOMPARE(m_operator->told, sl({"The Code is already exist"}));
        QCOMPARE(sent(), guard);
        return;
    }
    QCOMPARE(sent().filter(qs("main_info1 where code_no =")).size(), kind == 0 ? 1 : 0);
    QCOMPARE(hits(), sl({"main_info1|code_no|C1|1|0|0", "main_info1|code|C1|1|1|1"}));
}

void TestSearchWindows::replaceIgnoreWrapAndCancel()
{
    QVERIFY(open("mnureplace"));
    find("nowhere", "x");
    QCOMPARE(m_operator->told, sl({"No Matching Record Found"}));

    find("oslo", "Bergen");
    QCOMPARE(hits(), sl({"fuzzy|name|Oslo|0|0|0", "owner1|city|oslo|2|1|1", "people|name|Oslo|3|1|2",
                         "people|city|Oslo|3|2|3"}));
    QCOMPARE(grid()->row(), 1);

    grid()->setCurrentCell(2, 0);
    markLog();
    click("cmdrep");
    // In the write mode, the row located by the bytes it was read with (owner1 has no key).
    QCOMPARE(sent().mid(2, 4),
             sl({"Repair Table owner1", "select * from owner1 where city='oslo'",
                 "SHOW INDEX FROM `tabulon_t_searchwindows`.`owner1`",
                 "UPDATE `tabulon_t_searchwindows`.`owner1` SET `city`='Bergen' WHERE `code`='O1' AND "
                 "CAST(CONVERT(`code` USING utf8mb4) AS BINARY)=X'4F31' AND `city`='oslo' AND "
                 "CAST(CONVERT(`city` USING utf8mb4) AS BINARY)=X'6F736C6F' AND `n`='2' LIMIT 1"}));
    QVERIFY(sent().at(1).startsWith(qs("SET SESSION sql_mode=")) && sent().at(1).contains(qs("NO_BACKSLASH_ESCAPES")));
    QCOMPARE(sent().size(), 7);
    QCOMPARE(grid()->row(), 3);
    click("cmdignore");
    click("cmdignore");
    QCOMPARE(grid()->row(), 1); // wrapped
    QCOMPARE(m_db->rows(qs("SELECT city FROM owner1 UNION ALL SELECT city FROM people")),
             sl({"Bergen", "Rome", "Oslo", "Lima"}));

    click("cmdcancel");
    QVERIFY(child<QGroupBox>("Frame1")->isVisibleTo(m_window));
    QVERIFY(!grid()->isVisibleTo(m_window));
}

// After Ignore on one row, Replace changes the next hit's own row, not the first one holding the
// value; a number the server took for the text is listed but never changed; the texts are the
// ones read when the find started, and cannot be edited until the hits are given up.
void TestSearchWindows::replaceActsOnTheRowShown()
{
    QVERIFY_DB(m_db->run({qs("CREATE TABLE towns (name VARCHAR(20), n BIGINT)"),
                          qs("INSERT INTO towns VALUES ('Oslo',0), ('Oslo',1)")}));
    QVERIFY(open("mnureplace"));
    bool lockedDuringScan = false;
    QTimer::singleShot(0, m_window, [this, &lockedDuringScan] {
        lockedDuringScan = child<QLineEdit>("txtfind")->isReadOnly() && child<QLineEdit>("txtreplace")->isReadOnly();
        type("txtreplace", "Paris");
    });
    find("Oslo", "Bergen");
    QVERIFY(lockedDuringScan);
    QCOMPARE(hits().mid(4), sl({"towns|name|Oslo|4|0|4", "towns|name|Oslo|4|0|5", "towns|n|0|4|1|6"}));

    grid()->setCurrentCell(5, 2);
    click("cmdignore");
    click("cmdrep");
    QCOMPARE(m_db->rows(qs("SELECT * FROM towns")), sl({"Oslo|0", "Bergen|1"}));
    QCOMPARE(grid()->row(), 7);
    click("cmdrep");
    QCOMPARE(m_operator->told, sl({"0 in n of towns is not the text looked for (Oslo); it was not changed."}));
    QCOMPARE(grid()->row(), 1);

    // Replace All: the towns row replaced already and the number are told about together at the
    // end; fuzzy's row, with its single-precision number, is located by the number's text.
    m_operator->told.clear();
    click("cmdrepall");
    QCOMPARE(m_operator->told.size(), 1);
    QCOMPARE(m_db->rows(qs("SELECT name FROM fuzzy")), sl({"Bergen"}));
    QCOMPARE(m_operator->told.last(), qs("2 of the 7 hits were not changed: their rows no longer hold the value found, "
                                         "or it is not the text looked for (Oslo)."));
    QCOMPARE(m_db->rows(qs("SELECT * FROM towns")), sl({"Bergen|0", "Bergen|1"}));
    QCOMPARE(m_db->rows(qs("SELECT name, city FROM people")), sl({"Bergen|Rome", "amy|Bergen", "C2|Lima"}));

    click("cmdcancel");
    QVERIFY(!child<QLineEdit>("txtfind")->isReadOnly() && !child<QLineEdit>("txtreplace")->isReadOnly());
}

// owner1.n refuses a text: told once, and people.id after it is not tried. Clicks made while the
// failure's message is up start nothing.
void TestSearchWindows::replaceAll()
{
    QVERIFY(open("mnureplace"));
    find("2", "two");
    QStringList told;
    Dialogs::setResponder([&](const Dialogs::Prompt &p) {
        told << p.text;
        for (const char *name : {"cmdrepall", "cmdrep", "cmdignore"})
            click(name);
        return Dialogs::Reply{};
    });
    click("cmdrepall");
    QCOMPARE(told.size(), 1);
    QCOMPARE(m_db->rows(qs("SELECT * FROM people")), sl({"1|Oslo|Rome", "2|amy|Oslo", "3|C2|Lima"}));
    QCOMPARE(grid()->row(), 1);
}

// clang-format off
void TestSearchWindows::runsThatCannotStart_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("kind"); // of the run; "" on a closed session: closed before opening
    QTest::addColumn<QString>("told"); // what is missing; "" when the session is closed
    QTest::newRow("closed, Table Data opened") << "mnuTabData" << "" << "";
    QTest::newRow("closed, Search opened") << "mnusearch" << "" << "";
    QTest::newRow("closed, Replace opened") << "mnureplace" << "" << "";
    QTest::newRow("closed, Search of all tables") << "mnusearch" << "all" << "";
    QTest::newRow("closed, Replace of a client code") << "mnureplace" << "code" << "";
    QTest::newRow("closed, Replace of other fields") << "mnureplace" << "others" << "";
    QTest::newRow("Search, no table chosen") << "mnusearch" << "selected" << "Select a Table";
    QTest::newRow("Replace, no field kind") << "mnureplace" << "" << "Please select a field name";
    QTest::newRow("Table Data, no table to search") << "mnuTabData" << "" << "No records to search";
}
// clang-format on

// On a closed session the first statement is reported once and ends the program, and nothing is
// listed; a run started with nothing chosen says what is missing and sends nothing. Either way
// nothing changes.
void TestSearchWindows::runsThatCannotStart()
{
    QFETCH(QString, command);
    QFETCH(QString, kind);
    QFETCH(QString, told);
    const bool closed = told.isEmpty();
    const QStringList before = data();
    // Table Data chooses the first table by itself: only a database without tables leaves none.
    std::optional<ScratchDatabase> empty;
    if (!closed && command == qs("mnuTabData")) {
        empty.emplace(qs("searchwindows_empty"));
        QVERIFY_DB(openSession(session(), empty->name()));
    } else {
        markLog();
    }
    if (closed && kind.isEmpty())
        session().close();
    m_main->enableAllMenus();
    m_main->menuItem(command)->trigger();
    m_window = m_main->toolWindow(command);
    QVERIFY(m_window);
    QStringList sentBefore;
    if (closed && kind.isEmpty()) {
        QCOMPARE(child<QComboBox>("Combo1")->count(), 0);
    } else {
        if (!closed && command != qs("mnureplace"))
            QCOMPARE(child<QComboBox>("Combo1")->currentIndex(), -1);
        prepare(command, kind);
        sentBefore = sent();
        if (closed)
            session().close();
        click(command == qs("mnusearch") ? "cmdsearch" : "cmdfind");
        if (closed)
            QCOMPARE(grid()->rows(), 1);
    }
    QCOMPARE(m_operator->told, closed ? QStringList() : QStringList{told});
    QCOMPARE(m_operator->runtimeErrors, closed ? QStringList{closedReport()} : QStringList());
    QCOMPARE(m_operator->ends, closed ? QList<int>{1} : QList<int>());
    if (!closed)
        QCOMPARE(sent(), sentBefore);
    QCOMPARE(data(), before);
}

QTEST_MAIN(TestSearchWindows)
#include "test_searchwindows.moc"
