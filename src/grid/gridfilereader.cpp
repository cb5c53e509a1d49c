// Reading the grid file form (byte layout in gridfile.h) through a fixed-size buffer, one row
// at a time, checking every length, count and the checksum against the file's end.
#include "grid/gridfile.h"
#include "grid/gridfileform.h"

#include <QFile>

#include <zlib.h>

#include <algorithm>
#include <limits>
#include <new>

namespace tabulon {

using namespace gridfileform;

namespace detail {

struct GridFileReaderState final {
    GridFileReaderState(const QString &path) : file(path), path(path) {}

    // Bytes of the file not consumed yet.
    qint64 remaining() const { return unread + (buffer.size() - pos); }

    bool peek(qsizetype n, QByteArrayView *out)
    {
        if (!fill(n))
            return false;
        *out = QByteArrayView(buffer.constData() + pos, n);
        return true;
    }
    bool read(qsizetype n, QByteArrayView *out)
    {
        if (!peek(n, out))
            return false;
        pos += n;
        return true;
    }
    bool readU32(std::uint32_t *v)
    {
        QByteArrayView b;
        if (!read(4, &b))
            return false;
        const auto u = [&b](int i) { return static_cast<std::uint32_t>(static_cast<unsigned char>(b[i])); };
        *v = u(0) | (u(1) << 8) | (u(2) << 16) | (u(3) << 24);
        return true;
    }
    // false with *malformed set when the bytes are not a varint of at most 32 bits.
    bool readVarint(std::uint32_t *v, bool *malformed)
    {
        *malformed = false;
        std::uint32_t value = 0;
        for (int i = 0; i < 5; ++i) {
            QByteArrayView b;
            if (!read(1, &b))
                return false;
            const auto byte = static_cast<unsigned char>(b[0]);
            if (i == 4 && byte > 0x0F) {
                *malformed = true;
                return false;
            }
            value |= static_cast<std::uint32_t>(byte & 0x7F) << (7 * i);
            if (!(byte & 0x80)) {
                *v = value;
                return true;
            }
        }
        *malformed = true;
        return false;
    }
    // CRC-32 of everything consumed so far.
    std::uint32_t consumedCrc()
    {
        crcConsumed();
        return static_cast<std::uint32_t>(crc);
    }

    bool fail(const QString &reason)
    {
        error = DbError::file(nativePath(path), reason);
        return false;
    }
    bool truncated() { return fail(tr("The grid file is truncated.")); }
    bool damaged() { return fail(tr("The grid file is damaged.")); }

    QFile file;
    QString path;
    qint64 unread = 0;
    QByteArray buffer;
    qsizetype pos = 0;
    qsizetype crcFrom = 0;
    uLong crc = crc32(0L, Z_NULL, 0);
    DbError error;
    int fixedRows = 0;
    int fixedCols = 0;
    int cols = 0;
    qint64 rows = 0;
    bool atEnd = false;
    std::vector<QByteArray> row;

private:
    void crcConsumed()
    {
        if (pos > crcFrom)
            crc = crc32(crc, reinterpret_cast<const Bytef *>(buffer.constData() + crcFrom),
                        static_cast<uInt>(pos - crcFrom));
        crcFrom = pos;
    }
    bool fill(qsizetype need)
    {
        if (buffer.size() - pos >= need)
            return true;
        if (need > remaining())
            return false;
        crcConsumed();
        buffer.remove(0, pos);
        pos = crcFrom = 0;
        while (buffer.size() < need) {
            const qsizetype want = std::max<qsizetype>(need - buffer.size(), kChunk);
            const qsizetype old = buffer.size();
            buffer.resize(old + want);
            const qint64 got = file.read(buffer.data() + old, want);
            buffer.resize(old + std::max<qint64>(got, 0));
            if (got <= 0)
                return false;
            unread -= got;
        }
        return true;
    }
};

} // namespace detail

// ---- Reader ----

GridFileReader::GridFileReader() = default;
GridFileReader::~GridFileReader() = default;

DbError GridFileReader::open(const QString &path)
{
    m_state = std::make_unique<detail::GridFileReaderState>(path);
    auto &s = *m_state;
    if (!s.file.open(QIODevice::ReadOnly)) {
        s.error = DbError::file(nativePath(path), s.file.errorString());
        s.atEnd = true;
        return s.error;
    }
    s.unread = s.file.size();
    const auto failed = [&s] {
        s.atEnd = true;
        return s.error;
    };
    if (s.unread == 0) {
        s.fail(tr("The file is empty, it holds no grid."));
        return failed();
    }

    const qsizetype look = static_cast<qsizetype>(std::min<qint64>(s.remaining(), kMaxMagicLine));
    QByteArrayView head;
    s.peek(look, &head);
    if (!head.startsWith(kMagicPrefix)) {
        s.fail(tr("The file is not a grid file."));
        return failed();
    }
    const qsizetype newline = head.indexOf('\n');
    const QByteArrayView number =
        newline < 0 ? QByteArrayView() : head.sliced(kMagicPrefix.size(), newline - kMagicPrefix.size());
    bool numeric = !number.isEmpty() && number.size() <= 9;
    for (const char c : number)
        numeric = numeric && c >= '0' && c <= '9';
    if (!numeric) {
        s.fail(newline < 0 && look < kMaxMagicLine ? tr("The grid file is truncated.")
                                                   : tr("The file is not a grid file."));
        return failed();
    }
    const int version = QByteArray(number.data(), number.size()).toInt();
    if (version > GridFile::kVersion) {
        s.fail(tr("The grid file was written by a newer version of Tabulon (form %1; this version reads form %2).")
                   .arg(version)
                   .arg(GridFile::kVersion));
        return failed();
    }
    if (version != GridFile::kVersion) {
        s.fail(tr("The grid file has an unknown form (%1).").arg(version));
        return failed();
    }
    s.read(newline + 1, &head);

    std::uint32_t fixedRows = 0, fixedCols = 0, cols = 0;
    if (!s.readU32(&fixedRows) || !s.readU32(&fixedCols) || !s.readU32(&cols)) {
        s.truncated();
        return failed();
    }
    if (fixedRows > 1 || fixedCols > 1 || cols > kMaxCols) {
        s.damaged();
        return failed();
    }
    s.fixedRows = static_cast<int>(fixedRows);
    s.fixedCols = static_cast<int>(fixedCols);
    s.cols = static_cast<int>(cols);
    s.row.resize(cols);
    return {};
}

int GridFileReader::fixedRows() const
{
    return m_state ? m_state->fixedRows : 0;
}

int GridFileReader::fixedCols() const
{
    return m_state ? m_state->fixedCols : 0;
}

int GridFileReader::cols() const
{
    return m_state ? m_state->cols : 0;
}

const std::vector<QByteArray> &GridFileReader::row() const
{
    static const std::vector<QByteArray> none;
    return m_state ? m_state->row : none;
}

DbError GridFileReader::error() const
{
    return m_state ? m_state->error : DbError::generic(tr("The grid file is not open."));
}

bool GridFileReader::next()
{
    if (!m_state || m_state->atEnd)
        return false;
    auto &s = *m_state;
    const auto stop = [&s](bool ok) {
        if (!ok)
            s.atEnd = true;
        return ok;
    };
    QByteArrayView tag;
    if (!s.read(1, &tag))
        return stop(s.truncated());
    if (tag[0] == kRowTag) {
        // Every remaining cell takes at least one byte and the trailer follows.
        if (qint64(s.cols) + kTrailer > s.remaining())
            return stop(s.truncated());
        for (int c = 0; c < s.cols; ++c) {
            std::uint32_t length = 0;
            bool malformed = false;
            if (!s.readVarint(&length, &malformed))
                return stop(malformed ? s.damaged() : s.truncated());
            if (qint64(length) + qint64(s.cols - c - 1) + kTrailer > s.remaining())
                return stop(s.truncated());
            QByteArrayView bytes;
            if (!s.read(length, &bytes))
                return stop(s.truncated());
            QByteArray &cell = s.row[static_cast<size_t>(c)];
            cell.resize(bytes.size());
            std::copy(bytes.begin(), bytes.end(), cell.begin());
        }
        ++s.rows;
        return true;
    }
    if (tag[0] != kEndTag)
        return stop(s.damaged());

    s.atEnd = true;
    std::uint32_t rows = 0;
    QByteArrayView marker;
    if (!s.readU32(&rows) || !s.read(kEndMarker.size(), &marker))
        return stop(s.truncated());
    if (marker != kEndMarker || rows != static_cast<std::uint32_t>(s.rows))
        return stop(s.damaged());
    const std::uint32_t computed = s.consumedCrc();
    std::uint32_t stored = 0;
    if (!s.readU32(&stored))
        return stop(s.truncated());
    if (stored != computed)
        return stop(s.fail(tr("The grid file is damaged (checksum mismatch).")));
    if (s.remaining() != 0)
        return stop(s.fail(tr("The grid file is damaged (unexpected data after its end).")));
    return false;
}

DbError GridFileReader::verify(const QString &path, qint64 *rows)
{
    GridFileReader reader;
    if (DbError error = reader.open(path))
        return error;
    while (reader.next()) {
    }
    if (rows)
        *rows = reader.m_state->rows;
    return reader.error();
}

} // namespace tabulon
