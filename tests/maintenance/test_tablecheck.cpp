// The check and repair rules without a window: the file a message names, what a check of a
// sound, damaged, missing or unnamable table gives, and the file copy between database folders.
#include "maintenance/tablecheck.h"
#include "testdb.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

namespace {

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(content) == content.size();
}

QByteArray readFile(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

// Overwrites the key pages of a MyISAM table's index file, which CHECK reports as corrupt and
// REPAIR ... EXTENDED rebuilds from the data file.
DbError damageIndex(ScratchDatabase &db, const QString &table)
{
    if (DbError e = db.run({qs("FLUSH TABLES")}))
        return e;
    const QStringList datadir = db.rows(qs("SELECT @@datadir"));
    QFile index(datadir.value(0) + db.name() + QLatin1Char('/') + table + qs(".MYI"));
    if (!index.open(QIODevice::ReadWrite) || !index.seek(1024) || index.write(QByteArray(2048, '\xff')) != 2048)
        return DbError::file(index.fileName(), index.errorString());
    return {};
}

} // namespace

class TestTableCheck final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void namedFile_data();
    void namedFile();
    void checkFindings();
    void replaceFiles();
};

void TestTableCheck::namedFile_data()
{
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("expected");
    QTest::newRow("file in quotes") << qs("bill")
                                    << qs("Index for table './orvita/bill.MYI' is corrupt; try to repair it")
                                    << qs("bill.MYI");
    QTest::newRow("other case in message")
        << qs("BILL") << qs("Can't find file: './x/bill.MYI' (errno: 2)") << qs("bill.MYI");
    QTest::newRow("name not in message") << qs("bill") << qs("Corrupt") << qs("bill");
    QTest::newRow("no quote after name") << qs("bill") << qs("Table bill is marked as crashed") << qs("bill");
    QTest::newRow("quote only before name") << qs("bill") << qs("'x' bill") << qs("bill");
    QTest::newRow("first occurrence wins") << qs("bill") << qs("bill_old and 'bill.MYD'") << qs("bill_old and ");
    QTest::newRow("name right before quote") << qs("bill") << qs("Incorrect file format 'bill'") << qs("bill");
}

void TestTableCheck::namedFile()
{
    QFETCH(QString, table);
    QFETCH(QString, message);
    QFETCH(QString, expected);
    QCOMPARE(TableCheck::namedFile(table, message), expected);
}

void TestTableCheck::checkFindings()
{
    ScratchDatabase db(qs("tablecheck"));
    QVERIFY_DB(db.error());
    QVERIFY_DB(db.run({
        qs("CREATE TABLE bill (id INT PRIMARY KEY, name VARCHAR(20), KEY(name)) ENGINE=MyISAM"),
        qs("INSERT INTO bill VALUES (1,'a'),(2,'b'),(3,'c')"),
        qs("CREATE TABLE sound (a INT) ENGINE=MyISAM"),
    }));
    DatabaseSession session;
    QVERIFY_DB(openSession(session, db.name()));

    QCOMPARE(TableCheck::checkTable(session, qs("sound")), QList<TableCheck::Finding>{});

    QVERIFY_DB(damageIndex(db, qs("bill")));
    const QList<TableCheck::Finding> damaged = TableCheck::checkTable(session, qs("bill"));
    QVERIFY2(damaged.size() >= 2, qPrintable(QString::number(damaged.size())));
    QStringList names;
    for (const auto &f : damaged) {
        QVERIFY(f.message != qs("OK"));
        names << f.name;
    }
    QVERIFY2(names.contains(qs("bill.MYI")), qPrintable(names.join(QLatin1Char(','))));
    QVERIFY(names.contains(qs("bill")));

    QVERIFY_DB(session.execute(TableCheck::repairStatement(qs("bill"))));
    QCOMPARE(TableCheck::checkTable(session, qs("bill")), QList<TableCheck::Finding>{});
    QCOMPARE(db.rows(qs("SELECT name FROM bill ORDER BY id")), sl({"a", "b", "c"}));

    // A missing table is still an answer (its messages); a statement the server refuses is not.
    const auto missing = TableCheck::checkTable(session, qs("nosuch"));
    QVERIFY(!missing.isEmpty());
    QCOMPARE(missing.first().name, qs("nosuch"));
    const QList<TableCheck::Finding> refused{{qs("Could open table"), qs("no such")}};
    QCOMPARE(TableCheck::checkTable(session, qs("no such")), refused);
    QCOMPARE(session.isOpen(), true);
}

void TestTableCheck::replaceFiles()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QVERIFY(QDir(dir.path()).mkpath(qs("good")) && QDir(dir.path()).mkpath(qs("bad")));
    const QString data = dir.path(); // no separator at the end: one is supplied
    QVERIFY(writeFile(data + qs("/good/t.MYI"), "good index"));
    QVERIFY(writeFile(data + qs("/good/u.MYD"), "good data"));
    QVERIFY(writeFile(data + qs("/bad/t.MYI"), "broken"));
    QVERIFY(writeFile(data + qs("/bad/v.MYI"), "kept"));

    const QList<DbError> failures =
        TableCheck::replaceFiles(data, qs("good"), qs("bad"), sl({"t.MYI", "", "u.MYD", "v.MYI"}));
    QCOMPARE(readFile(data + qs("/bad/t.MYI")), QByteArray("good index")); // overwritten
    QCOMPARE(readFile(data + qs("/bad/u.MYD")), QByteArray("good data"));  // created
    QCOMPARE(readFile(data + qs("/bad/v.MYI")), QByteArray("kept"));       // no source: untouched
    QCOMPARE(failures.size(), 1);
    QVERIFY(failures.first().isFileError());
    QVERIFY(failures.first().description.contains(qs("good/v.MYI")));
    QCOMPARE(QDir(data + qs("/bad")).entryList(QDir::Files), sl({"t.MYI", "u.MYD", "v.MYI"}));

    QCOMPARE(TableCheck::databaseFolder(qs("/var/lib/mysql/"), qs("Orvita")), qs("/var/lib/mysql/Orvita/"));
}

QTEST_MAIN(TestTableCheck)
#include "test_tablecheck.moc"
