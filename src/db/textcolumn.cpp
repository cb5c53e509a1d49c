#include "db/textcolumn.h"

#include <algorithm>
#include <charconv>

namespace tabulon {

const TextColumn::Store &TextColumn::emptyStore()
{
    static const Store empty;
    return empty;
}

void TextColumn::detach()
{
    m_store = m_store ? std::make_shared<Store>(*m_store) : std::make_shared<Store>();
}

void TextColumn::reserve(qsizetype cells, qsizetype bytes)
{
    Store &s = writable();
    s.lengths.reserve(static_cast<std::size_t>(cells));
    s.blocks.reserve(static_cast<std::size_t>(cells / kBlock + 1));
    if (bytes > 0)
        s.bytes.reserve(static_cast<std::size_t>(bytes));
}

void TextColumn::clear()
{
    m_store.reset();
    m_edits.clear();
    m_numbers.reset();
}

TextColumn TextColumn::numbered(qsizetype cells, qsizetype from, qsizetype to, qint64 delta)
{
    TextColumn column;
    column.m_numbers = Numbers{cells, std::max<qsizetype>(from, 0), std::min(to, cells), delta, false, {}};
    return column;
}

TextColumn TextColumn::numbered(std::vector<std::uint32_t> table)
{
    TextColumn column;
    const auto cells = static_cast<qsizetype>(table.size());
    column.m_numbers =
        Numbers{cells, 0, cells, 0, false, std::make_shared<const std::vector<std::uint32_t>>(std::move(table))};
    return column;
}

void TextColumn::startCounting(qint64 delta)
{
    if (!m_numbers) {
        // The cells there already (a header) become edits of a numbered column.
        TextColumn counting = numbered(size(), size(), size(), delta);
        for (qsizetype i = 0; i < size(); ++i)
            counting.m_edits[static_cast<std::uint32_t>(i)] = Edit{QByteArray(utf8(i).toByteArray()), isNull(i)};
        *this = std::move(counting);
    } else if (m_numbers->table || m_numbers->to != m_numbers->count ||
               (m_numbers->to > m_numbers->from && m_numbers->delta != delta)) {
        materialize();
        startCounting(delta);
        return;
    }
    m_numbers->delta = delta;
    if (m_numbers->to == m_numbers->from)
        m_numbers->from = m_numbers->to = m_numbers->count;
    m_numbers->counting = true;
}

void TextColumn::endCounting()
{
    if (m_numbers)
        m_numbers->counting = false;
}

QByteArrayView TextColumn::numberAt(qsizetype i) const
{
    const Numbers &n = *m_numbers;
    if (i < n.from || i >= n.to)
        return QByteArrayView("", 0);
    qint64 number = i + n.delta;
    if (n.table) {
        const std::uint32_t at = (*n.table)[static_cast<size_t>(i)];
        if (at == kNoNumber)
            return QByteArrayView("", 0);
        number = at;
    }
    thread_local char digits[256][24];
    thread_local unsigned slot = 0;
    char *to = digits[slot++ % 256];
    const auto written = std::to_chars(to, to + 24, number);
    return QByteArrayView(to, written.ptr - to);
}

void TextColumn::materialize()
{
    if (!m_numbers)
        return;
    TextColumn rebuilt;
    rebuilt.reserve(size());
    for (qsizetype i = 0; i < size(); ++i) {
        if (isNull(i))
            rebuilt.appendNull();
        else
            rebuilt.append(utf8(i));
    }
    *this = std::move(rebuilt);
}

void TextColumn::appendNull()
{
    ensureNullFlags();
    Store &s = writable();
    s.appendBytes(nullptr, 0);
    s.nulls.push_back(true);
}

void TextColumn::appendNullShared()
{
    materialize();
    if (!m_store)
        m_store = std::make_shared<Store>();
    Store &s = *m_store;
    if (s.nulls.empty())
        s.nulls.assign(static_cast<std::size_t>(s.count), false);
    s.appendBytes(nullptr, 0);
    s.nulls.push_back(true);
}

void TextColumn::resize(qsizetype cells)
{
    cells = std::max<qsizetype>(cells, 0);
    if (m_numbers) {
        Numbers &n = *m_numbers;
        std::erase_if(m_edits, [cells](const auto &edit) { return edit.first >= cells; });
        n.count = cells;
        n.to = n.counting ? cells : std::min(n.to, cells);
        n.from = std::min(n.from, n.to);
        return;
    }
    if (cells >= size()) {
        if (cells > size()) {
            Store &s = writable();
            while (s.count < cells)
                s.appendBytes(nullptr, 0);
            if (!s.nulls.empty())
                s.nulls.resize(static_cast<std::size_t>(cells), false);
        }
        return;
    }
    for (auto it = m_edits.begin(); it != m_edits.end();) {
        if (it->first >= cells)
            it = m_edits.erase(it);
        else
            ++it;
    }
    if (cells == 0) {
        m_store.reset();
        return;
    }
    const Location last = locate(cells - 1);
    Store &s = writable();
    s.bytes.truncate(last.begin + last.length);
    if (cells <= s.listed) {
        s.lengths.truncate(last.nextLengthPos);
        s.blocks.resize(static_cast<std::size_t>((cells + kBlock - 1) / kBlock));
        s.listed = cells;
    }
    s.count = cells;
    if (!s.nulls.empty())
        s.nulls.resize(static_cast<std::size_t>(cells));
}

void TextColumn::ensureNullFlags()
{
    if (store().nulls.empty()) {
        Store &s = writable();
        s.nulls.assign(static_cast<std::size_t>(s.count), false);
    }
}

TextColumn::Location TextColumn::next(const Store &s, const Location &at)
{
    const auto *lengths = reinterpret_cast<const std::uint8_t *>(s.lengths.data());
    std::uint32_t pos = at.nextLengthPos;
    std::uint32_t length = 0;
    for (int shift = 0;; shift += 7) {
        const std::uint8_t byte = lengths[pos++];
        length |= static_cast<std::uint32_t>(byte & 0x7F) << shift;
        if (!(byte & 0x80))
            break;
    }
    return Location{at.begin + at.length, length, pos};
}

TextColumn::Location TextColumn::locate(qsizetype i) const
{
    const Store &s = store();
    if (i >= s.listed)
        return Location{s.tailStart + static_cast<std::uint32_t>((i - s.listed) * s.width), s.width, 0};
    const Block &block = s.blocks[static_cast<std::size_t>(i / kBlock)];
    const auto *lengths = reinterpret_cast<const std::uint8_t *>(s.lengths.data());
    const std::size_t end = s.lengths.size();
    std::uint32_t begin = block.byteStart;
    std::uint32_t pos = block.lengthPos;
    qsizetype before = i % kBlock;
    // Eight one-byte lengths at a time, summed in 16-bit lanes, while none of them goes on.
    while (before >= 8 && pos + 8 <= end) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, lengths + pos, sizeof eight);
        if (eight & 0x8080808080808080ull)
            break;
        eight = (eight & 0x00FF00FF00FF00FFull) + ((eight >> 8) & 0x00FF00FF00FF00FFull);
        begin += static_cast<std::uint32_t>((eight * 0x0001000100010001ull) >> 48);
        pos += 8;
        before -= 8;
    }
    Location at{begin, 0, pos};
    at = next(s, at);
    for (; before > 0; --before)
        at = next(s, at);
    return at;
}

const TextColumn::Edit *TextColumn::editOf(qsizetype i) const
{
    if (m_edits.empty())
        return nullptr;
    const auto it = m_edits.find(static_cast<std::uint32_t>(i));
    return it == m_edits.end() ? nullptr : &it->second;
}

bool TextColumn::isNull(qsizetype i) const
{
    if (const Edit *edit = editOf(i))
        return edit->null;
    if (m_numbers)
        return false;
    const Store &s = store();
    return !s.nulls.empty() && s.nulls[static_cast<std::size_t>(i)];
}

QByteArrayView TextColumn::utf8(qsizetype i) const
{
    if (const Edit *edit = editOf(i))
        return QByteArrayView(edit->bytes);
    if (m_numbers)
        return numberAt(i);
    return stored(locate(i));
}

QByteArrayView TextColumn::Reader::utf8(qsizetype i)
{
    if (m_column.m_numbers)
        return m_column.utf8(i);
    if (const Edit *edit = m_column.editOf(i)) {
        // The stored cell still holds its place in the length stream.
        m_at = m_column.locate(i);
        m_last = i;
        return QByteArrayView(edit->bytes);
    }
    const Store &s = m_column.store();
    m_at = i == m_last + 1 && i < s.listed ? next(s, m_at) : m_column.locate(i);
    m_last = i;
    return m_column.stored(m_at);
}

void TextColumn::setUtf8(qsizetype i, QByteArrayView utf8)
{
    if (i + 1 == size() && !editOf(i) && !m_numbers) {
        // The last cell can be rewritten in place.
        resize(i);
        append(utf8);
        return;
    }
    m_edits[static_cast<std::uint32_t>(i)] = Edit{QByteArray(utf8.data(), utf8.size()), false};
    if (m_edits.size() > 1024 && static_cast<qsizetype>(m_edits.size()) > size() / 8)
        compact();
}

void TextColumn::setNull(qsizetype i)
{
    if (!m_numbers)
        ensureNullFlags();
    m_edits[static_cast<std::uint32_t>(i)] = Edit{QByteArray(), true};
    if (m_edits.size() > 1024 && static_cast<qsizetype>(m_edits.size()) > size() / 8)
        compact();
}

void TextColumn::compact()
{
    if (m_numbers) {
        materialize();
        return;
    }
    if (m_edits.empty())
        return;
    TextColumn rebuilt;
    rebuilt.reserve(size(), static_cast<qsizetype>(store().bytes.size()));
    if (!store().nulls.empty())
        rebuilt.ensureNullFlags();
    Reader reader(*this);
    for (qsizetype i = 0; i < size(); ++i) {
        if (isNull(i))
            rebuilt.appendNull();
        else
            rebuilt.append(reader.utf8(i));
    }
    *this = std::move(rebuilt);
}

void TextColumn::squeeze()
{
    if (!m_store)
        return;
    // The cells stay as they are, so copies need not part.
    Store &s = *m_store;
    s.bytes.squeeze();
    s.lengths.squeeze();
    s.blocks.shrink_to_fit();
}

qsizetype TextColumn::memoryUse() const
{
    const Store &s = store();
    qsizetype use =
        m_numbers && m_numbers->table ? static_cast<qsizetype>(m_numbers->table->size() * sizeof(std::uint32_t)) : 0;
    use += static_cast<qsizetype>(s.bytes.capacity() + s.lengths.capacity() + s.blocks.capacity() * sizeof(Block) +
                                  s.nulls.capacity() / 8);
    for (const auto &[row, edit] : m_edits)
        use += edit.bytes.capacity() + 64;
    return use;
}

} // namespace tabulon
