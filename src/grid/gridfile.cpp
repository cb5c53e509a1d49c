// The grid file form, byte layout in gridfile.h. Both directions stream through a fixed-size
// buffer so a million-row grid is never held twice in memory.
#include "grid/gridfile.h"

#include "grid/griddata.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSaveFile>

#include <zlib.h>

#include <limits>
#include <stdexcept>

namespace tabulon {

namespace {

const QByteArray kMagicPrefix = QByteArrayLiteral("TABULON-GRID ");
const QByteArray kEndMarker = QByteArrayLiteral("END\n");
constexpr qsizetype kChunk = 256 * 1024;
// Longest magic line we look at before calling a file foreign.
constexpr qsizetype kMaxMagicLine = 32;

QString tr(const char *text)
{
    return QCoreApplication::translate("tabulon::GridFile", text);
}

void setError(QString *error, const QString &text)
{
    if (error)
        *error = text;
}

class Writer final {
public:
    explicit Writer(QIODevice &device) : m_device(device) { m_buffer.reserve(kChunk + 16); }

    void put(QByteArrayView bytes)
    {
        if (m_buffer.size() + bytes.size() > kChunk)
            flush();
        if (bytes.size() > kChunk)
            writeOut(bytes);
        else
            m_buffer.append(bytes);
    }
    void putU32(std::uint32_t v)
    {
        const char bytes[4] = {char(v & 0xFF), char((v >> 8) & 0xFF), char((v >> 16) & 0xFF), char(v >> 24)};
        put(QByteArrayView(bytes, 4));
    }
    void putVarint(std::uint32_t v)
    {
        char bytes[5];
        int n = 0;
        while (v >= 0x80) {
            bytes[n++] = char((v & 0x7F) | 0x80);
            v >>= 7;
        }
        bytes[n++] = char(v);
        put(QByteArrayView(bytes, n));
    }
    void flush()
    {
        if (!m_buffer.isEmpty()) {
            writeOut(m_buffer);
            m_buffer.clear();
        }
    }
    std::uint32_t crc() const { return static_cast<std::uint32_t>(m_crc); }
    bool ok() const { return m_ok; }

private:
    void writeOut(QByteArrayView bytes)
    {
        m_crc = crc32(m_crc, reinterpret_cast<const Bytef *>(bytes.data()), static_cast<uInt>(bytes.size()));
        if (m_ok && m_device.write(bytes.data(), bytes.size()) != bytes.size())
            m_ok = false;
    }

    QIODevice &m_device;
    QByteArray m_buffer;
    uLong m_crc = crc32(0L, Z_NULL, 0);
    bool m_ok = true;
};

class Reader final {
public:
    Reader(QIODevice &device, qint64 size) : m_device(device), m_unread(size) {}

    // Bytes of the file not consumed yet.
    qint64 remaining() const { return m_unread + (m_buffer.size() - m_pos); }

    bool peek(qsizetype n, QByteArrayView *out)
    {
        if (!fill(n))
            return false;
        *out = QByteArrayView(m_buffer.constData() + m_pos, n);
        return true;
    }
    bool read(qsizetype n, QByteArrayView *out)
    {
        if (!peek(n, out))
            return false;
        m_pos += n;
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
    std::uint32_t crc()
    {
        crcConsumed();
        return static_cast<std::uint32_t>(m_crc);
    }

private:
    void crcConsumed()
    {
        if (m_pos > m_crcFrom)
            m_crc = crc32(m_crc, reinterpret_cast<const Bytef *>(m_buffer.constData() + m_crcFrom),
                          static_cast<uInt>(m_pos - m_crcFrom));
        m_crcFrom = m_pos;
    }
    bool fill(qsizetype need)
    {
        if (m_buffer.size() - m_pos >= need)
            return true;
        if (need > remaining())
            return false;
        crcConsumed();
        m_buffer.remove(0, m_pos);
        m_pos = m_crcFrom = 0;
        while (m_buffer.size() < need) {
            const qsizetype want = std::max<qsizetype>(need - m_buffer.size(), kChunk);
            const qsizetype old = m_buffer.size();
            m_buffer.resize(old + want);
            const qint64 got = m_device.read(m_buffer.data() + old, want);
            m_buffer.resize(old + std::max<qint64>(got, 0));
            if (got <= 0)
                return false;
            m_unread -= got;
        }
        return true;
    }

    QIODevice &m_device;
    qint64 m_unread;
    QByteArray m_buffer;
    qsizetype m_pos = 0;
    qsizetype m_crcFrom = 0;
    uLong m_crc = crc32(0L, Z_NULL, 0);
};

QString truncatedText()
{
    return tr("The grid file is truncated.");
}

QString damagedText()
{
    return tr("The grid file is damaged.");
}

// Reads the magic line; on failure the error says whether the file is foreign or newer.
bool readMagic(Reader &in, QString *error)
{
    const qsizetype look = static_cast<qsizetype>(std::min<qint64>(in.remaining(), kMaxMagicLine));
    QByteArrayView head;
    in.peek(look, &head);
    if (!head.startsWith(kMagicPrefix)) {
        setError(error, tr("The file is not a grid file."));
        return false;
    }
    const qsizetype newline = head.indexOf('\n');
    const QByteArrayView number =
        newline < 0 ? QByteArrayView() : head.sliced(kMagicPrefix.size(), newline - kMagicPrefix.size());
    bool numeric = !number.isEmpty() && number.size() <= 9;
    for (const char c : number)
        numeric = numeric && c >= '0' && c <= '9';
    if (!numeric) {
        setError(error, newline < 0 && look < kMaxMagicLine ? truncatedText() : tr("The file is not a grid file."));
        return false;
    }
    const int version = QByteArray(number.data(), number.size()).toInt();
    if (version > GridFile::kVersion) {
        setError(error,
                 tr("The grid file was written by a newer version of Tabulon (form %1; this version reads form %2).")
                     .arg(version)
                     .arg(GridFile::kVersion));
        return false;
    }
    if (version != GridFile::kVersion) {
        setError(error, tr("The grid file has an unknown form (%1).").arg(version));
        return false;
    }
    in.read(newline + 1, &head);
    return true;
}

bool readGrid(Reader &in, GridData *grid, QString *error)
{
    if (!readMagic(in, error))
        return false;
    std::uint32_t fixedRows = 0, fixedCols = 0, rows = 0, cols = 0;
    if (!in.readU32(&fixedRows) || !in.readU32(&fixedCols) || !in.readU32(&rows) || !in.readU32(&cols)) {
        setError(error, truncatedText());
        return false;
    }
    constexpr auto kMaxCount = static_cast<std::uint32_t>(std::numeric_limits<int>::max());
    if (fixedRows > 1 || fixedCols > 1 || rows > kMaxCount || cols > kMaxCount) {
        setError(error, damagedText());
        return false;
    }
    const qint64 trailer = kEndMarker.size() + 4;
    // Every cell takes at least one byte, which bounds what the counts may claim before
    // anything is allocated for them.
    const quint64 cells = quint64(rows) * quint64(cols);
    if (cells > quint64(std::max<qint64>(in.remaining() - trailer, 0))) {
        setError(error,
                 tr("The grid file is truncated or damaged (its size does not match its row and column counts)."));
        return false;
    }

    std::vector<TextColumn> columns(cols);
    quint64 cellsLeft = cells;
    for (auto &column : columns) {
        column.reserve(rows);
        for (std::uint32_t r = 0; r < rows; ++r) {
            std::uint32_t length = 0;
            bool malformed = false;
            if (!in.readVarint(&length, &malformed)) {
                setError(error, malformed ? damagedText() : truncatedText());
                return false;
            }
            --cellsLeft;
            if (quint64(length) + cellsLeft + quint64(trailer) > quint64(in.remaining())) {
                setError(error, truncatedText());
                return false;
            }
            QByteArrayView bytes;
            if (!in.read(length, &bytes)) {
                setError(error, truncatedText());
                return false;
            }
            column.append(bytes);
        }
        column.squeeze();
    }

    QByteArrayView marker;
    if (!in.read(kEndMarker.size(), &marker)) {
        setError(error, truncatedText());
        return false;
    }
    if (marker != kEndMarker) {
        setError(error, damagedText());
        return false;
    }
    const std::uint32_t computed = in.crc();
    std::uint32_t stored = 0;
    if (!in.readU32(&stored)) {
        setError(error, truncatedText());
        return false;
    }
    if (stored != computed) {
        setError(error, tr("The grid file is damaged (checksum mismatch)."));
        return false;
    }
    if (in.remaining() != 0) {
        setError(error, tr("The grid file is damaged (unexpected data after its end)."));
        return false;
    }
    *grid = GridData::fromColumns(std::move(columns), static_cast<int>(rows), static_cast<int>(fixedRows),
                                  static_cast<int>(fixedCols));
    return true;
}

} // namespace

bool GridFile::save(const GridData &grid, const QString &path, QString *error)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        setError(error, tr("Cannot write %1: %2").arg(QDir::toNativeSeparators(path), file.errorString()));
        return false;
    }
    Writer out(file);
    out.put(kMagicPrefix);
    out.put(QByteArray::number(kVersion));
    out.put("\n");
    out.putU32(static_cast<std::uint32_t>(grid.fixedRows()));
    out.putU32(static_cast<std::uint32_t>(grid.fixedCols()));
    out.putU32(static_cast<std::uint32_t>(grid.rows()));
    out.putU32(static_cast<std::uint32_t>(grid.cols()));
    for (int c = 0; c < grid.cols(); ++c) {
        for (int r = 0; r < grid.rows(); ++r) {
            const QByteArrayView bytes = grid.utf8(r, c);
            out.putVarint(static_cast<std::uint32_t>(bytes.size()));
            out.put(bytes);
        }
        if (!out.ok())
            break;
    }
    out.put(kEndMarker);
    out.flush();
    const std::uint32_t crc = out.crc();
    out.putU32(crc);
    out.flush();
    if (!out.ok() || !file.commit()) {
        setError(error, tr("Cannot write %1: %2").arg(QDir::toNativeSeparators(path), file.errorString()));
        file.cancelWriting();
        return false;
    }
    return true;
}

bool GridFile::load(const QString &path, GridData *grid, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        setError(error, tr("Cannot open %1: %2").arg(QDir::toNativeSeparators(path), file.errorString()));
        return false;
    }
    const qint64 size = file.size();
    if (size == 0) {
        setError(error, tr("The file is empty, it holds no grid."));
        return false;
    }
    Reader in(file, size);
    try {
        return readGrid(in, grid, error);
    } catch (const std::length_error &) {
        setError(error, tr("The grid file holds more text in one column than a grid can keep."));
    } catch (const std::bad_alloc &) {
        setError(error, tr("Not enough memory to load the grid file."));
    }
    return false;
}

} // namespace tabulon
