// One run of a fault campaign: drives one tool of the real program through its windows (as the
// window tests do, with the operator stand-in answering every box), injects one fault right
// before the N-th statement the work sends, lets the work end, and judges the outcome and the
// data. scripts/faults.sh runs it many times per tool and fault and prints the table.
//
//   fault_run --tool T --fault F --count          the work without a fault: prints its statement
//                                                count and keeps the state it leaves as expected
//   fault_run --tool T --fault F --at N           the work with the fault before statement N
//
// Options: --server-dir DIR (the private server's folder, for kill and restart), --work DIR (a
// folder for archives and scripts; for disk faults a small file system), --source FILE (the
// Access sample). Prints one line: "ending=<clean|false-success> data=<kept|expected|recovered|
// lost> told=<last message>". A hang is reported by the watchdog (exit 3); a crash is a signal.
#include "app/mdiform1.h"
#include "app/toolcatalog.h"
#include "backup/backuparchive.h"
#include "data/tabledata.h"
#include "db/progress.h"
#include "db/statementhook.h"
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
#include <QLineEdit>
#include <QPointer>
#include <QProcess>
#include <QPushButton>
#include <QRadioButton>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QThread>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
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
        fail(QString::fromUtf8(what) + QStringLiteral(": ") + error.description);
}

// The server of the campaign: killed by its pid file, started again by the same script.
struct Server {
    QString dir;
    QString port() const { return serverAddress().section(QLatin1Char(':'), 1); }
    qint64 pid() const
    {
        QFile f(dir + QStringLiteral("/mysqld.pid"));
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
        const QString script = QStringLiteral(TABULON_SOURCE_DIR "/scripts/private-mariadb.sh");
        QProcess start;
        start.start(QStringLiteral("bash"), {script, QStringLiteral("start"), dir, port()});
        if (!start.waitForFinished(120000) || start.exitCode() != 0)
            fail(QStringLiteral("the server did not start again: ") + QString::fromUtf8(start.readAllStandardError()));
    }
};

QString checksumsOf(DatabaseSession &admin, const QStringList &tables)
{
    QStringList sums;
    for (const QString &table : tables) {
        auto rs = admin.openQuery(QStringLiteral("CHECKSUM TABLE ") + table + QStringLiteral(" EXTENDED"));
        if (!rs) {
            sums << table + QStringLiteral("=error ") + rs.error().description;
            continue;
        }
        const auto value = rs->value(0, 1);
        sums << table + QLatin1Char('=') + value.value_or(QStringLiteral("NULL"));
    }
    return sums.join(QLatin1Char(' '));
}

QByteArray fileHash(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(&f);
    return hash.result().toHex();
}

// The tables every run starts from: values the program's own statements carry unchanged, so
// that a finished work leaves the same state every time.
QStringList setupStatements()
{
    QStringList s{
        QStringLiteral("CREATE TABLE people (id INT, name VARCHAR(30), city VARCHAR(20)) ENGINE=MyISAM"),
        QStringLiteral("CREATE TABLE ledger (id INT PRIMARY KEY, code VARCHAR(10), amount DECIMAL(10,2), "
                       "note VARCHAR(40)) ENGINE=InnoDB"),
        QStringLiteral("CREATE TABLE main_info1 (code_no VARCHAR(10), code VARCHAR(10), fname VARCHAR(20)) "
                       "ENGINE=InnoDB"),
        QStringLiteral("CREATE TABLE owner1 (code VARCHAR(10), oname VARCHAR(20)) ENGINE=MyISAM"),
    };
    const char *cities[] = {"Oslo", "Rome", "Lima", "Oslo", "Kyiv"};
    QStringList people, ledger, clients, owners;
    for (int i = 1; i <= 240; ++i) {
        people << QStringLiteral("(%1,'Person %1','%2')").arg(i).arg(QString::fromUtf8(cities[i % 5]));
        ledger << QStringLiteral("(%1,'C%2',%3.%4,'entry %1')")
                      .arg(i)
                      .arg(i % 40, 5, 10, QLatin1Char('0'))
                      .arg(i * 7)
                      .arg(i % 100, 2, 10, QLatin1Char('0'));
    }
    for (int i = 1; i <= 40; ++i) {
        const QString code = QStringLiteral("C%1").arg(i, 5, 10, QLatin1Char('0'));
        clients << QStringLiteral("('%1','%1','Client %2')").arg(code).arg(i);
        owners << QStringLiteral("('%1','Owner %2')").arg(code).arg(i);
    }
    s << QStringLiteral("INSERT INTO people VALUES ") + people.join(QLatin1Char(','))
      << QStringLiteral("INSERT INTO ledger VALUES ") + ledger.join(QLatin1Char(','))
      << QStringLiteral("INSERT INTO main_info1 VALUES ") + clients.join(QLatin1Char(','))
      << QStringLiteral("INSERT INTO owner1 VALUES ") + owners.join(QLatin1Char(','));
    return s;
}

const QStringList &allTables()
{
    static const QStringList t{QStringLiteral("ledger"), QStringLiteral("main_info1"), QStringLiteral("owner1"),
                               QStringLiteral("people")};
    return t;
}

class Run final {
public:
    explicit Run(Options options) : m_o(std::move(options)) { m_server.dir = m_o.serverDir; }

    int exec();

private:
    template <typename T = QWidget> T *child(QWidget *w, const char *name)
    {
        T *found = w ? w->findChild<T *>(QString::fromUtf8(name)) : nullptr;
        if (!found)
            fail(QStringLiteral("no control ") + QString::fromUtf8(name));
        return found;
    }
    void click(QWidget *w, const char *name) { child<QPushButton>(w, name)->click(); }
    QWidget *openModal(const char *menu)
    {
        m_op->modals.clear();
        m_main->menuItem(QString::fromUtf8(menu))->trigger();
        return m_op->modals.isEmpty() ? nullptr : m_op->modals.last();
    }
    void openMain();
    void prepare();
    void work();
    void makeArchive(bool client);
    QString archivePath() const
    {
        return m_o.work + QLatin1Char('/') + BackupArchive::datedName(QDate::currentDate()) + QStringLiteral(".zip");
    }
    bool archiveWhole(const QString &path) const
    {
        QTemporaryDir into;
        QStringList tables;
        return !BackupArchive::extract(path, into.path(), &tables).isError();
    }
    QString state();
    // The damage the work left, undone by one put-back of the newest safety copy: true when the
    // tables are then as they were before the work.
    bool recovered(const QString &before)
    {
        const QList<SafetyCopyInfo> copies = SafetyNet::listCopies(m_o.work + QStringLiteral("/safety"));
        if (copies.isEmpty() || m_o.tool == QStringLiteral("put-back"))
            return false;
        DatabaseSession session;
        check(openSession(session, QString::fromUtf8(kDatabase)), "opening the put-back session");
        NoProgress progress;
        if (!PutBack::putBack(session, copies.first(), progress))
            return false;
        return state() == before;
    }
    // Leaves `free` bytes free on the work folder's file system (a small one the campaign made).
    void fillDisk(qint64 free)
    {
        const qint64 available = QStorageInfo(m_o.work).bytesAvailable();
        QFile filler(m_o.work + QStringLiteral("/filler"));
        if (!filler.open(QIODevice::WriteOnly | QIODevice::Truncate))
            fail(QStringLiteral("cannot fill the disk"));
        const QByteArray block(64 * 1024, 'x');
        for (qint64 left = available - free; left > 0; left -= block.size())
            if (filler.write(block.constData(), std::min<qint64>(left, block.size())) <= 0)
                break;
        filler.close();
    }
    // Root writes through permission bits, so as root the folder's own file system is mounted
    // read-only instead; elsewhere the folder loses its write bits.
    void setWritable(bool writable)
    {
        if (::geteuid() == 0)
            QProcess::execute(QStringLiteral("mount"),
                              {QStringLiteral("-o"),
                               writable ? QStringLiteral("remount,rw") : QStringLiteral("remount,ro"), m_o.work});
        else
            QFile::setPermissions(m_o.work, writable ? QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner
                                                     : QFile::ReadOwner | QFile::ExeOwner);
    }

    Options m_o;
    Server m_server;
    DatabaseSession m_admin;
    std::unique_ptr<Operator> m_op;
    std::unique_ptr<MDIForm1> m_main;
    QByteArray m_earlierArchive; // hash of the archive that stood at the final path before the work
    int m_statements = 0;
    bool m_fired = false;
};

void Run::openMain()
{
    m_op = std::make_unique<Operator>();
    m_op->answer = Dialogs::Answer::Yes;
    static QTemporaryDir settings;
    m_main =
        std::make_unique<MDIForm1>(AppEnvironment{settings.filePath(QStringLiteral("settings.ini")), {}, m_o.work});
    m_main->Database = QString::fromUtf8(kDatabase);
    m_main->Server = serverAddress();
    m_main->User = QStringLiteral("dbop");
    registerTools(*m_main);
    m_main->resize(1000, 700);
    m_main->show();
    check(openSession(*m_main->session(), QString::fromUtf8(kDatabase)), "opening the program's session");
    m_main->enableAllMenus();
    // The safety copies of this run go to the work folder (a small file system for disk faults).
    SafetySettings safety;
    safety.folder = m_o.work + QStringLiteral("/safety");
    SafetySettings::store(safety);
}

void Run::prepare()
{
    check(openSession(m_admin, QString()), "opening the admin session");
    check(m_admin.execute(QStringLiteral("DROP DATABASE IF EXISTS ") + QString::fromUtf8(kDatabase)), "drop");
    check(m_admin.execute(QStringLiteral("DROP DATABASE IF EXISTS faults_converted")), "drop");
    check(m_admin.execute(QStringLiteral("CREATE DATABASE ") + QString::fromUtf8(kDatabase)), "create");
    check(m_admin.execute(QStringLiteral("USE ") + QString::fromUtf8(kDatabase)), "use");
    for (const QString &statement : setupStatements())
        check(m_admin.execute(statement), "filling the tables");
    openMain();
    // Archive-reading works start from an archive made beforehand, without a fault.
    if (m_o.tool == QStringLiteral("restore") || m_o.tool == QStringLiteral("client-restore"))
        makeArchive(m_o.tool == QStringLiteral("client-restore"));
    // Put-back starts from a Save Table's copy and a table damaged after it: the work puts the
    // copy back, so "before" is the damaged table and "expected" the table of the copy.
    if (m_o.tool == QStringLiteral("put-back")) {
        QDir(m_o.work + QStringLiteral("/safety")).removeRecursively();
        m_main->menuItem(QStringLiteral("mnuTabData"))->trigger();
        auto *w = qobject_cast<TableData *>(m_main->toolWindow(QStringLiteral("mnuTabData")));
        if (!w)
            fail(QStringLiteral("no table data window"));
        w->selectTable(child<QComboBox>(w, "Combo1")->findText(QStringLiteral("ledger")));
        w->SaveTable();
        w->close();
        check(m_admin.execute(QStringLiteral("DELETE FROM ledger WHERE id > 100")), "damaging the table");
        check(m_admin.execute(QStringLiteral("UPDATE people SET city='Nowhere'")), "damaging the table");
    }
    // An earlier archive of the same day stands at the final path: it must survive the work.
    if (m_o.tool == QStringLiteral("backup") || m_o.tool == QStringLiteral("client-backup")) {
        QFile::remove(archivePath());
        makeArchive(false);
        m_earlierArchive = fileHash(archivePath());
    }
}

void Run::makeArchive(bool client)
{
    QFile::remove(archivePath());
    if (client)
        m_op->typed = {QStringLiteral("C00007")};
    QWidget *w = openModal("mnubackup");
    if (!w)
        fail(QStringLiteral("the backup window did not open"));
    child<QLineEdit>(w, "txtpath")->setText(m_o.work + QLatin1Char('/'));
    click(w, "cmdok");
    child<QCheckBox>(w, "Check1")->setChecked(client);
    click(w, "cmdBackup");
    if (!QFile::exists(archivePath()))
        fail(QStringLiteral("no archive was made: ") + m_op->told.join(QStringLiteral(" / ")));
    m_op->told.clear();
    m_op->typed.clear();
    // The window closes on its own; its command comes back once it is gone.
    for (int i = 0; i < 100 && !m_main->menuItem(QStringLiteral("mnubackup"))->isEnabled(); ++i) {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QTest::qWait(20);
    }
}

// The work of one tool, from its menu command to its end.
void Run::work()
{
    const QString &t = m_o.tool;
    if (t == QStringLiteral("put-back")) {
        QWidget *w = openModal("mnusafety");
        if (!w)
            fail(QStringLiteral("the safety copies window did not open"));
        click(w, "cmdputback");
    } else if (t == QStringLiteral("save-table") || t == QStringLiteral("delete-record") ||
               t == QStringLiteral("safety-copy")) {
        m_main->menuItem(QStringLiteral("mnuTabData"))->trigger();
        auto *w = qobject_cast<TableData *>(m_main->toolWindow(QStringLiteral("mnuTabData")));
        if (!w)
            fail(QStringLiteral("no table data window"));
        auto *combo = child<QComboBox>(w, "Combo1");
        w->selectTable(
            combo->findText(t == QStringLiteral("save-table") ? QStringLiteral("ledger") : QStringLiteral("people")));
        if (t == QStringLiteral("save-table")) {
            w->SaveTable();
        } else {
            w->grid()->setCurrentCell(3, 2);
            w->DeleteRecord();
        }
    } else if (t == QStringLiteral("replace-all")) {
        m_main->menuItem(QStringLiteral("mnureplace"))->trigger();
        QWidget *w = m_main->toolWindow(QStringLiteral("mnureplace"));
        child<QLineEdit>(w, "txtfind")->setText(QStringLiteral("Oslo"));
        child<QLineEdit>(w, "txtreplace")->setText(QStringLiteral("Paris"));
        child<QComboBox>(w, "cbofield")->setCurrentIndex(1);
        click(w, "cmdfind");
        if (child<QPushButton>(w, "cmdrepall")->isEnabled())
            click(w, "cmdrepall");
    } else if (t == QStringLiteral("search")) {
        m_main->menuItem(QStringLiteral("mnusearch"))->trigger();
        QWidget *w = m_main->toolWindow(QStringLiteral("mnusearch"));
        child<QRadioButton>(w, "optall")->click();
        child<QLineEdit>(w, "txtsdata")->setText(QStringLiteral("Z99999"));
        click(w, "cmdsearch");
    } else if (t == QStringLiteral("check") || t == QStringLiteral("repair")) {
        QWidget *w = openModal(t == QStringLiteral("check") ? "mnuchktab" : "mnureptab");
        child<TableChecklist>(w, "TableChecklist")->selectAll();
        click(w, t == QStringLiteral("check") ? "cmdcheck" : "cmdrepair");
    } else if (t == QStringLiteral("backup") || t == QStringLiteral("client-backup")) {
        if (t == QStringLiteral("client-backup"))
            m_op->typed = {QStringLiteral("C00007")};
        QWidget *w = openModal("mnubackup");
        child<QLineEdit>(w, "txtpath")->setText(m_o.work + QLatin1Char('/'));
        click(w, "cmdok");
        child<QCheckBox>(w, "Check1")->setChecked(t == QStringLiteral("client-backup"));
        click(w, "cmdBackup");
    } else if (t == QStringLiteral("restore") || t == QStringLiteral("client-restore")) {
        if (t == QStringLiteral("client-restore"))
            m_op->typed = {QStringLiteral("C00007"), QStringLiteral("C00007")};
        QWidget *w = openModal("mnurestore");
        child<QLineEdit>(w, "txtpath")->setText(archivePath());
        click(w, "cmdok");
        if (m_o.fault == QStringLiteral("archive-gone"))
            QFile::remove(archivePath());
        if (m_o.fault == QStringLiteral("archive-swapped")) {
            QFile f(archivePath());
            if (f.open(QIODevice::WriteOnly | QIODevice::Truncate))
                f.write("PK\x03\x04 not an archive any more");
        }
        child<QLineEdit>(w, "txtdbpath")->setText(QString::fromUtf8(kDatabase));
        child<QCheckBox>(w, "Check1")->setChecked(t == QStringLiteral("client-restore"));
        click(w, "Command2");
        if (auto *all = w->findChild<QCheckBox *>(QStringLiteral("chkdel")))
            all->setChecked(true);
        child<TableChecklist>(w, "TableChecklist")->selectAll();
        click(w, "cmdrestore");
    } else if (t == QStringLiteral("convert")) {
        m_op->chosenFile = m_o.source;
        QWidget *w = openModal("mnuconvertdb");
        if (!w)
            fail(QStringLiteral("the conversion window did not open: ") + m_op->told.join(QLatin1Char('/')));
        child<QLineEdit>(w, "Text2")->setText(QStringLiteral("faults_converted"));
        click(w, "Command2");
    } else if (t == QStringLiteral("import-data")) {
        QWidget *w = openModal("mnuimpdata");
        child<QLineEdit>(w, "txtsource")->setText(m_o.source);
        QTest::keyClick(child<QLineEdit>(w, "txtsource"), Qt::Key_Return);
        auto *tables = child<QComboBox>(w, "cbotable");
        tables->setCurrentIndex(std::max(0, tables->findText(QStringLiteral("Customers"))));
        child<QRadioButton>(w, "optnew")->click();
        child<QLineEdit>(w, "txtnewtable")->setText(QStringLiteral("imported"));
        click(w, "cmdimport");
    } else if (t == QStringLiteral("table-script")) {
        m_main->menuItem(QStringLiteral("mnuctf"))->trigger();
    } else {
        fail(QStringLiteral("unknown tool ") + t);
    }
}

// What a finished work leaves behind: the checksums of every table, and the archive's state.
QString Run::state()
{
    if (!m_admin.isOpen() || m_admin.execute(QStringLiteral("DO 1")).isError())
        check(openSession(m_admin, QString::fromUtf8(kDatabase)), "reopening the admin session");
    QString s = checksumsOf(m_admin, allTables());
    if (m_o.tool == QStringLiteral("table-script"))
        s += QStringLiteral(" script=") + QString::fromLatin1(fileHash(m_o.work + QStringLiteral("/import.sql")));
    return s;
}

int Run::exec()
{
    prepare();
    const QString before = state();
    const QString expectedFile = m_o.work + QStringLiteral("/expected-") + m_o.tool;

    StatementHook::set([this](QByteArrayView) {
        ++m_statements;
        if (m_o.count || m_fired || m_statements != m_o.at)
            return;
        m_fired = true;
        if (m_o.fault == QStringLiteral("server-kill")) {
            m_server.kill();
        } else if (m_o.fault == QStringLiteral("conn-kill")) {
            auto ids = m_admin.openQuery(QStringLiteral(
                "SELECT id FROM information_schema.processlist WHERE user='dbop' AND id <> CONNECTION_ID()"));
            if (ids) {
                for (qsizetype r = 0; r < ids->recordCount(); ++r)
                    (void)m_admin.execute(QStringLiteral("KILL CONNECTION ") + ids->value(r, 0).value_or(QString()));
            }
        }
    });
    if (!m_o.count && m_o.fault == QStringLiteral("disk-full"))
        fillDisk(qint64(m_o.at) * 1024);
    if (!m_o.count && m_o.fault == QStringLiteral("read-only"))
        setWritable(false);
    // Any work that has not ended 30 seconds after it started is a hang.
    std::thread([] {
        std::this_thread::sleep_for(std::chrono::seconds(30));
        std::printf("ending=hang\n");
        std::fflush(stdout);
        std::_Exit(3);
    }).detach();
    work();
    StatementHook::clear();
    if (!m_o.count && m_o.fault == QStringLiteral("read-only"))
        setWritable(true);
    QFile::remove(m_o.work + QStringLiteral("/filler"));
    QApplication::processEvents();

    if (!m_server.alive())
        m_server.start();
    const QString after = state();
    if (m_o.count) {
        QFile f(expectedFile);
        if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
            fail(QStringLiteral("cannot keep the expected state"));
        f.write(after.toUtf8());
        std::printf("statements %d\n", m_statements);
        std::fflush(stdout);
        return 0;
    }
    QFile f(expectedFile);
    const QString expected = f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();

    QString data;
    if (after == before)
        data = QStringLiteral("kept");
    else if (after == expected)
        data = QStringLiteral("expected");
    else if (recovered(before))
        data = QStringLiteral("recovered");
    else
        data = QStringLiteral("lost");

    // An archive at the final path is the earlier one or a whole new one, never a half one.
    if (!m_earlierArchive.isEmpty()) {
        const QString path = archivePath();
        if (!QFile::exists(path) || (fileHash(path) != m_earlierArchive && !archiveWhole(path)))
            data = QStringLiteral("lost");
    }

    const QString told =
        m_op->runtimeErrors.isEmpty() ? m_op->told.value(m_op->told.size() - 1) : m_op->runtimeErrors.last();
    static const QStringList successes{QStringLiteral("Backup Sucessfully"), QStringLiteral("Restored Sucessfully")};
    const bool falseSuccess = m_fired && successes.contains(told) && after != expected;
    std::printf("ending=%s data=%s fired=%d statements=%d told=%s\n", falseSuccess ? "false-success" : "clean",
                qPrintable(data), m_fired ? 1 : 0, m_statements,
                qPrintable(QString(told).replace(QLatin1Char('\n'), QLatin1Char(' ')).left(160)));
    if (data == QStringLiteral("lost"))
        std::printf("before: %s\nafter:  %s\nexpect: %s\n", qPrintable(before), qPrintable(after),
                    qPrintable(expected));
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
    const QStringList args = QCoreApplication::arguments();
    for (qsizetype i = 1; i < args.size(); ++i) {
        const QString &a = args[i];
        const QString next = args.value(i + 1);
        if (a == QStringLiteral("--tool"))
            o.tool = next, ++i;
        else if (a == QStringLiteral("--fault"))
            o.fault = next, ++i;
        else if (a == QStringLiteral("--at"))
            o.at = next.toInt(), ++i;
        else if (a == QStringLiteral("--count"))
            o.count = true;
        else if (a == QStringLiteral("--server-dir"))
            o.serverDir = next, ++i;
        else if (a == QStringLiteral("--work"))
            o.work = next, ++i;
        else if (a == QStringLiteral("--source"))
            o.source = next, ++i;
    }
    if (o.tool.isEmpty() || o.work.isEmpty() || o.serverDir.isEmpty())
        fail(QStringLiteral("usage: fault_run --tool T --fault F (--count | --at N) --server-dir DIR --work DIR"));
    return Run(o).exec();
}
