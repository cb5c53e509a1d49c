// The Import Data window on the sample Access file against the real server: a copy into a new
// table, a copy into an existing one with unmatched fields and refused rows, and the cases that
// must write nothing.
#include "app/mdiform1.h"
#include "convert/frmimportdata.h"
#include "grid/grid.h"
#include "gridtexts.h"
#include "operator.h"
#include "testdb.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

class TestFrmImportData final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void controlsAndExit();
    void importsIntoANewTable();
    void importsIntoAnExistingTable();
    void writesNothing_data();
    void writesNothing();

private:
    template <typename T> T *child(const char *name) { return m_window->findChild<T *>(qs(name)); }
    // Chooses `file` through the browse button and `table` in the table list.
    void choose(const QString &file, const QString &table);
    // Ticks exactly the named fields.
    void tick(const QStringList &names);
    QStringList grid() { return gridRowTexts(child<Grid>("Edi_Gr")->cells()); }
    QStringList sent() { return statementsReceived(m_db->admin(), m_main->session()->connectionId()); }

    std::unique_ptr<ScratchDatabase> m_db;
    QTemporaryDir m_dir;
    std::unique_ptr<MDIForm1> m_main;
    std::unique_ptr<Operator> m_operator;
    QPointer<frmimportdata> m_window;
};

void TestFrmImportData::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(QStringLiteral("frmimportdata"));
    QVERIFY_DB(m_db->error());
    QVERIFY(QFile::copy(qs(TABULON_FIXTURES_DIR "/access/nwind.mdb"), m_dir.filePath(qs("nwind.mdb"))));
    QFile damaged(m_dir.filePath(qs("damaged.mdb")));
    QVERIFY(damaged.open(QIODevice::WriteOnly));
    damaged.write(QByteArray("plain text, not a database\n").repeated(300));
}

void TestFrmImportData::init()
{
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS imported, clients, existing"),
                          qs("CREATE TABLE existing (kept INT)"), qs("INSERT INTO existing VALUES (7)")}));
    m_operator = std::make_unique<Operator>();
    m_main = std::make_unique<MDIForm1>(AppEnvironment{m_dir.filePath(qs("settings.ini")), {}, {}});
    QVERIFY_DB(openSession(*m_main->session(), m_db->name()));
    m_window = new frmimportdata(*m_main, m_main.get());
    m_window->show();
}

void TestFrmImportData::cleanup()
{
    m_main.reset();
    m_operator.reset();
}

void TestFrmImportData::choose(const QString &file, const QString &table)
{
    m_operator->chosenFile = m_dir.filePath(file);
    child<QPushButton>("cmdbrowse")->click();
    QCOMPARE(child<QLineEdit>("txtsource")->text(), m_dir.filePath(file));
    auto *tables = child<QComboBox>("cbotable");
    if (!table.isEmpty())
        tables->setCurrentIndex(tables->findText(table));
}

void TestFrmImportData::tick(const QStringList &names)
{
    auto *list = child<QListWidget>("lstfields");
    for (int i = 0; i < list->count(); ++i) {
        QListWidgetItem *item = list->item(i);
        const QString name = item->text().section(qs("  ("), 0, 0);
        item->setCheckState(names.contains(name) ? Qt::Checked : Qt::Unchecked);
    }
}

void TestFrmImportData::controlsAndExit()
{
    QCOMPARE(m_window->objectName(), qs("frmimportdata"));
    QCOMPARE(m_window->windowTitle(), qs("Import Data"));
    QCOMPARE(m_window->minimumSize(), m_window->maximumSize());
    for (const char *name : {"cmdbrowse", "cmdimport", "cmdexit"})
        QVERIFY2(child<QPushButton>(name), name);
    QCOMPARE(child<QRadioButton>("optnew")->text(), qs("&New table"));
    QCOMPARE(child<QRadioButton>("optexisting")->text(), qs("&Existing table"));
    QVERIFY(child<QProgressBar>("ProgressBar1") && child<QLabel>("lblstatus"));
    // The existing tables, none chosen; the list is used only for an existing target.
    auto *target = child<QComboBox>("cbotarget");
    QCOMPARE(target->count(), 1);
    QCOMPARE(target->itemText(0), qs("existing"));
    QVERIFY(!target->isEnabled());

    m_operator->answer = Dialogs::Answer::No;
    child<QPushButton>("cmdexit")->click();
    QCOMPARE(m_operator->asked, sl({"Are you sure you want to exit?"}));
    QVERIFY(m_window->isVisible());
    m_operator->answer = Dialogs::Answer::Yes;
    child<QPushButton>("cmdexit")->click();
    QTRY_VERIFY(!m_window || !m_window->isVisible());

    m_window = new frmimportdata(*m_main, m_main.get());
    m_window->show();
    QTest::keyClick(child<QLineEdit>("txtsource"), Qt::Key_Escape);
    QTRY_VERIFY(!m_window || !m_window->isVisible());
    QCOMPARE(m_operator->asked.size(), 2); // Escape closes without asking
}

void TestFrmImportData::importsIntoANewTable()
{
    choose(qs("nwind.mdb"), qs("Order Details"));
    QCOMPARE(m_operator->fileFilters, sl({"Access Database|*.mdb|DSN|*.dsn"}));
    QCOMPARE(child<QLineEdit>("txtnewtable")->text(), qs("Order_Details"));
    child<QComboBox>("cbotable")->setCurrentIndex(child<QComboBox>("cbotable")->findText(qs("Orders")));
    QCOMPARE(child<QLineEdit>("txtnewtable")->text(), qs("Orders"));
    tick(sl({"OrderID", "CustomerID", "OrderDate", "Freight"}));
    QCOMPARE(grid(), sl({"Source Field|Type|Target Column", "OrderID|INT|OrderID", "CustomerID|VARCHAR(255)|CustomerID",
                         "OrderDate|DATETIME|OrderDate", "Freight|VARCHAR(255)|Freight"}));
    child<QLineEdit>("txtnewtable")->setText(qs("imported"));
    child<QPushButton>("cmdimport")->click();

    QCOMPARE(m_operator->asked, sl({"Import 4 fields of table 'Orders' into the new table 'imported'?"}));
    QCOMPARE(m_operator->told, sl({"The import is complete.\n\nRows copied: 830\nRows refused: 0"}));
    QCOMPARE(child<QLabel>("lblstatus")->text(), qs("Rows copied: 830, refused: 0"));
    QCOMPARE(child<QProgressBar>("ProgressBar1")->value(), child<QProgressBar>("ProgressBar1")->maximum());
    const QStringList statements = sent();
    QCOMPARE(statements.filter(qs("CREATE TABLE")),
             sl({"CREATE TABLE `imported` (`OrderID` INT, `CustomerID` VARCHAR(255), `OrderDate` DATETIME, "
                 "`Freight` VARCHAR(255))"}));
    QVERIFY(statements.contains(
        qs("INSERT INTO `imported` (`OrderID`,`CustomerID`,`OrderDate`,`Freight`) VALUES ('10330','LILAS',"
           "'1994-11-16 00:00:00','12.75')")));
    QCOMPARE(m_db->rows(qs("SELECT COUNT(*), MIN(OrderDate), MAX(OrderDate) FROM imported")),
             sl({"830|1994-08-04 00:00:00|1996-06-05 00:00:00"}));
    // The new table is now an existing one.
    QVERIFY(child<QComboBox>("cbotarget")->findText(qs("imported")) >= 0);
}

void TestFrmImportData::importsIntoAnExistingTable()
{
    QVERIFY_DB(m_db->run({qs("CREATE TABLE clients (customerid VARCHAR(5), CompanyName VARCHAR(40), Region "
                             "VARCHAR(15), Country VARCHAR(15) CHECK (Country <> 'Germany'))")}));
    m_window = new frmimportdata(*m_main, m_main.get()); // lists the new table
    m_window->show();
    choose(qs("nwind.mdb"), qs("Customers"));
    tick(sl({"CustomerID", "CompanyName", "ContactName", "Region", "Country"}));
    child<QRadioButton>("optexisting")->setChecked(true);
    child<QComboBox>("cbotarget")->setCurrentIndex(child<QComboBox>("cbotarget")->findText(qs("clients")));
    QVERIFY(!child<QLineEdit>("txtnewtable")->isEnabled());
    QCOMPARE(grid(), sl({"Source Field|Type|Target Column", "CustomerID|VARCHAR(255)|customerid",
                         "CompanyName|VARCHAR(255)|CompanyName", "ContactName|VARCHAR(255)|(no match: skipped)",
                         "Region|VARCHAR(255)|Region", "Country|VARCHAR(255)|Country"}));
    child<QPushButton>("cmdimport")->click();

    QCOMPARE(m_operator->asked, sl({"Import 4 fields of table 'Customers' into the existing table 'clients'?\n\n"
                                    "1 ticked field matches no column and will be skipped."}));
    const QString refusal = qs("CONSTRAINT `clients.Country` failed for `%1`.`clients`").arg(m_db->name());
    QCOMPARE(m_operator->told, QStringList({qs("The import is complete.\n\nRows copied: 80\nRows refused: 11\n\n"
                                               "First refusals:\n") +
                                            QStringList(5, refusal).join(QLatin1Char('\n'))}));
    QCOMPARE(m_db->rows(qs("SELECT * FROM clients WHERE customerid IN ('BONAP', 'ALFKI', 'OLDWO')")),
             sl({"BONAP|Bon app'|\\N|France", "OLDWO|Old World Delicatessen|AK|USA"}));
}

void TestFrmImportData::writesNothing_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QStringList>("ticked");
    QTest::addColumn<bool>("existing");
    QTest::addColumn<QString>("message");
    QTest::newRow("no field ticked") << qs("nwind.mdb") << QStringList() << false << qs("No field has been selected.");
    QTest::newRow("new table already there")
        << qs("nwind.mdb") << sl({"ShipperID"}) << false
        << qs("Table 'existing' already exists. Nothing has been imported.\n\nEnter another name, or choose it as the "
              "existing table.");
    QTest::newRow("no ticked field matches")
        << qs("nwind.mdb") << sl({"ShipperID", "Phone"}) << true
        << qs("None of the ticked fields matches a column of table 'existing'. Nothing has been imported.");
    QTest::newRow("damaged source") << qs("damaged.mdb") << QStringList() << false
                                    << qs("Choose a source file and one of its tables first.");
}

void TestFrmImportData::writesNothing()
{
    QFETCH(QString, file);
    QFETCH(QStringList, ticked);
    QFETCH(bool, existing);
    QFETCH(QString, message);
    choose(file, qs("Shippers"));
    tick(ticked);
    child<QLineEdit>("txtnewtable")->setText(qs("existing"));
    if (existing) {
        child<QRadioButton>("optexisting")->setChecked(true);
        child<QComboBox>("cbotarget")->setCurrentIndex(0);
        QCOMPARE(grid(), sl({"Source Field|Type|Target Column", "ShipperID|INT|(no match: skipped)",
                             "Phone|VARCHAR(255)|(no match: skipped)"}));
    }
    child<QPushButton>("cmdimport")->click();
    QCOMPARE(m_operator->told.last(), message);
    if (file == qs("damaged.mdb")) // the reader's error was shown when the file was chosen
        QVERIFY2(m_operator->told.first().startsWith(qs("The source cannot be opened.\n\n")),
                 qPrintable(m_operator->told.first()));
    QVERIFY(m_operator->asked.isEmpty());
    QVERIFY(m_operator->runtimeErrors.isEmpty());
    QCOMPARE(sent().filter(QRegularExpression(qs("^(CREATE|INSERT)"))), QStringList());
    QCOMPARE(m_db->rows(qs("SELECT * FROM existing")), sl({"7"}));
}

QTEST_MAIN(TestFrmImportData)
#include "test_frmimportdata.moc"
