// The grid file form, byte layout in gridfile.h. Both directions go through a fixed-size
// buffer and hold one row at a time, so a file's size never shows in memory.
#include "grid/gridfile.h"

#include "grid/griddata.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QStringList>

#include <zlib.h>

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>

namespace tabulon {

namespace {

const QByteArray kMagicPrefix = QByteArrayLiteral("TABULON-GRID ");
const QByteArray kEndMarker = QByteArrayLiteral("END\n");
constexpr char kRowTag = '\x01';
constexpr char kEndTag = '\x00';
constexpr qsizetype kChunk = 256 * 1024;
// Longest magic line we look at before calling a file foreign.
constexpr qsizetype kMaxMagicLine = 32;
// Far more columns than any table can have; a count above it is damage, not a grid.
constexpr std::uint32_t kMaxCols = 1u << 16;
// What follows the last row: end tag, row count, marker, checksum.
const qint64 kTrailer = 1 + 4 + kEndMarker.size() + 4;

QString tr(const char *text)
{
    return QCoreApplication::translate("tabulon::GridFile", text);
}

QString nativePath(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

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
        if (!error && file.write(bytes.data(), bytes.size()) != bytes.size())
            error = DbError::file(nativePath(path), file.errorString());
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
    if (!s.file.open(QIODevice::WriteOnly)) {
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

// ---- Whole grids ----

DbError GridFile::save(const GridData &grid, const QString &path)
{
    GridFileWriter out;
    if (DbError error = out.open(path, grid.fixedRows(), grid.fixedCols(), grid.cols()))
        return error;
    std::vector<QByteArrayView> cells(static_cast<size_t>(grid.cols()));
    for (int r = 0; r < grid.rows(); ++r) {
        for (int c = 0; c < grid.cols(); ++c)
            cells[static_cast<size_t>(c)] = grid.utf8(r, c);
        if (DbError error = out.writeRow(cells))
            return error;
    }
    return out.commit();
}

DbError GridFile::load(const QString &path, GridData *grid)
{
    GridFileReader in;
    if (DbError error = in.open(path))
        return error;
    try {
        std::vector<TextColumn> columns(static_cast<size_t>(in.cols()));
        qint64 rows = 0;
        while (in.next()) {
            if (rows == std::numeric_limits<int>::max())
                return DbError::file(nativePath(path), tr("The grid file holds more rows than a grid can keep."));
            const auto &row = in.row();
            for (size_t c = 0; c < columns.size(); ++c)
                columns[c].append(QByteArrayView(row[c]));
            ++rows;
        }
        if (DbError error = in.error())
            return error;
        *grid = GridData::fromColumns(std::move(columns), static_cast<int>(rows), in.fixedRows(), in.fixedCols());
    } catch (const std::length_error &) {
        return DbError::file(nativePath(path), tr("The grid file holds more text in one column than a grid can keep."));
    } catch (const std::bad_alloc &) {
        return DbError::file(nativePath(path), tr("Not enough memory to load the grid file."));
    }
    return {};
}

} // namespace tabulon
