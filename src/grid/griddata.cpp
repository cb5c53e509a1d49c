#include "grid/griddata.h"

#include "db/recordset.h"
#include "grid/gridfile.h"

#include <algorithm>
#include <charconv>
#include <condition_variable>
#include <cstring>
#include <limits>
#include <mutex>
#include <numeric>
#include <string>
#include <system_error>
#include <thread>
#include <unordered_map>

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

// One entry per sorted row, 12 bytes, sorted in place. A text's key holds seven case-folded
// bytes and, in its low byte, how many bytes the text has from there (8 meaning "more"), so
// one comparison of two numbers orders both the bytes and a text before its own extensions.
// The sort walks its own array instead of chasing a million cells, and only rows that agree
// on their seven bytes read their next seven. Empty cells, numbers and texts are sorted in
// separate ranges, so no comparison needs to ask which is which.
struct SortItem {
    std::uint32_t keyHigh;
    std::uint32_t keyLow;
    std::uint32_t pos; // place among the sorted rows before the sort: equal cells keep it

    std::uint64_t key() const { return (std::uint64_t(keyHigh) << 32) | keyLow; }
    void setKey(std::uint64_t key)
    {
        keyHigh = static_cast<std::uint32_t>(key >> 32);
        keyLow = static_cast<std::uint32_t>(key);
    }
};
static_assert(sizeof(SortItem) == 12);

constexpr qsizetype kChunk = 7;
constexpr std::uint64_t kMore = kChunk + 1;

// The key of a text from `depth`: seven bytes (ASCII letters lowered, zeros past its end) and
// the count of bytes left.
std::uint64_t chunkOf(QByteArrayView text, qsizetype depth)
{
    std::uint64_t key = 0;
    const qsizetype left = text.size() - depth;
    for (qsizetype i = 0; i < kChunk; ++i) {
        key <<= 8;
        if (i < left)
            key |= asciiLower(static_cast<unsigned char>(text[depth + i]));
    }
    return (key << 8) | static_cast<std::uint64_t>(std::min<qsizetype>(left, kMore));
}

// Sorts entries by key in the given direction; equal entries keep their earlier order in both
// directions, which makes the unstable in-place sort a stable one without its buffer.
auto keyOrder(bool ascending)
{
    return [ascending](const SortItem &a, const SortItem &b) {
        const std::uint64_t ka = a.key();
        const std::uint64_t kb = b.key();
        if (ka != kb)
            return ascending ? ka < kb : ka > kb;
        return a.pos < b.pos;
    };
}

void sortByKey(SortItem *first, SortItem *last, bool ascending)
{
    std::sort(first, last, keyOrder(ascending));
}

// Sorts texts keyed at `depth` by their keys, then each run of them that agrees on its key and
// goes on past it by the next seven bytes (rekey(first, last, depth) sets those keys), and so
// on. Runs are independent of each other, so on a large column the work is shared by the
// machine's cores (up to four): the first sort in two halves, then the runs through one list
// that every thread takes from, where a thread puts the large runs it finds and keeps the
// small ones for itself. Reading the next bytes of scattered texts waits for memory, which
// the threads do side by side.
template <typename Rekey>
void sortTexts(SortItem *first, SortItem *last, qsizetype depth, bool ascending, const Rekey &rekey)
{
    struct Run {
        SortItem *first;
        SortItem *last;
        qsizetype depth; // the keys are still those of depth - kChunk
    };
    constexpr std::ptrdiff_t kThreadsFrom = 1 << 16;
    constexpr std::ptrdiff_t kShareFrom = 1 << 12;
    const unsigned threads = last - first < kThreadsFrom ? 1u : std::clamp(std::thread::hardware_concurrency(), 1u, 4u);

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Run> open; // runs no thread has taken yet
    int busy = 0;
    // Hands on the runs of a sorted range that need their next seven bytes.
    const auto handOn = [&](SortItem *from, SortItem *end, qsizetype atDepth, std::vector<Run> &own) {
        while (from != end) {
            SortItem *to = from + 1;
            while (to != end && to->key() == from->key())
                ++to;
            if (to - from > 1 && (from->key() & 0xFF) == kMore) {
                const Run run{from, to, atDepth + kChunk};
                if (threads > 1 && to - from >= kShareFrom) {
                    const std::lock_guard lock(mutex);
                    open.push_back(run);
                    changed.notify_one();
                } else {
                    own.push_back(run);
                }
            }
            from = to;
        }
    };
    const auto work = [&] {
        std::vector<Run> own;
        for (;;) {
            {
                std::unique_lock lock(mutex);
                changed.wait(lock, [&] { return !open.empty() || busy == 0; });
                if (open.empty())
                    return;
                own.push_back(open.back());
                open.pop_back();
                ++busy;
            }
            while (!own.empty()) {
                const Run run = own.back();
                own.pop_back();
                rekey(run.first, run.last, run.depth);
                sortByKey(run.first, run.last, ascending);
                handOn(run.first, run.last, run.depth, own);
            }
            const std::lock_guard lock(mutex);
            if (--busy == 0 && open.empty())
                changed.notify_all();
        }
    };

    std::vector<Run> top;
    if (threads > 1) {
        SortItem *middle = first + (last - first) / 2;
        std::nth_element(first, middle, last, keyOrder(ascending));
        std::thread half;
        try {
            half = std::thread([&] { sortByKey(first, middle, ascending); });
        } catch (const std::system_error &) {
            sortByKey(first, middle, ascending); // no thread to be had: this one does both
        }
        sortByKey(middle, last, ascending);
        if (half.joinable())
            half.join();
    } else {
        sortByKey(first, last, ascending);
    }
    handOn(first, last, depth, top);
    open.insert(open.end(), top.begin(), top.end());
    std::vector<std::thread> helpers;
    try {
        for (unsigned i = 1; i < threads; ++i)
            helpers.emplace_back(work);
    } catch (const std::system_error &) {
        // Fewer threads share the runs; the list needs none in particular.
    }
    work();
    for (std::thread &helper : helpers)
        helper.join();
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
    if (!m_identity) {
        m_order.reserve(m_order.size() + static_cast<size_t>(count));
        for (qsizetype i = 0; i < count; ++i)
            m_order.push_back(static_cast<std::uint32_t>(m_physicalRows + i));
    }
    m_physicalRows += count;
}

void GridData::makeRowIndex()
{
    if (!m_identity)
        return;
    m_order.resize(static_cast<size_t>(m_physicalRows));
    std::iota(m_order.begin(), m_order.end(), 0u);
    m_identity = false;
}

void GridData::setRows(int n)
{
    n = std::max(n, 0);
    if (n >= rows()) {
        appendPhysicalRows(n - rows());
        return;
    }
    if (m_identity) {
        for (auto &column : m_columns)
            column.resize(n);
        m_physicalRows = n;
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

bool GridData::isNull(int row, int col) const
{
    if (row < 0 || row >= rows() || col < 0 || col >= cols())
        return false;
    return m_columns[static_cast<size_t>(col)].isNull(physical(row));
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
    if (at < rows())
        makeRowIndex();
    appendPhysicalRows(1);
    if (m_identity)
        return;
    const std::uint32_t added = m_order.back();
    m_order.pop_back();
    m_order.insert(m_order.begin() + at, added);
}

void GridData::removeRow(int row)
{
    if (row < 0 || row >= rows())
        return;
    if (row + 1 < rows())
        makeRowIndex();
    const std::uint32_t p = physical(row);
    if (!m_identity)
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
    if (rows() == 0) {
        for (auto &column : m_columns)
            column.clear();
        m_physicalRows = 0;
        m_order.clear();
        m_identity = true;
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
        for (const std::uint32_t p : m_order) {
            if (column.isNull(p))
                rebuilt.appendNull();
            else
                rebuilt.append(column.utf8(p));
        }
        rebuilt.squeeze();
        column = std::move(rebuilt);
    }
    m_physicalRows = rows();
    m_order = {};
    m_identity = true;
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
    m_order = {};
    m_identity = true;
    m_physicalRows = m_fixedRows;
    m_appending = false;
}

void GridData::startAppending(const QStringList &headers)
{
    m_columns.assign(static_cast<size_t>(headers.size()), TextColumn());
    for (qsizetype c = 0; c < headers.size() && m_fixedRows == 1; ++c)
        m_columns[static_cast<size_t>(c)].append(headers[c]);
    m_order = {};
    m_identity = true;
    m_physicalRows = m_fixedRows;
    m_appending = true;
}

void GridData::numberAppendedRows(int col)
{
    if (m_appending && col >= 0 && col < cols())
        m_columns[static_cast<size_t>(col)].startCounting(1 - m_physicalRows);
}

qsizetype GridData::appendedRows() const
{
    qsizetype whole = -1;
    for (const auto &column : m_columns) {
        if (!column.isCounting())
            whole = whole < 0 ? column.size() : std::min(whole, column.size());
    }
    return std::max<qsizetype>(whole - m_physicalRows, 0);
}

qsizetype GridData::commitAppended()
{
    const qsizetype added = appendedRows();
    const qsizetype whole = m_physicalRows + added;
    for (auto &column : m_columns) {
        if (column.size() > whole || column.isCounting())
            column.resize(whole);
    }
    if (!m_identity) {
        for (qsizetype p = m_physicalRows; p < whole; ++p)
            m_order.push_back(static_cast<std::uint32_t>(p));
    }
    m_physicalRows = whole;
    return added;
}

void GridData::finishAppending()
{
    commitAppended();
    for (auto &column : m_columns) {
        column.endCounting();
        column.squeeze();
    }
    m_appending = false;
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
        else if (column.isNull(p))
            rebuilt.appendNull();
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
    TextColumn &column = m_columns[static_cast<size_t>(col)];
    const qsizetype dataRows = rows() - m_fixedRows;
    // Rows without an index of their own are their cells; a freshly loaded table has its data
    // rows in cell order with the header after them. Otherwise each cell looks its row up.
    std::uint32_t expected = 0;
    const bool inOrder = !m_identity && std::all_of(m_order.begin() + m_fixedRows, m_order.end(),
                                                    [&expected](std::uint32_t p) { return p == expected++; });
    TextColumn numbered;
    if (m_identity) {
        numbered = TextColumn::numbered(m_physicalRows, m_fixedRows, m_physicalRows, 0);
    } else if (inOrder) {
        numbered = TextColumn::numbered(m_physicalRows, 0, dataRows, m_fixedRows);
    } else {
        std::vector<std::uint32_t> rowOf(static_cast<size_t>(m_physicalRows), TextColumn::kNoNumber);
        for (int r = m_fixedRows; r < rows(); ++r)
            rowOf[physical(r)] = static_cast<std::uint32_t>(r);
        numbered = TextColumn::numbered(std::move(rowOf));
    }
    // The fixed row keeps its text; cells of removed rows are read by no row.
    for (int r = 0; r < m_fixedRows && r < rows(); ++r)
        numbered.setUtf8(physical(r), column.utf8(physical(r)));
    column = std::move(numbered);
}

void GridData::copyColumn(int from, int to)
{
    if (from < 0 || from >= cols() || to < 0 || to >= cols() || from == to)
        return;
    m_columns[static_cast<size_t>(to)] = m_columns[static_cast<size_t>(from)];
}

void GridData::takeRecordsetColumns(std::vector<TextColumn> columns, QStringList names, qsizetype records)
{
    if (m_fixedCols == 1) {
        columns.insert(columns.begin(), TextColumn());
        names.prepend(QString());
    }
    adoptColumns(std::move(columns), names, records);
}

void GridData::adoptColumns(std::vector<TextColumn> columns, const QStringList &names, qsizetype records)
{
    const qsizetype physicalRows = records + m_fixedRows;
    for (qsizetype f = 0; f < static_cast<qsizetype>(columns.size()); ++f) {
        TextColumn &column = columns[static_cast<size_t>(f)];
        if (column.size() == physicalRows && m_fixedRows == 1)
            continue; // its header cell is in place already
        column.resize(records);
        // The header goes after the records: the adopted bytes stay where they are and the
        // row index puts the header first.
        if (m_fixedRows == 1)
            column.append(f < names.size() ? names[f] : QString());
        column.squeeze();
    }
    m_columns = std::move(columns);
    m_identity = false;
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
    makeRowIndex();
    const TextColumn &column = m_columns[static_cast<size_t>(col)];
    const auto first = m_order.begin() + m_fixedRows;
    const auto count = static_cast<size_t>(m_order.end() - first);
    const bool ascending = order == 1;

    // Texts beyond ASCII are compared in a case-folded copy; plain ones in place.
    std::string folded;
    std::unordered_map<std::uint32_t, std::pair<size_t, size_t>> foldedAt; // pos -> offset, length
    const auto textOf = [&](const SortItem &item) {
        if (!foldedAt.empty()) {
            if (const auto it = foldedAt.find(item.pos); it != foldedAt.end())
                return QByteArrayView(folded.data() + it->second.first, static_cast<qsizetype>(it->second.second));
        }
        return column.utf8(first[static_cast<std::ptrdiff_t>(item.pos)]);
    };

    // The sorted rows in their order before the sort; after an earlier sort they lie scattered
    // over the column.
    const auto rowOf = [&](qsizetype i) { return first[static_cast<std::ptrdiff_t>(i)]; };

    // A start that every text shares (a column of "Remark ..." say) orders nothing: the keys
    // start after it, which spares a round over every row. Only ASCII counts towards it, so
    // that it is the same length in a text's folded copy.
    qsizetype shared = -1;
    QByteArrayView firstText;
    {
        double ignored = 0;
        column.readScattered(static_cast<qsizetype>(count), rowOf, 0, [&](qsizetype, QByteArrayView bytes) {
            if (kindOf(bytes, &ignored) != CellKind::Text)
                return true;
            if (shared < 0) {
                firstText = bytes;
                shared = 0;
                while (shared < bytes.size() && static_cast<unsigned char>(bytes[shared]) < 0x80)
                    ++shared;
                return shared != 0;
            }
            qsizetype same = 0;
            const qsizetype limit = std::min(shared, bytes.size());
            while (same < limit && asciiLower(static_cast<unsigned char>(bytes[same])) ==
                                       asciiLower(static_cast<unsigned char>(firstText[same])))
                ++same;
            shared = same;
            return shared != 0;
        });
        shared = std::max<qsizetype>(shared, 0);
    }

    // Texts fill the array from the back, empty cells and numbers from the front; an empty
    // cell's key is 0, which no number's is.
    std::vector<SortItem> items(count);
    SortItem *const begin = items.data();
    SortItem *const end = begin + count;
    SortItem *front = begin;
    SortItem *back = end;
    double number = 0;
    column.readScattered(static_cast<qsizetype>(count), rowOf, shared, [&](qsizetype i, QByteArrayView bytes) {
        SortItem item{0, 0, static_cast<std::uint32_t>(i)};
        switch (kindOf(bytes, &number)) {
        case CellKind::Empty: *front++ = item; break;
        case CellKind::Number:
            item.setKey(orderedBits(number));
            *front++ = item;
            break;
        case CellKind::Text:
            if (isAscii(bytes)) {
                item.setKey(chunkOf(bytes, shared));
            } else {
                const QByteArray f = QString::fromUtf8(bytes).toCaseFolded().toUtf8();
                foldedAt.emplace(item.pos, std::pair{folded.size(), static_cast<size_t>(f.size())});
                folded.append(f.constData(), static_cast<size_t>(f.size()));
                item.setKey(chunkOf(QByteArrayView(f), shared));
            }
            *--back = item;
            break;
        }
    });

    // Kinds in the order they sort in this direction: empty cells, numbers, texts ascending.
    SortItem *textFirst = back;
    SortItem *textLast = end;
    SortItem *numberFirst = nullptr;
    SortItem *numberLast = nullptr;
    if (ascending) {
        numberFirst = std::partition(begin, back, [](const SortItem &i) { return i.key() == 0; });
        numberLast = back;
    } else {
        std::rotate(begin, back, end);
        textFirst = begin;
        textLast = begin + (end - back);
        numberFirst = textLast;
        numberLast = std::partition(textLast, end, [](const SortItem &i) { return i.key() != 0; });
    }
    const auto byPos = [](const SortItem &a, const SortItem &b) { return a.pos < b.pos; };
    std::sort(ascending ? begin : numberLast, ascending ? numberFirst : end, byPos); // empty cells
    sortByKey(numberFirst, numberLast, ascending);

    // Texts: sorted by their first seven bytes, then each run that agrees on them and goes on
    // is sorted by its next seven, and so on.
    const auto rekey = [&](SortItem *from, SortItem *to, qsizetype depth) {
        const auto rowOf = [&](qsizetype k) {
            if (k + TextColumn::kAhead < to - from)
                prefetch(&first[static_cast<std::ptrdiff_t>(from[k + TextColumn::kAhead].pos)]);
            return first[static_cast<std::ptrdiff_t>(from[k].pos)];
        };
        column.readScattered(to - from, rowOf, depth, [&](qsizetype k, QByteArrayView bytes) {
            SortItem &item = from[k];
            item.setKey(chunkOf(foldedAt.empty() ? bytes : textOf(item), depth));
        });
    };
    sortTexts(textFirst, textLast, shared, ascending, rekey);

    // The sorted entries' rows, written back over the row index without a second copy of it.
    for (SortItem &item : items)
        item.keyLow = first[static_cast<std::ptrdiff_t>(item.pos)];
    for (size_t i = 0; i < count; ++i)
        first[static_cast<std::ptrdiff_t>(i)] = items[i].keyLow;
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
    grid.m_order = {};
    grid.m_identity = true;
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
