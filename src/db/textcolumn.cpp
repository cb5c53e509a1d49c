#include "db/textcolumn.h"

#include <algorithm>

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
    s.lengths.truncate(last.nextLengthPos);
    s.blocks.resize(static_cast<std::size_t>((cells + kBlock - 1) / kBlock));
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
    const Block &block = s.blocks[static_cast<std::size_t>(i / kBlock)];
    Location at = next(s, Location{block.byteStart, 0, block.lengthPos});
    for (qsizetype k = i % kBlock; k > 0; --k)
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
    const Store &s = store();
    return !s.nulls.empty() && s.nulls[static_cast<std::size_t>(i)];
}

QByteArrayView TextColumn::utf8(qsizetype i) const
{
    if (const Edit *edit = editOf(i))
        return QByteArrayView(edit->bytes);
    return stored(locate(i));
}

QByteArrayView TextColumn::Reader::utf8(qsizetype i)
{
    if (const Edit *edit = m_column.editOf(i)) {
        // The stored cell still holds its place in the length stream.
        m_at = m_column.locate(i);
        m_last = i;
        return QByteArrayView(edit->bytes);
    }
    m_at = i == m_last + 1 ? next(m_column.store(), m_at) : m_column.locate(i);
    m_last = i;
    return m_column.stored(m_at);
}

void TextColumn::setUtf8(qsizetype i, QByteArrayView utf8)
{
    if (i + 1 == size() && !editOf(i)) {
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
    ensureNullFlags();
    m_edits[static_cast<std::uint32_t>(i)] = Edit{QByteArray(), true};
    if (m_edits.size() > 1024 && static_cast<qsizetype>(m_edits.size()) > size() / 8)
        compact();
}

void TextColumn::compact()
{
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
    auto use = static_cast<qsizetype>(s.bytes.capacity() + s.lengths.capacity() + s.blocks.capacity() * sizeof(Block) +
                                      s.nulls.capacity() / 8);
    for (const auto &[row, edit] : m_edits)
        use += edit.bytes.capacity() + 64;
    return use;
}

} // namespace tabulon
