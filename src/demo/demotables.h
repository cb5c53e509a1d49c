// The demo database's tables: their definitions and the rows each client gets in them,
// written as batched multi-row INSERTs. Used by DemoDatabase, which builds and swaps in the
// whole database.
#pragma once

#include "db/databasesession.h"
#include "demo/demodatabase.h"

#include <QString>

#include <vector>

namespace tabulon::DemoTables {

// Every table in creation order.
const std::vector<DemoTable> &list();
// The column definitions of table `index` of list(), as they go inside CREATE TABLE (...).
QString columns(size_t index);
// Writes the rows of table `index` of list() for clients 1..clients (the staff list takes no
// clients) into `qualifiedTable`, batchRows rows a statement; returns the rows written.
DbResult<qint64> writeRows(DatabaseSession &session, size_t index, const QString &qualifiedTable, int clients,
                           int batchRows);

} // namespace tabulon::DemoTables
