// Puts a safety copy back. Each table is built whole under a temporary name from the copy's
// CREATE TABLE text and rows, then swapped in with one RENAME TABLE; the table it replaces is
// kept under a second temporary name until the swap has succeeded, then dropped. Until the
// swap the current table is never touched, so a failure leaves it as it was.
#pragma once

#include "db/dberror.h"
#include "safety/safetycopy.h"

#include <QString>

namespace tabulon {

class DatabaseSession;
class Progress;

namespace PutBack {

struct Summary final {
    int tables = 0; // tables or files put back
    qint64 rows = 0;
};

// "This will replace ..." naming what the put-back replaces.
QString question(const SafetyCopyInfo &copy);
QString summaryText(const SafetyCopyInfo &copy, const Summary &summary);

// Puts `copy` back over `session`'s server, into the copy's own database (its tables) or
// folder (its files). The statements run on a second connection of the session's own.
// Tables before a failing one stay put back; the error names the table that failed.
DbResult<Summary> putBack(DatabaseSession &session, const SafetyCopyInfo &copy, Progress &progress);

} // namespace PutBack
} // namespace tabulon
