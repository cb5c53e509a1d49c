#include "structure/structuresql.h"

namespace tabulon::StructureSql {

QString repairBeforeListing(const QString &table)
{
    return QStringLiteral("Repair Table ") + table;
}

QString showColumns(const QString &table)
{
    return QStringLiteral("show columns from ") + table;
}

ColumnMatch matchColumn(const QString &column, const QString &filter)
{
    const QString wanted = filter.trimmed();
    if (wanted.isEmpty())
        return ColumnMatch::Shown;
    return column.trimmed().toUpper() == wanted.toUpper() ? ColumnMatch::Found : ColumnMatch::Skipped;
}

QString answerOr(const QString &answer, const QString &current)
{
    return answer.isEmpty() ? current : answer;
}

QString addField(const QString &table, const QString &name, const QString &type)
{
    return QStringLiteral("ALTER table ") + table + QStringLiteral(" Add ") + name + QLatin1Char(' ') + type +
           QLatin1Char(';');
}

QString changeField(const QString &table, const QString &current, const QString &name, const QString &type)
{
    return QStringLiteral("ALTER table ") + table + QStringLiteral(" change ") + current + QLatin1Char(' ') + name +
           QLatin1Char(' ') + type + QLatin1Char(';');
}

QString dropField(const QString &table, const QString &name)
{
    return QStringLiteral("ALTER table ") + table + QStringLiteral(" Drop column ") + name + QLatin1Char(';');
}

QString createTable(const QString &name, const QList<FieldRow> &fields)
{
    QStringList parts;
    parts.reserve(fields.size());
    for (const FieldRow &field : fields)
        parts << field.first + QLatin1Char(' ') + field.second;
    return QStringLiteral("Create Table ") + name.trimmed() + QStringLiteral(" (") + parts.join(QLatin1Char(',')) +
           QStringLiteral(");");
}

QString dropTable(const QString &name)
{
    return QStringLiteral("Drop Table ") + name;
}

QStringList namesAfterInsert(const QStringList &names, int current)
{
    QStringList out = names;
    out << QString();
    // Copied downwards one row at a time, so the current name runs to the end.
    for (qsizetype i = current; i >= 0 && i + 1 < out.size(); ++i)
        out[i + 1] = out[i];
    return out;
}

} // namespace tabulon::StructureSql
