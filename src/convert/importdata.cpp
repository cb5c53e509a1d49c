#include "convert/importdata.h"

#include "convert/conversionrules.h"
#include "db/progress.h"
#include "db/tablenames.h"
#include "db/typecodes.h"

#include <QRegularExpression>

#include <algorithm>

namespace tabulon::Import {

namespace {

bool isDateType(int adoType)
{
    return adoType == AdoType::Date || adoType == AdoType::DBDate || adoType == AdoType::DBTime ||
           adoType == AdoType::DBTimeStamp;
}

enum class DateColumn { None, DateTime, Date, Time, Year };

DateColumn dateColumn(const QString &columnType)
{
    const QString type = columnType.trimmed().toLower();
    if (type.startsWith(QLatin1String("datetime")) || type.startsWith(QLatin1String("timestamp")))
        return DateColumn::DateTime;
    if (type.startsWith(QLatin1String("date")))
        return DateColumn::Date;
    if (type.startsWith(QLatin1String("time")))
        return DateColumn::Time;
    if (type.startsWith(QLatin1String("year")))
        return DateColumn::Year;
    return DateColumn::None;
}

QString dateText(const QDateTime &value, DateColumn column)
{
    switch (column) {
    case DateColumn::Date: return value.date().toString(QStringLiteral("yyyy-MM-dd"));
    case DateColumn::Time: return value.time().toString(QStringLiteral("HH:mm:ss"));
    case DateColumn::Year: return QString::number(value.date().year());
    case DateColumn::DateTime: return value.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    case DateColumn::None: break;
    }
    // A text column: the date alone when there is no time of day.
    if (value.time().msecsSinceStartOfDay() == 0)
        return value.date().toString(QStringLiteral("yyyy-MM-dd"));
    return value.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

QByteArray identifier(const QString &name)
{
    return DatabaseSession::quoteIdentifier(name).toUtf8();
}

} // namespace

QString sanitized(const QString &name)
{
    QString copy = name;
    return Conversion::SanitizeName(copy);
}

std::vector<FieldMapping> newTableMapping(const std::vector<SourceField> &fields, const std::vector<int> &ticked)
{
    std::vector<FieldMapping> mapping;
    for (const int index : ticked) {
        const SourceField &field = fields.at(static_cast<size_t>(index));
        mapping.push_back({index, field, sanitized(field.name), Conversion::MapFieldType(field.type)});
    }
    return mapping;
}

std::vector<FieldMapping> existingTableMapping(const std::vector<SourceField> &fields, const std::vector<int> &ticked,
                                               const std::vector<TargetColumn> &columns)
{
    std::vector<FieldMapping> mapping;
    std::vector<bool> taken(columns.size(), false);
    for (const int index : ticked) {
        const SourceField &field = fields.at(static_cast<size_t>(index));
        FieldMapping entry{index, field, {}, {}};
        const QString name = sanitized(field.name);
        for (size_t c = 0; c < columns.size(); ++c) {
            if (!taken[c] && columns[c].name.compare(name, Qt::CaseInsensitive) == 0) {
                taken[c] = true;
                entry.column = columns[c].name;
                entry.columnType = columns[c].type;
                break;
            }
        }
        mapping.push_back(std::move(entry));
    }
    return mapping;
}

int matchedCount(const std::vector<FieldMapping> &mapping)
{
    return static_cast<int>(
        std::count_if(mapping.begin(), mapping.end(), [](const FieldMapping &m) { return !m.column.isEmpty(); }));
}

DbResult<std::vector<TargetColumn>> readColumns(DatabaseSession &session, const QString &table)
{
    auto rs = session.openQuery(QStringLiteral("SHOW COLUMNS FROM ") + DatabaseSession::quoteIdentifier(table));
    if (!rs.ok())
        return rs.error();
    std::vector<TargetColumn> columns;
    if (!rs->isOpen() || rs->fieldCount() < 2)
        return columns;
    for (qsizetype row = 0; row < rs->recordCount(); ++row)
        columns.push_back({rs->text(row, 0), rs->text(row, 1)});
    return columns;
}

DbResult<bool> tableExists(DatabaseSession &session, const QString &table)
{
    // Table names are told apart by case on this server's file system, as the server does.
    auto names = readFirstColumn(session, QStringLiteral("SHOW TABLES"));
    if (!names.ok())
        return names.error();
    return names->contains(table, Qt::CaseSensitive);
}

QString createStatement(const QString &table, const std::vector<FieldMapping> &mapping)
{
    QStringList columns;
    for (const FieldMapping &m : mapping) {
        if (!m.column.isEmpty())
            columns << DatabaseSession::quoteIdentifier(m.column) + QLatin1Char(' ') + m.columnType;
    }
    return QStringLiteral("CREATE TABLE %1 (%2)")
        .arg(DatabaseSession::quoteIdentifier(table), columns.join(QLatin1String(", ")));
}

std::optional<QDateTime> parseSourceDate(const QString &text)
{
    static const QRegularExpression usForm(
        QStringLiteral(R"(^\s*(\d{1,2})/(\d{1,2})/(\d{4})(?:\s+(\d{1,2}):(\d{2})(?::(\d{2}))?\s*([AaPp][Mm])?)?\s*$)"));
    static const QRegularExpression timeForm(
        QStringLiteral(R"(^\s*()()()(\d{1,2}):(\d{2})(?::(\d{2}))?\s*([AaPp][Mm])?\s*$)"));
    static const QRegularExpression isoForm(
        QStringLiteral(R"(^\s*(\d{4})-(\d{1,2})-(\d{1,2})(?:[ T](\d{1,2}):(\d{2})(?::(\d{2}))?()?)?\s*$)"));
    QDate date;
    QRegularExpressionMatch m = usForm.match(text);
    if (m.hasMatch()) {
        date = QDate(m.captured(3).toInt(), m.captured(1).toInt(), m.captured(2).toInt());
    } else if ((m = timeForm.match(text)).hasMatch()) {
        date = QDate(1899, 12, 30);
    } else if ((m = isoForm.match(text)).hasMatch()) {
        date = QDate(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt());
    } else {
        return std::nullopt;
    }
    int hour = m.captured(4).toInt();
    const QString half = m.captured(7).toUpper();
    if (!half.isEmpty() && (hour < 1 || hour > 12))
        return std::nullopt;
    if (half == QLatin1String("AM") && hour == 12)
        hour = 0;
    else if (half == QLatin1String("PM") && hour < 12)
        hour += 12;
    const QTime time(hour, m.captured(5).toInt(), m.captured(6).toInt());
    if (!date.isValid() || !time.isValid())
        return std::nullopt;
    return QDateTime(date, time);
}

QByteArray valueLiteral(const std::optional<QString> &value, int sourceType, const QString &columnType,
                        const SessionSql::Escaper &escape)
{
    if (!value)
        return QByteArrayLiteral("NULL");
    if (sourceType == AdoType::Boolean) {
        if (*value == QLatin1String("True"))
            return QByteArrayLiteral("1");
        if (*value == QLatin1String("False"))
            return QByteArrayLiteral("0");
    }
    QString text = *value;
    const DateColumn column = dateColumn(columnType);
    if (isDateType(sourceType) || column != DateColumn::None) {
        if (const auto date = parseSourceDate(text))
            text = dateText(*date, column);
    }
    return '\'' + escape(QByteArrayView(text.toUtf8())) + '\'';
}

QByteArray insertStatement(const QString &table, const std::vector<FieldMapping> &mapping, const SourceRow &row,
                           const SessionSql::Escaper &escape)
{
    QByteArray columns;
    QByteArray values;
    for (const FieldMapping &m : mapping) {
        if (m.column.isEmpty())
            continue;
        if (!columns.isEmpty()) {
            columns += ',';
            values += ',';
        }
        columns += identifier(m.column);
        const auto index = static_cast<size_t>(m.sourceIndex);
        values += valueLiteral(index < row.size() ? row[index] : std::nullopt, m.field.type, m.columnType, escape);
    }
    return "INSERT INTO " + identifier(table) + " (" + columns + ") VALUES (" + values + ')';
}

Outcome run(ConversionSource &source, DatabaseSession &session, const Plan &plan, Progress &progress)
{
    Outcome outcome;
    if (matchedCount(plan.mapping) == 0) {
        outcome.error = DbError::generic(QStringLiteral("No field to copy."));
        return outcome;
    }
    if (plan.newTable) {
        // No "if not exists": a table of that name already there is an error, and left alone.
        outcome.error = session.execute(createStatement(plan.targetTable, plan.mapping));
        if (outcome.error)
            return outcome;
    }

    // A first pass counts the rows for the progress bar.
    qint64 total = 0;
    outcome.error = source.readRows(plan.sourceTable, [&total](const SourceRow &) {
        ++total;
        return DbError::none();
    });
    if (outcome.error)
        return outcome;

    const auto steps = static_cast<int>((total + kRowsPerStep - 1) / kRowsPerStep);
    progress.begin(steps);
    const SessionSql::Escaper escape = [&session](QByteArrayView utf8) { return session.escape(utf8); };
    qint64 index = 0;
    const DbError stop = DbError::generic(QStringLiteral("Stopped."));
    const DbError read = source.readRows(plan.sourceTable, [&](const SourceRow &row) {
        if (index % kRowsPerStep == 0) {
            progress.step(QStringLiteral("Copying rows %1 to %2 of %3")
                              .arg(index + 1)
                              .arg(std::min<qint64>(index + kRowsPerStep, total))
                              .arg(total));
            if (progress.stopRequested()) {
                outcome.stopped = true;
                return stop;
            }
        }
        ++index;
        const DbError error =
            session.execute(QString::fromUtf8(insertStatement(plan.targetTable, plan.mapping, row, escape)));
        if (!error) {
            ++outcome.copied;
        } else {
            ++outcome.refused;
            if (outcome.refusals.size() < Outcome::kKeptRefusals)
                outcome.refusals << error.description;
        }
        return DbError::none();
    });
    progress.end();
    if (read && !outcome.stopped)
        outcome.error = read;
    return outcome;
}

} // namespace tabulon::Import
