// An Orvita-like demo database, generated the same way every time: clients in main_info1, their
// owners in owner1, bills and the old ledger naming the client in `name`, and per-client tables
// keyed by `code` or `code_no`, on both storage engines. The demo script, tests and benchmarks
// build their databases with it.
#pragma once

#include "db/databasesession.h"

#include <QString>

#include <functional>
#include <vector>

namespace tabulon {

struct DemoTable final {
    QString name;
    QString engine;       // "InnoDB" or "MyISAM"
    QString clientColumn; // "code_no", "code", "name", or empty for a table of no client
};

struct DemoOptions final {
    // Rows per INSERT statement.
    int batchRows = 500;
    // Called after each table has all its rows.
    std::function<void(const QString &table, qint64 rows)> tableWritten;
};

class DemoDatabase final {
public:
    enum class Outcome { Created, LeftAsItWas };

    // Every table of the demo database, in creation order.
    static const std::vector<DemoTable> &tables();

    // Client numbers run from 1. code_no is "C" + the number in five or more digits; the code
    // equals it except for every 7th client, whose code is "A" + the same digits (an owner
    // account of its own). Tables keyed by `code` and the `name` of bill and table4 hold the
    // code; tables keyed by `code_no` hold the code_no.
    static QString codeNo(int client);
    static QString code(int client);

    // Creates `database` with `clients` clients unless it exists already: an existing database
    // is left as it is, or, with `recreate`, replaced. The tables are filled in a separate build
    // database and moved over only when complete, so an interrupted run never leaves a
    // half-filled database that a later run would take for finished.
    static DbError create(DatabaseSession &session, const QString &database, int clients, bool recreate,
                          const DemoOptions &options = {}, Outcome *outcome = nullptr);

    // Where create() fills the tables before moving them into `database`.
    static QString buildDatabaseName(const QString &database);
};

} // namespace tabulon
