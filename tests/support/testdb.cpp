#include "testdb.h"

#include "db/connectionstring.h"

namespace tabulon::test {

QString qs(const char *text)
{
    return QString::fromUtf8(text);
}

QStringList sl(std::initializer_list<const char *> items)
{
    QStringList out;
    for (const char *item : items)
        out << QString::fromUtf8(item);
    return out;
}

QString serverAddress()
{
    const QString env = qEnvironmentVariable("TABULON_TEST_SERVER");
    return env.isEmpty() ? QStringLiteral("127.0.0.1:13306") : env;
}

QString connectionString(const QString &database)
{
    return ConnectionString::mysql(serverAddress(), QStringLiteral("dbop"), QString(), database);
}

DbError openSession(DatabaseSession &session, const QString &database)
{
    return session.open(connectionString(database));
}

ScratchDatabase::ScratchDatabase(const QString &name) : m_name(QStringLiteral("tabulon_t_") + name)
{
    m_error = openSession(m_admin, QString());
    if (m_error)
        return;
    m_error = run({QStringLiteral("DROP DATABASE IF EXISTS `%1`").arg(m_name),
                   QStringLiteral("CREATE DATABASE `%1` CHARACTER SET utf8mb4").arg(m_name),
                   QStringLiteral("USE `%1`").arg(m_name)});
}

ScratchDatabase::~ScratchDatabase()
{
    if (m_admin.isOpen())
        m_admin.execute(QStringLiteral("DROP DATABASE IF EXISTS `%1`").arg(m_name));
}

DbError ScratchDatabase::run(const QStringList &statements)
{
    for (const QString &s : statements) {
        DbError e = m_admin.execute(s);
        if (e) {
            e.description = s + QStringLiteral(": ") + e.description;
            return e;
        }
    }
    return {};
}

QStringList ScratchDatabase::rows(const QString &sql)
{
    QStringList out;
    auto rs = m_admin.openQuery(sql);
    if (!rs.ok()) {
        out << QStringLiteral("ERROR: ") + rs.error().description;
        return out;
    }
    for (qsizetype r = 0; r < rs->recordCount(); ++r) {
        QStringList cells;
        for (int f = 0; f < rs->fieldCount(); ++f)
            cells << (rs->isNull(r, f) ? QStringLiteral("\\N") : rs->text(r, f));
        out << cells.join(QLatin1Char('|'));
    }
    return out;
}

namespace {
QStringList logArguments(DatabaseSession &observer, const QString &where)
{
    QStringList out;
    auto rs = observer.openQuery(
        QStringLiteral("SELECT CONVERT(argument USING utf8mb4) FROM mysql.general_log WHERE ") + where);
    if (!rs.ok())
        return {QStringLiteral("ERROR: ") + rs.error().description};
    for (qsizetype r = 0; r < rs->recordCount(); ++r)
        out << rs->text(r, 0);
    return out;
}
} // namespace

QStringList statementsReceived(DatabaseSession &observer, unsigned long connectionId)
{
    // The session asks the server's packet limit for itself, once, before its first long
    // statement, and whether a table's transaction is still open after a failed write.
    return logArguments(observer, QStringLiteral("thread_id = %1 AND command_type = 'Query' AND "
                                                 "argument NOT IN ('SELECT @@max_allowed_packet', "
                                                 "'SELECT @@in_transaction')")
                                      .arg(connectionId));
}

QStringList connectsReceived(DatabaseSession &observer)
{
    return logArguments(observer, QStringLiteral("command_type = 'Connect' AND thread_id <> CONNECTION_ID()"));
}

void clearServerLog(DatabaseSession &observer)
{
    observer.execute(QStringLiteral("TRUNCATE TABLE mysql.general_log"));
}

} // namespace tabulon::test
