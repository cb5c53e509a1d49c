// The search window against the real server, opened through the main window's "&Search":
// what it sends, the hit rows, the Search/Stop caption, a stop or close during a run, the
// untrapped failure and opening a hit in the table data window.
#include "app/mdiform1.h"
#include "app/toolcatalog.h"
#include "data/search.h"
#include "data/tabledata.h"
#include "grid/grid.h"
#include "operator.h"
#include "testdb.h"

#include <QComboBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace tabulon;
using namespace tabulon::test;

class TestSearch final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void searchesAllOrOneTable();
    void selectATableLeavesStop();
    void interruptedSearch_data();
    void interruptedSearch();
    void failingStatementIsUntrapped();
    void doubleClickOpensTheHit();

private:
    Search *openWindow();
    QStringList sent() { return statementsReceived(m_db->admin(), session().connectionId()); }
    void markLog() { QVERIFY_DB(openSession(session(), m_db->name())); }
    template <typename T> T *child(const char *name) { return m_window->findChild<T *>(qs(name)); }
    QStringList hits(int col) const;
    DatabaseSession &session() { return *m_main->session(); }

    std::unique_ptr<ScratchDatabase> m_db;
    QTemporaryDir m_settingsDir;
    std::unique_ptr<MDIForm1> m_main;
    QPointer<Search> m_window;
    std::unique_ptr<Operator> m_operator;
};

void TestSearch::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(qs("search"));
    QVERIFY_DB(m_db->error());
    QVERIFY_DB(m_db->run({
        qs("CREATE TABLE people (id INT PRIMARY KEY, name VARCHAR(20), city VARCHAR(20))"),
        qs("INSERT INTO people VALUES (1,'Oslo','Oslo'), (5,'amy','Rome')"),
        qs("CREATE TABLE stock (qty SMALLINT, note TEXT) ENGINE=MyISAM"),
        qs("INSERT INTO stock VALUES (5, 'oslo')"),
        qs("CREATE TABLE zone (place VARCHAR(20))"),
    }));
}

void TestSearch::init()
{
    m_operator = std::make_unique<Operator>();
    m_main = std::make_unique<MDIForm1>(AppEnvironment{m_settingsDir.filePath(qs("settings.ini")), {}, {}});
    registerTools(*m_main);
    m_main->resize(1000, 700);
    m_main->show();
}

void TestSearch::cleanup()
{
    delete m_window;
    m_main.reset();
    m_operator.reset();
}

Search *TestSearch::openWindow()
{
    if (const DbError error = openSession(session(), m_db->name())) {
        qWarning("%s", qPrintable(error.description));
        return nullptr;
    }
    m_main->enableAllMenus();
    m_main->menuItem(qs("mnusearch"))->trigger();
    m_window = qobject_cast<Search *>(m_main->toolWindow(qs("mnusearch")));
    return m_window;
}

QStringList TestSearch::hits(int col) const
{
    QStringList out;
    for (int r = 1; r < m_window->grid()->rows(); ++r)
        out << m_window->grid()->textMatrix(r, col);
    return out;
}

void TestSearch::searchesAllOrOneTable()
{
    Search *w = openWindow();
    QVERIFY(w);
    QVERIFY(!m_main->menuItem(qs("mnusearch"))->isEnabled());
    QCOMPARE(child<QLabel>("Label1")->text(), qs("Search Data"));
    QCOMPARE(child<QGroupBox>("frame1")->title(), qs("Search In"));
    QCOMPARE(child<QRadioButton>("optseltab")->text(), qs("Selected Table"));
    QCOMPARE(child<QRadioButton>("optall")->text(), qs("All Tables"));
    auto *button = child<QPushButton>("cmdsearch");
    auto *combo = child<QComboBox>("Combo1");
    QCOMPARE(button->text(), qs("&Search"));
    QCOMPARE(combo->count(), 3);
    QCOMPARE(combo->currentIndex(), -1);
    QVERIFY(w->grid()->isColHidden(2));
    QCOMPARE(sent(), sl({"SHOW Tables"}));

    child<QRadioButton>("optall")->click();
    QVERIFY(!combo->isEnabled());
    child<QLineEdit>("txtsdata")->setText(qs("oslo"));
    markLog();
    button->click();
    QCOMPARE(button->text(), qs("&Search"));
    QCOMPARE(hits(0), sl({"1", "2"}));
    QCOMPARE(hits(1), sl({"people", "stock"}));
    QCOMPARE(hits(2), sl({"0", "1"}));
    QCOMPARE(sent().filter(qs("Repair")), sl({"Repair Table people", "Repair Table stock", "Repair Table zone"}));
    QCOMPARE(child<QLabel>("lblstatus")->text(), qs("zone"));
    QCOMPARE(child<QProgressBar>("ProgressBar1")->value(), 3);

    // One chosen table: only it is searched, and the grid starts afresh.
    child<QRadioButton>("optseltab")->click();
    QVERIFY(combo->isEnabled());
    combo->setCurrentIndex(1);
    child<QLineEdit>("txtsdata")->setText(qs("5"));
    markLog();
    button->click();
    QCOMPARE(hits(1), sl({"stock"}));
    QCOMPARE(hits(2), sl({"1"}));
    QCOMPARE(sent(), sl({"Repair Table stock", "SELECT * FROM `stock` LIMIT 0", "select qty from stock where qty=5"}));
}

void TestSearch::selectATableLeavesStop()
{
    Search *w = openWindow();
    QVERIFY(w);
    auto *button = child<QPushButton>("cmdsearch");
    markLog();
    button->click();
    QCOMPARE(m_operator->told, sl({"Select a Table"}));
    QCOMPARE(button->text(), qs("S&top"));
    // Now every click is a stop request, and nothing can start again.
    child<QComboBox>("Combo1")->setCurrentIndex(0);
    button->click();
    button->click();
    QCOMPARE(button->text(), qs("S&top"));
    QCOMPARE(m_operator->told, sl({"Select a Table"}));
    QCOMPARE(sent(), QStringList());
}

void TestSearch::interruptedSearch_data()
{
    QTest::addColumn<bool>("close");
    QTest::newRow("Stop button") << false;
    QTest::newRow("closing the window") << true;
}

// What the operator does at the first table's yield is seen before that table is searched.
void TestSearch::interruptedSearch()
{
    QFETCH(bool, close);
    Search *w = openWindow();
    QVERIFY(w);
    auto *button = child<QPushButton>("cmdsearch");
    child<QRadioButton>("optall")->click();
    markLog();
    QTimer::singleShot(0, w, [w, button, close] {
        if (close)
            w->parentWidget()->close();
        else
            button->click();
    });
    button->click();
    QCOMPARE(sent(), QStringList());
    if (close) {
        QTRY_VERIFY(m_window.isNull());
        QVERIFY(m_main->menuItem(qs("mnusearch"))->isEnabled());
        return;
    }
    QCOMPARE(button->text(), qs("&Search"));
    QCOMPARE(w->grid()->rows(), 1);
    // The stop does not outlive its search.
    markLog();
    button->click();
    QCOMPARE(sent().filter(qs("Repair")).size(), 3);
}

void TestSearch::failingStatementIsUntrapped()
{
    Search *w = openWindow();
    QVERIFY(w);
    child<QRadioButton>("optall")->click();
    child<QLineEdit>("txtsdata")->setText(qs("O'Brien"));
    child<QPushButton>("cmdsearch")->click();
    QCOMPARE(m_operator->runtimeErrors.size(), 1);
    QVERIFY2(m_operator->runtimeErrors.first().contains(qs("SQL syntax")),
             qPrintable(m_operator->runtimeErrors.first()));
    QCOMPARE(m_operator->ends.size(), 1);
    QCOMPARE(w->grid()->rows(), 1);
}

void TestSearch::doubleClickOpensTheHit()
{
    Search *w = openWindow();
    QVERIFY(w);
    QVERIFY(QTest::qWaitForWindowExposed(w));
    child<QRadioButton>("optall")->click();
    child<QLineEdit>("txtsdata")->setText(qs("oslo"));
    child<QPushButton>("cmdsearch")->click();
    QCOMPARE(w->grid()->rows(), 3);

    // No hit row is current yet: nothing opens.
    w->OpenHit();
    QVERIFY(!m_main->toolWindow(qs("mnuTabData")));

    Grid *grid = w->grid();
    grid->setCurrentCell(2, 1);
    Q_EMIT grid->doubleClicked(grid->model()->index(1, 1)); // grid row 2, the view's row 1
    auto *data = qobject_cast<TableData *>(m_main->toolWindow(qs("mnuTabData")));
    QVERIFY(data);
    QPointer<TableData> guard(data);
    QVERIFY(data->isVisible());
    QVERIFY(!m_main->menuItem(qs("mnuTabData"))->isEnabled());
    auto *list = data->findChild<QComboBox *>(qs("Combo1"));
    QCOMPARE(list->currentText(), qs("stock"));
    QVERIFY(!list->isEnabled());
    QCOMPARE(data->grid()->textMatrix(1, 3), qs("oslo"));
    delete guard;
}

QTEST_MAIN(TestSearch)
#include "test_search.moc"
