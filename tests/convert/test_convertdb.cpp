// The conversion window against the real server: the sample Access file and an ODBC data source
// converted through the main window's convert command, the statements the server received,
// what the new database holds, and the messages of second runs and damaged files.
#include "app/mdiform1.h"
#include "app/toolcatalog.h"
#include "convert/convertdb.h"
#include "operator.h"
#include "testdb.h"

#include <QCheckBox>
#include <QDialog>
#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

namespace {

const QString kTarget = QStringLiteral("tabulon_convert_target");
const QString kSample = QStringLiteral(TABULON_FIXTURES_DIR "/access/nwind.mdb");

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

// The shown text of each named control: a combo box's current text, another control's text.
QStringList texts(const QWidget *window, std::initializer_list<const char *> names)
{
    QStringList out;
    for (const char *name : names) {
        const QWidget *w = window->findChild<QWidget *>(qs(name));
        out << (w ? w->property(w->inherits("QComboBox") ? "currentText" : "text").toString() : qs("<missing>"));
    }
    return out;
}

} // namespace

class TestConvertDb final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void convertsTheSampleIntoANewDatabase();
    void secondRunIntoTheSameDatabase_data();
    void secondRunIntoTheSameDatabase();
    void convertsADataSource();
    void windowProposesCancelsAndRefusesADamagedFile();

private:
    // Chooses `file` in the convert command's dialog and returns the conversion window.
    QDialog *chooseSource(const QString &file);
    // Sets the database name and the structure-only box, and presses "&OK".
    void run(QDialog *window, const QString &database, bool structureOnly = false);
    QStringList sent() { return statementsReceived(m_db->admin(), m_main->session()->connectionId()); }
    // Rows of a query in which %1 stands for the target database.
    QStringList rows(const QString &sql) { return m_db->rows(sql.arg(kTarget)); }
    // "table|name type,name type..." of the target's tables in `tables` ('a','b').
    QStringList columns(const char *tables)
    {
        return rows(qs("SELECT table_name, GROUP_CONCAT(column_name, ' ', data_type ORDER BY ordinal_position) FROM "
                       "information_schema.columns WHERE table_schema='%1' AND table_name IN (") +
                    qs(tables) + qs(") GROUP BY table_name ORDER BY table_name"));
    }
    QStringList counts(std::initializer_list<const char *> tables)
    {
        QStringList out;
        for (const char *t : tables)
            out << rows(qs("SELECT COUNT(*) FROM %1.`") + qs(t) + u'`');
        return out;
    }

    std::unique_ptr<ScratchDatabase> m_db;
    QTemporaryDir m_dir;
    std::unique_ptr<MDIForm1> m_main;
    std::unique_ptr<Operator> m_operator;
    QString m_folder;
};

void TestConvertDb::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(QStringLiteral("convertdb"));
    QVERIFY_DB(m_db->error());
    m_folder = QDir::currentPath();
    QVERIFY(QFile::copy(kSample, m_dir.filePath(qs("nwind.mdb"))));
    // A data source for the tests: mdbtools' ODBC driver on the sample file.
    QVERIFY(writeFile(m_dir.filePath(qs("odbcinst.ini")), "[MDBTools]\nDriver=libmdbodbc.so\n"));
    QVERIFY(writeFile(m_dir.filePath(qs("odbc.ini")),
                      qs("[nwindsource]\nDriver=MDBTools\nDatabase=%1\n").arg(kSample).toUtf8()));
    qputenv("ODBCSYSINI", m_dir.path().toUtf8());
    qputenv("ODBCINI", m_dir.filePath(qs("odbc.ini")).toUtf8());
    QVERIFY(writeFile(m_dir.filePath(qs("nwindsource.dsn")), {})); // its content is never read
    QFile sample(kSample);
    QVERIFY(sample.open(QIODevice::ReadOnly));
    QVERIFY(writeFile(m_dir.filePath(qs("damaged.mdb")), sample.read(sample.size() / 2)));
}

void TestConvertDb::init()
{
    QVERIFY_DB(m_db->run({QStringLiteral("DROP DATABASE IF EXISTS ") + kTarget}));
    m_operator = std::make_unique<Operator>();
    m_main = std::make_unique<MDIForm1>(AppEnvironment{m_dir.filePath(qs("settings.ini")), {}, {}});
    registerTools(*m_main);
    m_main->show();
    QVERIFY_DB(openSession(*m_main->session(), m_db->name()));
    m_main->enableAllMenus();
}

void TestConvertDb::cleanup()
{
    QDir::setCurrent(m_folder);
    m_main.reset();
    m_operator.reset();
    QVERIFY_DB(m_db->run({QStringLiteral("DROP DATABASE IF EXISTS ") + kTarget}));
}

QDialog *TestConvertDb::chooseSource(const QString &file)
{
    m_operator->chosenFile = m_dir.filePath(file);
    m_operator->modals.clear();
    m_main->menuItem(qs("mnuconvertdb"))->trigger();
    return m_operator->modals.isEmpty() ? nullptr : m_operator->modals.last();
}

void TestConvertDb::run(QDialog *window, const QString &database, bool structureOnly)
{
    QVERIFY(window);
    window->findChild<QLineEdit *>(qs("Text2"))->setText(database);
    window->findChild<QCheckBox *>(qs("Check1"))->setChecked(structureOnly);
    window->findChild<QPushButton *>(qs("Command2"))->click();
    // The window closes whatever the outcome, and gives the command back.
    QTRY_VERIFY(m_main->menuItem(qs("mnuconvertdb"))->isEnabled());
}

void TestConvertDb::convertsTheSampleIntoANewDatabase()
{
    QPointer<QDialog> window = chooseSource(qs("nwind.mdb"));
    run(window, kTarget);

    // The rows of a table whose name was sanitised are looked for under the new name, and
    // dates written "dd-mm-yyyy" are no dates to the server: those tables keep no rows.
    const QString dateError = qs("Incorrect datetime value: '%1' for column `%2`.`%3`.`%4` at row 1");
    QCOMPARE(m_operator->told,
             QStringList({qs("The Microsoft Jet database engine cannot find the input table or query 'Order_Details'.  "
                             "Make sure it exists and that its name is spelled correctly."),
                          dateError.arg(qs("16-11-1994"), kTarget, qs("Orders"), qs("OrderDate")),
                          dateError.arg(qs("08-12-1948"), kTarget, qs("Employees"), qs("BirthDate")),
                          dateError.arg(qs("16-11-1994"), kTarget, qs("Umsätze"), qs("OrderDate"))}));
    QVERIFY(m_operator->asked.isEmpty());
    QVERIFY(m_operator->runtimeErrors.isEmpty());
    QTRY_VERIFY(!window);

    const QStringList statements = sent();
    QCOMPARE(statements.at(0), qs("CREATE DATABASE ") + kTarget);
    QCOMPARE(statements.at(1), qs("Create Table %1.Order_Details (OrderID INT, ProductID INT, UnitPrice VARCHAR(255), "
                                  "Quantity SMALLINT, Discount FLOAT)")
                                   .arg(kTarget));
    QCOMPARE(statements.filter(qs("Create Table ")).size(), 9);
    QCOMPARE(statements.filter(qs("Insert into ")).size(), 1 + 77 + 3 + 8 + 91 + 1 + 29 + 1);
    QVERIFY(
        statements.contains(qs("Insert into %1.Shippers values ('1','Speedy Express','(503) 555-9831')").arg(kTarget)));
    QVERIFY(statements.contains(qs("Insert into %1.Orders values ('10330','LILAS','3','16-11-1994','14-12-1994',"
                                   "'28-11-1994','1','12.75','LILA-Supermercado',"
                                   "'Carrera 52 con Ave. Bolívar #65-98 Llano Largo','Barquisimeto','Lara','3508',"
                                   "'Venezuela')")
                                    .arg(kTarget)));

    // Mapped types, sanitised names, the accented table name kept, and the rows of the tables
    // the server took.
    QCOMPARE(columns("'Order_Details','Products','Categories','Umsätze'"),
             QStringList({qs("Categories|CategoryID int,CategoryName varchar,Description longtext,Picture longtext"),
                          qs("Order_Details|OrderID int,ProductID int,UnitPrice varchar,Quantity smallint,Discount "
                             "float"),
                          qs("Products|ProductID int,ProductName varchar,SupplierID int,CategoryID int,"
                             "QuantityPerUnit varchar,UnitPrice varchar,UnitsInStock smallint,UnitsOnOrder smallint,"
                             "ReorderLevel smallint,Discontinued tinyint"),
                          qs("Umsätze|OrderID int,CustomerID varchar,EmployeeID int,OrderDate datetime,RequiredDate "
                             "datetime,ShippedDate datetime,ShipVia int,Freight varchar,ShipName varchar,ShipAddress "
                             "varchar,ShipCity varchar,ShipRegion varchar,ShipPostalCode varchar,ShipCountry "
                             "varchar")}));
    QCOMPARE(counts({"Order_Details", "Orders", "Products", "Shippers", "Categories", "Customers", "Employees",
                     "Suppliers", "Umsätze"}),
             sl({"0", "0", "77", "3", "8", "91", "0", "29", "0"}));
    QCOMPARE(rows(qs("SELECT CompanyName, Region FROM %1.Customers WHERE CustomerID='BONAP'")), sl({"Bon app_|"}));
    QCOMPARE(rows(qs("SELECT Discontinued, COUNT(*) FROM %1.Products GROUP BY 1")), sl({"0|69", "1|8"}));
    QCOMPARE(rows(qs("SELECT UnitPrice FROM %1.Products WHERE ProductID IN (1, 5)")), sl({"18", "21.35"}));
}

void TestConvertDb::secondRunIntoTheSameDatabase_data()
{
    QTest::addColumn<bool>("goOn");
    QTest::newRow("Yes: the first table stops the run") << true;
    QTest::newRow("No: nothing more") << false;
}

void TestConvertDb::secondRunIntoTheSameDatabase()
{
    QFETCH(bool, goOn);
    // Structure only: every table, no rows.
    run(chooseSource(qs("nwind.mdb")), kTarget, true);
    QCOMPARE(m_operator->told, QStringList());
    QCOMPARE(sent().filter(qs("Create Table ")).size(), 9);
    QCOMPARE(sent().filter(qs("Insert into")), QStringList());
    QVERIFY_DB(openSession(*m_main->session(), m_db->name())); // a fresh log for the second run

    m_operator->answer = goOn ? Dialogs::Answer::Yes : Dialogs::Answer::No;
    run(chooseSource(qs("nwind.mdb")), kTarget, true);
    QCOMPARE(m_operator->asked, sl({"Database already exists. Do you want to continue ?"}));
    const QString create = qs("Create Table %1.Order_Details (OrderID%2INT, ProductID%2INT, UnitPrice%2VARCHAR(255), "
                              "Quantity%2SMALLINT, Discount%2FLOAT)");
    if (goOn) {
        // Both attempts fail; the second one's error ends the run.
        QCOMPARE(m_operator->told, sl({"Error Occured err.desc : Table 'Order_Details' already exists"}));
        QCOMPARE(sent(), QStringList({qs("CREATE DATABASE ") + kTarget, create.arg(kTarget, qs(" ")),
                                      create.arg(kTarget, qs("1 "))}));
    } else {
        QCOMPARE(m_operator->told, QStringList());
        QCOMPARE(sent(), QStringList({qs("CREATE DATABASE ") + kTarget}));
    }
}

// The data source is mdbtools' ODBC driver on the sample: the driver's SQL types give other
// codes (text 200, currency 131, dates 135), which map to other column types and carry no
// date rule.
void TestConvertDb::convertsADataSource()
{
    QPointer<QDialog> window = chooseSource(qs("nwindsource.dsn"));
    QVERIFY(window);
    QCOMPARE(window->findChild<QLineEdit *>(qs("Text2"))->text(), qs("nwindsource"));
    run(window, kTarget);
    QCOMPARE(m_operator->told,
             sl({"Couldn't parse SQL", // the driver's word for the unknown table Order_Details
                 "Incorrect integer value: '' for column `tabulon_convert_target`.`Employees`.`ReportsTo` at row 1"}));
    QCOMPARE(sent().filter(qs("Create Table ")).size(), 9);
    QCOMPARE(columns("'Order_Details','Orders'"),
             QStringList({qs("Orders|OrderID int,CustomerID longtext,EmployeeID int,OrderDate longtext,RequiredDate "
                             "longtext,ShippedDate longtext,ShipVia int,Freight double,ShipName longtext,ShipAddress "
                             "longtext,ShipCity longtext,ShipRegion longtext,ShipPostalCode longtext,ShipCountry "
                             "longtext"),
                          qs("Order_Details|OrderID int,ProductID int,UnitPrice double,Quantity smallint,Discount "
                             "double")}));
    QCOMPARE(counts({"Order_Details", "Orders", "Products", "Employees", "Umsätze"}),
             sl({"0", "830", "77", "1", "830"}));
    QCOMPARE(rows(qs("SELECT OrderDate, Freight FROM %1.Orders WHERE OrderID=10330")), sl({"11/16/1994|12.75"}));
}

void TestConvertDb::windowProposesCancelsAndRefusesADamagedFile()
{
    QPointer<QDialog> window = chooseSource(qs("nwind.mdb"));
    QVERIFY(window);
    QCOMPARE(window->windowTitle(), qs("Convert Database"));
    QCOMPARE(texts(window, {"Label2", "Label3", "Combo1", "Check1", "Command2", "Command1", "Text1", "Text2"}),
             sl({"Convert to", "Database Name", "MySql Database", "Structure Only", "&OK", "&CANCEL", "nwind.mdb",
                 "nwind"}));
    // A name too short for an extension leaves the proposal as it was.
    auto *source = window->findChild<QLineEdit *>(qs("Text1"));
    source->setText(qs("a.b"));
    QCOMPARE(texts(window, {"Text2"}), sl({"nwind"}));
    source->setText(qs("clients.mdb"));
    QCOMPARE(texts(window, {"Text2"}), sl({"clients"}));
    QVERIFY(!m_main->menuItem(qs("mnuconvertdb"))->isEnabled());
    window->findChild<QPushButton *>(qs("Command1"))->click();
    QTRY_VERIFY(!window);
    QVERIFY(m_main->menuItem(qs("mnuconvertdb"))->isEnabled());
    QVERIFY(m_operator->told.isEmpty() && m_operator->asked.isEmpty());

    // A file the reader cannot read (its kinds of damage are tried in test_accessfile): the
    // operator is told, the server hears nothing.
    window = chooseSource(qs("damaged.mdb"));
    run(window, kTarget);
    QCOMPARE(m_operator->told, sl({"Error occured"}));
    QTRY_VERIFY(!window);
    QCOMPARE(sent(), QStringList());
    QCOMPARE(rows(qs("SHOW DATABASES LIKE '%1'")), QStringList());
}

QTEST_MAIN(TestConvertDb)
#include "test_convertdb.moc"
