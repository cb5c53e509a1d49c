#include "import/importdata.h"

#include "convert/conversionrules.h"
#include "db/progress.h"
#include "db/tablenames.h"
#include "db/typecodes.h"

#include <QHash>
#include <QRegularExpression>

#include <algorithm>
#include <charconv>

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

QString dateText(const SourceDate &date, DateColumn column)
{
    const QDateTime &value = date.value;
    // The fraction goes wherever a time goes; a column that holds fewer digits than it has
    // drops the rest, which the import counts as a changed value.
    const QString fraction = date.fraction.isEmpty() ? QString() : QLatin1Char('.') + date.fraction;
    switch (column) {
    case DateColumn::Date: return value.date().toString(QStringLiteral("yyyy-MM-dd"));
    case DateColumn::Time: return value.time().toString(QStringLiteral("HH:mm:ss")) + fraction;
    case DateColumn::Year: return QString::number(value.date().year());
    case DateColumn::DateTime: return value.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) + fraction;
    case DateColumn::None: break;
    }
    // A text column: the date alone when there is no time of day.
    if (value.time().msecsSinceStartOfDay() == 0 && fraction.isEmpty())
        return value.date().toString(QStringLiteral("yyyy-MM-dd"));
    return value.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) + fraction;
}

QByteArray identifier(const QString &name)
{
    return DatabaseSession::quoteIdentifier(name).toUtf8();
}

// What a column type holds, as far as the fit of source values goes.
struct ColumnKind final {
    // Single and Double are the approximate numbers, which round a value to their precision
    // without a warning; Fraction is an exact one (DECIMAL), whose rounding the server notes.
    enum Kind { Text, Integer, Fraction, Single, Double, Date, Binary, Other } kind = Other;
    qint64 width = 0; // characters of a text, bytes of an integer, digits of a time's fraction
};

ColumnKind columnKind(const QString &columnType)
{
    static const QRegularExpression form(QStringLiteral(R"(^\s*([a-z]+)\s*(?:\(\s*(\d+))?)"));
    const QRegularExpressionMatch m = form.match(columnType.toLower());
    const QString base = m.captured(1);
    const qint64 size = m.captured(2).isEmpty() ? -1 : m.captured(2).toLongLong();
    static const QHash<QString, ColumnKind> kinds = {
        {QStringLiteral("tinyint"), {ColumnKind::Integer, 1}},
        {QStringLiteral("bool"), {ColumnKind::Integer, 1}},
        {QStringLiteral("boolean"), {ColumnKind::Integer, 1}},
        {QStringLiteral("bit"), {ColumnKind::Integer, 1}},
        {QStringLiteral("smallint"), {ColumnKind::Integer, 2}},
        {QStringLiteral("mediumint"), {ColumnKind::Integer, 3}},
        {QStringLiteral("int"), {ColumnKind::Integer, 4}},
        {QStringLiteral("integer"), {ColumnKind::Integer, 4}},
        {QStringLiteral("bigint"), {ColumnKind::Integer, 8}},
        {QStringLiteral("decimal"), {ColumnKind::Fraction, 0}},
        {QStringLiteral("numeric"), {ColumnKind::Fraction, 0}},
        {QStringLiteral("float"), {ColumnKind::Single, 0}},
        {QStringLiteral("double"), {ColumnKind::Double, 0}},
        {QStringLiteral("real"), {ColumnKind::Double, 0}},
        {QStringLiteral("date"), {ColumnKind::Date, 0}},
        {QStringLiteral("datetime"), {ColumnKind::Date, 0}},
        {QStringLiteral("timestamp"), {ColumnKind::Date, 0}},
        {QStringLiteral("time"), {ColumnKind::Date, 0}},
        {QStringLiteral("year"), {ColumnKind::Date, 0}},
        {QStringLiteral("tinytext"), {ColumnKind::Text, 255}},
        {QStringLiteral("text"), {ColumnKind::Text, 65535}},
        {QStringLiteral("mediumtext"), {ColumnKind::Text, 16777215}},
        {QStringLiteral("longtext"), {ColumnKind::Text, 4294967295}},
        {QStringLiteral("binary"), {ColumnKind::Binary, 0}},
        {QStringLiteral("varbinary"), {ColumnKind::Binary, 0}},
        {QStringLiteral("tinyblob"), {ColumnKind::Binary, 0}},
        {QStringLiteral("blob"), {ColumnKind::Binary, 0}},
        {QStringLiteral("mediumblob"), {ColumnKind::Binary, 0}},
        {QStringLiteral("longblob"), {ColumnKind::Binary, 0}},
    };
    if (base == QLatin1String("char") || base == QLatin1String("varchar"))
        return {ColumnKind::Text, size < 0 ? 1 : size};
    if (base == QLatin1String("datetime") || base == QLatin1String("timestamp") || base == QLatin1String("time"))
        return {ColumnKind::Date, size < 0 ? 0 : size};
    if (base == QLatin1String("decimal") || base == QLatin1String("numeric")) {
        // DECIMAL(n) and DECIMAL(n,0) hold no fraction.
        static const QRegularExpression scale(QStringLiteral(R"(^\s*[a-z]+\s*\(\s*\d+\s*,\s*([1-9]\d*)\s*\))"));
        const bool fraction = size < 0 || scale.match(columnType.toLower()).hasMatch();
        return {fraction ? ColumnKind::Fraction : ColumnKind::Integer, 8};
    }
    return kinds.value(base, ColumnKind{});
}

bool isTextType(int adoType)
{
    switch (adoType) {
    case AdoType::Char:
    case AdoType::WChar:
    case AdoType::VarChar:
    case AdoType::VarWChar:
    case AdoType::LongVarChar:
    case AdoType::LongVarWChar:
    case AdoType::Guid: return true;
    default: return false;
    }
}

// Bytes of an integer source type; 0 for a number with a fraction, -1 for no number.
int integerBytes(int adoType)
{
    switch (adoType) {
    case AdoType::Boolean:
    case AdoType::TinyInt:
    case AdoType::UnsignedTinyInt: return 1;
    case AdoType::SmallInt:
    case AdoType::UnsignedSmallInt: return 2;
    case AdoType::Integer:
    case AdoType::UnsignedInt: return 4;
    case AdoType::BigInt:
    case AdoType::UnsignedBigInt: return 8;
    case AdoType::Single:
    case AdoType::Double:
    case AdoType::Currency:
    case AdoType::Numeric:
    case 14: // decimal
        return 0;
    default: return -1;
    }
}

// Whether every value of a number type keeps all its digits in a FLOAT (24 bits of mantissa)
// or a DOUBLE (53 bits): the server rounds the others to fit, and says nothing.
bool fitsApproximate(int adoType, ColumnKind::Kind kind)
{
    switch (adoType) {
    case AdoType::Boolean:
    case AdoType::TinyInt:
    case AdoType::UnsignedTinyInt:
    case AdoType::SmallInt:
    case AdoType::UnsignedSmallInt:
    case AdoType::Single: return true;
    case AdoType::Integer:
    case AdoType::UnsignedInt:
    case AdoType::Double: return kind == ColumnKind::Double;
    default: return false; // BIGINT, currency, decimal and numeric carry more digits than a double
    }
}

// The decimal number a text writes: its sign, its digits without leading or trailing zeros,
// and the power of ten of the last of them. Nothing for a text that is no plain number.
struct Decimal final {
    bool negative = false;
    QByteArray digits;
    int exponent = 0;
    friend bool operator==(const Decimal &, const Decimal &) = default;
};

std::optional<Decimal> decimal(QByteArrayView text)
{
    text = text.trimmed();
    Decimal d;
    qsizetype i = 0;
    if (i < text.size() && (text[i] == '-' || text[i] == '+'))
        d.negative = text[i++] == '-';
    bool any = false;
    bool point = false;
    for (; i < text.size(); ++i) {
        const char c = text[i];
        if (c >= '0' && c <= '9') {
            d.digits += c;
            any = true;
            if (point)
                --d.exponent;
        } else if (c == '.' && !point) {
            point = true;
        } else {
            break;
        }
    }
    if (!any)
        return std::nullopt;
    if (i < text.size()) {
        if (text[i] != 'e' && text[i] != 'E')
            return std::nullopt;
        bool ok = false;
        const int power = QByteArray(text.sliced(i + 1).data(), text.size() - i - 1).toInt(&ok);
        if (!ok)
            return std::nullopt;
        d.exponent += power;
    }
    while (d.digits.startsWith('0'))
        d.digits.remove(0, 1);
    while (d.digits.endsWith('0')) {
        d.digits.chop(1);
        ++d.exponent;
    }
    if (d.digits.isEmpty())
        return Decimal{};
    return d;
}

// Characters a source text can hold: Access and ODBC texts up to 255, long ones as many as the
// widest text column holds.
qint64 textWidth(int adoType)
{
    return adoType == AdoType::LongVarChar || adoType == AdoType::LongVarWChar ? qint64{4294967295} : 255;
}

// The longest text a date is written as ("yyyy-MM-dd hh:mm:ss").
constexpr qint64 kDateTextWidth = 19;

} // namespace

QString mappedType(int adoType)
{
    return isBinaryType(adoType) ? QStringLiteral("LONGBLOB") : Conversion::MapFieldType(adoType);
}

bool isBinaryType(int adoType)
{
    return adoType == AdoType::Binary || adoType == AdoType::VarBinary || adoType == AdoType::LongVarBinary;
}

QString fitProblem(const SourceField &field, const QString &columnType)
{
    const ColumnKind target = columnKind(columnType);
    const int type = field.type;
    if (isBinaryType(type))
        return target.kind == ColumnKind::Binary ? QString() : QStringLiteral("bytes into a column of no bytes");
    if (target.kind == ColumnKind::Binary || target.kind == ColumnKind::Other)
        return {}; // bytes hold anything; enumerations and the like are the operator's call
    const auto narrower = [&](qint64 width) {
        return target.kind == ColumnKind::Text && target.width < width
                   ? QStringLiteral("a narrower text (%1 characters)").arg(target.width)
                   : QString();
    };
    if (isDateType(type)) {
        if (target.kind == ColumnKind::Date)
            return {};
        if (target.kind == ColumnKind::Text)
            return narrower(kDateTextWidth);
        return QStringLiteral("a date into a non-date");
    }
    if (isTextType(type)) {
        if (target.kind == ColumnKind::Integer || target.kind == ColumnKind::Fraction ||
            target.kind == ColumnKind::Single || target.kind == ColumnKind::Double)
            return QStringLiteral("a text into a number");
        if (target.kind == ColumnKind::Date)
            return QStringLiteral("a text into a date");
        return narrower(textWidth(type));
    }
    const int bytes = integerBytes(type);
    if (bytes < 0)
        return {}; // a type read as text: whatever it holds, the server judges it
    if (target.kind == ColumnKind::Date)
        return QStringLiteral("a number into a date");
    if ((target.kind == ColumnKind::Single || target.kind == ColumnKind::Double) && !fitsApproximate(type, target.kind))
        return target.kind == ColumnKind::Single ? QStringLiteral("more digits than a float keeps")
                                                 : QStringLiteral("more digits than a double keeps");
    if (target.kind == ColumnKind::Integer && bytes == 0)
        return QStringLiteral("fractions into a whole number");
    if (target.kind == ColumnKind::Integer && target.width < bytes)
        return QStringLiteral("a narrower number");
    return {};
}

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
        mapping.push_back({index, field, sanitized(field.name), mappedType(field.type)});
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

DbResult<bool> isTransactional(DatabaseSession &session, const QString &table)
{
    auto rs = session.openQuery(
        QStringLiteral("SELECT ENGINE FROM information_schema.TABLES WHERE TABLE_SCHEMA=DATABASE() AND TABLE_NAME='") +
        QString::fromUtf8(session.escape(table.toUtf8())) + QLatin1Char('\''));
    if (!rs.ok())
        return rs.error();
    if (!rs->isOpen() || rs->recordCount() == 0)
        return false;
    static const QStringList engines = {QStringLiteral("InnoDB"), QStringLiteral("XtraDB"), QStringLiteral("RocksDB"),
                                        QStringLiteral("TokuDB")};
    return engines.contains(rs->text(0, 0), Qt::CaseInsensitive);
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

std::optional<SourceDate> parseSourceDate(const QString &text)
{
    static const QRegularExpression usForm(QStringLiteral(
        R"(^\s*(\d{1,2})/(\d{1,2})/(\d{4})(?:\s+(\d{1,2}):(\d{2})(?::(\d{2})(?:\.(\d{1,9}))?)?\s*([AaPp][Mm])?)?\s*$)"));
    static const QRegularExpression timeForm(
        QStringLiteral(R"(^\s*()()()(\d{1,2}):(\d{2})(?::(\d{2})(?:\.(\d{1,9}))?)?\s*([AaPp][Mm])?\s*$)"));
    static const QRegularExpression isoForm(QStringLiteral(
        R"(^\s*(\d{4})-(\d{1,2})-(\d{1,2})(?:[ T](\d{1,2}):(\d{2})(?::(\d{2})(?:\.(\d{1,9}))?)?()?)?\s*$)"));
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
    const QString half = m.captured(8).toUpper();
    if (!half.isEmpty() && (hour < 1 || hour > 12))
        return std::nullopt;
    if (half == QLatin1String("AM") && hour == 12)
        hour = 0;
    else if (half == QLatin1String("PM") && hour < 12)
        hour += 12;
    const QTime time(hour, m.captured(5).toInt(), m.captured(6).toInt());
    if (!date.isValid() || !time.isValid())
        return std::nullopt;
    QString fraction = m.captured(7);
    while (fraction.endsWith(QLatin1Char('0')))
        fraction.chop(1);
    return SourceDate{QDateTime(date, time), fraction};
}

QByteArray valueLiteral(const SourceValue &value, int sourceType, const QString &columnType,
                        const SessionSql::Escaper &escape)
{
    if (value.isNull())
        return QByteArrayLiteral("NULL");
    if (isBinaryType(sourceType))
        return "X'" + value.bytes().toHex() + '\'';
    QString text = value.text().value_or(QString());
    if (sourceType == AdoType::Boolean) {
        if (text == QLatin1String("True"))
            return QByteArrayLiteral("1");
        if (text == QLatin1String("False"))
            return QByteArrayLiteral("0");
    }
    const DateColumn column = dateColumn(columnType);
    if (isDateType(sourceType) || column != DateColumn::None) {
        if (const auto date = parseSourceDate(text))
            text = dateText(*date, column);
    }
    return '\'' + escape(QByteArrayView(text.toUtf8())) + '\'';
}

QString heldValue(const SourceValue &value, int sourceType, const QString &columnType)
{
    if (value.isNull() || value.isBytes() || sourceType == AdoType::Boolean)
        return {};
    const QString text = value.text().value_or(QString());
    const ColumnKind target = columnKind(columnType);
    if (target.kind == ColumnKind::Single || target.kind == ColumnKind::Double) {
        const QByteArray source = text.trimmed().toLatin1();
        const auto written = decimal(source);
        if (!written)
            return {}; // no number: the server warns about it itself
        // What the column keeps: the nearest value of its type, in its shortest text.
        char held[64];
        std::to_chars_result r{};
        const char *end = source.constData() + source.size();
        if (target.kind == ColumnKind::Single) {
            float f = 0;
            if (std::from_chars(source.constData() + (source.startsWith('+') ? 1 : 0), end, f).ec != std::errc())
                return {};
            r = std::to_chars(held, held + sizeof held, f);
        } else {
            double d = 0;
            if (std::from_chars(source.constData() + (source.startsWith('+') ? 1 : 0), end, d).ec != std::errc())
                return {};
            r = std::to_chars(held, held + sizeof held, d);
        }
        const QByteArrayView kept(held, r.ptr - held);
        return decimal(kept) == written ? QString() : QString::fromLatin1(kept);
    }
    if (target.kind == ColumnKind::Date && dateColumn(columnType) != DateColumn::Date &&
        dateColumn(columnType) != DateColumn::Year) {
        const auto date = parseSourceDate(text);
        if (!date || date->fraction.size() <= target.width)
            return {};
        const DateColumn column = dateColumn(columnType);
        SourceDate cut = *date;
        cut.fraction.truncate(target.width);
        while (cut.fraction.endsWith(QLatin1Char('0')))
            cut.fraction.chop(1);
        return dateText(cut, column);
    }
    return {};
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
        values += valueLiteral(index < row.size() ? row[index] : SourceValue(), m.field.type, m.columnType, escape);
    }
    return "INSERT INTO " + identifier(table) + " (" + columns + ") VALUES (" + values + ')';
}

namespace {

// The server's texts of the warnings the last statement left.
QStringList lastWarnings(DatabaseSession &session)
{
    QStringList texts;
    auto rs = session.openQuery(QStringLiteral("SHOW WARNINGS"));
    if (!rs.ok() || !rs->isOpen() || rs->fieldCount() < 3)
        return texts;
    for (qsizetype row = 0; row < rs->recordCount(); ++row)
        texts << rs->text(row, 2);
    return texts;
}

bool connectionLost(const DbError &error)
{
    return error.serverCode == 2006 || error.serverCode == 2013;
}

DbResult<qint64> countRows(DatabaseSession &session, const QString &table)
{
    auto rs = session.openQuery(QStringLiteral("SELECT COUNT(*) FROM ") + DatabaseSession::quoteIdentifier(table));
    if (!rs.ok())
        return rs.error();
    if (!rs->isOpen() || rs->recordCount() != 1)
        return DbError::generic(QStringLiteral("The table gave no count."));
    return rs->text(0, 0).toLongLong();
}

// Whether the session's transaction is still open after a refused statement: a deadlock or a
// lock wait time-out may have rolled it back, and every row after it would then be written on
// its own, outside it.
bool transactionOpen(DatabaseSession &session)
{
    auto rs = session.openQuery(QStringLiteral("SELECT @@in_transaction"));
    return rs.ok() && rs->isOpen() && rs->recordCount() == 1 && rs->text(0, 0) == QLatin1String("1");
}

} // namespace

Outcome run(ConversionSource &source, DatabaseSession &session, const Plan &plan, Progress &progress,
            const KeepRows &keep)
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

    // The rows the table holds before the copy, should they have to be counted afterwards.
    qint64 before = 0;
    if (!plan.newTable) {
        auto rows = countRows(session, plan.targetTable);
        if (!rows.ok()) {
            outcome.error = rows.error();
            return outcome;
        }
        before = rows.value();
    }

    // The table is created before the transaction: creating it would commit one anyway.
    auto transactional = isTransactional(session, plan.targetTable);
    if (!transactional.ok()) {
        outcome.error = transactional.error();
        return outcome;
    }
    if (transactional.value()) {
        if ((outcome.error = session.execute(QStringLiteral("START TRANSACTION"))))
            return outcome;
        outcome.transactional = true;
    }

    const auto steps = static_cast<int>((total + kRowsPerStep - 1) / kRowsPerStep);
    progress.begin(steps);
    const SessionSql::Escaper escape = [&session](QByteArrayView utf8) { return session.escape(utf8); };
    qint64 index = 0;
    bool uncertain = false; // a row was under way when the connection went
    const DbError stop = DbError::generic(QStringLiteral("Stopped."));
    const auto keepWarnings = [&outcome](const QStringList &texts) {
        for (const QString &text : texts) {
            if (outcome.warnings.size() < Outcome::kKeptRefusals)
                outcome.warnings << text;
        }
    };
    // The columns that may keep a value otherwise than it came, looked at row by row.
    std::vector<const FieldMapping *> approximate;
    for (const FieldMapping &m : plan.mapping) {
        const ColumnKind::Kind kind = columnKind(m.columnType).kind;
        if (!m.column.isEmpty() &&
            (kind == ColumnKind::Single || kind == ColumnKind::Double || kind == ColumnKind::Date))
            approximate.push_back(&m);
    }
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
        if (error) {
            ++outcome.refused;
            if (error.serverCode == kStatementTooLong)
                ++outcome.tooLong;
            if (outcome.refusals.size() < Outcome::kKeptRefusals)
                outcome.refusals << error.description;
            // A lost connection would refuse every row after it, and takes an open transaction
            // with it; a transaction the server rolled back would leave the rows after it on
            // their own. Either way the copy ends here.
            if (connectionLost(error)) {
                uncertain = !outcome.transactional;
                outcome.transactionLost = outcome.transactional;
                return error;
            }
            if (outcome.transactional && !transactionOpen(session)) {
                outcome.transactionLost = true;
                return error;
            }
            return DbError::none();
        }
        // Values the column rounds or cuts without a word from the server.
        QStringList held;
        for (const FieldMapping *m : approximate) {
            const auto at = static_cast<size_t>(m->sourceIndex);
            if (at >= row.size())
                continue;
            const QString kept = heldValue(row[at], m->field.type, m->columnType);
            if (!kept.isEmpty())
                held << QStringLiteral("%1: %2 is kept as %3").arg(m->column, row[at].text().value_or(QString()), kept);
        }
        if (session.warningCount() == 0 && held.isEmpty()) {
            ++outcome.copied;
            return DbError::none();
        }
        ++outcome.changed;
        if (outcome.warnings.size() < Outcome::kKeptRefusals) {
            if (session.warningCount() > 0)
                keepWarnings(lastWarnings(session));
            keepWarnings(held);
        }
        return DbError::none();
    });
    progress.end();
    if (read && !outcome.stopped)
        outcome.error = read;

    if (outcome.transactionLost) {
        // Nothing of the transaction is kept; there is nothing to commit or to ask about.
        outcome.lost = outcome.copied + outcome.changed;
        outcome.copied = outcome.changed = 0;
    } else if (outcome.transactional && !connectionLost(outcome.error)) {
        const bool whole = !outcome.stopped && !outcome.error;
        const bool kept = whole || !keep || keep(outcome);
        const DbError end = session.execute(kept ? QStringLiteral("COMMIT") : QStringLiteral("ROLLBACK"));
        if (end && !outcome.error)
            outcome.error = end;
        if (end)
            uncertain = true; // whether the server committed is not known
        else if (!kept) {
            outcome.rolledBack = true;
            outcome.copied = outcome.changed = 0;
        }
    }

    if (uncertain) {
        // Counted on a connection of its own: this one may be gone.
        const DbResult<qint64> rows = [&]() -> DbResult<qint64> {
            DatabaseSession other;
            if (const DbError opened = session.openSibling(other))
                return opened;
            return countRows(other, plan.targetTable);
        }();
        if (!rows.ok()) {
            outcome.uncounted = rows.error().description;
        } else {
            outcome.counted = true;
            const qint64 kept = rows.value() - before;
            const qint64 taken = outcome.copied + outcome.changed;
            if (kept < taken) {
                // Rows taken and not kept come off the copied ones first.
                outcome.lost = taken - std::max<qint64>(kept, 0);
                const qint64 fromCopied = std::min(outcome.lost, outcome.copied);
                outcome.copied -= fromCopied;
                outcome.changed -= outcome.lost - fromCopied;
            } else if (kept > taken) {
                // The row under way when the connection went was written after all.
                const qint64 landed = std::min(kept - taken, outcome.refused);
                outcome.copied += landed;
                outcome.refused -= landed;
            }
        }
    }
    return outcome;
}

} // namespace tabulon::Import
