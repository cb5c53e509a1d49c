// Views and reserved names, as the server reports them.
#include "backup/servernames.h"

#include "backup/backuparchive.h"
#include "db/databasesession.h"

namespace tabulon::ServerNames {

namespace {

// The parser's "You have an error in your SQL syntax".
constexpr int kSyntaxError = 1064;

// The first column of every row of `sql`.
DbResult<QStringList> column(DatabaseSession &session, const QString &sql)
{
    auto rs = session.openQuery(sql);
    if (!rs)
        return rs.error();
    QStringList values;
    for (qsizetype r = 0; rs->isOpen() && r < rs->recordCount(); ++r)
        values << rs->text(r, 0);
    return values;
}

} // namespace

DbResult<QSet<QString>> views(DatabaseSession &session)
{
    const auto names = column(session, QStringLiteral("SELECT TABLE_NAME FROM information_schema.TABLES WHERE "
                                                      "TABLE_SCHEMA = DATABASE() AND TABLE_TYPE = 'VIEW'"));
    if (!names)
        return names.error();
    return QSet<QString>(names->begin(), names->end());
}

DbResult<QSet<QString>> keywords(DatabaseSession &session)
{
    auto words =
        column(session, QStringLiteral("SELECT WORD FROM information_schema.KEYWORDS UNION SELECT "
                                       "CONCAT('_', CHARACTER_SET_NAME) FROM information_schema.CHARACTER_SETS"));
    if (!words)
        return words.error();
    QSet<QString> upper;
    for (const QString &word : *words)
        upper.insert(word.toUpper());
    return upper;
}

DbResult<QStringList> reservedNames(DatabaseSession &session, const QSet<QString> &keywords, const QStringList &names,
                                    Place place)
{
    QStringList candidates;
    for (const QString &name : names) {
        if (BackupArchive::isTableName(name) && keywords.contains(name.toUpper()))
            candidates << name;
    }
    QStringList reserved;
    for (const QString &name : std::as_const(candidates)) {
        // Prepared, never executed; a plain name holds no quote that could end the text early.
        const QString probe = place == Place::Table ? QStringLiteral("Insert into %1 (c) values (1)").arg(name)
                                                    : QStringLiteral("Insert into t (%1) values (1)").arg(name);
        const DbError error = session.execute(QStringLiteral("PREPARE tabulon_name_check FROM '%1'").arg(probe));
        if (!error) {
            (void)session.execute(QStringLiteral("DEALLOCATE PREPARE tabulon_name_check"));
            continue;
        }
        if (error.serverCode == kSyntaxError)
            reserved << name;
        else if (error.serverCode == 0 || (error.serverCode >= 2000 && error.serverCode < 3000))
            return error; // the connection itself failed; the table or column missing is fine
    }
    return reserved;
}

} // namespace tabulon::ServerNames
