// Puts a safety copy back. Each table is built whole under a temporary name from the copy's
// CREATE TABLE text and rows, with no triggers to fire while its rows go in, then swapped in
// with one RENAME TABLE; the table it replaces is kept under a second temporary name until the
// swap has succeeded, then dropped, and the copy's triggers are made again. A table that other
// tables' foreign keys point at is dropped and replaced by name instead (a rename would take
// their keys along), and the keys are checked afterwards. Until the swap the current table is
// never touched, so a failure leaves it as it was; and before anything is replaced the tables
// (or files) as they are now go into a safety copy of their own, so putting back the wrong
// copy loses nothing.
#pragma once

#include "db/dberror.h"
#include "safety/safetycopy.h"
#include "safety/safetynet.h"
#include "safety/safetysettings.h"

#include <QString>

namespace tabulon {

class DatabaseSession;
class Progress;

namespace PutBack {

struct Summary final {
    int tables = 0; // tables or files put back
    qint64 rows = 0;
    QString undoCopy;  // the copy of what was there before, "" when none was written
    QStringList notes; // what was put back but does not hold as it did (a trigger, a key)
};

// "This will replace ..." naming what the put-back replaces.
QString question(const SafetyCopyInfo &copy);
QString summaryText(const SafetyCopyInfo &copy, const Summary &summary);

// Puts `copy` back over `session`'s server, into the copy's own database (its tables) or
// folder (its files). The statements run on a second connection of the session's own. A copy
// of what is there now is written first, with `settings` and `confirm` as for any command; a
// table that is a view now stops the put-back before anything changes. Tables before a failing
// one stay put back; the error names the table that failed and which were and were not put back.
DbResult<Summary> putBack(DatabaseSession &session, const SafetyCopyInfo &copy, Progress &progress,
                          const SafetySettings &settings, const SafetyNet::Confirm &confirm);
// The same with the stored settings and the commands' question.
DbResult<Summary> putBack(DatabaseSession &session, const SafetyCopyInfo &copy, Progress &progress);

} // namespace PutBack
} // namespace tabulon
