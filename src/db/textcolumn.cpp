#include "db/textcolumn.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace tabulon {

namespace {
constexpr std::uint64_t kMaxColumnBytes = 0xFFFFFFFFull;
}

void TextColumn::reserve(qsizetype cells, qsizetype bytes)
{
    m_lengths.reserve(static_cast<size_t>(cells));
    m_blocks.reserve(static_cast<size_t>(cells / kBlock + 1));
    if (bytes > 0)
        m_bytes.reserve(bytes);
}

void TextColumn::clear()
{
    m_bytes.clear();
    m_lengths.clear();
    m_blocks.clear();
    m_count = 0;
    m_nulls.clear();
    m_edits.clear();
}

void TextColumn::append(QByteArrayView utf8)
{
    appendBytes(utf8);
    if (hasNullFlags())
        m_nulls.push_back(false);
}

void TextColumn::appendBytes(QByteArrayView utf8)
{
    if (static_cast<std::uint64_t>(m_bytes.size()) + static_cast<std::uint64_t>(utf8.size()) > kMaxColumnBytes)
        throw std::length_error("column holds more than 4 GiB of text");
    if (m_count % kBlock == 0)
        m_blocks.push_back(
            Block{static_cast<std::uint32_t>(m_bytes.size()), static_cast<std::uint32_t>(m_lengths.size())});
    auto length = static_cast<std::uint32_t>(utf8.size());
    while (length >= 0x80) {
        m_lengths.push_back(static_cast<std::uint8_t>(length | 0x80));
        length >>= 7;
    }
    m_lengths.push_back(static_cast<std::uint8_t>(length));
    // QByteArray's own growth on append allocates a new block and copies the old one over, which
    // for a large column costs a second copy of its text at the peak. reserve() grows in place
    // (realloc, which moves large blocks by remapping their pages), so the growth is ours.
    if (utf8.isEmpty()) {
        ++m_count;
        return;
    }
    const qsizetype at = m_bytes.size();
    const qsizetype needed = at + utf8.size();
    if (needed > m_bytes.capacity())
        m_bytes.reserve(std::max<qsizetype>({needed, m_bytes.capacity() + m_bytes.capacity() / 2, 64}));
    m_bytes.resize(needed); // within the capacity: no copy, the new bytes are left as they are
    std::memcpy(m_bytes.data() + at, utf8.data(), static_cast<size_t>(utf8.size()));
    ++m_count;
}

void TextColumn::appendNull()
{
    ensureNullFlags();
    appendBytes(QByteArrayView());
    m_nulls.push_back(true);
}

void TextColumn::resize(qsizetype cells)
{
    cells = std::max<qsizetype>(cells, 0);
    if (cells >= m_count) {
        while (m_count < cells)
            append(QByteArrayView());
        return;
    }
    for (auto it = m_edits.begin(); it != m_edits.end();) {
        if (it->first >= cells)
            it = m_edits.erase(it);
        else
            ++it;
    }
    if (cells == 0) {
        m_bytes.clear();
        m_lengths.clear();
        m_blocks.clear();
    } else {
        const Location last = locate(cells - 1);
        m_bytes.truncate(last.begin + last.length);
        m_lengths.resize(last.nextLengthPos);
        m_blocks.resize(static_cast<size_t>((cells + kBlock - 1) / kBlock));
    }
    m_count = cells;
    if (hasNullFlags())
        m_nulls.resize(static_cast<size_t>(cells));
}

void TextColumn::ensureNullFlags()
{
    if (!hasNullFlags())
        m_nulls.assign(static_cast<size_t>(m_count), false);
}

TextColumn::Location TextColumn::locate(qsizetype i) const
{
    const Block &block = m_blocks[static_cast<size_t>(i / kBlock)];
    std::uint32_t begin = block.byteStart;
    std::uint32_t pos = block.lengthPos;
    const std::uint8_t *lengths = m_lengths.data();
    for (qsizetype k = i % kBlock;; --k) {
        std::uint32_t length = 0;
        for (int shift = 0;; shift += 7) {
            const std::uint8_t byte = lengths[pos++];
            length |= static_cast<std::uint32_t>(byte & 0x7F) << shift;
            if (!(byte & 0x80))
                break;
        }
        if (k == 0)
            return Location{begin, length, pos};
        begin += length;
    }
}

QByteArrayView TextColumn::stored(qsizetype i) const
{
    const Location at = locate(i);
    return QByteArrayView(m_bytes.constData() + at.begin, at.length);
}

bool TextColumn::isNull(qsizetype i) const
{
    if (!m_edits.empty()) {
        const auto it = m_edits.find(static_cast<std::uint32_t>(i));
        if (it != m_edits.end())
            return it->second.null;
    }
    return hasNullFlags() && m_nulls[static_cast<size_t>(i)];
}

QByteArrayView TextColumn::utf8(qsizetype i) const
{
    if (!m_edits.empty()) {
        const auto it = m_edits.find(static_cast<std::uint32_t>(i));
        if (it != m_edits.end())
            return QByteArrayView(it->second.bytes);
    }
    return stored(i);
}

void TextColumn::setUtf8(qsizetype i, QByteArrayView utf8)
{
    if (i + 1 == m_count && m_edits.find(static_cast<std::uint32_t>(i)) == m_edits.end()) {
        // The last cell can be rewritten in place.
        resize(i);
        append(utf8);
        return;
    }
    m_edits[static_cast<std::uint32_t>(i)] = Edit{QByteArray(utf8.data(), utf8.size()), false};
    if (m_edits.size() > 1024 && static_cast<qsizetype>(m_edits.size()) > m_count / 8)
        compact();
}

void TextColumn::setNull(qsizetype i)
{
    ensureNullFlags();
    m_edits[static_cast<std::uint32_t>(i)] = Edit{QByteArray(), true};
    if (m_edits.size() > 1024 && static_cast<qsizetype>(m_edits.size()) > m_count / 8)
        compact();
}

void TextColumn::compact()
{
    if (m_edits.empty())
        return;
    TextColumn rebuilt;
    rebuilt.reserve(size(), m_bytes.size());
    if (hasNullFlags())
        rebuilt.ensureNullFlags();
    for (qsizetype i = 0; i < size(); ++i) {
        if (isNull(i))
            rebuilt.appendNull();
        else
            rebuilt.append(utf8(i));
    }
    *this = std::move(rebuilt);
}

void TextColumn::squeeze()
{
    m_bytes.squeeze();
    m_lengths.shrink_to_fit();
    m_blocks.shrink_to_fit();
}

qsizetype TextColumn::memoryUse() const
{
    qsizetype use = m_bytes.capacity() + static_cast<qsizetype>(m_lengths.capacity()) +
                    static_cast<qsizetype>(m_blocks.capacity() * sizeof(Block)) +
                    static_cast<qsizetype>(m_nulls.capacity() / 8);
    for (const auto &[row, edit] : m_edits)
        use += edit.bytes.capacity() + 64;
    return use;
}

} // namespace tabulon
