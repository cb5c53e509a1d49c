// Reads every row of one table into a grid while the window that asked stays alive: the
// reading pauses every so often to hand control back (the rows read so far joining the view,
// the count of rows read, the operator's stop) and then goes on where it was. A stop keeps the
// rows read so far.
#pragma once

#include "db/dberror.h"

#include <QLoggingCategory>
#include <QString>
#include <QStringList>

#include <functional>

namespace tabulon {

class DatabaseSession;
class GridData;

// The steps of a table load, each a debug message as it happens (off unless enabled, as by
// QT_LOGGING_RULES="tabulon.load.debug=true"): where the time went when the window waited.
Q_DECLARE_LOGGING_CATEGORY(lcTableLoad)

class TableLoad final {
public:
    // How often the reading pauses: the clock is looked at every `rowsPerCheck` rows, and a
    // pause comes once `pauseMs` milliseconds have passed since the last one, also while the
    // server is slow to send the next row (0: at every check of rows only; negative: never,
    // the whole table in one go).
    struct Pace final {
        int rowsPerCheck = 1024;
        int pauseMs = 25;
    };
    // Called at each pause with the rows read so far; true stops the reading there. The rows
    // are in the grid's storage, to be committed to its rows (GridData::commitAppended).
    using Pause = std::function<bool(qsizetype rowsRead)>;
    // Called with the fields' names before the first row; returns the grid that takes the
    // rows, already appending (GridData::startAppending): column 0 reads each row's place in
    // the reading ("1", "2", ...; GridData::numberAppendedRows) and field k goes to column
    // `firstField` + k.
    using Open = std::function<GridData &(const QStringList &names)>;

    // Reads "SELECT * FROM `table`" on `session`. On an error the grid holds what was read
    // until then, for the caller to drop. A stop asks the server to end the statement (from a
    // second connection, so that the rest of a big table is not read off only to be dropped)
    // and leaves the session ready for the next statement.
    static TableLoad read(DatabaseSession &session, const QString &table, int firstField, const Open &open,
                          const Pace &pace, const Pause &pause);

    DbError error;
    QStringList names; // the fields' names, in field order
    qsizetype rows = 0;
    bool stopped = false;
};

} // namespace tabulon
