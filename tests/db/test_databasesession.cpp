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
    void updateByPrimaryKey();
    void updateWithoutKeyMatchesAllValues();
    void errorsAndGuards();
    void failuresAreErrorsNotHangs();
    void updateStatementText();
    void streamingRows();

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
    QVERIFY(rs->value(0, f).has_value() && !rs->value(1, f).has_value());
}

void TestDatabaseSession::updateByPrimaryKey()
{
    QVERIFY_DB(
        m_db->run({QStringLiteral("CREATE TABLE `ke``yed` (`i``d` INT PRIMARY KEY, name VARCHAR(30), note TEXT)"),
                   QStringLiteral("INSERT INTO `ke``yed` VALUES (1, 'a', 'x'), (2, 'b', NULL)")}));
    DatabaseSession s;
    QVERIFY_DB(openSession(s, m_db->name()));
    auto rs = s.openTable(QStringLiteral("ke`yed"));
    QVERIFY_DB(rs.error());
    rs->moveTo(1);
    // A value that would break an unescaped statement, and a NULL.
    rs->setField(1, QStringLiteral(R"(O'Brien \ "q")"));
    rs->setField(2, std::nullopt);
    QVERIFY_DB(rs->update());
    QCOMPARE(rs->text(1, 1), QStringLiteral(R"(O'Brien \ "q")"));
    QCOMPARE(m_db->rows(QStringLiteral("SELECT * FROM `ke``yed` ORDER BY 1")), sl({"1|a|x", R"(2|O'Brien \ "q"|\N)"}));
    // One statement to open the table and one to update it, by the key alone, back-ticks doubled.
    QCOMPARE(statementsReceived(m_db->admin(), s.connectionId()),
             QStringList({QStringLiteral("SELECT * FROM `ke``yed`"),
                          QStringLiteral(R"(UPDATE `%1`.`ke``yed` SET `name`='O\'Brien \\ \"q\"',`note`=NULL )"
                                         R"(WHERE `i``d`<=>'2' LIMIT 1)")
                              .arg(m_db->name())}));

    // A row deleted since it was read cannot be located; an update that changes nothing can.
    QVERIFY_DB(m_db->run({QStringLiteral("DELETE FROM `ke``yed` WHERE `i``d` = 1")}));
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
    QCOMPARE(m_db->rows(QStringLiteral("SELECT a, b FROM nokey ORDER BY a, b")), sl({"1|\\N", "1|y", "7|x"}));
}

void TestDatabaseSession::errorsAndGuards()
{
    QCOMPARE(m_session.execute(QStringLiteral("SELEC 1")).number, AdoError::Syntax);
    QCOMPARE(m_session.execute(QStringLiteral("CREATE TABLE alltypes (a INT)")).number, AdoError::Generic);
    const DbError missing = m_session.openTable(QStringLiteral("no_such_table")).error();
    QVERIFY(missing.description.contains(QStringLiteral("doesn't exist")));
    QCOMPARE(missing.numberText(), QStringLiteral("-2147467259 (80004005)"));
    QVERIFY_DB(m_db->run({QStringLiteral("CREATE OR REPLACE USER 'tabulon_ro'@'127.0.0.1' IDENTIFIED BY 'pw'"),
                          QStringLiteral("GRANT SELECT ON `%1`.* TO 'tabulon_ro'@'127.0.0.1'").arg(m_db->name())}));
    DatabaseSession s;
    QVERIFY_DB(s.open(connectionString(m_db->name()), QStringLiteral("tabulon_ro"), QStringLiteral("pw")));
    QCOMPARE(s.execute(QStringLiteral("CREATE TABLE nope (a INT)")).number, AdoError::PermissionDenied);
    QVERIFY_DB(m_db->run({QStringLiteral("DROP USER 'tabulon_ro'@'127.0.0.1'")}));

    // What an unescaped quote in operator text could smuggle in only breaks its own statement.
    QVERIFY_DB(m_db->run({QStringLiteral("CREATE TABLE victim (a INT)")}));
    QVERIFY(m_session.execute(QStringLiteral("SELECT * FROM victim WHERE a='1'; DROP TABLE victim; -- '")).isError());
    QVERIFY(m_session.execute(QStringLiteral("LOAD DATA LOCAL INFILE '/etc/hostname' INTO TABLE victim")).isError());
    QCOMPARE(m_db->rows(QStringLiteral("SELECT COUNT(*) FROM victim")), sl({"0"}));
}

void TestDatabaseSession::failuresAreErrorsNotHangs()
{
    // A connection the server dropped, then a server that stops answering.
    DatabaseSession s;
    QVERIFY_DB(openSession(s, m_db->name()));
    QVERIFY_DB(m_db->run({QStringLiteral("KILL %1").arg(s.connectionId())}));
    QElapsedTimer t;
    t.start();
    QCOMPARE(s.execute(QStringLiteral("SELECT 1")).number, AdoError::Generic);
    QVERIFY(t.elapsed() < 5000);
    s.setTimeouts(3, 1, 1);
    QVERIFY_DB(openSession(s, m_db->name()));
    t.restart();
    QVERIFY(s.execute(QStringLiteral("SELECT SLEEP(30)")).isError());
    QVERIFY2(t.elapsed() < 15000, qPrintable(QString::number(t.elapsed())));

    // A failed open leaves the session closed.
    QVERIFY(s.open(QStringLiteral("server=127.0.0.1:1;uid=dbop;pwd=;database=x;")).isError());
    QVERIFY(s.open(connectionString(QStringLiteral("no_such_database_here"))).isError());
    QCOMPARE(s.state(), 0);
    QVERIFY(s.execute(QStringLiteral("SELECT 1")).isError());
}

void TestDatabaseSession::updateStatementText()
{
    // Without a key, every value as read locates the row, a NULL included.
    SessionSql::UpdateTarget t{.database = QStringLiteral("db"),
                               .table = QStringLiteral("t"),
                               .fields = std::vector<FieldInfo>(2),
                               .original = {QStringLiteral("1"), std::nullopt},
                               .changes = {{1, QStringLiteral("it's")}}};
    t.fields[0].name = QStringLiteral("a");
    t.fields[1].name = QStringLiteral("b");
    QCOMPARE(SessionSql::buildUpdate(t, SessionSql::escapeDefault),
             QByteArray("UPDATE `db`.`t` SET `b`='it\\'s' WHERE `a`<=>'1' AND `b`<=>NULL LIMIT 1"));
}

// Rows handed over one at a time carry the same texts, types and NULLs as a held recordset; a
// callback's error stops the reading and leaves the connection usable; statement errors and
// statements without rows come back as for execute().
void TestDatabaseSession::streamingRows()
{
    const QString sql = QStringLiteral("SELECT * FROM alltypes");
    auto held = m_session.openQuery(sql);
    QVERIFY_DB(held.error());
    std::vector<FieldInfo> fields;
    QList<QList<std::optional<QString>>> rows;
    const auto keepFields = [&fields](const std::vector<FieldInfo> &f) {
        fields = f;
        return DbError{};
    };
    const auto keepRow = [&rows](std::span<const std::optional<QByteArrayView>> cells) {
        QList<std::optional<QString>> row;
        for (const auto &cell : cells)
            row << (cell ? std::optional<QString>(QString::fromUtf8(*cell)) : std::nullopt);
        rows << row;
        return DbError{};
    };
    QVERIFY_DB(m_session.streamQuery(sql, keepFields, keepRow));
    QCOMPARE(int(fields.size()), held->fieldCount());
    QCOMPARE(rows.size(), held->recordCount());
    for (int f = 0; f < held->fieldCount(); ++f) {
        QCOMPARE(fields[size_t(f)].type, held->field(f).type);
        QCOMPARE(fields[size_t(f)].originalName, held->field(f).originalName);
        for (int r = 0; r < 2; ++r)
            QCOMPARE(rows[r][f], held->value(r, f));
    }

    QVERIFY_DB(m_db->run({QStringLiteral("CREATE TABLE many SELECT seq FROM seq_1_to_5000")}));
    int seen = 0;
    const DbError stop = m_session.streamQuery(QStringLiteral("SELECT * FROM many"), {}, [&seen](auto) {
        return ++seen == 10 ? DbError::generic(QStringLiteral("enough")) : DbError{};
    });
    QCOMPARE(QPair(stop.description, seen), QPair(QStringLiteral("enough"), 10));
    fields.clear();
    QVERIFY_DB(m_session.streamQuery(QStringLiteral("SELECT * FROM many"), keepFields, {}));
    QCOMPARE(fields.size(), size_t(1));
    QCOMPARE(m_session.openQuery(QStringLiteral("SELECT COUNT(*) FROM many"))->text(0, 0), QStringLiteral("5000"));

    bool called = false;
    const auto mark = [&called](auto) {
        called = true;
        return DbError{};
    };
    QVERIFY(m_session.streamQuery(QStringLiteral("SELECT * FROM no_such_table"), mark, mark).isError());
    QVERIFY_DB(m_session.streamQuery(QStringLiteral("DO 1"), mark, mark));
    QVERIFY(!called);
}

QTEST_GUILESS_MAIN(TestDatabaseSession)
#include "test_databasesession.moc"
