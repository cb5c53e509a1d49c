#include "convert/accessfile.h"
#include "db/typecodes.h"

#include "convert/valuetext.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>

#include <mdbtools.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <unistd.h>

namespace tabulon {

namespace {

// The bound columns' buffer size: texts of at most 255 letters, numbers and dates. Memo and
// binary values are not bound (see ImageReader::read).
constexpr std::size_t kBindSize = 4096;
constexpr unsigned kMaxColumns = 255;

// The child's form: 'T' table header, 'R' row, 'Z' the end. Lengths are 32-bit little endian.
// A row's values each start with a kind: '\0' NULL, '\1' a text (UTF-8), '\2' bytes.
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
    if (static_cast<std::size_t>(length) > pages * pageSize)
        return -1; // no value is longer than the file that holds it
    if (header & 0x80000000u)
        return length; // held in the row itself
    const auto pointer = static_cast<quint32>(mdb_get_int32(mdb->pg_buf, start + 4));
    const std::size_t page = pointer >> 8;
    if (page == 0 || page >= pages || data[page * pageSize] != 0x01)
        return -1;
    return length;
}

// Which columns of the row just fetched are NULL. The library hands a NULL and a zero-length
// text alike (an empty bound value, no length), so the row's null mask is read again here.
bool rowNulls(MdbTableDef *table, std::vector<char> &nulls)
{
    MdbHandle *mdb = table->entry->mdb;
    int start = 0;
    std::size_t size = 0;
    if (table->cur_row == 0 || mdb_find_row(mdb, static_cast<int>(table->cur_row) - 1, &start, &size) != 0)
        return false;
    MdbField fields[kMaxColumns] = {};
    const int count = mdb_crack_row(table, start & 0x1fff, size, fields);
    if (count < 0 || static_cast<unsigned>(count) > table->num_cols)
        return false;
    std::fill(nulls.begin(), nulls.end(), 0);
    for (int i = 0; i < count; ++i) {
        if (fields[i].colnum >= 0 && static_cast<std::size_t>(fields[i].colnum) < nulls.size())
            nulls[static_cast<std::size_t>(fields[i].colnum)] = fields[i].is_null ? 1 : 0;
    }
    return true;
}

qsizetype gFlushThreshold = 1 << 20;    // see setFlushThreshold
std::chrono::microseconds gRowPause{0}; // see setRowPause

// A whole file image opened in this process: the checks that come before the library sees the
// file, then the catalog. The tables are read one at a time from it.
class ImageReader final {
public:
    struct Table final {
        MdbCatalogEntry *entry;
        QString name;
        bool user;
    };

    bool open(const unsigned char *data, std::size_t size, QString &reason)
    {
        // The header page: "Standard Jet DB" (or ACE) at 4, the version at 0x14, which sets
        // the page size. Everything the library reads is a whole page.
        if (size < 0x20 ||
            (std::memcmp(data + 4, "Standard Jet DB", 15) != 0 && std::memcmp(data + 4, "Standard ACE DB", 15) != 0)) {
            reason = QStringLiteral("not an Access database");
            return false;
        }
        m_pageSize = data[0x14] == 0 ? 2048 : 4096;
        if (size < 3 * m_pageSize || size % m_pageSize != 0) {
            reason = QStringLiteral("the file is cut short");
            return false;
        }
        m_pages = size / m_pageSize;
        // Page 2 holds the definition of the catalog table.
        if (data[2 * m_pageSize] != 0x02) {
            reason = QStringLiteral("the catalog is damaged");
            return false;
        }
        m_image.assign(data, data + size);
        m_mdb.reset(mdb_open_buffer(m_image.data(), size, MDB_NOFLAGS));
        if (!m_mdb) {
            reason = QStringLiteral("not an Access database");
            return false;
        }
        mdb_set_bind_size(m_mdb.get(), kBindSize);
        mdb_set_boolean_fmt_numbers(m_mdb.get());
        if (!mdb_read_catalog(m_mdb.get(), MDB_TABLE)) {
            reason = QStringLiteral("the catalog cannot be read");
            return false;
        }
        for (unsigned i = 0; i < m_mdb->num_catalog; ++i) {
            auto *entry = static_cast<MdbCatalogEntry *>(g_ptr_array_index(m_mdb->catalog, i));
            if (entry && entry->object_type == MDB_TABLE)
                m_tables.push_back({entry, QString::fromUtf8(entry->object_name), mdb_is_user_table(entry) != 0});
        }
        return true;
    }

    const std::vector<Table> &tables() const { return m_tables; }

    // Writes table `t` as the child's form ('T' header, then an 'R' per row unless
    // `headerOnly`). `flush` takes the form as it grows past the threshold; `row`, when given,
    // is called after every row, and false from it ends the reading.
    bool read(const Table &t, QByteArray &out, QString &reason, bool headerOnly,
              const std::function<void(QByteArray &)> &flush, const std::function<bool()> &row = {})
    {
        MdbHandle *mdb = m_mdb.get();
        const unsigned char *data = m_image.data();
        const QString &name = t.name;
        MdbCatalogEntry *entry = t.entry;
        if (entry->table_pg == 0 || entry->table_pg >= m_pages || data[entry->table_pg * m_pageSize] != 0x02) {
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
        if (m_buffers.size() < columns)
            m_buffers.resize(columns);
        std::vector<int> lengths(columns, 0);
        for (unsigned c = 0; c < columns; ++c) {
            auto *col = static_cast<MdbColumn *>(g_ptr_array_index(table->columns, c));
            putText(out, QByteArrayView(col->name));
            putU32(out, static_cast<quint32>(AccessFile::adoTypeFor(col->col_type)));
            // Memo and binary values are taken from the page after each fetch: the library's
            // copy into a bound buffer cuts a memo at the buffer's size and a binary value at
            // its first zero byte.
            if (col->col_type == MDB_MEMO || col->col_type == MDB_BINARY)
                continue;
            if (m_buffers[c].isEmpty())
                m_buffers[c] = QByteArray(static_cast<qsizetype>(kBindSize) + 1, Qt::Uninitialized);
            mdb_bind_column(table.get(), static_cast<int>(c + 1), m_buffers[c].data(), &lengths[c]);
        }
        if (headerOnly)
            return true;
        mdb_rewind_table(table.get());
        unsigned long rows = 0;
        std::vector<char> nulls(columns, 0);
        while (mdb_fetch_row(table.get())) {
            if (++rows > table->num_rows) {
                reason = QStringLiteral("table %1 holds more rows than its definition says").arg(name);
                return false;
            }
            if (!rowNulls(table.get(), nulls)) {
                reason = QStringLiteral("a row of table %1 is damaged").arg(name);
                return false;
            }
            if (gRowPause.count() > 0)
                std::this_thread::sleep_for(gRowPause);
            if (row && !row()) {
                reason = QStringLiteral("the program stopped listening");
                return false;
            }
            if (flush && out.size() > gFlushThreshold)
                flush(out);
            out.append('R');
            for (unsigned c = 0; c < columns; ++c) {
                auto *col = static_cast<MdbColumn *>(g_ptr_array_index(table->columns, c));
                // An OLE object's bound text keeps the length of the last one that had any: its
                // own length is the one in the row.
                const bool fromPage =
                    col->col_type == MDB_MEMO || col->col_type == MDB_BINARY || col->col_type == MDB_OLE;
                const int length =
                    fromPage ? col->cur_value_len : std::clamp(lengths[c], 0, static_cast<int>(kBindSize));
                // A boolean keeps its value in the null mask and is never NULL.
                if (col->col_type != MDB_BOOL && nulls[c]) {
                    out.append('\0');
                    continue;
                }
                if (length <= 0 && col->col_type != MDB_BOOL) {
                    // A zero-length text, memo or binary value stays empty.
                    const bool binary = col->col_type == MDB_OLE || col->col_type == MDB_BINARY;
                    out.append(binary ? '\2' : '\1');
                    putU32(out, 0);
                    continue;
                }
                QString value;
                QByteArray bytes;
                const bool longValue = col->col_type == MDB_OLE || col->col_type == MDB_MEMO;
                const qint64 declared = longValue ? longValueLength(mdb, col, data, m_pages, m_pageSize) : 0;
                if (declared < 0) {
                    reason = QStringLiteral("a long value of table %1 is damaged").arg(name);
                    return false;
                }
                if (col->col_type == MDB_OLE) {
                    std::size_t size = 0;
                    void *blob = mdb_ole_read_full(mdb, col, &size);
                    if (static_cast<qint64>(size) != declared) {
                        free(blob);
                        reason = QStringLiteral("an OLE object of table %1 is cut short").arg(name);
                        return false;
                    }
                    bytes = QByteArray(static_cast<const char *>(blob), blob ? static_cast<qsizetype>(size) : 0);
                    free(blob);
                } else if (col->col_type == MDB_MEMO) {
                    value = memoText(col, declared);
                } else if (col->col_type == MDB_BINARY) {
                    const int start = col->cur_value_start;
                    if (start < 0 || start + length > mdb->fmt->pg_size) {
                        reason = QStringLiteral("a binary value of table %1 is damaged").arg(name);
                        return false;
                    }
                    bytes = QByteArray(reinterpret_cast<const char *>(mdb->pg_buf) + start, length);
                } else {
                    value = fixedValue(mdb, col, m_buffers[c].constData(), length);
                }
                if (col->col_type == MDB_OLE || col->col_type == MDB_BINARY) {
                    out.append('\2');
                    putText(out, bytes);
                } else {
                    out.append('\1');
                    putText(out, value.toUtf8());
                }
            }
        }
        if (rows != table->num_rows) {
            reason = QStringLiteral("table %1 holds %2 of its %3 rows").arg(name).arg(rows).arg(table->num_rows);
            return false;
        }
        return true;
    }

private:
    // A memo's whole text: the library converts it into a buffer of its bind size, so that
    // size is raised for the one value to what its declared length can become in UTF-8.
    QString memoText(MdbColumn *col, qint64 declared)
    {
        MdbHandle *mdb = m_mdb.get();
        const std::size_t needed = static_cast<std::size_t>(declared) * 3 + 16;
        const std::size_t saved = mdb->bind_size;
        mdb->bind_size = std::max(saved, needed);
        char *text = mdb_col_to_string(mdb, mdb->pg_buf, col->cur_value_start, MDB_MEMO, col->cur_value_len);
        mdb->bind_size = saved;
        const QString value = text ? QString::fromUtf8(text) : QString();
        g_free(text);
        return value;
    }

    std::vector<unsigned char> m_image;
    std::unique_ptr<MdbHandle, MdbCloser> m_mdb;
    std::size_t m_pageSize = 0;
    std::size_t m_pages = 0;
    std::vector<Table> m_tables;
    std::vector<QByteArray> m_buffers; // the bound columns' buffers, reused from table to table
};

} // namespace

namespace AccessFile {

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

void setFlushThreshold(qsizetype bytes)
{
    gFlushThreshold = std::max<qsizetype>(bytes, 1);
}

void setRowPause(std::chrono::microseconds pause)
{
    gRowPause = pause;
}

bool readImage(const unsigned char *data, std::size_t size, QByteArray &out, QString &reason,
               const std::function<void(QByteArray &)> &flush)
{
    out.clear();
    ImageReader reader;
    if (!reader.open(data, size, reason))
        return false;
    for (const ImageReader::Table &t : reader.tables()) {
        if (t.user) {
            if (!reader.read(t, out, reason, false, flush))
                return false;
            continue;
        }
        // System tables are read too, into nothing: damage anywhere in the file shows here.
        // Their pieces never reach `flush`, which carries only the user tables' rows.
        QByteArray scratch;
        if (!reader.read(t, scratch, reason, false, [](QByteArray &piece) { piece.clear(); }))
            return false;
    }
    out.append('Z');
    return true;
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
                if (!in.byte(kind) || (kind != '\0' && kind != '\1' && kind != '\2'))
                    return malformed;
                if (kind == '\1') {
                    QString text;
                    if (!in.text(text))
                        return malformed;
                    value = std::move(text);
                } else if (kind == '\2') {
                    quint32 size = 0;
                    QByteArray bytes;
                    if (!in.u32(size) || !in.take(size, bytes))
                        return malformed;
                    value = SourceValue::fromBytes(std::move(bytes));
                }
            }
            table.rows.push_back(std::move(row));
        } else {
            return malformed;
        }
    }
    return malformed;
}

namespace {

// Frames between the reader program and the program: a kind, a 32-bit length, the bytes.
// Up: 'P' the reader is alive (a table was checked, or some of its rows read), 'C' the user
// tables' headers, 'F' a piece of a table's form, 'D' the table is whole, 'E' the reason the
// file cannot be read. Down: one line per table wanted, its index among the user tables; the
// end of input ends the reader.
bool writeAll(int fd, QByteArrayView bytes)
{
    const char *p = bytes.data();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, p, static_cast<size_t>(left));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        p += n;
        left -= n;
    }
    return true;
}

// The longest the reader stays silent while it reads a table: well below the time the program
// waits for it.
constexpr qint64 kAliveMs = 250;

bool sendFrame(int fd, char kind, QByteArrayView bytes)
{
    QByteArray head(1, kind);
    putU32(head, static_cast<quint32>(bytes.size()));
    return writeAll(fd, head) && writeAll(fd, bytes);
}

// One line from `fd`; false at the end of input.
bool readLine(int fd, QByteArray &line)
{
    line.clear();
    char c = 0;
    for (;;) {
        const ssize_t n = ::read(fd, &c, 1);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        if (c == '\n')
            return true;
        if (line.size() > 32)
            return false;
        line.append(c);
    }
}

} // namespace

int serve(const QString &path, int in, int out)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return sendFrame(out, 'E', file.errorString().toUtf8()) ? 0 : 2;
    const QByteArray image = file.readAll();
    file.close();
    ImageReader reader;
    QString reason;
    auto fail = [&] { return sendFrame(out, 'E', reason.toUtf8()) ? 0 : 2; };
    if (!reader.open(reinterpret_cast<const unsigned char *>(image.constData()), static_cast<std::size_t>(image.size()),
                     reason))
        return fail();
    // The whole file is checked before the program creates anything from it. While it reads,
    // the reader says it is alive every so often, row by row: a table of millions of rows takes
    // longer to read than the program waits for a word from it.
    const auto discard = [](QByteArray &piece) { piece.clear(); };
    QElapsedTimer sinceSignal;
    sinceSignal.start();
    bool listening = true;
    const auto alive = [&] {
        if (sinceSignal.elapsed() >= kAliveMs) {
            listening = sendFrame(out, 'P', {});
            sinceSignal.restart();
        }
        return listening;
    };
    std::vector<const ImageReader::Table *> user;
    for (const ImageReader::Table &t : reader.tables()) {
        QByteArray scratch;
        if (!reader.read(t, scratch, reason, false, discard, alive))
            return listening ? fail() : 2;
        if (t.user)
            user.push_back(&t);
        if (!sendFrame(out, 'P', {}))
            return 2;
        sinceSignal.restart();
    }
    QByteArray catalog;
    for (const ImageReader::Table *t : user) {
        if (!reader.read(*t, catalog, reason, true, {}))
            return fail();
    }
    catalog.append('Z');
    if (!sendFrame(out, 'C', catalog))
        return 2;
    // Then one table at a time, as the program asks for them.
    QByteArray line;
    while (readLine(in, line)) {
        bool number = false;
        const int index = line.toInt(&number);
        if (!number || index < 0 || static_cast<std::size_t>(index) >= user.size())
            return 3;
        QByteArray form;
        bool sent = true;
        sinceSignal.restart();
        const bool read = reader.read(
            *user[static_cast<std::size_t>(index)], form, reason, false,
            [&](QByteArray &piece) {
                sent = sent && sendFrame(out, 'F', piece);
                piece.clear();
                sinceSignal.restart();
            },
            alive);
        if (!read)
            return listening ? fail() : 2;
        form.append('Z');
        if (!sent || !sendFrame(out, 'F', form) || !sendFrame(out, 'D', {}))
            return 2;
    }
    return 0;
}

} // namespace AccessFile
} // namespace tabulon
