// Parsing of ODBC-style connection strings ("PROVIDER=MSDASQL;driver={MySQL};server=...;").
#pragma once

#include <QMap>
#include <QString>

namespace tabulon {

struct ConnectionTarget final {
    QString host;      // empty or "localhost" means the local server
    unsigned port = 0; // 0: the client library's default
    QString user;
    QString password;
    QString database;
};

// Attribute names are case-insensitive (the map is keyed by lower-case names); values may be
// wrapped in braces, inside which ';' and '=' are literal. Later duplicates win.
QMap<QString, QString> parseConnectionAttributes(const QString &connectionString);

// Reads server (optionally host:port), uid, pwd and database from a connection string.
ConnectionTarget connectionTargetFrom(const QString &connectionString);

// Every connection string the program opens is written here, word for word as each opener
// has always sent it; the parts are concatenated as given (the caller trims where it must).
namespace ConnectionString {
// "PROVIDER=MSDASQL;driver={MySQL};server=S;uid=U;pwd=P;database=D;" (start-up, setup).
QString mysql(const QString &server, const QString &user, const QString &password, const QString &database);
// "Provider=MSDASQL;Driver={MySql};server=S;uid=U;pwd=P;database=D" (restore's own connection).
QString mysqlRestore(const QString &server, const QString &user, const QString &password, const QString &database);
// "Provider=MSDASQL;Dsn=NAME;" (a data source named by a .dsn file).
QString dataSource(const QString &dsnName);
// "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=FILE;" (an Access file).
QString accessFile(const QString &fileName);
} // namespace ConnectionString

} // namespace tabulon
