// Demo database generation: the database is built under a name of its own, filled table by
// table, and only then swapped in for the one asked for.
#include "demo/demodatabase.h"

#include "demo/demotables.h"

namespace tabulon {

namespace {

DbResult<bool> databaseExists(DatabaseSession &session, const QString &database)
{
    auto rs = session.openQuery(QStringLiteral("SELECT 1 FROM information_schema.SCHEMATA WHERE SCHEMA_NAME = '%1'")
                                    .arg(QString::fromUtf8(session.escape(database.toUtf8()))));
    if (!rs.ok())
        return rs.error();
    return rs->recordCount() > 0;
}

QString qualified(const QString &database, const QString &table)
{
    return DatabaseSession::quoteIdentifier(database) + QLatin1Char('.') + DatabaseSession::quoteIdentifier(table);
}

DbError fill(DatabaseSession &session, const QString &build, int clients, const DemoOptions &options)
{
    const auto &tables = DemoTables::list();
    for (size_t t = 0; t < tables.size(); ++t) {
        const DemoTable &table = tables[t];
        const QString target = qualified(build, table.name);
        if (DbError e = session.execute(QStringLiteral("CREATE TABLE %1 (%2) ENGINE=%3 DEFAULT CHARSET=utf8mb4")
                                            .arg(target, DemoTables::columns(t), table.engine)))
            return e;
        const auto rows = DemoTables::writeRows(session, t, target, clients, options.batchRows);
        if (!rows.ok())
            return rows.error();
        if (options.tableWritten)
            options.tableWritten(table.name, rows.value());
    }
    return {};
}

} // namespace

const std::vector<DemoTable> &DemoDatabase::tables()
{
    return DemoTables::list();
}

QString DemoDatabase::codeNo(int client)
{
    return QStringLiteral("C%1").arg(client, 5, 10, QLatin1Char('0'));
}

QString DemoDatabase::code(int client)
{
    return client % 7 == 0 ? QStringLiteral("A%1").arg(client, 5, 10, QLatin1Char('0')) : codeNo(client);
}

QString DemoDatabase::buildDatabaseName(const QString &database)
{
    return database.left(56) + QStringLiteral("__build");
}

DbError DemoDatabase::create(DatabaseSession &session, const QString &database, int clients, bool recreate,
                             const DemoOptions &options, Outcome *outcome)
{
    if (outcome)
        *outcome = Outcome::LeftAsItWas;
    if (database.isEmpty())
        return DbError::generic(QStringLiteral("No database name given"));
    const auto found = databaseExists(session, database);
    if (!found.ok())
        return found.error();
    const bool exists = found.value();
    if (exists && !recreate)
        return {};

    const QString build = buildDatabaseName(database);
    const QString quotedBuild = DatabaseSession::quoteIdentifier(build);
    const QString quoted = DatabaseSession::quoteIdentifier(database);
    // A build database left by an interrupted run is thrown away first.
    DbError e = session.execute(QStringLiteral("DROP DATABASE IF EXISTS %1").arg(quotedBuild));
    if (!e)
        e = session.execute(
            QStringLiteral("CREATE DATABASE %1 CHARACTER SET utf8mb4 COLLATE utf8mb4_general_ci").arg(quotedBuild));
    if (!e)
        e = fill(session, build, clients, options);
    if (!e && exists)
        e = session.execute(QStringLiteral("DROP DATABASE %1").arg(quoted));
    if (!e)
        e = session.execute(
            QStringLiteral("CREATE DATABASE %1 CHARACTER SET utf8mb4 COLLATE utf8mb4_general_ci").arg(quoted));
    if (!e) {
        QStringList renames;
        for (const DemoTable &t : tables())
            renames << qualified(build, t.name) + QStringLiteral(" TO ") + qualified(database, t.name);
        e = session.execute(QStringLiteral("RENAME TABLE ") + renames.join(QStringLiteral(", ")));
    }
    session.execute(QStringLiteral("DROP DATABASE IF EXISTS %1").arg(quotedBuild));
    if (!e && outcome)
        *outcome = Outcome::Created;
    return e;
}

} // namespace tabulon
