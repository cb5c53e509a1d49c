// Restore statements and the row-by-row insert loop.
#include "backup/tablerestore.h"

#include "data/recordwriter.h"
#include "db/databasesession.h"
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

DbResult<QHash<QString, int>> fieldTypes(DatabaseSession &target, const QString &table)
{
    QHash<QString, int> types;
    const DbError error = target.streamQuery(QStringLiteral("SELECT * FROM ") + DatabaseSession::quoteIdentifier(table),
                                             [&types](const std::vector<FieldInfo> &fields) {
                                                 for (const FieldInfo &f : fields)
                                                     types.insert(f.name.toUpper(), f.type);
                                                 return DbError{};
                                             },
                                             {});
    if (error)
        return error;
    return types;
}

DbResult<TableFit> checkFit(DatabaseSession &target, const QString &table, const QString &tableFile)
{
    auto types = fieldTypes(target, table);
    if (!types)
        return types.error();
    TableFit fit{*types, {}};
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

DbError insertRows(DatabaseSession &target, const QString &table, const QString &tableFile,
                   const QHash<QString, int> &types, const ClientCode *client,
                   const StatementErrorHandler &onStatementError)
{
    GridFileReader in;
    if (DbError error = in.open(tableFile))
        return error;
    if (!in.next())
        return in.error();
    QStringList header;
    for (const QByteArray &cell : in.row())
        header << QString::fromUtf8(cell);

    // Per column: its type, or nullopt for a name the target lacks; and whether the client's
    // code replaces its value.
    std::vector<std::optional<int>> columnTypes;
    std::vector<bool> takesCode;
    for (const QString &name : header) {
        const QString upper = name.toUpper();
        const auto found = types.constFind(upper);
        columnTypes.push_back(found == types.constEnd() ? std::nullopt : std::optional<int>(*found));
        takesCode.push_back(client && (upper == QLatin1String("CODE_NO") || upper == QLatin1String("CODE") ||
                                       (upper == QLatin1String("NAME") && namesClient(table))));
    }

    QStringList values;
    while (in.next()) {
        values.clear();
        DbError error;
        const auto &row = in.row();
        if (client && client->isClientRow && !client->isClientRow(row))
            continue;
        for (size_t c = 0; c < row.size(); ++c) {
            if (!columnTypes[c]) {
                error = DbError::itemNotFound();
                break;
            }
            values << value(*columnTypes[c], takesCode[c] ? client->code : QString::fromUtf8(row[c]));
        }
        if (!error)
            error = target.execute(insertStatement(table, header, values));
        if (error && !onStatementError(error))
            return error;
    }
    return in.error();
}

} // namespace tabulon::TableRestore
