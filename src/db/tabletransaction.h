// One table's rewrite as a single unit on an engine that can roll back (InnoDB): its delete and
// inserts run in one transaction that commits when the table is done, so a program or a
// connection that dies part-way leaves the table as it was. Other engines (MyISAM, Aria, views)
// are written statement by statement, as they can only be.
#pragma once

#include "db/dberror.h"

#include <QString>

namespace tabulon {

class DatabaseSession;

class TableTransaction final {
public:
    // Learns the table's engine and, for InnoDB, turns autocommit off for the table's writes.
    // Autocommit off rather than START TRANSACTION: should the server end the transaction
    // itself (a deadlock), whatever follows opens a new one that is rolled back here, instead
    // of going in row by row. The table is looked for in `database`, or in the session's own
    // database when that is empty.
    TableTransaction(DatabaseSession &session, const QString &table, const QString &database = {});
    // Rolls back whatever has not been committed (the command stopped before the table's end).
    ~TableTransaction();
    TableTransaction(const TableTransaction &) = delete;
    TableTransaction &operator=(const TableTransaction &) = delete;

    // Whether the table's writes run in a transaction.
    bool active() const { return m_active; }
    // Why the transaction could not begin (the writes then go statement by statement).
    const DbError &error() const { return m_error; }

    // Told of a write's outcome. After a failed one, whether the server has rolled back the
    // whole transaction (a deadlock, a lock wait that rolls back): then the table's writes must
    // stop, and the returned error says that the table is as it was. None otherwise, and the
    // writes go on as before.
    DbError afterWrite(const DbError &outcome);
    // Commits the table's writes (once); an error when the server does not.
    DbError commit();
    // Rolls the table back and ends the transaction.
    void rollback();

    // Whether the server's engine name is one whose tables are written in a transaction.
    static bool isTransactional(const QString &engine);

private:
    void end(const char *statement);
    // Whether the server rolls back the whole transaction when a lock wait times out.
    bool rollsBackOnTimeout();

    DatabaseSession &m_session;
    QString m_table;
    bool m_active = false;
    DbError m_error;
};

} // namespace tabulon
