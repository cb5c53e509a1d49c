// Importing data: the value literals and the field matching, the row copy from a source held in
// memory, and the Import Data window on the sample Access file, its imports and its refusals,
// all against the real server.
#include "countingprogress.h"
#include "db/typecodes.h"
#include "files.h"
#include "grid/grid.h"
#include "gridtexts.h"
#include "import/frmimportdata.h"
#include "import/importdata.h"
#include "memorysource.h"
#include "toolfixture.h"
#include "wholevaluesource.h"

#include <QAction>
#include <QComboBox>
#include <QCryptographicHash>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <thread>

using namespace tabulon;
using namespace tabulon::test;

namespace {

// A plan that copies the first field of the one table of `source` into the column n of "clients".
Import::Plan intoClients(const MemorySource &source)
{
    const SourceTable &t = source.tables[0];
    return {t.name, qs("clients"), false, Import::existingTableMapping(t.fields, {0}, {{qs("n"), qs("int(11)")}})};
}

SourceValue v(const char *text)
{
    return text ? SourceValue(qs(text)) : SourceValue();
}

SourceValue bytes(const QByteArray &data)
{
    return SourceValue::fromBytes(data);
}

QString literal(const SourceValue &value, int type, const char *column)
{
    return QString::fromUtf8(Import::valueLiteral(value, type, qs(column), SessionSql::escapeDefault));
}

QString fit(int type, const char *column)
{
    return Import::fitProblem(SourceField{qs("f"), type}, qs(column));
}

QString held(const SourceValue &value, int type, const char *column)
{
    return Import::heldValue(value, type, qs(column));
}

// The sample's pictures (OLE objects of some 10 KiB holding zero bytes) as mdbtools' own export
// program reads them from the file, "CategoryID|HEX".
QStringList exportedPictures(const QString &file)
{
    QProcess exporter;
    exporter.start(qs("mdb-export"),
                   {qs("-H"), qs("-Q"), qs("-d"), qs("|"), qs("-b"), qs("hex"), file, qs("Categories")});
    if (!exporter.waitForFinished(60000) || exporter.exitCode() != 0)
        return {qs("mdb-export (mdbtools) must run")};
    QStringList pictures;
    for (const QByteArray &line : exporter.readAllStandardOutput().split('\n')) {
        if (!line.isEmpty())
            pictures << QString::fromUtf8(line.left(line.indexOf('|')) + '|' + line.mid(line.lastIndexOf('|') + 1));
    }
    return pictures;
}

// The rows of the SQLite data source as "id|length|MD5" of the memo, then of the data.
QStringList wholeValueDigests()
{
    const auto md5 = [](const QByteArray &bytes) {
        return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toHex());
    };
    QStringList out;
    for (const WholeValueRow &row : wholeValueRows()) {
        const QString memo = row.memo ? qs("%1|%2").arg(row.memo->size()).arg(md5(row.memo->toUtf8())) : qs("\\N|\\N");
        const QString data = row.data ? qs("%1|%2").arg(row.data->size()).arg(md5(*row.data)) : qs("\\N|\\N");
        out << qs("%1|%2|%3").arg(row.id).arg(memo, data);
    }
    return out;
}

} // namespace

class TestImportData final : public QObject, ToolFixture {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup() { closeMain(); }

    void rules_data();
    void rules();
    void copiesRowsIntoANewTable();
    void rowsChangedByTheServer();
    void stopInATransaction_data();
    void stopInATransaction();
    void transactionEndedByTheServer_data();
    void transactionEndedByTheServer();

    void windowControlsAndExit();
    void importRefusals_data();
    void importRefusals();
    void importsIntoANewTable();
    void importsFromDataSources_data();
    void importsFromDataSources();
    void importsIntoAnExistingTable();
    void closeDuringTheCopyStopsIt();
    void lostConnectionDuringTheCopy();

private:
    template <typename T> T *child(const char *name) { return m_window->findChild<T *>(qs(name)); }
    void openWindow();
    // Chooses `file` through the browse button, then `table`.
    void choose(const QString &file, const QString &table);
    void tick(const QStringList &fields);
    QStringList grid() { return gridRowTexts(child<Grid>("Edi_Gr")->cells()); }

    QTemporaryDir m_dir;
    QPointer<frmimportdata> m_window;
    QString m_wholeValues; // why the data source of long and binary values is missing, if it is
};

void TestImportData::initTestCase()
{
    createDatabase("importdata");
    QVERIFY(QFile::copy(qs(TABULON_FIXTURES_DIR "/access/nwind.mdb"), m_dir.filePath(qs("nwind.mdb"))));
    // A data source for the tests: mdbtools' ODBC driver on the sample file.
    QVERIFY(startAccessSource(m_dir.path(), qs("nwindsource"), m_dir.filePath(qs("nwind.mdb"))));
    write(m_dir.filePath(qs("damaged.mdb")), QByteArray("plain text, not a database\n").repeated(300));
    m_wholeValues = addWholeValueSource(m_dir.path(), qs("wholevalues"));
}

void TestImportData::init()
{
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS imported, clients, existing, heavy"),
                          qs("CREATE TABLE existing (kept INT)"), qs("INSERT INTO existing VALUES (7)")}));
    openMain();
    markLog();
    m_main->enableAllMenus();
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

// The value literals, what a column cannot hold, and what the server keeps of a value: the
// server rounds what an approximate number cannot keep, and cuts a fraction of a second a time
// column has no room for, without a warning, so the import sees it from the value itself.
// One row per line reads best here.
// clang-format off
void TestImportData::rules_data()
{
    QTest::addColumn<QString>("actual");
    QTest::addColumn<QString>("expected");
    QTest::newRow("literal: NULL date") << literal(v(nullptr), AdoType::Date, "datetime") << qs("NULL");
    QTest::newRow("literal: apostrophe, backslash") << literal(v("O'B\\n"), AdoType::VarWChar, "text") << qs(R"('O\'B\\n')");
    QTest::newRow("literal: true") << literal(v("True"), AdoType::Boolean, "tinyint(4)") << qs("1");
    QTest::newRow("literal: PM into timestamp") << literal(v("2/29/2000 2:05:09 PM"), AdoType::Date, "timestamp") << qs("'2000-02-29 14:05:09'");
    QTest::newRow("literal: 12 AM is midnight") << literal(v("1/2/2003 12:15:00 AM"), AdoType::DBTimeStamp, "datetime") << qs("'2003-01-02 00:15:00'");
    QTest::newRow("literal: into date: time dropped") << literal(v("1/2/2003 3:00:00 PM"), AdoType::Date, "date") << qs("'2003-01-02'");
    QTest::newRow("literal: time alone into time") << literal(v("10:30:00 PM"), AdoType::Date, "time") << qs("'22:30:00'");
    QTest::newRow("literal: text source into date column") << literal(v("7/4/1976"), AdoType::VarChar, "date") << qs("'1976-07-04'");
    QTest::newRow("literal: text source into text column") << literal(v("7/4/1976"), AdoType::VarChar, "varchar(20)") << qs("'7/4/1976'");
    QTest::newRow("literal: no calendar date") << literal(v("2/30/2000"), AdoType::Date, "datetime") << qs("'2/30/2000'");
    QTest::newRow("literal: bytes, not text") << literal(bytes(QByteArray("\x00\xff'\\", 4)), AdoType::LongVarBinary, "longblob") << qs("X'00ff275c'");
    QTest::newRow("literal: no bytes") << literal(bytes({}), AdoType::VarBinary, "blob") << qs("X''");
    QTest::newRow("literal: a second's fraction") << literal(v("1/2/2020 10:11:12.345 AM"), AdoType::DBTimeStamp, "datetime(3)") << qs("'2020-01-02 10:11:12.345'");
    QTest::newRow("literal: 13 PM") << literal(v("1/1/2000 13:00:00 PM"), AdoType::Date, "datetime") << qs("'1/1/2000 13:00:00 PM'");
    QTest::newRow("fit: text into a wide enough text") << fit(AdoType::VarWChar, "varchar(255)") << QString();
    QTest::newRow("fit: text into a narrower text") << fit(AdoType::VarWChar, "VARCHAR(40)") << qs("a narrower text (40 characters)");
    QTest::newRow("fit: memo into the widest varchar") << fit(AdoType::LongVarWChar, "varchar(255)") << qs("a narrower text (255 characters)");
    QTest::newRow("fit: text into a number") << fit(AdoType::VarWChar, "int(11)") << qs("a text into a number");
    QTest::newRow("fit: text into a date") << fit(AdoType::VarWChar, "date") << qs("a text into a date");
    QTest::newRow("fit: date into a number") << fit(AdoType::Date, "int(11)") << qs("a date into a non-date");
    QTest::newRow("fit: date into a short text") << fit(AdoType::DBTimeStamp, "char(10)") << qs("a narrower text (10 characters)");
    QTest::newRow("fit: date into a text") << fit(AdoType::Date, "varchar(20)") << QString();
    QTest::newRow("fit: bytes into a text") << fit(AdoType::LongVarBinary, "longtext") << qs("bytes into a column of no bytes");
    QTest::newRow("fit: long into a smallint") << fit(AdoType::Integer, "smallint(6)") << qs("a narrower number");
    QTest::newRow("fit: long into a decimal without scale") << fit(AdoType::Integer, "decimal(12,0)") << QString();
    QTest::newRow("fit: double into an integer") << fit(AdoType::Double, "bigint(20)") << qs("fractions into a whole number");
    QTest::newRow("fit: currency into a decimal") << fit(AdoType::Currency, "decimal(19,4)") << QString();
    QTest::newRow("fit: boolean into a bit") << fit(AdoType::Boolean, "bit(1)") << QString();
    QTest::newRow("fit: number into a date") << fit(AdoType::Integer, "timestamp") << qs("a number into a date");
    QTest::newRow("fit: enumeration") << fit(AdoType::VarWChar, "enum('a','b')") << QString();
    QTest::newRow("fit: double into a float") << fit(AdoType::Double, "float") << qs("more digits than a float keeps");
    QTest::newRow("fit: long into a float") << fit(AdoType::Integer, "float") << qs("more digits than a float keeps");
    QTest::newRow("fit: single into a float") << fit(AdoType::Single, "float") << QString();
    QTest::newRow("fit: long into a double") << fit(AdoType::Integer, "double") << QString();
    QTest::newRow("fit: bigint into a double") << fit(AdoType::BigInt, "double") << qs("more digits than a double keeps");
    QTest::newRow("fit: currency into a double") << fit(AdoType::Currency, "double") << qs("more digits than a double keeps");
    QTest::newRow("held: double into a float") << held(v("3.14159265358979"), AdoType::Double, "float") << qs("3.1415927");
    QTest::newRow("held: a float's own value") << held(v("0.1"), AdoType::Single, "float") << QString();
    QTest::newRow("held: beyond a double's digits") << held(v("9007199254740993"), AdoType::BigInt, "double") << qs("9007199254740992");
    QTest::newRow("held: exponent, same number") << held(v("-1.5E+3"), AdoType::Double, "double") << QString();
    QTest::newRow("held: fraction cut") << held(v("1/2/2020 10:11:12.345 AM"), AdoType::DBTimeStamp, "datetime") << qs("2020-01-02 10:11:12");
    QTest::newRow("held: fraction kept") << held(v("2020-01-02 10:11:12.345"), AdoType::DBTimeStamp, "datetime(3)") << QString();
    QTest::newRow("held: a text into an integer") << held(v("2.5"), AdoType::VarWChar, "int(11)") << QString();
}
// clang-format on

void TestImportData::rules()
{
    QFETCH(QString, actual);
    QTEST(actual, "expected");
}

void TestImportData::copiesRowsIntoANewTable()
{
    MemorySource source(
        {{qs("Client List"),
          {{qs("Client ID"), AdoType::Integer},
           {qs("Name"), AdoType::VarWChar},
           {qs("Date"), AdoType::Date},
           {qs("Active"), AdoType::Boolean},
           {qs("Photo"), AdoType::LongVarBinary}},
          {{v("1"), v("O'Brien \\ \"Q\""), v("11/16/1994"), v("True"), bytes(QByteArray("\xff\xfe\x00\x01", 4))},
           {v("x2"), v("refused"), v(nullptr), v("True"), v(nullptr)},
           {v("3"), v(nullptr), v("12:30:00 AM"), v(nullptr), v(nullptr)}}}});
    NoProgress progress;
    const Import::Plan plan{qs("Client List"), qs("imported"), true,
                            Import::newTableMapping(source.tables[0].fields, {0, 1, 2, 3, 4})};
    const Import::Outcome outcome = Import::run(source, *m_main->session(), plan, progress, {});
    QVERIFY_DB(outcome.error);
    QCOMPARE(outcome.copied, 2);
    QCOMPARE(
        outcome.refusals,
        QStringList(
            {qs("Incorrect integer value: 'x2' for column `%1`.`imported`.`Client_ID` at row 1").arg(m_db->name())}));
    QCOMPARE(m_db->rows(qs("SELECT GROUP_CONCAT(column_name, ' ', column_type ORDER BY ordinal_position) FROM "
                           "information_schema.columns WHERE table_schema=DATABASE() AND table_name='imported'")),
             sl({"Client_ID int(11),Name varchar(255),Date_c datetime,Active tinyint(4),Photo longblob"}));
    QCOMPARE(m_db->rows(qs("SELECT Client_ID, Name, Date_c, Active, HEX(Photo) FROM imported")),
             sl({"1|O'Brien \\ \"Q\"|1994-11-16 00:00:00|1|FFFE0001", "3|\\N|1899-12-30 00:30:00|\\N|\\N"}));
}

// On a server that cuts what does not fit instead of refusing it, a row taken with warnings is
// counted apart from the rows copied as they were. A row whose statement is longer than the
// server's packet limit is refused without being sent: the connection stays, the rows after it
// are copied, and the outcome counts it apart.
void TestImportData::rowsChangedByTheServer()
{
    const QString limit = m_db->rows(qs("SELECT @@GLOBAL.max_allowed_packet")).value(0);
    // A limit of 64 KiB for the connections opened from now on: the test needs no 16 MiB value.
    QVERIFY_DB(m_db->run(
        {qs("SET GLOBAL max_allowed_packet=65536"), qs("CREATE TABLE clients (name VARCHAR(3), n INT, f FLOAT)")}));
    const auto restore = qScopeGuard([&] { (void)m_db->run({qs("SET GLOBAL max_allowed_packet=") + limit}); });
    MemorySource source({{qs("c"),
                          {{qs("Name"), AdoType::VarWChar}, {qs("N"), AdoType::Integer}, {qs("F"), AdoType::Double}},
                          {{v("Ann"), v("1"), v("0.5")},
                           {v("Bartholomew"), v("2"), v("0.5")},
                           {v("Cy"), v("x"), v("0.5")},
                           {v("Di"), v("4"), v("3.14159265358979")},
                           {SourceValue(QString(100000, u'x')), v("6"), v("0.5")},
                           {v("Ed"), v("5"), v("0.1")}}}});
    DatabaseSession session;
    QVERIFY_DB(openSession(session, m_db->name()));
    QVERIFY_DB(session.execute(qs("SET SESSION sql_mode=''")));
    auto columns = Import::readColumns(session, qs("clients"));
    QVERIFY_DB(columns.ok() ? DbError::none() : columns.error());
    const Import::Plan plan{qs("c"), qs("clients"), false,
                            Import::existingTableMapping(source.tables[0].fields, {0, 1, 2}, columns.value())};
    NoProgress progress;
    const Import::Outcome outcome = Import::run(source, session, plan, progress, {});
    QVERIFY_DB(outcome.error);
    // The float rounds Di's number without a warning; it is a changed row all the same.
    QCOMPARE((QList<qint64>{outcome.copied, outcome.changed, outcome.refused, outcome.tooLong}),
             (QList<qint64>{2, 3, 1, 1}));
    QCOMPARE(outcome.warnings, sl({"Data truncated for column 'name' at row 1",
                                   "Incorrect integer value: 'x' for column `%1`.`clients`.`n` at row 1",
                                   "f: 3.14159265358979 is kept as 3.1415927"})
                                   .replaceInStrings(qs("%1"), m_db->name()));
    QVERIFY2(outcome.refusals.value(0).contains(qs("max_allowed_packet")), qPrintable(outcome.refusals.value(0)));
    QCOMPARE(m_db->rows(qs("SELECT * FROM clients")),
             sl({"Ann|1|0.5", "Bar|2|0.5", "Cy|0|0.5", "Di|4|3.14159", "Ed|5|0.1"}));
}

void TestImportData::stopInATransaction_data()
{
    QTest::addColumn<QString>("engine");
    QTest::addColumn<bool>("keep");
    QTest::addColumn<int>("asked");
    QTest::addColumn<QString>("rows");
    QTest::newRow("InnoDB, kept") << qs("InnoDB") << true << 1 << qs("50");
    QTest::newRow("InnoDB, rolled back") << qs("InnoDB") << false << 1 << qs("0");
    QTest::newRow("MyISAM: the rows stay") << qs("MyISAM") << false << 0 << qs("50");
}

// Stopped after the first 50 rows; the count is read on another connection, so what it sees
// was committed.
void TestImportData::stopInATransaction()
{
    QFETCH(QString, engine);
    QFETCH(bool, keep);
    QFETCH(int, asked);
    QVERIFY_DB(m_db->run({qs("CREATE TABLE clients (n INT) ENGINE=") + engine}));
    MemorySource source({{qs("c"), {{qs("N"), AdoType::Integer}}, {}}});
    for (int i = 0; i < 120; ++i)
        source.tables[0].rows.push_back({QString::number(i)});
    DatabaseSession &session = *m_main->session();
    const Import::Plan plan = intoClients(source);
    CountingProgress progress(2);
    int questions = 0;
    const Import::Outcome outcome = Import::run(source, session, plan, progress, [&](const Import::Outcome &sofar) {
        ++questions;
        return sofar.copied == 50 && keep;
    });
    QVERIFY_DB(outcome.error);
    QVERIFY(outcome.stopped);
    QCOMPARE(questions, asked);
    QCOMPARE(outcome.transactional, engine == qs("InnoDB"));
    QCOMPARE(outcome.rolledBack, asked == 1 && !keep);
    QTEST(m_db->rows(qs("SELECT COUNT(*) FROM clients")).value(0), "rows");
}

// clang-format off
void TestImportData::transactionEndedByTheServer_data()
{
    QTest::addColumn<QString>("trouble");
    QTest::addColumn<QString>("engine");
    QTest::addColumn<QList<qint64>>("counts"); // copied, refused, lost
    QTest::addColumn<bool>("transactionLost");
    QTest::addColumn<bool>("counted");
    QTest::addColumn<QString>("rows");
    QTest::newRow("deadlock") << qs("deadlock") << qs("InnoDB") << QList<qint64>{0, 1, 1} << true << false << qs("");
    QTest::newRow("connection lost") << qs("kill") << qs("InnoDB") << QList<qint64>{0, 1, 2} << true << false << qs("");
    QTest::newRow("connection lost, no transactions") << qs("kill") << qs("MyISAM") << QList<qint64>{2, 1, 0} << false << true << qs("1,2");
}
// clang-format on

// A deadlock (the other transaction, the heavier one, wins) or a lost connection in the middle
// of the copy: the rows after it must not go in one by one, and the outcome says what the table
// keeps.
void TestImportData::transactionEndedByTheServer()
{
    QFETCH(QString, trouble);
    QFETCH(QString, engine);
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS heavy"), qs("CREATE TABLE heavy (n INT) ENGINE=InnoDB"),
                          qs("CREATE TABLE clients (n INT PRIMARY KEY) ENGINE=") + engine}));
    MemorySource source({{qs("c"), {{qs("N"), AdoType::Integer}}, {{v("1")}, {v("2")}, {v("3")}, {v("4")}}}});
    DatabaseSession &session = *m_main->session();
    DatabaseSession other;
    QVERIFY_DB(openSession(other, m_db->name()));
    std::thread blocked;
    DbError blockedError;
    int passes = 0;
    source.beforeRow = [&](size_t row) {
        if (row == 0)
            ++passes;
        if (passes < 2)
            return; // the first pass only counts
        if (trouble == qs("kill") && row == 2) {
            QVERIFY_DB(m_db->run({qs("KILL CONNECTION %1").arg(session.connectionId())}));
        } else if (trouble == qs("deadlock") && row == 1) {
            // The other transaction holds row 2 and asks for row 1, which the import holds; the
            // import's insert of row 2 closes the circle.
            QVERIFY_DB(other.execute(qs("START TRANSACTION")));
            QVERIFY_DB(other.execute(qs("INSERT INTO heavy SELECT seq FROM seq_1_to_1000")));
            QVERIFY_DB(other.execute(qs("INSERT INTO clients VALUES (2)")));
            // Whichever of the two waits first, the circle closes and the lighter transaction,
            // the import's, is the one the server rolls back.
            blocked = std::thread([&] { blockedError = other.execute(qs("INSERT INTO clients VALUES (1)")); });
        }
    };
    NoProgress progress;
    int asked = 0;
    const Import::Outcome outcome =
        Import::run(source, session, intoClients(source), progress, [&](const Import::Outcome &) {
            ++asked;
            return true;
        });
    if (blocked.joinable()) {
        blocked.join();
        QVERIFY_DB(blockedError);
        QVERIFY_DB(other.execute(qs("ROLLBACK")));
    }
    QVERIFY(outcome.error);
    QCOMPARE(asked, 0); // nothing left to keep
    QTEST((QList<qint64>{outcome.copied + outcome.changed, outcome.refused, outcome.lost}), "counts");
    QTEST(outcome.transactionLost, "transactionLost");
    QTEST(outcome.counted, "counted");
    QTEST(m_db->rows(qs("SELECT GROUP_CONCAT(n ORDER BY n) FROM clients")).value(0).replace(qs("\\N"), QString()),
          "rows");
}

void TestImportData::windowControlsAndExit()
{
    openWindow();
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
    QCOMPARE(grid(), sl({"Source Field|Type|Target Column|Column Type|Cannot Hold", "OrderID|INT|OrderID|INT|",
                         "CustomerID|VARCHAR(255)|CustomerID|VARCHAR(255)|", "OrderDate|DATETIME|OrderDate|DATETIME|",
                         "Freight|VARCHAR(255)|Freight|VARCHAR(255)|"}));
    child<QLineEdit>("txtnewtable")->setText(qs("imported"));
    child<QPushButton>("cmdimport")->click();

    QCOMPARE(m_operator->asked, sl({"Import 4 fields of table 'Orders' into the new table 'imported'?"}));
    QCOMPARE(m_operator->told, sl({"The import is complete.\n\nRows copied: 830\nRows changed: 0\nRows refused: 0"}));
    QCOMPARE(child<QProgressBar>("ProgressBar1")->value(), child<QProgressBar>("ProgressBar1")->maximum());
    QCOMPARE(m_db->rows(qs("SELECT COUNT(*), MIN(OrderDate), MAX(OrderDate) FROM imported")),
             sl({"830|1994-08-04 00:00:00|1996-06-05 00:00:00"}));
    QVERIFY(child<QComboBox>("cbotarget")->findText(qs("imported")) >= 0); // now an existing table
}

void TestImportData::importsIntoAnExistingTable()
{
    QVERIFY_DB(m_db->run({qs("CREATE TABLE clients (customerid VARCHAR(5), CompanyName VARCHAR(40), Region "
                             "VARCHAR(15), Country VARCHAR(15) CHECK (Country <> 'Germany'))")}));
    choose(qs("nwind.mdb"), qs("Customers"));
    tick(sl({"CustomerID", "CompanyName", "ContactName", "Region", "Country"}));
    child<QRadioButton>("optexisting")->setChecked(true);
    child<QComboBox>("cbotarget")->setCurrentIndex(child<QComboBox>("cbotarget")->findText(qs("clients")));
    // The column's own type beside the field's, and what it cannot hold, before anything is written.
    QCOMPARE(grid(), sl({"Source Field|Type|Target Column|Column Type|Cannot Hold",
                         "CustomerID|VARCHAR(255)|customerid|varchar(5)|a narrower text (5 characters)",
                         "CompanyName|VARCHAR(255)|CompanyName|varchar(40)|a narrower text (40 characters)",
                         "ContactName|VARCHAR(255)|(no match: skipped)||",
                         "Region|VARCHAR(255)|Region|varchar(15)|a narrower text (15 characters)",
                         "Country|VARCHAR(255)|Country|varchar(15)|a narrower text (15 characters)"}));
    child<QPushButton>("cmdimport")->click();

    QCOMPARE(m_operator->asked, sl({"Import 4 fields of table 'Customers' into the existing table 'clients'?\n\n"
                                    "1 ticked field matches no column and will be skipped.\n\n"
                                    "4 columns cannot hold every value their fields may bring (marked in the grid): "
                                    "such values are changed or refused by the server."}));
    const QString refusal = qs("CONSTRAINT `clients.Country` failed for `%1`.`clients`").arg(m_db->name());
    QCOMPARE(m_operator->told,
             QStringList({qs("The import is complete.\n\nRows copied: 80\nRows changed: 0\nRows refused: 11\n\n"
                             "First refusals:\n") +
                          QStringList(5, refusal).join(QLatin1Char('\n'))}));
    QCOMPARE(m_db->rows(qs("SELECT * FROM clients WHERE customerid IN ('BONAP', 'ALFKI', 'OLDWO')")),
             sl({"BONAP|Bon app'|\\N|France", "OLDWO|Old World Delicatessen|AK|USA"}));
}

// Every value arrives whole, from the file or through a data source.
// clang-format off
void TestImportData::importsFromDataSources_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("existing"); // the table imported into, "" for the new table "imported"
    QTest::addColumn<QString>("query");
    QTest::addColumn<QStringList>("rows");
    // A data source file chosen anywhere names its source by the file's own name.
    QTest::newRow("by the file's name") << "nwindsource.dsn" << "Shippers" << "" << "SELECT * FROM imported ORDER BY 1" << sl({"1|Speedy Express|(503) 555-9831", "2|United Package|(503) 555-3199", "3|Federal Shipping|(503) 555-9931"});
    // A timestamp keeps its fraction of a second, into a column that has room for it.
    QTest::newRow("fraction of a second") << "wholevalues.dsn" << "stamps" << "CREATE TABLE clients (id INT, at DATETIME(3))" << "SELECT * FROM clients" << sl({"1|2020-01-02 10:11:12.345"});
    QTest::newRow("pictures byte for byte") << "nwind.mdb" << "Categories" << "" << "SELECT CategoryID, HEX(Picture) FROM imported ORDER BY 1" << exportedPictures(m_dir.filePath(qs("nwind.mdb")));
    // A memo of more than 256 KiB and binary values of odd lengths holding zero bytes.
    QTest::newRow("long and binary values") << "wholevalues.dsn" << "wholevalues" << "" << "SELECT id, CHAR_LENGTH(memo), MD5(memo), LENGTH(data), MD5(data) FROM imported ORDER BY id" << wholeValueDigests();
}
// clang-format on

void TestImportData::importsFromDataSources()
{
    QFETCH(QString, file);
    QFETCH(QString, table);
    QFETCH(QString, existing);
    QFETCH(QStringList, rows);
    if (file == qs("wholevalues.dsn") && sqliteOdbcDriver().isEmpty())
        QSKIP("The SQLite ODBC driver (Debian package libsqliteodbc) is not installed");
    QVERIFY2(file != qs("wholevalues.dsn") || m_wholeValues.isEmpty(), qPrintable(m_wholeValues));
    if (!existing.isEmpty())
        QVERIFY_DB(m_db->run({existing}));
    choose(file, table);
    if (existing.isEmpty()) {
        child<QLineEdit>("txtnewtable")->setText(qs("imported"));
    } else {
        child<QRadioButton>("optexisting")->setChecked(true);
        child<QComboBox>("cbotarget")->setCurrentIndex(child<QComboBox>("cbotarget")->findText(qs("clients")));
    }
    child<QPushButton>("cmdimport")->click();
    QCOMPARE(m_operator->told, QStringList{qs("The import is complete.\n\nRows copied: %1\nRows changed: 0\nRows "
                                              "refused: 0")
                                               .arg(rows.size())});
    QFETCH(QString, query);
    QCOMPARE(m_db->rows(query), rows);
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
    // The new table takes transactions: the stop asks what becomes of the rows copied so far.
    QCOMPARE(m_operator->asked.last(),
             qs("The import was stopped after 0 rows.\n\nKeep the rows copied so far? No rolls them back."));
    QCOMPARE(m_operator->told, sl({"The import was stopped.\n\nRows copied: 0\nRows changed: 0\nRows refused: 0"}));
    QTRY_VERIFY(!m_window); // closed once the copy had stopped
}

// The connection goes after 50 rows of a copy into a table that takes transactions: the window
// asks nothing about keeping rows that are gone, and says that the table does not keep them.
void TestImportData::lostConnectionDuringTheCopy()
{
    QVERIFY_DB(m_db->run({qs("CREATE TABLE clients (OrderID INT) ENGINE=InnoDB")}));
    choose(qs("nwind.mdb"), qs("Orders"));
    tick(sl({"OrderID"}));
    child<QRadioButton>("optexisting")->setChecked(true);
    child<QComboBox>("cbotarget")->setCurrentIndex(child<QComboBox>("cbotarget")->findText(qs("clients")));
    int yields = 0;
    QTimer killer;
    killer.setInterval(0);
    connect(&killer, &QTimer::timeout, this, [&] {
        if (++yields == 2) // the copy's second step: 50 rows are in
            QVERIFY_DB(m_db->run({qs("KILL CONNECTION %1").arg(m_main->session()->connectionId())}));
    });
    killer.start();
    child<QPushButton>("cmdimport")->click();
    killer.stop();
    QCOMPARE(m_operator->asked.size(), 1); // the import's own question only
    const QString told = m_operator->told.value(0);
    QVERIFY2(told.startsWith(qs("The import failed.\n\n")) &&
                 told.contains(qs("\n\nRows copied: 0\nRows changed: 0\nRows refused: 1\n\nThe server ended the "
                                  "transaction: the 50 rows it had taken are not in the table, and the copy stopped "
                                  "there.\n\nFirst refusals:\n")),
             qPrintable(told));
    QCOMPARE(child<QLabel>("lblstatus")->text(), qs("Rows copied: 0, changed: 0, refused: 1, lost: 50"));
    QCOMPARE(m_db->rows(qs("SELECT COUNT(*) FROM clients")), sl({"0"}));
}

// The window's refusals: a damaged source, no field ticked, a new table without a name or with a
// name taken, no table to import into or none of its columns ticked, a closed session, a
// target table dropped after it was chosen. Each is told once, asks nothing and writes nothing.
void TestImportData::importRefusals_data()
{
    QTest::addColumn<QString>("into");    // "new" or "existing"
    QTest::addColumn<QString>("name");    // the new table's name, or the existing table chosen
    QTest::addColumn<QString>("trouble"); // what happens after the choices, or the fields ticked
    QTest::addColumn<QString>("told");

    // clang-format off
    QTest::newRow("damaged source") << "new" << "imported" << "damaged" << "Choose a source file and one of its tables first.";
    QTest::newRow("no field ticked") << "new" << "imported" << "tick none" << "No field has been selected.";
    QTest::newRow("new table already there") << "new" << "existing" << "tick ShipperID" << "Table 'existing' already exists. Nothing has been imported.\n\nEnter another name, or choose it as the existing table.";
    QTest::newRow("no ticked field matches") << "existing" << "existing" << "tick CompanyName Phone" << "None of the ticked fields matches a column of table 'existing'. Nothing has been imported.";
    QTest::newRow("a new table without a name") << "new" << "  " << "" << "Enter the name of the new table.";
    QTest::newRow("no table to import into") << "existing" << "" << "" << "Choose the table to import into.";
    QTest::newRow("closed session, new table") << "new" << "imported" << "closed" << "Operation is not allowed when the object is closed.";
    QTest::newRow("closed session, existing table") << "existing" << "existing" << "closed" << "Operation is not allowed when the object is closed.";
    QTest::newRow("existing table dropped after it was chosen") << "existing" << "existing" << "dropped" << "Table '%1.existing' doesn't exist";
    // clang-format on
}

void TestImportData::importRefusals()
{
    QFETCH(QString, into);
    QFETCH(QString, name);
    QFETCH(QString, trouble);
    QFETCH(QString, told);
    const bool damaged = trouble == qs("damaged"); // the reader's error is told first
    choose(damaged ? qs("damaged.mdb") : qs("nwind.mdb"), qs("Shippers"));
    if (trouble.startsWith(qs("tick ")))
        tick(trouble.split(u' '));
    if (into == qs("new")) {
        child<QRadioButton>("optnew")->setChecked(true);
        child<QLineEdit>("txtnewtable")->setText(name);
    } else {
        child<QRadioButton>("optexisting")->setChecked(true);
        child<QComboBox>("cbotarget")->setCurrentIndex(child<QComboBox>("cbotarget")->findText(name));
    }
    if (trouble == qs("closed"))
        session().close();
    else if (trouble == qs("dropped"))
        QVERIFY_DB(m_db->run({qs("DROP TABLE existing")}));
    const unsigned long id = session().connectionId();
    child<QPushButton>("cmdimport")->click();
    QCOMPARE(m_operator->told.value(m_operator->told.size() - 1), QString(told).replace(qs("%1"), m_db->name()));
    QCOMPARE(m_operator->told.size(), damaged ? 2 : 1);
    QCOMPARE(m_operator->asked, QStringList());
    QCOMPARE(m_operator->runtimeErrors, QStringList());
    if (trouble != qs("closed")) {
        const QStringList sent = statementsReceived(m_db->admin(), id);
        QCOMPARE(sent.filter(QRegularExpression(qs("^(CREATE|INSERT)"), QRegularExpression::CaseInsensitiveOption)),
                 QStringList());
    }
    QCOMPARE(m_db->rows(qs("SHOW TABLES LIKE 'imported'")), QStringList());
    if (trouble != qs("dropped"))
        QCOMPARE(m_db->rows(qs("SELECT * FROM existing")), sl({"7"}));
}

QTEST_MAIN(TestImportData)
#include "test_importdata.moc"
