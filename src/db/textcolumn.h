// Compact storage for one column of texts: every cell's UTF-8 bytes in one buffer, each cell's
// length as a varint (one byte below 128), the start of every block of kBlock cells, null
// flags only when a null was stored, and a sparse set of cells that were changed after they
// were appended. Recordsets and the grid both keep their cells here; a million-row column of
// short texts costs its text plus about 1.5 bytes a cell.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace tabulon {

class TextColumn final {
public:
    qsizetype size() const { return m_count; }
    bool isEmpty() const { return m_count == 0; }

    void reserve(qsizetype cells, qsizetype bytes = 0);
    void clear();

    void append(QByteArrayView utf8);
    void append(const QString &text) { append(QByteArrayView(text.toUtf8())); }
    void appendNull();
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
    // Releases spare capacity after bulk loading.
    void squeeze();

    // Bytes held, for memory accounting.
    qsizetype memoryUse() const;

private:
    static constexpr qsizetype kBlock = 16;
    struct Edit {
        QByteArray bytes;
        bool null = false;
    };
    // Where a block's cells start: in the byte buffer and in the length stream.
    struct Block {
        std::uint32_t byteStart;
        std::uint32_t lengthPos;
    };
    struct Location {
        std::uint32_t begin;
        std::uint32_t length;
        std::uint32_t nextLengthPos; // just past the cell's length
    };
    bool hasNullFlags() const { return !m_nulls.empty(); }
    void ensureNullFlags();
    Location locate(qsizetype i) const;
    // Adds a cell's bytes and length, leaving the null flags to the caller.
    void appendBytes(QByteArrayView utf8);
    QByteArrayView stored(qsizetype i) const;

    QByteArray m_bytes;
    std::vector<std::uint8_t> m_lengths; // varints, 7 bits a byte, low group first
    std::vector<Block> m_blocks;         // one per kBlock cells
    qsizetype m_count = 0;
    std::vector<bool> m_nulls; // empty while no cell is null
    std::unordered_map<std::uint32_t, Edit> m_edits;
};

} // namespace tabulon
