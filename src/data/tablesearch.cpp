#include "data/tablesearch.h"

#include "data/recordwriter.h"
#include "db/databasesession.h"
#include "db/progress.h"

namespace tabulon::TableSearch {

namespace {

bool isNumericGroup(int adoType)
{
    return RecordWriter::groupOf(adoType) == RecordWriter::ValueGroup::Numeric;
}

// The fields of a table, without reading its rows: the search needs names and types only.
DbResult<Recordset> tableFields(DatabaseSession &session, const QString &table)
{
    return session.openQuery(QStringLiteral("SELECT * FROM ") + DatabaseSession::quoteIdentifier(table) +
                             QStringLiteral(" LIMIT 0"));
}

bool hasRows(const DbResult<Recordset> &result)
{
    return result->isOpen() && result->recordCount() > 0;
}

// Whether the statement returns a row; the rows are counted as they arrive, never held.
DbResult<bool> returnsRows(DatabaseSession &session, const QString &sql)
{
    qint64 rows = 0;
    const DbError error = session.streamQuery(sql, {}, [&rows](std::span<const std::optional<QByteArrayView>>) {
        ++rows;
        return DbError{};
    });
    if (error)
        return error;
    return rows > 0;
}

} // namespace

std::optional<QString> comparisonValue(int adoType, const QString &searchText)
{
    if (!isNumericGroup(adoType))
        return QLatin1Char('\'') + searchText + QLatin1Char('\'');
    double number = 0;
    if (!RecordWriter::isNumeric(searchText, &number))
        return std::nullopt;
    return RecordWriter::numberText(number);
}

QString repairStatement(const QString &table)
{
    return QStringLiteral("Repair Table ") + table;
}

QString fieldQuery(const QString &table, const QString &field, const QString &value)
{
    return QStringLiteral("select ") + field + QStringLiteral(" from ") + table + QStringLiteral(" where ") + field +
           QLatin1Char('=') + value;
}

DbError searchTables(DatabaseSession &session, const QStringList &tables, int first, int last,
                     const QString &searchText, Progress &progress, const std::function<void(const TableHit &)> &onHit)
{
    first = std::max(first, 0);
    last = std::min(last, static_cast<int>(tables.size()) - 1);
    progress.begin(std::max(last - first + 1, 0));
    for (int t = first; t <= last; ++t) {
        const QString &table = tables.at(t);
        progress.step(table);
        if (progress.stopRequested())
            break;
        if (DbError error = session.execute(repairStatement(table)))
            return error;
        auto fields = tableFields(session, table);
        if (!fields.ok())
            return fields.error();
        for (int f = 0; f < fields->fieldCount(); ++f) {
            const FieldInfo &field = fields->field(f);
            const std::optional<QString> value = comparisonValue(field.type, searchText);
            if (!value)
                continue;
            const DbResult<bool> found = returnsRows(session, fieldQuery(table, field.name, *value));
            if (!found.ok())
                return found.error();
            if (found.value()) {
                onHit({table, t});
                break;
            }
        }
    }
    progress.end();
    return {};
}

QString mainInfoCodeQuery(const QString &code)
{
    return QStringLiteral("select code_no from main_info1 where code_no ='") + code + QLatin1Char('\'');
}

QString ownerCodeQuery(const QString &code)
{
    return QStringLiteral("select code from owner1 where code = '") + code + QLatin1Char('\'');
}

DbResult<bool> clientCodeExists(DatabaseSession &session, const QString &code)
{
    const std::pair<QString, QString> checks[] = {
        {QStringLiteral("main_info1"), mainInfoCodeQuery(code)},
        {QStringLiteral("owner1"), ownerCodeQuery(code)},
    };
    for (const auto &[table, query] : checks) {
        if (DbError error = session.execute(repairStatement(table)))
            return error;
        const DbResult<bool> found = returnsRows(session, query);
        if (!found.ok())
            return found.error();
        if (found.value())
            return true;
    }
    return false;
}

DbError scanTables(DatabaseSession &session, const QStringList &tables, const QString &findText, Progress &progress,
                   const std::function<void(const FieldHits &)> &onHits)
{
    progress.begin(static_cast<int>(tables.size()));
    for (int t = 0; t < tables.size(); ++t) {
        const QString &table = tables.at(t);
        progress.step(table);
        if (progress.stopRequested())
            break;
        const QString repair = repairStatement(table);
        if (DbError error = session.execute(repair))
            return error;
        auto fields = tableFields(session, table);
        if (!fields.ok())
            return fields.error();
        for (int f = 0; f < fields->fieldCount(); ++f) {
            const FieldInfo &field = fields->field(f);
            const std::optional<QString> value = comparisonValue(field.type, findText);
            if (!value)
                continue;
            if (DbError error = session.execute(repair))
                return error;
            auto rows = session.openQuery(fieldQuery(table, field.name, *value));
            if (!rows.ok())
                return rows.error();
            if (hasRows(rows))
                onHits({table, t, field.name, f, &*rows});
        }
    }
    progress.end();
    return {};
}

QString replaceQuery(const QString &table, const QString &field, const QString &foundValue)
{
    return QStringLiteral("select * from ") + table + QStringLiteral(" where ") + field + QStringLiteral("='") +
           foundValue + QLatin1Char('\'');
}

QString replacementValue(int adoType, const QString &replaceText)
{
    double number = 0;
    if (isNumericGroup(adoType) && RecordWriter::isNumeric(replaceText, &number))
        return RecordWriter::numberText(number);
    return replaceText;
}

DbResult<ReplaceOutcome> replaceHit(DatabaseSession &session, const Hit &hit, const QString &findText,
                                    const QString &replaceText)
{
    if (DbError error = session.execute(repairStatement(hit.table)))
        return error;
    auto rows = session.openQuery(replaceQuery(hit.table, hit.field, hit.foundValue));
    if (!rows.ok())
        return rows.error();
    Recordset &records = *rows;
    if (!hasRows(rows))
        return ReplaceOutcome::NothingToReplace;

    // The scan's field position, unless the table has changed shape since: then the name.
    int field = hit.fieldPosition;
    if (field < 0 || field >= records.fieldCount() ||
        records.field(field).name.compare(hit.field, Qt::CaseInsensitive) != 0)
        field = records.fieldIndex(hit.field);
    if (field < 0)
        return ReplaceOutcome::NothingToReplace;

    // The first row that still holds what was found. Rows holding the same value are taken one
    // per replacement: a replaced row no longer matches, so the next hit takes the next row.
    const QString wanted = findText.toUpper();
    qsizetype row = -1;
    for (qsizetype r = 0; r < records.recordCount() && row < 0; ++r) {
        if (records.isNull(r, field))
            continue;
        const QString text = records.text(r, field);
        if (text.toUpper() == wanted || text == hit.foundValue)
            row = r;
    }
    if (row < 0)
        return ReplaceOutcome::NothingToReplace;

    const FieldInfo &changed = records.field(field);
    SessionSql::UpdateTarget target;
    target.table = changed.table.isEmpty() ? hit.table : changed.table;
    target.database = changed.database;
    for (int f = 0; f < records.fieldCount(); ++f) {
        target.fields.push_back(records.field(f));
        target.original.push_back(records.value(row, f));
    }
    target.changes.emplace_back(field, replacementValue(changed.type, replaceText));
    const QByteArray update =
        SessionSql::buildUpdate(target, [&session](QByteArrayView value) { return session.escape(value); });
    if (DbError error = session.execute(QString::fromUtf8(update)))
        return error;
    if (session.affectedRows() == 0)
        return DbError{AdoError::RowNotFound,
                       QStringLiteral("The record holding %1 in %2 of %3 could not be located; it was not changed.")
                           .arg(hit.foundValue, hit.field, hit.table),
                       0};
    return ReplaceOutcome::Replaced;
}

} // namespace tabulon::TableSearch
