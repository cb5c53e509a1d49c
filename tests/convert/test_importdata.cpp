// Importing data: the value literals and the field matching, the row copy from a source held in
// memory, and the Import Data window on the sample Access file, all against the real server.
#include "app/mdiform1.h"
#include "app/toolcatalog.h"
#include "convert/frmimportdata.h"
#include "convert/importdata.h"
#include "db/typecodes.h"
#include "grid/grid.h"
#include "gridtexts.h"
#include "operator.h"
#include "testdb.h"

#include <QAction>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace tabulon;
using namespace tabulon::test;

namespace {

class MemorySource final : public ConversionSource {
public:
    SourceTable table;
    QStringList tableNames() const override { return {table.name}; }
    DbResult<std::vector<SourceField>> readFields(const QString &) override { return table.fields; }
    DbError readRows(const QString &, const RowSink &sink) override
    {
        for (const SourceRow &row : table.rows) {
            if (DbError e = sink(row))
                return e;
        }
        return {};
    }
};

std::optional<QString> v(const char *text)
{
    return text ? std::optional<QString>(qs(text)) : std::nullopt;
}

} // namespace

class TestImportData final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void valueLiteral_data();
    void valueLiteral();
    void copiesRowsIntoANewTable();

    void windowControlsAndExit();
    void importsIntoANewTable();
    void importsFromADataSource();
    void importsIntoAnExistingTable();
    void closeDuringTheCopyStopsIt();
    void writesNothing_data();
    void writesNothing();

private:
    template <typename T> T *child(const char *name) { return m_window->findChild<T *>(qs(name)); }
    void openWindow();
    // Chooses `file` through the browse button, then `table`.
    void choose(const QString &file, const QString &table);
    void tick(const QStringList &fields);
    QStringList grid() { return gridRowTexts(child<Grid>("Edi_Gr")->cells()); }
    QStringList sent() { return statementsReceived(m_db->admin(), m_main->session()->connectionId()); }

    std::unique_ptr<ScratchDatabase> m_db;
    QTemporaryDir m_dir;
    std::unique_ptr<MDIForm1> m_main;
    std::unique_ptr<Operator> m_operator;
    QPointer<frmimportdata> m_window;
};

void TestImportData::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(QStringLiteral("importdata"));
    QVERIFY_DB(m_db->error());
    QVERIFY(QFile::copy(qs(TABULON_FIXTURES_DIR "/access/nwind.mdb"), m_dir.filePath(qs("nwind.mdb"))));
    // A data source for the tests: mdbtools' ODBC driver on the sample file.
    const auto put = [this](const char *name, const QByteArray &text) {
        QFile file(m_dir.filePath(qs(name)));
        return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
    };
    QVERIFY(put("odbcinst.ini", "[MDBTools]\nDriver=libmdbodbc.so\n"));
    QVERIFY(put("odbc.ini", "[nwindsource]\nDriver=MDBTools\nDatabase=" + m_dir.filePath(qs("nwind.mdb")).toUtf8()));
    QVERIFY(put("nwindsource.dsn", {})); // its content is never read
    qputenv("ODBCSYSINI", m_dir.path().toUtf8());
    qputenv("ODBCINI", m_dir.filePath(qs("odbc.ini")).toUtf8());
    QFile damaged(m_dir.filePath(qs("damaged.mdb")));
    QVERIFY(damaged.open(QIODevice::WriteOnly));
    damaged.write(QByteArray("plain text, not a database\n").repeated(300));
}

void TestImportData::init()
{
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS imported, clients, existing"),
                          qs("CREATE TABLE existing (kept INT)"), qs("INSERT INTO existing VALUES (7)")}));
    m_operator = std::make_unique<Operator>();
    m_main = std::make_unique<MDIForm1>(AppEnvironment{m_dir.filePath(qs("settings.ini")), {}, {}});
    QVERIFY_DB(openSession(*m_main->session(), m_db->name()));
    registerTools(*m_main);
    m_main->enableAllMenus();
}

void TestImportData::cleanup()
{
    m_main.reset();
    m_operator.reset();
}

void TestImportData::openWindow()
{
    // Through the main window's menu, as the operator opens it.
    m_main->menuItem(qs("mnuimpdata"))->trigger();
    QVERIFY(!m_operator->modals.isEmpty());
    m_window = qobject_cast<frmimportdata *>(m_operator->modals.last());
    QVERIFY(m_window && !m_main->menuItem(qs("mnuimpdata"))->isEnabled());
}

void TestImportData::choose(const QString &file, const QString &table)
{
    openWindow();
    m_operator->chosenFile = m_dir.filePath(file);
    child<QPushButton>("cmdbrowse")->click();
    QCOMPARE(child<QLineEdit>("txtsource")->text(), m_dir.filePath(file));
    child<QComboBox>("cbotable")->setCurrentIndex(child<QComboBox>("cbotable")->findText(table));
}

void TestImportData::tick(const QStringList &fields)
{
    auto *list = child<QListWidget>("lstfields");
    for (int i = 0; i < list->count(); ++i) {
        const QString name = list->item(i)->text().section(qs("  ("), 0, 0);
        list->item(i)->setCheckState(fields.contains(name) ? Qt::Checked : Qt::Unchecked);
    }
}

// One row per line reads best here.
// clang-format off
void TestImportData::valueLiteral_data()
{
    QTest::addColumn<std::optional<QString>>("value");
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("column");
    QTest::addColumn<QByteArray>("literal");
    QTest::newRow("NULL date") << v(nullptr) << AdoType::Date << qs("datetime") << QByteArray("NULL");
    QTest::newRow("apostrophe, backslash") << v("O'B\\n") << AdoType::VarWChar << qs("text") << QByteArray(R"('O\'B\\n')");
    QTest::newRow("true") << v("True") << AdoType::Boolean << qs("tinyint(4)") << QByteArray("1");
    QTest::newRow("PM into timestamp") << v("2/29/2000 2:05:09 PM") << AdoType::Date << qs("timestamp") << QByteArray("'2000-02-29 14:05:09'");
    QTest::newRow("12 AM is midnight") << v("1/2/2003 12:15:00 AM") << AdoType::DBTimeStamp << qs("datetime") << QByteArray("'2003-01-02 00:15:00'");
    QTest::newRow("into date: time dropped") << v("1/2/2003 3:00:00 PM") << AdoType::Date << qs("date") << QByteArray("'2003-01-02'");
    QTest::newRow("time alone into time") << v("10:30:00 PM") << AdoType::Date << qs("time") << QByteArray("'22:30:00'");
    QTest::newRow("text source into date column") << v("7/4/1976") << AdoType::VarChar << qs("date") << QByteArray("'1976-07-04'");
    QTest::newRow("text source into text column") << v("7/4/1976") << AdoType::VarChar << qs("varchar(20)") << QByteArray("'7/4/1976'");
    QTest::newRow("no calendar date") << v("2/30/2000") << AdoType::Date << qs("datetime") << QByteArray("'2/30/2000'");
    QTest::newRow("13 PM") << v("1/1/2000 13:00:00 PM") << AdoType::Date << qs("datetime") << QByteArray("'1/1/2000 13:00:00 PM'");
}
// clang-format on

void TestImportData::valueLiteral()
{
    QFETCH(std::optional<QString>, value);
    QFETCH(int, type);
    QFETCH(QString, column);
    QFETCH(QByteArray, literal);
    QCOMPARE(Import::valueLiteral(value, type, column, SessionSql::escapeDefault), literal);
}

void TestImportData::copiesRowsIntoANewTable()
{
    MemorySource source;
    source.table = {qs("Client List"),
                    {{qs("Client ID"), AdoType::Integer},
                     {qs("Name"), AdoType::VarWChar},
                     {qs("Date"), AdoType::Date},
                     {qs("Active"), AdoType::Boolean}},
                    {{v("1"), v("O'Brien \\ \"Q\""), v("11/16/1994"), v("True")},
                     {v("x2"), v("refused"), v(nullptr), v("True")},
                     {v("3"), v(nullptr), v("12:30:00 AM"), v(nullptr)}}};
    const Import::Plan plan{source.table.name, qs("imported"), true,
                            Import::newTableMapping(source.table.fields, {0, 1, 2, 3})};
    NoProgress progress;
    const Import::Outcome outcome = Import::run(source, *m_main->session(), plan, progress);
    QVERIFY_DB(outcome.error);
    QCOMPARE(outcome.copied, 2);
    QCOMPARE(
        outcome.refusals,
        QStringList(
            {qs("Incorrect integer value: 'x2' for column `%1`.`imported`.`Client_ID` at row 1").arg(m_db->name())}));
    QCOMPARE(m_db->rows(qs("SELECT GROUP_CONCAT(column_name, ' ', column_type ORDER BY ordinal_position) FROM "
                           "information_schema.columns WHERE table_schema=DATABASE() AND table_name='imported'")),
             sl({"Client_ID int(11),Name varchar(255),Date_c datetime,Active tinyint(4)"}));
    QCOMPARE(m_db->rows(qs("SELECT * FROM imported")),
             sl({"1|O'Brien \\ \"Q\"|1994-11-16 00:00:00|1", "3|\\N|1899-12-30 00:30:00|\\N"}));
}

void TestImportData::windowControlsAndExit()
{
    openWindow();
    QCOMPARE(m_window->windowTitle(), qs("Import Data"));
    QCOMPARE(m_window->minimumSize(), m_window->maximumSize());
    QVERIFY(!child<QComboBox>("cbotarget")->isEnabled());
    // A typed source opens on Enter, and Enter presses no button.
    child<QLineEdit>("txtsource")->setText(m_dir.filePath(qs("nwind.mdb")));
    QTest::keyClick(child<QLineEdit>("txtsource"), Qt::Key_Return);
    QVERIFY(child<QComboBox>("cbotable")->count() > 0);
    QVERIFY(m_operator->prompts.isEmpty());
    // Typed and imported at once, the focus still in the box: the import reads the typed source,
    // not the one opened before.
    child<QLineEdit>("txtsource")->setText(m_dir.filePath(qs("damaged.mdb")));
    child<QPushButton>("cmdimport")->click();
    QVERIFY(m_operator->asked.isEmpty());
    // The reader's error follows the message.
    QVERIFY(m_operator->told.value(0).startsWith(qs("The source cannot be opened.\n\n")));
    QCOMPARE(child<QComboBox>("cbotable")->count(), 0);
    m_operator->answer = Dialogs::Answer::No;
    child<QPushButton>("cmdexit")->click();
    QCOMPARE(m_operator->asked, sl({"Are you sure you want to exit?"}));
    QVERIFY(m_window->isVisible());
    m_operator->answer = Dialogs::Answer::Yes;
    child<QPushButton>("cmdexit")->click();
    QTRY_VERIFY(!m_window);
    QVERIFY(m_main->menuItem(qs("mnuimpdata"))->isEnabled());

    openWindow();
    QTest::keyClick(child<QLineEdit>("txtsource"), Qt::Key_Escape);
    QTRY_VERIFY(!m_window);
    QCOMPARE(m_operator->asked.size(), 2); // Escape closes without asking
}

void TestImportData::importsIntoANewTable()
{
    choose(qs("nwind.mdb"), qs("Order Details"));
    QCOMPARE(m_operator->fileFilters, sl({"Access Database|*.mdb|DSN|*.dsn"}));
    QCOMPARE(child<QLineEdit>("txtnewtable")->text(), qs("Order_Details"));
    child<QComboBox>("cbotable")->setCurrentIndex(child<QComboBox>("cbotable")->findText(qs("Orders")));
    tick(sl({"OrderID", "CustomerID", "OrderDate", "Freight"}));
    QCOMPARE(grid(), sl({"Source Field|Type|Target Column", "OrderID|INT|OrderID", "CustomerID|VARCHAR(255)|CustomerID",
                         "OrderDate|DATETIME|OrderDate", "Freight|VARCHAR(255)|Freight"}));
    child<QLineEdit>("txtnewtable")->setText(qs("imported"));
    child<QPushButton>("cmdimport")->click();

    QCOMPARE(m_operator->asked, sl({"Import 4 fields of table 'Orders' into the new table 'imported'?"}));
    QCOMPARE(m_operator->told, sl({"The import is complete.\n\nRows copied: 830\nRows refused: 0"}));
    QCOMPARE(child<QProgressBar>("ProgressBar1")->value(), child<QProgressBar>("ProgressBar1")->maximum());
    QVERIFY(sent().contains(
        qs("INSERT INTO `imported` (`OrderID`,`CustomerID`,`OrderDate`,`Freight`) VALUES ('10330','LILAS',"
           "'1994-11-16 00:00:00','12.75')")));
    QCOMPARE(m_db->rows(qs("SELECT COUNT(*), MIN(OrderDate), MAX(OrderDate) FROM imported")),
             sl({"830|1994-08-04 00:00:00|1996-06-05 00:00:00"}));
    QVERIFY(child<QComboBox>("cbotarget")->findText(qs("imported")) >= 0); // now an existing table
}

// A data source file chosen anywhere names its source by the file's own name.
void TestImportData::importsFromADataSource()
{
    choose(qs("nwindsource.dsn"), qs("Shippers"));
    child<QLineEdit>("txtnewtable")->setText(qs("imported"));
    child<QPushButton>("cmdimport")->click();
    QCOMPARE(m_operator->told, sl({"The import is complete.\n\nRows copied: 3\nRows refused: 0"}));
    QCOMPARE(m_db->rows(qs("SELECT * FROM imported ORDER BY 1")),
             sl({"1|Speedy Express|(503) 555-9831", "2|United Package|(503) 555-3199",
                 "3|Federal Shipping|(503) 555-9931"}));
}

void TestImportData::importsIntoAnExistingTable()
{
    QVERIFY_DB(m_db->run({qs("CREATE TABLE clients (customerid VARCHAR(5), CompanyName VARCHAR(40), Region "
                             "VARCHAR(15), Country VARCHAR(15) CHECK (Country <> 'Germany'))")}));
    choose(qs("nwind.mdb"), qs("Customers"));
    tick(sl({"CustomerID", "CompanyName", "ContactName", "Region", "Country"}));
    child<QRadioButton>("optexisting")->setChecked(true);
    child<QComboBox>("cbotarget")->setCurrentIndex(child<QComboBox>("cbotarget")->findText(qs("clients")));
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

void TestImportData::closeDuringTheCopyStopsIt()
{
    choose(qs("nwind.mdb"), qs("Orders"));
    child<QLineEdit>("txtnewtable")->setText(qs("imported"));
    bool inputsLocked = false;
    QTimer::singleShot(0, m_window, [this, &inputsLocked] { // at the copy's first yield to events
        inputsLocked = !child<QPushButton>("cmdbrowse")->isEnabled() && !child<QListWidget>("lstfields")->isEnabled();
        m_window->close();
    });
    child<QPushButton>("cmdimport")->click();
    QVERIFY(inputsLocked);
    QCOMPARE(m_operator->told, sl({"The import was stopped.\n\nRows copied: 0\nRows refused: 0"}));
    QTRY_VERIFY(!m_window); // closed once the copy had stopped
}

void TestImportData::writesNothing_data()
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

void TestImportData::writesNothing()
{
    QFETCH(QString, file);
    QFETCH(QStringList, ticked);
    QFETCH(bool, existing);
    QFETCH(QString, message);
    choose(file, qs("Shippers"));
    tick(ticked);
    child<QLineEdit>("txtnewtable")->setText(qs("existing"));
    child<QRadioButton>("optexisting")->setChecked(existing);
    child<QComboBox>("cbotarget")->setCurrentIndex(0);
    child<QPushButton>("cmdimport")->click();
    QCOMPARE(m_operator->told.last(), message);
    QVERIFY(m_operator->asked.isEmpty());
    QCOMPARE(sent().filter(QRegularExpression(qs("^(CREATE|INSERT)"))), QStringList());
    QCOMPARE(m_db->rows(qs("SELECT * FROM existing")), sl({"7"}));
}

QTEST_MAIN(TestImportData)
#include "test_importdata.moc"
