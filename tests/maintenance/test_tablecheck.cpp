// The check and repair rules without a window: the file a message names, what a check of a
// missing or unnamable table gives, and the file copy between database folders.
#include "files.h"
#include "maintenance/tablecheck.h"
#include "testdb.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <chrono>
#include <thread>

using namespace tabulon;
using namespace tabulon::test;

class TestTableCheck final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void namedFile_data();
    void namedFile();
    void checkFindings();
    void longStatementsOutlastTheReadTimeout_data();
    void longStatementsOutlastTheReadTimeout();
    void replaceFiles();
};

// One row per line reads best here.
// clang-format off
void TestTableCheck::namedFile_data()
{
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("expected");
    QTest::newRow("file in quotes") << "bill" << "Index for table './orvita/bill.MYI' is corrupt; try to repair it" << "bill.MYI";
    QTest::newRow("other case in message") << "BILL" << "Can't find file: './x/bill.MYI' (errno: 2)" << "bill.MYI";
    QTest::newRow("name not in message") << "bill" << "Corrupt" << "bill";
    QTest::newRow("no quote after name") << "bill" << "Table bill is marked as crashed" << "bill";
    QTest::newRow("quote only before name") << "bill" << "'x' bill" << "bill";
    QTest::newRow("first occurrence wins") << "bill" << "bill_old and 'bill.MYD'" << "bill_old and ";
}
// clang-format on

void TestTableCheck::namedFile()
{
    QFETCH(QString, table);
    QFETCH(QString, message);
    QTEST(TableCheck::namedFile(table, message), "expected");
}

// A damaged table and its repair are checked through the check and repair windows.
void TestTableCheck::checkFindings()
{
    ScratchDatabase db(qs("tablecheck"));
    QVERIFY_DB(db.error());
    DatabaseSession session;
    QVERIFY_DB(openSession(session, db.name()));
    // A missing table is still an answer (its messages); a statement the server refuses is not.
    const auto missing = TableCheck::checkTable(session, qs("nosuch"));
    QVERIFY(!missing.isEmpty());
    QCOMPARE(missing.first().name, qs("nosuch"));
    const QList<TableCheck::Finding> refused{{qs("Could open table"), qs("no such")}};
    QCOMPARE(TableCheck::checkTable(session, qs("no such")), refused);
}

void TestTableCheck::longStatementsOutlastTheReadTimeout_data()
{
    QTest::addColumn<bool>("repair");
    QTest::newRow("check") << false;
    QTest::newRow("repair") << true;
}

// A check or repair that takes longer than the session's read time-out (here it waits for a
// table another connection holds locked) still gets its answer, and the tables after it are
// worked on the same connection.
void TestTableCheck::longStatementsOutlastTheReadTimeout()
{
    QFETCH(bool, repair);
    ScratchDatabase db(qs("tablecheck_slow"));
    QVERIFY_DB(db.error());
    QVERIFY_DB(db.run({qs("create table held (n int) engine=MyISAM"), qs("create table after_it (n int) engine=MyISAM"),
                       qs("insert into held values (1),(2)")}));
    DatabaseSession session;
    session.setTimeouts(5, 1, 5);
    QVERIFY_DB(openSession(session, db.name()));
    DatabaseSession holder;
    QVERIFY_DB(openSession(holder, db.name()));
    QVERIFY_DB(holder.execute(qs("LOCK TABLES held WRITE")));
    std::jthread release([&holder] {
        std::this_thread::sleep_for(std::chrono::milliseconds(2500));
        (void)holder.execute(qs("UNLOCK TABLES"));
    });

    for (const QString &table : {qs("held"), qs("after_it")}) {
        if (repair) {
            QVERIFY_DB(TableCheck::repairTable(session, table));
        } else {
            QCOMPARE(TableCheck::checkTable(session, table), QList<TableCheck::Finding>{});
        }
    }
    // The session's own time-out is back for everything else.
    QVERIFY(session.execute(qs("select sleep(2)")).isError());
}

void TestTableCheck::replaceFiles()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString data = dir.path(); // no separator at the end: one is supplied
    write(data + qs("/good/t.MYI"), "good index");
    write(data + qs("/good/u.MYD"), "good data");
    write(data + qs("/bad/t.MYI"), "broken");
    write(data + qs("/bad/v.MYI"), "kept");

    const QList<DbError> failures =
        TableCheck::replaceFiles(data, qs("good"), qs("bad"), sl({"t.MYI", "", "u.MYD", "v.MYI"}));
    QCOMPARE(read(data + qs("/bad/t.MYI")), QByteArray("good index")); // overwritten
    QCOMPARE(read(data + qs("/bad/u.MYD")), QByteArray("good data"));  // created
    QCOMPARE(read(data + qs("/bad/v.MYI")), QByteArray("kept"));       // no source: untouched
    QCOMPARE(failures.size(), 1);
    QVERIFY(failures.first().isFileError());
    QVERIFY(failures.first().description.contains(qs("good/v.MYI")));
    QCOMPARE(QDir(data + qs("/bad")).entryList(QDir::Files), sl({"t.MYI", "u.MYD", "v.MYI"}));

    QCOMPARE(TableCheck::databaseFolder(qs("/var/lib/mysql/"), qs("Orvita")), qs("/var/lib/mysql/Orvita/"));
}

QTEST_MAIN(TestTableCheck)
#include "test_tablecheck.moc"
