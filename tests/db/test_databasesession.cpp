// The database library: the session against the real server (connection strings, type codes,
// values, updates, error numbers, and the guards that keep unescaped operator text from doing
// more than breaking its own statement), and the compact column storage that holds what it reads.
#include "db/connectionstring.h"
#include "db/databasesession.h"
#include "db/statementpipeline.h"
#include "db/tabletransaction.h"
#include "db/textcolumn.h"
#include "testdb.h"

#include <QElapsedTimer>
#include <QScopeGuard>
#include <QTest>

#include <tuple>

using namespace tabulon;
using namespace tabulon::test;

class TestDatabaseSession final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void connectionTargets_data();
    void connectionTargets();
    void typesAndNulls_data();
    void typesAndNulls();
    void updates();
    void updatesLocateByBytes_data();
    void updatesLocateByBytes();
    void statementsLongerThanTheServerTakes();
    void errorsAndGuards();
    void streamingRows();
    void tableTransactions_data();
    void tableTransactions();
    void lockWaitThatRollsBackAll();
    void pipelines_data();
    void pipelines();
    void editsNullsAndResize();
    void lengthsOfEverySizeAcrossBlocks();
    void copiesShareUntilChanged();

private:
    std::unique_ptr<ScratchDatabase> m_db;
    DatabaseSession m_session;
};

void TestDatabaseSession::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(qs("session"));
    QVERIFY_DB(m_db->error());
    QVERIFY_DB(openSession(m_session, m_db->name()));
    // A row of values, then a row of NULLs.
    QVERIFY_DB(m_db->run({
        qs("CREATE TABLE alltypes ("
           "c_tiny TINYINT, c_utiny TINYINT UNSIGNED, c_small SMALLINT, c_year YEAR, c_medium MEDIUMINT,"
           "c_int INT, c_big BIGINT, c_float FLOAT, c_double DOUBLE, c_dec DECIMAL(10,2), c_date DATE,"
           "c_datetime DATETIME, c_ts TIMESTAMP NULL, c_time TIME, c_char CHAR(5), c_varchar VARCHAR(20),"
           "c_text TEXT, c_blob BLOB, c_binary BINARY(4), c_varbinary VARBINARY(8), c_bit BIT(1),"
           "c_bits BIT(8), c_enum ENUM('a','b')) ENGINE=MyISAM"),
        qs("INSERT INTO alltypes VALUES (-5, 200, -300, 2024, 70000, 123456, 9007199254740993, 1.5, 2.25,"
           "12.50, '2007-12-25', '2007-12-25 10:30:00', '2020-01-02 03:04:05', '10:11:12', 'ab', 'Müller',"
           "'', 'raw', 'abcd', 'xy', b'1', b'101', 'b')"),
        qs("INSERT INTO alltypes () VALUES ()"),
    }));
}

// Connection strings as the program writes them, and as operators may type the server.
// clang-format off
void TestDatabaseSession::connectionTargets_data()
{
    QTest::addColumn<QString>("connection");
    QTest::addColumn<QStringList>("target"); // host, port, user, password, database
    QTest::newRow("as written") << qs("PROVIDER=MSDASQL;driver={MySQL};server=127.0.0.1:13306;uid=dbop;" "pwd=;database=Orvita;") << sl({"127.0.0.1", "13306", "dbop", "", "Orvita"});
    QTest::newRow("braces") << qs("SERVER=h;UID=u;PWD={a;b=}}c};DATABASE=x") << sl({"h", "0", "u", "a;b=}c", "x"});
    QTest::newRow("bad port") << qs(" server = h:abc ;uid=a") << sl({" h:abc ", "0", "a", "", ""});
}
// clang-format on

void TestDatabaseSession::connectionTargets()
{
    QFETCH(QString, connection);
    const ConnectionTarget t = connectionTargetFrom(connection);
    QTEST((QStringList{t.host, QString::number(t.port), t.user, t.password, t.database}), "target");
}

void TestDatabaseSession::typesAndNulls_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");
    // clang-format off
    const std::tuple<const char *, int, const char *> fields[] = {
        {"c_tiny", 16, "-5"}, {"c_utiny", 17, "200"}, {"c_small", 2, "-300"}, {"c_year", 2, "2024"},
        {"c_medium", 3, "70000"}, {"c_int", 3, "123456"}, {"c_big", 20, "9007199254740993"}, {"c_float", 4, "1.5"},
        {"c_double", 5, "2.25"}, {"c_dec", 131, "12.50"}, {"c_date", 133, "2007-12-25"},
        {"c_datetime", 135, "2007-12-25 10:30:00"}, {"c_ts", 135, "2020-01-02 03:04:05"}, {"c_time", 134, "10:11:12"},
        {"c_char", 129, "ab"}, {"c_varchar", 200, "Müller"}, {"c_text", 201, ""}, {"c_blob", 205, "raw"},
        {"c_binary", 128, "abcd"}, {"c_varbinary", 204, "xy"}, {"c_bit", 11, "1"}, {"c_bits", 128, "5"},
        {"c_enum", 129, "b"}};
    // clang-format on
    for (const auto &[field, code, text] : fields)
        QTest::newRow(field) << qs(field) << code << qs(text);
}

void TestDatabaseSession::typesAndNulls()
{
    QFETCH(QString, field);
    auto rs = m_session.openTable(qs("alltypes"));
    QVERIFY_DB(rs.error());
    const int f = rs->fieldIndex(field);
    QVERIFY(f >= 0);
    QTEST(rs->field(f).type, "code");
    QTEST(rs->text(0, f), "text");
    // Row 0 holds values, one of them empty text, which is not a NULL; row 1 holds NULLs.
    QVERIFY(rs->value(0, f).has_value() && !rs->value(1, f).has_value());
}

// Updates by the primary key; a row that is gone cannot be located. (Without a key:
// updatesLocateByBytes.)
void TestDatabaseSession::updates()
{
    QVERIFY_DB(m_db->run({qs("CREATE TABLE `ke``yed` (`i``d` INT PRIMARY KEY, name VARCHAR(30), note TEXT)"),
                          qs("INSERT INTO `ke``yed` VALUES (1, 'a', 'x'), (2, 'b', NULL)")}));
    DatabaseSession s;
    QVERIFY_DB(openSession(s, m_db->name()));
    auto rs = s.openTable(qs("ke`yed"));
    QVERIFY_DB(rs.error());
    rs->moveTo(1);
    // A value that would break an unescaped statement, and a NULL.
    rs->setField(1, qs(R"(O'Brien \ "q")"));
    rs->setField(2, std::nullopt);
    QVERIFY_DB(rs->update());
    QCOMPARE(rs->text(1, 1), qs(R"(O'Brien \ "q")"));
    QCOMPARE(m_db->rows(qs("SELECT * FROM `ke``yed` ORDER BY 1")), sl({"1|a|x", R"(2|O'Brien \ "q"|\N)"}));
    // The table, its key, and the update by the key alone, back-ticks doubled.
    QCOMPARE(statementsReceived(m_db->admin(), s.connectionId()),
             QStringList({qs("SELECT * FROM `ke``yed`"), qs("SHOW INDEX FROM `%1`.`ke``yed`").arg(m_db->name()),
                          qs(R"(UPDATE `%1`.`ke``yed` SET `name`='O\'Brien \\ \"q\"',`note`=NULL )"
                             R"(WHERE `i``d`='2' LIMIT 1)")
                              .arg(m_db->name())}));

    // A row deleted since it was read cannot be located; an update that changes nothing can.
    QVERIFY_DB(m_db->run({qs("DELETE FROM `ke``yed` WHERE `i``d` = 1")}));
    rs->moveTo(0);
    rs->setField(1, qs("z"));
    QCOMPARE(rs->update().number, AdoError::RowNotFound);
    rs->moveTo(1);
    rs->setField(2, std::nullopt);
    QVERIFY_DB(rs->update());
}

void TestDatabaseSession::errorsAndGuards()
{
    QCOMPARE(m_session.execute(qs("SELEC 1")).number, AdoError::Syntax);
    QCOMPARE(m_session.execute(qs("CREATE TABLE alltypes (a INT)")).number, AdoError::Generic);
    const DbError missing = m_session.openTable(qs("no_such_table")).error();
    QVERIFY(missing.description.contains(qs("doesn't exist")));
    QCOMPARE(missing.numberText(), qs("-2147467259 (80004005)"));
    QVERIFY_DB(m_db->run({qs("CREATE OR REPLACE USER 'tabulon_ro'@'127.0.0.1' IDENTIFIED BY 'pw'"),
                          qs("GRANT SELECT ON `%1`.* TO 'tabulon_ro'@'127.0.0.1'").arg(m_db->name())}));
    DatabaseSession s;
    QVERIFY_DB(s.open(connectionString(m_db->name()), qs("tabulon_ro"), qs("pw")));
    QCOMPARE(s.execute(qs("CREATE TABLE nope (a INT)")).number, AdoError::PermissionDenied);
    QVERIFY_DB(m_db->run({qs("DROP USER 'tabulon_ro'@'127.0.0.1'")}));

    // What an unescaped quote in operator text could smuggle in only breaks its own statement.
    QVERIFY_DB(m_db->run({qs("CREATE TABLE victim (a INT)")}));
    QVERIFY(m_session.execute(qs("SELECT * FROM victim WHERE a='1'; DROP TABLE victim; -- '")).isError());
    QVERIFY(m_session.execute(qs("LOAD DATA LOCAL INFILE '/etc/hostname' INTO TABLE victim")).isError());
    QCOMPARE(m_db->rows(qs("SELECT COUNT(*) FROM victim")), sl({"0"}));

    // A connection the server dropped, then a server that stops answering: errors, not hangs.
    QVERIFY_DB(openSession(s, m_db->name()));
    QVERIFY_DB(m_db->run({qs("KILL %1").arg(s.connectionId())}));
    QElapsedTimer t;
    t.start();
    QCOMPARE(s.execute(qs("SELECT 1")).number, AdoError::Generic);
    QVERIFY(t.elapsed() < 5000);
    s.setTimeouts(3, 1, 1);
    QVERIFY_DB(openSession(s, m_db->name()));
    t.restart();
    QVERIFY(s.execute(qs("SELECT SLEEP(30)")).isError());
    QVERIFY2(t.elapsed() < 15000, qPrintable(QString::number(t.elapsed())));

    // A failed open leaves the session closed.
    QVERIFY(s.open(qs("server=127.0.0.1:1;uid=dbop;pwd=;database=x;")).isError());
    QVERIFY(s.open(connectionString(qs("no_such_database_here"))).isError());
    QCOMPARE(s.state(), 0);
    QVERIFY(s.execute(qs("SELECT 1")).isError());
}

// Rows handed over one at a time carry the same texts, types and NULLs as a held recordset; a
// callback's error stops the reading and leaves the connection usable; statement errors and
// statements without rows come back as for execute().
void TestDatabaseSession::streamingRows()
{
    const QString sql = qs("SELECT * FROM alltypes");
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

    QVERIFY_DB(m_db->run({qs("CREATE TABLE many SELECT seq FROM seq_1_to_5000")}));
    int seen = 0;
    // Another window's statement while the rows are still coming is refused in words, and the
    // reading goes on undisturbed.
    QString meanwhile;
    const DbError stop = m_session.streamQuery(qs("SELECT * FROM many"), {}, [&](auto) {
        if (++seen == 5)
            meanwhile = m_session.execute(qs("DO 1")).description + qs(" | ") +
                        m_session.openQuery(qs("SELECT 1")).error().description;
        return seen == 10 ? DbError::generic(qs("enough")) : DbError{};
    });
    QCOMPARE(QPair(stop.description, seen), QPair(qs("enough"), 10));
    QVERIFY2(meanwhile.count(qs("still reading the rows")) == 2, qPrintable(meanwhile));
    // A server slow to send a row is waited for a turn at a time, the caller told after each
    // turn; its stop takes effect once that row is in, and the session goes on.
    int turns = 0;
    rows.clear();
    // The rows before the slow one are more than the server holds back before it sends.
    const QString slow = qs("SELECT seq, REPEAT('x', 1000), IF(seq = 100, SLEEP(0.3), 0) FROM seq_1_to_101");
    QVERIFY_DB(m_session.streamQuery(
        slow, {}, keepRow, [&turns] { return ++turns, DbError{}; }, 10));
    QVERIFY2(turns >= 5 && rows.size() == 101 && rows[100][0] == qs("101"), qPrintable(QString::number(turns)));
    rows.clear();
    const DbError late = m_session.streamQuery(slow, {}, keepRow, [] { return DbError::generic(qs("late")); });
    QCOMPARE(late.description, qs("late"));
    QVERIFY2(rows.size() > 1 && rows.size() < 100, qPrintable(QString::number(rows.size())));
    // A table that another connection holds locked keeps the statement from starting: that
    // wait is cut into turns too, the connection refuses other statements meanwhile, and a
    // stop with the statement ended on the server comes back as the stop. Without the turns
    // the statement would fail at the lock timeout.
    QVERIFY_DB(m_session.execute(qs("SET SESSION lock_wait_timeout = 5")));
    QVERIFY_DB(m_db->run({qs("LOCK TABLES many WRITE")}));
    turns = 0;
    rows.clear();
    meanwhile.clear();
    QVERIFY_DB(m_session.streamQuery(qs("SELECT * FROM many"), {}, keepRow, [&] {
        if (++turns == 2)
            meanwhile = m_session.execute(qs("DO 1")).description;
        if (turns == 5)
            (void)m_db->admin().execute(qs("UNLOCK TABLES"));
        return DbError{};
    }));
    QVERIFY2(turns >= 5 && rows.size() == 5000, qPrintable(QString::number(turns)));
    QVERIFY2(meanwhile.contains(qs("still reading the rows")), qPrintable(meanwhile));
    QVERIFY_DB(m_db->run({qs("LOCK TABLES many WRITE")}));
    turns = 0;
    rows.clear();
    const DbError ended = m_session.streamQuery(qs("SELECT * FROM many"), {}, keepRow, [&] {
        if (++turns == 3)
            (void)m_db->admin().execute(qs("KILL QUERY %1").arg(m_session.connectionId()));
        return turns >= 3 ? DbError::generic(qs("stopped")) : DbError{};
    });
    QVERIFY_DB(m_db->run({qs("UNLOCK TABLES")}));
    QCOMPARE(QPair(ended.description, rows.size()), QPair(qs("stopped"), qsizetype(0)));
    QVERIFY_DB(m_session.streamQuery(qs("SELECT * FROM many"), keepFields, {}));
    QCOMPARE(fields.size(), size_t(1));
    QCOMPARE(m_session.openQuery(qs("SELECT COUNT(*) FROM many"))->text(0, 0), qs("5000"));

    rows.clear(); // and fields holds the one of "many": neither callback may run from here on
    QVERIFY(m_session.streamQuery(qs("SELECT * FROM no_such_table"), keepFields, keepRow).isError());
    QVERIFY_DB(m_session.streamQuery(qs("DO 1"), keepFields, keepRow));
    QVERIFY(fields.size() == 1 && rows.isEmpty());
}

// Without a key every value as read locates the row. The second row read is changed, and only
// it, although the first compares equal to it under the column's collation, shares its key's
// visible part, or is the same row again.
// clang-format off
void TestDatabaseSession::updatesLocateByBytes_data()
{
    QTest::addColumn<QStringList>("setup"); // ends with the table or view `t` read
    QTest::addColumn<QString>("check");     // the base rows afterwards, in their order
    QTest::addColumn<QStringList>("after");
    const QString read = qs("SELECT * FROM t");
    QTest::newRow("accents") << sl({"CREATE TABLE t (name VARCHAR(9), city VARCHAR(9)) ENGINE=MyISAM", "INSERT INTO t VALUES ('Muller','Wien'),('Müller','Wien')"}) << read << sl({"Muller|Wien", "Müller|X"});
    QTest::newRow("accents, latin1 column") << sl({"CREATE TABLE t (name VARCHAR(9) CHARACTER SET latin1, city VARCHAR(9)) ENGINE=MyISAM", "INSERT INTO t VALUES ('Muller','Wien'),('Müller','Wien')"}) << read << sl({"Muller|Wien", "Müller|X"});
    QTest::newRow("trailing blank") << sl({"CREATE TABLE t (name VARCHAR(9), city VARCHAR(9)) ENGINE=MyISAM", "INSERT INTO t VALUES ('Oslo','a'),('Oslo ','a')"}) << read << sl({"Oslo|a", "Oslo |X"});
    QTest::newRow("letter case, InnoDB") << sl({"CREATE TABLE t (name VARCHAR(9), city VARCHAR(9)) ENGINE=InnoDB", "INSERT INTO t VALUES ('OSLO','a'),('Oslo','a')"}) << read << sl({"OSLO|a", "Oslo|X"});
    QTest::newRow("NULL apart from empty text") << sl({"CREATE TABLE t (name VARCHAR(9), city VARCHAR(9)) ENGINE=MyISAM", "INSERT INTO t VALUES ('',''),(NULL,'')"}) << qs("SELECT IFNULL(name, '-'), city FROM t") << sl({"|", "-|X"});
    QTest::newRow("twin rows with a NULL") << sl({"CREATE TABLE t (a INT, b VARCHAR(9)) ENGINE=MyISAM", "INSERT INTO t VALUES (1,NULL),(1,NULL)"}) << qs("SELECT a, IFNULL(b, '-') FROM t ORDER BY 2") << sl({"1|-", "1|X"});
    QTest::newRow("binary bytes") << sl({"CREATE TABLE t (code VARBINARY(4), name VARCHAR(9)) ENGINE=MyISAM", "INSERT INTO t VALUES (X'8027','a'),(X'8100','a')"}) << qs("SELECT HEX(code), name FROM t") << sl({"8027|a", "8100|X"});
    QTest::newRow("view over part of a key") << sl({"CREATE TABLE base (a INT, b INT, v VARCHAR(9), PRIMARY KEY (a, b)) ENGINE=InnoDB", "INSERT INTO base VALUES (1,1,'x'),(1,2,'y')", "CREATE VIEW t AS SELECT a, v FROM base"}) << qs("SELECT * FROM base ORDER BY b") << sl({"1|1|x", "1|2|X"});
}
// clang-format on

void TestDatabaseSession::updatesLocateByBytes()
{
    QFETCH(QStringList, setup);
    QVERIFY_DB(m_db->run({qs("DROP VIEW IF EXISTS t"), qs("DROP TABLE IF EXISTS t, base")}));
    QVERIFY_DB(m_db->run(setup));
    DatabaseSession s;
    QVERIFY_DB(openSession(s, m_db->name()));
    auto rs = s.openTable(qs("t"));
    QVERIFY_DB(rs.error());
    QCOMPARE(rs->recordCount(), 2);
    rs->moveTo(1);
    rs->setField(rs->fieldCount() - 1, qs("X"));
    QVERIFY_DB(rs->update());
    QFETCH(QString, check);
    QTEST(m_db->rows(check), "after");
}

// A statement the server would refuse for its length is not sent, and the connection stays.
void TestDatabaseSession::statementsLongerThanTheServerTakes()
{
    // The server's default limit is 16 MiB; a smaller one keeps the test quick. New connections
    // take it, so it is set before the session opens and put back at the end.
    auto was = m_db->admin().openQuery(qs("SELECT @@GLOBAL.max_allowed_packet"));
    QVERIFY_DB(was.error());
    const QString original = was->text(0, 0);
    QVERIFY_DB(m_db->run({qs("SET GLOBAL max_allowed_packet = 1048576")}));
    const auto restore =
        qScopeGuard([&] { (void)m_db->run({qs("SET GLOBAL max_allowed_packet = %1").arg(original)}); });
    DatabaseSession s;
    QVERIFY_DB(openSession(s, m_db->name()));
    QCOMPARE(s.statementLimit(), 1048575);
    const QByteArray big(1048576, 'a');
    const DbError refused = s.executeBytes("SELECT '" + big + "'");
    QCOMPARE(refused.serverCode, kStatementTooLong);
    QVERIFY2(refused.description.contains(qs("max_allowed_packet")), qPrintable(refused.description));
    QVERIFY(s.isOpen());
    QVERIFY_DB(s.execute(qs("SELECT 1")));
    QVERIFY_DB(s.executeBytes("SELECT '" + big.left(1048570 - 10) + "'"));
}

// Edits, NULLs and resizing, then enough edits that the column compacts on its own.
void TestDatabaseSession::editsNullsAndResize()
{
    TextColumn c;
    const auto cells = [&c] { // every cell as its text, a NULL as \N
        QStringList texts;
        for (qsizetype i = 0; i < c.size(); ++i)
            texts << (c.isNull(i) ? qs("\\N") : c.text(i));
        return texts;
    };
    c.append(QString());
    c.append(qs("Müller, \"Łukasz\"\t\r\n"));
    c.appendNull();
    c.append(qs("last"));
    c.setText(2, qs("now set"));
    c.setNull(1);
    c.setText(3, qs("last, longer"));
    for (int pass = 0; pass < 2; ++pass, c.compact())
        QCOMPARE(cells(), sl({"", "\\N", "now set", "last, longer"}));

    // Shrinking keeps the edits of the cells that stay and forgets the others.
    c.setText(0, qs("A"));
    c.setText(2, qs("dropped"));
    c.resize(2);
    c.append(qs("z"));
    c.resize(4);
    QCOMPARE(cells(), sl({"A", "\\N", "z", ""}));

    // Enough edits to compact the column several times on the way.
    const int n = 20000;
    const auto expected = [](int i) { return i % 2 ? QString::number(i) : qs("e%1").arg(i); };
    for (int i = 4; i < n; ++i)
        c.append(QString::number(i));
    for (int i = 0; i < n; i += 2)
        c.setText(i, expected(i));
    for (int i = 4; i < n; ++i)
        if (c.text(i) != expected(i))
            QFAIL(qPrintable(qs("cell %1: %2").arg(i).arg(c.text(i))));
}

// Cell lengths that take one, two and three length bytes, and runs of one length, nulls among
// them, read back across block boundaries, also after shrinking to sizes inside a block and
// growing again.
void TestDatabaseSession::lengthsOfEverySizeAcrossBlocks()
{
    const int lengths[] = {0, 1, 127, 128, 300, 16383, 16384, 70000, 5, 0};
    TextColumn c;
    std::vector<QByteArray> expected;
    const auto add = [&](int i) {
        // A long run of one length from cell 30 on, over several block starts, with a length
        // that takes two bytes to write; from cell 150 on, lengths of one byte, most of them
        // many in a row (which a read sums eight at a time), now and then a longer one.
        const bool run = i >= 30 && i < 140;
        const bool null = i % 13 == 7 && !run;
        const int length = run ? 200 : i < 150 ? lengths[i % 10] : i % 29 == 0 ? 128 + i : i * 37 % 128;
        expected.emplace_back(null ? 0 : length, static_cast<char>('a' + i % 26));
        null ? c.appendNull() : c.append(QByteArrayView(expected.back()));
    };
    const auto check = [&] {
        QCOMPARE(c.size(), static_cast<qsizetype>(expected.size()));
        for (size_t i = 0; i < expected.size(); ++i) {
            QVERIFY2(c.utf8(static_cast<qsizetype>(i)) == QByteArrayView(expected[i]), qPrintable(QString::number(i)));
            QCOMPARE(c.isNull(static_cast<qsizetype>(i)), int(i) % 13 == 7 && (i < 30 || i >= 140));
        }
        // The same cells read scattered, and in runs of neighbours, through the read that
        // fetches ahead.
        const auto n = static_cast<qsizetype>(expected.size());
        const auto rowOf = [n](qsizetype k) { return k % 3 == 0 ? k * 7919 % n : std::min(k, n - 1); };
        qsizetype wrong = -1;
        c.readScattered(n, rowOf, 3, [&](qsizetype k, QByteArrayView bytes) {
            if (wrong < 0 && bytes != QByteArrayView(expected[static_cast<size_t>(rowOf(k))]))
                wrong = rowOf(k);
        });
        QCOMPARE(wrong, -1);
    };
    for (int i = 0; i < 400; ++i)
        add(i);
    check();
    for (const int size : {61, 48, 33, 1, 0}) {
        c.resize(size);
        expected.resize(static_cast<size_t>(size));
        check();
        for (int i = size; i < size + 20; ++i)
            add(i);
        check();
        c.resize(static_cast<qsizetype>(expected.size()));
    }
    // A column of one length throughout keeps its text and no lengths.
    TextColumn dates;
    for (int i = 0; i < 10000; ++i)
        dates.append(QByteArrayView("2024-01-01"));
    dates.squeeze();
    QCOMPARE(dates.memoryUse(), 100000);
}

// A copy shares the storage; whichever side changes first gets its own, large buffers
// included (they grow by remapping and are faulted in ahead), and the other keeps its cells.
void TestDatabaseSession::copiesShareUntilChanged()
{
    TextColumn a;
    for (int i = 0; i < 40000; ++i) // about 400 KB of text
        a.append(QByteArrayView(QByteArray::number(i).repeated(2)));
    a.appendNull();
    TextColumn b = a;
    TextColumn c = a;
    b.append(qs("only in b"));
    c.resize(3);
    c.setText(1, qs("edited"));
    c.append(QByteArrayView(QByteArray(300000, 'x')));
    a.squeeze();
    QCOMPARE(a.size(), 40001);
    QCOMPARE(b.size(), 40002);
    QCOMPARE(c.size(), 4);
    for (const int i : {0, 1, 17, 39999}) {
        QCOMPARE(a.text(i), QString::number(i).repeated(2));
        QCOMPARE(b.text(i), a.text(i));
    }
    QVERIFY(a.isNull(40000) && b.isNull(40000) && !b.isNull(40001));
    QCOMPARE(b.text(40001), qs("only in b"));
    QCOMPARE(c.text(1), qs("edited"));
    QCOMPARE(c.text(2), qs("22"));
    QCOMPARE(c.byteLength(3), 300000);
    QVERIFY(!c.text(0).isNull()); // an empty-looking cell is empty text, never a null string
}

void TestDatabaseSession::tableTransactions_data()
{
    QTest::addColumn<QString>("table");
    QTest::addColumn<bool>("transactional");
    QTest::newRow("InnoDB") << "tx_inno" << true;
    QTest::newRow("MyISAM") << "tx_isam" << false;
    QTest::newRow("Aria") << "tx_aria" << false;
    QTest::newRow("view over InnoDB") << "tx_view" << false;
    QTest::newRow("InnoDB twin of a MyISAM table") << "Tx_twin" << true;
    QTest::newRow("MyISAM twin of an InnoDB table") << "tx_twin" << false;
    QTest::newRow("no such table") << "tx_none" << false;
}

// Only InnoDB tables are written in a transaction: it commits what went in, rolls back what the
// command leaves unfinished, and says when the server has ended it, the table then as before.
void TestDatabaseSession::tableTransactions()
{
    QFETCH(QString, table);
    QFETCH(bool, transactional);
    QVERIFY_DB(m_db->run({qs("CREATE OR REPLACE TABLE tx_inno (a INT PRIMARY KEY) ENGINE=InnoDB"),
                          qs("CREATE OR REPLACE TABLE tx_isam (a INT PRIMARY KEY) ENGINE=MyISAM"),
                          qs("CREATE OR REPLACE TABLE tx_aria (a INT PRIMARY KEY) ENGINE=Aria"),
                          qs("CREATE OR REPLACE VIEW tx_view AS SELECT * FROM tx_inno"),
                          qs("CREATE OR REPLACE TABLE Tx_twin (a INT PRIMARY KEY) ENGINE=InnoDB"),
                          qs("CREATE OR REPLACE TABLE tx_twin (a INT PRIMARY KEY) ENGINE=MyISAM")}));
    DatabaseSession s;
    QVERIFY_DB(openSession(s, m_db->name()));
    const auto insert = [&](int a) { return s.execute(qs("INSERT INTO %1 VALUES (%2)").arg(table).arg(a)); };
    const auto rows = [&] { return m_db->rows(qs("SELECT a FROM %1 ORDER BY a").arg(table)); };
    {
        TableTransaction unfinished(s, table);
        QVERIFY_DB(unfinished.error());
        QCOMPARE(unfinished.active(), transactional);
        (void)insert(1);
    }
    if (table != qs("tx_none"))
        QCOMPARE(rows(), transactional ? QStringList() : sl({"1"}));
    if (!transactional)
        return;
    QCOMPARE(s.openQuery(qs("SELECT @@autocommit"))->text(0, 0), qs("1"));

    TableTransaction committed(s, table);
    QVERIFY_DB(committed.afterWrite(insert(1)));
    // A refused row ends only itself; the rows around it stay in the transaction.
    const DbError duplicate = insert(1);
    QVERIFY(duplicate.isError());
    QVERIFY_DB(committed.afterWrite(duplicate));
    QVERIFY_DB(committed.afterWrite(insert(2)));
    QVERIFY_DB(committed.commit());
    QCOMPARE(rows(), sl({"1", "2"}));

    TableTransaction ended(s, table);
    QVERIFY_DB(ended.afterWrite(s.execute(qs("DELETE FROM %1").arg(table))));
    // What a lock wait that rolls back does: the server takes back the whole transaction and
    // reports the statement.
    QVERIFY_DB(s.execute(qs("ROLLBACK")));
    const DbError told = ended.afterWrite(DbError::fromServer(1205, qs("Lock wait timeout exceeded")));
    QVERIFY2(told.description.startsWith(qs("The server rolled back the writes to %1 (").arg(table)),
             qPrintable(told.description));
    QVERIFY(!ended.active());
    QCOMPARE(rows(), sl({"1", "2"}));
    QCOMPARE(s.openQuery(qs("SELECT @@autocommit"))->text(0, 0), qs("1"));

    // A deadlock is known by its number, whatever ran after it.
    TableTransaction deadlocked(s, table);
    QVERIFY_DB(deadlocked.afterWrite(s.execute(qs("DELETE FROM %1").arg(table))));
    QVERIFY(deadlocked.afterWrite(DbError::fromServer(1213, qs("Deadlock found"))).isError());
    QCOMPARE(rows(), sl({"1", "2"}));
}

// On a server that takes a whole transaction back when a lock wait times out, the table's
// writes stop at that statement: those sent ahead behind it, in a new transaction by the time
// its failure is told, go back too, and the table is as it was.
void TestDatabaseSession::lockWaitThatRollsBackAll()
{
    const QByteArray other = qgetenv("TABULON_TEST_ROLLBACK_SERVER");
    if (other.isEmpty())
        QSKIP("needs TABULON_TEST_ROLLBACK_SERVER, a server with innodb_rollback_on_timeout (the test command starts "
              "one)");
    const QByteArray usual = qgetenv("TABULON_TEST_SERVER");
    qputenv("TABULON_TEST_SERVER", other);
    const auto back = qScopeGuard([&usual] { qputenv("TABULON_TEST_SERVER", usual); });
    ScratchDatabase db(qs("rollback"));
    QVERIFY_DB(db.error());
    QCOMPARE(db.rows(qs("SELECT @@innodb_rollback_on_timeout")), sl({"1"}));
    QVERIFY_DB(db.run({qs("CREATE TABLE t (a INT PRIMARY KEY) ENGINE=InnoDB"), qs("INSERT INTO t VALUES (1),(2)"),
                       qs("START TRANSACTION"), qs("SELECT a FROM t WHERE a = 1 FOR UPDATE")}));
    DatabaseSession s;
    QVERIFY_DB(openSession(s, db.name()));
    QVERIFY_DB(s.execute(qs("SET SESSION innodb_lock_wait_timeout = 1")));
    TableTransaction table(s, qs("t"));
    QVERIFY(table.active());
    QVERIFY_DB(table.afterWrite(s.execute(qs("DELETE FROM t WHERE a = 2"))));
    QStringList told;
    {
        StatementPipeline writes(s);
        QVERIFY(writes.pipelined());
        for (const char *sql : {"DELETE FROM t WHERE a = 1", "INSERT INTO t VALUES (3)", "INSERT INTO t VALUES (4)"}) {
            (void)writes.add(sql, [&](const DbError &outcome) {
                const DbError ended = table.afterWrite(outcome);
                told << (ended ? ended.description : outcome.description);
                return !ended;
            });
        }
    }
    QCOMPARE(told.size(), 1);
    QVERIFY2(told.front().startsWith(qs("The server rolled back the writes to t (Lock wait timeout")),
             qPrintable(told.front()));
    QVERIFY_DB(table.commit());
    QVERIFY_DB(db.run({qs("ROLLBACK")}));
    QCOMPARE(db.rows(qs("SELECT a FROM t ORDER BY a")), sl({"1", "2"}));
}

void TestDatabaseSession::pipelines_data()
{
    QTest::addColumn<bool>("ahead");
    QTest::newRow("one at a time") << false;
    QTest::newRow("sent ahead") << true;
}

// Sent ahead or one at a time, the server receives the same statements in the same order and
// each outcome is told in its turn, a statement too long for the server included (never sent),
// however many are on their way; a lost connection is told for the statement it hit and those
// after it, and the next statement fails without waiting.
void TestDatabaseSession::pipelines()
{
    QFETCH(bool, ahead);
    QVERIFY_DB(m_db->run({qs("CREATE OR REPLACE TABLE pipe (a INT PRIMARY KEY) ENGINE=InnoDB")}));
    DatabaseSession s;
    s.setPipelining(ahead ? DatabaseSession::Pipelining::Always : DatabaseSession::Pipelining::Never);
    QVERIFY_DB(openSession(s, m_db->name()));
    const auto insert = [](int a) -> QByteArray {
        return QByteArray("INSERT INTO pipe VALUES (") + QByteArray::number(a) + ')';
    };
    // A duplicate key, a syntax error and a statement too long for the server among them, and
    // more than can be on their way at once after them; the server receives all but the long one.
    QList<QByteArray> statements{insert(1), insert(2), insert(1), "INSERT INTO pipe VALUES ('x'y)", insert(3)};
    for (int a = 10; a < 10 + 2 * StatementPipeline::kMaxInFlight; ++a)
        statements << insert(a);
    QStringList received;
    for (const QByteArray &sql : statements)
        received << QString::fromUtf8(sql);
    statements.insert(4, insert(4) + " -- " + QByteArray(static_cast<qsizetype>(s.statementLimit()), 'x'));
    QList<int> expected{0, 0, 1062, 1064, 1153, 0, 1};
    while (expected.size() <= statements.size())
        expected << 0;
    QList<int> told;
    const auto tell = [&told](const DbError &e) {
        told << e.serverCode;
        return true;
    };
    {
        StatementPipeline pipeline(s);
        QCOMPARE(pipeline.pipelined(), ahead);
        for (qsizetype i = 0; i < statements.size(); ++i) {
            QVERIFY(pipeline.add(statements[i], tell));
            if (i == 5) // an error known before sending, told in its turn
                QVERIFY(pipeline.add(DbError::itemNotFound(), [&told](const DbError &e) {
                    told << int(e.number == AdoError::ItemNotFound);
                    return true;
                }));
        }
        QVERIFY(pipeline.finish());
    }
    QCOMPARE(told, expected);
    QCOMPARE(statementsReceived(m_db->admin(), s.connectionId()), received);

    // The connection lost under the third statement: it and the rest fail, and stopping sends
    // nothing more.
    told.clear();
    StatementPipeline pipeline(s);
    for (int a = 1000; a < 1005; ++a) {
        if (a == 1002)
            QVERIFY_DB(m_db->run({qs("KILL %1").arg(s.connectionId())}));
        (void)pipeline.add(insert(a), [&](const DbError &e) { return tell(e) && told.size() < 4; });
    }
    QVERIFY(!pipeline.finish());
    QCOMPARE(told.size(), 4);
    // One at a time, the first was answered before the second went out; the second's answer may
    // be lost with the connection either way.
    if (!ahead)
        QCOMPARE(told.first(), 0);
    // 1927: the server's own word that it killed the connection, before it closes it.
    for (const int code : told.mid(2))
        QVERIFY2(code >= 2000 || code == 1927, qPrintable(QString::number(code)));
}

QTEST_GUILESS_MAIN(TestDatabaseSession)
#include "test_databasesession.moc"
