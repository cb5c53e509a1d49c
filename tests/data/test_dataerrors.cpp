// The error paths of Table Data, Search and Replace through their windows against a real server:
// a tool opened or run on a closed session reports the error once and ends the program; a run
// started with nothing chosen says what is missing and sends nothing.
#include "db/dberror.h"
#include "grid/grid.h"
#include "toolfixture.h"

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>

using namespace tabulon;
using namespace tabulon::test;

namespace {

QString closedReport()
{
    return Dialogs::runtimeErrorText(DbError::generic(qs("Operation is not allowed when the object is closed.")));
}

} // namespace

class TestDataErrors final : public QObject, ToolFixture {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { createDatabase("dataerr"); }
    void init();
    void cleanup() { closeMain(); }

    void openOnClosedSession_data();
    void openOnClosedSession();
    void runOnClosedSession_data();
    void runOnClosedSession();
    void nothingChosen_data();
    void nothingChosen();

private:
    template <typename T> T *child(QWidget *w, const char *name) const { return w->findChild<T *>(qs(name)); }
    // Sets up a tool for a run: the search text, the kind of field, and what is chosen.
    void prepare(QWidget *w, const QString &command, const QString &kind);
    void run(QWidget *w, const QString &command);
    QStringList data() { return m_db->rows(qs("SELECT * FROM main_info1 ORDER BY 1")); }
};

void TestDataErrors::init()
{
    QVERIFY_DB(m_db->run({
        qs("DROP TABLE IF EXISTS main_info1, owner1"),
        qs("CREATE TABLE main_info1 (code_no VARCHAR(10), code VARCHAR(10))"),
        qs("INSERT INTO main_info1 VALUES ('C1','C1'), ('C2','A2')"),
        qs("CREATE TABLE owner1 (code VARCHAR(10), city VARCHAR(20))"),
        qs("INSERT INTO owner1 VALUES ('C1','Oslo')"),
    }));
    openMain();
}

void TestDataErrors::prepare(QWidget *w, const QString &command, const QString &kind)
{
    if (command == qs("mnusearch")) {
        child<QLineEdit>(w, "txtsdata")->setText(qs("C1"));
        if (kind == qs("all"))
            child<QRadioButton>(w, "optall")->click();
    } else if (command == qs("mnureplace")) {
        child<QLineEdit>(w, "txtfind")->setText(qs("C1"));
        child<QLineEdit>(w, "txtreplace")->setText(qs("C9"));
        child<QComboBox>(w, "cbofield")->setCurrentIndex(kind == qs("code") ? 0 : kind == qs("others") ? 1 : -1);
    } else {
        child<QLineEdit>(w, "Text1")->setText(qs("C1"));
    }
}

void TestDataErrors::run(QWidget *w, const QString &command)
{
    child<QPushButton>(w, command == qs("mnusearch") ? "cmdsearch" : "cmdfind")->click();
}

void TestDataErrors::openOnClosedSession_data()
{
    QTest::addColumn<QString>("command");
    QTest::newRow("Table Data") << "mnuTabData";
    QTest::newRow("Search") << "mnusearch";
    QTest::newRow("Replace") << "mnureplace";
}

void TestDataErrors::openOnClosedSession()
{
    QFETCH(QString, command);
    session().close();
    m_main->enableAllMenus();
    m_main->menuItem(command)->trigger();
    QWidget *w = m_main->toolWindow(command);
    QVERIFY(w);
    QCOMPARE(m_operator->runtimeErrors, QStringList{closedReport()});
    QCOMPARE(m_operator->ends, QList<int>{1});
    QCOMPARE(m_operator->told, QStringList());
    // Nothing was listed to act on.
    QCOMPARE(child<QComboBox>(w, "Combo1")->count(), 0);
}

void TestDataErrors::runOnClosedSession_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("kind");
    QTest::newRow("Search, all tables") << "mnusearch"
                                        << "all";
    QTest::newRow("Replace, a client code") << "mnureplace"
                                            << "code";
    QTest::newRow("Replace, other fields") << "mnureplace"
                                           << "others";
}

void TestDataErrors::runOnClosedSession()
{
    QFETCH(QString, command);
    QFETCH(QString, kind);
    const QStringList before = data();
    QWidget *w = openTool(command.toUtf8().constData());
    QVERIFY(w);
    QCOMPARE(m_operator->runtimeErrors, QStringList());
    prepare(w, command, kind);
    session().close();
    run(w, command);
    QCOMPARE(m_operator->runtimeErrors, QStringList{closedReport()});
    QCOMPARE(m_operator->ends, QList<int>{1});
    QCOMPARE(m_operator->told, QStringList());
    QCOMPARE(child<Grid>(w, "Edi_Gr")->rows(), 1); // no hit listed
    QCOMPARE(data(), before);
}

void TestDataErrors::nothingChosen_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("told");
    QTest::newRow("Search, no table chosen") << "mnusearch"
                                             << "selected"
                                             << "Select a Table";
    QTest::newRow("Replace, no field kind") << "mnureplace"
                                            << ""
                                            << "Please select a field name";
    QTest::newRow("Table Data, no table to search") << "mnuTabData"
                                                    << ""
                                                    << "No records to search";
}

void TestDataErrors::nothingChosen()
{
    QFETCH(QString, command);
    QFETCH(QString, kind);
    QFETCH(QString, told);
    // Table Data chooses the first table by itself: only a database without tables leaves none.
    ScratchDatabase empty(qs("dataerr_empty"));
    QVERIFY_DB(empty.error());
    if (command == qs("mnuTabData"))
        QVERIFY_DB(openSession(session(), empty.name()));
    else
        markLog();
    m_main->enableAllMenus();
    m_main->menuItem(command)->trigger();
    QWidget *w = m_main->toolWindow(command);
    QVERIFY(w);
    if (command != qs("mnureplace"))
        QCOMPARE(child<QComboBox>(w, "Combo1")->currentIndex(), -1);
    prepare(w, command, kind);
    const QStringList before = data();
    const QStringList sentBefore = statementsReceived(m_db->admin(), session().connectionId());
    run(w, command);
    QCOMPARE(m_operator->told, QStringList{told});
    QCOMPARE(m_operator->runtimeErrors, QStringList());
    QCOMPARE(statementsReceived(m_db->admin(), session().connectionId()), sentBefore);
    QCOMPARE(data(), before);
}

QTEST_MAIN(TestDataErrors)
#include "test_dataerrors.moc"
