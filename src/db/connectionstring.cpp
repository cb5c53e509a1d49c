#include "db/connectionstring.h"

namespace tabulon {

QMap<QString, QString> parseConnectionAttributes(const QString &s)
{
    QMap<QString, QString> attributes;
    qsizetype i = 0;
    const qsizetype n = s.size();
    while (i < n) {
        const qsizetype eq = s.indexOf(QLatin1Char('='), i);
        const qsizetype semi = s.indexOf(QLatin1Char(';'), i);
        if (eq < 0 || (semi >= 0 && semi < eq)) {
            // An attribute without a value: skip it.
            if (semi < 0)
                break;
            i = semi + 1;
            continue;
        }
        const QString key = s.mid(i, eq - i).trimmed().toLower();
        qsizetype v = eq + 1;
        QString value;
        if (v < n && s.at(v) == QLatin1Char('{')) {
            // Braced value: "}}" stands for one literal brace.
            ++v;
            while (v < n) {
                if (s.at(v) == QLatin1Char('}')) {
                    if (v + 1 < n && s.at(v + 1) == QLatin1Char('}')) {
                        value += QLatin1Char('}');
                        v += 2;
                        continue;
                    }
                    ++v;
                    break;
                }
                value += s.at(v++);
            }
            const qsizetype next = s.indexOf(QLatin1Char(';'), v);
            i = next < 0 ? n : next + 1;
        } else {
            const qsizetype next = s.indexOf(QLatin1Char(';'), v);
            value = s.mid(v, (next < 0 ? n : next) - v);
            i = next < 0 ? n : next + 1;
        }
        if (!key.isEmpty())
            attributes.insert(key, value);
    }
    return attributes;
}

ConnectionTarget connectionTargetFrom(const QString &connectionString)
{
    const auto a = parseConnectionAttributes(connectionString);
    ConnectionTarget t;
    QString server = a.value(QStringLiteral("server"));
    if (server.isEmpty())
        server = a.value(QStringLiteral("host"));
    const qsizetype colon = server.lastIndexOf(QLatin1Char(':'));
    if (colon > 0 && server.count(QLatin1Char(':')) == 1) {
        bool ok = false;
        const unsigned port = server.mid(colon + 1).toUInt(&ok);
        if (ok && port > 0 && port < 65536) {
            t.port = port;
            server.truncate(colon);
        }
    }
    t.host = server;
    t.port = t.port ? t.port : a.value(QStringLiteral("port")).toUInt();
    t.user = a.contains(QStringLiteral("uid")) ? a.value(QStringLiteral("uid")) : a.value(QStringLiteral("user"));
    t.password =
        a.contains(QStringLiteral("pwd")) ? a.value(QStringLiteral("pwd")) : a.value(QStringLiteral("password"));
    t.database =
        a.contains(QStringLiteral("database")) ? a.value(QStringLiteral("database")) : a.value(QStringLiteral("db"));
    return t;
}

namespace ConnectionString {

QString mysql(const QString &server, const QString &user, const QString &password, const QString &database)
{
    return QStringLiteral("PROVIDER=MSDASQL;driver={MySQL};server=") + server + QStringLiteral(";uid=") + user +
           QStringLiteral(";pwd=") + password + QStringLiteral(";database=") + database + QStringLiteral(";");
}

QString mysqlRestore(const QString &server, const QString &user, const QString &password, const QString &database)
{
    return QStringLiteral("Provider=MSDASQL;Driver={MySql};server=") + server + QStringLiteral(";uid=") + user +
           QStringLiteral(";pwd=") + password + QStringLiteral(";database=") + database;
}

QString dataSource(const QString &dsnName)
{
    return QStringLiteral("Provider=MSDASQL;Dsn=") + dsnName + QStringLiteral(";");
}

QString accessFile(const QString &fileName)
{
    return QStringLiteral("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=") + fileName + QStringLiteral(";");
}

} // namespace ConnectionString

} // namespace tabulon
