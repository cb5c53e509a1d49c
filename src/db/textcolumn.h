// Compact storage for one column of texts: every cell's UTF-8 bytes in one buffer, each cell's
// length as a varint (one byte below 128), the start of every block of kBlock cells, null
// flags only when a null was stored, and a sparse set of cells that were changed after they
// were appended. Recordsets and the grid both keep their cells here; a million-row column of
// short texts costs its text plus about 1.25 bytes a cell. Copies share the storage until one
// of them appends or shrinks, so a copied column costs nothing until it is changed.
#pragma once

#include "db/bytebuffer.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <unordered_map>
#include <vector>

namespace tabulon {

class TextColumn final {
public:
    qsizetype size() const
    {
        if (m_numbers)
            return m_numbers->count;
        return m_store ? m_store->count : 0;
    }
    bool isEmpty() const { return size() == 0; }

    void reserve(qsizetype cells, qsizetype bytes = 0);
    void clear();

    void append(QByteArrayView utf8)
    {
        Store &s = writable();
        s.appendBytes(utf8.data(), static_cast<std::size_t>(utf8.size()));
        if (!s.nulls.empty())
            s.nulls.push_back(false);
    }
    void append(const QString &text) { append(QByteArrayView(text.toUtf8())); }
    void appendNull();
    // Appends to the storage this column shares with its copies, which all grow with it (for
    // columns that are to read the same while they fill); a column of its own just appends.
    void appendShared(QByteArrayView utf8)
    {
        if (m_numbers)
            materialize();
        if (!m_store)
            m_store = std::make_shared<Store>();
        m_store->appendBytes(utf8.data(), static_cast<std::size_t>(utf8.size()));
        if (!m_store->nulls.empty())
            m_store->nulls.push_back(false);
    }
    void appendNullShared();
    // Grows with empty cells or drops cells from the end.
    void resize(qsizetype cells);

    bool isNull(qsizetype i) const;
    // The cell's bytes; valid until the column is next changed.
    QByteArrayView utf8(qsizetype i) const;
    QString text(qsizetype i) const { return QString::fromUtf8(utf8(i)); }
    qsizetype byteLength(qsizetype i) const { return utf8(i).size(); }

    void setText(qsizetype i, const QString &text) { setUtf8(i, QByteArrayView(text.toUtf8())); }
    void setUtf8(qsizetype i, QByteArrayView utf8);
    void setNull(qsizetype i);

    // Rebuilds the buffer with every changed cell in place; called by itself when the
    // changed cells grow past a fraction of the column.
    void compact();
    // Releases spare capacity after bulk loading; copies sharing the storage keep sharing it.
    void squeeze();

    // Bytes held, for memory accounting; storage shared with a copy counts in full.
    qsizetype memoryUse() const;

    // Numbered cells cost no bytes: they read as a number in decimal digits, worked out when
    // read. Cells [from, to) of a column of `cells` cells read as their own index plus `delta`;
    // the others, and cells at kNoNumber in `table`, read as empty texts until written. A
    // numbered cell's bytes stay valid for the next 255 reads of numbered cells on the thread,
    // which is enough for every cell of a row at once. Writes go to the one cell; appending or
    // many writes turn the column into stored text first.
    static constexpr std::uint32_t kNoNumber = 0xFFFFFFFFu;
    static TextColumn numbered(qsizetype cells, qsizetype from, qsizetype to, qint64 delta);
    // Cell i reads table[i]; the column has table.size() cells.
    static TextColumn numbered(std::vector<std::uint32_t> table);
    // From here on, the cells that resize() adds read as their index plus `delta`, until
    // endCounting(); the cells there already keep their texts.
    void startCounting(qint64 delta);
    void endCounting();
    bool isCounting() const { return m_numbers && m_numbers->counting; }

private:
    struct Location {
        std::uint32_t begin;
        std::uint32_t length;
        std::uint32_t nextLengthPos; // just past the cell's length
    };

public:
    // Reads cells of an unchanging column in rising order: a read of the cell after the one
    // read before takes one length instead of a walk from the start of its block.
    class Reader final {
    public:
        explicit Reader(const TextColumn &column) : m_column(column) {}
        QByteArrayView utf8(qsizetype i);

    private:
        const TextColumn &m_column;
        qsizetype m_last = -2;
        Location m_at{};
    };

    // Reads the cells rowOf(0), rowOf(1), ... rowOf(n - 1) of an unchanging column and hands
    // each to fn(k, bytes), in that order. Cells scattered over a large column each wait for
    // memory three times (their block start, their lengths, their bytes), so the reads run as
    // a pipeline: while cell k is read, the bytes of cell k + kAhead are already being fetched,
    // from `offset` into the cell on, and so are the lengths and block starts of the cells
    // beyond; a cell that follows the one before it in the column is found from it, as the
    // Reader does. rowOf(k) is asked kAhead * 3 places ahead of fn(k). An fn that returns a
    // bool ends the reads when it returns false.
    static constexpr qsizetype kAhead = 8;
    template <typename RowOf, typename Fn> void readScattered(qsizetype n, RowOf rowOf, qsizetype offset, Fn fn) const;

private:
    static constexpr qsizetype kBlock = 32;
    static constexpr std::uint64_t kMaxBytes = 0xFFFFFFFFull;
    struct Edit {
        QByteArray bytes;
        bool null = false;
    };
    // Where a block's cells start: in the byte buffer and in the length stream.
    struct Block {
        std::uint32_t byteStart;
        std::uint32_t lengthPos;
    };
    struct Store {
        ByteBuffer bytes;
        ByteBuffer lengths;        // varints, 7 bits a byte, low group first
        std::vector<Block> blocks; // one per kBlock cells
        qsizetype count = 0;
        std::vector<bool> nulls; // empty while no cell is null
        // Cells [listed, count) all have `width` bytes from byte `tailStart` on and are not in
        // the length stream yet: a run of cells of one length (dates, fixed codes) costs no
        // length bytes or block starts until a cell of another length follows it.
        qsizetype listed = 0;
        std::uint32_t tailStart = 0;
        std::uint32_t width = 0;

        void appendBytes(const char *data, std::size_t n)
        {
            if (bytes.size() + n > kMaxBytes)
                throw std::length_error("column holds more than 4 GiB of text");
            if (count == listed || n != width) {
                listTail();
                width = static_cast<std::uint32_t>(n);
                tailStart = static_cast<std::uint32_t>(bytes.size());
            }
            bytes.append(data, n);
            ++count;
        }
        // Puts the run of equal lengths into the length stream: one varint repeated, and a block
        // start for each block that begins inside the run. A run of millions of cells (a key
        // column until its numbers gain a digit) is a fill, not a loop over its cells.
        void listTail()
        {
            const qsizetype cells = count - listed;
            if (cells > 0) {
                char code[5];
                std::size_t codeBytes = 0;
                std::uint32_t length = width;
                for (; length >= 0x80; length >>= 7)
                    code[codeBytes++] = static_cast<char>(length | 0x80);
                code[codeBytes++] = static_cast<char>(length);
                const std::size_t firstPos = lengths.size();
                char *to = lengths.extend(static_cast<std::size_t>(cells) * codeBytes);
                if (codeBytes == 1) {
                    std::memset(to, code[0], static_cast<std::size_t>(cells));
                } else {
                    for (qsizetype k = 0; k < cells; ++k)
                        std::memcpy(to + static_cast<std::size_t>(k) * codeBytes, code, codeBytes);
                }
                for (qsizetype k = (listed + kBlock - 1) / kBlock * kBlock; k < count; k += kBlock)
                    blocks.push_back(Block{tailStart + static_cast<std::uint32_t>((k - listed) * width),
                                           static_cast<std::uint32_t>(firstPos + std::size_t(k - listed) * codeBytes)});
            }
            listed = count;
        }
    };

    static const Store &emptyStore();
    const Store &store() const { return m_store ? *m_store : emptyStore(); }
    // The storage, made this column's own before a change.
    Store &writable()
    {
        if (m_numbers)
            materialize();
        if (!m_store || m_store.use_count() > 1)
            detach();
        return *m_store;
    }
    void detach();
    void ensureNullFlags();
    Location locate(qsizetype i) const;
    static Location next(const Store &s, const Location &at);
    // Empty cells read as an empty text, not a null one, even before the buffer exists.
    QByteArrayView stored(const Location &at) const
    {
        const char *bytes = store().bytes.data();
        return bytes ? QByteArrayView(bytes + at.begin, at.length) : QByteArrayView("", 0);
    }
    const Edit *editOf(qsizetype i) const;

    struct Numbers {
        qsizetype count = 0;
        qsizetype from = 0;
        qsizetype to = 0;
        qint64 delta = 0;
        bool counting = false;
        std::shared_ptr<const std::vector<std::uint32_t>> table;
    };
    QByteArrayView numberAt(qsizetype i) const;
    // Turns numbered cells into stored text, edits included.
    void materialize();

    std::shared_ptr<Store> m_store;
    std::unordered_map<std::uint32_t, Edit> m_edits;
    // Numbers held by value beside a flag, where std::optional's union storage gets GCC 12 to warn
    // of members read uninitialized when a column is moved (a known false alarm at -O1).
    class MaybeNumbers final {
    public:
        explicit operator bool() const { return m_set; }
        Numbers *operator->() { return &m_value; }
        const Numbers *operator->() const { return &m_value; }
        Numbers &operator*() { return m_value; }
        const Numbers &operator*() const { return m_value; }
        MaybeNumbers &operator=(Numbers value)
        {
            m_value = std::move(value);
            m_set = true;
            return *this;
        }
        void reset()
        {
            m_value = Numbers{};
            m_set = false;
        }

    private:
        Numbers m_value;
        bool m_set = false;
    };
    MaybeNumbers m_numbers; // set while the cells are numbered
};

template <typename RowOf, typename Fn>
void TextColumn::readScattered(qsizetype n, RowOf rowOf, qsizetype offset, Fn fn) const
{
    if (m_numbers || !m_edits.empty() || !m_store) {
        for (qsizetype k = 0; k < n; ++k)
            fn(k, utf8(rowOf(k)));
        return;
    }
    const Store &s = *m_store;
    const char *const bytes = s.bytes.data();
    const char *const lengths = s.lengths.data();
    constexpr qsizetype kRing = 4 * kAhead; // holds the cells between the first stage and the last
    qsizetype rows[kRing];
    Location at[kRing];
    for (qsizetype k = -3 * kAhead; k < n; ++k) {
        if (const qsizetype j = k + 3 * kAhead; j < n) {
            const qsizetype row = rowOf(j);
            rows[j % kRing] = row;
            if (row < s.listed)
                prefetch(&s.blocks[static_cast<std::size_t>(row / kBlock)]);
        }
        if (const qsizetype j = k + 2 * kAhead; j >= 0 && j < n) {
            const qsizetype row = rows[j % kRing];
            if (row < s.listed) {
                const Block &block = s.blocks[static_cast<std::size_t>(row / kBlock)];
                prefetch(lengths + block.lengthPos);
                prefetch(lengths + block.lengthPos + row % kBlock);
            }
        }
        if (const qsizetype j = k + kAhead; j >= 0 && j < n) {
            const qsizetype row = rows[j % kRing];
            const bool follows = j > 0 && row == rows[(j - 1) % kRing] + 1 && row < s.listed;
            const Location &where = at[j % kRing] = follows ? next(s, at[(j - 1) % kRing]) : locate(row);
            if (bytes && offset < where.length)
                prefetch(bytes + where.begin + offset);
        }
        if (k >= 0) {
            if constexpr (std::is_same_v<decltype(fn(k, QByteArrayView())), bool>) {
                if (!fn(k, stored(at[k % kRing])))
                    return;
            } else {
                fn(k, stored(at[k % kRing]));
            }
        }
    }
}

} // namespace tabulon
