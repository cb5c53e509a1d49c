// "Create Text File": an SQL script (import.sql) that recreates the structure of every table of
// the current database, and a batch file (Cr_Db.bat) that starts the server's command-line
// client, both in the program's folder. Nothing here traps an error: the first failure comes
// back and the caller reports it as untrapped.
#pragma once

#include "db/dberror.h"

#include <QString>
#include <QStringList>

#include <utility>
#include <vector>

namespace tabulon {

class DatabaseSession;

namespace TableScript {

// Writes import.sql and then Cr_Db.bat into `folder`; does nothing for an empty name. Each file
// replaces the earlier one only once it is written whole; on a failure the earlier one stays.
DbError CreateScriptFile(DatabaseSession &session, const QString &folder, const QString &database);
// Every "Create Table if not exists" line of the session's tables ("Show Tables" order).
DbResult<QString> BuildTableScript(DatabaseSession &session, const QString &database);
// One table's line, from "Show Columns from " + table.
DbResult<QString> BuildTableDefinition(DatabaseSession &session, const QString &database, const QString &table);
// Writes Cr_Db.bat from the server's "datadir" variable.
DbError WriteServerBatch(DatabaseSession &session, const QString &folder);

// The pure parts, for the tests.
using Column = std::pair<QString, QString>; // name, type as the server reports it
QString definitionLine(const QString &database, const QString &table, const std::vector<Column> &columns);
// The text of import.sql around the table lines.
QString scriptText(const QString &database, const QString &tableLines);
// The server's base folder: datadir up to and including the backslash of its first "\DATA"
// (found in any case); empty without one.
QString baseFolder(const QString &datadir);
// The three lines of Cr_Db.bat.
QString batchText(const QString &baseFolder);

} // namespace TableScript
} // namespace tabulon
