// Reading a list of names (tables, usually) from statement text the caller gives.
#pragma once

#include "db/dberror.h"

#include <QString>
#include <QStringList>

namespace tabulon {

class DatabaseSession;

// The first field of every row that `sql` returns, in the server's order (NULL as empty text).
DbResult<QStringList> readFirstColumn(DatabaseSession &session, const QString &sql);

} // namespace tabulon
