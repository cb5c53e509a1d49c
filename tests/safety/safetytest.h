// What the safety tests compare: a table's checksum, CREATE TABLE text and triggers as the
// server gives them, and a scratch safety folder with settings pointing at it.
#pragma once

#include "safety/safetysettings.h"
#include "testdb.h"

#include <QTemporaryDir>

namespace tabulon::test {

struct TableState final {
    QString checksum; // CHECKSUM TABLE ... EXTENDED: "" when the table is missing
    QString create;
    QStringList triggers; // SHOW TRIGGERS but the time each was made
    bool operator==(const TableState &) const = default;
};

inline char *toString(const TableState &s)
{
    return QTest::toString(QStringList{s.checksum, s.create, s.triggers.join(u'\n')}.join(u'\n'));
}

inline TableState tableState(ScratchDatabase &db, const QString &table)
{
    const QString name = QLatin1Char('`') + table + QLatin1Char('`');
    const QString sum = db.rows(QStringLiteral("CHECKSUM TABLE ") + name + QStringLiteral(" EXTENDED")).value(0);
    return {sum.section(QLatin1Char('|'), 1), db.rows(QStringLiteral("SHOW CREATE TABLE ") + name).value(0),
            db.rows(QStringLiteral("SELECT TRIGGER_NAME, EVENT_MANIPULATION, ACTION_TIMING, ACTION_ORDER, "
                                   "ACTION_STATEMENT, SQL_MODE, DEFINER FROM information_schema.TRIGGERS WHERE "
                                   "EVENT_OBJECT_SCHEMA = DATABASE() AND EVENT_OBJECT_TABLE = BINARY '") +
                    table + QStringLiteral("' ORDER BY TRIGGER_NAME"))};
}

inline QList<TableState> tableStates(ScratchDatabase &db, const QStringList &tables)
{
    QList<TableState> states;
    for (const QString &table : tables)
        states << tableState(db, table);
    return states;
}

// A table of awkward values on either engine: NULL beside empty text, every byte value,
// quotes, backslashes, letters outside Latin-1, dates (a zero one), decimals, bits, floats
// with more digits than their text form shows, a generated column and an auto-increment key
// with a gap and a 0. Two of its timestamps are the two instants that read alike as local time
// in the hour repeated when daylight saving ends (the test server's zone has it), so a copy
// through local time would merge them.
inline QStringList awkwardTable(const QString &table, const QString &engine)
{
    const QString t = QLatin1Char('`') + table + QLatin1Char('`');
    QString bytes = QStringLiteral("X'");
    for (int b = 0; b < 256; ++b)
        bytes += QStringLiteral("%1").arg(b, 2, 16, QLatin1Char('0'));
    bytes += QLatin1Char('\'');
    return {QStringLiteral("SET SESSION sql_mode='NO_AUTO_VALUE_ON_ZERO'"),
            QStringLiteral("DROP TABLE IF EXISTS ") + t,
            QStringLiteral("CREATE TABLE ") + t +
                QStringLiteral(" (id INT AUTO_INCREMENT PRIMARY KEY, name VARCHAR(40), note TEXT, raw BLOB, "
                               "bin VARBINARY(8), born DATE, seen DATETIME(3), stamp TIMESTAMP NULL, "
                               "price DECIMAL(12,4), flags BIT(5), kind ENUM('a','b'), "
                               "ratio FLOAT, twice INT AS (id * 2) VIRTUAL, KEY(name)) ENGINE=") +
                engine + QStringLiteral(" DEFAULT CHARSET=utf8mb4"),
            QStringLiteral("INSERT INTO ") + t +
                QStringLiteral(" (id, name, note, raw, bin, born, seen, stamp, price, flags, kind, ratio) VALUES "
                               "(0, '', NULL, '', NULL, '0000-00-00', '2024-03-31 02:30:00.125', "
                               "'2024-10-27 02:30:00', 0, b'0', NULL, 123456789),"
                               "(1, NULL, '', NULL, X'00', '1999-12-31', NULL, NULL, -12345678.9999, b'10101', 'b', "
                               "0.1),"
                               "(7, 'O''Brien \\\\ \"q\"', 'line\\nnext\\ttab \\\\0 ''x''', ") +
                bytes +
                QStringLiteral(", X'0027005C', '2000-02-29', '1970-01-01 00:00:01', '2038-01-19 03:14:07', "
                               "0.0001, b'11111', 'a', -3.3999999e38),"
                               "(9, 'Zoë Ōtsuka 中文 😀', REPEAT('ab\\\\', 500), X'FFFE', '', NULL, NULL, "
                               "NULL, NULL, NULL, '', NULL)"),
            QStringLiteral("SET SESSION time_zone='+00:00'"),
            QStringLiteral("UPDATE ") + t +
                QStringLiteral(" SET stamp = CASE id WHEN 0 THEN '2024-10-27 00:30:00' WHEN 1 THEN "
                               "'2024-10-27 01:30:00' ELSE '2038-01-19 03:14:07' END WHERE id IN (0, 1, 7)"),
            QStringLiteral("SET SESSION time_zone=DEFAULT")};
}

// A safety folder of its own and settings pointing there.
struct ScratchSafety final {
    QTemporaryDir dir;
    SafetySettings settings() const
    {
        SafetySettings s;
        s.folder = dir.filePath(QStringLiteral("copies"));
        return s;
    }
};

} // namespace tabulon::test
