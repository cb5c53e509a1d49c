// Reading a list of names (tables, usually) from statement text the caller gives, and the
// tables behind a view.
#pragma once

#include "db/dberror.h"

#include <QString>
#include <QStringList>

namespace tabulon {

class DatabaseSession;

// The first field of every row that `sql` returns, in the server's order (NULL as empty text).
DbResult<QStringList> readFirstColumn(DatabaseSession &session, const QString &sql);

// The base tables a view of the session's database shows rows of, views within it followed
// down, in the order its definition names them; tables of other databases come back as
// "database.table". An error when the view's definition cannot be read.
DbResult<QStringList> viewBaseTables(DatabaseSession &session, const QString &view, int depth = 0);

} // namespace tabulon
