// The import_db companion against the real server: its start comes up minimised and runs the
// script, and a close during the run asks, stops after the running statement and tells the
// program to end.
#include "db/connectionstring.h"
#include "db/databasesession.h"
#include "files.h"
#include "operator.h"
#include "script/importdb.h"
#include "settings/settings.h"
#include "testdb.h"

#include <QApplication>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>

using namespace tabulon;
using namespace tabulon::test;

class TestImportDb final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void startsMinimised();
    void closeDuringTheRun_data();
    void closeDuringTheRun();
};

// The start the program makes: the window is minimised from the first moment the operator could
// see it, the script runs, and the summary waits on screen until the window is closed.
void TestImportDb::startsMinimised()
{
    ScratchDatabase db(qs("importdbstart"));
    QVERIFY_DB(db.error());
    QTemporaryDir folder;
    write(folder.filePath(qs("import.sql")),
          qs("Create Table if not exists %1.t (id int(11));\r\n").arg(db.name()).toUtf8());
    Settings settings(folder.filePath(qs("settings.ini")));
    const ConnectionTarget server = connectionTargetFrom(connectionString(QString()));
    settings.WriteRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kServer,
                                 qs("%1:%2").arg(server.host).arg(server.port));
    settings.WriteRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kUser, server.user);
    settings.WriteRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kPassword, server.password);

    QList<bool> minimised; // the window's state at each look, while it is shown
    QTimer look;
    look.setInterval(0);
    connect(&look, &QTimer::timeout, this, [&minimised] {
        for (QWidget *w : QApplication::topLevelWidgets()) {
            if (qobject_cast<ImportDb *>(w) && w->isVisible()) {
                minimised << w->isMinimized();
                // Once the summary waits for the operator, the operator closes it.
                if (QThread::currentThread()->loopLevel() > 0)
                    w->close();
            }
        }
    });
    look.start();
    const int code = runImportDb(folder.path(), settings, false);
    look.stop();
    QCOMPARE(code, 0);
    QVERIFY(!minimised.isEmpty());
    QVERIFY(!minimised.contains(false));
    QCOMPARE(db.rows(qs("SHOW TABLES")), sl({"t"}));
}

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
    window.show();
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
