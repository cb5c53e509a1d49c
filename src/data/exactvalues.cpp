#include "data/exactvalues.h"

#include "data/recordwriter.h"
#include "db/typecodes.h"

#include <QLocale>
#include <QStringList>

namespace tabulon::ExactValues {

namespace {

bool isText(QByteArrayView bytes)
{
    return !bytes.contains('\0') && bytes.isValidUtf8();
}

QByteArray quotedDoubling(QByteArrayView bytes)
{
    QByteArray out;
    out.reserve(bytes.size() + 2);
    out += '\'';
    for (const char c : bytes) {
        if (c == '\'')
            out += '\'';
        out += c;
    }
    out += '\'';
    return out;
}

RecordWriter::ValueGroup groupUnder(Rules rules, int adoType)
{
    const RecordWriter::ValueGroup group = RecordWriter::groupOf(adoType);
    // The restore knows only numbers and everything else.
    if (rules == Rules::Restore && group == RecordWriter::ValueGroup::Date)
        return RecordWriter::ValueGroup::Other;
    return group;
}

bool treatedAsNull(Rules rules, const Column &column, QByteArrayView bytes, bool isNull)
{
    if (isNull)
        return true;
    return rules == Rules::Restore && bytes.isEmpty() && column.nullable && !column.holdsEmptyText();
}

} // namespace

Column Column::of(const FieldInfo &field)
{
    return {field.type, field.serverType, field.nullable, field.binaryCharset, field.isEnum};
}

bool Column::isBit() const
{
    return ServerTypes::isBit(serverType);
}

bool Column::holdsEmptyText() const
{
    return ServerTypes::holdsEmptyText(serverType, isEnum);
}

unsigned reasons(Rules rules, const Column &column, QByteArrayView bytes, bool isNull)
{
    if (treatedAsNull(rules, column, bytes, isNull))
        return Null;
    if (column.isBit())
        return Bit;
    switch (groupUnder(rules, column.adoType)) {
    case RecordWriter::ValueGroup::Numeric: {
        // An empty cell can only be the operator's: the server never sends a number as ''. The
        // rules write it as 0, which is what clearing a number asks for.
        if (bytes.isEmpty())
            return 0;
        const QString text = QString::fromUtf8(bytes);
        if (RecordWriter::isNumeric(text))
            return 0;
        return column.adoType == AdoType::DBTimeStamp ? TimeStamp : NotNumber;
    }
    case RecordWriter::ValueGroup::Date:
        if (RecordWriter::parseDate(QString::fromUtf8(bytes)))
            return 0; // written as the date it names, which is exact for a date column
        break;
    case RecordWriter::ValueGroup::Other: break;
    }
    if (!isText(bytes))
        return Bytes;
    return bytes.contains('\'') ? Quote : 0u;
}

QByteArray usualLiteral(Rules rules, const Column &column, QByteArrayView bytes)
{
    const QString text = QString::fromUtf8(bytes);
    if (rules == Rules::TableData || groupUnder(rules, column.adoType) == RecordWriter::ValueGroup::Numeric)
        return RecordWriter::insertValue(column.adoType, text).toUtf8();
    return (QLatin1Char('\'') + text + QLatin1Char('\'')).toUtf8();
}

QByteArray exactLiteral(Rules rules, const Column &column, QByteArrayView bytes, bool isNull)
{
    const unsigned why = reasons(rules, column, bytes, isNull);
    if (why & Null)
        return QByteArrayLiteral("NULL");
    if (why & Bit)
        return QByteArray(bytes.data(), bytes.size());
    if (why & Bytes)
        return "X'" + QByteArray(bytes.data(), bytes.size()).toHex().toUpper() + '\'';
    if (why & (Quote | TimeStamp | NotNumber))
        return quotedDoubling(bytes);
    return usualLiteral(rules, column, bytes);
}

void TableFindings::addRow(unsigned rowReasons)
{
    ++rows;
    if (rowReasons == 0)
        return;
    ++affected;
    for (int r = 0; r < kReasonCount; ++r) {
        if (rowReasons & (1u << r))
            ++byReason[static_cast<size_t>(r)];
    }
}

QString question(const std::vector<TableFindings> &tables)
{
    static const char *const kWhat[kReasonCount] = {
        "a quote",
        "a date and time the usual statement writes as its year",
        "a number column's text that is not a number",
        "a NULL the usual statement writes as '' or 0",
        "bytes that are not text",
        "a BIT value the usual statement writes as characters",
    };
    const QLocale english(QLocale::English);
    const auto n = [&english](qint64 v) { return english.toString(v); };
    QStringList lines;
    bool anyAffected = false;
    constexpr int kMaxLines = 12;
    int listed = 0;
    int unlisted = 0;
    for (const TableFindings &t : tables) {
        if (!t.hasFindings())
            continue;
        anyAffected = anyAffected || t.affected > 0;
        if (listed == kMaxLines) {
            ++unlisted;
            continue;
        }
        ++listed;
        if (t.affected > 0) {
            QStringList what;
            int kinds = 0;
            for (int r = 0; r < kReasonCount; ++r)
                kinds += t.byReason[static_cast<size_t>(r)] > 0 ? 1 : 0;
            for (int r = 0; r < kReasonCount; ++r) {
                const qint64 count = t.byReason[static_cast<size_t>(r)];
                if (count > 0)
                    what << (kinds > 1 ? QStringLiteral("%1 (%2)").arg(QLatin1String(kWhat[r]), n(count))
                                       : QLatin1String(kWhat[r]));
            }
            lines << QStringLiteral("%1 of %2 rows of %3 hold %4.")
                         .arg(n(t.affected), n(t.rows), t.table, what.join(QStringLiteral(", ")));
        }
        if (t.tooLong > 0)
            lines << QStringLiteral("%1 rows of %2 are longer than the server accepts (max_allowed_packet) and are not "
                                    "written whatever the answer; the first is row %3, whose longest value is in %4.")
                         .arg(n(t.tooLong), t.table, n(t.longestRow), t.longestField);
    }
    if (lines.isEmpty())
        return {};
    if (unlisted > 0)
        lines << QStringLiteral("%1 more tables have such rows.").arg(unlisted);
    QString text = QStringLiteral("Some values would not be written back exactly as they are:\n\n") +
                   lines.join(QLatin1Char('\n')) + QStringLiteral("\n\n");
    if (anyAffected)
        text += QStringLiteral("Yes writes those rows with their exact values, and every other row as usual.\n"
                               "No writes every row as usual: those values change, or their rows are refused.\n");
    else
        text += QStringLiteral("Yes or No writes every other row.\n");
    text += QStringLiteral("Cancel writes nothing.");
    return text;
}

namespace {

bool &checkSwitch()
{
    static bool on = true;
    return on;
}

} // namespace

bool checkBeforeWrites()
{
    return checkSwitch();
}

void setCheckBeforeWrites(bool on)
{
    checkSwitch() = on;
}

} // namespace tabulon::ExactValues
