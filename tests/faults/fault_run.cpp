// One run of a fault campaign: drives one tool of the real program through its windows (as the
// window tests do, with the operator stand-in answering every box), injects one fault during
// the work, lets the work end, and judges the tool on its own output. scripts/faults.sh runs it
// many times per tool and fault and prints the table.
//
//   fault_run --tool T --fault F --count          the work without a fault: prints its statement
//                                                count and keeps what it leaves as expected
//   fault_run --tool T --fault F --at N           the work with the fault at N (see below)
//
// Where the fault lands: a killed server or connection, and a folder made read-only, right
// before the N-th statement; a full disk leaves N % of the output's size free; the unpacked
// archive's files are removed or cut between the restore's pages. Options: --server-dir DIR (the
// private server's folder, for kill and restart), --work DIR (a folder for archives and scripts;
// for disk faults a small file system), --source FILE (the Access sample).
//
// Prints one line: "ending=<clean|false-success> data=<kept|expected|whole|partial-output|
// damaged|lost> fired=<0|1> ... told=<last message>". What the judge compares, item by item: the
// tables of the database, and the tool's own output (the archive at the final path, the script,
// the converted database, Import Data's table, the safety copy the work writes first). An item
// is as it was or as the work leaves it without a fault; a new output the work was told to
// have failed may be partial or missing; a table that
// is neither is damaged when one put-back of the safety copy this run wrote gives it back, and
// lost otherwise; an archive or script at its final path that is neither is lost. A success
// message while any item differs from the work without a fault is a false success. A hang is
// reported by the watchdog (exit 3); a crash is a signal.
#include "app/mdiform1.h"
#include "app/toolcatalog.h"
#include "backup/backuparchive.h"
#include "data/tabledata.h"
#include "db/progress.h"
#include "db/statementhook.h"
#include "files.h"
#include "grid/grid.h"
#include "operator.h"
#include "safety/putback.h"
#include "safety/safetynet.h"
#include "safety/safetysettings.h"
#include "testdb.h"
#include "ui/tablechecklist.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QCryptographicHash>
#include <QDialog>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QRadioButton>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <linux/capability.h>
#include <map>
#include <optional>
#include <sys/syscall.h>
#include <sys/types.h>
#include <thread>
#include <unistd.h>

using namespace tabulon;
using namespace tabulon::test;

namespace {

struct Options {
    QString tool, fault, serverDir, work, source;
    int at = 0;
    bool count = false;
};

const char *kDatabase = "faults";

[[noreturn]] void fail(const QString &why)
{
    std::printf("setup-failed %s\n", qPrintable(why));
    std::fflush(stdout);
    std::_Exit(4);
}

void check(const DbError &error, const char *what)
{
    if (error.isError())
        fail(qs(what) + qs(": ") + error.description);
}

// The server of the campaign: killed by its pid file, started again by the same script.
struct Server {
    QString dir;
    QString port() const { return serverAddress().section(u':', 1); }
    qint64 pid() const
    {
        QFile f(dir + qs("/mysqld.pid"));
        return f.open(QIODevice::ReadOnly) ? f.readAll().trimmed().toLongLong() : 0;
    }
    bool alive() const { return pid() > 0 && ::kill(static_cast<pid_t>(pid()), 0) == 0; }
    void kill() const
    {
        const auto p = static_cast<pid_t>(pid());
        if (p <= 0)
            return;
        ::kill(p, SIGKILL);
        for (int i = 0; i < 200 && ::kill(p, 0) == 0; ++i)
            QThread::msleep(25);
    }
    void start() const
    {
        const QString script = qs(TABULON_SOURCE_DIR "/scripts/private-mariadb.sh");
        QProcess start;
        start.start(qs("bash"), {script, qs("start"), dir, port()});
        if (!start.waitForFinished(120000) || start.exitCode() != 0)
            fail(qs("the server did not start again: ") + QString::fromUtf8(start.readAllStandardError()));
    }
};

QString fileHash(const QString &path)
{
    return QString::fromLatin1(QCryptographicHash::hash(read(path), QCryptographicHash::Sha256).toHex());
}

// The tables every run starts from: values the program's own statements carry unchanged, so
// that a finished work leaves the same state every time.
QStringList setupStatements()
{
    QStringList s{
        qs("CREATE TABLE people (id INT, name VARCHAR(30), city VARCHAR(20)) ENGINE=MyISAM"),
        qs("CREATE TABLE ledger (id INT PRIMARY KEY, code VARCHAR(10), amount DECIMAL(10,2), "
           "note VARCHAR(40)) ENGINE=InnoDB"),
        qs("CREATE TABLE main_info1 (code_no VARCHAR(10), code VARCHAR(10), fname VARCHAR(20)) "
           "ENGINE=InnoDB"),
        qs("CREATE TABLE owner1 (code VARCHAR(10), oname VARCHAR(20)) ENGINE=MyISAM"),
    };
    const char *cities[] = {"Oslo", "Rome", "Lima", "Oslo", "Kyiv"};
    QStringList people, ledger, clients, owners;
    const QChar zero = u'0';
    for (int i = 1; i <= 240; ++i) {
        people << qs("(%1,'Person %1','%2')").arg(i).arg(qs(cities[i % 5]));
        ledger
            << qs("(%1,'C%2',%3.%4,'entry %1')").arg(i).arg(i % 40, 5, 10, zero).arg(i * 7).arg(i % 100, 2, 10, zero);
    }
    for (int i = 1; i <= 40; ++i) {
        const QString code = qs("C%1").arg(i, 5, 10, zero);
        clients << qs("('%1','%1','Client %2')").arg(code).arg(i);
        owners << qs("('%1','Owner %2')").arg(code).arg(i);
    }
    s << qs("INSERT INTO people VALUES ") + people.join(u',') << qs("INSERT INTO ledger VALUES ") + ledger.join(u',')
      << qs("INSERT INTO main_info1 VALUES ") + clients.join(u',')
      << qs("INSERT INTO owner1 VALUES ") + owners.join(u',');
    return s;
}

const QStringList &allTables()
{
    static const QStringList t{qs("ledger"), qs("main_info1"), qs("owner1"), qs("people")};
    return t;
}

// Root writes through permission bits: while the work folder is read-only, the run goes without
// the capabilities that let it (on this thread, the one that does the work), and takes them
// back from its permitted set afterwards.
void setFileOverrides(bool on)
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct caps[2]{};
    if (::syscall(SYS_capget, &header, caps) != 0)
        return;
    const unsigned mask = (1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH) | (1u << CAP_FOWNER);
    caps[0].effective = on ? caps[0].effective | (caps[0].permitted & mask) : caps[0].effective & ~mask;
    (void)::syscall(SYS_capset, &header, caps);
}

// What the judge compares: item (a table, or the tool's output) to its state.
using State = std::map<QString, QString>;

QString stateText(const State &state)
{
    QStringList lines;
    for (const auto &[item, value] : state)
        lines << item + u'=' + value;
    return lines.join(u'\n');
}

State stateFromText(const QString &text)
{
    State state;
    for (const QString &line : text.split(u'\n', Qt::SkipEmptyParts))
        state[line.section(u'=', 0, 0)] = line.section(u'=', 1);
    return state;
}

class Run final {
public:
    explicit Run(Options options) : m_o(std::move(options)) { m_server.dir = m_o.serverDir; }

    int exec();

private:
    template <typename T = QWidget> T *child(QWidget *w, const char *name)
    {
        T *found = w ? w->findChild<T *>(qs(name)) : nullptr;
        if (!found)
            fail(qs("no control ") + qs(name));
        return found;
    }
    void click(QWidget *w, const char *name) { child<QPushButton>(w, name)->click(); }
    QWidget *openModal(const char *menu)
    {
        m_op->modals.clear();
        m_main->menuItem(qs(menu))->trigger();
        return m_op->modals.isEmpty() ? nullptr : m_op->modals.last();
    }
    bool tool(const char *name) const { return m_o.tool == QLatin1String(name); }
    bool fault(const char *name) const { return m_o.fault == QLatin1String(name); }
    void openMain();
    void prepare();
    void work();
    void backup(bool client);
    void makeArchive(bool client);
    TableData *tableData(const char *table)
    {
        m_main->menuItem(qs("mnuTabData"))->trigger();
        auto *w = qobject_cast<TableData *>(m_main->toolWindow(qs("mnuTabData")));
        if (!w)
            fail(qs("no table data window"));
        w->selectTable(child<QComboBox>(w, "Combo1")->findText(qs(table)));
        return w;
    }
    void damageUnpackedArchive();
    QString archivePath() const
    {
        return m_o.work + u'/' + BackupArchive::datedName(QDate::currentDate()) + qs(".zip");
    }
    QString scriptPath() const { return m_o.work + qs("/import.sql"); }
    QString safetyFolder() const { return m_o.work + qs("/safety"); }
    // The archive's tables and the hash of each unpacked file: equal to the work's archive
    // without a fault means whole and holding the tables as they are.
    QString archiveContent(const QString &path) const
    {
        if (!QFileInfo::exists(path))
            return qs("missing");
        QTemporaryDir into;
        QStringList tables;
        if (DbError error = BackupArchive::extract(path, into.filePath(qs("x")), &tables))
            return qs("unreadable");
        tables.sort();
        QStringList parts;
        for (const QString &table : std::as_const(tables))
            parts << table + u':' + fileHash(into.filePath(qs("x/")) + table).left(16);
        return parts.join(u',');
    }
    State state();
    // Outputs the work makes anew (the safety copy among them): partial or missing ones are
    // allowed after the work told its failure.
    static bool isNewOutput(const QString &item)
    {
        return item.startsWith(QLatin1String("faults_converted")) || item == QLatin1String("faults.imported") ||
               item == QLatin1String("copy");
    }
    // The complete safety copies this run wrote, newest first.
    QList<SafetyCopyInfo> newCopies() const
    {
        QList<SafetyCopyInfo> copies = SafetyNet::listCopies(safetyFolder());
        copies.removeIf([this](const SafetyCopyInfo &copy) { return m_copiesBefore.contains(copy.path); });
        return copies;
    }
    // The complete safety copies this run wrote, by their tables.
    QString copiesWritten() const
    {
        QStringList copies;
        for (const SafetyCopyInfo &copy : newCopies())
            copies << copy.tables.join(u',');
        copies.sort();
        return copies.isEmpty() ? qs("none") : copies.join(u';');
    }
    static bool isTable(const QString &item) { return item.startsWith(QLatin1String("faults.")); }
    // The run's own success message (for tools whose success is silence: no box at all), or
    // nothing when the tool tells no success.
    std::optional<bool> claimedSuccess() const;
    QString toldAll() const { return (m_op->told + m_op->runtimeErrors).join(u'\x1f'); }
    QString lastTold() const
    {
        return m_op->runtimeErrors.isEmpty() ? m_op->told.value(m_op->told.size() - 1) : m_op->runtimeErrors.last();
    }
    // The damage the work left, undone by one put-back of the safety copy this run wrote (the
    // first of them, taken before anything changed): true when every table is then as it was.
    bool putBackRestores(const State &before)
    {
        if (tool("put-back"))
            return false;
        const QList<SafetyCopyInfo> written = newCopies();
        if (written.isEmpty())
            return false;
        DatabaseSession session;
        check(openSession(session, qs(kDatabase)), "opening the put-back session");
        NoProgress progress;
        if (!PutBack::putBack(session, written.last(), progress))
            return false;
        const State now = state();
        for (const auto &[item, value] : before)
            if (isTable(item) && !isNewOutput(item) && now.at(item) != value)
                return false;
        return true;
    }
    // Bytes the work's output takes in the work folder (the size a full disk is measured in).
    qint64 outputBytes() const
    {
        if (tool("backup") || tool("client-backup"))
            return QFileInfo(archivePath()).size();
        if (tool("table-script"))
            return QFileInfo(scriptPath()).size();
        qint64 bytes = 0;
        for (const SafetyCopyInfo &copy : newCopies())
            bytes += copy.size;
        return bytes;
    }
    // Leaves `free` bytes free on the work folder's file system (a small one the campaign made);
    // returns what is free then.
    qint64 fillDisk(qint64 free)
    {
        const qint64 available = QStorageInfo(m_o.work).bytesAvailable();
        QFile filler(m_o.work + qs("/filler"));
        if (!filler.open(QIODevice::WriteOnly | QIODevice::Truncate))
            fail(qs("cannot fill the disk"));
        const QByteArray block(64 * 1024, 'x');
        for (qint64 left = available - free; left > 0; left -= block.size())
            if (filler.write(block.constData(), std::min<qint64>(left, block.size())) <= 0)
                break;
        filler.close();
        return QStorageInfo(m_o.work).bytesAvailable();
    }
    // The work folder loses its write bits (root loses the power to write through them); true
    // when nothing can be made in it any more.
    bool setWritable(bool writable)
    {
        if (!writable)
            setFileOverrides(false);
        QFile::setPermissions(m_o.work, writable ? QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner
                                                 : QFile::ReadOwner | QFile::ExeOwner);
        if (writable)
            setFileOverrides(true);
        QFile probe(m_o.work + qs("/.probe"));
        const bool created = probe.open(QIODevice::WriteOnly);
        if (created)
            probe.remove();
        return created == writable;
    }

    Options m_o;
    Server m_server;
    DatabaseSession m_admin;
    std::unique_ptr<Operator> m_op;
    std::unique_ptr<MDIForm1> m_main;
    QStringList m_copiesBefore; // safety copies that stood before the work
    QString m_toldWithoutFault; // every message of the work without a fault
    int m_statements = 0;
    bool m_fired = false;
};

void Run::openMain()
{
    m_op = std::make_unique<Operator>();
    m_op->answer = Dialogs::Answer::Yes;
    static QTemporaryDir settings;
    m_main = std::make_unique<MDIForm1>(AppEnvironment{settings.filePath(qs("settings.ini")), {}, m_o.work});
    m_main->Database = qs(kDatabase);
    m_main->Server = serverAddress();
    m_main->User = qs("dbop");
    registerTools(*m_main);
    m_main->resize(1000, 700);
    m_main->show();
    check(openSession(*m_main->session(), qs(kDatabase)), "opening the program's session");
    m_main->enableAllMenus();
    // The safety copies of this run go to the work folder (a small file system for disk faults).
    SafetySettings safety;
    safety.folder = safetyFolder();
    SafetySettings::store(safety);
}

void Run::prepare()
{
    check(openSession(m_admin, QString()), "opening the admin session");
    check(m_admin.execute(qs("DROP DATABASE IF EXISTS ") + qs(kDatabase)), "drop");
    check(m_admin.execute(qs("DROP DATABASE IF EXISTS faults_converted")), "drop");
    check(m_admin.execute(qs("CREATE DATABASE ") + qs(kDatabase)), "create");
    check(m_admin.execute(qs("USE ") + qs(kDatabase)), "use");
    for (const QString &statement : setupStatements())
        check(m_admin.execute(statement), "filling the tables");
    QFile::remove(scriptPath());
    openMain();
    // Archive-reading works start from an archive made beforehand, without a fault, and from
    // tables changed since, so that the work has something to put back.
    if (tool("restore") || tool("client-restore")) {
        makeArchive(tool("client-restore"));
        for (const char *change :
             {"UPDATE people SET city = 'Changed' WHERE id <= 20", "DELETE FROM ledger WHERE id > 200",
              "UPDATE main_info1 SET fname = 'Changed' WHERE code_no = 'C00007'",
              "UPDATE owner1 SET oname = 'Changed' WHERE code = 'C00007'"})
            check(m_admin.execute(qs(change)), "changing the tables after the backup");
    }
    // Put-back starts from a Save Table's copy and a table damaged after it: the work puts the
    // copy back, so "before" is the damaged table and "expected" the table of the copy.
    if (tool("put-back")) {
        QDir(safetyFolder()).removeRecursively();
        TableData *w = tableData("ledger");
        w->SaveTable();
        w->close();
        check(m_admin.execute(qs("DELETE FROM ledger WHERE id > 100")), "damaging the table");
        check(m_admin.execute(qs("UPDATE people SET city='Nowhere'")), "damaging the table");
    }
    // An earlier archive of the same day, of the tables before a change, stands at the final
    // path: the work replaces it whole or leaves it.
    if (tool("backup") || tool("client-backup")) {
        makeArchive(false);
        check(m_admin.execute(qs("UPDATE owner1 SET oname = 'Changed' WHERE code = 'C00007'")),
              "changing the tables after the backup");
    }
    for (const SafetyCopyInfo &copy : SafetyNet::listCopies(safetyFolder()))
        m_copiesBefore << copy.path;
}

// A backup into the work folder: the whole database, or client C00007's rows.
void Run::backup(bool client)
{
    if (client)
        m_op->typed = {qs("C00007")};
    QWidget *w = openModal("mnubackup");
    if (!w)
        fail(qs("the backup window did not open"));
    child<QLineEdit>(w, "txtpath")->setText(m_o.work + u'/');
    click(w, "cmdok");
    child<QCheckBox>(w, "Check1")->setChecked(client);
    click(w, "cmdBackup");
}

void Run::makeArchive(bool client)
{
    QFile::remove(archivePath());
    backup(client);
    if (!QFile::exists(archivePath()))
        fail(qs("no archive was made: ") + m_op->told.join(qs(" / ")));
    m_op->told.clear();
    m_op->typed.clear();
    // The window closes on its own; its command comes back once it is gone.
    for (int i = 0; i < 100 && !m_main->menuItem(qs("mnubackup"))->isEnabled(); ++i) {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QTest::qWait(20);
    }
}

// Between the restore's pages, what it unpacked is what it will read: the files go (all of
// them), or the last table's file is cut to its first half.
void Run::damageUnpackedArchive()
{
    const QString unpacked = archivePath().chopped(4);
    QStringList files = QDir(unpacked).entryList(QDir::Files, QDir::Name);
    if (files.isEmpty())
        return;
    if (fault("archive-gone")) {
        for (const QString &name : std::as_const(files))
            m_fired = QFile::remove(unpacked + u'/' + name) || m_fired;
        return;
    }
    QFile f(unpacked + u'/' + files.last());
    const qint64 size = f.size();
    m_fired = size > 1 && f.resize(size / 2);
}

// The work of one tool, from its menu command to its end.
void Run::work()
{
    if (tool("put-back")) {
        QWidget *w = openModal("mnusafety");
        if (!w)
            fail(qs("the safety copies window did not open"));
        click(w, "cmdputback");
    } else if (tool("save-table") || tool("delete-record") || tool("safety-copy")) {
        TableData *w = tableData(tool("save-table") ? "ledger" : "people");
        if (tool("save-table")) {
            w->SaveTable();
        } else {
            w->grid()->setCurrentCell(3, 2);
            w->DeleteRecord();
        }
    } else if (tool("replace-all")) {
        m_main->menuItem(qs("mnureplace"))->trigger();
        QWidget *w = m_main->toolWindow(qs("mnureplace"));
        child<QLineEdit>(w, "txtfind")->setText(qs("Oslo"));
        child<QLineEdit>(w, "txtreplace")->setText(qs("Paris"));
        child<QComboBox>(w, "cbofield")->setCurrentIndex(1);
        click(w, "cmdfind");
        if (child<QPushButton>(w, "cmdrepall")->isEnabled())
            click(w, "cmdrepall");
    } else if (tool("search")) {
        m_main->menuItem(qs("mnusearch"))->trigger();
        QWidget *w = m_main->toolWindow(qs("mnusearch"));
        child<QRadioButton>(w, "optall")->click();
        child<QLineEdit>(w, "txtsdata")->setText(qs("Z99999"));
        click(w, "cmdsearch");
    } else if (tool("check") || tool("repair")) {
        QWidget *w = openModal(tool("check") ? "mnuchktab" : "mnureptab");
        child<TableChecklist>(w, "TableChecklist")->selectAll();
        click(w, tool("check") ? "cmdcheck" : "cmdrepair");
    } else if (tool("backup") || tool("client-backup")) {
        backup(tool("client-backup"));
    } else if (tool("restore") || tool("client-restore")) {
        if (tool("client-restore"))
            m_op->typed = {qs("C00007"), qs("C00007")};
        QWidget *w = openModal("mnurestore");
        child<QLineEdit>(w, "txtpath")->setText(archivePath());
        click(w, "cmdok");
        child<QLineEdit>(w, "txtdbpath")->setText(qs(kDatabase));
        child<QCheckBox>(w, "Check1")->setChecked(tool("client-restore"));
        click(w, "Command2");
        if (auto *all = w->findChild<QCheckBox *>(qs("chkdel")))
            all->setChecked(true);
        child<TableChecklist>(w, "TableChecklist")->selectAll();
        if (!m_o.count && (fault("archive-gone") || fault("archive-swapped")))
            damageUnpackedArchive();
        click(w, "cmdrestore");
    } else if (tool("convert")) {
        m_op->chosenFile = m_o.source;
        QWidget *w = openModal("mnuconvertdb");
        if (!w)
            fail(qs("the conversion window did not open: ") + m_op->told.join(u'/'));
        child<QLineEdit>(w, "Text2")->setText(qs("faults_converted"));
        click(w, "Command2");
    } else if (tool("import-data")) {
        QWidget *w = openModal("mnuimpdata");
        child<QLineEdit>(w, "txtsource")->setText(m_o.source);
        QTest::keyClick(child<QLineEdit>(w, "txtsource"), Qt::Key_Return);
        auto *tables = child<QComboBox>(w, "cbotable");
        tables->setCurrentIndex(std::max(0, tables->findText(qs("Customers"))));
        child<QRadioButton>(w, "optnew")->click();
        child<QLineEdit>(w, "txtnewtable")->setText(qs("imported"));
        click(w, "cmdimport");
    } else if (tool("table-script")) {
        m_main->menuItem(qs("mnuctf"))->trigger();
    } else {
        fail(qs("unknown tool ") + m_o.tool);
    }
}

std::optional<bool> Run::claimedSuccess() const
{
    const QString told = lastTold();
    if (tool("backup") || tool("client-backup"))
        return told.startsWith(QLatin1String("Backup Sucessfully"));
    if (tool("restore") || tool("client-restore"))
        return told == QLatin1String("Restored Sucessfully");
    if (tool("table-script"))
        return told == QLatin1String("Finished");
    if (tool("import-data"))
        return told.startsWith(QLatin1String("The import is complete."));
    if (tool("put-back"))
        return told.startsWith(QLatin1String("Put back "));
    if (tool("repair"))
        return told == QLatin1String("Database Repaired Sucessfully");
    if (tool("check"))
        return told == QLatin1String("No Error Found.") || told == QLatin1String("Completed.");
    if (tool("search"))
        return std::nullopt;
    // Save Table, Delete Record, Replace All and the conversion end without a success message:
    // they claim success by telling no more than the same work without a fault tells (nothing,
    // or for the conversion the sample's tables it always refuses).
    return toldAll() == m_toldWithoutFault;
}

// What a finished work leaves behind: every table, and the tool's own output.
State Run::state()
{
    if (!m_admin.isOpen() || m_admin.execute(qs("DO 1")).isError())
        check(openSession(m_admin, qs(kDatabase)), "reopening the admin session");
    State s;
    QStringList tables = allTables();
    if (tool("import-data"))
        tables << qs("imported");
    const auto checksum = [this](const QString &table) {
        auto rs = m_admin.openQuery(qs("CHECKSUM TABLE ") + table + qs(" EXTENDED"));
        return (rs ? rs->value(0, 1) : std::nullopt).value_or(qs("missing"));
    };
    for (const QString &table : std::as_const(tables))
        s[qs("faults.") + table] = checksum(qs("faults.") + table);
    if (tool("convert")) {
        auto names = m_admin.openQuery(qs("SHOW TABLES FROM faults_converted"));
        QStringList converted;
        for (qsizetype r = 0; names && r < names->recordCount(); ++r)
            converted << names->value(r, 0).value_or(QString());
        s[qs("faults_converted")] = names ? converted.join(u',') : qs("missing");
        for (const QString &table : std::as_const(converted))
            s[qs("faults_converted.") + table] = checksum(qs("faults_converted.`") + table + u'`');
    }
    if (tool("table-script"))
        s[qs("script")] = QFileInfo::exists(scriptPath()) ? fileHash(scriptPath()) : qs("missing");
    if (tool("backup") || tool("client-backup"))
        s[qs("archive")] = archiveContent(archivePath());
    s[qs("copy")] = copiesWritten();
    return s;
}

int Run::exec()
{
    prepare();
    const State before = state();
    const QString expectedFile = m_o.work + qs("/expected-") + m_o.tool;

    QFile f(expectedFile);
    const QStringList kept =
        !m_o.count && f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()).split(qs("\n--\n")) : QStringList();
    f.close();
    if (!m_o.count && kept.size() != 3)
        fail(qs("no expected state: run with --count first"));
    const State expected = m_o.count ? State{} : stateFromText(kept.at(1));
    m_toldWithoutFault = m_o.count ? QString() : kept.at(2);

    StatementHook::set([this](QByteArrayView) {
        ++m_statements;
        if (m_o.count || m_fired || m_statements != m_o.at)
            return;
        if (fault("server-kill")) {
            m_server.kill();
            m_fired = true;
        } else if (fault("conn-kill")) {
            auto ids = m_admin.openQuery(
                qs("SELECT id FROM information_schema.processlist WHERE user='dbop' AND id <> CONNECTION_ID()"));
            for (qsizetype r = 0; ids && r < ids->recordCount(); ++r)
                m_fired = !m_admin.execute(qs("KILL CONNECTION ") + ids->value(r, 0).value_or(QString())).isError() ||
                          m_fired;
        } else if (fault("read-only")) {
            m_fired = setWritable(false);
        }
    });
    if (const qint64 needed = m_o.count ? 0 : kept.at(0).toLongLong(); fault("disk-full") && needed > 0)
        m_fired = fillDisk(needed * m_o.at / 100) < needed;
    // Any work that has not ended 30 seconds after it started is a hang.
    std::thread([] {
        std::this_thread::sleep_for(std::chrono::seconds(30));
        std::printf("ending=hang\n");
        std::fflush(stdout);
        std::_Exit(3);
    }).detach();
    work();
    StatementHook::clear();
    if (!m_o.count && fault("read-only"))
        (void)setWritable(true);
    QFile::remove(m_o.work + qs("/filler"));
    QApplication::processEvents();

    if (!m_server.alive())
        m_server.start();
    const State after = state();
    const std::optional<bool> success = claimedSuccess();
    if (m_o.count) {
        m_toldWithoutFault = toldAll();
        if (claimedSuccess() == false)
            fail(qs("the work without a fault told no success: ") + lastTold());
        if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
            fail(qs("cannot keep the expected state"));
        f.write(QByteArray::number(outputBytes()) + "\n--\n" + stateText(after).toUtf8() + "\n--\n" +
                m_toldWithoutFault.toUtf8());
        std::printf("statements %d\n", m_statements);
        std::fflush(stdout);
        return 0;
    }

    // Item by item: as it was, as the work leaves it, or neither.
    QStringList neither;
    bool allBefore = true, allExpected = true;
    for (const auto &[item, value] : after) {
        const bool wasBefore = before.count(item) && before.at(item) == value;
        const bool asExpected = expected.count(item) && expected.at(item) == value;
        allBefore = allBefore && wasBefore;
        allExpected = allExpected && asExpected;
        if (!wasBefore && !asExpected)
            neither << item;
    }
    QString data = allBefore ? qs("kept") : allExpected ? qs("expected") : qs("whole");
    if (!neither.isEmpty()) {
        const bool tablesOnly =
            std::all_of(neither.begin(), neither.end(), [](const QString &i) { return isTable(i) || isNewOutput(i); });
        const bool outputsOnly = std::all_of(neither.begin(), neither.end(), isNewOutput);
        if (outputsOnly && success != true)
            data = qs("partial-output");
        else if (tablesOnly && putBackRestores(before))
            data = qs("damaged");
        else
            data = qs("lost");
    }
    const bool falseSuccess = success == true && !allExpected;
    const QString told = lastTold();
    std::printf("ending=%s data=%s fired=%d statements=%d neither=%s told=%s\n",
                falseSuccess ? "false-success" : "clean", qPrintable(data), m_fired ? 1 : 0, m_statements,
                qPrintable(neither.join(u',')), qPrintable(QString(told).replace(u'\n', u' ').left(160)));
    if (data == qs("lost") || falseSuccess)
        std::printf("before:\n%s\nafter:\n%s\nexpected:\n%s\n", qPrintable(stateText(before)),
                    qPrintable(stateText(after)), qPrintable(stateText(expected)));
    std::fflush(stdout);
    m_main.reset();
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    Options o;
    QString at;
    const std::map<QString, QString *> values{{qs("--tool"), &o.tool}, {qs("--fault"), &o.fault},
                                              {qs("--at"), &at},       {qs("--server-dir"), &o.serverDir},
                                              {qs("--work"), &o.work}, {qs("--source"), &o.source}};
    const QStringList args = QCoreApplication::arguments();
    for (qsizetype i = 1; i < args.size(); ++i) {
        if (args[i] == qs("--count"))
            o.count = true;
        else if (const auto value = values.find(args[i]); value != values.end())
            *value->second = args.value(++i);
    }
    o.at = at.toInt();
    if (o.tool.isEmpty() || o.work.isEmpty() || o.serverDir.isEmpty())
        fail(qs("usage: fault_run --tool T --fault F (--count | --at N) --server-dir DIR --work DIR"));
    return Run(o).exec();
}
