// Writing the grid file form (byte layout in gridfile.h) through a fixed-size buffer, one row
// at a time, so a file's size never shows in memory.
#include "grid/gridfile.h"
#include "grid/gridfileform.h"

#include <QSaveFile>
#include <QStringList>

#include <zlib.h>

namespace tabulon {

using namespace gridfileform;

namespace {

void appendU32(QByteArray &out, std::uint32_t v)
{
    const char bytes[4] = {static_cast<char>(v & 0xFF), static_cast<char>((v >> 8) & 0xFF),
                           static_cast<char>((v >> 16) & 0xFF), static_cast<char>(v >> 24)};
    out.append(bytes, 4);
}

void appendVarint(QByteArray &out, std::uint32_t v)
{
    while (v >= 0x80) {
        out.append(static_cast<char>((v & 0x7F) | 0x80));
        v >>= 7;
    }
    out.append(static_cast<char>(v));
}

} // namespace

namespace detail {

struct GridFileWriterState final {
    explicit GridFileWriterState(const QString &path) : file(path), path(path) { buffer.reserve(kChunk + 64); }

    void put(QByteArrayView bytes)
    {
        if (buffer.size() + bytes.size() > kChunk)
            flush();
        if (bytes.size() > kChunk)
            writeOut(bytes);
        else
            buffer.append(bytes);
    }
    void flush()
    {
        if (!buffer.isEmpty()) {
            writeOut(buffer);
            buffer.clear();
        }
    }
    void writeOut(QByteArrayView bytes)
    {
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
    QByteArray buffer;
    QByteArray scratch;
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
    m_state = std::make_unique<detail::GridFileWriterState>(path);
    auto &s = *m_state;
    // Unbuffered: the rows are gathered in chunks here already, and a write the disk refuses
    // fails in writeOut() with the system's reason rather than later in commit(), where
    // closing the file has cleared the reason to "Unknown error".
    if (!s.file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        DbError error = DbError::file(nativePath(path), s.file.errorString());
        m_state.reset();
        return error;
    }
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
    s.scratch.clear();
    s.scratch.append(kRowTag);
    for (int c = 0; c < s.cols; ++c) {
        const QByteArrayView cell =
            static_cast<size_t>(c) < cells.size() ? cells[static_cast<size_t>(c)] : QByteArrayView();
        appendVarint(s.scratch, static_cast<std::uint32_t>(cell.size()));
        if (s.scratch.size() + cell.size() > kChunk) {
            s.put(s.scratch);
            s.scratch.clear();
            s.put(cell);
        } else {
            s.scratch.append(cell);
        }
    }
    s.put(s.scratch);
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
    if (!s.error && !s.file.commit())
        s.error = DbError::file(nativePath(s.path), s.file.errorString());
    DbError error = s.error;
    if (error)
        s.file.cancelWriting();
    m_state.reset();
    return error;
}

void GridFileWriter::cancel()
{
    if (m_state && m_state->open)
        m_state->file.cancelWriting();
    m_state.reset();
}

qint64 GridFileWriter::rows() const
{
    return m_state ? m_state->rows : 0;
}

} // namespace tabulon
