// The safety copy file: magic, header length, JSON header and the CRC-32 of all three; a body of
// tagged records, a zlib stream or, with "body": "stored" in the header, the records as they are;
// the JSON trailer, its CRC-32, its length and an end mark. Records in the body:
//   'T' name create columns(count, then name and value form each)
//       triggers(count, then name, sql_mode and statement each)     a table starts
//   'R' one length-prefixed cell per column (0xFFFFFFFF: NULL)       a row
//   'E' row count                                                   the table ends
//   'F' name existed, then 'D' chunks and 'G'                       a file
//   'Z'                                                             the body ends
// A stored body has no stream checksum to lean on: after each 'E', 'G' and 'Z' it holds the
// CRC-32C of every body byte before it, so a file or table is checked whole before it is handed
// on to be put back.
#include "safety/safetycopy.h"

#include "safety/checksum.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryFile>
#include <QtEndian>

#include <zlib.h>

#include <cerrno>
#include <cstring>
#include <new>

#ifdef __linux__
#include <fcntl.h>
#include <unistd.h>
#endif

namespace tabulon {

namespace {

const QByteArray kMagic = QByteArrayLiteral("TABULON SAFETY COPY 2\n");
const QByteArray kEndMark = QByteArrayLiteral("SAFEEND\n");
const QString kStored = QStringLiteral("stored");
constexpr quint32 kNull = 0xFFFFFFFFu;
constexpr qsizetype kChunk = 256 * 1024;
constexpr qint64 kFooter = 16;            // trailer checksum, trailer length, end mark
constexpr qsizetype kStage = 1024 * 1024; // a stored copy goes out in blocks of this size
constexpr size_t kStageAlign = 4096;      // what direct writes ask of a block's address

quint32 crc(QByteArrayView bytes)
{
    return static_cast<quint32>(
        crc32(crc32(0L, Z_NULL, 0), reinterpret_cast<const Bytef *>(bytes.data()), static_cast<uInt>(bytes.size())));
}

void putU32(QByteArray &out, quint32 v)
{
    char b[4];
    qToLittleEndian(v, b);
    out.append(b, 4);
}

void putU64(QByteArray &out, quint64 v)
{
    char b[8];
    qToLittleEndian(v, b);
    out.append(b, 8);
}

void putBytes(QByteArray &out, QByteArrayView bytes)
{
    putU32(out, static_cast<quint32>(bytes.size()));
    out.append(bytes);
}

QJsonObject headerJson(const SafetyCopyInfo &info)
{
    QJsonObject o;
    o[QStringLiteral("time")] = info.time.toUTC().toString(Qt::ISODateWithMs);
    o[QStringLiteral("command")] = info.command;
    o[QStringLiteral("database")] = info.database;
    o[QStringLiteral("tables")] = QJsonArray::fromStringList(info.tables);
    o[QStringLiteral("kind")] =
        info.kind == SafetyCopyInfo::Kind::Files ? QStringLiteral("files") : QStringLiteral("tables");
    o[QStringLiteral("folder")] = info.folder;
    if (info.withoutCopy)
        o[QStringLiteral("withoutCopy")] = true;
    if (info.stored)
        o[QStringLiteral("body")] = kStored;
    return o;
}

DbError corrupt(const QString &path, const QString &why)
{
    return DbError::file(path, QStringLiteral("not a complete safety copy (%1)").arg(why));
}

} // namespace

// ---- Writing ----

struct SafetyCopyWriter::Impl final {
    std::unique_ptr<QTemporaryFile> file;
    QString path;
    z_stream z{};
    bool zOpen = false;
    bool stored = false;
    quint32 bodyCrc = 0; // of the stored body written so far
    QByteArray pending;  // body bytes not yet handed to zlib, or not yet written when stored
    QByteArray out;
    // A stored copy, tens of megabytes of table files, goes out in whole aligned blocks past the
    // system's file cache where the file system allows it: copying it into the cache cost the
    // program more processor time than everything else the copy does.
    struct FreeStage {
        void operator()(char *p) const { ::operator delete(p, std::align_val_t(kStageAlign)); }
    };
    std::unique_ptr<char, FreeStage> stage;
    qsizetype staged = 0;
    bool direct = false;
    std::vector<qint64> tableRows;
    qint64 tableRowCount = 0;
    size_t columns = 0;
    DbError failed;

    ~Impl()
    {
        if (zOpen)
            deflateEnd(&z);
    }

    DbError fileError()
    {
        failed = DbError::file(path, file->errorString());
        return failed;
    }

    DbError writeRaw(QByteArrayView bytes)
    {
        if (!stage) {
            if (file->write(bytes.data(), bytes.size()) != bytes.size())
                return fileError();
            return {};
        }
        while (!bytes.isEmpty()) {
            const qsizetype take = qMin(bytes.size(), kStage - staged);
            std::memcpy(stage.get() + staged, bytes.data(), static_cast<size_t>(take));
            staged += take;
            bytes = bytes.sliced(take);
            if (staged == kStage) {
                if (DbError e = writeStage())
                    return e;
            }
        }
        return {};
    }

    void setDirect(bool on)
    {
#ifdef __linux__
        const int fd = file->handle();
        const int flags = ::fcntl(fd, F_GETFL);
        direct = flags != -1 && ::fcntl(fd, F_SETFL, on ? flags | O_DIRECT : flags & ~O_DIRECT) == 0 && on;
#else
        (void)on;
        direct = false;
#endif
    }

    DbError writeStage()
    {
        qsizetype done = 0;
        while (done < staged) {
#ifdef __linux__
            const ssize_t n = ::write(file->handle(), stage.get() + done, static_cast<size_t>(staged - done));
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0 && errno == EINVAL && direct) {
                // The file system takes no direct writes after all: the cache it is.
                setDirect(false);
                continue;
            }
            if (n == 0)
                errno = ENOSPC;
            if (n <= 0)
                return failed = DbError::file(path, qt_error_string(errno));
#else
            const qint64 n = file->write(stage.get() + done, staged - done);
            if (n < 0)
                return fileError();
#endif
            done += static_cast<qsizetype>(n);
        }
        staged = 0;
        return {};
    }

    // Writes a stored body's bytes, counting them into its checksum.
    DbError writeStored(QByteArrayView bytes)
    {
        bodyCrc = Checksum::crc32c(bodyCrc, bytes);
        return writeRaw(bytes);
    }

    DbError pump(int flush)
    {
        if (stored) {
            const DbError e = writeStored(pending);
            pending.clear();
            if (e)
                failed = e;
            return e;
        }
        z.next_in = reinterpret_cast<Bytef *>(pending.data());
        z.avail_in = static_cast<uInt>(pending.size());
        out.resize(kChunk);
        int rc = Z_OK;
        do {
            z.next_out = reinterpret_cast<Bytef *>(out.data());
            z.avail_out = static_cast<uInt>(out.size());
            rc = deflate(&z, flush);
            if (rc == Z_STREAM_ERROR) {
                failed = DbError::file(path, QStringLiteral("compression failed"));
                return failed;
            }
            const qsizetype produced = out.size() - static_cast<qsizetype>(z.avail_out);
            if (produced > 0) {
                if (DbError e = writeRaw(QByteArrayView(out.constData(), produced)))
                    return e;
            }
        } while (z.avail_out == 0 || (flush == Z_FINISH && rc != Z_STREAM_END));
        pending.clear();
        return {};
    }

    DbError put()
    {
        if (failed)
            return failed;
        if (pending.size() >= kChunk)
            return pump(Z_NO_FLUSH);
        return {};
    }

    // After a stored body's 'E', 'G' and 'Z': the checksum of the body so far.
    DbError checkpoint()
    {
        if (!stored)
            return put();
        if (failed)
            return failed;
        if (DbError e = pump(Z_NO_FLUSH))
            return e;
        putU32(pending, bodyCrc);
        return {};
    }
};

SafetyCopyWriter::SafetyCopyWriter() = default;

SafetyCopyWriter::~SafetyCopyWriter()
{
    cancel();
}

DbError SafetyCopyWriter::open(const QString &path, const SafetyCopyInfo &header)
{
    cancel();
    m_impl = std::make_unique<Impl>();
    m_rows = 0;
    Impl &d = *m_impl;
    d.path = path;
    m_finalPath.clear();
    // Beside the final name, under a name no other writer takes.
    d.file = std::make_unique<QTemporaryFile>(path + QStringLiteral(".part-XXXXXX"));
    if (!d.file->open())
        return d.fileError();
    d.stored = header.stored;
    if (d.stored) {
        d.stage.reset(static_cast<char *>(::operator new(kStage, std::align_val_t(kStageAlign))));
        d.setDirect(true);
    } else {
        if (deflateInit(&d.z, Z_BEST_SPEED) != Z_OK)
            return d.failed = DbError::file(path, QStringLiteral("compression could not start"));
        d.zOpen = true;
    }
    QByteArray head = kMagic;
    const QByteArray json = QJsonDocument(headerJson(header)).toJson(QJsonDocument::Compact);
    putBytes(head, json);
    putU32(head, crc(head));
    return d.writeRaw(head);
}

DbError SafetyCopyWriter::beginTable(const CopyTable &table)
{
    Impl &d = *m_impl;
    d.pending.append('T');
    putBytes(d.pending, table.name.toUtf8());
    putBytes(d.pending, table.createText);
    putU32(d.pending, static_cast<quint32>(table.columns.size()));
    for (const CopyColumn &c : table.columns) {
        putBytes(d.pending, c.name.toUtf8());
        d.pending.append(static_cast<char>(c.form));
    }
    putU32(d.pending, static_cast<quint32>(table.triggers.size()));
    for (const CopyTrigger &t : table.triggers) {
        putBytes(d.pending, t.name.toUtf8());
        putBytes(d.pending, t.sqlMode);
        putBytes(d.pending, t.statement);
    }
    d.columns = table.columns.size();
    d.tableRowCount = 0;
    return d.put();
}

DbError SafetyCopyWriter::writeRow(CopyCells cells)
{
    Impl &d = *m_impl;
    if (cells.size() != d.columns)
        return d.failed = DbError::generic(QStringLiteral("A row of the wrong width was written to a safety copy."));
    d.pending.append('R');
    for (const auto &cell : cells) {
        if (!cell)
            putU32(d.pending, kNull);
        else
            putBytes(d.pending, *cell);
    }
    ++d.tableRowCount;
    ++m_rows;
    return d.put();
}

DbError SafetyCopyWriter::endTable()
{
    Impl &d = *m_impl;
    d.pending.append('E');
    putU64(d.pending, static_cast<quint64>(d.tableRowCount));
    d.tableRows.push_back(d.tableRowCount);
    return d.checkpoint();
}

DbError SafetyCopyWriter::beginFile(const QString &name, bool existed)
{
    Impl &d = *m_impl;
    d.pending.append('F');
    putBytes(d.pending, name.toUtf8());
    d.pending.append(existed ? '\1' : '\0');
    return d.put();
}

DbError SafetyCopyWriter::writeFileData(QByteArrayView data)
{
    Impl &d = *m_impl;
    d.pending.append('D');
    if (!d.stored) {
        putBytes(d.pending, data);
        return d.put();
    }
    // Stored, the bytes go from the caller's buffer to the file.
    putU32(d.pending, static_cast<quint32>(data.size()));
    if (d.failed)
        return d.failed;
    if (DbError e = d.pump(Z_NO_FLUSH))
        return e;
    if (DbError e = d.writeStored(data))
        return d.failed = e;
    return {};
}

DbError SafetyCopyWriter::endFile()
{
    Impl &d = *m_impl;
    d.pending.append('G');
    return d.checkpoint();
}

DbError SafetyCopyWriter::commit()
{
    if (!m_impl)
        return DbError::generic(QStringLiteral("No safety copy is open."));
    Impl &d = *m_impl;
    if (d.failed)
        return d.failed;
    d.pending.append('Z');
    if (DbError e = d.checkpoint())
        return e;
    if (DbError e = d.pump(Z_FINISH))
        return e;
    QJsonObject trailer;
    trailer[QStringLiteral("rows")] = static_cast<double>(m_rows);
    QJsonArray perTable;
    for (qint64 n : d.tableRows)
        perTable.append(static_cast<double>(n));
    trailer[QStringLiteral("tableRows")] = perTable;
    QByteArray tail = QJsonDocument(trailer).toJson(QJsonDocument::Compact);
    const quint32 tailCrc = crc(tail);
    const auto tailSize = static_cast<quint32>(tail.size());
    putU32(tail, tailCrc);
    putU32(tail, tailSize);
    tail.append(kEndMark);
    if (DbError e = d.writeRaw(tail))
        return e;
    if (d.stage) {
        // The last block is not a whole one.
        d.setDirect(false);
        if (DbError e = d.writeStage())
            return e;
    }
    if (!d.file->flush())
        return d.fileError();
    d.file->close();
    if (d.file->error() != QFileDevice::NoError)
        return d.fileError();
    // The move never replaces a file: a name taken meanwhile (by another program sharing the
    // folder) sends the copy to the next free one.
    const QString base = d.path.endsWith(SafetyCopy::kSuffix) ? d.path.chopped(SafetyCopy::kSuffix.size()) : d.path;
    const QString suffix = d.path.endsWith(SafetyCopy::kSuffix) ? SafetyCopy::kSuffix : QString();
    for (int n = 0; n < 10000; ++n) {
        const QString target = n == 0 ? d.path : base + QLatin1Char('-') + QString::number(n) + suffix;
        if (QFile::exists(target))
            continue;
        QFile written(d.file->fileName());
        if (written.rename(target)) {
            d.file->setAutoRemove(false);
            m_finalPath = target;
            m_impl.reset();
            return {};
        }
        if (!QFile::exists(target))
            return DbError::file(target, written.errorString());
    }
    return DbError::file(d.path, QStringLiteral("no free name for the copy"));
}

void SafetyCopyWriter::cancel()
{
    // The unfinished file goes with its QTemporaryFile.
    m_impl.reset();
}

// ---- Reading ----

namespace {

struct Layout final {
    SafetyCopyInfo info;
    qint64 bodyStart = 0;
    qint64 bodyEnd = 0;
};

DbResult<Layout> readLayout(QFile &file)
{
    const QString path = file.fileName();
    const qint64 size = file.size();
    Layout layout;
    if (file.read(kMagic.size()) != kMagic)
        return corrupt(path, QStringLiteral("unknown form"));
    char lenBytes[4];
    if (file.read(lenBytes, 4) != 4)
        return corrupt(path, QStringLiteral("header cut short"));
    const quint32 headerLen = qFromLittleEndian<quint32>(lenBytes);
    if (headerLen > 64 * 1024 * 1024 || kMagic.size() + 8 + qint64(headerLen) + kFooter > size)
        return corrupt(path, QStringLiteral("header cut short"));
    const QByteArray headerText = file.read(headerLen);
    char crcBytes[4];
    if (headerText.size() != qsizetype(headerLen) || file.read(crcBytes, 4) != 4 ||
        qFromLittleEndian<quint32>(crcBytes) != crc(QByteArray(kMagic + QByteArray(lenBytes, 4) + headerText)))
        return corrupt(path, QStringLiteral("damaged header"));
    const QJsonDocument header = QJsonDocument::fromJson(headerText);
    if (!header.isObject())
        return corrupt(path, QStringLiteral("unreadable header"));
    layout.bodyStart = file.pos();

    if (size < layout.bodyStart + kFooter || !file.seek(size - kFooter))
        return corrupt(path, QStringLiteral("no end mark"));
    const QByteArray footer = file.read(kFooter);
    if (footer.size() != kFooter || footer.mid(8) != kEndMark)
        return corrupt(path, QStringLiteral("no end mark"));
    // Copied out first: read from the array in place, the compiler cannot see it is long enough.
    char footerBytes[8];
    std::memcpy(footerBytes, footer.constData(), sizeof footerBytes);
    const quint32 trailerCrc = qFromLittleEndian<quint32>(footerBytes);
    const quint32 trailerLen = qFromLittleEndian<quint32>(footerBytes + 4);
    layout.bodyEnd = size - kFooter - qint64(trailerLen);
    if (layout.bodyEnd < layout.bodyStart || !file.seek(layout.bodyEnd))
        return corrupt(path, QStringLiteral("trailer out of place"));
    const QByteArray trailerText = file.read(trailerLen);
    if (crc(trailerText) != trailerCrc)
        return corrupt(path, QStringLiteral("damaged trailer"));
    const QJsonDocument trailer = QJsonDocument::fromJson(trailerText);
    if (!trailer.isObject())
        return corrupt(path, QStringLiteral("unreadable trailer"));

    const QJsonObject h = header.object();
    SafetyCopyInfo &info = layout.info;
    info.path = path;
    info.time = QDateTime::fromString(h.value(QStringLiteral("time")).toString(), Qt::ISODateWithMs);
    info.command = h.value(QStringLiteral("command")).toString();
    info.database = h.value(QStringLiteral("database")).toString();
    for (const QJsonValue &t : h.value(QStringLiteral("tables")).toArray())
        info.tables << t.toString();
    info.kind = h.value(QStringLiteral("kind")).toString() == QLatin1String("files") ? SafetyCopyInfo::Kind::Files
                                                                                     : SafetyCopyInfo::Kind::Tables;
    info.folder = h.value(QStringLiteral("folder")).toString();
    info.withoutCopy = h.value(QStringLiteral("withoutCopy")).toBool();
    const QJsonValue body = h.value(QStringLiteral("body"));
    info.stored = body.toString() == kStored;
    if (!body.isUndefined() && !info.stored)
        return corrupt(path, QStringLiteral("unknown form"));
    info.rows = static_cast<qint64>(trailer.object().value(QStringLiteral("rows")).toDouble());
    info.size = size;
    return layout;
}

// Pulls exact byte counts out of the body.
class BodyReader final {
public:
    BodyReader(QFile &file, qint64 end, bool stored) : m_file(file), m_end(end), m_stored(stored) {}
    ~BodyReader()
    {
        if (m_open)
            inflateEnd(&m_z);
    }
    BodyReader(const BodyReader &) = delete;
    BodyReader &operator=(const BodyReader &) = delete;

    bool start()
    {
        if (m_stored)
            return true;
        m_open = inflateInit(&m_z) == Z_OK;
        return m_open;
    }

    // Fills `out` with exactly `n` bytes; false at a damaged or short body.
    bool read(QByteArray &out, qsizetype n)
    {
        // A damaged length in a stored body must not ask for more than the file holds.
        if (m_stored && n > m_plain.size() - m_pos + (m_end - m_file.pos()))
            return false;
        out.resize(n);
        qsizetype have = 0;
        while (have < n) {
            if (m_pos == m_plain.size() && !refill())
                return false;
            const qsizetype take = qMin(n - have, m_plain.size() - m_pos);
            std::memcpy(out.data() + have, m_plain.constData() + m_pos, static_cast<size_t>(take));
            have += take;
            m_pos += take;
        }
        return true;
    }
    bool u8(quint8 &v)
    {
        if (!read(m_small, 1))
            return false;
        v = static_cast<quint8>(m_small[0]);
        return true;
    }
    bool u32(quint32 &v)
    {
        if (!read(m_small, 4))
            return false;
        v = qFromLittleEndian<quint32>(m_small.constData());
        return true;
    }
    bool u64(quint64 &v)
    {
        if (!read(m_small, 8))
            return false;
        v = qFromLittleEndian<quint64>(m_small.constData());
        return true;
    }
    // True when the stream ends here, its checksum included.
    bool atEnd() { return m_pos == m_plain.size() && !refill() && m_done; }
    bool bytes(QByteArray &out)
    {
        quint32 n = 0;
        return u32(n) && n != kNull && read(out, n);
    }
    // A stored body's checkpoint: whether the checksum that follows is that of the bytes before.
    bool checked()
    {
        if (!m_stored)
            return true;
        foldCrc();
        const quint32 expected = m_crc;
        quint32 written = 0;
        return u32(written) && written == expected;
    }

private:
    void foldCrc()
    {
        m_crc = Checksum::crc32c(m_crc, QByteArrayView(m_plain).sliced(m_crcFrom, m_pos - m_crcFrom));
        m_crcFrom = m_pos;
    }

    bool refill()
    {
        if (m_stored) {
            foldCrc();
            const qint64 left = m_end - m_file.pos();
            m_done = left <= 0;
            m_pos = m_crcFrom = 0;
            m_plain = m_done ? QByteArray() : m_file.read(qMin<qint64>(left, kChunk));
            return !m_plain.isEmpty();
        }
        if (m_done)
            return false;
        m_plain.resize(kChunk);
        m_pos = 0;
        for (;;) {
            if (m_z.avail_in == 0) {
                const qint64 left = m_end - m_file.pos();
                if (left <= 0)
                    return false;
                m_in = m_file.read(qMin<qint64>(left, kChunk));
                if (m_in.isEmpty())
                    return false;
                m_z.next_in = reinterpret_cast<Bytef *>(m_in.data());
                m_z.avail_in = static_cast<uInt>(m_in.size());
            }
            m_z.next_out = reinterpret_cast<Bytef *>(m_plain.data());
            m_z.avail_out = static_cast<uInt>(m_plain.size());
            const int rc = inflate(&m_z, Z_NO_FLUSH);
            if (rc != Z_OK && rc != Z_STREAM_END)
                return false;
            const qsizetype produced = m_plain.size() - static_cast<qsizetype>(m_z.avail_out);
            if (rc == Z_STREAM_END)
                m_done = true;
            if (produced > 0) {
                m_plain.truncate(produced);
                return true;
            }
            if (m_done)
                return false;
        }
    }

    QFile &m_file;
    qint64 m_end;
    bool m_stored;
    quint32 m_crc = 0; // of the stored body up to m_crcFrom
    qsizetype m_crcFrom = 0;
    z_stream m_z{};
    bool m_open = false;
    bool m_done = false;
    QByteArray m_in;
    QByteArray m_plain;
    qsizetype m_pos = 0;
    QByteArray m_small;
};

} // namespace

namespace SafetyCopy {

DbResult<SafetyCopyInfo> readInfo(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return DbError::file(path, file.errorString());
    auto layout = readLayout(file);
    if (!layout)
        return layout.error();
    return layout->info;
}

DbError read(const QString &path, SafetyCopyVisitor &visitor)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return DbError::file(path, file.errorString());
    auto layout = readLayout(file);
    if (!layout)
        return layout.error();
    if (!file.seek(layout->bodyStart))
        return DbError::file(path, file.errorString());
    BodyReader body(file, layout->bodyEnd, layout->info.stored);
    if (!body.start())
        return corrupt(path, QStringLiteral("decompression could not start"));

    const auto damaged = [&path] { return corrupt(path, QStringLiteral("damaged body")); };
    CopyTable table;
    bool inTable = false;
    std::vector<QByteArray> cellBytes;
    std::vector<std::optional<QByteArrayView>> cells;
    QByteArray text;
    for (;;) {
        quint8 tag = 0;
        if (!body.u8(tag))
            return damaged();
        switch (tag) {
        case 'T': {
            quint32 n = 0;
            if (!body.bytes(text))
                return damaged();
            table = CopyTable{QString::fromUtf8(text), {}, {}, {}};
            if (!body.bytes(table.createText) || !body.u32(n) || n > 65536)
                return damaged();
            for (quint32 i = 0; i < n; ++i) {
                quint8 form = 0;
                if (!body.bytes(text) || !body.u8(form) || form > 3)
                    return damaged();
                table.columns.push_back({QString::fromUtf8(text), static_cast<CopyValueForm>(form)});
            }
            quint32 triggers = 0;
            if (!body.u32(triggers) || triggers > 65536)
                return damaged();
            for (quint32 i = 0; i < triggers; ++i) {
                CopyTrigger trigger;
                if (!body.bytes(text) || !body.bytes(trigger.sqlMode) || !body.bytes(trigger.statement))
                    return damaged();
                trigger.name = QString::fromUtf8(text);
                table.triggers.push_back(std::move(trigger));
            }
            cellBytes.assign(n, QByteArray());
            cells.assign(n, std::nullopt);
            inTable = true;
            if (DbError e = visitor.table(table))
                return e;
            break;
        }
        case 'R': {
            if (!inTable)
                return damaged();
            for (size_t i = 0; i < cells.size(); ++i) {
                quint32 len = 0;
                if (!body.u32(len))
                    return damaged();
                if (len == kNull) {
                    cells[i].reset();
                    continue;
                }
                if (!body.read(cellBytes[i], len))
                    return damaged();
                cells[i] = QByteArrayView(cellBytes[i]);
            }
            if (DbError e = visitor.row(cells))
                return e;
            break;
        }
        case 'E': {
            quint64 rows = 0;
            if (!inTable || !body.u64(rows) || !body.checked())
                return damaged();
            inTable = false;
            if (DbError e = visitor.tableEnd(static_cast<qint64>(rows)))
                return e;
            break;
        }
        case 'F': {
            quint8 existed = 0;
            if (!body.bytes(text) || !body.u8(existed))
                return damaged();
            if (DbError e = visitor.file(QString::fromUtf8(text), existed != 0))
                return e;
            break;
        }
        case 'D':
            if (!body.bytes(text))
                return damaged();
            if (DbError e = visitor.fileData(text))
                return e;
            break;
        case 'G':
            if (!body.checked())
                return damaged();
            if (DbError e = visitor.fileEnd())
                return e;
            break;
        case 'Z': return body.checked() && body.atEnd() ? DbError{} : damaged();
        default: return damaged();
        }
    }
}

} // namespace SafetyCopy
} // namespace tabulon
