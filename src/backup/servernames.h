// What the server says about the names a backup writes and a restore puts into its unquoted
// statements: which tables are views, and which names its parser reads as keywords.
#pragma once

#include "db/dberror.h"

#include <QSet>
#include <QString>
#include <QStringList>

namespace tabulon {

class DatabaseSession;

namespace ServerNames {

// The views of the session's database, by name.
DbResult<QSet<QString>> views(DatabaseSession &session);

// Where a name stands in the restore's statements: "Insert into T (C) values (...)".
enum class Place { Table, Column };

// The server's keywords (information_schema.KEYWORDS) and character set introducers
// (_utf8mb4), upper case: the names its parser may read as something else.
DbResult<QSet<QString>> keywords(DatabaseSession &session);

// The names among `names` that the server's parser does not take as a name, unquoted, at
// `place` (order, desc, dual, _utf8mb4). Only `keywords` are candidates; since most keywords
// are still names (NAME, CODE, DATE), the parser decides each candidate by preparing a
// statement that is never run. Only names that BackupArchive::isTableName takes are looked at.
DbResult<QStringList> reservedNames(DatabaseSession &session, const QSet<QString> &keywords, const QStringList &names,
                                    Place place);

} // namespace ServerNames
} // namespace tabulon
