#include "db/textcolumn.h"

#include <stdexcept>

namespace tabulon {

namespace {
constexpr std::uint64_t kMaxColumnBytes = 0xFFFFFFFFull;
}

void TextColumn::reserve(qsizetype cells, qsizetype bytes)
{
    m_ends.reserve(static_cast<size_t>(cells));
    if (bytes > 0)
        m_bytes.reserve(bytes);
}

void TextColumn::clear()
{
    m_bytes.clear();
    m_ends.clear();
    m_nulls.clear();
    m_edits.clear();
}

void TextColumn::append(QByteArrayView utf8)
{
    if (static_cast<std::uint64_t>(m_bytes.size()) + static_cast<std::uint64_t>(utf8.size()) > kMaxColumnBytes)
        throw std::length_error("column holds more than 4 GiB of text");
    m_bytes.append(utf8.data(), utf8.size());
    m_ends.push_back(static_cast<std::uint32_t>(m_bytes.size()));
    if (hasNullFlags())
        m_nulls.push_back(false);
}

void TextColumn::appendNull()
{
    ensureNullFlags();
    m_ends.push_back(static_cast<std::uint32_t>(m_bytes.size()));
    m_nulls.push_back(true);
}

void TextColumn::resize(qsizetype cells)
{
    const auto n = static_cast<size_t>(cells);
    if (n >= m_ends.size()) {
        const std::uint32_t end = static_cast<std::uint32_t>(m_bytes.size());
        m_ends.resize(n, end);
        if (hasNullFlags())
            m_nulls.resize(n, false);
        return;
    }
    for (auto it = m_edits.begin(); it != m_edits.end();) {
        if (it->first >= n)
            it = m_edits.erase(it);
        else
            ++it;
    }
    m_ends.resize(n);
    if (hasNullFlags())
        m_nulls.resize(n);
    m_bytes.truncate(n == 0 ? 0 : m_ends.back());
}

void TextColumn::ensureNullFlags()
{
    if (!hasNullFlags())
        m_nulls.assign(m_ends.size(), false);
}

QByteArrayView TextColumn::stored(qsizetype i) const
{
    const auto idx = static_cast<size_t>(i);
    const std::uint32_t begin = idx == 0 ? 0 : m_ends[idx - 1];
    return QByteArrayView(m_bytes.constData() + begin, m_ends[idx] - begin);
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
    const auto idx = static_cast<size_t>(i);
    if (idx + 1 == m_ends.size() && m_edits.find(static_cast<std::uint32_t>(i)) == m_edits.end()) {
        // The last cell can be rewritten in place.
        m_bytes.truncate(idx == 0 ? 0 : m_ends[idx - 1]);
        m_ends.pop_back();
        if (hasNullFlags())
            m_nulls.pop_back();
        append(utf8);
        return;
    }
    m_edits[static_cast<std::uint32_t>(i)] = Edit{QByteArray(utf8.data(), utf8.size()), false};
    if (m_edits.size() > 1024 && m_edits.size() > m_ends.size() / 8)
        compact();
}

void TextColumn::setNull(qsizetype i)
{
    ensureNullFlags();
    m_edits[static_cast<std::uint32_t>(i)] = Edit{QByteArray(), true};
    if (m_edits.size() > 1024 && m_edits.size() > m_ends.size() / 8)
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
    m_ends.shrink_to_fit();
}

qsizetype TextColumn::memoryUse() const
{
    qsizetype use = m_bytes.capacity() + static_cast<qsizetype>(m_ends.capacity() * sizeof(std::uint32_t))
        + static_cast<qsizetype>(m_nulls.capacity() / 8);
    for (const auto &[row, edit] : m_edits)
        use += edit.bytes.capacity() + 64;
    return use;
}

} // namespace tabulon
