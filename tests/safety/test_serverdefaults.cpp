// The safety net on a server set up as operators have theirs: the server's own defaults, a
// local time with daylight saving, table names that differ only in case (Linux servers keep
// lower_case_table_names=0) and a strict sql_mode. Each table of a copy goes back exactly
// into its own table, whatever mode the server imposes on new sessions.
#include "db/progress.h"
#include "safety/putback.h"
#include "safety/safetynet.h"
#include "safetytest.h"

#include <QScopeGuard>

using namespace tabulon;
using namespace tabulon::test;

class TestServerDefaults final : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    void serverIsAsOperatorsHaveIt();
    void caseTwinsPutBackExactly_data();
    void caseTwinsPutBackExactly();

private:
    std::unique_ptr<ScratchDatabase> m_db;
};

void TestServerDefaults::initTestCase()
{
    m_db = std::make_unique<ScratchDatabase>(qs("serverdefaults"));
    QVERIFY_DB(m_db->error());
}

void TestServerDefaults::cleanupTestCase()
{
    m_db.reset();
}

// What the other tests rely on when they pass: the default packet limit (16 MiB), names
// that differ in case, a strict mode, named zones, and a local zone an hour further from
// UTC in July than in January.
void TestServerDefaults::serverIsAsOperatorsHaveIt()
{
    QCOMPARE(
        m_db->rows(qs("SELECT @@max_allowed_packet, @@lower_case_table_names, "
                      "LOCATE('STRICT_TRANS_TABLES', @@GLOBAL.sql_mode) > 0, "
                      "CONVERT_TZ('2024-10-27 01:30:00', '+00:00', 'Europe/Oslo'), "
                      "TIMEDIFF('2024-07-01 12:00:00', CONVERT_TZ('2024-07-01 12:00:00', @@time_zone, '+00:00')) - "
                      "TIMEDIFF('2024-01-01 12:00:00', CONVERT_TZ('2024-01-01 12:00:00', @@time_zone, '+00:00'))")),
        sl({"16777216|0|1|2024-10-27 02:30:00|10000"}));
}

void TestServerDefaults::caseTwinsPutBackExactly_data()
{
    QTest::addColumn<QString>("engine");
    QTest::addColumn<QString>("mode"); // the server's mode for new sessions; empty: its default
    // Strict for every engine and without zero dates: a put-back that wrote in the session's
    // own mode would lose the zero date and the key 0 of the awkward rows.
    const QString strict = qs("STRICT_ALL_TABLES,NO_ZERO_DATE,NO_ZERO_IN_DATE,ERROR_FOR_DIVISION_BY_ZERO,"
                              "NO_ENGINE_SUBSTITUTION");
    for (const char *engine : {"MyISAM", "InnoDB"}) {
        QTest::addRow("%s, server default mode", engine) << qs(engine) << QString();
        QTest::addRow("%s, strict without zero dates", engine) << qs(engine) << strict;
    }
}

void TestServerDefaults::caseTwinsPutBackExactly()
{
    QFETCH(QString, engine);
    QFETCH(QString, mode);
    const QString globalMode = m_db->rows(qs("SELECT @@GLOBAL.sql_mode")).value(0);
    const auto restoreMode =
        qScopeGuard([&] { (void)m_db->admin().execute(qs("SET GLOBAL sql_mode='%1'").arg(globalMode)); });
    if (!mode.isEmpty())
        QVERIFY_DB(m_db->admin().execute(qs("SET GLOBAL sql_mode='%1'").arg(mode)));

    QVERIFY_DB(m_db->run(awkwardTable(qs("Twin"), engine) + awkwardTable(qs("twin"), engine) +
                         sl({"UPDATE `Twin` SET name = 'the upper twin' WHERE id = 1"})));
    const TableState upper = tableState(*m_db, qs("Twin"));
    const TableState lower = tableState(*m_db, qs("twin"));
    QVERIFY(upper.checksum != lower.checksum);

    // The program's sessions, opened under the mode the server now gives.
    DatabaseSession session, reader;
    QVERIFY_DB(openSession(session, m_db->name()));
    QVERIFY_DB(session.openSibling(reader));
    ScratchSafety safety;
    auto written = SafetyNet::writeTableCopy(reader, safety.settings(), qs("Save Table"), sl({"Twin", "twin"}), {});
    QVERIFY_DB(written.error());

    QVERIFY_DB(m_db->run(sl({"DELETE FROM `twin` WHERE id > 0", "DROP TABLE `Twin`"})));
    auto info = SafetyCopy::readInfo(*written);
    QVERIFY_DB(info.error());
    NoProgress progress;
    auto done = PutBack::putBack(session, *info, progress);
    QVERIFY_DB(done.error());
    QCOMPARE(done->tables, 2);
    QCOMPARE(tableState(*m_db, qs("Twin")), upper);
    QCOMPARE(tableState(*m_db, qs("twin")), lower);
}

QTEST_GUILESS_MAIN(TestServerDefaults)
#include "test_serverdefaults.moc"
