// What the check and repair tools do to one table, and the check tool's repair by file copy,
// without a window: statement text, the reading of CHECK TABLE's answer, the file name a
// message points at, and the copy from another database's folder.
#pragma once

#include "db/dberror.h"

#include <QList>
#include <QString>
#include <QStringList>

namespace tabulon {

class DatabaseSession;

namespace TableCheck {

// One line of the check tool's result: the server's message and the file or table it names.
struct Finding final {
    QString message;
    QString name;
    bool operator==(const Finding &) const = default;
};

// "Check Table " + T + " Extended" and "Repair Table " + T + " Extended", T as it stands.
QString checkStatement(const QString &table);
QString repairStatement(const QString &table);

// The file or table a message names: from the first place the table's name appears in the
// message (either case) up to the next single quote after it, in the message's own case;
// the table's name when the name or the quote is missing.
QString namedFile(const QString &table, const QString &message);

// Checks one table and returns every answer row whose message is not "OK". A statement that
// fails gives the one finding ("Could open table", T). An extended check reads the whole table
// and may take longer than the session's read time-out allows, so it waits for the answer
// however long it takes: a time-out would drop the shared connection and fail every table
// after this one.
QList<Finding> checkTable(DatabaseSession &session, const QString &table);
// Repairs one table, waiting for the answer however long it takes (as checkTable does), and
// discards what the server says.
DbError repairTable(DatabaseSession &session, const QString &table);

// The folder a database keeps its files in: dataFolder + database + "/" (a missing separator
// after dataFolder is supplied).
QString databaseFolder(const QString &dataFolder, const QString &database);

// Copies each named file from one database's folder into another's, overwriting; empty names
// are skipped. A file that cannot be copied leaves its target as it was; the failures are
// handed back, in order, for callers that want them.
QList<DbError> replaceFiles(const QString &dataFolder, const QString &fromDatabase, const QString &toDatabase,
                            const QStringList &names);

} // namespace TableCheck
} // namespace tabulon
