#include "grid/griddata.h"

#include "db/recordset.h"
#include "grid/gridfile.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <numeric>
#include <string>

namespace tabulon {

namespace {

constexpr std::uint32_t kNoRow = std::numeric_limits<std::uint32_t>::max();

// Cells of removed rows stay in the columns until they are worth a rebuild; below this many
// the space is not worth the time.
constexpr qsizetype kMinGarbageToCompact = 1024;

bool isAsciiSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Plain decimal numbers as an operator reads them ("12", "-3.5", " 1e6 ", ".5"); no hex, no
// "inf"/"nan", no thousands separators, so codes such as "0x1A" or "1,000" sort as text.
bool parseNumber(QByteArrayView bytes, double *value)
{
    const char *begin = bytes.data();
    const char *end = begin + bytes.size();
    while (begin < end && isAsciiSpace(*begin))
        ++begin;
    while (end > begin && isAsciiSpace(end[-1]))
        --end;
    bool negative = false;
    if (begin < end && (*begin == '+' || *begin == '-')) {
        negative = *begin == '-';
        ++begin;
    }
    if (begin == end)
        return false;
    const bool startsWithDigit = *begin >= '0' && *begin <= '9';
    const bool startsWithPoint = *begin == '.' && end - begin > 1 && begin[1] >= '0' && begin[1] <= '9';
    if (!startsWithDigit && !startsWithPoint)
        return false;
    double v = 0;
    const auto [ptr, ec] = std::from_chars(begin, end, v, std::chars_format::general);
    if (ec != std::errc() || ptr != end)
        return false;
    *value = negative ? -v : v;
    return true;
}

bool isAscii(QByteArrayView bytes)
{
    for (const char c : bytes) {
        if (static_cast<unsigned char>(c) >= 0x80)
            return false;
    }
    return true;
}

unsigned char asciiLower(unsigned char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c + ('a' - 'A')) : c;
}

// Byte order of UTF-8 is code point order; ASCII letters are lowered on the fly so that plain
// texts need no folded copy.
int compareFolded(const char *a, std::uint32_t lengthA, const char *b, std::uint32_t lengthB)
{
    const std::uint32_t n = std::min(lengthA, lengthB);
    // Equal cells are common in a sorted column and need no byte-by-byte lowering.
    if (std::memcmp(a, b, n) == 0)
        return lengthA < lengthB ? -1 : (lengthA > lengthB ? 1 : 0);
    for (std::uint32_t i = 0; i < n; ++i) {
        const unsigned char ca = asciiLower(static_cast<unsigned char>(a[i]));
        const unsigned char cb = asciiLower(static_cast<unsigned char>(b[i]));
        if (ca != cb)
            return ca < cb ? -1 : 1;
    }
    return lengthA < lengthB ? -1 : (lengthA > lengthB ? 1 : 0);
}

// One entry per sorted row: 32 bytes, sorted in place. Most comparisons are settled by the
// 64-bit prefixes held right here, so the sort walks its own array instead of chasing a
// million pointers into the column; only rows with equal 16-byte prefixes look at their whole
// texts. Empty cells, numbers and texts are sorted in separate ranges, so no entry needs to
// say which it is.
struct SortItem {
    std::uint64_t prefix;  // numbers: the value in an order-keeping encoding; texts: first 8 lowered bytes
    std::uint64_t prefix2; // texts: the next 8 lowered bytes
    const char *text;      // whole text (case-folded copy when it is not ASCII)
    std::uint32_t length;
    std::uint32_t pos; // place among the sorted rows before the sort: equal cells keep it
};
static_assert(sizeof(SortItem) == 32);

enum class CellKind : std::uint8_t { Empty, Number, Text };

CellKind kindOf(QByteArrayView bytes, double *number)
{
    if (bytes.isEmpty())
        return CellKind::Empty;
    return parseNumber(bytes, number) ? CellKind::Number : CellKind::Text;
}

std::uint64_t orderedBits(double value)
{
    if (value == 0)
        value = 0; // -0 and 0 are the same number
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return (bits & (std::uint64_t(1) << 63)) ? ~bits : (bits | (std::uint64_t(1) << 63));
}

std::uint64_t textPrefix(const char *text, std::uint32_t length, std::uint32_t from)
{
    std::uint64_t prefix = 0;
    for (std::uint32_t i = from; i < from + 8; ++i) {
        prefix <<= 8;
        if (i < length)
            prefix |= asciiLower(static_cast<unsigned char>(text[i]));
    }
    return prefix;
}

// -1, 0 or 1 by value alone; ties are left to the caller.
int compareNumbers(const SortItem &a, const SortItem &b)
{
    return a.prefix < b.prefix ? -1 : (a.prefix > b.prefix ? 1 : 0);
}

int compareTexts(const SortItem &a, const SortItem &b)
{
    if (a.prefix != b.prefix)
        return a.prefix < b.prefix ? -1 : 1;
    if (a.prefix2 != b.prefix2)
        return a.prefix2 < b.prefix2 ? -1 : 1;
    if (a.length <= 16 && b.length <= 16 && a.length == b.length)
        return 0;
    // Equal prefixes of two texts that both reach past them: the first 16 bytes are settled.
    if (a.length > 16 && b.length > 16)
        return compareFolded(a.text + 16, a.length - 16, b.text + 16, b.length - 16);
    return compareFolded(a.text, a.length, b.text, b.length);
}

// Sorts one range by `compare` in the given direction; equal cells keep their earlier order in
// both directions, which makes the unstable in-place sort a stable one without its buffer.
template <typename Compare>
void sortRange(std::vector<SortItem>::iterator first, std::vector<SortItem>::iterator last, bool ascending,
               Compare compare)
{
    std::sort(first, last, [ascending, compare](const SortItem &a, const SortItem &b) {
        const int c = compare(a, b);
        if (c != 0)
            return ascending ? c < 0 : c > 0;
        return a.pos < b.pos;
    });
}

} // namespace

GridData::GridData()
{
    setCols(1);
    setRows(1);
}

void GridData::appendPhysicalRows(qsizetype count)
{
    if (count <= 0)
        return;
    for (auto &column : m_columns)
        column.resize(m_physicalRows + count);
    m_order.reserve(m_order.size() + static_cast<size_t>(count));
    for (qsizetype i = 0; i < count; ++i)
        m_order.push_back(static_cast<std::uint32_t>(m_physicalRows + i));
    m_physicalRows += count;
}

void GridData::setRows(int n)
{
    n = std::max(n, 0);
    if (n >= rows()) {
        appendPhysicalRows(n - rows());
        return;
    }
    m_order.resize(static_cast<size_t>(n));
    const bool tailOnly =
        std::all_of(m_order.begin(), m_order.end(), [n](std::uint32_t p) { return p < static_cast<std::uint32_t>(n); });
    if (tailOnly) {
        for (auto &column : m_columns)
            column.resize(n);
        m_physicalRows = n;
    }
    dropUnusedRows();
}

void GridData::setCols(int n)
{
    n = std::max(n, 0);
    if (static_cast<size_t>(n) < m_columns.size()) {
        m_columns.resize(static_cast<size_t>(n));
        return;
    }
    while (m_columns.size() < static_cast<size_t>(n)) {
        TextColumn column;
        column.resize(m_physicalRows);
        m_columns.push_back(std::move(column));
    }
}

QString GridData::text(int row, int col) const
{
    return QString::fromUtf8(utf8(row, col));
}

QByteArrayView GridData::utf8(int row, int col) const
{
    if (row < 0 || row >= rows() || col < 0 || col >= cols())
        return {};
    return m_columns[static_cast<size_t>(col)].utf8(physical(row));
}

void GridData::setText(int row, int col, const QString &text)
{
    if (row < 0 || row >= rows() || col < 0 || col >= cols())
        return;
    m_columns[static_cast<size_t>(col)].setText(physical(row), text);
}

void GridData::insertRow(int at)
{
    if (at < 0 || at > rows())
        return;
    appendPhysicalRows(1);
    const std::uint32_t added = m_order.back();
    m_order.pop_back();
    m_order.insert(m_order.begin() + at, added);
}

void GridData::removeRow(int row)
{
    if (row < 0 || row >= rows())
        return;
    const std::uint32_t p = physical(row);
    m_order.erase(m_order.begin() + row);
    if (static_cast<qsizetype>(p) + 1 == m_physicalRows) {
        for (auto &column : m_columns)
            column.resize(p);
        m_physicalRows = p;
    }
    dropUnusedRows();
}

void GridData::dropUnusedRows()
{
    if (m_order.empty()) {
        for (auto &column : m_columns)
            column.clear();
        m_physicalRows = 0;
        return;
    }
    const qsizetype garbage = m_physicalRows - rows();
    if (garbage > kMinGarbageToCompact && garbage > m_physicalRows / 4)
        compact();
}

void GridData::compact()
{
    for (auto &column : m_columns) {
        TextColumn rebuilt;
        rebuilt.reserve(rows());
        for (const std::uint32_t p : m_order)
            rebuilt.append(column.utf8(p));
        rebuilt.squeeze();
        column = std::move(rebuilt);
    }
    std::iota(m_order.begin(), m_order.end(), 0u);
    m_physicalRows = rows();
}

void GridData::moveColumn(int from, int to)
{
    if (from < 0 || from >= cols() || to < 0 || to >= cols() || from == to)
        return;
    const auto first = m_columns.begin();
    if (from < to)
        std::rotate(first + from, first + from + 1, first + to + 1);
    else
        std::rotate(first + to, first + from, first + from + 1);
}

void GridData::clear()
{
    for (auto &column : m_columns) {
        column.clear();
        column.resize(m_fixedRows);
    }
    m_order.assign(static_cast<size_t>(m_fixedRows), 0u);
    std::iota(m_order.begin(), m_order.end(), 0u);
    m_physicalRows = m_fixedRows;
}

void GridData::setColumnTexts(int col, int firstRow, int lastRow, const std::function<QString(int row)> &text)
{
    if (col < 0 || col >= cols())
        return;
    firstRow = std::max(firstRow, 0);
    lastRow = std::min(lastRow, rows() - 1);
    if (firstRow > lastRow)
        return;
    TextColumn &column = m_columns[static_cast<size_t>(col)];
    // A few cells are cheaper as edits; a large share of the column is cheaper rebuilt, since
    // edits would pile up and force repeated compaction.
    if (qsizetype(lastRow - firstRow + 1) * 16 <= m_physicalRows) {
        for (int r = firstRow; r <= lastRow; ++r)
            column.setText(physical(r), text(r));
        return;
    }
    std::vector<std::uint32_t> rowOf(static_cast<size_t>(m_physicalRows), kNoRow);
    for (int r = 0; r < rows(); ++r)
        rowOf[physical(r)] = static_cast<std::uint32_t>(r);
    TextColumn rebuilt;
    rebuilt.reserve(m_physicalRows);
    for (qsizetype p = 0; p < m_physicalRows; ++p) {
        const std::uint32_t r = rowOf[static_cast<size_t>(p)];
        if (r != kNoRow && static_cast<int>(r) >= firstRow && static_cast<int>(r) <= lastRow)
            rebuilt.append(QByteArrayView(text(static_cast<int>(r)).toUtf8()));
        else
            rebuilt.append(column.utf8(p));
    }
    rebuilt.squeeze();
    column = std::move(rebuilt);
}

void GridData::setRowNumbers(int col)
{
    if (col < 0 || col >= cols())
        return;
    // Physical cell -> row, so that the column is written in its own order.
    std::vector<std::uint32_t> rowOf(static_cast<size_t>(m_physicalRows), kNoRow);
    for (int r = m_fixedRows; r < rows(); ++r)
        rowOf[physical(r)] = static_cast<std::uint32_t>(r);
    const TextColumn &column = m_columns[static_cast<size_t>(col)];
    TextColumn rebuilt;
    rebuilt.reserve(m_physicalRows);
    char digits[16];
    for (qsizetype p = 0; p < m_physicalRows; ++p) {
        const std::uint32_t r = rowOf[static_cast<size_t>(p)];
        if (r == kNoRow) {
            rebuilt.append(column.utf8(p));
            continue;
        }
        const auto written = std::to_chars(digits, digits + sizeof digits, r);
        rebuilt.append(QByteArrayView(digits, written.ptr - digits));
    }
    rebuilt.squeeze();
    m_columns[static_cast<size_t>(col)] = std::move(rebuilt);
}

void GridData::copyColumn(int from, int to)
{
    if (from < 0 || from >= cols() || to < 0 || to >= cols() || from == to)
        return;
    m_columns[static_cast<size_t>(to)] = m_columns[static_cast<size_t>(from)];
}

void GridData::takeRecordsetColumns(std::vector<TextColumn> columns, const QStringList &names, qsizetype records)
{
    const qsizetype physicalRows = records + m_fixedRows;
    for (qsizetype f = 0; f < static_cast<qsizetype>(columns.size()); ++f) {
        TextColumn &column = columns[static_cast<size_t>(f)];
        column.resize(records);
        // The header goes after the records: the adopted bytes stay where they are and the
        // row index puts the header first.
        if (m_fixedRows == 1)
            column.append(f < names.size() ? names[f] : QString());
        column.squeeze();
    }
    if (m_fixedCols == 1) {
        TextColumn fixed;
        fixed.resize(physicalRows);
        columns.insert(columns.begin(), std::move(fixed));
    }
    m_columns = std::move(columns);
    m_order.resize(static_cast<size_t>(physicalRows));
    if (m_fixedRows == 1) {
        m_order[0] = static_cast<std::uint32_t>(records);
        std::iota(m_order.begin() + 1, m_order.end(), 0u);
    } else {
        std::iota(m_order.begin(), m_order.end(), 0u);
    }
    m_physicalRows = physicalRows;
}

void GridData::loadRecordset(const Recordset &rs)
{
    std::vector<TextColumn> columns;
    columns.reserve(static_cast<size_t>(rs.fieldCount()));
    for (int f = 0; f < rs.fieldCount(); ++f)
        columns.push_back(rs.column(f));
    takeRecordsetColumns(std::move(columns), rs.fieldNames(), rs.recordCount());
}

void GridData::adoptRecordset(Recordset &&rs)
{
    const qsizetype records = rs.recordCount();
    const QStringList names = rs.fieldNames();
    takeRecordsetColumns(rs.takeColumns(), names, records);
}

void GridData::sort(int col, int order)
{
    if (col < 0 || col >= cols() || (order != 1 && order != 2) || rows() - m_fixedRows < 2)
        return;
    const TextColumn &column = m_columns[static_cast<size_t>(col)];
    const auto first = m_order.begin() + m_fixedRows;
    const auto count = static_cast<size_t>(m_order.end() - first);
    const bool ascending = order == 1;

    // Empty cells, numbers and texts each get their own range of the array, in the order the
    // kinds sort in this direction; a first pass counts them.
    size_t kindCount[3] = {0, 0, 0};
    double number = 0;
    for (auto it = first; it != m_order.end(); ++it)
        ++kindCount[static_cast<int>(kindOf(column.utf8(*it), &number))];
    size_t start[3];
    if (ascending) {
        start[0] = 0;
        start[1] = kindCount[0];
        start[2] = kindCount[0] + kindCount[1];
    } else {
        start[2] = 0;
        start[1] = kindCount[2];
        start[0] = kindCount[2] + kindCount[1];
    }

    std::vector<SortItem> items(count);
    size_t next[3] = {start[0], start[1], start[2]};
    // Texts beyond ASCII are compared in a case-folded copy; plain ones in place.
    std::string folded;
    std::vector<std::pair<size_t, size_t>> foldedAt; // item, offset in `folded`
    for (size_t i = 0; i < count; ++i) {
        const QByteArrayView bytes = column.utf8(first[static_cast<std::ptrdiff_t>(i)]);
        const CellKind kind = kindOf(bytes, &number);
        const size_t at = next[static_cast<int>(kind)]++;
        SortItem item{0, 0, bytes.data(), static_cast<std::uint32_t>(bytes.size()), static_cast<std::uint32_t>(i)};
        if (kind == CellKind::Number) {
            item.prefix = orderedBits(number);
        } else if (kind == CellKind::Text && isAscii(bytes)) {
            item.prefix = textPrefix(item.text, item.length, 0);
            item.prefix2 = textPrefix(item.text, item.length, 8);
        } else if (kind == CellKind::Text) {
            const QByteArray f = QString::fromUtf8(bytes).toCaseFolded().toUtf8();
            item.length = static_cast<std::uint32_t>(f.size());
            item.prefix = textPrefix(f.constData(), item.length, 0);
            item.prefix2 = textPrefix(f.constData(), item.length, 8);
            foldedAt.emplace_back(at, folded.size());
            folded.append(f.constData(), static_cast<size_t>(f.size()));
        }
        items[at] = item;
    }
    for (const auto &[index, offset] : foldedAt)
        items[index].text = folded.data() + offset;

    const auto range = [&items, &start, &kindCount](CellKind kind) {
        const auto k = static_cast<int>(kind);
        const auto begin = items.begin() + static_cast<std::ptrdiff_t>(start[k]);
        return std::pair{begin, begin + static_cast<std::ptrdiff_t>(kindCount[k])};
    };
    const auto [numbersBegin, numbersEnd] = range(CellKind::Number);
    sortRange(numbersBegin, numbersEnd, ascending, compareNumbers);
    const auto [textsBegin, textsEnd] = range(CellKind::Text);
    sortRange(textsBegin, textsEnd, ascending, compareTexts);

    const std::vector<std::uint32_t> before(first, m_order.end());
    auto out = first;
    for (const SortItem &item : items)
        *out++ = before[item.pos];
}

DbError GridData::saveToFile(const QString &path) const
{
    return GridFile::save(*this, path);
}

DbError GridData::loadFromFile(const QString &path)
{
    GridData loaded;
    if (DbError error = GridFile::load(path, &loaded))
        return error;
    *this = std::move(loaded);
    return {};
}

GridData GridData::fromColumns(std::vector<TextColumn> columns, int rows, int fixedRows, int fixedCols)
{
    rows = std::max(rows, 0);
    GridData grid;
    grid.m_fixedRows = fixedRows > 0 ? 1 : 0;
    grid.m_fixedCols = fixedCols > 0 ? 1 : 0;
    for (auto &column : columns) {
        column.resize(rows);
        column.squeeze();
    }
    grid.m_columns = std::move(columns);
    grid.m_order.resize(static_cast<size_t>(rows));
    std::iota(grid.m_order.begin(), grid.m_order.end(), 0u);
    grid.m_physicalRows = rows;
    return grid;
}

qsizetype GridData::memoryUse() const
{
    qsizetype use = static_cast<qsizetype>(m_order.capacity() * sizeof(std::uint32_t)) +
                    static_cast<qsizetype>(m_columns.capacity() * sizeof(TextColumn));
    for (const auto &column : m_columns)
        use += column.memoryUse();
    return use;
}

} // namespace tabulon
