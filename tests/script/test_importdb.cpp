// The import_db companion's window against the real server: it comes up minimised, and a close
// during the run asks, stops after the running statement and tells the program to end.
#include "db/databasesession.h"
#include "operator.h"
#include "script/importdb.h"
#include "testdb.h"

#include <QTest>
#include <QTimer>

using namespace tabulon;
using namespace tabulon::test;

class TestImportDb final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void closeDuringTheRun_data();
    void closeDuringTheRun();
};

void TestImportDb::closeDuringTheRun_data()
{
    QTest::addColumn<bool>("stop");
    QTest::addColumn<int>("run");
    QTest::newRow("stop") << true << 1;
    QTest::newRow("go on") << false << 3;
}

void TestImportDb::closeDuringTheRun()
{
    QFETCH(bool, stop);
    QFETCH(int, run);
    ScratchDatabase db(qs("importdb"));
    QVERIFY_DB(db.error());
    DatabaseSession session;
    QVERIFY_DB(openSession(session, db.name()));
    Operator op;
    op.answer = stop ? Dialogs::Answer::Yes : Dialogs::Answer::No;

    ImportDb window;
    window.showMinimized();
    QVERIFY(window.isMinimized());
    // Closed at the first yield to events, while the first statement is under way.
    QTimer::singleShot(0, &window, [&window] { window.close(); });
    const ScriptRunner::Summary summary = window.run(
        session, {qs("CREATE TABLE t (x INT)"), qs("INSERT INTO t VALUES (1)"), qs("INSERT INTO t VALUES (2)")});
    QCOMPARE(op.asked, QStringList{ImportDb::kStopQuestion});
    QCOMPARE(summary.run, run);
    QCOMPARE(summary.stopped, stop);
    QCOMPARE(window.closedDuringRun(), stop);
    QCOMPARE(window.isVisible(), !stop);
    QCOMPARE(db.rows(qs("SELECT COUNT(*) FROM t")), sl({stop ? "0" : "2"}));

    // Once the run is over a close needs no question.
    window.close();
    QVERIFY(!window.isVisible());
    QCOMPARE(op.asked.size(), 1);
}

QTEST_MAIN(TestImportDb)
#include "test_importdb.moc"
