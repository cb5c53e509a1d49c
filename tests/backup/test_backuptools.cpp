// The backup and restore tools through the main window's menu against the real server: the pages,
// the messages, the statements the server receives, the archives on disk, the menu item given
// back on close, and the refusals that leave the folder and the databases as they were.
#include "backup/backup.h"
#include "backup/backuparchive.h"
#include "backup/folderlists.h"
#include "backup/restore.h"
#include "backupfixture.h"
#include "db/statementhook.h"
#include "demo/demodatabase.h"
#include "toolfixture.h"
#include "ui/tablechecklist.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QFrame>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QRegularExpression>
#include <QScopeGuard>

#include <chrono>
#include <thread>

using namespace tabulon;
using namespace tabulon::test;

namespace {

const QStringList kTables{
    qs("CREATE TABLE main_info1 (code_no VARCHAR(10) PRIMARY KEY, code VARCHAR(10), fname VARCHAR(20))"),
    qs("CREATE TABLE owner1 (code VARCHAR(10) PRIMARY KEY, oname VARCHAR(20))"),
    qs("CREATE TABLE bill (name VARCHAR(10), amount INT)"),
    qs("CREATE TABLE visits (code VARCHAR(10), v INT)"),
    qs("CREATE TABLE notes (code_no VARCHAR(10), note TEXT)"),
    qs("CREATE TABLE staff (sname VARCHAR(20))"),
    qs("INSERT INTO main_info1 VALUES ('C00001','C00001','Ann'), ('C00007','A00007','Bob')"),
    qs("INSERT INTO owner1 VALUES ('C00001','Ann'), ('A00007','Bob Sr')"),
    qs("INSERT INTO bill VALUES ('C00001', 10), ('C00007', 70), ('A00007', 71)"),
    qs("INSERT INTO visits VALUES ('C00001', 1), ('A00007', 7)"),
    qs("INSERT INTO notes VALUES ('C00001', 'n1'), ('C00007', 'n7, \"quoted\"'), ('C00007', NULL)"),
    qs("INSERT INTO staff VALUES ('Eve')"),
};

// What a lost connection reports: the client library's own words, whichever it noticed first.
const QRegularExpression kLostConnection(qs("^((MySQL s|S)erver has gone away$|Lost connection to (MySQL )?server)"));

// The statements of a run that change data or tables, or begin or end a transaction: without the
// look-ups that decide, before the first of them, what the run may do.
QStringList writes(const QStringList &statements)
{
    static const QRegularExpression change(qs("^(DELETE|INSERT|UPDATE|REPLACE|CREATE|DROP|ALTER|RENAME|TRUNCATE|START|"
                                              "COMMIT|ROLLBACK|SET SESSION autocommit)"),
                                           QRegularExpression::CaseInsensitiveOption);
    return statements.filter(change);
}

// Ticks only `tables` of a tool's list; all stay ticked when it is empty.
void tickOnly(TableChecklist *list, const QStringList &tables)
{
    if (tables.isEmpty())
        return;
    list->deselectAll();
    for (const QString &table : tables)
        list->setTicked(table, true);
}

// Every table file of an archive as "table: a|b / c|d".
QStringList archiveContents(const QString &archive)
{
    QTemporaryDir out;
    QStringList tables;
    if (DbError error = BackupArchive::extract(archive, out.filePath(qs("x")), &tables))
        return {qs("error: ") + error.description};
    for (QString &table : tables)
        table += qs(": ") + gridFileRows(out.filePath(qs("x/") + table)).join(qs(" / "));
    return tables;
}

} // namespace

class TestBackupTools final : public QObject, ToolFixture {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void backupWritesTheDaysArchive();
    void clientBackup();
    void failureWhilePacking_data();
    void failureWhilePacking();
    void backupNamesWhatItLeftOut();
    void restore();
    void demoRoundTrip();
    void clientRestore_data();
    void clientRestore();
    void restoreLostPartWay_data();
    void restoreLostPartWay();
    void restoreChecksBeforeChanging();
    void backupCannotStart_data();
    void backupCannotStart();
    void restoreRefusals_data();
    void restoreRefusals();

private:
    QWidget *open(const char *menu);
    // Opens the backup tool on the scratch folder and goes to the table page.
    BackUp *backupAtTablePage();
    // Backs up the ticked tables (all when empty) of the scratch database, client only with a code;
    // what the operator was told stays for the caller.
    void backUp(const QStringList &tables, const QString &clientCode = QString());
    // The same, told only that it succeeded; the next step starts with a fresh operator.
    void makeArchive(const QStringList &tables, const QString &clientCode = QString());
    void freshOperator()
    {
        m_operator.reset(); // the input answers end here
        m_operator = std::make_unique<Operator>();
    }
    // Opens the restore tool on the day's archive and the target database, at the table page, with
    // `tables` ticked (all when empty) and the old rows to go when `deleteAll`.
    Restore *restoreAtTablePage(const QString &database, bool clientOnly, const QStringList &tables = {},
                                bool deleteAll = false);
    QString archive() const { return m_folder->filePath(BackupArchive::datedName(QDate::currentDate()) + qs(".zip")); }
    QStringList folderListing() const
    {
        return QDir(m_folder->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }

    QString dated() const { return archive().chopped(4); } // the working folder
    QStringList data()
    {
        return m_db->rows(qs("SELECT * FROM main_info1 ORDER BY 1")) + m_db->rows(qs("SELECT * FROM bill ORDER BY 1"));
    }
    void killSession(unsigned long id) { QVERIFY_DB(m_db->run({qs("KILL %1").arg(id)})); }

    std::unique_ptr<QTemporaryDir> m_folder;
};

void TestBackupTools::initTestCase()
{
    createDatabase("backuptools");
    QVERIFY_DB(m_db->run(kTables));
}

void TestBackupTools::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    openMain();
    m_main->Database = m_db->name();
    m_main->Server = serverAddress();
    m_main->User = qs("dbop");
    markLog();
    m_main->enableAllMenus();
}

void TestBackupTools::cleanup()
{
    // Every input box of the client backup and restore is titled "Orvita".
    for (const Dialogs::Prompt &p : std::as_const(m_operator->prompts)) {
        if (p.kind == Dialogs::Prompt::Kind::Input)
            QCOMPARE(p.title, qs("Orvita"));
    }
    closeMain();
    m_folder.reset();
}

QWidget *TestBackupTools::open(const char *menu)
{
    m_main->menuItem(qs(menu))->trigger();
    return m_operator->modals.isEmpty() ? nullptr : m_operator->modals.last();
}

BackUp *TestBackupTools::backupAtTablePage()
{
    auto *w = qobject_cast<BackUp *>(open("mnubackup"));
    if (!w)
        return nullptr;
    w->folderLists()->setFolder(m_folder->path());
    click(w, "cmdok");
    return w;
}

// The path page wants a path; the table page starts all ticked; every table is read whole and lands
// in the day's archive, and nothing else is left in the folder. A second backup on the same day
// asks first: No keeps the first archive and closes; Yes replaces it, but only with a finished
// backup.
void TestBackupTools::backupWritesTheDaysArchive()
{
    QPointer<BackUp> w = qobject_cast<BackUp *>(open("mnubackup"));
    QVERIFY(w);
    QVERIFY(!m_main->menuItem(qs("mnubackup"))->isEnabled());
    click(w, "cmdok");
    QCOMPARE(m_operator->told, sl({"Please select a path"}));
    auto *path = w->findChild<QLineEdit *>(qs("txtpath"));
    w->folderLists()->setFolder(qs("/"));
    QCOMPARE(path->text(), qs("/"));
    w->folderLists()->setFolder(m_folder->path());
    QCOMPARE(path->text(), m_folder->path() + qs("/"));
    click(w, "cmdok");
    TableChecklist *list = w->checklist();
    QVERIFY(list->selectionPage()->isVisible());
    QVERIFY(!w->findChild<QFrame *>(qs("Frame1"))->isVisible());
    QCOMPARE(list->tickedTables(), list->tables());

    list->setTicked(qs("staff"), false);
    click(w, "cmdBackup");
    QCOMPARE(m_operator->told.last(), qs("Backup Sucessfully"));
    QTRY_VERIFY(!w);
    QVERIFY(m_main->menuItem(qs("mnubackup"))->isEnabled());
    QCOMPARE(folderListing(), QStringList{QFileInfo(archive()).fileName()});
    QCOMPARE(archiveContents(archive()),
             sl({"bill: name|amount / C00001|10 / C00007|70 / A00007|71",
                 "main_info1: code_no|code|fname / C00001|C00001|Ann / C00007|A00007|Bob",
                 "notes: code_no|note / C00001|n1 / C00007|n7, \"quoted\" / C00007|",
                 "owner1: code|oname / A00007|Bob Sr / C00001|Ann", "visits: code|v / C00001|1 / A00007|7"}));

    // Yes keeps the earlier archive until a new one takes its place: leaving first changes nothing.
    const QByteArray first = read(archive());
    for (const Dialogs::Answer answer : {Dialogs::Answer::No, Dialogs::Answer::Yes}) {
        m_operator->answer = answer;
        w = backupAtTablePage();
        QCOMPARE(m_operator->asked.last(), qs("The backup is already taken, are you want to delete it"));
        if (w && answer == Dialogs::Answer::Yes)
            click(w, "cmdExit");
        QTRY_VERIFY(!w);
        QCOMPARE(folderListing(), QStringList{QFileInfo(archive()).fileName()});
        QCOMPARE(read(archive()), first);
    }
    backUp({qs("staff")});
    QCOMPARE(m_operator->asked.size(), 4);
    QCOMPARE(m_operator->told, sl({"Please select a path", "Backup Sucessfully", "Backup Sucessfully"}));
    QCOMPARE(archiveContents(archive()), sl({"staff: sname / Eve"}));
    QCOMPARE(folderListing(), QStringList{QFileInfo(archive()).fileName()});
}

// Only the client's rows, each table by its own select; tables without a code column (staff) get no
// file. Equal codes: no main_info1 file, owner1 by its code (differing codes are backed up in
// clientRestore). An unknown code, or a look-up that loses its connection, is told and the table
// page is shown again, with no archive and nothing in the working folder.
void TestBackupTools::clientBackup()
{
    makeArchive({}, qs("C00001"));
    QCOMPARE(archiveContents(archive()), sl({"bill: name|amount / C00001|10", "notes: code_no|note / C00001|n1",
                                             "owner1: code|oname / C00001|Ann", "visits: code|v / C00001|1"}));
    QVERIFY(QFile::remove(archive()));
    for (const bool lost : {false, true}) {
        m_operator->typed = {lost ? qs("c00001") : qs("NOBODY")};
        QPointer<BackUp> w = backupAtTablePage();
        QVERIFY(w);
        w->findChild<QCheckBox *>(qs("Check1"))->setChecked(true);
        if (lost)
            killSession(session().connectionId());
        click(w, "cmdBackup");
        QCOMPARE(m_operator->told.size(), lost ? 4 : 2);
        QCOMPARE(m_operator->told.value(m_operator->told.size() - 2), qs("Please Enter the Code No to take BackUp"));
        const QString told = m_operator->told.last();
        QVERIFY2(lost ? kLostConnection.match(told).hasMatch() : told == qs("The Code does not exist"),
                 qPrintable(told));
        QCOMPARE(m_operator->runtimeErrors, QStringList());
        QVERIFY(w->checklist()->selectionPage()->isVisible());
        QVERIFY(!QFileInfo::exists(archive()));
        QCOMPARE(QDir(dated()).entryList(QDir::Files), QStringList());
        w->close();
        QTRY_VERIFY(!w);
    }
}

// A connection lost while a large later table streams in, a part of an earlier one that cannot
// be written, or the operator's stop ends the backup while the packing thread is at work, with
// the cause told: no archive, partial file or compressed part is left, the thread ends, and the
// day's earlier archive, which the operator agreed to replace, stays.
void TestBackupTools::failureWhilePacking_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<QString>("told"); // all that was told, as a pattern
    const QString blocked = BackupArchive::Packer::partName(qs("bill"));
    QTest::newRow("connection killed while a large table is read") << qs("kill") << qs("The backup was not made: .+");
    QTest::newRow("stopped before a later table") << qs("stop") << QString();
    QTest::newRow("a part that cannot be written")
        << qs("part") << qs("The backup was not made: .*") + QRegularExpression::escape(blocked) + qs(".*");
}

void TestBackupTools::failureWhilePacking()
{
    QFETCH(QString, fault);
    QFETCH(QString, told);
    if (fault == qs("kill"))
        QVERIFY_DB(m_db->run({qs("CREATE TABLE zbig SELECT seq, REPEAT('x', 50) AS pad FROM seq_1_to_1000000")}));
    write(archive(), "the earlier backup");
    m_operator->answer = Dialogs::Answer::Yes;
    QPointer<BackUp> w = backupAtTablePage();
    QVERIFY(w);
    const QDir work(dated());
    const QString blocked = BackupArchive::Packer::partName(qs("bill"));
    if (fault == qs("part"))
        QVERIFY(work.mkdir(blocked));
    std::thread killer;
    const auto unblock = qScopeGuard([&] {
        StatementHook::clear();
        if (killer.joinable())
            killer.join();
        (void)m_db->run({qs("DROP TABLE IF EXISTS zbig")});
        QDir(work.filePath(blocked)).removeRecursively();
        QDir().rmdir(dated());
    });
    const unsigned long id = m_main->session()->connectionId();
    bool packing = fault == qs("part"); // the thread was at work when the fault came
    int readLater = 0;                  // tables read after bill, whose part cannot be written
    StatementHook::set([&](QByteArrayView sql) {
        if (fault == qs("part")) {
            // The thread ends with that error once bill's part is to be written; the backup reads
            // at most one more table.
            if (sql.startsWith("SELECT * FROM `") && sql != "SELECT * FROM `bill`" && ++readLater == 1) {
                for (int i = 0; i < 500 && threadsNamed(BackupArchive::Packer::kThreadName) > 0; ++i)
                    std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        } else if (fault == qs("kill") && sql == "SELECT * FROM `zbig`") {
            // Killed while its million rows are on their way.
            packing = threadsNamed(BackupArchive::Packer::kThreadName) == 1;
            killer = std::thread([this, id] {
                std::this_thread::sleep_for(std::chrono::milliseconds(150));
                DatabaseSession admin;
                if (!openSession(admin, m_db->name()))
                    admin.execute(qs("KILL %1").arg(id));
            });
        } else if (fault == qs("stop") && !packing && sql == "SELECT * FROM `visits`") {
            // The tables before it are being packed (owner1 the last of them) when the stop comes.
            packing = threadsNamed(BackupArchive::Packer::kThreadName) == 1;
            for (int i = 0; i < 500 && !QFileInfo::exists(work.filePath(BackupArchive::Packer::partName(qs("owner1"))));
                 ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            w->checklist()->busy().requestStop();
        }
    });
    click(w, "cmdBackup");
    QVERIFY(packing);
    QVERIFY(readLater <= 1);
    const QString said = m_operator->told.join(u'\n');
    QVERIFY2(
        QRegularExpression(QRegularExpression::anchoredPattern(told), QRegularExpression::DotMatchesEverythingOption)
            .match(said)
            .hasMatch(),
        qPrintable(said));
    QTRY_VERIFY(!w);
    QTRY_COMPARE_WITH_TIMEOUT(threadsNamed(BackupArchive::Packer::kThreadName), 0, 200);
    QCOMPARE(read(archive()), QByteArray("the earlier backup"));
    QStringList left{QFileInfo(archive()).fileName()};
    if (fault == qs("part")) {
        left.prepend(QFileInfo(dated()).fileName());
        QCOMPARE(QDir(dated()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList{blocked});
    }
    QCOMPARE(folderListing(), left);
}

// What the archive must not hold is left out and named in the closing message, for both kinds of
// backup: a table that cannot be read (a merge table whose part was dropped: an empty file would
// restore as an empty table), a view (its rows are in its base tables), a name a restore cannot
// take or that the server reserves, and the second of two names that differ only in letter case.
// Replacing the day's archive keeps the earlier copy of a table that cannot be read now, checked
// and byte for byte, and says so.
void TestBackupTools::backupNamesWhatItLeftOut()
{
    QVERIFY_DB(m_db->run({qs("CREATE TABLE flaky (code VARCHAR(10)) ENGINE=MyISAM"),
                          qs("INSERT INTO flaky VALUES ('C00001'), ('C00007')")}));
    makeArchive({qs("flaky")});
    QVERIFY_DB(
        m_db->run({qs("DROP TABLE flaky"), qs("CREATE TABLE gone (code VARCHAR(10)) ENGINE=MyISAM"),
                   qs("CREATE TABLE broken (code VARCHAR(10)) ENGINE=MERGE UNION=(gone)"),
                   qs("CREATE TABLE flaky (code VARCHAR(10)) ENGINE=MERGE UNION=(gone)"), qs("DROP TABLE gone"),
                   qs("CREATE VIEW bill_v AS SELECT name, amount FROM bill"),
                   qs("CREATE TABLE `odd name` (code VARCHAR(10))"), qs("CREATE TABLE `order` (code VARCHAR(10))"),
                   qs("CREATE TABLE Twin (code VARCHAR(10))"), qs("CREATE TABLE twin (code VARCHAR(10))")}));
    const auto dropThem = qScopeGuard([this] {
        (void)m_db->run({qs("DROP VIEW bill_v"), qs("DROP TABLE broken, flaky, `odd name`, `order`, Twin, twin")});
    });
    const QString unreadable = qs("Unable to open underlying table which is differently defined or of non-MyISAM "
                                  "type or doesn't exist");
    const QString left = qs("Backup Sucessfully, without these tables:\n"
                            "bill_v: a view; its rows are in its base tables\n"
                            "odd name: its name is not one a restore can take (letters, digits, _ and $)\n"
                            "order: its name is a word the server reserves, which a restore cannot take\n"
                            "twin: its name differs from Twin only in letter case, and an archive holds one of them\n"
                            "broken: %1\n")
                             .arg(unreadable);
    m_operator->answer = Dialogs::Answer::Yes; // to replacing the archive of flaky
    for (const QString &code : {QString(), qs("C00001")}) {
        backUp(sl({"bill", "bill_v", "broken", "flaky", "odd name", "order", "Twin", "twin"}), code);
        QCOMPARE(m_operator->told.last(), left +
                                              (code.isEmpty() ? qs("These tables could not be read; the archive "
                                                                   "keeps their copies from the day's earlier "
                                                                   "backup:\nflaky: ")
                                                              : qs("flaky: ")) +
                                              unreadable);
        QCOMPARE(archiveContents(archive()), code.isEmpty()
                                                 ? sl({"bill: name|amount / C00001|10 / C00007|70 / A00007|71",
                                                       "flaky: code / C00001 / C00007", "Twin: code"})
                                                 : sl({"bill: name|amount / C00001|10", "Twin: code"}));
        QCOMPARE(folderListing(), QStringList{QFileInfo(archive()).fileName()});
        QVERIFY(QFile::remove(archive()));
    }
}

void TestBackupTools::backUp(const QStringList &tables, const QString &clientCode)
{
    if (!clientCode.isEmpty())
        m_operator->typed = {clientCode};
    QPointer<BackUp> w = backupAtTablePage();
    QVERIFY(w);
    tickOnly(w->checklist(), tables);
    w->findChild<QCheckBox *>(qs("Check1"))->setChecked(!clientCode.isEmpty());
    click(w, "cmdBackup");
    const QString status = w->findChild<QLabel *>(qs("lblcopying"))->text();
    QVERIFY2(status.startsWith(clientCode.isEmpty() ? qs("Copying Table ") : qs("BackingUp Data from Table ")),
             qPrintable(status));
    QTRY_VERIFY(!w);
}

void TestBackupTools::makeArchive(const QStringList &tables, const QString &clientCode)
{
    backUp(tables, clientCode);
    QCOMPARE(m_operator->told, clientCode.isEmpty()
                                   ? sl({"Backup Sucessfully"})
                                   : sl({"Please Enter the Code No to take BackUp", "Backup Sucessfully"}));
    freshOperator();
}

Restore *TestBackupTools::restoreAtTablePage(const QString &database, bool clientOnly, const QStringList &tables,
                                             bool deleteAll)
{
    auto *w = qobject_cast<Restore *>(open("mnurestore"));
    if (!w)
        return nullptr;
    w->findChild<QLineEdit *>(qs("txtpath"))->setText(archive());
    click(w, "cmdok");
    w->findChild<QLineEdit *>(qs("txtdbpath"))->setText(qs(" ") + database + qs(" "));
    w->findChild<QCheckBox *>(qs("Check1"))->setChecked(clientOnly);
    click(w, "Command2");
    tickOnly(w->checklist(), tables);
    w->findChild<QCheckBox *>(qs("chkdel"))->setChecked(deleteAll);
    return w;
}

// The file page wants a name ending in ".zip" exactly and refuses an archive with an entry that is
// not a table name, with nothing written; the database page wants a name; the table page lists the archive's tables,
// all ticked. Tables come back equal where the quoting carries their values (CHECKSUM TABLE) and a NULL as empty text;
// a quote inside a text is the untrapped error that ends the program, with the rows before it kept. Closing removes the
// extraction folder.
void TestBackupTools::restore()
{
    const QStringList tables{qs("bill"),   qs("main_info1"), qs("notes"), qs("owner1"),
                             qs("quotes"), qs("staff"),      qs("visits")};
    QVERIFY_DB(m_db->run({qs("CREATE TABLE quotes (id INT, t VARCHAR(20))"),
                          qs("INSERT INTO quotes VALUES (1, 'plain'), (2, 'O''Brien'), (3, 'after')")}));
    makeArchive({});
    ScratchDatabase target(qs("backuptools_target"));
    for (const QString &table : tables)
        QVERIFY_DB(target.run({qs("CREATE TABLE %1 LIKE %2.%1").arg(table, m_db->name())}));
    QVERIFY_DB(m_db->run({qs("DROP TABLE quotes")}));
    QVERIFY_DB(target.run({qs("INSERT INTO bill VALUES ('OLD', 1)")}));
    // The day's archive with an entry whose name would comment out the client restore's where clause.
    const QString hostile = m_folder->filePath(qs("evil.zip"));
    write(hostile, read(archive()).replace("visits", "bill #"));
    const QStringList before = folderListing();

    QPointer<Restore> w = qobject_cast<Restore *>(open("mnurestore"));
    QVERIFY(w);
    QVERIFY(!m_main->menuItem(qs("mnurestore"))->isEnabled());
    auto *path = w->findChild<QLineEdit *>(qs("txtpath"));
    path->setText(archive().chopped(4) + qs(".ZIP"));
    click(w, "cmdok");
    QCOMPARE(m_operator->told, sl({"Please select a file"}));
    w->folderLists()->setFolder(m_folder->path());
    auto *files = w->findChild<QListWidget *>(qs("File2"));
    QCOMPARE(files->count(), 2);
    QTest::mouseClick(files->viewport(), Qt::LeftButton, {}, files->visualItemRect(files->item(0)).center());
    QCOMPARE(path->text(), m_folder->path() + qs("/") + files->item(0)->text());
    path->setText(hostile);
    click(w, "cmdok");
    QVERIFY2(m_operator->told.last().startsWith(qs("This archive cannot be restored: ")),
             qPrintable(m_operator->told.last()));
    QCOMPARE(folderListing(), before);
    QVERIFY(w->findChild<QFrame *>(qs("Frame1"))->isVisible());

    path->setText(archive());
    click(w, "cmdok");
    QVERIFY(w->findChild<QFrame *>(qs("Frame2"))->isVisible());
    QVERIFY(QFileInfo(archive().chopped(4)).isDir());
    click(w, "Command2");
    QCOMPARE(m_operator->told.last(), qs("Select a Database Path"));
    w->findChild<QLineEdit *>(qs("txtdbpath"))->setText(qs(" ") + target.name() + qs(" "));
    click(w, "Command2");
    QVERIFY(w->checklist()->selectionPage()->isVisible());
    QCOMPARE(w->checklist()->tables(), tables);
    QCOMPARE(w->checklist()->tickedTables(), tables);
    auto *deleteAll = w->findChild<QCheckBox *>(qs("chkdel"));
    QVERIFY(deleteAll->isVisible());
    deleteAll->setChecked(true);
    w->checklist()->setTicked(qs("quotes"), false);
    click(w, "cmdrestore");
    QCOMPARE(m_operator->told.mid(2), sl({"Select a Database Path", "Restored Sucessfully"}));
    QCOMPARE(m_operator->runtimeErrors, QStringList());
    QTRY_VERIFY(!w);
    QVERIFY(m_main->menuItem(qs("mnurestore"))->isEnabled());
    QCOMPARE(folderListing(), before);
    // Equal to the source, the target's own row of bill gone with the old rows.
    for (const QString &table : {qs("bill"), qs("main_info1"), qs("owner1"), qs("staff"), qs("visits")})
        QCOMPARE(target.rows(qs("CHECKSUM TABLE ") + table).value(0).section(QLatin1Char('|'), 1),
                 m_db->rows(qs("CHECKSUM TABLE ") + table).value(0).section(QLatin1Char('|'), 1));
    QCOMPARE(target.rows(qs("SELECT * FROM notes")), sl({"C00001|n1", "C00007|n7, \"quoted\"", "C00007|"}));

    w = restoreAtTablePage(target.name(), false, {qs("quotes")});
    m_operator->answers = {Dialogs::Answer::No}; // to the exact-value check: the usual statements
    click(w, "cmdrestore");
    QCOMPARE(m_operator->runtimeErrors.size(), 1);
    QVERIFY2(m_operator->runtimeErrors.first().contains(qs("Run-time error")),
             qPrintable(m_operator->runtimeErrors.first()));
    QCOMPARE(m_operator->ends.size(), 1);
    // The program ends inside the table's transaction, which takes back the row before the quote.
    QCOMPARE(target.rows(qs("SELECT id FROM quotes")), QStringList());
    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QApplication::sendEvent(w->checklist(), &escape);
    QTRY_VERIFY(!w);
    QCOMPARE(folderListing(), before);
}

// Every row of `table` in one order, each value as the hex of its text or bytes and a NULL as
// '' (a table file holds a text's NULL and an empty text alike, so the restore cannot tell them
// apart; a number's or a date's NULL stays apart from every value).
static QStringList comparableRows(ScratchDatabase &db, const QString &table)
{
    QStringList values;
    QStringList order;
    for (const QString &column :
         db.rows(qs("SELECT COLUMN_NAME FROM information_schema.COLUMNS WHERE TABLE_SCHEMA='%1' "
                    "AND TABLE_NAME='%2' ORDER BY ORDINAL_POSITION")
                     .arg(db.name(), table))) {
        values << qs("COALESCE(HEX(CONCAT(`%1`)),'')").arg(column);
        order << QString::number(values.size());
    }
    return db.rows(
        qs("SELECT %1 FROM `%2`.`%3` ORDER BY %4").arg(values.join(u','), db.name(), table, order.join(u',')));
}

// The demo database backed up and restored whole with every table's old rows deleted, on the test
// server's strict mode: answered Yes, the check's question brings every row back with every value,
// a text's NULL aside. (Answered No, the usual statements stop at the first quote: restore.)
void TestBackupTools::demoRoundTrip()
{
    ScratchDatabase demo(qs("backuptools_demo"));
    QVERIFY_DB(DemoDatabase::create(demo.admin(), demo.name(), 300, true));
    QVERIFY_DB(openSession(*m_main->session(), demo.name()));
    ScratchDatabase original(qs("backuptools_demo_original"));
    // Beside the demo's tables, what a backup must not take as a table or a restore must not
    // lose: a view, a parent whose delete cascades into its child, a reserved name, case twins.
    QVERIFY_DB(demo.run({qs("USE %1").arg(demo.name()), qs("CREATE TABLE parent_t (id INT PRIMARY KEY) ENGINE=InnoDB"),
                         qs("CREATE TABLE child_t (id INT, pid INT, FOREIGN KEY (pid) REFERENCES parent_t (id) "
                            "ON DELETE CASCADE) ENGINE=InnoDB"),
                         qs("INSERT INTO parent_t VALUES (1), (2)"), qs("INSERT INTO child_t VALUES (10, 1), (20, 2)"),
                         qs("CREATE VIEW v_clients AS SELECT code_no FROM main_info1"),
                         qs("CREATE TABLE `order` (n INT)"), qs("INSERT INTO `order` VALUES (1)"),
                         qs("CREATE TABLE Staff (x INT)"), qs("INSERT INTO Staff VALUES (7)")}));
    QStringList compared{qs("parent_t"), qs("child_t"), qs("order"), qs("Staff")};
    for (const DemoTable &table : DemoDatabase::tables())
        compared << table.name;
    for (const QString &table : compared)
        QVERIFY_DB(original.run({qs("CREATE TABLE `%1` AS SELECT * FROM %2.`%1`").arg(table, demo.name())}));
    backUp({}); // leaves out the view, `order` and one of the twins (backupNamesWhatItLeftOut)
    freshOperator();
    QPointer<Restore> w = restoreAtTablePage(demo.name(), false, {}, true);
    QVERIFY(w);
    m_operator->answers = {Dialogs::Answer::Yes};
    click(w, "cmdrestore");
    if (!m_operator->runtimeErrors.isEmpty() && w)
        w->close();
    QTRY_VERIFY(!w);
    QCOMPARE(m_operator->asked.size(), 1);
    QVERIFY2(m_operator->asked.first().contains(qs("rows of main_info1 hold")), qPrintable(m_operator->asked.first()));
    QCOMPARE(m_operator->runtimeErrors, QStringList());
    QCOMPARE(m_operator->told.last(), qs("Restored Sucessfully"));
    for (const QString &table : compared) {
        const QStringList before = comparableRows(original, table);
        QVERIFY(!before.isEmpty());
        QCOMPARE(comparableRows(demo, table), before);
    }
}

// clang-format off
void TestBackupTools::clientRestore_data()
{
    QTest::addColumn<bool>("fullBackup");
    QTest::addColumn<bool>("deleteExisting");
    QTest::addColumn<QString>("typedAs");
    QTest::addColumn<QString>("restoredAs");
    QTest::addColumn<QStringList>("told");
    const char *first = "Please Enter the Code No to Restore Data", *last = "Restored Sucessfully";
    QTest::newRow("Yes: the same code, old rows replaced") << false << true << "" << "C00007" << sl({first, last});
    QTest::newRow("No: under a new code, taken as typed") << false << false << " c00050 " << "c00050" << sl({first, "Please Enter a new Code No", last});
    // bill 2, main_info1 1, notes 1, owner1 2 (by code, A00007 and C00001), visits 2, staff 1.
    QTest::newRow("from a full backup, the client's rows only") << true << false << " c00050 " << "c00050" << sl({first, "Please Enter a new Code No", "Restored Sucessfully\n9 rows of the archive were left out: they are not this client's."});
}
// clang-format on

// A client's archive goes back under the chosen code: its old rows go first, the code columns take
// the chosen code, and no other client's rows change, not even a name the code begins.
void TestBackupTools::clientRestore()
{
    QFETCH(bool, fullBackup);
    QFETCH(bool, deleteExisting);
    QFETCH(QString, typedAs);
    QFETCH(QString, restoredAs);
    // A differing code: main_info1 is written, owner1 is selected by a code_no it lacks, and visits
    // has no rows of that code. A full backup holds every client's rows.
    if (fullBackup) {
        makeArchive({});
    } else {
        makeArchive({}, qs("c00007"));
        QCOMPARE(archiveContents(archive()),
                 sl({"bill: name|amount / C00007|70", "main_info1: code_no|code|fname / C00007|A00007|Bob",
                     "notes: code_no|note / C00007|n7, \"quoted\" / C00007|", "visits: code|v"}));
    }
    ScratchDatabase target(qs("backuptools_client"));
    for (const QString &table : {qs("bill"), qs("main_info1"), qs("notes"), qs("owner1"), qs("staff"), qs("visits")})
        QVERIFY_DB(target.run({qs("CREATE TABLE %1 SELECT * FROM %2.%1").arg(table, m_db->name())}));
    QVERIFY_DB(target.run(
        {qs("UPDATE bill SET amount = 700 WHERE name = 'C00007'"), qs("INSERT INTO bill VALUES ('c00007x', 3)")}));
    const auto othersOf = [&target](const QString &code) {
        return target.rows(qs("SELECT * FROM bill WHERE name <> '%1' ORDER BY 1,2").arg(code)) +
               target.rows(qs("SELECT * FROM main_info1 WHERE code_no <> '%1' ORDER BY 1").arg(code)) +
               target.rows(qs("SELECT * FROM notes WHERE code_no <> '%1' ORDER BY 1,2").arg(code)) +
               target.rows(qs("SELECT * FROM visits ORDER BY 1")) + target.rows(qs("SELECT * FROM owner1 ORDER BY 1"));
    };
    const QStringList others = othersOf(restoredAs);

    m_operator->typed = {qs(" c00007 "), typedAs};
    m_operator->answer = deleteExisting ? Dialogs::Answer::Yes : Dialogs::Answer::No;
    QPointer<Restore> w = restoreAtTablePage(target.name(), true);
    QVERIFY(w);
    QVERIFY(!w->findChild<QCheckBox *>(qs("chkdel"))->isVisible());
    click(w, "cmdrestore");
    QTEST(m_operator->told, "told");
    QCOMPARE(m_operator->asked,
             sl({"The Code already exist in selected database, Do you want to Delete Existing Data"}));
    QCOMPARE(target.rows(qs("SELECT * FROM bill WHERE name = '%1'").arg(restoredAs)),
             QStringList{restoredAs + qs("|70")});
    QCOMPARE(target.rows(qs("SELECT * FROM main_info1 WHERE code_no = '%1'").arg(restoredAs)),
             QStringList{restoredAs + qs("|") + restoredAs + qs("|Bob")});
    QCOMPARE(target.rows(qs("SELECT * FROM notes WHERE code_no = '%1' ORDER BY 2").arg(restoredAs)),
             QStringList({restoredAs + qs("|"), restoredAs + qs("|n7, \"quoted\"")}));
    QCOMPARE(othersOf(restoredAs), others);
}

void TestBackupTools::restoreLostPartWay_data()
{
    QTest::addColumn<bool>("client");
    QTest::addColumn<bool>("ahead"); // inserts sent ahead of their answers, or one at a time
    QTest::newRow("table restore") << false << false;
    QTest::newRow("client restore") << true << false;
    QTest::newRow("table restore, sent ahead") << false << true;
    QTest::newRow("client restore, sent ahead") << true << true;
}

// A connection lost inside a table's inserts leaves every InnoDB table as it was before the
// restore, the one in hand included, and the operator is told so.
void TestBackupTools::restoreLostPartWay()
{
    QFETCH(bool, client);
    QFETCH(bool, ahead);
    makeArchive({}, client ? qs("c00007") : QString());
    ScratchDatabase target(qs("backuptools_lost"));
    const QString tables = qs("bill, main_info1, notes, owner1, staff, visits");
    for (const QString &table : tables.split(qs(", ")))
        QVERIFY_DB(target.run({qs("CREATE TABLE %1 SELECT * FROM %2.%1").arg(table, m_db->name())}));
    QVERIFY_DB(target.run({qs("UPDATE bill SET amount = amount + 1")}));
    const auto sums = [&] { return target.rows(qs("CHECKSUM TABLE ") + tables); };
    const QStringList before = sums();

    m_operator->typed = {qs("c00007")};
    m_operator->answer = Dialogs::Answer::Yes; // the old rows of the code go
    QPointer<Restore> w = restoreAtTablePage(target.name(), client, {}, true);
    QVERIFY(w);
    w->target().setPipelining(ahead ? DatabaseSession::Pipelining::Always : DatabaseSession::Pipelining::Never);
    const unsigned long id = w->target().connectionId();
    int inserts = 0;
    StatementHook::set([&](QByteArrayView sql) {
        if (sql.startsWith("Insert into") && ++inserts == 1)
            (void)m_db->admin().execute(qs("KILL CONNECTION %1").arg(id));
    });
    click(w, "cmdrestore");
    StatementHook::clear();
    QCOMPARE(sums(), before);
    const QStringList told = client ? m_operator->told : m_operator->runtimeErrors;
    QVERIFY(!told.isEmpty());
    QVERIFY2(told.last().contains(qs("The server rolled back the writes to bill (")) &&
                 told.last().contains(qs("the table is as it was before")),
             qPrintable(told.last()));
}

// Before its first statement the restore refuses, naming each, the entries it cannot restore
// whole: a view, a name the server reserves, columns the statements cannot name or the server
// generates, and a table whose delete would cascade into one that is not ticked. Nothing is
// written. Ticked together, a parent and its cascading child both come back whole, the child
// first. Nothing of a table changes before its file is known to fit: a file whose columns are not
// the table's fields stops the restore at that table, with the tables before it restored. A table
// the server cannot open (a merge table whose part was dropped) has no safety copy, which stops
// both restores before their first statement with the server's text.
void TestBackupTools::restoreChecksBeforeChanging()
{
    ScratchDatabase target(qs("backuptools_checks"));
    QVERIFY_DB(target.run({
        qs("CREATE TABLE people_base (id INT, name VARCHAR(10), secret VARCHAR(10))"),
        qs("INSERT INTO people_base VALUES (1, 'Ann', 's1')"),
        qs("CREATE VIEW people AS SELECT id, name FROM people_base"),
        qs("CREATE TABLE `order` (id INT)"),
        qs("CREATE TABLE cols (id INT, `desc` VARCHAR(10), `a b` INT)"),
        qs("CREATE TABLE gen (a INT, b INT AS (a + 1))"),
        qs("CREATE TABLE patients (id INT PRIMARY KEY) ENGINE=InnoDB"),
        qs("CREATE TABLE appointments (id INT, pid INT, FOREIGN KEY (pid) REFERENCES patients (id) ON DELETE CASCADE) "
           "ENGINE=InnoDB"),
        qs("INSERT INTO patients VALUES (1), (2), (3)"),
        qs("INSERT INTO appointments VALUES (10, 1), (30, 3)"),
        qs("CREATE TABLE staff (sname VARCHAR(20))"),
        qs("CREATE TABLE visits (code VARCHAR(10), v INT, extra INT)"),
        qs("INSERT INTO visits VALUES ('KEEP', 1, 1)"),
    }));
    QTemporaryDir files;
    const QList<std::pair<QString, QList<QStringList>>> entries{
        {qs("appointments"), {sl({"id", "pid"}), sl({"10", "1"}), sl({"20", "2"})}},
        {qs("cols"), {sl({"id", "desc", "a b"}), sl({"1", "x", "2"})}},
        {qs("gen"), {sl({"a", "b"}), sl({"1", "2"})}},
        {qs("order"), {sl({"id"}), sl({"1"})}},
        {qs("patients"), {sl({"id"}), sl({"1"}), sl({"2"})}},
        {qs("people"), {sl({"id", "name"}), sl({"1", "Ann"})}},
        {qs("staff"), {sl({"sname"}), sl({"Eve"})}},
        {qs("visits"), {sl({"code", "v"}), sl({"C00001", "1"})}},
    };
    QStringList names;
    for (const auto &[name, rows] : entries) {
        QVERIFY(writeGridFile(files.filePath(name), rows));
        names << name;
    }
    QVERIFY_DB(BackupArchive::pack(files.path(), names, archive()));
    const auto data = [&target] {
        return target.rows(qs("SELECT * FROM people_base")) + target.rows(qs("SELECT * FROM patients ORDER BY 1")) +
               target.rows(qs("SELECT * FROM appointments ORDER BY 1"));
    };
    const QStringList before = data();

    QPointer<Restore> w =
        restoreAtTablePage(target.name(), false, sl({"cols", "gen", "order", "patients", "people"}), true);
    QVERIFY(w);
    clearServerLog(target.admin());
    click(w, "cmdrestore");
    QCOMPARE(m_operator->told,
             QStringList{qs("Nothing was restored, because:\n"
                            "cols: its column \"desc\" is a word the server reserves, which the restore's statements "
                            "cannot carry\n"
                            "cols: its column \"a b\" cannot be named in the restore's statements (letters, digits, _ "
                            "and $)\n"
                            "gen: its column \"b\" is generated by the server, which takes no value for it\n"
                            "order: its name is a word the server reserves, which the restore's statements cannot "
                            "carry\n"
                            "people: it is a view of the table(s) people_base, not a table; its rows are restored "
                            "with them\n"
                            "patients: deleting its rows would also delete rows of appointments (ON DELETE CASCADE), "
                            "which is not ticked")});
    QCOMPARE(writes(statementsReceived(target.admin(), w->target().connectionId())), QStringList());
    QCOMPARE(data(), before);
    QVERIFY(w->checklist()->selectionPage()->isVisible());
    QVERIFY(w->findChild<QPushButton *>(qs("cmdexit"))->isVisible());

    tickOnly(w->checklist(), sl({"appointments", "patients"}));
    click(w, "cmdrestore");
    QCOMPARE(m_operator->told.last(), qs("Restored Sucessfully"));
    QCOMPARE(m_operator->runtimeErrors, QStringList());
    QTRY_VERIFY(!w);
    QCOMPARE(data(), sl({"1|Ann|s1", "1", "2", "10|1", "20|2"}));

    w = restoreAtTablePage(target.name(), false, sl({"staff", "visits"}), true);
    QVERIFY(w);
    clearServerLog(target.admin());
    click(w, "cmdrestore");
    QCOMPARE(m_operator->told.last(), qs("The restore stopped at the table visits, which was left as it was: its file "
                                         "has 2 columns, the table has 3 fields."));
    QCOMPARE(writes(statementsReceived(target.admin(), w->target().connectionId())),
             sl({"SET SESSION autocommit=0", "START TRANSACTION", "DELETE from staff where 1>0",
                 "Insert into staff (sname) values ('Eve')", "COMMIT", "SET SESSION autocommit=1"}));
    QTRY_VERIFY(!w);
    QCOMPARE(target.rows(qs("SELECT * FROM visits")), sl({"KEEP|1|1"}));
    freshOperator();

    QVERIFY_DB(
        target.run({qs("DROP TABLE staff"), qs("CREATE TABLE gone (sname VARCHAR(20)) ENGINE=MyISAM"),
                    qs("CREATE TABLE staff (sname VARCHAR(20)) ENGINE=MERGE UNION=(gone)"), qs("DROP TABLE gone")}));
    for (const bool clientOnly : {false, true}) {
        m_operator->typed = {qs("C09999")}; // not in the target
        w = restoreAtTablePage(target.name(), clientOnly, {qs("staff")});
        QVERIFY(w);
        click(w, "cmdrestore");
        QCOMPARE(m_operator->asked, QStringList());
        QCOMPARE(m_operator->told.last(), qs("Unable to open underlying table which is differently defined or of "
                                             "non-MyISAM type or doesn't exist"));
        QCOMPARE(m_operator->runtimeErrors, QStringList());
        QVERIFY(w->checklist()->selectionPage()->isVisible());
        w->close();
        QTRY_VERIFY(!w);
        freshOperator();
    }
}

// clang-format off
void TestBackupTools::backupCannotStart_data()
{
    QTest::addColumn<QString>("inTheWay"); // what stands where the backup writes
    QTest::addColumn<QString>("told");
    QTest::addColumn<QStringList>("asked");
    const QString name = BackupArchive::datedName(QDate::currentDate());
    // The folder's own path is unknown until the test runs: "%1" stands for it.
    QTest::newRow("a folder with the archive's name") << "archive folder" << qs("%1/") + name + qs(".zip: Is a directory") << sl({"The backup is already taken, are you want to delete it"});
    QTest::newRow("a file with the working folder's name") << "working file" << qs("%1/") + name + qs(": The folder cannot be created.") << QStringList();
}
// clang-format on

void TestBackupTools::backupCannotStart()
{
    QFETCH(QString, inTheWay);
    QFETCH(QString, told);
    QFETCH(QStringList, asked);
    if (inTheWay == qs("archive folder"))
        QVERIFY(QDir().mkpath(archive() + qs("/inside")));
    else
        write(dated(), "kept");
    const QStringList before = folderListing();
    QPointer<BackUp> w = backupAtTablePage();
    QVERIFY(w);
    QCOMPARE(m_operator->asked, asked);
    QCOMPARE(m_operator->told, QStringList{told.arg(QDir::toNativeSeparators(m_folder->path()))});
    // The path page stays for another choice; nothing in the folder was touched.
    QVERIFY(w->findChild<QFrame *>(qs("Frame1"))->isVisible());
    QCOMPARE(folderListing(), before);
    if (inTheWay != qs("archive folder"))
        QCOMPARE(read(dated()), QByteArray("kept"));
}

// clang-format off
void TestBackupTools::restoreRefusals_data()
{
    QTest::addColumn<QString>("refusal");
    QTest::addColumn<QStringList>("typed");
    QTest::addColumn<QStringList>("told");
    QTest::addColumn<QStringList>("asked");
    const char *code = "Please Enter the Code No to Restore Data";
    QTest::newRow("unknown database") << "unknown database" << QStringList() << sl({"Unknown database 'tabulon_t_no_such_db'"}) << QStringList();
    QTest::newRow("a table the target lacks, then No") << "missing table" << QStringList() << sl({"Restored Sucessfully"}) << sl({"This table is not exist in Database, Continue ?"});
    QTest::newRow("a code with a quote") << "client" << sl({"C00001'"}) << sl({code, "The Code No may not contain quotes or backslashes"}) << QStringList();
    QTest::newRow("a code with a backslash") << "client" << sl({"C00001\\"}) << sl({code, "The Code No may not contain quotes or backslashes"}) << QStringList();
    QTest::newRow("an empty code") << "client" << sl({""}) << sl({code}) << QStringList();
    QTest::newRow("a code of the target, then Cancel") << "client" << sl({"C00001"}) << sl({code}) << sl({"The Code already exist in selected database, Do you want to Delete Existing Data"});
    QTest::newRow("the target's connection lost") << "lost" << sl({"C00001"}) << sl({code}) << QStringList();
}
// clang-format on

void TestBackupTools::restoreRefusals()
{
    QFETCH(QString, refusal);
    QFETCH(QStringList, typed);
    QFETCH(QStringList, told);
    QFETCH(QStringList, asked);
    // An archive of another client's rows, with a table first that the database lacks.
    QTemporaryDir files;
    QVERIFY(writeGridFile(files.filePath(qs("absent")), {sl({"a"}), sl({"1"})}));
    QVERIFY(writeGridFile(files.filePath(qs("bill")), {sl({"name", "amount"}), sl({"C9", "9"})}));
    QVERIFY(writeGridFile(files.filePath(qs("main_info1")), {sl({"code_no", "code", "fname"}), sl({"C9", "C9", "x"})}));
    const QString zip = m_folder->filePath(qs("three.zip"));
    QVERIFY_DB(BackupArchive::pack(files.path(), sl({"absent", "bill", "main_info1"}), zip));
    const QStringList before = data();

    QPointer<Restore> w = qobject_cast<Restore *>(open("mnurestore"));
    QVERIFY(w);
    m_operator->typed = typed;
    w->findChild<QLineEdit *>(qs("txtpath"))->setText(zip);
    click(w, "cmdok");
    const QString database = refusal == qs("unknown database") ? qs("tabulon_t_no_such_db") : m_db->name();
    w->findChild<QLineEdit *>(qs("txtdbpath"))->setText(database);
    w->findChild<QCheckBox *>(qs("Check1"))->setChecked(refusal == qs("client") || refusal == qs("lost"));
    click(w, "Command2");
    if (refusal == qs("unknown database")) {
        QVERIFY(w->findChild<QFrame *>(qs("Frame2"))->isVisible());
    } else {
        m_operator->answer = refusal == qs("missing table") ? Dialogs::Answer::No : Dialogs::Answer::Cancel;
        if (refusal == qs("lost"))
            killSession(w->target().connectionId());
        click(w, "cmdrestore");
        // The lost connection's words depend on where the client library noticed it.
        const QString lost = refusal == qs("lost") ? m_operator->told.takeLast() : QString();
        QVERIFY2(refusal != qs("lost") || kLostConnection.match(lost).hasMatch(), qPrintable(lost));
        // A refused code brings back the table page with its exit button.
        QVERIFY(refusal != qs("client") ||
                (w->checklist()->selectionPage()->isVisible() && !w->checklist()->progressPage()->isVisible() &&
                 w->findChild<QPushButton *>(qs("cmdexit"))->isVisible()));
    }
    QCOMPARE(m_operator->told, told);
    QCOMPARE(m_operator->asked, asked);
    QCOMPARE(m_operator->runtimeErrors, QStringList());
    // "No" to the missing first table stops the run before the others: nothing was restored.
    QCOMPARE(data(), before);
}

QTEST_MAIN(TestBackupTools)
#include "test_backuptools.moc"
