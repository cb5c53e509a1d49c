#include "data/tablesearch.h"

#include "data/recordwriter.h"
#include "db/databasesession.h"
#include "db/progress.h"

#include <algorithm>

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

QString identityQuery(const QString &table, const std::vector<FieldInfo> &fields, const std::vector<int> &key,
                      int field, const QString &value)
{
    QStringList columns;
    for (int f = 0; f < static_cast<int>(fields.size()); ++f) {
        if (key.empty() || f == field || std::find(key.begin(), key.end(), f) != key.end())
            columns << DatabaseSession::quoteIdentifier(fields[static_cast<size_t>(f)].name);
    }
    return QStringLiteral("SELECT ") + columns.join(QLatin1Char(',')) + QStringLiteral(" FROM ") +
           DatabaseSession::quoteIdentifier(table) + QStringLiteral(" WHERE ") +
           DatabaseSession::quoteIdentifier(fields[static_cast<size_t>(field)].name) + QLatin1Char('=') + value;
}

bool RowIdentity::matches(const Recordset &records, qsizetype row) const
{
    if (fields.isEmpty() || static_cast<size_t>(fields.size()) != values.size())
        return false;
    for (qsizetype i = 0; i < fields.size(); ++i) {
        const int f = records.fieldIndex(fields.at(i));
        if (f < 0 || records.bytes(row, f) != values[static_cast<size_t>(i)])
            return false;
    }
    return true;
}

namespace {

// The hits of one field from its identity query: the key's fields (or all fields) of each row
// and the field's own value.
std::vector<Hit> hitsOf(const Recordset &rows, const QString &table, const QString &field, int fieldPosition,
                        const QStringList &keyNames)
{
    std::vector<Hit> hits;
    const int valueField = rows.fieldIndex(field);
    if (!rows.isOpen() || valueField < 0)
        return hits;
    std::vector<int> identity;
    for (int f = 0; f < rows.fieldCount(); ++f) {
        if (keyNames.isEmpty() || keyNames.contains(rows.field(f).name, Qt::CaseInsensitive))
            identity.push_back(f);
    }
    hits.reserve(static_cast<size_t>(rows.recordCount()));
    for (qsizetype r = 0; r < rows.recordCount(); ++r) {
        Hit hit{table, field, rows.text(r, valueField), fieldPosition, {}};
        for (const int f : identity) {
            hit.row.fields << rows.field(f).name;
            hit.row.values.push_back(rows.bytes(r, f));
        }
        hits.push_back(std::move(hit));
    }
    return hits;
}

} // namespace

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
        std::vector<FieldInfo> infos;
        for (int f = 0; f < fields->fieldCount(); ++f)
            infos.push_back(fields->field(f));
        auto key = session.rowKey(QString(), table, infos);
        if (!key.ok())
            return key.error();
        QStringList keyNames;
        for (const int f : *key)
            keyNames << infos[static_cast<size_t>(f)].name;
        for (int f = 0; f < fields->fieldCount(); ++f) {
            const FieldInfo &field = fields->field(f);
            const std::optional<QString> value = comparisonValue(field.type, findText);
            if (!value)
                continue;
            if (DbError error = session.execute(repair))
                return error;
            const DbResult<bool> found = returnsRows(session, fieldQuery(table, field.name, *value));
            if (!found.ok())
                return found.error();
            if (!found.value())
                continue;
            // The field's query tells only the values; its rows are read again with what
            // identifies them, so that a replacement changes the very row the operator saw.
            auto rows = session.openQuery(identityQuery(table, infos, *key, f, *value));
            if (!rows.ok())
                return rows.error();
            FieldHits hits{table, t, field.name, f, hitsOf(*rows, table, field.name, f, keyNames)};
            if (!hits.hits.empty())
                onHits(hits);
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

DbResult<ReplaceResult> replaceHit(DatabaseSession &session, const Hit &hit, const QString &findText,
                                   const QString &replaceText)
{
    if (DbError error = session.execute(repairStatement(hit.table)))
        return error;
    auto rows = session.openQuery(replaceQuery(hit.table, hit.field, hit.foundValue));
    if (!rows.ok())
        return rows.error();
    Recordset &records = *rows;
    if (!hasRows(rows))
        return ReplaceResult{};

    // The scan's field position, unless the table has changed shape since: then the name.
    int field = hit.fieldPosition;
    if (field < 0 || field >= records.fieldCount() ||
        records.field(field).name.compare(hit.field, Qt::CaseInsensitive) != 0)
        field = records.fieldIndex(hit.field);
    if (field < 0)
        return ReplaceResult{};

    // The hit's own row, and only while its field still holds what the scan found there.
    qsizetype row = -1;
    for (qsizetype r = 0; r < records.recordCount() && row < 0; ++r) {
        if (hit.row.matches(records, r) && !records.isNull(r, field) && records.text(r, field) == hit.foundValue)
            row = r;
    }
    if (row < 0)
        return ReplaceResult{};
    // The server compares by its own rules (0 = 'N/A' holds for a number); the value is the
    // find text only when the texts agree.
    if (records.text(row, field).toUpper() != findText.toUpper())
        return ReplaceResult{ReplaceOutcome::NotFindText, {}};

    const FieldInfo &changed = records.field(field);
    SessionSql::UpdateTarget target;
    target.table = changed.table.isEmpty() ? hit.table : changed.table;
    target.database = changed.database;
    for (int f = 0; f < records.fieldCount(); ++f) {
        target.fields.push_back(records.field(f));
        target.original.push_back(records.bytes(row, f));
    }
    auto key = session.rowKey(target.database, target.table, target.fields);
    if (!key.ok())
        return key.error();
    target.key = std::move(*key);
    const QString written = replacementValue(changed.type, replaceText);
    target.changes.emplace_back(field, written);
    const QByteArray update =
        SessionSql::buildUpdate(target, [&session](QByteArrayView value) { return session.escape(value); });
    if (DbError error = session.executeBytes(update))
        return error;
    if (session.affectedRows() == 0)
        return DbError{AdoError::RowNotFound,
                       QStringLiteral("The record holding %1 in %2 of %3 could not be located; it was not changed.")
                           .arg(hit.foundValue, hit.field, hit.table),
                       0};
    return ReplaceResult{ReplaceOutcome::Replaced, written};
}

void followReplacement(std::vector<Hit> &hits, const Hit &replaced, const QString &written)
{
    qsizetype changed = -1;
    for (qsizetype i = 0; i < replaced.row.fields.size() && changed < 0; ++i) {
        if (replaced.row.fields.at(i).compare(replaced.field, Qt::CaseInsensitive) == 0)
            changed = i;
    }
    if (changed < 0)
        return; // the identity does not hold the field: it stays the row's
    const RowIdentity before = replaced.row;
    for (Hit &hit : hits) {
        if (hit.row == before && hit.table == replaced.table &&
            hit.field.compare(replaced.field, Qt::CaseInsensitive) != 0)
            hit.row.values[static_cast<size_t>(changed)] = written.toUtf8();
    }
}

} // namespace tabulon::TableSearch
