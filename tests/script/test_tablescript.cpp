// The table script and its batch file: the line rules without a server, and the files written
// from a scratch database, byte for byte.
#include "db/connectionstring.h"
#include "db/progress.h"
#include "files.h"
#include "script/scriptrunner.h"
#include "script/tablescript.h"
#include "testdb.h"

#include <QProcess>

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;
using namespace tabulon::TableScript;
using namespace tabulon::test;

namespace {

// The definition line of table shop.t with `columns` given as name, type, name, type...
QStringList definition(const QStringList &columns)
{
    std::vector<Column> list;
    for (qsizetype i = 0; i + 1 < columns.size(); i += 2)
        list.emplace_back(columns[i], columns[i + 1]);
    return {definitionLine(qs("shop"), qs("t"), list)};
}

QStringList batch(const char *datadir)
{
    return {batchText(baseFolder(qs(datadir)))};
}

} // namespace

class TestTableScript final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void lineRules_data();
    void lineRules();
    void filesFromTheServer();
    void companionRunsTheScript();
};

// One row per line reads best here.
// clang-format off
void TestTableScript::lineRules_data()
{
    QTest::addColumn<QStringList>("actual");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("line: two columns") << definition(sl({"id", "int(11)", "label", "varchar(50)"})) << sl({"Create Table if not exists shop.t (id int(11), label varchar(50));\r\n"});
    QTest::newRow("line: check in any case") << definition(sl({"check", "char(1)", "Check", "int(11)", "CHECKS", "text"})) << sl({"Create Table if not exists shop.t (CHECK1 char(1), CHECK1 int(11), CHECKS text);\r\n"});
    QTest::newRow("line: no columns, the opening loses its two characters") << definition({}) << sl({"Create Table if not exists shop.t);\r\n"});
    QTest::newRow("batch: Windows server") << batch("C:\\mysql\\data\\") << sl({"C:\r\nC:\\mysql\\bin\r\nmysql.exe\r\n"});
    QTest::newRow("batch: lower case found, case kept") << batch("d:\\Server\\Data\\") << sl({"d:\r\nd:\\Server\\bin\r\nmysql.exe\r\n"});
    QTest::newRow("batch: first \\DATA") << batch("E:\\database\\data\\") << sl({"E:\r\nE:\\bin\r\nmysql.exe\r\n"});
    QTest::newRow("batch: a letter that upper-cases into two") << batch("D:\\Straße\\data\\") << sl({"D:\r\nD:\\Straße\\bin\r\nmysql.exe\r\n"});
    QTest::newRow("batch: no \\DATA") << batch("/var/lib/mysql/") << sl({"\r\nbin\r\nmysql.exe\r\n"});
    QTest::newRow("split: lines with CR LF") << ScriptRunner::splitStatements(qs("CREATE DATABASE a;\r\nUse a;\r\n\r\nCreate Table a.t (x int);\r\n\r\n")) << sl({"CREATE DATABASE a", "Use a", "Create Table a.t (x int)"});
    QTest::newRow("split: semicolons inside quotes") << ScriptRunner::splitStatements(qs("insert into t values ('a;b', \"c;\\\"d\", `e;f`);select 1")) << sl({"insert into t values ('a;b', \"c;\\\"d\", `e;f`)", "select 1"});
    QTest::newRow("split: an apostrophe in a comment") << ScriptRunner::splitStatements(qs("-- don't stop here\r\nUse a;\r\n# isn't either\r\nselect 1; /* it's; */ select 2;select 3 -- the end's")) << sl({"Use a", "select 1", "select 2", "select 3"});
    QTest::newRow("split: not comments") << ScriptRunner::splitStatements(qs("select 1--2;select '#', \"/*\";select 3 /*!40101 + 4 */")) << sl({"select 1--2", "select '#', \"/*\"", "select 3 /*!40101 + 4 */"});
    QTest::newRow("split: dashes before the end stay minus signs") << ScriptRunner::splitStatements(qs("select 1--;----\n--\x01x\n;select 2 --")) << sl({"select 1- -", "- -", "select 2"});
    QTest::newRow("split: a comment alone, one left open") << ScriptRunner::splitStatements(qs("/* just; a note */;\n--\nselect 1;/* open; to the end")) << sl({"select 1"});
    QTest::newRow("split: nothing") << ScriptRunner::splitStatements(qs(" ;\r\n; ")) << QStringList();
}
// clang-format on

void TestTableScript::lineRules()
{
    QFETCH(QStringList, actual);
    QFETCH(QStringList, expected);
    QCOMPARE(actual, expected);
}

void TestTableScript::filesFromTheServer()
{
    ScratchDatabase db(qs("tablescript"));
    QVERIFY_DB(db.error());
    QVERIFY_DB(db.run({qs("CREATE TABLE items (id INT, label VARCHAR(50) NOT NULL DEFAULT 'x', PRIMARY KEY (id))"),
                       qs("CREATE TABLE flags (id INT AUTO_INCREMENT KEY, `check` CHAR(1))")}));
    DatabaseSession session;
    QVERIFY_DB(openSession(session, db.name()));
    QTemporaryDir folder;
    QVERIFY_DB(CreateScriptFile(session, folder.path(), db.name()));
    const QByteArray name = db.name().toUtf8();
    QCOMPARE(read(folder.filePath(qs("import.sql"))),
             "CREATE DATABASE " + name + ";\r\nUse " + name + ";\r\n\r\n" + "Create Table if not exists " + name +
                 ".flags (id int(11), CHECK1 char(1));\r\n" + "Create Table if not exists " + name +
                 ".items (id int(11), label varchar(50));\r\n\r\n");
    // The test server keeps its data in a folder without "\DATA".
    QCOMPARE(read(folder.filePath(qs("Cr_Db.bat"))), QByteArray("\r\nbin\r\nmysql.exe\r\n"));
    QCOMPARE(statementsReceived(db.admin(), session.connectionId()),
             sl({"Show Tables", "Show Columns from flags", "Show Columns from items", "Show Variables"}));

    // A database without tables; an empty name writes nothing.
    QVERIFY_DB(db.run({qs("DROP TABLE items, flags")}));
    QVERIFY_DB(CreateScriptFile(session, folder.path(), db.name()));
    QCOMPARE(read(folder.filePath(qs("import.sql"))), "CREATE DATABASE " + name + ";\r\nUse " + name + ";\r\n\r\n\r\n");
    QTemporaryDir untouched;
    QVERIFY_DB(CreateScriptFile(session, untouched.path(), QString()));
    QVERIFY(QDir(untouched.path()).isEmpty());

    // Failures come back and keep the earlier files whole: a folder that cannot be written to,
    // a lost connection, a disk that fills while the script is written (a file size limit).
    const DbError unwritable = CreateScriptFile(session, folder.filePath(qs("no/such/folder")), db.name());
    QVERIFY(unwritable.isFileError());
    QVERIFY(unwritable.description.contains(qs("import.sql")));
    write(untouched.filePath(qs("import.sql")), "earlier");
    DatabaseSession closed;
    QVERIFY(CreateScriptFile(closed, untouched.path(), qs("shop")).isError());
    QCOMPARE(read(untouched.filePath(qs("import.sql"))), QByteArray("earlier"));
    QVERIFY(!QFile::exists(untouched.filePath(qs("Cr_Db.bat"))));

    const QByteArray earlier = read(folder.filePath(qs("import.sql")));
    DbError full;
    {
        const FileSizeLimit limit(16);
        QVERIFY(limit.isSet());
        full = CreateScriptFile(session, folder.path(), db.name());
    }
    QVERIFY(full.isFileError());
    QCOMPARE(read(folder.filePath(qs("import.sql"))), earlier);
    QCOMPARE(QDir(folder.path()).entryList(QDir::Files), sl({"Cr_Db.bat", "import.sql"}));
}

// The companion as "Execute Text File" starts it: import.sql beside it, the saved settings of
// the user, --batch so that it prints its summary and ends.
void TestTableScript::companionRunsTheScript()
{
    QTemporaryDir home;
    const QString program = home.filePath(qs("import_db"));
    QVERIFY(QFile::copy(qs(TABULON_IMPORT_DB), program));
    const QString target = qs("tabulon_import_target");
    ScratchDatabase db(qs("tablescript_import"));
    QVERIFY_DB(db.error());
    QVERIFY_DB(db.run({qs("DROP DATABASE IF EXISTS ") + target}));
    write(home.filePath(qs("import.sql")),
          qs("CREATE DATABASE %1;\r\nUse %1;\r\n\r\nCreate Table if not exists %1.t (id int(11), CHECK1 char(1));"
             "\r\nCreate Table if not exists %1.u (id nosuchtype);\r\n\r\n")
              .arg(target)
              .toUtf8());
    // The settings file of a user whose configuration lives in `home`.
    const ConnectionTarget server = connectionTargetFrom(connectionString(QString()));
    write(home.filePath(qs("config/Corvane/Tabulon.ini")),
          qs("[Software]\nCorvane\\Tabulon\\Server=%1:%2\nCorvane\\Tabulon\\User=%3\nCorvane\\Tabulon\\Password=%4\n")
              .arg(server.host)
              .arg(server.port)
              .arg(server.user, server.password)
              .toUtf8());

    QProcess run;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(qs("XDG_CONFIG_HOME"), home.filePath(qs("config")));
    env.insert(qs("QT_QPA_PLATFORM"), qs("offscreen"));
    run.setProcessEnvironment(env);
    run.start(program, {qs("--batch")});
    QVERIFY(run.waitForFinished(60000));
    const QString out = QString::fromUtf8(run.readAllStandardOutput());
    QCOMPARE(run.exitCode(), 2);
    QVERIFY2(out.startsWith(
                 qs("4 statements run, 1 failed\n\nCreate Table if not exists %1.u (id nosuchtype)\n    ").arg(target)),
             qPrintable(out + QString::fromUtf8(run.readAllStandardError())));
    QCOMPARE(db.rows(qs("SHOW TABLES FROM ") + target), sl({"t"}));
    QVERIFY_DB(db.run({qs("DROP DATABASE ") + target}));
}

QTEST_GUILESS_MAIN(TestTableScript)
#include "test_tablescript.moc"
