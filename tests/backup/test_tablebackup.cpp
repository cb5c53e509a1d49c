// The backup's work against the real server: table files streamed from results, and the
// client look-up. The window tests cover the client's selects, packing and a lost connection.
#include "backup/tablebackup.h"
#include "backupfixture.h"
#include "testdb.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <cstring>

using namespace tabulon;
using namespace tabulon::test;

class TestTableBackup final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void tableFiles();
    void findClient_data();
    void findClient();

private:
    std::unique_ptr<ScratchDatabase> m_db;
    DatabaseSession m_session;
    QTemporaryDir m_dir;
};

void TestTableBackup::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(qs("tablebackup"));
    QVERIFY_DB(m_db->error());
    QVERIFY_DB(openSession(m_session, m_db->name()));
    QVERIFY_DB(m_db->run({
        qs("CREATE TABLE main_info1 (code_no VARCHAR(10), code VARCHAR(10), fname VARCHAR(20))"),
        qs("CREATE TABLE owner1 (code VARCHAR(10), code_no VARCHAR(10), oname VARCHAR(20))"),
        qs("INSERT INTO main_info1 VALUES ('C00001','C00001','Ann'), ('C00007','A00007','Bob')"),
        qs("INSERT INTO owner1 VALUES ('A00007','C00007','Bob Sr'), ('A00099','C00099','Owner only')"),
        qs("CREATE TABLE odd (id INT, t TEXT, d DATETIME, b BIT(1))"),
        qs("INSERT INTO odd VALUES (1, 'comma, \"quote\" and O''Brien\nnext line', '2007-12-25 10:30:00', "
           "b'1'), (2, NULL, NULL, NULL), (3, '', NULL, b'0')"),
    }));
}

// Row 0 the field names, NULL and empty text alike as empty cells, awkward texts whole; a refused
// select writes nothing and says why. (An empty result: the client backup in test_backuptools.)
void TestTableBackup::tableFiles()
{
    const QString odd = m_dir.filePath(qs("odd"));
    clearServerLog(m_db->admin());
    QVERIFY_DB(TableBackup::writeTableFile(m_session, TableBackup::tableSelect(qs("odd")), odd));
    QCOMPARE(statementsReceived(m_db->admin(), m_session.connectionId()), sl({"SELECT * FROM `odd`"}));
    QCOMPARE(gridFileRows(odd),
             sl({"id|t|d|b", "1|comma, \"quote\" and O'Brien\nnext line|2007-12-25 10:30:00|1", "2|||", "3|||0"}));

    DbError refused;
    const QString none = m_dir.filePath(qs("none"));
    QVERIFY_DB(TableBackup::writeTableFile(m_session, qs("Select * from odd where ucase(code) = 'X'"), none, &refused));
    QVERIFY2(refused.description.contains(QLatin1String("code")), qPrintable(refused.description));
    QVERIFY(!QFileInfo::exists(none));

    // A table file that cannot be written ends the work with the path and the reason.
    const DbError unwritable =
        TableBackup::writeTableFile(m_session, TableBackup::tableSelect(qs("odd")), m_dir.filePath(qs("no/odd")));
    QVERIFY2(TableBackup::isFatal(unwritable) && unwritable.description.contains(QLatin1String("no/odd")),
             qPrintable(unwritable.description));

    // A disk that fills while the file is written: the system's reason, not "Unknown error". A
    // limit on the file's size stands in for the full disk; the failed write is the same.
    const QString big = m_dir.filePath(qs("big"));
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit before = limit;
    limit.rlim_cur = 100 * 1024;
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &limit), 0);
    const DbError full =
        TableBackup::writeTableFile(m_session, qs("SELECT seq, REPEAT('x', 100) AS pad FROM seq_1_to_10000"), big);
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &before), 0);
    QCOMPARE(full.description, QDir::toNativeSeparators(big) + qs(": ") + QString::fromLocal8Bit(std::strerror(EFBIG)));
    QVERIFY(!QFileInfo::exists(big));
}

// Equal and differing codes of main_info1 and an unknown code: the client backup's window tests.
void TestTableBackup::findClient_data()
{
    QTest::addColumn<QString>("code");
    QTest::addColumn<bool>("found");
    QTest::addColumn<QString>("other");
    QTest::newRow("owner1 only") << "A00099" << true << "C00099";
    QTest::newRow("owner code of a main_info1 client") << "A00007" << true << "C00007";
    QTest::newRow("quote breaks the look-up") << "C0'1" << false << "";
}

void TestTableBackup::findClient()
{
    QFETCH(QString, code);
    const auto client = TableBackup::findClient(m_session, code);
    QVERIFY_DB(client.error());
    QTEST(client->found, "found");
    QTEST(client->other, "other");
}

QTEST_GUILESS_MAIN(TestTableBackup)
#include "test_tablebackup.moc"
