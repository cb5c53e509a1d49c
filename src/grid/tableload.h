// Reads every row of one table into grid columns while the window that asked stays alive: the
// reading pauses every so often to hand control back (a repaint, the count of rows read, the
// operator's stop) and then goes on where it was. A stop keeps the rows read so far.
#pragma once

#include "db/dberror.h"
#include "db/textcolumn.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <vector>

namespace tabulon {

class DatabaseSession;

class TableLoad final {
public:
    // How often the reading pauses: the clock is looked at every `rowsPerCheck` rows, and a
    // pause comes once `pauseMs` milliseconds have passed since the last one (0: at every
    // check; negative: never, the whole table in one go).
    struct Pace final {
        int rowsPerCheck = 1024;
        int pauseMs = 25;
    };
    // Called at each pause with the rows read so far; true stops the reading there.
    using Pause = std::function<bool(qsizetype rowsRead)>;

    // Reads "SELECT * FROM `table`" on `session`. On an error nothing is kept. A stop asks the
    // server to end the statement (from a second connection, so that the rest of a big table
    // is not read off only to be dropped) and leaves the session ready for the next statement.
    static TableLoad read(DatabaseSession &session, const QString &table, const Pace &pace, const Pause &pause);

    DbError error;
    QStringList names;               // the fields' names, in field order
    std::vector<TextColumn> columns; // one per field, a cell per row read, NULLs as nulls
    TextColumn numbers;              // "1", "2", ...: each row's place in the reading
    qsizetype rows = 0;
    bool stopped = false;
};

} // namespace tabulon
