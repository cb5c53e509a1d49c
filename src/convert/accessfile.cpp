#include "convert/accessfile.h"
#include "db/typecodes.h"

#include "convert/valuetext.h"

#include <QFile>

#include <mdbtools.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tabulon {

namespace {

std::size_t kBindSize = 256 * 1024; // the longest value text taken whole; see setValueLimit
constexpr unsigned kMaxColumns = 255;

// The child's form: 'T' table header, 'R' row, 'Z' the end. Lengths are 32-bit little endian.
void putU32(QByteArray &out, quint32 v)
{
    const char b[4] = {static_cast<char>(v & 0xff), static_cast<char>((v >> 8) & 0xff),
                       static_cast<char>((v >> 16) & 0xff), static_cast<char>((v >> 24) & 0xff)};
    out.append(b, 4);
}

void putText(QByteArray &out, QByteArrayView utf8)
{
    putU32(out, static_cast<quint32>(utf8.size()));
    out.append(utf8.data(), utf8.size());
}

class FormReader final {
public:
    explicit FormReader(QByteArrayView form) : m_form(form) {}
    bool atEnd() const { return m_pos >= m_form.size(); }
    bool byte(char &c)
    {
        if (m_pos + 1 > m_form.size())
            return false;
        c = m_form[m_pos++];
        return true;
    }
    bool u32(quint32 &v)
    {
        if (m_pos + 4 > m_form.size())
            return false;
        const auto *p = reinterpret_cast<const unsigned char *>(m_form.data() + m_pos);
        v = p[0] | (p[1] << 8) | (p[2] << 16) | (quint32(p[3]) << 24);
        m_pos += 4;
        return true;
    }
    bool take(quint32 n, QByteArray &to)
    {
        if (n > static_cast<quint64>(m_form.size() - m_pos))
            return false;
        to.append(m_form.data() + m_pos, n);
        m_pos += n;
        return true;
    }
    bool text(QString &s)
    {
        quint32 n = 0;
        if (!u32(n) || n > static_cast<quint64>(m_form.size() - m_pos))
            return false;
        s = QString::fromUtf8(m_form.data() + m_pos, n);
        m_pos += n;
        return true;
    }

private:
    QByteArrayView m_form;
    qsizetype m_pos = 0;
};

struct MdbCloser {
    void operator()(MdbHandle *h) const { mdb_close(h); }
};
struct TableCloser {
    void operator()(MdbTableDef *t) const { mdb_free_tabledef(t); }
};

QString fixedValue(MdbHandle *mdb, const MdbColumn *col, const char *bound, int boundLength)
{
    // Floating values come from their stored bytes, so their text is exact; the library's own
    // text is the fallback when the value lies outside the page.
    const int start = col->cur_value_start;
    const bool inPage = start >= 0 && col->cur_value_len > 0 && start + col->cur_value_len <= mdb->fmt->pg_size;
    const QString text = QString::fromUtf8(bound, boundLength);
    switch (col->col_type) {
    case MDB_BOOL: return ValueText::boolean(text == QLatin1String("1"));
    case MDB_MONEY:
    case MDB_NUMERIC: return ValueText::trimFraction(text);
    case MDB_FLOAT:
        if (inPage && col->cur_value_len >= 4)
            return ValueText::number(mdb_get_single(mdb->pg_buf, start));
        return ValueText::number(text.toFloat());
    case MDB_DOUBLE:
        if (inPage && col->cur_value_len >= 8)
            return ValueText::number(mdb_get_double(mdb->pg_buf, start));
        return ValueText::number(text.toDouble());
    case MDB_DATETIME:
        if (inPage && col->cur_value_len >= 8)
            return ValueText::oleDate(mdb_get_double(mdb->pg_buf, start));
        return text;
    case MDB_BINARY: return ValueText::bytes(QByteArrayView(bound, boundLength));
    default: return text;
    }
}

// A memo or OLE value longer than its row holds its text on other pages ("LVAL" pages): the
// first of them must lie inside the file and be a data page. Returns the length the value
// declares, or -1 when its header is damaged.
qint64 longValueLength(MdbHandle *mdb, const MdbColumn *col, const unsigned char *data, std::size_t pages,
                       std::size_t pageSize)
{
    const int start = col->cur_value_start;
    if (start < 0 || col->cur_value_len < 12 || start + 12 > mdb->fmt->pg_size)
        return -1;
    const auto header = static_cast<quint32>(mdb_get_int32(mdb->pg_buf, start));
    const qint64 length = header & 0x3fffffff;
    if (header & 0x80000000u)
        return length; // held in the row itself
    const auto pointer = static_cast<quint32>(mdb_get_int32(mdb->pg_buf, start + 4));
    const std::size_t page = pointer >> 8;
    if (page == 0 || page >= pages || data[page * pageSize] != 0x01)
        return -1;
    return length;
}

bool readTables(MdbHandle *mdb, const unsigned char *data, std::size_t pages, std::size_t pageSize, QByteArray &form,
                QString &reason, const std::function<void(QByteArray &)> &flush)
{
    constexpr qsizetype kFlushSize = 1 << 20;
    std::vector<QByteArray> buffers; // the bound columns' buffers, reused from table to table
    if (!mdb_read_catalog(mdb, MDB_TABLE)) {
        reason = QStringLiteral("the catalog cannot be read");
        return false;
    }
    for (unsigned i = 0; i < mdb->num_catalog; ++i) {
        auto *entry = static_cast<MdbCatalogEntry *>(g_ptr_array_index(mdb->catalog, i));
        if (!entry || entry->object_type != MDB_TABLE)
            continue;
        // System tables are read too, into nothing: damage anywhere in the file shows here.
        QByteArray scratch;
        QByteArray &out = mdb_is_user_table(entry) ? form : scratch;
        const QString name = QString::fromUtf8(entry->object_name);
        if (entry->table_pg == 0 || entry->table_pg >= pages || data[entry->table_pg * pageSize] != 0x02) {
            reason = QStringLiteral("the definition of table %1 is damaged").arg(name);
            return false;
        }
        std::unique_ptr<MdbTableDef, TableCloser> table(mdb_read_table(entry));
        if (!table || !mdb_read_columns(table.get()) || table->num_cols == 0 || table->num_cols > kMaxColumns ||
            !table->columns || table->columns->len != table->num_cols) {
            reason = QStringLiteral("the definition of table %1 is damaged").arg(name);
            return false;
        }
        const unsigned columns = table->num_cols;
        out.append('T');
        putText(out, QByteArrayView(entry->object_name));
        putU32(out, columns);
        if (buffers.size() < columns)
            buffers.resize(columns);
        std::vector<int> lengths(columns, 0);
        for (unsigned c = 0; c < columns; ++c) {
            auto *col = static_cast<MdbColumn *>(g_ptr_array_index(table->columns, c));
            putText(out, QByteArrayView(col->name));
            putU32(out, static_cast<quint32>(AccessFile::adoTypeFor(col->col_type)));
            if (buffers[c].isEmpty())
                buffers[c] = QByteArray(static_cast<qsizetype>(kBindSize) + 1, Qt::Uninitialized);
            mdb_bind_column(table.get(), static_cast<int>(c + 1), buffers[c].data(), &lengths[c]);
        }
        mdb_rewind_table(table.get());
        unsigned long rows = 0;
        while (mdb_fetch_row(table.get())) {
            if (++rows > table->num_rows) {
                reason = QStringLiteral("table %1 holds more rows than its definition says").arg(name);
                return false;
            }
            if (flush && out.size() > kFlushSize)
                flush(out);
            out.append('R');
            for (unsigned c = 0; c < columns; ++c) {
                auto *col = static_cast<MdbColumn *>(g_ptr_array_index(table->columns, c));
                const int length = std::clamp(lengths[c], 0, static_cast<int>(kBindSize));
                if (length == 0 && col->col_type != MDB_BOOL) {
                    out.append('\0');
                    continue;
                }
                QString value;
                const bool longValue = col->col_type == MDB_OLE || col->col_type == MDB_MEMO;
                const qint64 declared = longValue ? longValueLength(mdb, col, data, pages, pageSize) : 0;
                if (declared < 0) {
                    reason = QStringLiteral("a long value of table %1 is damaged").arg(name);
                    return false;
                }
                if (col->col_type == MDB_OLE) {
                    std::size_t size = 0;
                    void *blob = mdb_ole_read_full(mdb, col, &size);
                    if (static_cast<qint64>(size) != declared) {
                        g_free(blob);
                        reason = QStringLiteral("an OLE object of table %1 is cut short").arg(name);
                        return false;
                    }
                    value = ValueText::bytes(
                        QByteArrayView(static_cast<const char *>(blob), blob ? static_cast<qsizetype>(size) : 0));
                    g_free(blob);
                } else {
                    value = fixedValue(mdb, col, buffers[c].constData(), length);
                }
                out.append('\1');
                putText(out, value.toUtf8());
            }
        }
        if (rows != table->num_rows) {
            reason = QStringLiteral("table %1 holds %2 of its %3 rows").arg(name).arg(rows).arg(table->num_rows);
            return false;
        }
    }
    form.append('Z');
    return true;
}

} // namespace

namespace AccessFile {

void setValueLimit(std::size_t bytes)
{
    kBindSize = std::max<std::size_t>(bytes, 4096);
}

int adoTypeFor(int mdbColumnType)
{
    switch (mdbColumnType) {
    case MDB_BOOL: return AdoType::Boolean;
    case MDB_BYTE: return AdoType::UnsignedTinyInt;
    case MDB_INT: return AdoType::SmallInt;
    case MDB_LONGINT: return AdoType::Integer;
    case MDB_MONEY: return AdoType::Currency;
    case MDB_FLOAT: return AdoType::Single;
    case MDB_DOUBLE: return AdoType::Double;
    case MDB_DATETIME: return AdoType::Date;
    case MDB_TEXT: return AdoType::VarWChar;
    case MDB_BINARY: return AdoType::VarBinary;
    case MDB_OLE: return AdoType::LongVarBinary;
    case MDB_REPID: return AdoType::Guid;
    case MDB_NUMERIC: return AdoType::Numeric;
    default: return AdoType::LongVarWChar; // memo, hyperlink and whatever else holds long text
    }
}

bool readImage(const unsigned char *data, std::size_t size, QByteArray &out, QString &reason,
               const std::function<void(QByteArray &)> &flush)
{
    out.clear();
    // The header page: "Standard Jet DB" (or ACE) at 4, the version at 0x14, which sets the
    // page size. Everything the library reads is a whole page.
    if (size < 0x20 ||
        (std::memcmp(data + 4, "Standard Jet DB", 15) != 0 && std::memcmp(data + 4, "Standard ACE DB", 15) != 0)) {
        reason = QStringLiteral("not an Access database");
        return false;
    }
    const std::size_t pageSize = data[0x14] == 0 ? 2048 : 4096;
    if (size < 3 * pageSize || size % pageSize != 0) {
        reason = QStringLiteral("the file is cut short");
        return false;
    }
    const std::size_t pages = size / pageSize;
    // Page 2 holds the definition of the catalog table.
    if (data[2 * pageSize] != 0x02) {
        reason = QStringLiteral("the catalog is damaged");
        return false;
    }
    std::vector<unsigned char> image(data, data + size);
    std::unique_ptr<MdbHandle, MdbCloser> mdb(mdb_open_buffer(image.data(), size, MDB_NOFLAGS));
    if (!mdb) {
        reason = QStringLiteral("not an Access database");
        return false;
    }
    mdb_set_bind_size(mdb.get(), kBindSize);
    mdb_set_boolean_fmt_numbers(mdb.get());
    return readTables(mdb.get(), data, pages, pageSize, out, reason, flush);
}

DbResult<std::vector<SourceTable>> decode(QByteArrayView form)
{
    const DbError malformed = DbError::generic(QStringLiteral("the Access reader's answer is malformed"));
    std::vector<SourceTable> tables;
    FormReader in(form);
    char tag = 0;
    while (in.byte(tag)) {
        if (tag == 'Z')
            return in.atEnd() ? DbResult<std::vector<SourceTable>>(std::move(tables)) : malformed;
        if (tag == 'T') {
            SourceTable table;
            quint32 count = 0;
            if (!in.text(table.name) || !in.u32(count) || count == 0 || count > kMaxColumns)
                return malformed;
            for (quint32 i = 0; i < count; ++i) {
                SourceField field;
                quint32 type = 0;
                if (!in.text(field.name) || !in.u32(type))
                    return malformed;
                field.type = static_cast<int>(type);
                table.fields.push_back(std::move(field));
            }
            tables.push_back(std::move(table));
        } else if (tag == 'R') {
            if (tables.empty())
                return malformed;
            SourceTable &table = tables.back();
            SourceRow row(table.fields.size());
            for (auto &value : row) {
                char kind = 0;
                if (!in.byte(kind) || (kind != '\0' && kind != '\1'))
                    return malformed;
                if (kind == '\1') {
                    QString text;
                    if (!in.text(text))
                        return malformed;
                    value = std::move(text);
                }
            }
            table.rows.push_back(std::move(row));
        } else {
            return malformed;
        }
    }
    return malformed;
}

DbResult<std::vector<SourceTable>> load(const QString &path, int timeoutSeconds)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return DbError::file(path, file.errorString());
    const QByteArray image = file.readAll();
    file.close();

    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0)
        return DbError::file(path, QString::fromLocal8Bit(std::strerror(errno)));
    const pid_t child = fork();
    if (child < 0) {
        const int e = errno;
        ::close(fds[0]);
        ::close(fds[1]);
        return DbError::file(path, QString::fromLocal8Bit(std::strerror(e)));
    }
    if (child == 0) {
        // The child: the library's complaints go nowhere, its answer goes up the pipe.
        ::close(fds[0]);
        const int devNull = ::open("/dev/null", O_WRONLY);
        if (devNull >= 0) {
            ::dup2(devNull, STDOUT_FILENO); // the library dumps pages it dislikes there
            ::dup2(devNull, STDERR_FILENO);
        }
        // Frames up the pipe: 'F' and a piece of the form as it grows, or 'E' and the reason
        // the file cannot be read; each with its length.
        auto send = [&](char kind, QByteArrayView bytes) {
            QByteArray frame(1, kind);
            putU32(frame, static_cast<quint32>(bytes.size()));
            frame.append(bytes.data(), bytes.size());
            const char *p = frame.constData();
            qsizetype left = frame.size();
            while (left > 0) {
                const ssize_t n = ::write(fds[1], p, static_cast<size_t>(left));
                if (n < 0 && errno == EINTR)
                    continue;
                if (n <= 0)
                    _exit(2);
                p += n;
                left -= n;
            }
        };
        QByteArray out;
        QString reason;
        const bool read = readImage(reinterpret_cast<const unsigned char *>(image.constData()),
                                    static_cast<std::size_t>(image.size()), out, reason, [&](QByteArray &piece) {
                                        send('F', piece);
                                        piece.clear();
                                    });
        if (read)
            send('F', out);
        else
            send('E', reason.toUtf8());
        _exit(0);
    }

    ::close(fds[1]);
    QByteArray answer;
    bool timedOut = false;
    char buffer[65536];
    for (;;) {
        pollfd pfd{fds[0], POLLIN, 0};
        const int ready = ::poll(&pfd, 1, timeoutSeconds * 1000);
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0) {
            timedOut = true;
            break;
        }
        const ssize_t n = ::read(fds[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        answer.append(buffer, n);
    }
    ::close(fds[0]);
    if (timedOut)
        ::kill(child, SIGKILL);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }

    if (timedOut)
        return DbError::file(path, QStringLiteral("reading the Access database stopped answering"));
    if (WIFSIGNALED(status))
        return DbError::file(
            path,
            QStringLiteral("the Access database is damaged (its reader ended on signal %1)").arg(WTERMSIG(status)));
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || answer.isEmpty())
        return DbError::file(path, QStringLiteral("the Access database could not be read"));
    QByteArray form;
    FormReader frames(answer);
    char kind = 0;
    while (frames.byte(kind)) {
        QString piece;
        quint32 length = 0;
        if (kind == 'E' && frames.text(piece))
            return DbError::file(path, piece);
        if (kind != 'F' || !frames.u32(length) || !frames.take(length, form))
            return DbError::file(path, QStringLiteral("the Access reader's answer is malformed"));
    }
    auto tables = decode(form);
    if (!tables.ok())
        return DbError::file(path, tables.error().description);
    return tables;
}

} // namespace AccessFile

DbResult<std::unique_ptr<ConversionSource>> AccessSource::open(const QString &path)
{
    auto tables = AccessFile::load(path);
    if (!tables.ok())
        return tables.error();
    return std::unique_ptr<ConversionSource>(new AccessSource(std::move(tables.value())));
}

QStringList AccessSource::tableNames() const
{
    QStringList names;
    for (const SourceTable &t : m_tables)
        names << t.name;
    return names;
}

const SourceTable *AccessSource::find(const QString &table) const
{
    for (const SourceTable &t : m_tables) {
        if (t.name.compare(table, Qt::CaseInsensitive) == 0)
            return &t;
    }
    return nullptr;
}

DbResult<std::vector<SourceField>> AccessSource::readFields(const QString &table)
{
    if (const SourceTable *t = find(table))
        return t->fields;
    return unknownSourceTable(table);
}

DbError AccessSource::readRows(const QString &table, const RowSink &row)
{
    const SourceTable *t = find(table);
    if (!t)
        return unknownSourceTable(table);
    for (const SourceRow &r : t->rows) {
        if (DbError e = row(r))
            return e;
    }
    return DbError::none();
}

} // namespace tabulon
