// Parsing of ODBC-style connection strings ("PROVIDER=MSDASQL;driver={MySQL};server=...;").
#pragma once

#include <QMap>
#include <QString>

namespace tabulon {

struct ConnectionTarget final {
    QString host;       // empty or "localhost" means the local server
    unsigned port = 0;  // 0: the client library's default
    QString user;
    QString password;
    QString database;
};

// Attribute names are case-insensitive (the map is keyed by lower-case names); values may be
// wrapped in braces, inside which ';' and '=' are literal. Later duplicates win.
QMap<QString, QString> parseConnectionAttributes(const QString &connectionString);

// Reads server (optionally host:port), uid, pwd and database from a connection string.
ConnectionTarget connectionTargetFrom(const QString &connectionString);

} // namespace tabulon
