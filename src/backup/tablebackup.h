// The work of the backup tool without its window: where a backup set goes, the statements of a
// client backup, and the streaming of a result from the server into a table file (row 0 the
// field names, NULL as an empty cell) with one row in memory at a time.
#pragma once

#include "backup/backuparchive.h"
#include "db/dberror.h"

#include <QDate>
#include <QString>
#include <QStringList>

namespace tabulon {

class DatabaseSession;

namespace TableBackup {

// Where the backup set of one day goes. On this platform the chosen folder plays the part of
// the drive root, so the working folder is a sibling of the archive inside the chosen folder.
struct BackupSet final {
    QString archiveBase;   // chosen path + date
    QString workingFolder; // chosen path + date: the compressed parts before they are packed
    QString archivePath() const { return archiveBase + QStringLiteral(".zip"); }

    // `chosenPath` ends in a separator (the tool's path box always does).
    static BackupSet forPath(const QString &chosenPath, const QDate &date);
};

// The folder's path with a separator at its end unless it already has one.
QString withSeparator(const QString &folder);

// True for errors after which nothing more can be read: the connection to the server is gone
// (client-side errors), or a file could not be written.
bool isFatal(const DbError &error);

// Runs `select` and writes its rows as the table file `path`. The file appears only complete;
// a select the server refuses writes nothing and comes back in `*refused` (when given) with no
// error. Errors that end the whole backup (isFatal) are returned.
DbError writeTableFile(DatabaseSession &session, const QString &select, const QString &path,
                       DbError *refused = nullptr);
// The same with the table file written straight into `packer` as the entry `name`, compressed
// while the rows arrive; the folder gets no file of it.
DbError writeTableFile(DatabaseSession &session, const QString &select, BackupArchive::Packer &packer,
                       const QString &name, DbError *refused = nullptr);

// The statement that opens a whole table, as the session's table open sends it.
QString tableSelect(const QString &table);

// The client's row, found by its code in main_info1 (code_no) and else owner1 (code).
struct Client final {
    bool found = false;
    QString other; // its code_no when that differs from its code, else empty
};
// `code` is already upper case. A statement the server refuses counts as no row; only a lost
// connection is returned as an error.
DbResult<Client> findClient(DatabaseSession &session, const QString &code);
QString mainInfoLookup(const QString &code);
QString ownerLookup(const QString &code);

// The selects that back up one table of a client, in order; the last one that succeeds gives
// the table file.
QStringList clientSelects(const QString &table, const QString &code, const QString &other);

// Packs the table files written (by name) into the archive, then removes them and the working
// folder when it is left empty. The files are removed even when packing fails.
DbError finish(const BackupSet &set, const QStringList &tableFiles,
               BackupArchive::Existing existing = BackupArchive::Existing::Keep);
// The same with the files already handed to `packer` (of the working folder) as they were
// written: only the last ones are still compressed here.
DbError finish(const BackupSet &set, BackupArchive::Packer &packer, const QStringList &tableFiles,
               BackupArchive::Existing existing = BackupArchive::Existing::Keep);

} // namespace TableBackup
} // namespace tabulon
