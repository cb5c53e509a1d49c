// Writing (table files compressed as they are written) and checked extraction of backup
// archives through libzip.
#include "backup/backuparchive.h"

#include "grid/gridfile.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSet>
#include <QStorageInfo>
#include <QTemporaryDir>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <limits>
#include <memory>
#include <mutex>
#include <vector>

namespace tabulon::BackupArchive {

namespace {

QString tr(const char *text)
{
    return QCoreApplication::translate("tabulon::BackupArchive", text);
}

QString native(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

QString zipErrorText(int code)
{
    zip_error_t error;
    zip_error_init_with_code(&error, code);
    const QString text = QString::fromUtf8(zip_error_strerror(&error));
    zip_error_fini(&error);
    return text;
}

QString zipErrorText(zip_t *archive)
{
    return QString::fromUtf8(zip_error_strerror(zip_get_error(archive)));
}

struct ArchiveCloser {
    void operator()(zip_t *archive) const { zip_discard(archive); }
};
using ArchivePtr = std::unique_ptr<zip_t, ArchiveCloser>;

struct FileCloser {
    void operator()(zip_file_t *file) const { zip_fclose(file); }
};

// The disk's free space for the extraction, as the limits give it or the disk reports it.
qint64 freeSpace(const QString &folder, const Limits &limits)
{
    if (limits.freeBytes >= 0)
        return limits.freeBytes;
    QStorageInfo storage(folder);
    return storage.isValid() ? storage.bytesAvailable() : std::numeric_limits<qint64>::max();
}

// Copies one entry into `path`, reading it whole: libzip checks its CRC at the end. Returns
// why the entry is refused (empty when it is good); a file that cannot be written is `*error`.
QString copyEntry(zip_t *archive, zip_uint64_t index, const QString &name, zip_uint64_t size, const QString &path,
                  QByteArray &buffer, DbError *error)
{
    std::unique_ptr<zip_file_t, FileCloser> in(zip_fopen_index(archive, index, 0));
    if (!in)
        return tr("The entry \"%1\" cannot be read: %2").arg(name, zipErrorText(archive));
    QFile out(path);
    if (!out.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        *error = DbError::file(native(out.fileName()), out.errorString());
        return {};
    }
    quint64 written = 0;
    for (;;) {
        const zip_int64_t got = zip_fread(in.get(), buffer.data(), zip_uint64_t(buffer.size()));
        if (got < 0)
            return tr("The entry \"%1\" is damaged: %2")
                .arg(name, QString::fromUtf8(zip_error_strerror(zip_file_get_error(in.get()))));
        if (got == 0)
            break;
        written += quint64(got);
        if (written > size)
            return tr("The entry \"%1\" unpacks to more than the size it declares.").arg(name);
        if (out.write(buffer.constData(), got) != got) {
            *error = DbError::file(native(out.fileName()), out.errorString());
            return {};
        }
    }
    if (written != size)
        return tr("The entry \"%1\" unpacks to less than the size it declares.").arg(name);
    if (!out.flush()) {
        *error = DbError::file(native(out.fileName()), out.errorString());
        return {};
    }
    out.close();
    if (DbError bad = GridFileReader::verify(out.fileName()))
        return tr("The entry \"%1\" is not a good table file: %2")
            .arg(name, bad.description.section(QStringLiteral(": "), -1));
    return {};
}

// Flushes a file, or a folder's entries, from the system's caches to the disk.
DbError syncToDisk(const QString &path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return DbError::file(native(path), QString::fromLocal8Bit(std::strerror(errno)));
    const int synced = ::fsync(fd);
    const int error = errno;
    ::close(fd);
    if (synced != 0)
        return DbError::file(native(path), QString::fromLocal8Bit(std::strerror(error)));
    return {};
}

// A table file compressed on its own: a raw deflate stream, with what its zip entry states.
struct Part {
    QString name; // the table file's, and the entry's
    QString path; // the compressed bytes
    quint32 crc = 0;
    quint64 size = 0;
    quint64 compressedSize = 0;
    time_t modified = 0;
};

constexpr qsizetype kBufferBytes = 256 * 1024;

// A raw deflate stream at the fastest level into a new part file, its output gathered in a
// whole buffer before each write. A part whose stream did not end (a failure, a stop) is
// removed with its deflater.
class Deflater final {
public:
    Deflater(const QString &path, QByteArray &out) : m_target(path), m_out(out) {}
    ~Deflater()
    {
        if (m_started)
            deflateEnd(&m_stream);
        if (!m_ended)
            m_target.remove();
    }
    Deflater(const Deflater &) = delete;
    Deflater &operator=(const Deflater &) = delete;

    DbError start()
    {
        if (!m_target.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered))
            return DbError::file(native(m_target.fileName()), m_target.errorString());
        if (deflateInit2(&m_stream, 1, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK)
            return DbError::generic(tr("The compressor cannot start."));
        m_started = true;
        rewind();
        return {};
    }
    // Compresses `bytes`; with `last` the stream ends and everything is written out.
    DbError put(QByteArrayView bytes, bool last)
    {
        m_stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(bytes.data()));
        m_stream.avail_in = uInt(bytes.size());
        const int flush = last ? Z_FINISH : Z_NO_FLUSH;
        do {
            if (m_stream.avail_out == 0)
                if (DbError error = writeOut())
                    return error;
            if (deflate(&m_stream, flush) == Z_STREAM_ERROR)
                return DbError::generic(tr("The compressor failed."));
        } while (m_stream.avail_out == 0);
        if (!last)
            return {};
        // With Z_FINISH, room left over means the stream has ended.
        const DbError error = writeOut();
        m_ended = !error;
        return error;
    }
    // The compressed bytes written so far.
    quint64 size() const { return quint64(m_target.size()); }

private:
    void rewind()
    {
        m_stream.next_out = reinterpret_cast<Bytef *>(m_out.data());
        m_stream.avail_out = uInt(m_out.size());
    }
    DbError writeOut()
    {
        const qint64 produced = m_out.size() - qint64(m_stream.avail_out);
        if (m_target.write(m_out.constData(), produced) != produced)
            return DbError::file(native(m_target.fileName()), m_target.errorString());
        rewind();
        return {};
    }

    QFile m_target;
    QByteArray &m_out;
    z_stream m_stream{};
    bool m_started = false;
    bool m_ended = false;
};

// Compresses `path` into `part.path`, reading and writing through the two buffers. Gives up
// (with no error and no part left) once `stopping` is set.
DbError deflateFile(const QString &path, Part &part, QByteArray &in, QByteArray &out, const std::atomic<bool> &stopping)
{
    QFile source(path);
    if (!source.open(QIODevice::ReadOnly))
        return DbError::file(native(path), source.errorString());
    part.modified = QFileInfo(source).lastModified().toSecsSinceEpoch();
    Deflater deflater(part.path, out);
    if (DbError error = deflater.start())
        return error;
    uLong crc = crc32(0L, Z_NULL, 0);
    for (bool last = false; !last;) {
        if (stopping)
            return {};
        const qint64 got = source.read(in.data(), in.size());
        if (got < 0)
            return DbError::file(native(path), source.errorString());
        crc = crc32(crc, reinterpret_cast<const Bytef *>(in.constData()), uInt(got));
        part.size += quint64(got);
        last = got == 0;
        if (DbError error = deflater.put(QByteArrayView(in.constData(), got), last))
            return error;
    }
    part.crc = quint32(crc);
    part.compressedSize = deflater.size();
    return {};
}

// The bytes of one entry on their way from its writer to the compressing thread.
struct Stream {
    std::deque<QByteArray> chunks;
    qsizetype queued = 0; // the chunks' bytes
    bool ended = false;
    bool abandoned = false;
    quint32 crc = 0; // stated by the writer, which has read every byte already
};

// A file handed over whole (no stream) or an entry written as it comes.
struct Job {
    QString name;
    std::shared_ptr<Stream> stream;
};

// A part as a zip source that states itself deflated, so the archive takes its bytes as they are.
struct PartSource {
    explicit PartSource(const Part &p) : part(p) { zip_error_init(&error); }
    ~PartSource() { zip_error_fini(&error); }

    static zip_int64_t callback(void *state, void *data, zip_uint64_t length, zip_source_cmd_t command)
    {
        auto *self = static_cast<PartSource *>(state);
        switch (command) {
        case ZIP_SOURCE_OPEN:
            self->file.setFileName(self->part.path);
            if (!self->file.open(QIODevice::ReadOnly)) {
                zip_error_set(&self->error, ZIP_ER_OPEN, ENOENT);
                return -1;
            }
            return 0;
        case ZIP_SOURCE_READ: {
            const qint64 got = self->file.read(static_cast<char *>(data),
                                               qint64(std::min<zip_uint64_t>(length, zip_uint64_t(kBufferBytes))));
            if (got < 0) {
                zip_error_set(&self->error, ZIP_ER_READ, EIO);
                return -1;
            }
            return got;
        }
        case ZIP_SOURCE_CLOSE: self->file.close(); return 0;
        case ZIP_SOURCE_STAT: {
            auto *st = ZIP_SOURCE_GET_ARGS(zip_stat_t, data, length, &self->error);
            if (!st)
                return -1;
            zip_stat_init(st);
            st->valid = ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_COMP_METHOD | ZIP_STAT_CRC | ZIP_STAT_MTIME |
                        ZIP_STAT_ENCRYPTION_METHOD;
            st->size = self->part.size;
            st->comp_size = self->part.compressedSize;
            st->comp_method = ZIP_CM_DEFLATE;
            st->crc = self->part.crc;
            st->mtime = self->part.modified;
            st->encryption_method = ZIP_EM_NONE;
            return sizeof(zip_stat_t);
        }
        case ZIP_SOURCE_ERROR: return zip_error_to_data(&self->error, data, length);
        case ZIP_SOURCE_FREE: delete self; return 0;
        case ZIP_SOURCE_SUPPORTS:
            return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT,
                                                  ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, -1);
        default: zip_error_set(&self->error, ZIP_ER_OPNOTSUPP, 0); return -1;
        }
    }

    Part part;
    QFile file;
    zip_error_t error;
};

} // namespace

QString datedName(const QDate &date)
{
    static const char *const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    return QStringLiteral("%1-%2-%3")
        .arg(date.day(), 2, 10, QLatin1Char('0'))
        .arg(QLatin1String(months[date.month() - 1]))
        .arg(date.year() % 100, 2, 10, QLatin1Char('0'));
}

qint64 spaceToUnpack(const QList<quint64> &entrySizes)
{
    constexpr quint64 kBlock = 4096;
    quint64 blocks = 0;
    for (const quint64 size : entrySizes)
        blocks += (size + kBlock - 1) / kBlock + 1;
    const quint64 bytes = blocks * kBlock;
    return qint64(std::min<quint64>(bytes + bytes / 8, quint64(std::numeric_limits<qint64>::max())));
}

bool isTableName(const QString &name)
{
    if (name.isEmpty() || name.size() > 64)
        return false;
    for (const QChar c : name) {
        const bool ascii = c.unicode() < 0x80;
        if (ascii ? !(c.isLetterOrNumber() || c == QLatin1Char('_') || c == QLatin1Char('$')) : !c.isLetter())
            return false;
    }
    // Names the parser takes for numbers: all digits, a digit run then an exponent (1e5, 12e3abc),
    // a whole hexadecimal or binary literal (0x1f, 0b01; 0x1fg is a name again).
    static const QRegularExpression number(QStringLiteral("^(?:[0-9]+|[0-9]+[eE][0-9].*|0x[0-9a-fA-F]+|0b[01]+)$"),
                                           QRegularExpression::DotMatchesEverythingOption);
    return !number.match(name).hasMatch();
}

DbError pack(const QString &folder, const QStringList &fileNames, const QString &archivePath, Existing existing)
{
    Packer packer(folder);
    for (const QString &name : fileNames)
        packer.add(name);
    return packer.finish(archivePath, existing);
}

// What the compressing thread and the thread that hands files over share.
struct Packer::State {
    QString folder;
    mutable std::mutex mutex;
    std::condition_variable changed; // for the thread: a job, a chunk, an entry's end, a stop
    std::condition_variable drained; // for an entry's writer: room in the queue, or the thread ended
    std::deque<Job> queue;           // handed over, not yet compressed
    std::vector<Part> parts;         // compressed, in the order handed over
    bool closing = false;            // nothing more comes: end once the queue is empty
    bool ended = false;              // the thread has ended
    std::atomic<bool> stopping;      // give up now, even in the middle of a file
    DbError error;

    // Compresses the entry's chunks as they come into `part.path`. Gives up (with no error and
    // no part left) when the entry is abandoned or the packer stops.
    DbError deflateStream(Stream &stream, Part &part, QByteArray &out)
    {
        part.modified = QDateTime::currentSecsSinceEpoch();
        Deflater deflater(part.path, out);
        if (DbError error = deflater.start())
            return error;
        for (bool last = false; !last;) {
            QByteArray chunk;
            {
                std::unique_lock lock(mutex);
                changed.wait(lock,
                             [&] { return stopping || stream.abandoned || stream.ended || !stream.chunks.empty(); });
                if (stopping || stream.abandoned)
                    return {};
                if (stream.chunks.empty()) {
                    last = true;
                    part.crc = stream.crc;
                } else {
                    chunk = std::move(stream.chunks.front());
                    stream.chunks.pop_front();
                    stream.queued -= chunk.size();
                }
            }
            drained.notify_all();
            part.size += quint64(chunk.size());
            if (DbError error = deflater.put(chunk, last))
                return error;
        }
        part.compressedSize = deflater.size();
        return {};
    }
};

namespace {

// An entry's writer side: hands each chunk to the thread, waiting while the queue is full.
class EntrySink final : public GridFileSink {
public:
    EntrySink(Packer::State &state, std::shared_ptr<Stream> stream) : m_state(state), m_stream(std::move(stream)) {}
    ~EntrySink() override { abandon(); }

    DbError take(QByteArray chunk) override
    {
        std::unique_lock lock(m_state.mutex);
        m_state.drained.wait(lock, [this] { return m_state.ended || m_stream->queued < Packer::kQueueBytes; });
        if (m_state.ended)
            return stopped();
        m_stream->queued += chunk.size();
        m_stream->chunks.push_back(std::move(chunk));
        lock.unlock();
        m_state.changed.notify_all();
        return {};
    }
    DbError end(quint32 crc) override
    {
        {
            std::lock_guard lock(m_state.mutex);
            if (m_state.ended)
                return stopped();
            m_stream->crc = crc;
            m_stream->ended = true;
        }
        m_state.changed.notify_all();
        return {};
    }
    void abandon() override
    {
        {
            std::lock_guard lock(m_state.mutex);
            if (m_stream->ended)
                return;
            m_stream->abandoned = true;
            m_stream->chunks.clear();
        }
        m_state.changed.notify_all();
    }

private:
    DbError stopped() const
    {
        return m_state.error ? m_state.error : DbError::generic(tr("The compressor has stopped."));
    }

    Packer::State &m_state;
    std::shared_ptr<Stream> m_stream;
};

} // namespace

Packer::Packer(const QString &folder) : m_state(std::make_unique<State>())
{
    m_state->folder = folder;
    m_state->stopping = false;
    m_thread = std::thread([state = m_state.get()] {
        const auto ended = qScopeGuard([state] {
            {
                std::lock_guard lock(state->mutex);
                state->ended = true;
            }
            state->drained.notify_all();
        });
        QByteArray in(kBufferBytes, Qt::Uninitialized);
        QByteArray out(kBufferBytes, Qt::Uninitialized);
        for (;;) {
            Job job;
            Part part;
            {
                std::unique_lock lock(state->mutex);
                state->changed.wait(lock,
                                    [state] { return state->stopping || state->closing || !state->queue.empty(); });
                if (state->stopping || state->queue.empty())
                    return;
                job = std::move(state->queue.front());
                state->queue.pop_front();
                if (job.stream && job.stream->abandoned)
                    continue;
                part.name = job.name;
                // A file or entry handed over again replaces the earlier one once it is whole;
                // until then the earlier part stays, beside it under a name of its own.
                part.path = QDir(state->folder).filePath(partName(job.name));
                for (int n = 2; std::any_of(state->parts.begin(), state->parts.end(),
                                            [&part](const Part &p) { return p.path == part.path; });
                     ++n)
                    part.path = QDir(state->folder).filePath(partName(job.name) + QString::number(n));
            }
            const DbError error =
                job.stream ? state->deflateStream(*job.stream, part, out)
                           : deflateFile(QDir(state->folder).filePath(job.name), part, in, out, state->stopping);
            std::lock_guard lock(state->mutex);
            if (state->stopping) {
                QFile::remove(part.path);
                return;
            }
            if (error) {
                state->error = error;
                return;
            }
            if (job.stream && job.stream->abandoned) {
                QFile::remove(part.path);
                continue;
            }
            std::erase_if(state->parts, [&part](const Part &p) {
                if (p.name != part.name)
                    return false;
                QFile::remove(p.path);
                return true;
            });
            state->parts.push_back(part);
        }
    });
    pthread_setname_np(m_thread.native_handle(), kThreadName);
}

Packer::~Packer()
{
    stop();
}

void Packer::stop()
{
    {
        std::lock_guard lock(m_state->mutex);
        m_state->stopping = true;
    }
    m_state->changed.notify_all();
    m_state->drained.notify_all();
    if (m_thread.joinable())
        m_thread.join();
    for (const Part &part : std::as_const(m_state->parts))
        QFile::remove(part.path);
    m_state->parts.clear();
}

void Packer::add(const QString &fileName)
{
    {
        std::lock_guard lock(m_state->mutex);
        m_state->queue.push_back({fileName, nullptr});
    }
    m_state->changed.notify_all();
}

std::unique_ptr<GridFileSink> Packer::entry(const QString &fileName)
{
    auto stream = std::make_shared<Stream>();
    {
        std::lock_guard lock(m_state->mutex);
        m_state->queue.push_back({fileName, stream});
    }
    m_state->changed.notify_all();
    return std::make_unique<EntrySink>(*m_state, std::move(stream));
}

QString Packer::partName(const QString &fileName)
{
    // Table names hold no dot, so no part is ever taken for a table file.
    return fileName + QStringLiteral(".deflated");
}

DbError Packer::failure() const
{
    std::lock_guard lock(m_state->mutex);
    return m_state->error;
}

DbError Packer::finish(const QString &archivePath, Existing existing)
{
    {
        std::lock_guard lock(m_state->mutex);
        m_state->closing = true;
    }
    m_state->changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
    // The thread has ended: the parts and the error are this thread's alone from here on.
    const auto removeParts = qScopeGuard([this] { stop(); });
    if (m_state->error)
        return m_state->error;

    if (existing == Existing::Keep && QFileInfo::exists(archivePath))
        return DbError::file(native(archivePath), tr("An archive of this name already exists."));
    const QString partial = archivePath + QStringLiteral(".partial");
    QFile::remove(partial); // left by an earlier run that was killed
    int code = 0;
    ArchivePtr archive(zip_open(QFile::encodeName(partial).constData(), ZIP_CREATE | ZIP_EXCL, &code));
    if (!archive)
        return DbError::file(native(partial), zipErrorText(code));

    for (const Part &part : std::as_const(m_state->parts)) {
        zip_error_t error;
        zip_error_init(&error);
        auto *state = new PartSource(part);
        zip_source_t *source = zip_source_function_create(&PartSource::callback, state, &error);
        const QString why = QString::fromUtf8(zip_error_strerror(&error));
        zip_error_fini(&error);
        if (!source) {
            delete state;
            return DbError::file(native(partial), why);
        }
        // The entry keeps the default method, which is the part's: libzip copies the compressed
        // bytes as they are, with the size and CRC the source states.
        if (zip_file_add(archive.get(), part.name.toUtf8().constData(), source, ZIP_FL_ENC_UTF_8) < 0) {
            zip_source_free(source);
            return DbError::file(native(partial), zipErrorText(archive.get()));
        }
    }
    if (zip_close(archive.get()) != 0) {
        const DbError error = DbError::file(native(archivePath), zipErrorText(archive.get()));
        QFile::remove(partial);
        return error;
    }
    archive.release();
    if (m_state->parts.empty()) {
        // libzip writes nothing for an archive without entries; an empty zip has a fixed form.
        QFile empty(partial);
        const QByteArray endOfDirectory = QByteArrayLiteral("PK\x05\x06") + QByteArray(18, '\0');
        if (!empty.open(QIODevice::WriteOnly) || empty.write(endOfDirectory) != endOfDirectory.size() || !empty.flush())
            return DbError::file(native(partial), empty.errorString());
    }
    if (DbError error = syncToDisk(partial)) {
        QFile::remove(partial);
        return error;
    }
    // With Replace, rename() puts the new archive in the earlier one's place in one step; with
    // Keep, QFile's rename fails rather than replace an archive that appeared meanwhile.
    QFile done(partial);
    const bool moved = existing == Existing::Replace ? ::rename(QFile::encodeName(partial).constData(),
                                                                QFile::encodeName(archivePath).constData()) == 0
                                                     : done.rename(archivePath);
    if (!moved) {
        const DbError error = DbError::file(native(archivePath), existing == Existing::Replace
                                                                     ? QString::fromLocal8Bit(std::strerror(errno))
                                                                     : done.errorString());
        QFile::remove(partial);
        return error;
    }
    // The new name itself lasts only once the folder is on disk too.
    (void)syncToDisk(QFileInfo(archivePath).absolutePath());
    return {};
}

DbError extract(const QString &archivePath, const QString &targetFolder, QStringList *tables, const Limits &limits)
{
    const auto refuse = [&archivePath](const QString &reason) { return DbError::file(native(archivePath), reason); };
    int code = 0;
    ArchivePtr archive(zip_open(QFile::encodeName(archivePath).constData(), ZIP_RDONLY | ZIP_CHECKCONS, &code));
    if (!archive)
        return refuse(zipErrorText(code));

    const zip_int64_t count = zip_get_num_entries(archive.get(), 0);
    if (count < 0 || count > limits.maxEntries)
        return refuse(tr("The archive holds more entries than a backup can (%1).").arg(count));

    // Everything the central directory says, checked before a byte is written.
    struct Entry {
        zip_uint64_t index;
        QString name;
        zip_uint64_t size;
    };
    std::vector<Entry> entries;
    QSet<QString> seen;
    quint64 declared = 0;
    for (zip_int64_t i = 0; i < count; ++i) {
        zip_stat_t st;
        zip_stat_init(&st);
        if (zip_stat_index(archive.get(), zip_uint64_t(i), ZIP_FL_ENC_GUESS, &st) != 0)
            return refuse(zipErrorText(archive.get()));
        const QByteArray rawName = st.name ? QByteArray(st.name) : QByteArray();
        const QString name = QString::fromUtf8(rawName);
        const QString shown = name.isEmpty() ? QStringLiteral("(no name)") : name;
        if (!isTableName(name) || name.toUtf8() != rawName)
            return refuse(tr("The entry \"%1\" is not a table name.").arg(shown));
        if (seen.contains(name.toLower()))
            return refuse(tr("The entry \"%1\" appears more than once.").arg(shown));
        seen.insert(name.toLower());
        zip_uint8_t system = 0;
        zip_uint32_t attributes = 0;
        if (zip_file_get_external_attributes(archive.get(), zip_uint64_t(i), 0, &system, &attributes) == 0 &&
            system == ZIP_OPSYS_UNIX) {
            const mode_t mode = static_cast<mode_t>(attributes >> 16);
            if ((mode & S_IFMT) != 0 && (mode & S_IFMT) != S_IFREG)
                return refuse(tr("The entry \"%1\" is a link or a folder, not a table file.").arg(shown));
        }
        if ((st.valid & ZIP_STAT_ENCRYPTION_METHOD) && st.encryption_method != ZIP_EM_NONE)
            return refuse(tr("The entry \"%1\" is encrypted.").arg(shown));
        if (!(st.valid & ZIP_STAT_SIZE))
            return refuse(tr("The entry \"%1\" does not declare its size.").arg(shown));
        declared += st.size;
        entries.push_back({zip_uint64_t(i), name, st.size});
    }

    const QFileInfo target(targetFolder);
    const QString parent = target.absolutePath();
    if (declared > quint64(limits.maxUnpackedBytes))
        return refuse(tr("The archive unpacks to %1 bytes, more than the %2 bytes allowed here.")
                          .arg(declared)
                          .arg(limits.maxUnpackedBytes));
    QList<quint64> sizes;
    for (const Entry &entry : entries)
        sizes << entry.size;
    const qint64 needed = spaceToUnpack(sizes);
    const qint64 available = freeSpace(parent, limits);
    if (needed > available)
        return refuse(tr("The archive needs %1 bytes of disk space to unpack, and the disk has %2 bytes free.")
                          .arg(needed)
                          .arg(available));

    QTemporaryDir staging(target.absoluteFilePath() + QStringLiteral(".partial-XXXXXX"));
    if (!staging.isValid())
        return DbError::file(native(parent), staging.errorString());

    QByteArray buffer(256 * 1024, Qt::Uninitialized);
    for (const Entry &entry : entries) {
        DbError error;
        const QString bad =
            copyEntry(archive.get(), entry.index, entry.name, entry.size, staging.filePath(entry.name), buffer, &error);
        if (error)
            return error;
        if (!bad.isEmpty())
            return refuse(bad);
    }

    if (!QDir().mkpath(targetFolder))
        return DbError::file(native(targetFolder), tr("The folder cannot be created."));
    QStringList names;
    for (const Entry &entry : entries) {
        const QString destination = QDir(targetFolder).filePath(entry.name);
        QFileInfo existing(destination);
        if ((existing.exists() || existing.isSymLink()) && !QFile::remove(destination))
            return DbError::file(native(destination), tr("The file cannot be replaced."));
        QFile moved(staging.filePath(entry.name));
        if (!moved.rename(destination))
            return DbError::file(native(destination), moved.errorString());
        names << entry.name;
    }
    names.sort(Qt::CaseInsensitive);
    if (tables)
        *tables = names;
    return {};
}

DbError carryOver(const QString &archivePath, const QStringList &tables, const QString &folder, QStringList *carried,
                  QStringList *damaged)
{
    int code = 0;
    ArchivePtr archive(zip_open(QFile::encodeName(archivePath).constData(), ZIP_RDONLY | ZIP_CHECKCONS, &code));
    if (!archive)
        return DbError::file(native(archivePath), zipErrorText(code));
    QByteArray buffer(256 * 1024, Qt::Uninitialized);
    for (const QString &table : tables) {
        if (!isTableName(table))
            continue;
        const zip_int64_t index = zip_name_locate(archive.get(), table.toUtf8().constData(), ZIP_FL_ENC_UTF_8);
        zip_stat_t st;
        zip_stat_init(&st);
        if (index < 0 || zip_stat_index(archive.get(), zip_uint64_t(index), 0, &st) != 0 || !(st.valid & ZIP_STAT_SIZE))
            continue;
        const QString path = QDir(folder).filePath(table);
        DbError error;
        const QString bad = copyEntry(archive.get(), zip_uint64_t(index), table, st.size, path, buffer, &error);
        if (error || !bad.isEmpty())
            QFile::remove(path);
        if (error)
            return error;
        if (bad.isEmpty())
            *carried << table;
        else
            *damaged << bad;
    }
    return {};
}

} // namespace tabulon::BackupArchive
