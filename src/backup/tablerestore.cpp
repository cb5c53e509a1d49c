// Restore statements and the row-by-row insert loop.
#include "backup/tablerestore.h"

#include "data/recordwriter.h"
#include "db/databasesession.h"
#include "db/statementpipeline.h"
#include "grid/gridfile.h"

#include <QSet>

namespace tabulon::TableRestore {

namespace {

QString quoted(const QString &text)
{
    return QLatin1Char('\'') + text + QLatin1Char('\'');
}

bool namesClient(const QString &table)
{
    const QString upper = table.toUpper();
    return upper == QLatin1String("BILL") || upper == QLatin1String("TABLE4");
}

} // namespace

QString value(int adoType, const QString &cellText)
{
    if (RecordWriter::groupOf(adoType) == RecordWriter::ValueGroup::Numeric)
        return RecordWriter::insertValue(adoType, cellText);
    return quoted(cellText);
}

QString insertStatement(const QString &table, const QStringList &header, const QStringList &values)
{
    return RecordWriter::insertStatement(table, header, values);
}

QString deleteAllStatement(const QString &table)
{
    return QStringLiteral("DELETE from ") + table + QStringLiteral(" where 1>0;");
}

QString existenceTest(const QString &table)
{
    return QStringLiteral("Select * from ") + table;
}

DbResult<FieldColumns> fieldColumns(DatabaseSession &target, const QString &table)
{
    FieldColumns columns;
    const DbError error = target.streamQuery(QStringLiteral("SELECT * FROM ") +
                                                 DatabaseSession::quoteIdentifier(table) + QStringLiteral(" LIMIT 0"),
                                             [&columns](const std::vector<FieldInfo> &fields) {
                                                 for (const FieldInfo &f : fields)
                                                     columns.insert(f.name.toUpper(), ExactValues::Column::of(f));
                                                 return DbError{};
                                             },
                                             {});
    if (error)
        return error;
    return columns;
}

DbResult<TableFit> checkFit(DatabaseSession &target, const QString &table, const QString &tableFile)
{
    auto columns = fieldColumns(target, table);
    if (!columns)
        return columns.error();
    TableFit fit;
    fit.columns = std::move(*columns);
    for (auto it = fit.columns.cbegin(); it != fit.columns.cend(); ++it)
        fit.types.insert(it.key(), it->adoType);
    GridFileReader in;
    DbError error = in.open(tableFile);
    if (!error && !in.next())
        error = in.error().isError() ? in.error() : DbError::generic(QStringLiteral("The file has no header row."));
    if (error) {
        fit.misfit = QStringLiteral("its file cannot be read: ") + error.description;
        return fit;
    }
    const std::vector<QByteArray> header = in.row();
    if (header.size() != size_t(fit.types.size())) {
        fit.misfit = QStringLiteral("its file has %1 columns, the table has %2 fields.")
                         .arg(header.size())
                         .arg(fit.types.size());
        return fit;
    }
    QSet<QString> seen;
    for (const QByteArray &cell : header) {
        const QString name = QString::fromUtf8(cell);
        if (!fit.types.contains(name.toUpper())) {
            fit.misfit = QStringLiteral("its file has the field \"%1\", which the table does not have.").arg(name);
            break;
        }
        if (seen.contains(name.toUpper())) {
            fit.misfit = QStringLiteral("its file has the field \"%1\" twice.").arg(name);
            break;
        }
        seen.insert(name.toUpper());
    }
    return fit;
}

QStringList clientDeletes(const QString &table, const QString &code, const QHash<QString, int> &types)
{
    const QString head = QStringLiteral("Delete from ") + table + QStringLiteral(" where ucase(");
    QStringList deletes;
    const auto remove = [&](const char *column) {
        if (types.contains(QString::fromLatin1(column).toUpper()))
            deletes << head + QLatin1String(column) + QStringLiteral(") = ") + quoted(code);
    };
    if (namesClient(table)) {
        remove("name");
    } else {
        remove("code");
        remove("code_no");
    }
    return deletes;
}

bool isSafeClientCode(const QString &code)
{
    return !code.trimmed().isEmpty() && !code.contains(QLatin1Char('\'')) && !code.contains(QLatin1Char('\\'));
}

namespace {

// A table file opened for its rows, with each column's target field and whether the client's
// code replaces its value.
struct FileRows final {
    GridFileReader in;
    QStringList header;
    std::vector<std::optional<ExactValues::Column>> columns;
    std::vector<bool> takesCode;
    QByteArray code;

    DbError open(const QString &tableFile, const QString &table, const FieldColumns &fields, const ClientCode *client)
    {
        if (DbError error = in.open(tableFile))
            return error;
        if (!in.next())
            return in.error();
        if (client)
            code = client->code.toUtf8();
        for (const QByteArray &cell : in.row()) {
            const QString name = QString::fromUtf8(cell);
            header << name;
            const QString upper = name.toUpper();
            const auto found = fields.constFind(upper);
            columns.push_back(found == fields.constEnd() ? std::nullopt : std::optional<ExactValues::Column>(*found));
            takesCode.push_back(client && (upper == QLatin1String("CODE_NO") || upper == QLatin1String("CODE") ||
                                           (upper == QLatin1String("NAME") && namesClient(table))));
        }
        return {};
    }
    QByteArrayView cell(size_t c) const { return takesCode[c] ? QByteArrayView(code) : QByteArrayView(in.row()[c]); }
    // The reasons of the current row's cells; -1 in `missing` for a column the target lacks.
    unsigned reasons(bool *missing) const
    {
        unsigned why = 0;
        for (size_t c = 0; c < in.row().size(); ++c) {
            if (!columns[c]) {
                *missing = true;
                continue;
            }
            why |= ExactValues::reasons(ExactValues::Rules::Restore, *columns[c], cell(c), false);
        }
        return why;
    }
    QByteArray exactStatement(const QString &table) const
    {
        QByteArray sql = insertStatement(table, header, {}).toUtf8();
        sql.chop(1);
        for (size_t c = 0; c < in.row().size(); ++c) {
            if (c > 0)
                sql += ',';
            sql += ExactValues::exactLiteral(ExactValues::Rules::Restore, *columns[c], cell(c), false);
        }
        sql += ')';
        return sql;
    }
    qint64 bound() const
    {
        qint64 n = 30;
        for (qsizetype c = 0; c < header.size(); ++c)
            n += header.at(c).size() + 1 + ExactValues::literalBound(cell(static_cast<size_t>(c)));
        return n;
    }
    QString longestField() const
    {
        size_t longest = 0;
        for (size_t c = 0; c < in.row().size(); ++c) {
            if (cell(c).size() > cell(longest).size())
                longest = c;
        }
        return header.value(static_cast<qsizetype>(longest));
    }
};

} // namespace

DbResult<ExactValues::TableFindings> checkValues(DatabaseSession &target, const QString &table,
                                                 const QString &tableFile, const FieldColumns &columns,
                                                 const ClientCode *client)
{
    ExactValues::TableFindings findings;
    findings.table = table;
    FileRows rows;
    if (DbError error = rows.open(tableFile, table, columns, client))
        return error;
    qint64 limit = -1;
    QStringList values;
    while (rows.in.next()) {
        if (client && client->isClientRow && !client->isClientRow(rows.in.row()))
            continue;
        bool missing = false;
        const unsigned why = rows.reasons(&missing);
        findings.addRow(why);
        if (missing || rows.bound() + table.size() < 1024)
            continue;
        if (limit < 0)
            limit = target.statementLimit();
        // The statement the row goes with under Yes: exact where it differs, usual elsewhere.
        qint64 length = 0;
        if (why != 0) {
            length = rows.exactStatement(table).size();
        } else {
            values.clear();
            for (size_t c = 0; c < rows.in.row().size(); ++c)
                values << value(rows.columns[c]->adoType, QString::fromUtf8(rows.cell(c)));
            length = insertStatement(table, rows.header, values).toUtf8().size();
        }
        if (length > limit && findings.tooLong++ == 0) {
            findings.longestRow = findings.rows;
            findings.longestField = rows.longestField();
        }
    }
    if (DbError error = rows.in.error())
        return error;
    return findings;
}

DbError insertRows(DatabaseSession &target, const QString &table, const QString &tableFile, const FieldColumns &columns,
                   const ClientCode *client, bool exact, StatementPipeline::Sending sending,
                   const StatementErrorHandler &onStatementError)
{
    FileRows rows;
    if (DbError error = rows.open(tableFile, table, columns, client))
        return error;
    QStringList values;
    qint64 row = 0;
    DbError stoppedBy;
    // Each row's outcome, in the order of the rows, whether its answer came before the next row
    // was sent or after later rows were.
    const auto outcome = [&](qint64 at, const QString &longest) {
        return [&, at, longest](DbError error) {
            if (!error)
                return true;
            if (error.serverCode == kStatementTooLong)
                error.description = QStringLiteral("Row %1 of %2 was not restored, its longest value being in %3: %4")
                                        .arg(at)
                                        .arg(table, longest, error.description);
            if (onStatementError(error))
                return true;
            stoppedBy = error;
            return false;
        };
    };
    StatementPipeline inserts(target, sending);
    bool going = true;
    while (going && rows.in.next()) {
        ++row;
        if (client && client->isClientRow && !client->isClientRow(rows.in.row()))
            continue;
        bool missing = false;
        const unsigned why = exact ? rows.reasons(&missing) : 0;
        QByteArray sql;
        DbError error;
        if (exact && why != 0 && !missing) {
            sql = rows.exactStatement(table);
        } else {
            values.clear();
            for (size_t c = 0; c < rows.in.row().size(); ++c) {
                if (!rows.columns[c]) {
                    error = DbError::itemNotFound();
                    break;
                }
                values << value(rows.columns[c]->adoType, QString::fromUtf8(rows.cell(c)));
            }
            if (!error)
                sql = insertStatement(table, rows.header, values).toUtf8();
        }
        // Only a statement the server might refuse for its length needs its longest field named.
        const QString longest = sql.size() >= 1024 ? rows.longestField() : QString();
        going = error ? inserts.add(error, outcome(row, longest)) : inserts.add(sql, outcome(row, longest));
    }
    if (!inserts.finish() || !going)
        return stoppedBy;
    return rows.in.error();
}

} // namespace tabulon::TableRestore
