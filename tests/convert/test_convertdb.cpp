// The conversion window against the real server in its default (strict) mode: the sample Access
// file and an ODBC data source converted through the main window's convert command, the
// statements the server received, what the new database holds, the run's report, and the
// messages of second runs, damaged files and unsafe data source names.
#include "convert/conversionreport.h"
#include "convert/conversionrules.h"
#include "convert/convertdb.h"
#include "convert/databaseconversion.h"
#include "files.h"
#include "memorysource.h"
#include "toolfixture.h"
#include "wholevaluesource.h"

#include <QCheckBox>
#include <QCryptographicHash>
#include <QDialog>
#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

namespace {

const QString kTarget = QStringLiteral("tabulon_convert_target");
const QString kSample = QStringLiteral(TABULON_FIXTURES_DIR "/access/nwind.mdb");

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

class TestConvertDb final : public QObject, ToolFixture {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void convertsTheSampleIntoANewDatabase();
    void secondRunIntoTheSameDatabase_data();
    void secondRunIntoTheSameDatabase();
    void convertsADataSource();
    void longAndBinaryValuesAsFarAsTheStatementsCarryThem();
    void runsFromSourceTables();
    void windowProposesCancelsAndRefusesADamagedFile();

private:
    // Chooses `file` in the convert command's dialog and returns the conversion window.
    QDialog *chooseSource(const QString &file);
    // Sets the database name and the structure-only box, and presses "&OK".
    void run(QDialog *window, const QString &database, bool structureOnly = false);
    // The session's statements that create and fill tables.
    QStringList written()
    {
        QStringList out;
        for (const QString &s : sent())
            if (s.startsWith(qs("Create Table ")) || s.startsWith(qs("Insert into ")))
                out << s;
        return out;
    }
    QString sessionMode() { return m_main->session()->openQuery(qs("SELECT @@SESSION.sql_mode"))->text(0, 0); }
    QString status() { return m_main->statusBar()->currentMessage(); }
    QString reportText() { return QString::fromUtf8(read(ConversionReport::defaultPath())); }
    // Whatever file is chosen, the conversion reads `tables`.
    void convertFrom(const std::vector<SourceTable> &tables)
    {
        DatabaseConversion::shared().setSourceOpener([tables](const QString &) {
            return DbResult<std::unique_ptr<ConversionSource>>(std::make_unique<MemorySource>(tables));
        });
    }
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

    QTemporaryDir m_dir;
    QString m_folder;
    QString m_wholeValues; // why the data source of long and binary values is missing, if it is
};

void TestConvertDb::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    createDatabase("convertdb");
    m_folder = QDir::currentPath();
    QVERIFY(QFile::copy(kSample, m_dir.filePath(qs("nwind.mdb"))));
    // A data source for the tests: mdbtools' ODBC driver on the sample file.
    QVERIFY(startAccessSource(m_dir.path(), qs("nwindsource"), kSample));
    QFile sample(kSample);
    QVERIFY(sample.open(QIODevice::ReadOnly));
    write(m_dir.filePath(qs("damaged.mdb")), sample.read(sample.size() / 2));
    m_wholeValues = addWholeValueSource(m_dir.path(), qs("wholevalues"));
}

void TestConvertDb::init()
{
    QVERIFY_DB(m_db->run({QStringLiteral("DROP DATABASE IF EXISTS ") + kTarget}));
    openMain();
    markLog();
    m_main->enableAllMenus();
}

void TestConvertDb::cleanup()
{
    DatabaseConversion::shared().setSourceOpener({});
    QDir::setCurrent(m_folder);
    closeMain();
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
    const QString serverMode = m_db->rows(qs("SELECT @@SESSION.sql_mode")).value(0);
    QVERIFY(serverMode.contains(qs("STRICT_TRANS_TABLES")));
    QPointer<QDialog> window = chooseSource(qs("nwind.mdb"));
    run(window, kTarget);

    // The rows of a table whose name was sanitised are looked for under the new name: that
    // table alone keeps no rows. The dates written "dd-mm-yyyy" are changed by the server,
    // not refused, and show in the report rather than in boxes.
    QCOMPARE(m_operator->told,
             QStringList({qs("The Microsoft Jet database engine cannot find the input table or query 'Order_Details'.  "
                             "Make sure it exists and that its name is spelled correctly.")}));
    QVERIFY(m_operator->asked.isEmpty());
    QVERIFY(m_operator->runtimeErrors.isEmpty());
    QTRY_VERIFY(!window);

    // The run's own mode around its statements, and the session's mode back after it.
    const QStringList statements = sent();
    QCOMPARE(statements.mid(0, 3),
             QStringList({qs("SELECT @@SESSION.sql_mode"),
                          qs("SET SESSION sql_mode='%1'").arg(Conversion::lenientSqlMode(serverMode)),
                          qs("CREATE DATABASE ") + kTarget}));
    QCOMPARE(statements.last(), qs("SET SESSION sql_mode='%1'").arg(serverMode));
    QCOMPARE(sessionMode(), serverMode);
    // The tables' transactions ended with them: later commands' writes commit on their own.
    QCOMPARE(m_main->session()->openQuery(qs("SELECT @@SESSION.autocommit"))->text(0, 0), qs("1"));

    const QStringList writes = written();
    // Tables come in name order.
    QCOMPARE(writes.filter(qs("Create Table ")).value(0).section(u' ', 2, 2), kTarget + qs(".Categories"));
    QVERIFY(writes.contains(qs("Insert into %1.Orders values ('10330','LILAS','3','16-11-1994','14-12-1994',"
                               "'28-11-1994','1','12.75','LILA-Supermercado',"
                               "'Carrera 52 con Ave. Bolívar #65-98 Llano Largo','Barquisimeto','Lara','3508',"
                               "'Venezuela')")
                                .arg(kTarget)));

    // Mapped types, sanitised names, the accented table name kept, and every row but those
    // of the renamed table.
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
             sl({"0", "830", "77", "3", "8", "91", "9", "29", "830"}));
    QCOMPARE(rows(qs("SELECT CompanyName, Region FROM %1.Customers WHERE CustomerID='BONAP'")), sl({"Bon app_|"}));
    QCOMPARE(rows(qs("SELECT Discontinued, COUNT(*) FROM %1.Products GROUP BY 1")), sl({"0|69", "1|8"}));
    QCOMPARE(rows(qs("SELECT UnitPrice FROM %1.Products WHERE ProductID IN (1, 5)")), sl({"18", "21.35"}));
    QCOMPARE(rows(qs("SELECT OrderDate FROM %1.Orders WHERE OrderID=10330")), sl({"0000-00-00 00:00:00"}));

    // The report accounts for every table and every value the server changed; the status bar
    // says where it is.
    const QString path = ConversionReport::defaultPath();
    const QString report = QString::fromUtf8(read(path));
    QVERIFY2(report.contains(qs("Table Order_Details (source table Order Details)\n  rows written: 0\n  rows not read "
                                "from the source: The Microsoft Jet database engine cannot find the input table or "
                                "query 'Order_Details'.  Make sure it exists and that its name is spelled correctly.\n"
                                "  rows left behind: 2155\n")),
             qPrintable(report));
    QVERIFY2(report.contains(qs("Table Orders\n  rows written: 830\n  values changed by the server: 2490\n    Data "
                                "truncated for column 'OrderDate' at row 1\n    Data truncated for column "
                                "'RequiredDate' at row 1\n    Data truncated for column 'ShippedDate' at row 1\n")),
             qPrintable(report));
    QVERIFY(report.contains(qs("Table Shippers\n  rows written: 3\n\n")));
    // Every employee's photo holds bytes that make no letter: written as text, they cannot
    // arrive as they are, and the report counts them.
    QVERIFY(report.contains(qs("  values that cannot travel as they are (binary data written as text): 9\n\nTable "
                               "Order_Details ")));
    QCOMPARE(status(), qs("Conversion: 9 tables, 1877 rows written, 0 refused, 2155 left behind, 4999 values changed, "
                          "9 not carried exactly (report: %1)")
                           .arg(QDir::toNativeSeparators(path)));
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
    const QString create = qs("Create Table %1.Categories (CategoryID%2INT, CategoryName%2VARCHAR(255), "
                              "Description%2LONGTEXT, Picture%2LONGTEXT)");
    QCOMPARE(sent().filter(qs("CREATE DATABASE")), QStringList({qs("CREATE DATABASE ") + kTarget}));
    if (goOn) {
        // Both attempts fail; the second one's error ends the run.
        QCOMPARE(m_operator->told, sl({"Error Occured err.desc : Table 'Categories' already exists"}));
        QCOMPARE(written(), QStringList({create.arg(kTarget, qs(" ")), create.arg(kTarget, qs("1 "))}));
        QVERIFY2(reportText().contains(qs("Table Categories\n  not created\n\nTable Customers\n  not reached")),
                 qPrintable(reportText()));
    } else {
        QCOMPARE(m_operator->told, QStringList());
        QCOMPARE(written(), QStringList());
    }
    // Whichever way the run ended, the session has its mode back.
    QVERIFY(sent().last().startsWith(qs("SET SESSION sql_mode='STRICT_TRANS_TABLES")));
    QVERIFY(sessionMode().contains(qs("STRICT_TRANS_TABLES")));
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
    QCOMPARE(m_operator->told, sl({"Couldn't parse SQL"})); // the driver's word for the unknown Order_Details
    // In name order, as from the Access file, whatever the driver's catalog order.
    QCOMPARE(written().filter(qs("Create Table ")).value(0).section(u' ', 2, 2), kTarget + qs(".Categories"));
    QCOMPARE(columns("'Order_Details','Orders'"),
             QStringList({qs("Orders|OrderID int,CustomerID longtext,EmployeeID int,OrderDate longtext,RequiredDate "
                             "longtext,ShippedDate longtext,ShipVia int,Freight double,ShipName longtext,ShipAddress "
                             "longtext,ShipCity longtext,ShipRegion longtext,ShipPostalCode longtext,ShipCountry "
                             "longtext"),
                          qs("Order_Details|OrderID int,ProductID int,UnitPrice double,Quantity smallint,Discount "
                             "double")}));
    QCOMPARE(counts({"Order_Details", "Orders", "Products", "Employees", "Umsätze"}),
             sl({"0", "830", "77", "9", "830"}));
    QCOMPARE(rows(qs("SELECT OrderDate, Freight FROM %1.Orders WHERE OrderID=10330")), sl({"11/16/1994|12.75"}));
}

// A memo of more than 256 KiB arrives whole, its apostrophes replaced as every text's are.
// Binary values go as text, two bytes to a letter (an odd last byte padded): those that make
// letters arrive as such, and the report counts the one whose bytes no statement can carry.
void TestConvertDb::longAndBinaryValuesAsFarAsTheStatementsCarryThem()
{
    if (sqliteOdbcDriver().isEmpty())
        QSKIP("The SQLite ODBC driver (Debian package libsqliteodbc) is not installed");
    QVERIFY2(m_wholeValues.isEmpty(), qPrintable(m_wholeValues));
    run(chooseSource(qs("wholevalues.dsn")), kTarget);
    QCOMPARE(m_operator->told, QStringList());
    QCOMPARE(columns("'wholevalues'"), sl({"wholevalues|id int,memo longtext,data longtext"}));

    QStringList memos;
    for (const WholeValueRow &row : wholeValueRows()) {
        const QByteArray memo = row.memo.value_or(QString()).replace(u'\'', u'_').toUtf8();
        memos << qs("%1|%2").arg(row.id).arg(
            QString::fromLatin1(QCryptographicHash::hash(memo, QCryptographicHash::Md5).toHex()));
    }
    QCOMPARE(rows(qs("SELECT id, MD5(memo) FROM %1.wholevalues ORDER BY id")), memos);
    QCOMPARE(rows(qs("SELECT id, HEX(CONVERT(data USING utf16le)) FROM %1.wholevalues WHERE id > 1 ORDER BY id")),
             sl({"2|000100FF0000", "3|0000", "4|", "5|"}));
    const QString report = reportText();
    QVERIFY2(report.contains(qs("Table wholevalues\n  rows written: 5\n  values that cannot travel as they are "
                                "(binary data written as text): 1\n")),
             qPrintable(report));
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

    // A data source file whose name would add settings to the connection is refused before
    // anything is created; the status bar says why.
    m_operator->told.clear();
    run(chooseSource(qs("nwindsource;DRIVER={MDBTools}.dsn")), kTarget);
    QCOMPARE(m_operator->told, sl({"Error occured"}));
    QCOMPARE(sent(), QStringList());
    QVERIFY2(status().contains(qs("The data source name \"nwindsource;DRIVER={MDBTools}\" holds ';', '{', '}' or "
                                  "'='")),
             qPrintable(status()));
}

// A run from tables held in memory. Values go between quotes as they are: a backslash stays a
// backslash (a value ending in one no longer ends the statement early), and a value the strict
// server would refuse is changed, kept and reported. A row longer than the server's packet limit
// is not sent, and its table's copy stops there as at any refused row. Two source tables whose
// names become one: the table holds the first one's rows, the report names both, and the run
// ends there. The rows after a refused row, those of a table not created and those of a table
// the run never reached are left behind; the session stays open with its own mode back.
void TestConvertDb::runsFromSourceTables()
{
    const QString limit = m_db->rows(qs("SELECT @@GLOBAL.max_allowed_packet")).value(0);
    // A limit of 64 KiB for the connections opened from now on: the test needs no 16 MiB value.
    QVERIFY_DB(m_db->run({qs("SET GLOBAL max_allowed_packet=65536")}));
    const auto restore = qScopeGuard([&] { (void)m_db->run({qs("SET GLOBAL max_allowed_packet=") + limit}); });
    QVERIFY_DB(openSession(*m_main->session(), m_db->name()));
    const QString serverMode = sessionMode();
    convertFrom({{qs("Memos"),
                  {{qs("N"), 3}, {qs("Memo"), 203}},
                  {{qs("1"), qs("short")}, {qs("2"), QString(100000, u'x')}, {qs("3"), qs("short")}}},
                 {qs("Typed"),
                  {{qs("Path"), 202}, {qs("Note"), 203}, {qs("Small"), 2}},
                  {{qs("C:\\data\\"), qs("line\\nnext"), qs("70000")}, {qs("tab\\t'quote"), std::nullopt, qs("12")}}},
                 {qs("AmtLimit"), {{qs("N"), 3}}, {{qs("1")}, {qs("2"), qs("an extra value")}, {qs("3")}, {qs("4")}}},
                 {qs("limit"), {{qs("N"), 3}}, {{qs("5")}, {qs("6")}, {qs("7")}}},
                 {qs("Later"), {{qs("N"), 3}}, {{qs("8")}, {qs("9")}, {qs("10")}, {qs("11")}}}});
    run(chooseSource(qs("memory.mdb")), kTarget);

    QCOMPARE(m_operator->told, sl({"The statement is 100056 bytes long, more than the server accepts "
                                   "(max_allowed_packet, 65536 bytes); it was not sent.",
                                   "Column count doesn't match value count at row 1",
                                   "Error Occured err.desc : Table 'AmtLimit' already exists"}));
    QCOMPARE(rows(qs("SELECT N FROM %1.Memos UNION ALL SELECT N FROM %1.AmtLimit")), sl({"1", "1"}));
    QCOMPARE(rows(qs("SELECT Path, Note, Small FROM %1.Typed")),
             sl({"C:\\data\\|line\\nnext|32767", "tab\\t_quote||12"}));
    const QString report = reportText();
    QVERIFY2(report.contains(qs(
                 "Table Memos\n  rows written: 1\n  rows refused: 1 (the rows after it were not copied): The statement "
                 "is 100056 bytes long, more than the server accepts (max_allowed_packet, 65536 bytes); it was not "
                 "sent.\n  rows too long for the server (max_allowed_packet): 1\n  rows left behind: 1\n\nTable Typed\n"
                 "  rows written: 2\n  values changed by the server: 1\n    Out of range value for column 'Small' at "
                 "row 1\n\nTable AmtLimit\n  rows written: 1\n  rows refused: 1 (the rows after it were not copied): "
                 "Column count doesn't match value count at row 1\n  rows left behind: 2\n\nTable AmtLimit (source "
                 "table limit)\n  not created: table AmtLimit holds the rows of source table AmtLimit; the rows of "
                 "source table limit were not copied\n  rows left behind: 3\n\nTable Later\n  not reached: the run "
                 "stopped before it\n  rows left behind: 4\n\nThe run stopped: table AmtLimit: Table 'AmtLimit' "
                 "already exists\n")),
             qPrintable(report));
    QCOMPARE(status(), qs("Conversion: 5 tables, 4 rows written, 2 refused, 10 left behind, 1 values changed, 1 rows "
                          "too long for the server, stopped: table AmtLimit: Table 'AmtLimit' already exists (report: "
                          "%1)")
                           .arg(QDir::toNativeSeparators(ConversionReport::defaultPath())));
    QCOMPARE(sent().last(), qs("SET SESSION sql_mode='%1'").arg(serverMode));
    QCOMPARE(sessionMode(), serverMode);
}

QTEST_MAIN(TestConvertDb)
#include "test_convertdb.moc"
