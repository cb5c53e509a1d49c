// The demo database against the real server: the tables, engines and keys the tools rely on,
// awkward values, every column type, repeatable content, and the first-use rules of create().
#include "demo/demodatabase.h"
#include "testdb.h"

#include <QSet>
#include <QTest>

#include <memory>

using namespace tabulon;
using namespace tabulon::test;

namespace {

constexpr int clients = 40;

QString q(const QString &database, const QString &table)
{
    return DatabaseSession::quoteIdentifier(database) + QLatin1Char('.') + DatabaseSession::quoteIdentifier(table);
}

} // namespace

class TestDemoDatabase final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void tableSetAndEngines();
    void clientKeys();
    void childRowsBelongToClients();
    void someCodesDiffer();
    void awkwardValues();
    void everyColumnTypePresent();
    void generationIsRepeatable();
    void rowsGoInMultiRowInserts();
    void existingDatabaseIsLeftAlone();
    void staleBuildDatabaseIsReplaced();
    void failureLeavesNoBuildDatabase();

private:
    QString scalar(const QString &sql);
    QStringList tableNames(const QString &database);

    std::unique_ptr<ScratchDatabase> m_db;
    std::unique_ptr<ScratchDatabase> m_again;
    DatabaseSession m_session;
    unsigned long m_againConnection = 0;
};

void TestDemoDatabase::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(QStringLiteral("demo"));
    QVERIFY_DB(m_db->error());
    m_again = std::make_unique<ScratchDatabase>(QStringLiteral("demo_again"));
    QVERIFY_DB(m_again->error());
    QVERIFY_DB(openSession(m_session, QString()));

    DemoDatabase::Outcome outcome = DemoDatabase::Outcome::LeftAsItWas;
    QStringList written;
    DemoOptions options;
    options.tableWritten = [&written](const QString &table, qint64) { written << table; };
    QVERIFY_DB(DemoDatabase::create(m_session, m_db->name(), clients, true, options, &outcome));
    QCOMPARE(outcome, DemoDatabase::Outcome::Created);
    QCOMPARE(written.size(), static_cast<qsizetype>(DemoDatabase::tables().size()));

    // The second generation goes in batches of 7 rows on its own connection, so that batch
    // boundaries fall inside every table and its statements can be read back from the log.
    DatabaseSession other;
    QVERIFY_DB(openSession(other, QString()));
    m_againConnection = other.connectionId();
    DemoOptions small;
    small.batchRows = 7;
    QVERIFY_DB(DemoDatabase::create(other, m_again->name(), clients, true, small));
}

QString TestDemoDatabase::scalar(const QString &sql)
{
    const QStringList rows = m_db->rows(sql);
    return rows.size() == 1 ? rows.first() : QStringLiteral("<%1 rows: %2>").arg(rows.size()).arg(rows.join(u';'));
}

QStringList TestDemoDatabase::tableNames(const QString &database)
{
    return m_db->rows(QStringLiteral("SELECT TABLE_NAME FROM information_schema.TABLES WHERE TABLE_SCHEMA = '%1' "
                                     "ORDER BY TABLE_NAME")
                          .arg(database));
}

void TestDemoDatabase::tableSetAndEngines()
{
    const QStringList expected = {
        QStringLiteral("appointments"),  QStringLiteral("bill"),      QStringLiteral("contacts"),
        QStringLiteral("documents"),     QStringLiteral("insurance"), QStringLiteral("main_info1"),
        QStringLiteral("notes"),         QStringLiteral("owner1"),    QStringLiteral("payments"),
        QStringLiteral("prescriptions"), QStringLiteral("staff"),     QStringLiteral("table4"),
        QStringLiteral("visits")};
    QCOMPARE(tableNames(m_db->name()), expected);

    int myisam = 0;
    for (const DemoTable &t : DemoDatabase::tables()) {
        const QString engine = scalar(QStringLiteral("SELECT ENGINE FROM information_schema.TABLES WHERE "
                                                     "TABLE_SCHEMA = '%1' AND TABLE_NAME = '%2'")
                                          .arg(m_db->name(), t.name));
        QVERIFY2(engine == t.engine, qPrintable(t.name + QStringLiteral(": ") + engine));
        myisam += engine == QStringLiteral("MyISAM");
    }
    // Both engines, in about equal numbers.
    QVERIFY2(myisam >= 5 && myisam <= 8, qPrintable(QString::number(myisam)));

    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM %1").arg(q(m_db->name(), QStringLiteral("main_info1")))),
             QString::number(clients));
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM %1").arg(q(m_db->name(), QStringLiteral("owner1")))),
             QString::number(clients));
}

void TestDemoDatabase::clientKeys()
{
    const auto primaryKey = [this](const QString &table) {
        return m_db
            ->rows(QStringLiteral("SELECT COLUMN_NAME FROM information_schema.KEY_COLUMN_USAGE WHERE TABLE_SCHEMA = "
                                  "'%1' AND TABLE_NAME = '%2' AND CONSTRAINT_NAME = 'PRIMARY'")
                       .arg(m_db->name(), table))
            .join(u',');
    };
    QCOMPARE(primaryKey(QStringLiteral("main_info1")), QStringLiteral("code_no"));
    QCOMPARE(primaryKey(QStringLiteral("owner1")), QStringLiteral("code"));
    // Some tables have no key at all, as in the old database.
    QCOMPARE(primaryKey(QStringLiteral("table4")), QString());
    QCOMPARE(primaryKey(QStringLiteral("notes")), QString());

    for (const DemoTable &t : DemoDatabase::tables()) {
        const QStringList clientColumns = m_db->rows(
            QStringLiteral("SELECT COLUMN_NAME FROM information_schema.COLUMNS WHERE TABLE_SCHEMA = '%1' AND "
                           "TABLE_NAME = '%2' AND COLUMN_NAME IN ('code', 'code_no', 'name') ORDER BY COLUMN_NAME")
                .arg(m_db->name(), t.name));
        QStringList expected;
        if (t.name == QStringLiteral("main_info1") || t.name == QStringLiteral("owner1"))
            expected = {QStringLiteral("code"), QStringLiteral("code_no")};
        else if (t.name == QStringLiteral("bill") || t.name == QStringLiteral("table4"))
            expected = {QStringLiteral("name")};
        else if (!t.clientColumn.isEmpty())
            expected = {t.clientColumn};
        QVERIFY2(clientColumns == expected, qPrintable(t.name + QStringLiteral(": ") + clientColumns.join(u',')));
    }
    int byCode = 0, byCodeNo = 0;
    for (const DemoTable &t : DemoDatabase::tables()) {
        byCode += t.clientColumn == QStringLiteral("code");
        byCodeNo += t.clientColumn == QStringLiteral("code_no");
    }
    QVERIFY(byCode >= 3 && byCodeNo >= 3);
}

void TestDemoDatabase::childRowsBelongToClients()
{
    const QString mainInfo = q(m_db->name(), QStringLiteral("main_info1"));
    for (const DemoTable &t : DemoDatabase::tables()) {
        if (t.clientColumn.isEmpty() || t.name == QStringLiteral("main_info1") || t.name == QStringLiteral("owner1"))
            continue;
        const QString table = q(m_db->name(), t.name);
        const QString column = DatabaseSession::quoteIdentifier(t.clientColumn);
        // `code` and the `name` of bill and table4 hold the client's code, `code_no` its code_no.
        const QString key =
            t.clientColumn == QStringLiteral("code_no") ? QStringLiteral("code_no") : QStringLiteral("code");
        QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM %1 WHERE %2 NOT IN (SELECT %3 FROM %4)")
                            .arg(table, column, key, mainInfo)),
                 QStringLiteral("0"));
        // A few rows per client, not one each: several clients, and some with more than one row.
        const QStringList perClient =
            m_db->rows(QStringLiteral("SELECT COUNT(*) FROM %1 GROUP BY %2").arg(table, column));
        QVERIFY2(perClient.size() >= clients / 4, qPrintable(t.name));
        QVERIFY2(std::any_of(perClient.begin(), perClient.end(), [](const QString &n) { return n.toInt() > 1; }),
                 qPrintable(t.name));
    }
}

void TestDemoDatabase::someCodesDiffer()
{
    const QString mainInfo = q(m_db->name(), QStringLiteral("main_info1"));
    QCOMPARE(
        m_db->rows(QStringLiteral("SELECT code_no, code FROM %1 WHERE code <> code_no ORDER BY code_no").arg(mainInfo)),
        QStringList({QStringLiteral("C00007|A00007"), QStringLiteral("C00014|A00014"), QStringLiteral("C00021|A00021"),
                     QStringLiteral("C00028|A00028"), QStringLiteral("C00035|A00035")}));
    QCOMPARE(scalar(QStringLiteral("SELECT MIN(code_no), MAX(code_no) FROM %1").arg(mainInfo)),
             QStringLiteral("C00001|C00040"));
    // The owner row carries the same pair of codes as its client.
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM %1 m JOIN %2 o ON o.code = m.code AND o.code_no = m.code_no")
                        .arg(mainInfo, q(m_db->name(), QStringLiteral("owner1")))),
             QString::number(clients));
    QCOMPARE(DemoDatabase::codeNo(123456), QStringLiteral("C123456"));
}

void TestDemoDatabase::awkwardValues()
{
    const QString mainInfo = q(m_db->name(), QStringLiteral("main_info1"));
    // Texts come back exactly, apostrophes and letters outside Latin-1 included.
    const QStringList surnames =
        m_db->rows(QStringLiteral("SELECT DISTINCT surname FROM %1 ORDER BY surname").arg(mainInfo));
    for (const QString &name : {QStringLiteral("O'Brien"), QStringLiteral("Müller"), QStringLiteral("Çelik"),
                                QStringLiteral("Yılmaz"), QStringLiteral("Wiśniewski")})
        QVERIFY2(surnames.contains(name), qPrintable(name));
    QVERIFY(m_db->rows(QStringLiteral("SELECT first_name FROM %1").arg(mainInfo)).contains(QStringLiteral("Łukasz")));
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) > 0 FROM %1 WHERE path LIKE 'C:\\\\\\\\Orvita\\\\\\\\scans%'")
                        .arg(q(m_db->name(), QStringLiteral("documents")))),
             QStringLiteral("1"));

    const auto nulls = [this](const QString &table, const QString &column) {
        return scalar(QStringLiteral("SELECT COUNT(*) FROM %1 WHERE %2 IS NULL").arg(q(m_db->name(), table), column))
            .toInt();
    };
    QVERIFY(nulls(QStringLiteral("main_info1"), QStringLiteral("email")) > 0);
    QVERIFY(nulls(QStringLiteral("main_info1"), QStringLiteral("remarks")) > 0);
    QVERIFY(nulls(QStringLiteral("payments"), QStringLiteral("reference")) > 0);
    QVERIFY(nulls(QStringLiteral("documents"), QStringLiteral("content")) > 0);
    QCOMPARE(nulls(QStringLiteral("main_info1"), QStringLiteral("code")), 0);

    // Blobs hold binary bytes, a NUL and a quote among them, not mangled text.
    const QString documents = q(m_db->name(), QStringLiteral("documents"));
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) = SUM(LOCATE(0x00, content) > 0 AND LOCATE(0x27, content) > 0 AND "
                                   "LEFT(content, 8) = '%PDF-1.4') FROM %1 WHERE content IS NOT NULL")
                        .arg(documents)),
             QStringLiteral("1"));
    QCOMPARE(
        scalar(QStringLiteral("SELECT COUNT(*) > 0 FROM %1 WHERE HEX(content) REGEXP '^(..)*[89A-F]'").arg(documents)),
        QStringLiteral("1"));
    // Beyond 2^53, where a trip through a double would change the value.
    QCOMPARE(scalar(QStringLiteral("SELECT MIN(reference) > 9007199254740992 FROM %1")
                        .arg(q(m_db->name(), QStringLiteral("payments")))),
             QStringLiteral("1"));
}

void TestDemoDatabase::everyColumnTypePresent()
{
    const QStringList present =
        m_db->rows(QStringLiteral("SELECT DISTINCT DATA_TYPE FROM information_schema.COLUMNS WHERE TABLE_SCHEMA = '%1'")
                       .arg(m_db->name()));
    QStringList missing;
    for (const char *type : {"int", "smallint", "tinyint", "bigint", "float", "double", "decimal", "date", "datetime",
                             "timestamp", "time", "char", "varchar", "text", "blob"})
        if (!present.contains(QLatin1String(type)))
            missing << QLatin1String(type);
    QVERIFY2(missing.isEmpty(), qPrintable(missing.join(u' ')));
}

void TestDemoDatabase::generationIsRepeatable()
{
    QCOMPARE(tableNames(m_again->name()), tableNames(m_db->name()));
    for (const DemoTable &t : DemoDatabase::tables()) {
        const QString a = scalar(QStringLiteral("CHECKSUM TABLE %1 EXTENDED").arg(q(m_db->name(), t.name)));
        const QString b = scalar(QStringLiteral("CHECKSUM TABLE %1 EXTENDED").arg(q(m_again->name(), t.name)));
        QVERIFY2(a.section(u'|', 1) == b.section(u'|', 1), qPrintable(t.name + QStringLiteral(": ") + a + u' ' + b));
        QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM %1").arg(q(m_db->name(), t.name))),
                 scalar(QStringLiteral("SELECT COUNT(*) FROM %1").arg(q(m_again->name(), t.name))));
    }
    // Readable evidence on top of the checksums.
    const QString sql = QStringLiteral("SELECT * FROM %1 ORDER BY code_no");
    QCOMPARE(m_db->rows(sql.arg(q(m_again->name(), QStringLiteral("main_info1")))),
             m_db->rows(sql.arg(q(m_db->name(), QStringLiteral("main_info1")))));
}

void TestDemoDatabase::rowsGoInMultiRowInserts()
{
    const QStringList received = statementsReceived(m_db->admin(), m_againConnection);
    const QString head = QStringLiteral("INSERT INTO %1 VALUES ")
                             .arg(q(DemoDatabase::buildDatabaseName(m_again->name()), QStringLiteral("main_info1")));
    QStringList inserts;
    for (const QString &s : received)
        if (s.startsWith(head))
            inserts << s;
    // 40 rows in batches of 7.
    QCOMPARE(inserts.size(), 6);
    QCOMPARE(inserts.first().count(QStringLiteral("),('C")) + 1, 7);
    QVERIFY(inserts.last().contains(QStringLiteral("'C00040'")));
    QVERIFY(!inserts.last().contains(QStringLiteral("'C00035'")));
    QVERIFY(received.last().startsWith(QStringLiteral("DROP DATABASE IF EXISTS")));
}

void TestDemoDatabase::existingDatabaseIsLeftAlone()
{
    ScratchDatabase keep(QStringLiteral("demo_keep"));
    QVERIFY_DB(keep.error());
    QVERIFY_DB(keep.run({QStringLiteral("CREATE TABLE mine (id INT)")}));

    DemoDatabase::Outcome outcome = DemoDatabase::Outcome::Created;
    QVERIFY_DB(DemoDatabase::create(m_session, keep.name(), 5, false, {}, &outcome));
    QCOMPARE(outcome, DemoDatabase::Outcome::LeftAsItWas);
    QCOMPARE(tableNames(keep.name()), QStringList{QStringLiteral("mine")});

    QVERIFY_DB(DemoDatabase::create(m_session, keep.name(), 5, true, {}, &outcome));
    QCOMPARE(outcome, DemoDatabase::Outcome::Created);
    const QStringList after = tableNames(keep.name());
    QVERIFY(!after.contains(QStringLiteral("mine")));
    QVERIFY(after.contains(QStringLiteral("main_info1")));
    QCOMPARE(scalar(QStringLiteral("SELECT COUNT(*) FROM %1").arg(q(keep.name(), QStringLiteral("main_info1")))),
             QStringLiteral("5"));
}

void TestDemoDatabase::staleBuildDatabaseIsReplaced()
{
    // What an interrupted run leaves: a build database with a half-filled table.
    const QString name = QStringLiteral("tabulon_t_demo_stale");
    const QString build = DemoDatabase::buildDatabaseName(name);
    QVERIFY_DB(
        m_session.execute(QStringLiteral("DROP DATABASE IF EXISTS %1").arg(DatabaseSession::quoteIdentifier(name))));
    QVERIFY_DB(m_session.execute(QStringLiteral("CREATE DATABASE %1").arg(DatabaseSession::quoteIdentifier(build))));
    QVERIFY_DB(
        m_session.execute(QStringLiteral("CREATE TABLE %1 (junk INT)").arg(q(build, QStringLiteral("main_info1")))));

    DemoDatabase::Outcome outcome = DemoDatabase::Outcome::LeftAsItWas;
    const DbError e = DemoDatabase::create(m_session, name, 3, false, {}, &outcome);
    const QStringList tables = tableNames(name);
    const QStringList builds = tableNames(build);
    m_session.execute(QStringLiteral("DROP DATABASE IF EXISTS %1").arg(DatabaseSession::quoteIdentifier(name)));
    QVERIFY_DB(e);
    QCOMPARE(outcome, DemoDatabase::Outcome::Created);
    QCOMPARE(tables.size(), static_cast<qsizetype>(DemoDatabase::tables().size()));
    QVERIFY2(builds.isEmpty(), qPrintable(builds.join(u',')));
}

void TestDemoDatabase::failureLeavesNoBuildDatabase()
{
    // Longer than the server allows for a database name: the build database (a shortened name)
    // fills, the final CREATE DATABASE fails.
    const QString name = QStringLiteral("tabulon_t_demo_") + QString(60, u'x');
    DemoDatabase::Outcome outcome = DemoDatabase::Outcome::Created;
    const DbError e = DemoDatabase::create(m_session, name, 2, false, {}, &outcome);
    QVERIFY(e.isError());
    QVERIFY(!e.description.isEmpty());
    QCOMPARE(outcome, DemoDatabase::Outcome::LeftAsItWas);
    QCOMPARE(tableNames(DemoDatabase::buildDatabaseName(name)), QStringList());
}

QTEST_GUILESS_MAIN(TestDemoDatabase)
#include "test_demodatabase.moc"
