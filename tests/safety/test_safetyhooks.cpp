// Every command that changes or drops data writes its safety copy first, and one put-back of
// that copy gives the table back exactly (checksum and CREATE TABLE) after the command lost or
// damaged it the way it does: a Save Table refused by a foreign key after its delete or cut
// off by a killed connection, Delete and Modify Record, the field commands, Create Table's
// drop, Replace All over the wrong value. A copy that cannot be written stops the command
// before its first statement.
#include "backup/restore.h"
#include "backup/tablebackup.h"
#include "data/tabledata.h"
#include "db/progress.h"
#include "grid/grid.h"
#include "safety/putback.h"
#include "safety/safetynet.h"
#include "safetytest.h"
#include "structure/createtable.h"
#include "structure/tableinfo.h"
#include "toolfixture.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>

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
    void saveTableRefusedByForeignKey();
    void fieldCommands_data();
    void fieldCommands();
    void createTableDrop();
    void replaceAllOverWrongValue();
    void restoreStoppedByQuote();
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
    QTest::addColumn<bool>("killed");
    for (const char *engine : {"MyISAM", "InnoDB"}) {
        QTest::addRow("%s, Save Table", engine) << qs(engine) << qs("mnusavetable") << qs("Save Table") << false;
        QTest::addRow("%s, Save Table, connection killed", engine)
            << qs(engine) << qs("mnusavetable") << qs("Save Table") << true;
        QTest::addRow("%s, Delete Record", engine) << qs(engine) << qs("mnudr") << qs("Delete Record") << false;
        QTest::addRow("%s, Modify Record", engine) << qs(engine) << qs("mnumr") << qs("Modify Record") << false;
    }
}

// The grid writes every value back as unescaped text: the row with quotes fails, NULLs come
// back empty, binary values lose their bytes.
void TestSafetyHooks::tableDataCommands()
{
    QFETCH(QString, engine);
    QFETCH(QString, menu);
    QFETCH(QString, command);
    QFETCH(bool, killed);
    // Modify Record refuses to write most of the awkward values back (an empty date, a BIT
    // as text), so it works on a plainer table whose blob it turns into text.
    const QString table = menu == qs("mnumr") ? qs("m") : qs("t");
    QVERIFY_DB(
        m_db->run(awkwardTable(qs("t"), engine) +
                  QStringList{qs("DROP TABLE IF EXISTS m"),
                              qs("CREATE TABLE m (id INT PRIMARY KEY, name VARCHAR(20), raw BLOB) ENGINE=") + engine,
                              qs("INSERT INTO m VALUES (1, 'it''s', X'FF00FE'), (2, NULL, NULL)")}));
    const TableState before = tableState(*m_db, table);
    TableData *w = openTableData(table);
    QVERIFY(w);
    w->grid()->setCurrentCell(1, 3);
    w->grid()->setTextMatrix(1, 3, qs("changed"));
    if (killed) {
        // The first failing insert's message is up when the connection goes.
        const unsigned long id = session().connectionId();
        Dialogs::setResponder([this, id](const Dialogs::Prompt &p) {
            if (p.kind == Dialogs::Prompt::Kind::Message && m_db->admin().isOpen())
                (void)m_db->admin().execute(qs("KILL %1").arg(id));
            return Dialogs::Reply{Dialogs::Answer::Yes, {}};
        });
    }
    m_main->menuItem(menu)->trigger();
    QVERIFY2(tableState(*m_db, table) != before, qPrintable(m_operator->told.join(u'|')));
    putBackNewest(command, {table});
    QCOMPARE(tableState(*m_db, table), before);
}

void TestSafetyHooks::saveTableRefusedByForeignKey()
{
    // Rows whose parent comes later are refused once the delete has emptied the table.
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS tree"),
                          qs("CREATE TABLE tree (id INT PRIMARY KEY, up INT, name VARCHAR(9), CONSTRAINT tree_up "
                             "FOREIGN KEY (up) REFERENCES tree (id)) ENGINE=InnoDB"),
                          qs("INSERT INTO tree VALUES (3, NULL, 'root'), (2, 3, NULL), (1, 2, 'leaf')")}));
    const TableState before = tableState(*m_db, qs("tree"));
    QVERIFY(openTableData(qs("tree")));
    m_main->menuItem(qs("mnusavetable"))->trigger();
    QVERIFY(tableState(*m_db, qs("tree")) != before);
    putBackNewest(qs("Save Table"), {qs("tree")});
    QCOMPARE(tableState(*m_db, qs("tree")), before);
}

void TestSafetyHooks::fieldCommands_data()
{
    QTest::addColumn<QString>("menu");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("typed");
    QTest::newRow("Delete Field") << qs("mnudf") << qs("Delete Field") << QStringList();
    QTest::newRow("Modify Field") << qs("mnumf") << qs("Modify Field") << sl({"", "TEXT"});
    QTest::newRow("Add Field") << qs("mnuaf") << qs("Add Field") << sl({"extra", "INT NOT NULL DEFAULT 5"});
}

void TestSafetyHooks::fieldCommands()
{
    QFETCH(QString, menu);
    QFETCH(QString, command);
    QFETCH(QStringList, typed);
    QVERIFY_DB(m_db->run(awkwardTable(qs("t"), qs("InnoDB"))));
    const TableState before = tableState(*m_db, qs("t"));
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
    QVERIFY(tableState(*m_db, qs("t")) != before);
    putBackNewest(command, {qs("t")});
    QCOMPARE(tableState(*m_db, qs("t")), before);
}

void TestSafetyHooks::createTableDrop()
{
    QVERIFY_DB(m_db->run(awkwardTable(qs("t"), qs("MyISAM"))));
    const TableState before = tableState(*m_db, qs("t"));
    auto *w = qobject_cast<CreateTable *>(openTool("mnuct"));
    QVERIFY(w);
    Grid &g = *w->grid();
    g.setRows(2);
    g.setTextMatrix(1, 0, qs("only"));
    g.setTextMatrix(1, 1, qs("INT"));
    m_operator->typed = sl({"t"});
    w->findChild<QPushButton *>(qs("cmdsavetable"))->click();
    QCOMPARE(m_db->rows(qs("SELECT COUNT(*) FROM t")), sl({"0"}));
    putBackNewest(qs("Create Table"), {qs("t")});
    QCOMPARE(tableState(*m_db, qs("t")), before);
}

void TestSafetyHooks::replaceAllOverWrongValue()
{
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS a, b, c, t, tree"),
                          qs("CREATE TABLE a (id INT PRIMARY KEY, code VARCHAR(9), note TEXT) ENGINE=InnoDB"),
                          qs("CREATE TABLE b (code VARCHAR(9), raw VARBINARY(4)) ENGINE=MyISAM"),
                          qs("CREATE TABLE c (x INT) ENGINE=MyISAM"),
                          qs("INSERT INTO a VALUES (1, 'C00001', NULL), (2, 'C00002', 'it''s \\\\')"),
                          qs("INSERT INTO b VALUES ('C00001', X'00FF'), ('C00001', NULL), (NULL, '')"),
                          qs("INSERT INTO c VALUES (1)")}));
    const TableState a = tableState(*m_db, qs("a"));
    const TableState b = tableState(*m_db, qs("b"));
    QWidget *w = openTool("mnureplace");
    QVERIFY(w);
    w->findChild<QLineEdit *>(qs("txtfind"))->setText(qs("C00001"));
    w->findChild<QLineEdit *>(qs("txtreplace"))->setText(qs("C00009"));
    w->findChild<QComboBox *>(qs("cbofield"))->setCurrentIndex(1);
    w->findChild<QPushButton *>(qs("cmdfind"))->click();
    w->findChild<QPushButton *>(qs("cmdrepall"))->click();
    QCOMPARE(m_db->rows(qs("SELECT code FROM a ORDER BY id")), sl({"C00009", "C00002"}));
    putBackNewest(qs("Replace All"), {qs("a"), qs("b")});
    QCOMPARE(tableState(*m_db, qs("a")), a);
    QCOMPARE(tableState(*m_db, qs("b")), b);
}

// The restore deletes the table's rows, then a quote in a text stops it for good.
void TestSafetyHooks::restoreStoppedByQuote()
{
    QVERIFY_DB(m_db->run({qs("DROP TABLE IF EXISTS quotes"),
                          qs("CREATE TABLE quotes (id INT, t VARCHAR(20), b BLOB) ENGINE=InnoDB"),
                          qs("INSERT INTO quotes VALUES (1, 'plain', NULL), (2, 'O''Brien', X'00'), (3, NULL, '')")}));
    const TableState before = tableState(*m_db, qs("quotes"));
    QTemporaryDir folder;
    const auto set = TableBackup::BackupSet::forPath(folder.path() + qs("/"), QDate::currentDate());
    QVERIFY(QDir().mkpath(set.workingFolder));
    QVERIFY_DB(TableBackup::writeTableFile(session(), TableBackup::tableSelect(qs("quotes")),
                                           set.workingFolder + qs("/quotes")));
    QVERIFY_DB(TableBackup::finish(set, {qs("quotes")}));

    m_main->Server = serverAddress();
    m_main->User = qs("dbop");
    m_main->menuItem(qs("mnurestore"))->trigger();
    QCOMPARE(m_operator->modals.size(), 1);
    auto *w = qobject_cast<Restore *>(m_operator->modals.first());
    QVERIFY(w);
    w->findChild<QLineEdit *>(qs("txtpath"))->setText(set.archivePath());
    w->findChild<QPushButton *>(qs("cmdok"))->click();
    w->findChild<QLineEdit *>(qs("txtdbpath"))->setText(m_db->name());
    w->findChild<QPushButton *>(qs("Command2"))->click();
    w->findChild<QCheckBox *>(qs("chkdel"))->setChecked(true);
    w->findChild<QPushButton *>(qs("cmdrestore"))->click();
    QCOMPARE(m_operator->runtimeErrors.size(), 1);
    QCOMPARE(m_db->rows(qs("SELECT id FROM quotes")), sl({"1"}));
    putBackNewest(qs("Restore"), {qs("quotes")});
    QCOMPARE(tableState(*m_db, qs("quotes")), before);
}

void TestSafetyHooks::unwritableFolderStopsCommand()
{
    QVERIFY_DB(m_db->run(awkwardTable(qs("t"), qs("MyISAM"))));
    const TableState before = tableState(*m_db, qs("t"));
    SafetySettings blocked = m_safety.settings();
    blocked.folder = m_safety.dir.filePath(qs("a-file"));
    QFile file(blocked.folder);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();
    SafetySettings::store(blocked);
    QVERIFY(openTableData(qs("t")));
    markLog();
    m_operator->told.clear();
    m_main->menuItem(qs("mnusavetable"))->trigger();
    QCOMPARE(m_operator->told.size(), 1);
    QVERIFY2(m_operator->told.first().contains(blocked.folder), qPrintable(m_operator->told.first()));
    QCOMPARE(sent(), QStringList());
    QCOMPARE(tableState(*m_db, qs("t")), before);
}

QTEST_MAIN(TestSafetyHooks)
#include "test_safetyhooks.moc"
