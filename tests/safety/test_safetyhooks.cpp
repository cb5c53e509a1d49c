// Every command that changes or drops data writes its safety copy first, and one put-back of
// that copy gives the table back exactly (checksum and CREATE TABLE) after the command lost or
// damaged it the way it does: a Save Table refused by a foreign key after its delete or cut
// off by a killed connection, Delete and Modify Record, the field commands, Create Table's
// drop, Replace and Replace All over the wrong value, a table or client restore that loses
// rows after its deletes, an import into an existing table. Check Tables' Replace gets its
// table files back byte for byte. A copy that cannot be written stops the command before its
// first statement.
#include "backup/restore.h"
#include "backup/tablebackup.h"
#include "data/replacedata.h"
#include "data/tabledata.h"
#include "db/progress.h"
#include "db/statementhook.h"
#include "files.h"
#include "grid/grid.h"
#include "import/frmimportdata.h"
#include "maintenance/checktable.h"
#include "maintenance/repairtable.h"
#include "maintenance/tablecheck.h"
#include "safety/putback.h"
#include "safety/safetynet.h"
#include "safetytest.h"
#include "structure/createtable.h"
#include "structure/tableinfo.h"
#include "toolfixture.h"
#include "ui/tablechecklist.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>

using namespace tabulon;
using namespace tabulon::test;

class TestSafetyHooks final : public QObject, ToolFixture {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { createDatabase("safetyhooks"); }
    void init();
    void cleanup() { closeMain(); }

    void tableDataCommands_data();
    void tableDataCommands();
    void throughAView();
    void structureCommands_data();
    void structureCommands();
    void replaceOverWrongValue_data();
    void replaceOverWrongValue();
    void restoreLosesRows_data();
    void restoreLosesRows();
    void importIntoExistingTable();
    void checkTablesReplace();
    void repairsCopyFiles_data();
    void repairsCopyFiles();
    void unwritableFolderStopsCommand_data();
    void unwritableFolderStopsCommand();

private:
    TableData *openTableData(const QString &table);
    // Puts the newest copy back; it must have been written by `command` for `tables`.
    void putBackNewest(const QString &command, const QStringList &tables);

    ScratchSafety m_safety;
};

void TestSafetyHooks::init()
{
    openMain();
    QDir(m_safety.settings().folder).removeRecursively();
    SafetySettings::store(m_safety.settings());
    m_main->Database = m_db->name();
    markLog();
    m_main->enableAllMenus();
}

TableData *TestSafetyHooks::openTableData(const QString &table)
{
    auto *w = qobject_cast<TableData *>(openTool("mnuTabData"));
    if (w)
        w->selectTable(w->findChild<QComboBox *>(qs("Combo1"))->findText(table));
    return w;
}

void TestSafetyHooks::putBackNewest(const QString &command, const QStringList &tables)
{
    const auto copies = SafetyNet::listCopies(m_safety.settings().folder);
    QVERIFY(!copies.isEmpty());
    QCOMPARE(copies.first().command, command);
    QCOMPARE(copies.first().tables, tables);
    NoProgress progress;
    QVERIFY_DB(PutBack::putBack(session(), copies.first(), progress).error());
}

void TestSafetyHooks::tableDataCommands_data()
{
    QTest::addColumn<QString>("engine");
    QTest::addColumn<QString>("menu");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("table");
    QTest::addColumn<bool>("killed");
    for (const char *engine : {"MyISAM", "InnoDB"}) {
        QTest::addRow("%s, Save Table", engine)
            << qs(engine) << qs("mnusavetable") << qs("Save Table") << qs("t") << false;
        QTest::addRow("%s, Delete Record", engine)
            << qs(engine) << qs("mnudr") << qs("Delete Record") << qs("t") << false;
        // Modify Record refuses to write most of the awkward values back (an empty date, a BIT
        // as text), so it works on a plainer table whose blob it turns into text.
        QTest::addRow("%s, Modify Record", engine)
            << qs(engine) << qs("mnumr") << qs("Modify Record") << qs("m") << false;
    }
    // InnoDB takes the whole table back when the connection goes (test_tabledata).
    QTest::newRow("MyISAM, Save Table, connection killed")
        << qs("MyISAM") << qs("mnusavetable") << qs("Save Table") << qs("t") << true;
    // Rows whose parent comes later are refused once the delete has emptied the table.
    QTest::newRow("InnoDB, Save Table, refused by a foreign key")
        << qs("InnoDB") << qs("mnusavetable") << qs("Save Table") << qs("tree") << false;
}

// The grid writes every value back as unescaped text: the row with quotes fails, NULLs come
// back empty, binary values lose their bytes.
void TestSafetyHooks::tableDataCommands()
{
    QFETCH(QString, engine);
    QFETCH(QString, menu);
    QFETCH(QString, command);
    QFETCH(QString, table);
    QFETCH(bool, killed);
    // T beside t: two tables to the server, of which only the one written is copied.
    QVERIFY_DB(m_db->run(
        awkwardTable(qs("t"), engine) + awkwardTable(qs("T"), engine) +
        QStringList{qs("DROP TABLE IF EXISTS m, tree"),
                    qs("CREATE TABLE m (id INT PRIMARY KEY, name VARCHAR(20), raw BLOB) ENGINE=") + engine,
                    qs("INSERT INTO m VALUES (1, 'it''s', X'FF00FE'), (2, NULL, NULL)"),
                    qs("CREATE TABLE tree (id INT PRIMARY KEY, up INT, name VARCHAR(9), CONSTRAINT tree_up FOREIGN KEY "
                       "(up) REFERENCES tree (id)) ENGINE=InnoDB"),
                    qs("INSERT INTO tree VALUES (3, NULL, 'root'), (2, 3, NULL), (1, 2, 'leaf')")}));
    const QList<TableState> before = tableStates(*m_db, {table, qs("T")});
    TableData *w = openTableData(table);
    QVERIFY(w);
    w->grid()->setCurrentCell(1, 3);
    w->grid()->setTextMatrix(1, 3, qs("changed"));
    // The connection goes right before the third insert (the row with quotes) is sent, whether
    // the inserts wait for each answer or not.
    const unsigned long id = session().connectionId();
    int inserts = 0;
    if (killed)
        StatementHook::set([&](QByteArrayView sql) {
            if (sql.startsWith("Insert into") && ++inserts == 3)
                (void)m_db->admin().execute(qs("KILL CONNECTION %1").arg(id));
        });
    m_operator->answers = {Dialogs::Answer::Yes, Dialogs::Answer::No};
    m_main->menuItem(menu)->trigger();
    StatementHook::clear();
    QVERIFY2(tableStates(*m_db, {table, qs("T")}) != before, qPrintable(m_operator->told.join(u'|')));
    if (menu != qs("mnumr")) {
        // A failing statement after the delete names the copy that holds the table as it was:
        // the first refused insert, or the one that met the connection gone.
        const QString note = qs("holds the tables ") + table + qs(" as they were before ") + command +
                             qs(": Safety Copies under Database Utilities");
        const QStringList &told = m_operator->told;
        QVERIFY2(
            !told.isEmpty() && told.first().contains(note) &&
                (!killed || told.first().contains(qs("gone away")) || told.first().contains(qs("Lost connection"))),
            qPrintable(told.join(u'|')));
    }
    putBackNewest(command, {table});
    QCOMPARE(tableStates(*m_db, {table, qs("T")}), before);
}

// Save Table on a view would empty its base table's other columns: it is refused, naming both.
// Modify Record through the view copies the base table first.
void TestSafetyHooks::throughAView()
{
    QVERIFY_DB(m_db->run({qs("DROP VIEW IF EXISTS v"), qs("DROP TABLE IF EXISTS base"),
                          qs("CREATE TABLE base (id INT PRIMARY KEY, name VARCHAR(10), secret VARCHAR(10))"),
                          qs("INSERT INTO base VALUES (1, 'a', 's1'), (2, 'b', 's2')"),
                          qs("CREATE VIEW v AS SELECT id, name FROM base")}));
    const TableState before = tableState(*m_db, qs("base"));
    TableData *w = openTableData(qs("v"));
    QVERIFY(w);
    w->grid()->setCurrentCell(1, 3);
    w->grid()->setTextMatrix(1, 3, qs("changed"));
    m_main->menuItem(qs("mnusavetable"))->trigger();
    QCOMPARE(m_operator->told.size(), 1);
    QVERIFY2(m_operator->told.first().contains(qs("v, which is a view of the table(s) base")),
             qPrintable(m_operator->told.first()));
    QCOMPARE(tableState(*m_db, qs("base")), before);
    QVERIFY(SafetyNet::listCopies(m_safety.settings().folder).isEmpty());

    m_main->menuItem(qs("mnumr"))->trigger();
    putBackNewest(qs("Modify Record"), {qs("base")});
    QCOMPARE(tableState(*m_db, qs("base")), before);
    QVERIFY_DB(m_db->run({qs("DROP VIEW v")}));
}

void TestSafetyHooks::structureCommands_data()
{
    QTest::addColumn<QString>("menu");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("typed");
    QTest::newRow("Delete Field") << qs("mnudf") << qs("Delete Field") << QStringList();
    QTest::newRow("Modify Field") << qs("mnumf") << qs("Modify Field") << sl({"", "TEXT"});
    QTest::newRow("Add Field") << qs("mnuaf") << qs("Add Field") << sl({"extra", "INT NOT NULL DEFAULT 5"});
    QTest::newRow("Create Table over it") << qs("mnuct") << qs("Create Table") << sl({"t"});
}

void TestSafetyHooks::structureCommands()
{
    QFETCH(QString, menu);
    QFETCH(QString, command);
    QFETCH(QStringList, typed);
    QVERIFY_DB(m_db->run(awkwardTable(qs("t"), qs("InnoDB"))));
    const TableState before = tableState(*m_db, qs("t"));
    if (menu == qs("mnuct")) {
        auto *w = qobject_cast<CreateTable *>(openTool("mnuct"));
        QVERIFY(w);
        w->grid()->setRows(2);
        w->grid()->setTextMatrix(1, 0, qs("only"));
        w->grid()->setTextMatrix(1, 1, qs("INT"));
        m_operator->typed = typed;
        w->findChild<QPushButton *>(qs("cmdsavetable"))->click();
    } else {
        auto *w = qobject_cast<TableInfo *>(openTool("mnuTabDet"));
        QVERIFY(w);
        auto *combo = w->findChild<QComboBox *>(qs("Combo1"));
        combo->setCurrentIndex(combo->findText(qs("t")));
        w->findChild<QPushButton *>(qs("cmdshow"))->click();
        Grid &g = *w->grid();
        int row = 1;
        while (row < g.rows() && g.textMatrix(row, 1) != qs("name"))
            ++row;
        QVERIFY(row < g.rows());
        g.setCurrentCell(row, 1);
        m_operator->typed = typed;
        m_main->menuItem(menu)->trigger();
    }
    QVERIFY(tableState(*m_db, qs("t")) != before);
    putBackNewest(command, {qs("t")});
    QCOMPARE(tableState(*m_db, qs("t")), before);
}

void TestSafetyHooks::replaceOverWrongValue_data()
{
    QTest::addColumn<QString>("button");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("tables");
    // B and b are two tables (the server tells names apart by case): both are copied.
    QTest::newRow("Replace All: every table with a hit") << qs("cmdrepall") << qs("Replace All") << sl({"B", "a", "b"});
    QTest::newRow("Replace: the current hit's table") << qs("cmdrep") << qs("Replace") << sl({"b"});
}

void TestSafetyHooks::replaceOverWrongValue()
{
    QFETCH(QString, button);
    QFETCH(QString, command);
    QFETCH(QStringList, tables);
    QVERIFY_DB(
        m_db->run({qs("DROP TABLE IF EXISTS a, b, B, c, t, T, tree"),
                   qs("CREATE TABLE a (id INT PRIMARY KEY, code VARCHAR(9), note TEXT) ENGINE=InnoDB"),
                   qs("CREATE TABLE b (code VARCHAR(9), raw VARBINARY(4), memo TEXT) ENGINE=MyISAM"),
                   qs("CREATE TABLE c (x INT) ENGINE=MyISAM"),
                   qs("INSERT INTO a VALUES (1, 'C00001', NULL), (2, 'C00002', 'it''s \\\\')"),
                   qs("INSERT INTO b VALUES ('C00001', X'00FF5C27', 'O''Hara \\\\n'), ('C00001', NULL, NULL), "
                      "(NULL, X'00FF', '')"),
                   qs("INSERT INTO c VALUES (1)"), qs("CREATE TABLE B LIKE b"), qs("INSERT INTO B SELECT * FROM b")}));
    const QList<TableState> before = tableStates(*m_db, sl({"a", "b", "B"}));
    auto *w = qobject_cast<ReplaceData *>(openTool("mnureplace"));
    QVERIFY(w);
    w->findChild<QLineEdit *>(qs("txtfind"))->setText(qs("C00001"));
    w->findChild<QLineEdit *>(qs("txtreplace"))->setText(qs("C00009"));
    w->findChild<QComboBox *>(qs("cbofield"))->setCurrentIndex(1);
    w->findChild<QPushButton *>(qs("cmdfind"))->click();
    // The single Replace acts on the current hit: the first one in b.
    Grid &g = *w->grid();
    int row = 1;
    while (row < g.rows() && g.textMatrix(row, 0) != qs("b"))
        ++row;
    QVERIFY(row < g.rows());
    g.setCurrentCell(row, 2);
    w->findChild<QPushButton *>(button)->click();
    QVERIFY2(tableStates(*m_db, sl({"a", "b", "B"})) != before, qPrintable(m_operator->told.join(u'|')));
    putBackNewest(command, tables);
    QCOMPARE(tableStates(*m_db, sl({"a", "b", "B"})), before);
}

void TestSafetyHooks::restoreLosesRows_data()
{
    QTest::addColumn<bool>("client");
    QTest::addColumn<QStringList>("tables");
    // Stopped for good at the quote, its delete done; its case twin Quotes (which an archive
    // cannot hold beside it) is neither copied nor touched.
    QTest::newRow("table restore, stopped by a quote") << false << sl({"quotes"});
    // The client's rows deleted, then the rows with a quote refused one by one (a backslash
    // before the quote is no escape in the write mode).
    QTest::newRow("client restore, quotes and backslashes") << true << sl({"bill", "quotes"});
}

void TestSafetyHooks::restoreLosesRows()
{
    QFETCH(bool, client);
    QFETCH(QStringList, tables);
    QVERIFY_DB(m_db->run(
        {qs("DROP TABLE IF EXISTS bill, quotes, Quotes"),
         // MyISAM keeps what a stopped restore wrote; InnoDB would take the whole table back.
         qs("CREATE TABLE quotes (id INT, code_no VARCHAR(9), t VARCHAR(20), b BLOB) ENGINE=MyISAM"),
         qs("INSERT INTO quotes VALUES (1, 'C1', 'plain', NULL), (2, 'C1', 'O''Brien', X'00'), (3, 'C2', NULL, ''), "
            "(4, 'C1', 'back\\\\slash', X'5C27FF')"),
         qs("CREATE TABLE bill (name VARCHAR(9), amount DECIMAL(8,2), memo VARCHAR(20)) ENGINE=MyISAM"),
         qs("INSERT INTO bill VALUES ('C1', 12.5, 'O''Hara'), ('C2', NULL, NULL), ('C1', 0, 'a\\\\b')"),
         qs("CREATE TABLE Quotes LIKE quotes"), qs("INSERT INTO Quotes SELECT * FROM quotes")}));
    const QList<TableState> before = tableStates(*m_db, tables + sl({"Quotes"}));
    QTemporaryDir folder;
    const auto set = TableBackup::BackupSet::forPath(folder.path() + qs("/"), QDate::currentDate());
    QVERIFY(QDir().mkpath(set.workingFolder));
    for (const QString &table : tables) {
        const QString select =
            client ? qs("SELECT * FROM %1 WHERE %2 = 'C1'").arg(table, table == qs("bill") ? qs("name") : qs("code_no"))
                   : TableBackup::tableSelect(table);
        QVERIFY_DB(TableBackup::writeTableFile(session(), select, set.workingFolder + qs("/") + table));
    }
    QVERIFY_DB(TableBackup::finish(set, tables));

    m_main->Server = serverAddress();
    m_main->User = qs("dbop");
    m_main->menuItem(qs("mnurestore"))->trigger();
    QCOMPARE(m_operator->modals.size(), 1);
    auto *w = qobject_cast<Restore *>(m_operator->modals.first());
    QVERIFY(w);
    w->findChild<QLineEdit *>(qs("txtpath"))->setText(set.archivePath());
    w->findChild<QPushButton *>(qs("cmdok"))->click();
    w->findChild<QLineEdit *>(qs("txtdbpath"))->setText(m_db->name());
    w->findChild<QCheckBox *>(qs("Check1"))->setChecked(client);
    w->findChild<QPushButton *>(qs("Command2"))->click();
    w->findChild<QCheckBox *>(qs("chkdel"))->setChecked(!client);
    m_operator->typed = {qs("C1")};              // the client's code: not in the database, so asked no more
    m_operator->answers = {Dialogs::Answer::No}; // to the exact-value check: the usual statements
    w->findChild<QPushButton *>(qs("cmdrestore"))->click();
    if (client) {
        QVERIFY2(m_operator->told.last().startsWith(qs("The restore is done, but ")),
                 qPrintable(m_operator->told.last()));
        QCOMPARE(m_db->rows(qs("SELECT id FROM quotes ORDER BY id")), sl({"1", "3"}));
        QCOMPARE(m_db->rows(qs("SELECT COUNT(*) FROM bill")), sl({"2"}));
    } else {
        QCOMPARE(m_operator->runtimeErrors.size(), 1);
        QCOMPARE(m_db->rows(qs("SELECT id FROM quotes")), sl({"1"}));
    }
    putBackNewest(client ? qs("Client Restore") : qs("Restore"), tables);
    QCOMPARE(tableStates(*m_db, tables + sl({"Quotes"})), before);
}

// The sample Access file's customers added to a table of awkward rows.
void TestSafetyHooks::importIntoExistingTable()
{
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS clients"),
                          qs("CREATE TABLE clients (customerid VARCHAR(5), CompanyName VARCHAR(40), note TEXT, "
                             "raw BLOB, KEY(customerid)) ENGINE=InnoDB"),
                          qs("INSERT INTO clients VALUES ('ALFKI', 'it''s \\\\ \"x\"', NULL, X'00FF5C27'), "
                             "(NULL, '', '', ''), ('ZZ', NULL, 'line\\nnext', NULL)")}));
    const TableState before = tableState(*m_db, qs("clients"));
    m_main->menuItem(qs("mnuimpdata"))->trigger();
    QVERIFY(!m_operator->modals.isEmpty());
    auto *w = qobject_cast<frmimportdata *>(m_operator->modals.last());
    QVERIFY(w);
    m_operator->chosenFile = qs(TABULON_FIXTURES_DIR "/access/nwind.mdb");
    w->findChild<QPushButton *>(qs("cmdbrowse"))->click();
    auto *source = w->findChild<QComboBox *>(qs("cbotable"));
    source->setCurrentIndex(source->findText(qs("Customers")));
    auto *fields = w->findChild<QListWidget *>(qs("lstfields"));
    for (int i = 0; i < fields->count(); ++i) {
        const QString name = fields->item(i)->text().section(qs("  ("), 0, 0);
        fields->item(i)->setCheckState(name == qs("CustomerID") || name == qs("CompanyName") ? Qt::Checked
                                                                                             : Qt::Unchecked);
    }
    w->findChild<QRadioButton *>(qs("optexisting"))->setChecked(true);
    auto *target = w->findChild<QComboBox *>(qs("cbotarget"));
    target->setCurrentIndex(target->findText(qs("clients")));
    w->findChild<QPushButton *>(qs("cmdimport"))->click();
    QCOMPARE(m_db->rows(qs("SELECT COUNT(*) FROM clients")), sl({"94"}));
    putBackNewest(qs("Import Data"), {qs("clients")});
    QCOMPARE(tableState(*m_db, qs("clients")), before);
}

void TestSafetyHooks::repairsCopyFiles_data()
{
    QTest::addColumn<QString>("menu");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("files");
    const QStringList both = sl({"ledger.MYD", "ledger.MYI", "ledger.frm", "town.MYD", "town.MYI", "town.frm"});
    QTest::newRow("Repair Tables, ticked") << qs("mnureptab") << qs("Repair Tables") << both.mid(0, 3);
    QTest::newRow("Table Detail, all tables") << qs("mnuTabDet") << qs("Table Detail") << both;
    QTest::newRow("Search, all tables") << qs("mnusearch") << qs("Search") << both;
    QTest::newRow("Replace, find") << qs("mnureplace") << qs("Replace Find") << both;
    // The server takes 'Oslo' as equal to ledger's zero date: a hit, so ledger is repaired too.
    QTest::newRow("Replace, replace all: the tables with hits") << qs("mnureplace") << qs("Replace All") << both;
}

// A repair can drop rows of a MyISAM table it cannot read: every command that repairs copies
// the files of its MyISAM tables first, once for the command however often it repairs a table,
// and leaves InnoDB tables to their own recovery. Putting the files back gives the tables as
// they were before, rows and counter alike.
void TestSafetyHooks::repairsCopyFiles()
{
    QFETCH(QString, menu);
    QFETCH(QString, command);
    QFETCH(QStringList, files);
    // No MyISAM table but these two.
    for (const QString &table : m_db->rows(qs("SELECT TABLE_NAME FROM information_schema.TABLES WHERE TABLE_SCHEMA = "
                                              "DATABASE() AND ENGINE = 'MyISAM'")))
        QVERIFY_DB(m_db->run({qs("DROP TABLE `%1`").arg(table)}));
    QVERIFY_DB(m_db->run(awkwardTable(qs("ledger"), qs("MyISAM")) +
                         sl({"DROP TABLE IF EXISTS inno, town", "CREATE TABLE inno (name VARCHAR(9)) ENGINE=InnoDB",
                             "CREATE TABLE town (name VARCHAR(9), n INT) ENGINE=MyISAM",
                             "INSERT INTO inno VALUES ('Oslo')", "INSERT INTO town VALUES ('Oslo', 1), ('Rome', 2)"})));
    const QList<TableState> before = tableStates(*m_db, sl({"ledger", "town"}));
    if (menu == qs("mnureptab")) {
        m_main->menuItem(menu)->trigger();
        QCOMPARE(m_operator->modals.size(), 1);
        auto *w = qobject_cast<RepairTable *>(m_operator->modals.first());
        QVERIFY(w);
        w->checklist()->setTicked(qs("ledger"), true);
        w->checklist()->setTicked(qs("inno"), true);
        w->findChild<QPushButton *>(qs("cmdrepair"))->click();
    } else {
        QWidget *w = openTool(menu.toLatin1().constData());
        QVERIFY(w);
        if (auto *all = w->findChild<QRadioButton *>(qs("optall")))
            all->click();
        if (menu == qs("mnusearch"))
            w->findChild<QLineEdit *>(qs("txtsdata"))->setText(qs("Oslo"));
        if (menu == qs("mnureplace")) {
            w->findChild<QLineEdit *>(qs("txtfind"))->setText(qs("Oslo"));
            w->findChild<QLineEdit *>(qs("txtreplace"))->setText(qs("Paris"));
            w->findChild<QComboBox *>(qs("cbofield"))->setCurrentIndex(1);
        }
        const char *button = menu == qs("mnuTabDet") ? "cmdshow" : menu == qs("mnusearch") ? "cmdsearch" : "cmdfind";
        w->findChild<QPushButton *>(qs(button))->click();
        if (command == qs("Replace All")) {
            QDir(m_safety.settings().folder).removeRecursively();
            w->findChild<QPushButton *>(qs("cmdrepall"))->click();
            QCOMPARE(m_db->rows(qs("SELECT name FROM town ORDER BY n")), sl({"Paris", "Rome"}));
        }
    }
    QVERIFY2(m_operator->runtimeErrors.isEmpty(), qPrintable(m_operator->runtimeErrors.join(u'\n')));
    QList<SafetyCopyInfo> fileCopies = SafetyNet::listCopies(m_safety.settings().folder);
    fileCopies.removeIf([](const SafetyCopyInfo &copy) { return copy.kind != SafetyCopyInfo::Kind::Files; });
    QCOMPARE(fileCopies.size(), 1);
    QCOMPARE(fileCopies.first().command, command);
    QCOMPARE(fileCopies.first().tables, files);

    const bool withLedger = files.contains(qs("ledger.MYD"));
    const bool withTown = files.contains(qs("town.MYD"));
    QVERIFY_DB(m_db->run({withLedger ? qs("DELETE FROM ledger WHERE id > 1") : qs("DO 0"),
                          withTown ? qs("DELETE FROM town") : qs("DO 0"), qs("FLUSH TABLES")}));
    NoProgress progress;
    QVERIFY_DB(PutBack::putBack(session(), fileCopies.first(), progress).error());
    QCOMPARE(tableStates(*m_db, sl({"ledger", "town"})), before);
}

// Replace copies a good table's files over the damaged ones; the put-back gives the files the
// command overwrote back, byte for byte.

void TestSafetyHooks::checkTablesReplace()
{
    ScratchDatabase good(qs("safetyhooks_good"));
    QVERIFY_DB(good.error());
    // Check Tables names the file by finding the table's name in the message: a name that
    // "Table" does not contain.
    QVERIFY_DB(good.run(awkwardTable(qs("ledger"), qs("MyISAM")) + QStringList{qs("DELETE FROM ledger WHERE id > 1")}));
    QVERIFY_DB(m_db->run(awkwardTable(qs("ledger"), qs("MyISAM")) + QStringList{qs("FLUSH TABLES")}));
    QVERIFY_DB(good.run({qs("FLUSH TABLES")}));
    const QString dataFolder = m_db->rows(qs("SELECT @@datadir")).value(0);
    const QDir folder(TableCheck::databaseFolder(dataFolder, m_db->name()));
    QFile index(folder.filePath(qs("ledger.MYI")));
    QVERIFY(index.open(QIODevice::ReadWrite) && index.seek(1024) && index.write(QByteArray(2048, '\xff')) == 2048);
    index.close();
    m_main->settingsStore().WriteRegistryString(Hive::LocalMachine, Settings::kKey, qs("DataFolder"), dataFolder);

    m_main->menuItem(qs("mnuchktab"))->trigger();
    QCOMPARE(m_operator->modals.size(), 1);
    auto *w = qobject_cast<CheckTable *>(m_operator->modals.first());
    QVERIFY(w);
    w->checklist()->setTicked(qs("ledger"), true);
    w->findChild<QPushButton *>(qs("cmdcheck"))->click();
    QStringList names;
    for (int row = 1; row < w->resultGrid()->rows(); ++row)
        names << w->resultGrid()->textMatrix(row, 1);
    names.removeAll(QString());
    names.removeDuplicates();
    QVERIFY2(names.contains(qs("ledger.MYI")), qPrintable(names.join(u',')));

    // The check marked the table in its files; what the command overwrites is that state.
    QVERIFY_DB(m_db->run({qs("FLUSH TABLES")}));
    const QStringList files = folder.entryList({qs("ledger.*")}, QDir::Files);
    const auto bytes = [&folder, &files] {
        QByteArrayList all;
        for (const QString &name : files)
            all << read(folder.filePath(name));
        return all;
    };
    const QByteArrayList before = bytes();
    w->findChild<QLineEdit *>(qs("Text1"))->setText(good.name());
    m_operator->told.clear();
    w->findChild<QPushButton *>(qs("cmdreplace"))->click();
    QCOMPARE(m_operator->told, sl({"Completed."}));
    QVERIFY(bytes() != before);
    QVERIFY_DB(m_db->run({qs("FLUSH TABLES")}));
    putBackNewest(qs("Check Tables Replace"), names);
    QVERIFY(bytes() == before);
}

void TestSafetyHooks::unwritableFolderStopsCommand_data()
{
    QTest::addColumn<QString>("menu");
    QTest::addColumn<QString>("folder"); // in the scratch folder, where a-file is a file; empty: a full disk
    QTest::newRow("Save Table, a file where the folder should be") << qs("mnusavetable") << qs("a-file");
    QTest::newRow("Save Table, a file where a folder above it should be") << qs("mnusavetable") << qs("a-file/copies");
    QTest::newRow("Delete Record, a full disk") << qs("mnudr") << QString();
}

void TestSafetyHooks::unwritableFolderStopsCommand()
{
    QFETCH(QString, menu);
    QFETCH(QString, folder);
    QVERIFY_DB(m_db->run(awkwardTable(qs("t"), qs("MyISAM"))));
    const TableState before = tableState(*m_db, qs("t"));
    SafetySettings blocked = m_safety.settings();
    const QString file = m_safety.dir.filePath(qs("a-file"));
    if (!folder.isEmpty()) {
        // No folder can be made there, whoever runs the tests (root writes through permission bits).
        write(file, "kept");
        blocked.folder = m_safety.dir.filePath(folder);
        SafetySettings::store(blocked);
    }
    TableData *w = openTableData(qs("t"));
    QVERIFY(w);
    w->grid()->setCurrentCell(2, 2);
    markLog();
    m_operator->told.clear();
    {
        // Every file this process writes stops short of the copy's length.
        std::optional<FileSizeLimit> limit;
        if (folder.isEmpty())
            limit.emplace(256);
        m_main->menuItem(menu)->trigger();
    }
    QCOMPARE(m_operator->told.size(), 1);
    QVERIFY2(m_operator->told.first().startsWith(qs("The safety copy could not be written, so nothing was changed.")) &&
                 m_operator->told.first().contains(blocked.folder),
             qPrintable(m_operator->told.first()));
    // Only the read of the table's fields for the check before the first write.
    QCOMPARE(sent(), sl({"SELECT * FROM `t`"}));
    QCOMPARE(tableState(*m_db, qs("t")), before);
    QVERIFY(SafetyNet::listCopies(m_safety.settings().folder).isEmpty());
    if (!folder.isEmpty())
        QCOMPARE(read(file), QByteArray("kept"));
}

QTEST_MAIN(TestSafetyHooks)
#include "test_safetyhooks.moc"
