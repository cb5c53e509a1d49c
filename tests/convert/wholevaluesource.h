// A data source of long and binary values: an SQLite database reached through the SQLite ODBC
// driver, for showing that memo texts of any length and binary values of any length (odd ones,
// and ones holding zero bytes) are read whole.
#pragma once

#include <QByteArray>
#include <QString>

#include <optional>
#include <vector>

namespace tabulon::test {

struct WholeValueRow final {
    int id = 0;
    std::optional<QString> memo;
    std::optional<QByteArray> data;
};

// The rows of table `wholevalues` (id INTEGER, memo TEXT, data BLOB): a memo of 300 KiB and
// more with letters beyond ASCII, binary values of odd lengths holding zero bytes, an empty
// one and NULLs. The data source also holds table `stamps` (id INTEGER, at TIMESTAMP), made
// after it, with the one row (1, 2020-01-02 10:11:12.345).
const std::vector<WholeValueRow> &wholeValueRows();

// The installed SQLite ODBC driver's library; empty when the driver is not installed.
QString sqliteOdbcDriver();

// Starts the ODBC files of `folder` afresh with mdbtools' driver and the data source `name` on
// the Access file `mdb`, writes an empty `name`.dsn beside them, and points ODBCSYSINI and
// ODBCINI there. False when a file cannot be written.
bool startAccessSource(const QString &folder, const QString &name, const QString &mdb);

// Adds the driver and the data source `name` to the odbcinst.ini and odbc.ini of `folder`
// (where the caller points ODBCSYSINI and ODBCINI), writes its database there with the rows
// above, and an empty `name`.dsn beside it. An error text when any of it fails.
QString addWholeValueSource(const QString &folder, const QString &name);

} // namespace tabulon::test
