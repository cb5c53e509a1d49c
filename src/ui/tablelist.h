// Lists of tables, filled from statement text the caller gives ("SHOW Tables" and the like):
// the first field of every row, in the server's order.
#pragma once

#include "db/tablenames.h"

#include <QString>
#include <QStringList>

class QComboBox;
class QListWidget;

namespace tabulon {

class DatabaseSession;

// Adds the names to the end of the list (nothing is cleared); the list's signals are blocked
// while it fills. On an error nothing is added.
DbError fillTableList(QComboBox *list, DatabaseSession &session, const QString &sql);
DbError fillTableList(QListWidget *list, DatabaseSession &session, const QString &sql);

} // namespace tabulon
