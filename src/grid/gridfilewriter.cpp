// Writing the grid file form (byte layout in gridfile.h) through a fixed-size buffer, one row
// at a time, so a file's size never shows in memory.
#include "grid/gridfile.h"
#include "grid/gridfileform.h"

#include <QSaveFile>
#include <QStringList>

#include <zlib.h>

#include <cstring>

namespace tabulon {

using namespace gridfileform;

namespace {

void appendU32(QByteArray &out, std::uint32_t v)
{
    const char bytes[4] = {static_cast<char>(v & 0xFF), static_cast<char>((v >> 8) & 0xFF),
                           static_cast<char>((v >> 16) & 0xFF), static_cast<char>(v >> 24)};
    out.append(bytes, 4);
}

// The longest varint: 32 bits in groups of 7.
constexpr qsizetype kVarintBytes = 5;

} // namespace

namespace detail {

// Rows go straight into one chunk-sized buffer, which is written out (or handed to the sink)
// whole when the next bytes would not fit.
struct GridFileWriterState final {
    GridFileWriterState(const QString &path, GridFileSink *sink) : file(path), path(path), sink(sink) { renew(); }

    void renew()
    {
        buffer = QByteArray(kChunk, Qt::Uninitialized);
        at = buffer.data();
        used = 0;
    }
    void put(QByteArrayView bytes)
    {
        if (used + bytes.size() > kChunk)
            flush();
        if (bytes.size() > kChunk) {
            writeOut(bytes);
            return;
        }
        if (!bytes.isEmpty())
            std::memcpy(at + used, bytes.data(), static_cast<size_t>(bytes.size()));
        used += bytes.size();
    }
    void putByte(char byte)
    {
        if (used == kChunk)
            flush();
        at[used++] = byte;
    }
    void putVarint(std::uint32_t v)
    {
        if (used + kVarintBytes > kChunk)
            flush();
        while (v >= 0x80) {
            at[used++] = static_cast<char>((v & 0x7F) | 0x80);
            v >>= 7;
        }
        at[used++] = static_cast<char>(v);
    }
    void flush()
    {
        if (used == 0)
            return;
        if (sink) {
            // The filled buffer itself goes to the sink; the next bytes start a new one.
            QByteArray chunk = std::move(buffer);
            chunk.truncate(used);
            renew();
            give(std::move(chunk));
        } else {
            writeOut(QByteArrayView(at, used));
            used = 0;
        }
    }
    void give(QByteArray chunk)
    {
        crc = crc32(crc, reinterpret_cast<const Bytef *>(chunk.constData()), static_cast<uInt>(chunk.size()));
        if (!error)
            error = sink->take(std::move(chunk));
    }
    void writeOut(QByteArrayView bytes)
    {
        if (sink) {
            give(bytes.toByteArray());
            return;
        }
        crc = crc32(crc, reinterpret_cast<const Bytef *>(bytes.data()), static_cast<uInt>(bytes.size()));
        // A full disk first shows as a short write with no reason; writing the rest then fails
        // with the system's reason ("No space left on device").
        for (qsizetype done = 0; !error && done < bytes.size();) {
            const qint64 written = file.write(bytes.data() + done, bytes.size() - done);
            if (written <= 0)
                error = DbError::file(nativePath(path), file.errorString());
            else
                done += written;
        }
    }

    QSaveFile file;
    QString path;
    GridFileSink *sink = nullptr;
    QByteArray buffer;
    char *at = nullptr; // the buffer's bytes
    qsizetype used = 0;
    uLong crc = crc32(0L, Z_NULL, 0);
    DbError error;
    int cols = 0;
    qint64 rows = 0;
    bool open = false;
};

} // namespace detail

// ---- Writer ----

GridFileWriter::GridFileWriter() = default;

GridFileWriter::~GridFileWriter()
{
    cancel();
}

DbError GridFileWriter::open(const QString &path, int fixedRows, int fixedCols, int cols)
{
    cancel();
    m_state = std::make_unique<detail::GridFileWriterState>(path, nullptr);
    auto &s = *m_state;
    // Unbuffered: the rows are gathered in chunks here already, and a write the disk refuses
    // fails in writeOut() with the system's reason rather than later in commit(), where
    // closing the file has cleared the reason to "Unknown error".
    if (!s.file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        DbError error = DbError::file(nativePath(path), s.file.errorString());
        m_state.reset();
        return error;
    }
    return start(fixedRows, fixedCols, cols);
}

DbError GridFileWriter::open(GridFileSink &sink, int fixedRows, int fixedCols, int cols)
{
    cancel();
    m_state = std::make_unique<detail::GridFileWriterState>(QString(), &sink);
    return start(fixedRows, fixedCols, cols);
}

DbError GridFileWriter::start(int fixedRows, int fixedCols, int cols)
{
    auto &s = *m_state;
    s.open = true;
    s.cols = std::max(cols, 0);
    QByteArray head = kMagicPrefix + QByteArray::number(GridFile::kVersion) + '\n';
    appendU32(head, fixedRows > 0 ? 1 : 0);
    appendU32(head, fixedCols > 0 ? 1 : 0);
    appendU32(head, static_cast<std::uint32_t>(s.cols));
    s.put(head);
    return s.error;
}

DbError GridFileWriter::writeRow(std::span<const QByteArrayView> cells)
{
    if (!m_state || !m_state->open)
        return DbError::generic(tr("The grid file is not open for writing."));
    auto &s = *m_state;
    if (s.error)
        return s.error;
    s.putByte(kRowTag);
    const size_t given = cells.size();
    for (size_t c = 0; c < static_cast<size_t>(s.cols); ++c) {
        const QByteArrayView cell = c < given ? cells[c] : QByteArrayView();
        s.putVarint(static_cast<std::uint32_t>(cell.size()));
        s.put(cell);
    }
    ++s.rows;
    return s.error;
}

DbError GridFileWriter::writeRow(const QStringList &cells)
{
    std::vector<QByteArray> bytes;
    bytes.reserve(static_cast<size_t>(cells.size()));
    for (const QString &cell : cells)
        bytes.push_back(cell.toUtf8());
    const std::vector<QByteArrayView> views(bytes.begin(), bytes.end());
    return writeRow(std::span<const QByteArrayView>(views));
}

DbError GridFileWriter::commit()
{
    if (!m_state || !m_state->open)
        return DbError::generic(tr("The grid file is not open for writing."));
    auto &s = *m_state;
    if (!s.error) {
        QByteArray tail(1, kEndTag);
        appendU32(tail, static_cast<std::uint32_t>(s.rows));
        tail += kEndMarker;
        s.put(tail);
        s.flush();
        QByteArray crc;
        appendU32(crc, static_cast<std::uint32_t>(s.crc));
        s.put(crc);
        s.flush();
    }
    if (s.sink) {
        if (!s.error)
            s.error = s.sink->end(static_cast<quint32>(s.crc));
        if (s.error)
            s.sink->abandon();
    } else {
        if (!s.error && !s.file.commit())
            s.error = DbError::file(nativePath(s.path), s.file.errorString());
        if (s.error)
            s.file.cancelWriting();
    }
    DbError error = s.error;
    m_state.reset();
    return error;
}

void GridFileWriter::cancel()
{
    if (m_state && m_state->open) {
        if (m_state->sink)
            m_state->sink->abandon();
        else
            m_state->file.cancelWriting();
    }
    m_state.reset();
}

qint64 GridFileWriter::rows() const
{
    return m_state ? m_state->rows : 0;
}

} // namespace tabulon
