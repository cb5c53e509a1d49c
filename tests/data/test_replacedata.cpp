// The find and replace window against the real server, opened through the main window's
// "&Replace": the client-code guard, the hit rows, replace / ignore / wrap-around, Replace All
// with the failures it tolerates and the one it stops at, cancel, and a stop during a scan.
#include "app/mdiform1.h"
#include "app/toolcatalog.h"
#include "data/replacedata.h"
#include "grid/grid.h"
#include "operator.h"
#include "testdb.h"

#include <QComboBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace tabulon;
using namespace tabulon::test;

class TestReplaceData final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void opensInFindMode();
    void clientCodeGuard_data();
    void clientCodeGuard();
    void replaceIgnoreAndWrap();
    void replaceAll_data();
    void replaceAll();
    void clicksDuringReplaceAllWait();
    void noMatchStopAndCancel();

private:
    ReplaceData *openWindow();
    void find(const char *text, const char *replacement, int fieldKind = 1);
    QStringList sent() { return statementsReceived(m_db->admin(), session().connectionId()); }
    void markLog() { QVERIFY_DB(openSession(session(), m_db->name())); }
    QStringList hitRows() const;
    template <typename T> T *child(const char *name) { return m_window->findChild<T *>(qs(name)); }
    DatabaseSession &session() { return *m_main->session(); }

    std::unique_ptr<ScratchDatabase> m_db;
    QTemporaryDir m_settingsDir;
    std::unique_ptr<MDIForm1> m_main;
    QPointer<ReplaceData> m_window;
    std::unique_ptr<Operator> m_operator;
};

void TestReplaceData::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(qs("replacedata"));
    QVERIFY_DB(m_db->error());
}

void TestReplaceData::init()
{
    // Listed in this order by "SHOW Tables". fuzzy cannot be located for an update (a float and
    // no key); owner1.n refuses a text.
    QVERIFY_DB(m_db->run({
        qs("DROP TABLE IF EXISTS fuzzy, main_info1, owner1, people"),
        qs("CREATE TABLE fuzzy (name VARCHAR(20), w FLOAT)"),
        qs("INSERT INTO fuzzy VALUES ('Oslo', 31.1)"),
        qs("CREATE TABLE main_info1 (code_no VARCHAR(10), code VARCHAR(10))"),
        qs("INSERT INTO main_info1 VALUES ('C1','C1'), ('C2','A2')"),
        qs("CREATE TABLE owner1 (code VARCHAR(10), city VARCHAR(20), n INT)"),
        qs("INSERT INTO owner1 VALUES ('O1','oslo',2)"),
        qs("CREATE TABLE people (id INT PRIMARY KEY, name VARCHAR(20), city VARCHAR(20))"),
        qs("INSERT INTO people VALUES (1,'Oslo','Rome'), (2,'amy','Oslo'), (3, 'C2', 'Lima')"),
    }));
    m_operator = std::make_unique<Operator>();
    m_main = std::make_unique<MDIForm1>(AppEnvironment{m_settingsDir.filePath(qs("settings.ini")), {}, {}});
    registerTools(*m_main);
    m_main->resize(1000, 700);
    m_main->show();
}

void TestReplaceData::cleanup()
{
    delete m_window;
    m_main.reset();
    m_operator.reset();
}

ReplaceData *TestReplaceData::openWindow()
{
    if (const DbError error = openSession(session(), m_db->name())) {
        qWarning("%s", qPrintable(error.description));
        return nullptr;
    }
    m_main->enableAllMenus();
    m_main->menuItem(qs("mnureplace"))->trigger();
    m_window = qobject_cast<ReplaceData *>(m_main->toolWindow(qs("mnureplace")));
    return m_window;
}

void TestReplaceData::find(const char *text, const char *replacement, int fieldKind)
{
    child<QLineEdit>("txtfind")->setText(qs(text));
    child<QLineEdit>("txtreplace")->setText(qs(replacement));
    child<QComboBox>("cbofield")->setCurrentIndex(fieldKind);
    child<QPushButton>("cmdfind")->click();
}

// Hit rows as "table|field|value|table position|field position".
QStringList TestReplaceData::hitRows() const
{
    QStringList out;
    const Grid &g = *m_window->grid();
    for (int r = 1; r < g.rows(); ++r) {
        QStringList cells;
        for (int c = 0; c < 5; ++c)
            cells << g.textMatrix(r, c);
        out << cells.join(QLatin1Char('|'));
    }
    return out;
}

void TestReplaceData::opensInFindMode()
{
    ReplaceData *w = openWindow();
    QVERIFY(w);
    QVERIFY(!m_main->menuItem(qs("mnureplace"))->isEnabled());
    QCOMPARE(sent(), sl({"SHOW Tables"}));
    auto *field = child<QComboBox>("cbofield");
    QCOMPARE(field->count(), 2);
    QCOMPARE(field->itemText(0), qs("Code, Code_no, Codeno"));
    QCOMPARE(field->currentText(), qs("Others"));
    QCOMPARE(child<QComboBox>("Combo1")->count(), 4);
    QVERIFY(!child<QGroupBox>("Frame2")->isVisibleTo(w));
    QVERIFY(!w->grid()->isVisibleTo(w));
    QVERIFY(w->grid()->isColHidden(3) && w->grid()->isColHidden(4));
    const QStringList captions{child<QPushButton>("cmdrep")->text(), child<QPushButton>("cmdignore")->text(),
                               child<QPushButton>("cmdrepall")->text(), child<QPushButton>("cmdcancel")->text()};
    QCOMPARE(captions, sl({"&Replace", "I&gnore", "Replace &All", "&Cancel"}));

    auto *findButton = child<QPushButton>("cmdfind");
    QCOMPARE(findButton->text(), qs("Find"));
    QVERIFY(!findButton->isEnabled());
    child<QLineEdit>("txtfind")->setText(qs("  "));
    QVERIFY(!findButton->isEnabled());
    child<QLineEdit>("txtfind")->setText(qs(" x"));
    QVERIFY(findButton->isEnabled());

    QTest::keyClick(child<QLineEdit>("txtfind"), Qt::Key_Escape);
    QTRY_VERIFY(m_window.isNull());
    QVERIFY(m_main->menuItem(qs("mnureplace"))->isEnabled());
}

void TestReplaceData::clientCodeGuard_data()
{
    QTest::addColumn<QString>("replacement");
    QTest::addColumn<int>("kind");
    QTest::addColumn<bool>("refused");
    QTest::newRow("existing client code") << "C2" << 0 << true;
    QTest::newRow("existing owner code") << "O1" << 0 << true;
    QTest::newRow("new code") << "N1" << 0 << false;
    QTest::newRow("other fields are not guarded") << "C2" << 1 << false;
}

void TestReplaceData::clientCodeGuard()
{
    QFETCH(QString, replacement);
    QFETCH(int, kind);
    QFETCH(bool, refused);
    ReplaceData *w = openWindow();
    QVERIFY(w);
    markLog();
    find("C1", qPrintable(replacement), kind);
    const QStringList statements = sent();
    QCOMPARE(statements.contains(qs("select code_no from main_info1 where code_no ='") + replacement + qs("'")),
             kind == 0);
    if (refused) {
        QCOMPARE(m_operator->told, sl({"The Code is already exist"}));
        QVERIFY(statements.filter(qs("main_info1 LIMIT 0")).isEmpty());
        QVERIFY(!w->grid()->isVisibleTo(w));
        return;
    }
    QCOMPARE(m_operator->told, QStringList());
    QCOMPARE(hitRows(), sl({"main_info1|code_no|C1|1|0", "main_info1|code|C1|1|1"}));
}

void TestReplaceData::replaceIgnoreAndWrap()
{
    ReplaceData *w = openWindow();
    QVERIFY(w);
    find("oslo", "Bergen");
    QCOMPARE(hitRows(),
             sl({"fuzzy|name|Oslo|0|0", "owner1|city|oslo|2|1", "people|name|Oslo|3|1", "people|city|Oslo|3|2"}));
    QVERIFY(!child<QGroupBox>("Frame1")->isVisibleTo(w));
    QVERIFY(child<QGroupBox>("Frame2")->isVisibleTo(w));
    QVERIFY(w->grid()->isVisibleTo(w));
    Grid &g = *w->grid();
    QCOMPARE(QPoint(g.row(), g.col()), QPoint(1, 2));

    g.setCurrentCell(2, 0);
    markLog();
    child<QPushButton>("cmdrep")->click();
    QCOMPARE(m_db->rows(qs("SELECT city FROM owner1")), sl({"Bergen"}));
    QCOMPARE(sent(), sl({"Repair Table owner1", "select * from owner1 where city='oslo'",
                         "UPDATE `tabulon_t_replacedata`.`owner1` SET `city`='Bergen' WHERE `code`<=>'O1' AND "
                         "`city`<=>'oslo' AND `n`<=>'2' LIMIT 1"}));
    QCOMPARE(QPoint(g.row(), g.col()), QPoint(3, 2));
    child<QPushButton>("cmdignore")->click();
    QCOMPARE(g.row(), 4);
    child<QPushButton>("cmdignore")->click();
    QCOMPARE(g.row(), 1);
    QCOMPARE(m_db->rows(qs("SELECT name, city FROM people")), sl({"Oslo|Rome", "amy|Oslo", "C2|Lima"}));
    QCOMPARE(m_operator->told, QStringList());
}

void TestReplaceData::replaceAll_data()
{
    QTest::addColumn<QString>("findText");
    QTest::addColumn<QString>("replacement");
    QTest::addColumn<int>("messages");
    QTest::addColumn<int>("stoppedAt");
    QTest::addColumn<QStringList>("people");
    // fuzzy's record cannot be located: told, left alone, and the rest goes on.
    QTest::newRow("record not located is passed over")
        << "Oslo"
        << "Bergen" << 1 << 1 << sl({"1|Bergen|Rome", "2|amy|Bergen", "3|C2|Lima"});
    // A number field refuses a text: told, and nothing after it (people.id) is tried.
    QTest::newRow("failure stops at its hit") << "2"
                                              << "two" << 1 << 1 << sl({"1|Oslo|Rome", "2|amy|Oslo", "3|C2|Lima"});
}

void TestReplaceData::replaceAll()
{
    QFETCH(QString, findText);
    QFETCH(QString, replacement);
    QFETCH(int, messages);
    QFETCH(int, stoppedAt);
    QFETCH(QStringList, people);
    ReplaceData *w = openWindow();
    QVERIFY(w);
    find(qPrintable(findText), qPrintable(replacement));
    child<QPushButton>("cmdrepall")->click();
    QCOMPARE(m_operator->told.size(), messages);
    QCOMPARE(m_operator->asked, QStringList());
    QCOMPARE(m_db->rows(qs("SELECT * FROM people")), people);
    QCOMPARE(w->grid()->row(), stoppedAt);
}

// The message about fuzzy's record lets events through; clicks made meanwhile start nothing.
void TestReplaceData::clicksDuringReplaceAllWait()
{
    ReplaceData *w = openWindow();
    QVERIFY(w);
    find("Oslo", "Bergen");
    QStringList told;
    Dialogs::setResponder([&](const Dialogs::Prompt &p) {
        told << p.text;
        for (const char *name : {"cmdrepall", "cmdrep", "cmdignore"})
            child<QPushButton>(name)->click();
        return Dialogs::Reply{};
    });
    child<QPushButton>("cmdrepall")->click();
    QCOMPARE(told.size(), 1);
    QCOMPARE(m_db->rows(qs("SELECT * FROM people")), sl({"1|Bergen|Rome", "2|amy|Bergen", "3|C2|Lima"}));
    QCOMPARE(w->grid()->row(), 1);
}

void TestReplaceData::noMatchStopAndCancel()
{
    ReplaceData *w = openWindow();
    QVERIFY(w);
    find("nowhere", "x");
    QCOMPARE(m_operator->told, sl({"No Matching Record Found"}));
    QVERIFY(child<QGroupBox>("Frame1")->isVisibleTo(w));
    QCOMPARE(child<QPushButton>("cmdfind")->text(), qs("Find"));

    // Stop at the first table's yield: nothing is scanned.
    auto *findButton = child<QPushButton>("cmdfind");
    QTimer::singleShot(0, findButton, [findButton] { findButton->click(); });
    markLog();
    find("Oslo", "x");
    QCOMPARE(sent(), QStringList());
    QCOMPARE(findButton->text(), qs("Find"));
    // The stop does not outlive its scan.
    find("Oslo", "x");
    QCOMPARE(w->grid()->rows(), 5);
    child<QPushButton>("cmdcancel")->click();
    QVERIFY(child<QGroupBox>("Frame1")->isVisibleTo(w));
    QVERIFY(!child<QGroupBox>("Frame2")->isVisibleTo(w));
    QVERIFY(!w->grid()->isVisibleTo(w));
}

QTEST_MAIN(TestReplaceData)
#include "test_replacedata.moc"
