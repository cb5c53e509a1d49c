// The restore's whole-run check and the client's rows of a table file.
#include "backup/restorecheck.h"

#include "backup/backuparchive.h"
#include "backup/servernames.h"
#include "db/databasesession.h"
#include "db/tablenames.h"
#include "grid/gridfile.h"

#include <QDir>
#include <QHash>

namespace tabulon::RestoreCheck {

namespace {

// Every row of `sql` as its texts.
DbResult<QList<QStringList>> rows(DatabaseSession &session, const QString &sql)
{
    auto rs = session.openQuery(sql);
    if (!rs)
        return rs.error();
    QList<QStringList> out;
    for (qsizetype r = 0; rs->isOpen() && r < rs->recordCount(); ++r) {
        QStringList cells;
        for (int f = 0; f < rs->fieldCount(); ++f)
            cells << rs->text(r, f);
        out << cells;
    }
    return out;
}

// The target's name for a ticked table: the same name, or failing that the one that differs
// only in letter case (a server that folds names); empty when the target has neither.
QString targetName(const QHash<QString, QString> &types, const QString &table)
{
    if (types.contains(table))
        return table;
    for (auto it = types.constBegin(); it != types.constEnd(); ++it) {
        if (it.key().compare(table, Qt::CaseInsensitive) == 0)
            return it.key();
    }
    return {};
}

// The header row of a table file; empty when it cannot be read (the fit check says why).
QStringList header(const QString &tableFile)
{
    GridFileReader in;
    if (in.open(tableFile) || !in.next())
        return {};
    QStringList names;
    for (const QByteArray &cell : in.row())
        names << QString::fromUtf8(cell);
    return names;
}

QString hex(const QByteArray &bytes)
{
    return QStringLiteral("X'") + QString::fromLatin1(bytes.toHex()) + QLatin1Char('\'');
}

} // namespace

DbResult<Findings> check(DatabaseSession &target, const QStringList &tables, const QString &folder, bool deletes)
{
    Findings found;
    auto listed = rows(target, QStringLiteral("SELECT TABLE_NAME, TABLE_TYPE FROM information_schema.TABLES "
                                              "WHERE TABLE_SCHEMA = DATABASE()"));
    if (!listed)
        return listed.error();
    QHash<QString, QString> types; // table name -> BASE TABLE, VIEW, ...
    for (const QStringList &row : *listed)
        types.insert(row.value(0), row.value(1));
    auto generated = rows(target, QStringLiteral("SELECT TABLE_NAME, COLUMN_NAME FROM information_schema.COLUMNS "
                                                 "WHERE TABLE_SCHEMA = DATABASE() AND IS_GENERATED = 'ALWAYS'"));
    if (!generated)
        return generated.error();
    auto keywords = ServerNames::keywords(target);
    if (!keywords)
        return keywords.error();
    auto reservedTables = ServerNames::reservedNames(target, *keywords, tables, ServerNames::Place::Table);
    if (!reservedTables)
        return reservedTables.error();

    QHash<QString, QString> ticked; // target name -> ticked name
    for (const QString &table : tables) {
        if (reservedTables->contains(table)) {
            found.refusals << table + QStringLiteral(": its name is a word the server reserves, which the "
                                                     "restore's statements cannot carry");
            continue;
        }
        const QString name = targetName(types, table);
        if (name.isEmpty())
            continue; // the restore asks about a table the database lacks
        if (types.value(name) == QLatin1String("VIEW")) {
            // Its delete and inserts would empty the columns of its tables that it does not show.
            auto bases = viewBaseTables(target, name);
            if (!bases)
                return bases.error();
            found.refusals << table + QStringLiteral(": it is a view of the table(s) %1, not a table; its rows are "
                                                     "restored with them")
                                          .arg(bases->join(QStringLiteral(", ")));
            continue;
        }
        ticked.insert(name, table);
        const QStringList columns = header(QDir(folder).filePath(table));
        auto reservedColumns = ServerNames::reservedNames(target, *keywords, columns, ServerNames::Place::Column);
        if (!reservedColumns)
            return reservedColumns.error();
        for (const QString &column : columns) {
            if (!BackupArchive::isTableName(column))
                found.refusals << table + QStringLiteral(": its column \"%1\" cannot be named in the restore's "
                                                         "statements (letters, digits, _ and $)")
                                              .arg(column);
            else if (reservedColumns->contains(column))
                found.refusals << table + QStringLiteral(": its column \"%1\" is a word the server reserves, which "
                                                         "the restore's statements cannot carry")
                                              .arg(column);
        }
        for (const QStringList &row : *generated) {
            if (row.value(0) == name)
                found.refusals << table + QStringLiteral(": its column \"%1\" is generated by the server, which "
                                                         "takes no value for it")
                                              .arg(row.value(1));
        }
    }
    if (!deletes)
        return found;

    // A delete reaches further than its table through the foreign keys that point at it.
    auto keys = rows(target, QStringLiteral("SELECT CONSTRAINT_SCHEMA, TABLE_NAME, REFERENCED_TABLE_NAME, "
                                            "DELETE_RULE, CONSTRAINT_SCHEMA = DATABASE() FROM "
                                            "information_schema.REFERENTIAL_CONSTRAINTS WHERE "
                                            "UNIQUE_CONSTRAINT_SCHEMA = DATABASE() AND DELETE_RULE IN "
                                            "('CASCADE', 'SET NULL') ORDER BY REFERENCED_TABLE_NAME, TABLE_NAME"));
    if (!keys)
        return keys.error();
    for (const QStringList &key : *keys) {
        const QString parent = key.value(2);
        if (!ticked.contains(parent))
            continue;
        const bool here = key.value(4) == QLatin1String("1");
        const QString child = here ? key.value(1) : key.value(0) + QLatin1Char('.') + key.value(1);
        if (here && ticked.contains(child)) {
            if (child != parent) {
                found.cascadesAmongTicked = true;
                if (!found.cascaded.contains(child))
                    found.cascaded << child;
            }
            continue;
        }
        const bool cascade = key.value(3) == QLatin1String("CASCADE");
        found.refusals << ticked.value(parent) +
                              (cascade ? QStringLiteral(": deleting its rows would also delete rows of %1 (ON DELETE "
                                                        "CASCADE), which is not ticked")
                                       : QStringLiteral(": deleting its rows would also set fields of %1 to NULL (ON "
                                                        "DELETE SET NULL), which is not ticked"))
                                  .arg(child);
    }
    return found;
}

DbResult<ClientRows> clientRows(DatabaseSession &target, const QString &table, const QString &tableFile,
                                const QString &code)
{
    ClientRows found;
    GridFileReader in;
    if (DbError error = in.open(tableFile))
        return error;
    if (!in.next())
        return in.error();
    const QString upper = table.toUpper();
    const bool byName = upper == QLatin1String("BILL") || upper == QLatin1String("TABLE4");
    // The column the client backup selects the table's rows by.
    QString columnName;
    const QStringList candidates =
        byName ? QStringList{QStringLiteral("NAME")} : QStringList{QStringLiteral("CODE_NO"), QStringLiteral("CODE")};
    for (const QString &candidate : candidates) {
        for (size_t c = 0; c < in.row().size() && found.column < 0; ++c) {
            if (QString::fromUtf8(in.row()[c]).toUpper() == candidate) {
                found.column = int(c);
                columnName = QString::fromUtf8(in.row()[c]);
            }
        }
    }
    if (found.column < 0)
        return found;
    QSet<QByteArray> cells;
    while (in.next())
        cells.insert(in.row()[size_t(found.column)]);
    if (in.error())
        return in.error();

    // The column's collation decides which spellings are the same code; both names are plain
    // (the check has refused any other). The cells are UTF-8 text, as the backup read them.
    auto collation = rows(target, QStringLiteral("SELECT CHARACTER_SET_NAME, COLLATION_NAME FROM "
                                                 "information_schema.COLUMNS WHERE TABLE_SCHEMA = DATABASE() "
                                                 "AND TABLE_NAME = '%1' AND COLUMN_NAME = '%2'")
                                      .arg(table, columnName));
    if (!collation)
        return collation.error();
    const QString charset = collation->isEmpty() ? QString() : collation->first().value(0);
    const QString collate = collation->isEmpty() ? QString() : collation->first().value(1);
    const QString compared =
        charset.isEmpty() || collate.isEmpty()
            ? QStringLiteral("ucase(CONVERT(v USING utf8mb4))")
            : QStringLiteral("ucase(CONVERT(CONVERT(v USING utf8mb4) USING %1)) COLLATE %2").arg(charset, collate);

    const QList<QByteArray> values(cells.begin(), cells.end());
    constexpr qsizetype kBatch = 500;
    for (qsizetype start = 0; start < values.size(); start += kBatch) {
        QStringList selects;
        for (qsizetype i = start; i < std::min(values.size(), start + kBatch); ++i)
            selects << (i == start ? QStringLiteral("SELECT %1 AS i, %2 AS v") : QStringLiteral("SELECT %1, %2"))
                           .arg(i)
                           .arg(hex(values[i]));
        auto matched = rows(target, QStringLiteral("SELECT i FROM (%1) AS t WHERE %2 = '%3'")
                                        .arg(selects.join(QStringLiteral(" UNION ALL ")), compared, code));
        if (!matched)
            return matched.error();
        for (const QStringList &row : *matched)
            found.codes.insert(values.value(row.value(0).toLongLong()));
    }
    return found;
}

} // namespace tabulon::RestoreCheck
