// The session against the real server: type codes, values, updates, error numbers, and the
// guards that keep unescaped operator text from doing more than breaking its own statement.
#include "db/databasesession.h"
#include "testdb.h"

#include <QElapsedTimer>
#include <QTest>

using namespace tabulon;
using namespace tabulon::test;

class TestDatabaseSession final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void typesAndNulls_data();
    void typesAndNulls();
    void tableOpenSendsOneStatement();
    void updateByPrimaryKey();
    void updateWithoutKeyMatchesAllValues();
    void errorNumbers();
    void noMultiStatementsNoLocalInfile();
    void quotedIdentifiers();
    void lostConnectionIsAnErrorNotAHang();
    void readTimeout();
    void badServerFailsToOpen();
    void updateStatementText();

private:
    std::unique_ptr<ScratchDatabase> m_db;
    DatabaseSession m_session;
};

void TestDatabaseSession::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(QStringLiteral("session"));
    QVERIFY_DB(m_db->error());
    QVERIFY_DB(openSession(m_session, m_db->name()));
    // A row of values, then a row of NULLs.
    QVERIFY_DB(m_db->run({
        QStringLiteral("CREATE TABLE alltypes ("
                       "c_tiny TINYINT, c_utiny TINYINT UNSIGNED, c_small SMALLINT, c_year YEAR, c_medium MEDIUMINT,"
                       "c_int INT, c_big BIGINT, c_float FLOAT, c_double DOUBLE, c_dec DECIMAL(10,2), c_date DATE,"
                       "c_datetime DATETIME, c_ts TIMESTAMP NULL, c_time TIME, c_char CHAR(5), c_varchar VARCHAR(20),"
                       "c_text TEXT, c_blob BLOB, c_binary BINARY(4), c_varbinary VARBINARY(8), c_bit BIT(1),"
                       "c_bits BIT(8), c_enum ENUM('a','b')) ENGINE=MyISAM"),
        QStringLiteral("INSERT INTO alltypes VALUES (-5, 200, -300, 2024, 70000, 123456, 9007199254740993, 1.5, 2.25,"
                       "12.50, '2007-12-25', '2007-12-25 10:30:00', '2020-01-02 03:04:05', '10:11:12', 'ab', 'Müller',"
                       "'', 'raw', 'abcd', 'xy', b'1', b'101', 'b')"),
        QStringLiteral("INSERT INTO alltypes () VALUES ()"),
    }));
}

void TestDatabaseSession::typesAndNulls_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");
    QTest::newRow("tinyint") << "c_tiny" << 16 << "-5";
    QTest::newRow("tinyint unsigned") << "c_utiny" << 17 << "200";
    QTest::newRow("smallint") << "c_small" << 2 << "-300";
    QTest::newRow("year") << "c_year" << 2 << "2024";
    QTest::newRow("mediumint") << "c_medium" << 3 << "70000";
    QTest::newRow("int") << "c_int" << 3 << "123456";
    QTest::newRow("bigint") << "c_big" << 20 << "9007199254740993";
    QTest::newRow("float") << "c_float" << 4 << "1.5";
    QTest::newRow("double") << "c_double" << 5 << "2.25";
    QTest::newRow("decimal") << "c_dec" << 131 << "12.50";
    QTest::newRow("date") << "c_date" << 133 << "2007-12-25";
    QTest::newRow("datetime") << "c_datetime" << 135 << "2007-12-25 10:30:00";
    QTest::newRow("timestamp") << "c_ts" << 135 << "2020-01-02 03:04:05";
    QTest::newRow("time") << "c_time" << 134 << "10:11:12";
    QTest::newRow("char") << "c_char" << 129 << "ab";
    QTest::newRow("varchar") << "c_varchar" << 200 << "Müller";
    QTest::newRow("text, empty") << "c_text" << 201 << "";
    QTest::newRow("blob") << "c_blob" << 205 << "raw";
    QTest::newRow("binary") << "c_binary" << 128 << "abcd";
    QTest::newRow("varbinary") << "c_varbinary" << 204 << "xy";
    QTest::newRow("bit(1)") << "c_bit" << 11 << "True";
    QTest::newRow("bit(8)") << "c_bits" << 128 << "5";
    QTest::newRow("enum") << "c_enum" << 129 << "b";
}

void TestDatabaseSession::typesAndNulls()
{
    QFETCH(QString, field);
    auto rs = m_session.openTable(QStringLiteral("alltypes"));
    QVERIFY_DB(rs.error());
    const int f = rs->fieldIndex(field);
    QVERIFY(f >= 0);
    QTEST(rs->field(f).type, "code");
    QTEST(rs->text(0, f), "text");
    // Row 0 holds values, one of them empty text, which is not a NULL; row 1 holds NULLs.
    QVERIFY(rs->value(0, f).has_value());
    QVERIFY(!rs->value(1, f).has_value());
    QCOMPARE(rs->text(1, f), QString());
}

void TestDatabaseSession::tableOpenSendsOneStatement()
{
    DatabaseSession s;
    QVERIFY_DB(openSession(s, m_db->name()));
    QVERIFY(s.openTable(QStringLiteral("alltypes")).ok());
    // A statement without rows gives a closed recordset.
    auto none = s.openQuery(QStringLiteral("DO 1"));
    QVERIFY(none.ok() && !none->isOpen());
    QCOMPARE(statementsReceived(m_db->admin(), s.connectionId()),
             QStringList({QStringLiteral("SELECT * FROM `alltypes`"), QStringLiteral("DO 1")}));
}

void TestDatabaseSession::updateByPrimaryKey()
{
    QVERIFY_DB(m_db->run({QStringLiteral("CREATE TABLE keyed (id INT PRIMARY KEY, name VARCHAR(30), note TEXT)"),
                          QStringLiteral("INSERT INTO keyed VALUES (1, 'a', 'x'), (2, 'b', NULL)")}));
    auto rs = m_session.openTable(QStringLiteral("keyed"));
    QVERIFY_DB(rs.error());
    rs->moveTo(1);
    // A value that would break an unescaped statement, and a NULL.
    rs->setField(1, QStringLiteral("O'Brien \\ \"q\""));
    rs->setField(2, std::nullopt);
    QVERIFY_DB(rs->update());
    QCOMPARE(m_db->rows(QStringLiteral("SELECT id, name, note FROM keyed ORDER BY id")),
             QStringList({QStringLiteral("1|a|x"), QStringLiteral("2|O'Brien \\ \"q\"|\\N")}));
    QCOMPARE(rs->text(1, 1), QStringLiteral("O'Brien \\ \"q\""));
    const QStringList received = statementsReceived(m_db->admin(), m_session.connectionId());
    QVERIFY2(received.last().endsWith(QStringLiteral("WHERE `id`<=>'2' LIMIT 1")), qPrintable(received.last()));

    // A row deleted since it was read cannot be located; an update that changes nothing can.
    QVERIFY_DB(m_db->run({QStringLiteral("DELETE FROM keyed WHERE id = 1")}));
    rs->moveTo(0);
    rs->setField(1, QStringLiteral("z"));
    QCOMPARE(rs->update().number, AdoError::RowNotFound);
    rs->moveTo(1);
    rs->setField(2, std::nullopt);
    QVERIFY_DB(rs->update());
}

void TestDatabaseSession::updateWithoutKeyMatchesAllValues()
{
    QVERIFY_DB(m_db->run({QStringLiteral("CREATE TABLE nokey (a INT, b VARCHAR(10))"),
                          QStringLiteral("INSERT INTO nokey VALUES (1, NULL), (1, 'x'), (1, NULL)")}));
    auto rs = m_session.openTable(QStringLiteral("nokey"));
    QVERIFY_DB(rs.error());
    rs->moveTo(1);
    rs->setField(0, QStringLiteral("7"));
    QVERIFY_DB(rs->update());
    rs->moveTo(0);
    rs->setField(1, QStringLiteral("y"));
    QVERIFY_DB(rs->update()); // matches a NULL, and only one of the two equal rows
    QCOMPARE(m_db->rows(QStringLiteral("SELECT a, b FROM nokey ORDER BY a, b")),
             QStringList({QStringLiteral("1|\\N"), QStringLiteral("1|y"), QStringLiteral("7|x")}));
}

void TestDatabaseSession::errorNumbers()
{
    QCOMPARE(m_session.execute(QStringLiteral("SELEC 1")).number, AdoError::Syntax);
    QCOMPARE(m_session.openTable(QStringLiteral("no_such_table")).error().number, AdoError::Generic);
    QVERIFY_DB(m_session.execute(QStringLiteral("CREATE TABLE twice (a INT)")));
    const DbError exists = m_session.execute(QStringLiteral("CREATE TABLE twice (a INT)"));
    QVERIFY(exists.description.contains(QStringLiteral("already exists")));
    QCOMPARE(exists.numberText(), QStringLiteral("-2147467259 (80004005)"));

    const QString user = QStringLiteral("tabulon_ro");
    QVERIFY_DB(m_db->run({QStringLiteral("DROP USER IF EXISTS '%1'@'127.0.0.1'").arg(user),
                          QStringLiteral("CREATE USER '%1'@'127.0.0.1' IDENTIFIED BY 'pw'").arg(user),
                          QStringLiteral("GRANT SELECT ON `%1`.* TO '%2'@'127.0.0.1'").arg(m_db->name(), user)}));
    DatabaseSession s;
    QVERIFY_DB(s.open(QStringLiteral("server=%1;uid=%2;pwd=pw;database=%3;").arg(serverAddress(), user, m_db->name())));
    QCOMPARE(s.execute(QStringLiteral("CREATE TABLE nope (a INT)")).number, AdoError::PermissionDenied);
    QVERIFY_DB(m_db->run({QStringLiteral("DROP USER '%1'@'127.0.0.1'").arg(user)}));
}

void TestDatabaseSession::noMultiStatementsNoLocalInfile()
{
    QVERIFY_DB(m_db->run({QStringLiteral("CREATE TABLE victim (a INT)")}));
    // What an unescaped quote in operator text could smuggle in.
    QVERIFY(m_session.execute(QStringLiteral("SELECT * FROM victim WHERE a='1'; DROP TABLE victim; -- '")).isError());
    QCOMPARE(m_db->rows(QStringLiteral("SHOW TABLES LIKE 'victim'")), QStringList({QStringLiteral("victim")}));
    QVERIFY(m_session.execute(QStringLiteral("LOAD DATA LOCAL INFILE '/etc/hostname' INTO TABLE victim")).isError());
    QVERIFY(m_db->rows(QStringLiteral("SELECT * FROM victim")).isEmpty());
}

void TestDatabaseSession::quotedIdentifiers()
{
    QVERIFY_DB(m_db->run({QStringLiteral("CREATE TABLE `we``ird name` (`a``b` INT PRIMARY KEY, v INT)"),
                          QStringLiteral("INSERT INTO `we``ird name` VALUES (1, 1)")}));
    auto rs = m_session.openTable(QStringLiteral("we`ird name"));
    QVERIFY_DB(rs.error());
    rs->setField(1, QStringLiteral("9"));
    QVERIFY_DB(rs->update());
    QCOMPARE(m_db->rows(QStringLiteral("SELECT v FROM `we``ird name`")), QStringList({QStringLiteral("9")}));
}

void TestDatabaseSession::lostConnectionIsAnErrorNotAHang()
{
    DatabaseSession s;
    QVERIFY_DB(openSession(s, m_db->name()));
    QVERIFY_DB(m_db->run({QStringLiteral("KILL %1").arg(s.connectionId())}));
    QElapsedTimer t;
    t.start();
    QCOMPARE(s.execute(QStringLiteral("SELECT 1")).number, AdoError::Generic);
    QVERIFY(t.elapsed() < 5000);
}

void TestDatabaseSession::readTimeout()
{
    DatabaseSession s;
    s.setTimeouts(5, 1, 1);
    QVERIFY_DB(openSession(s, m_db->name()));
    QElapsedTimer t;
    t.start();
    QVERIFY(s.execute(QStringLiteral("SELECT SLEEP(30)")).isError());
    QVERIFY2(t.elapsed() < 15000, qPrintable(QString::number(t.elapsed())));
}

void TestDatabaseSession::badServerFailsToOpen()
{
    DatabaseSession s;
    s.setTimeouts(3, 3, 3);
    QVERIFY(s.open(QStringLiteral("server=127.0.0.1:1;uid=dbop;pwd=;database=x;")).isError());
    QVERIFY(s.open(connectionString(QStringLiteral("no_such_database_here"))).isError());
    QCOMPARE(s.state(), 0);
    QVERIFY(s.execute(QStringLiteral("SELECT 1")).isError());
}

void TestDatabaseSession::updateStatementText()
{
    SessionSql::UpdateTarget t{.database = QStringLiteral("db"),
                               .table = QStringLiteral("t"),
                               .fields = std::vector<FieldInfo>(2),
                               .original = {QStringLiteral("1"), std::nullopt},
                               .changes = {{1, QStringLiteral("it's")}}};
    t.fields[0].name = QStringLiteral("a");
    t.fields[1].name = QStringLiteral("b");
    QCOMPARE(SessionSql::buildUpdate(t, SessionSql::escapeDefault),
             QByteArray("UPDATE `db`.`t` SET `b`='it\\'s' WHERE `a`<=>'1' AND `b`<=>NULL LIMIT 1"));
    t.fields[0].primaryKey = true;
    QCOMPARE(SessionSql::buildUpdate(t, SessionSql::escapeDefault),
             QByteArray("UPDATE `db`.`t` SET `b`='it\\'s' WHERE `a`<=>'1' LIMIT 1"));
}

QTEST_GUILESS_MAIN(TestDatabaseSession)
#include "test_databasesession.moc"
