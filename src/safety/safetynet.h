// The safety net under the commands that change or drop data: before a command's first
// statement it writes a copy of every table (or table file) the command will change, and it
// keeps the folder of copies within its limits, the oldest going first. A copy that cannot be
// written stops the command: the caller shows the error and sends nothing.
#pragma once

#include "db/dberror.h"
#include "safety/safetycopy.h"
#include "safety/safetysettings.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

namespace tabulon {

class DatabaseSession;

namespace SafetyNet {

// Asks the operator a question with Yes and No; true for Yes. Without one every question
// is answered No.
using Confirm = std::function<bool(const QString &question)>;
void setConfirm(Confirm confirm);

// How far a command's statements reach into a table.
enum class Reach {
    WholeTable, // the table is emptied and written again (Save Table, Delete Record, a restore)
    Rows,       // single rows change (Modify Record, Replace, a client's rows restored)
    Definition, // the table is altered or dropped: the server refuses that of a view, so a
                // view needs no copy
};

// Copies `tables` of the session's database before `command` changes them, over a second
// connection of the session's own (the session sees none of the copy's statements). Tables
// that do not exist are left out; with nothing left no copy is written. A view stands for
// the tables it shows: a whole-table rewrite through it is refused, naming the view and its
// tables, since it would empty their columns the view does not show; for single rows its
// tables are copied. Tables bigger together than the size limit ask whether to go on without
// a copy, and a Yes is listed among the copies as a command without one. An error means the
// command must not start: its description says why and, for a copy that could not be written,
// names the path. A closed session changes nothing, so it needs no copy.
DbError protectTables(DatabaseSession &session, const QString &command, const QStringList &tables,
                      Reach reach = Reach::WholeTable);
// Before a repair of `tables`, which can drop rows of a MyISAM or Aria table it cannot read:
// copies the files of those tables from the server's data folder, as a copy of files. Tables
// of other engines are left out (a repair does not rewrite them). Files the program cannot
// reach ask whether to go on without a copy.
DbError protectTableFiles(DatabaseSession &session, const QString &command, const QStringList &tables);
// The same for files of `folder` (named relative to it) that a command will overwrite.
DbError protectFiles(const QString &command, const QString &database, const QString &folder, const QStringList &files);

// ---- The parts, with the settings given (the window and the tests call these) ----

// Writes the copy of `tables` read over `source`; returns its path, or "" when none of the
// tables exists. Keeping the folder within its limits spares the new copy and `alsoKeep`.
DbResult<QString> writeTableCopy(DatabaseSession &source, const SafetySettings &settings, const QString &command,
                                 const QStringList &tables, const Confirm &confirm, const QString &alsoKeep = {},
                                 Reach reach = Reach::WholeTable);
DbResult<QString> writeFileCopy(const SafetySettings &settings, const QString &command, const QString &database,
                                const QString &folder, const QStringList &files, const Confirm &confirm,
                                const QString &alsoKeep = {});

// The complete copies in `folder`, newest first.
QList<SafetyCopyInfo> listCopies(const QString &folder);
// Removes the oldest copies until at most keepCount remain and they hold at most maxBytes
// together; the copies in `keep` (the one just written) always stay. Returns the paths removed.
QStringList prune(const SafetySettings &settings, const QStringList &keep);

// The question put to the operator by the commands (No for every question when none is set).
const Confirm &confirm();

// The message a command shows when its copy could not be written.
QString failureText(const DbError &error);

// `error` of a command that has begun to change its tables, its description ending with which
// safety copy holds them as they were before the command and where to put it back. The copy is
// the one the last protectTables or protectFiles call wrote; without one the error is as given.
DbError afterCopy(const DbError &error);

} // namespace SafetyNet
} // namespace tabulon
