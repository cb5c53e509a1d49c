// The refusals of Backup and Restore through their windows against a real server: an archive or
// working folder that cannot be made, a client lookup on a lost connection, a target database that
// cannot be opened, a table the target lacks, and a client code that cannot be quoted. Each says
// what went wrong and leaves the folder and the databases as they were.
#include "backup/backup.h"
#include "backup/backuparchive.h"
#include "backup/folderlists.h"
#include "backup/restore.h"
#include "backupfixture.h"
#include "toolfixture.h"
#include "ui/tablechecklist.h"

#include <QCheckBox>
#include <QDir>
#include <QFrame>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>

using namespace tabulon;
using namespace tabulon::test;

namespace {

void click(QWidget *window, const char *name)
{
    auto *button = window->findChild<QPushButton *>(qs(name));
    QVERIFY2(button, name);
    button->click();
}

// What a lost connection reports: the client library's own words, whichever it noticed first.
bool isLostConnection(const QString &text)
{
    return text == qs("Server has gone away") || text == qs("MySQL server has gone away") ||
           text.startsWith(qs("Lost connection to server")) || text.startsWith(qs("Lost connection to MySQL server"));
}

} // namespace

class TestBackupErrors final : public QObject, ToolFixture {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup()
    {
        closeMain();
        m_folder.reset();
    }

    void backupCannotStart_data();
    void backupCannotStart();
    void clientLookupRefused();
    void restoreRefusals_data();
    void restoreRefusals();

private:
    QString dated() const { return m_folder->filePath(BackupArchive::datedName(QDate::currentDate())); }
    QStringList listing() const
    {
        return QDir(m_folder->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }
    QStringList data()
    {
        return m_db->rows(qs("SELECT * FROM main_info1 ORDER BY 1")) + m_db->rows(qs("SELECT * FROM bill ORDER BY 1"));
    }
    void killSession(unsigned long id) { QVERIFY_DB(m_db->run({qs("KILL %1").arg(id)})); }

    std::unique_ptr<QTemporaryDir> m_folder;
};

void TestBackupErrors::initTestCase()
{
    createDatabase("backuperr");
}

void TestBackupErrors::init()
{
    QVERIFY_DB(m_db->run({
        qs("DROP TABLE IF EXISTS main_info1, bill"),
        qs("CREATE TABLE main_info1 (code_no VARCHAR(10), code VARCHAR(10))"),
        qs("INSERT INTO main_info1 VALUES ('C1','C1')"),
        qs("CREATE TABLE bill (name VARCHAR(10), amount INT)"),
        qs("INSERT INTO bill VALUES ('C1', 5)"),
    }));
    m_folder = std::make_unique<QTemporaryDir>();
    openMain();
    m_main->Database = m_db->name();
    m_main->Server = serverAddress();
    m_main->User = qs("dbop");
}

void TestBackupErrors::backupCannotStart_data()
{
    QTest::addColumn<QString>("inTheWay"); // what stands where the backup writes
    QTest::addColumn<QString>("told");
    QTest::addColumn<QStringList>("asked");
    const QString name = BackupArchive::datedName(QDate::currentDate());
    // The folder's own path is unknown until the test runs: "%1" stands for it.
    QTest::newRow("a folder with the archive's name")
        << "archive folder" << qs("%1/") + name + qs(".zip: Is a directory")
        << sl({"The backup is already taken, are you want to delete it"});
    QTest::newRow("a file with the working folder's name")
        << "working file" << qs("%1/") + name + qs(": The folder cannot be created.") << QStringList();
}

void TestBackupErrors::backupCannotStart()
{
    QFETCH(QString, inTheWay);
    QFETCH(QString, told);
    QFETCH(QStringList, asked);
    if (inTheWay == qs("archive folder"))
        QVERIFY(QDir().mkpath(dated() + qs(".zip/inside")));
    else
        QVERIFY(writeBytes(dated(), "kept"));
    const QStringList before = listing();
    auto *w = qobject_cast<BackUp *>(openTool("mnubackup"));
    QVERIFY(w);
    w->folderLists()->setFolder(m_folder->path());
    click(w, "cmdok");
    QCOMPARE(m_operator->asked, asked);
    QCOMPARE(m_operator->told, QStringList{told.arg(QDir::toNativeSeparators(m_folder->path()))});
    // The path page stays for another choice; nothing in the folder was touched.
    QVERIFY(w->findChild<QFrame *>(qs("Frame1"))->isVisible());
    QCOMPARE(listing(), before);
    if (inTheWay == qs("archive folder"))
        QVERIFY(QFileInfo(dated() + qs(".zip/inside")).isDir());
    else
        QCOMPARE(readBytes(dated()), QByteArray("kept"));
}

void TestBackupErrors::clientLookupRefused()
{
    auto *w = qobject_cast<BackUp *>(openTool("mnubackup"));
    QVERIFY(w);
    w->folderLists()->setFolder(m_folder->path());
    w->findChild<QCheckBox *>(qs("Check1"))->setChecked(true);
    click(w, "cmdok");
    killSession(session().connectionId());
    m_operator->typed = sl({"c1"});
    click(w, "cmdBackup");
    QCOMPARE(m_operator->told.size(), 2);
    QCOMPARE(m_operator->told.first(), qs("Please Enter the Code No to take BackUp"));
    QVERIFY2(isLostConnection(m_operator->told.last()), qPrintable(m_operator->told.last()));
    QCOMPARE(m_operator->runtimeErrors, QStringList());
    // No archive, and the working folder made for it is empty.
    QVERIFY(!QFileInfo::exists(dated() + qs(".zip")));
    QCOMPARE(QDir(dated()).entryList(QDir::Files), QStringList());
}

void TestBackupErrors::restoreRefusals_data()
{
    QTest::addColumn<QString>("refusal");
    QTest::addColumn<QStringList>("typed");
    QTest::addColumn<QStringList>("told");
    QTest::addColumn<QStringList>("asked");
    const char *code = "Please Enter the Code No to Restore Data";
    QTest::newRow("unknown database") << "unknown database" << QStringList()
                                      << sl({"Unknown database 'tabulon_t_no_such_db'"}) << QStringList();
    QTest::newRow("a table the target lacks, then No")
        << "missing table" << QStringList() << sl({"Restored Sucessfully"})
        << sl({"This table is not exist in Database, Continue ?"});
    QTest::newRow("a code with a quote") << "client" << sl({"C1'"})
                                         << sl({code, "The Code No may not contain quotes or backslashes"})
                                         << QStringList();
    QTest::newRow("a code with a backslash")
        << "client" << sl({"C1\\"}) << sl({code, "The Code No may not contain quotes or backslashes"}) << QStringList();
    QTest::newRow("the target's connection lost") << "lost" << sl({"C1"}) << sl({code}) << QStringList();
}

void TestBackupErrors::restoreRefusals()
{
    QFETCH(QString, refusal);
    QFETCH(QStringList, typed);
    QFETCH(QStringList, told);
    QFETCH(QStringList, asked);
    // An archive of another client's rows, with a table first that the database lacks.
    QTemporaryDir files;
    QVERIFY(writeGridFile(files.filePath(qs("absent")), {sl({"a"}), sl({"1"})}));
    QVERIFY(writeGridFile(files.filePath(qs("bill")), {sl({"name", "amount"}), sl({"C9", "9"})}));
    QVERIFY(writeGridFile(files.filePath(qs("main_info1")), {sl({"code_no", "code"}), sl({"C9", "C9"})}));
    const QString archive = m_folder->filePath(qs("three.zip"));
    QVERIFY_DB(BackupArchive::pack(files.path(), sl({"absent", "bill", "main_info1"}), archive));
    const QStringList before = data();

    QPointer<Restore> w = qobject_cast<Restore *>(openTool("mnurestore"));
    QVERIFY(w);
    m_operator->typed = typed;
    w->findChild<QLineEdit *>(qs("txtpath"))->setText(archive);
    click(w, "cmdok");
    const QString database = refusal == qs("unknown database") ? qs("tabulon_t_no_such_db") : m_db->name();
    w->findChild<QLineEdit *>(qs("txtdbpath"))->setText(database);
    w->findChild<QCheckBox *>(qs("Check1"))->setChecked(refusal == qs("client") || refusal == qs("lost"));
    click(w, "Command2");
    if (refusal == qs("unknown database")) {
        QVERIFY(w->findChild<QFrame *>(qs("Frame2"))->isVisible());
    } else {
        if (refusal == qs("missing table"))
            m_operator->answer = Dialogs::Answer::No;
        if (refusal == qs("lost"))
            killSession(w->target().connectionId());
        click(w, "cmdrestore");
        if (refusal == qs("lost")) {
            QCOMPARE(m_operator->told.size(), 2);
            QVERIFY2(isLostConnection(m_operator->told.last()), qPrintable(m_operator->told.last()));
            m_operator->told.removeLast();
        }
    }
    QCOMPARE(m_operator->told, told);
    QCOMPARE(m_operator->asked, asked);
    QCOMPARE(m_operator->runtimeErrors, QStringList());
    // "No" to the missing first table stops the run before the others: nothing was restored.
    QCOMPARE(data(), before);
}

QTEST_MAIN(TestBackupErrors)
#include "test_backuperrors.moc"
