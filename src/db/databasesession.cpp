#include "db/databasesession.h"

#include "db/connectionstring.h"
#include "db/statementhook.h"
#include "db/typecodes.h"

#include <mysql.h>

// The transport's own settings; it builds on the types of mysql.h.
#include <ma_pvio.h>

#include <QElapsedTimer>
#include <QScopeGuard>

#include <poll.h>

#include <cerrno>

#include <algorithm>
#include <exception>
#include <limits>

namespace tabulon {

namespace detail {
struct Connection final {
    MYSQL *mysql = nullptr;
    // The server's max_allowed_packet, read the first time a statement might exceed it.
    qint64 maxPacket = -1;
    // True while streamQuery() hands out rows: the rest of the result is still on the wire, and
    // the caller may be yielding to other windows meanwhile.
    bool reading = false;
    // Whether the client library's calls that return instead of waiting are set up (0 not
    // yet asked, 1 yes, -1 refused: rows are then waited for as usual).
    int canWaitOutside = 0;
    ~Connection()
    {
        if (mysql)
            mysql_close(mysql);
    }
};
} // namespace detail

namespace {

const QString kRowNotFoundText =
    QStringLiteral("Row cannot be located for updating. Some values may have been changed since it was last read.");
const QString kTooBigText = QStringLiteral(
    "Not enough memory to hold the result: a column of it holds more than 4 GiB of text, or memory ran out.");

DbError errorOf(MYSQL *mysql)
{
    const int code = static_cast<int>(mysql_errno(mysql));
    return DbError::fromServer(code ? code : 2000, QString::fromUtf8(mysql_error(mysql)));
}

// Escapes for use between single quotes, by the connection's own character set and mode.
QByteArray escapeOn(MYSQL *mysql, QByteArrayView utf8)
{
    QByteArray out(utf8.size() * 2 + 1, Qt::Uninitialized);
    out.truncate(static_cast<qsizetype>(
        mysql_real_escape_string(mysql, out.data(), utf8.data(), static_cast<unsigned long>(utf8.size()))));
    return out;
}

DbError notOpen()
{
    return DbError::generic(QStringLiteral("Operation is not allowed when the object is closed."));
}

// Text of a BIT value: its number, whatever its width, so that writing the text back as a
// number stores the same bits.
QByteArray bitText(const char *data, unsigned long length)
{
    quint64 v = 0;
    for (unsigned long i = 0; i < length; ++i)
        v = (v << 8) | static_cast<unsigned char>(data[i]);
    return QByteArray::number(v);
}

// No server accepts less than this; shorter statements never need the limit looked up.
constexpr qint64 kSmallestPacketLimit = 1024;

// The server's packet limit, asked once per connection (the query bypasses the statement hook:
// it is the session's own, not the program's).
qint64 packetLimitOf(detail::Connection &c)
{
    if (c.maxPacket >= 0)
        return c.maxPacket;
    qint64 limit = 0;
    if (mysql_query(c.mysql, "SELECT @@max_allowed_packet") == 0) {
        if (MYSQL_RES *r = mysql_store_result(c.mysql)) {
            if (MYSQL_ROW row = mysql_fetch_row(r); row && row[0])
                limit = QByteArray(row[0]).toLongLong();
            mysql_free_result(r);
        }
    }
    // Unknown: let the statement go and the server decide, as before.
    c.maxPacket = limit > 0 ? limit : std::numeric_limits<qint64>::max();
    return c.maxPacket;
}

// Another window's statement while a table is still being read on the same connection: the
// client library would answer "Commands out of sync", which tells the operator nothing.
DbError stillReading()
{
    return DbError::generic(QStringLiteral("The connection is still reading the rows of a table for another window. "
                                           "Try again once that window has finished, or stop its work first."));
}

// Waits for the server outside the client library: the library hands back each wait, the
// socket is watched here a turn of `turnMs` at a time, and `whileWaiting` is called after each
// turn without news until it returns an error, which is kept in `stopped` (the step still goes
// on to its end, as the server answers a stopped statement too). The connection's read timeout
// still ends a wait that lasts too long.
class WaitOutside final {
public:
    WaitOutside(MYSQL *m, const DatabaseSession::Waiting &whileWaiting, int turnMs, DbError &stopped)
        : m_mysql(m), m_whileWaiting(whileWaiting), m_turnMs(std::max(turnMs, 1)), m_stopped(stopped)
    {
    }

    // mysql_real_query's answer, waited for here.
    int query(const QByteArray &sql)
    {
        int failed = 0;
        finish(mysql_real_query_start(&failed, m_mysql, sql.constData(), static_cast<unsigned long>(sql.size())),
               [&](int events) { return mysql_real_query_cont(&failed, m_mysql, events); });
        return failed;
    }
    // mysql_fetch_row's answer, waited for here.
    MYSQL_ROW fetch(MYSQL_RES *r)
    {
        MYSQL_ROW row = nullptr;
        finish(mysql_fetch_row_start(&row, r), [&](int events) { return mysql_fetch_row_cont(&row, r, events); });
        return row;
    }

private:
    template <typename Cont> void finish(int status, Cont cont)
    {
        QElapsedTimer waited;
        waited.start();
        while (status != 0) {
            pollfd watch{};
            watch.fd = mysql_get_socket(m_mysql);
            watch.events = static_cast<short>(((status & MYSQL_WAIT_READ) ? POLLIN : 0) |
                                              ((status & MYSQL_WAIT_WRITE) ? POLLOUT : 0) |
                                              ((status & MYSQL_WAIT_EXCEPT) ? POLLPRI : 0));
            const int ready = poll(&watch, 1, m_turnMs);
            int events = 0;
            if (ready > 0) {
                events = ((watch.revents & (POLLIN | POLLHUP | POLLERR)) ? MYSQL_WAIT_READ : 0) |
                         ((watch.revents & POLLOUT) ? MYSQL_WAIT_WRITE : 0) |
                         ((watch.revents & POLLPRI) ? MYSQL_WAIT_EXCEPT : 0);
                waited.restart();
            } else if (ready < 0 && errno != EINTR) {
                events = status & (MYSQL_WAIT_READ | MYSQL_WAIT_WRITE); // the library reports the failure
            } else {
                if (!m_stopped)
                    m_stopped = m_whileWaiting();
                if ((status & MYSQL_WAIT_TIMEOUT) &&
                    waited.elapsed() >= static_cast<qint64>(mysql_get_timeout_value_ms(m_mysql)))
                    events = MYSQL_WAIT_TIMEOUT;
                else
                    continue;
            }
            status = cont(events);
        }
    }

    MYSQL *m_mysql;
    const DatabaseSession::Waiting &m_whileWaiting;
    int m_turnMs;
    DbError &m_stopped;
};

// Sends a statement unless the server would refuse it for its length: a packet over the limit
// makes the server drop the connection, and with it every tool's work after. With `waiter`,
// the wait for the server's answer is spent outside the library, and other windows keep off
// the connection meanwhile.
DbError sendOn(detail::Connection &c, const QByteArray &bytes, WaitOutside *waiter = nullptr)
{
    if (c.reading)
        return stillReading();
    if (bytes.size() + 1 > kSmallestPacketLimit) {
        const qint64 limit = packetLimitOf(c);
        if (bytes.size() + 1 > limit)
            return DatabaseSession::tooLong(bytes.size(), limit);
    }
    StatementHook::before(bytes);
    if (waiter) {
        c.reading = true;
        const auto done = qScopeGuard([&c] { c.reading = false; });
        return waiter->query(bytes) != 0 ? errorOf(c.mysql) : DbError{};
    }
    if (mysql_real_query(c.mysql, bytes.constData(), static_cast<unsigned long>(bytes.size())) != 0)
        return errorOf(c.mysql);
    return {};
}

void drainResults(MYSQL *mysql)
{
    while (mysql_more_results(mysql) && mysql_next_result(mysql) == 0) {
        if (MYSQL_RES *r = mysql_store_result(mysql))
            mysql_free_result(r);
    }
}

} // namespace

namespace {
// Which fields of `fields` make up a usable key of the table, asked of the server on `c`.
DbResult<std::vector<int>> rowKeyOn(detail::Connection &c, const QString &database, const QString &table,
                                    const std::vector<FieldInfo> &fields)
{
    MYSQL *m = c.mysql;
    // SHOW INDEX of a view lists nothing, so a view has no key here and every column counts.
    QByteArray sql("SHOW INDEX FROM ");
    if (!database.isEmpty())
        sql.append(DatabaseSession::quoteIdentifier(database).toUtf8() + '.');
    sql.append(DatabaseSession::quoteIdentifier(table).toUtf8());
    if (DbError error = sendOn(c, sql))
        return error;
    MYSQL_RES *r = mysql_store_result(m);
    if (!r)
        return errorOf(m);
    struct Key {
        QByteArray name;
        std::vector<int> fields;
        bool usable = true;
    };
    std::vector<Key> keys;
    // Non_unique, Key_name, Seq_in_index, Column_name, Collation, Cardinality, Sub_part, Packed, Null
    while (MYSQL_ROW row = mysql_fetch_row(r)) {
        if (mysql_num_fields(r) < 10 || !row[1] || !row[2] || qstrcmp(row[1], "0") != 0)
            continue;
        const QByteArray index(row[2]);
        if (keys.empty() || keys.back().name != index)
            keys.push_back({index, {}, true});
        Key &key = keys.back();
        const QString column = QString::fromUtf8(row[4] ? row[4] : "");
        int found = -1;
        for (size_t f = 0; f < fields.size() && found < 0; ++f) {
            const QString &name = fields[f].originalName.isEmpty() ? fields[f].name : fields[f].originalName;
            if (name.compare(column, Qt::CaseInsensitive) == 0)
                found = static_cast<int>(f);
        }
        const bool nullable = row[9] && qstrcmp(row[9], "YES") == 0;
        key.usable = key.usable && found >= 0 && !row[7] && !nullable;
        key.fields.push_back(found);
    }
    mysql_free_result(r);
    std::stable_partition(keys.begin(), keys.end(), [](const Key &k) { return k.name == "PRIMARY"; });
    for (const Key &key : keys) {
        if (key.usable && !key.fields.empty())
            return key.fields;
    }
    return std::vector<int>{};
}
} // namespace

DatabaseSession::DatabaseSession() = default;

DatabaseSession::~DatabaseSession() = default;

void DatabaseSession::setTimeouts(unsigned connectSeconds, unsigned readSeconds, unsigned writeSeconds)
{
    m_connectTimeout = connectSeconds;
    m_readTimeout = readSeconds;
    m_writeTimeout = writeSeconds;
}

void DatabaseSession::setOpenReadTimeout(unsigned seconds)
{
    if (!isOpen())
        return;
    // The client library reads its time-out options only when it connects; an open
    // connection's wait is its transport's own setting (0 or less: no limit).
    MARIADB_PVIO *pvio = m_connection->mysql->net.pvio;
    if (pvio && pvio->methods && pvio->methods->set_timeout)
        pvio->methods->set_timeout(pvio, PVIO_READ_TIMEOUT, static_cast<int>(seconds));
}

DbError DatabaseSession::open(const QString &connectionString, const QString &user, const QString &password)
{
    close();
    ConnectionTarget t = connectionTargetFrom(connectionString);
    if (!user.isEmpty())
        t.user = user;
    if (!password.isEmpty())
        t.password = password;

    auto connection = std::make_shared<detail::Connection>();
    connection->mysql = mysql_init(nullptr);
    if (!connection->mysql)
        return DbError::generic(QStringLiteral("Out of memory"));
    MYSQL *m = connection->mysql;
    mysql_optionsv(m, MYSQL_OPT_CONNECT_TIMEOUT, &m_connectTimeout);
    mysql_optionsv(m, MYSQL_OPT_READ_TIMEOUT, &m_readTimeout);
    mysql_optionsv(m, MYSQL_OPT_WRITE_TIMEOUT, &m_writeTimeout);
    const unsigned noLocalInfile = 0;
    mysql_optionsv(m, MYSQL_OPT_LOCAL_INFILE, &noLocalInfile);
    const my_bool noReconnect = 0;
    mysql_optionsv(m, MYSQL_OPT_RECONNECT, &noReconnect);
    mysql_optionsv(m, MYSQL_SET_CHARSET_NAME, "utf8mb4");
    const TlsConfig tls = m_tls ? *m_tls : SessionTls::programDefault();
    if (DbError refused = SessionTls::apply(m, tls))
        return refused;
    if (t.port != 0) {
        // A port only makes sense over TCP, even for "localhost".
        const unsigned tcp = MYSQL_PROTOCOL_TCP;
        mysql_optionsv(m, MYSQL_OPT_PROTOCOL, &tcp);
    }

    const QByteArray host = t.host.toUtf8();
    const QByteArray userBytes = t.user.toUtf8();
    const QByteArray passwordBytes = t.password.toUtf8();
    const QByteArray database = t.database.toUtf8();
    // CLIENT_FOUND_ROWS: an update reports the rows it matched, so that "no row located" is
    // told apart from "nothing changed". Multi-statements stay off.
    if (!mysql_real_connect(m, host.isEmpty() ? nullptr : host.constData(), userBytes.constData(),
                            passwordBytes.constData(), database.isEmpty() ? nullptr : database.constData(), t.port,
                            nullptr, CLIENT_FOUND_ROWS)) {
        return SessionTls::connectError(m, tls, t.host);
    }
    if (DbError refused = SessionTls::checkConnected(m, tls))
        return refused;
    m_connection = std::move(connection);
    m_connectionString = connectionString;
    m_user = user;
    m_password = password;
    return {};
}

DbError DatabaseSession::openSibling(DatabaseSession &other) const
{
    if (!isOpen())
        return notOpen();
    other.setTimeouts(m_connectTimeout, m_readTimeout, m_writeTimeout);
    other.m_tls = m_tls;
    other.m_pipelining = m_pipelining;
    return other.open(m_connectionString, m_user, m_password);
}

void DatabaseSession::close()
{
    m_connection.reset();
}

bool DatabaseSession::isOpen() const
{
    return m_connection && m_connection->mysql;
}

TlsState DatabaseSession::tlsState() const
{
    return isOpen() ? SessionTls::stateOf(m_connection->mysql) : TlsState{};
}

DbError DatabaseSession::lastError() const
{
    return errorOf(m_connection->mysql);
}

DbError DatabaseSession::send(const QString &sql)
{
    return sendBytes(sql.toUtf8());
}

DbError DatabaseSession::sendBytes(const QByteArray &bytes)
{
    if (!isOpen())
        return notOpen();
    return sendOn(*m_connection, bytes);
}

qint64 DatabaseSession::statementLimit() const
{
    return isOpen() ? packetLimitOf(*m_connection) - 1 : 0;
}

DbError DatabaseSession::tooLong(qsizetype bytes, qint64 limit)
{
    return DbError{AdoError::Generic,
                   QStringLiteral("The statement is %1 bytes long, more than the server accepts "
                                  "(max_allowed_packet, %2 bytes); it was not sent.")
                       .arg(bytes)
                       .arg(limit),
                   kStatementTooLong};
}

bool DatabaseSession::sendsAhead() const
{
    return m_pipelining == Pipelining::Always && isOpen();
}

DbError DatabaseSession::sendAhead(const QByteArray &sql)
{
    if (!isOpen())
        return notOpen();
    if (m_connection->reading)
        return stillReading();
    StatementHook::before(sql);
    if (mysql_send_query(m_connection->mysql, sql.constData(), static_cast<unsigned long>(sql.size())) != 0)
        return lastError();
    return {};
}

DbError DatabaseSession::readAnswer()
{
    if (!isOpen())
        return notOpen();
    MYSQL *m = m_connection->mysql;
    if (mysql_read_query_result(m) != 0)
        return lastError();
    // A statement with rows has them read off and dropped, as execute() does.
    if (mysql_field_count(m) != 0) {
        MYSQL_RES *r = mysql_use_result(m);
        if (!r)
            return lastError();
        while (mysql_fetch_row(r)) {
        }
        const bool failed = mysql_errno(m) != 0;
        mysql_free_result(r);
        if (failed)
            return lastError();
    }
    return {};
}

std::optional<bool> DatabaseSession::inTransaction()
{
    if (!isOpen())
        return std::nullopt;
    MYSQL *m = m_connection->mysql;
    if (mysql_query(m, "SELECT @@in_transaction") != 0)
        return std::nullopt;
    MYSQL_RES *r = mysql_store_result(m);
    if (!r)
        return std::nullopt;
    std::optional<bool> open;
    if (MYSQL_ROW row = mysql_fetch_row(r); row && row[0])
        open = qstrcmp(row[0], "0") != 0;
    mysql_free_result(r);
    return open;
}

DbError DatabaseSession::execute(const QString &sql)
{
    return executeBytes(sql.toUtf8());
}

DbError DatabaseSession::executeBytes(const QByteArray &sql)
{
    if (DbError error = sendBytes(sql))
        return error;
    MYSQL *m = m_connection->mysql;
    if (MYSQL_RES *r = mysql_use_result(m)) {
        while (mysql_fetch_row(r)) {
        }
        const bool failed = mysql_errno(m) != 0;
        mysql_free_result(r);
        if (failed)
            return lastError();
    } else if (mysql_field_count(m) != 0) {
        return lastError();
    }
    drainResults(m);
    return {};
}

DbResult<Recordset> DatabaseSession::openTable(const QString &table)
{
    return read(QStringLiteral("SELECT * FROM ") + quoteIdentifier(table), table);
}

DbResult<Recordset> DatabaseSession::openQuery(const QString &sql)
{
    return read(sql, QString());
}

namespace {
// What the tools need to know of a result column.
FieldInfo fieldInfoOf(const MYSQL_FIELD &f)
{
    FieldInfo info;
    info.name = QString::fromUtf8(f.name, f.name_length);
    info.originalName = QString::fromUtf8(f.org_name, f.org_name_length);
    info.table = QString::fromUtf8(f.org_table, f.org_table_length);
    info.database = QString::fromUtf8(f.db, f.db_length);
    info.primaryKey = (f.flags & PRI_KEY_FLAG) != 0;
    info.isUnsigned = (f.flags & UNSIGNED_FLAG) != 0;
    info.type = adoTypeFor({static_cast<int>(f.type), info.isUnsigned, f.charsetnr == 63, f.length});
    info.serverType = static_cast<int>(f.type);
    info.nullable = (f.flags & NOT_NULL_FLAG) == 0;
    info.binaryCharset = f.charsetnr == 63;
    info.length = f.length;
    info.isEnum = (f.flags & ENUM_FLAG) != 0;
    return info;
}
} // namespace

DbResult<Recordset> DatabaseSession::read(const QString &sql, const QString &table)
{
    if (DbError error = send(sql))
        return error;
    MYSQL *m = m_connection->mysql;

    Recordset rs;
    rs.m_connection = m_connection;
    MYSQL_RES *r = mysql_use_result(m);
    if (!r) {
        if (mysql_field_count(m) != 0)
            return lastError();
        drainResults(m);
        return rs; // no rows: a closed recordset
    }

    const unsigned nFields = mysql_num_fields(r);
    const MYSQL_FIELD *fields = mysql_fetch_fields(r);
    rs.m_fields.resize(nFields);
    std::vector<bool> isBit(nFields, false);
    for (unsigned i = 0; i < nFields; ++i) {
        rs.m_fields[i] = fieldInfoOf(fields[i]);
        isBit[i] = fields[i].type == MYSQL_TYPE_BIT;
    }
    rs.m_columns.resize(nFields);

    qsizetype rows = 0;
    try {
        while (MYSQL_ROW row = mysql_fetch_row(r)) {
            const unsigned long *lengths = mysql_fetch_lengths(r);
            for (unsigned i = 0; i < nFields; ++i) {
                TextColumn &c = rs.m_columns[i];
                if (!row[i])
                    c.appendNull();
                else if (isBit[i])
                    c.append(QByteArrayView(bitText(row[i], lengths[i])));
                else
                    c.append(QByteArrayView(row[i], static_cast<qsizetype>(lengths[i])));
            }
            ++rows;
        }
    } catch (const std::exception &) {
        // A result too big to hold: freeing it reads off the rest of the rows, so the
        // connection stays usable for the next statement.
        rs = Recordset();
        mysql_free_result(r);
        drainResults(m);
        return DbError::generic(kTooBigText);
    }
    const bool failed = mysql_errno(m) != 0;
    DbError fetchError = failed ? lastError() : DbError{};
    mysql_free_result(r);
    if (failed)
        return fetchError;
    drainResults(m);

    // No squeeze here: spare capacity that was never written takes no memory, and a table
    // view appends its header row to these columns before it squeezes them.
    rs.m_rows = rows;
    rs.m_open = true;
    if (!table.isEmpty()) {
        rs.m_table = table;
        // Taken from the result itself: asking the server would send a statement of our own.
        rs.m_database = rs.m_fields.empty() ? QString() : rs.m_fields.front().database;
    }
    return rs;
}

QString DatabaseSession::databaseName() const
{
    if (!isOpen())
        return QString();
    MYSQL *m = m_connection->mysql;
    if (mysql_query(m, "SELECT DATABASE()") != 0)
        return QString();
    QString name;
    if (MYSQL_RES *r = mysql_store_result(m)) {
        if (MYSQL_ROW row = mysql_fetch_row(r); row && row[0])
            name = QString::fromUtf8(row[0]);
        mysql_free_result(r);
    }
    return name;
}

unsigned long DatabaseSession::connectionId() const
{
    return isOpen() ? mysql_thread_id(m_connection->mysql) : 0;
}

qint64 DatabaseSession::affectedRows() const
{
    return isOpen() ? static_cast<qint64>(mysql_affected_rows(m_connection->mysql)) : 0;
}

unsigned DatabaseSession::warningCount() const
{
    return isOpen() ? mysql_warning_count(m_connection->mysql) : 0;
}

QString DatabaseSession::quoteIdentifier(const QString &name)
{
    QString quoted = name;
    quoted.replace(QLatin1Char('`'), QStringLiteral("``"));
    return QLatin1Char('`') + quoted + QLatin1Char('`');
}

QByteArray DatabaseSession::escape(QByteArrayView utf8) const
{
    if (!isOpen())
        return SessionSql::escapeDefault(utf8);
    return escapeOn(m_connection->mysql, utf8);
}

DbError DatabaseSession::updateRecord(Recordset &rs)
{
    const auto connection = rs.m_connection.lock();
    if (!connection || !connection->mysql)
        return notOpen();
    if (!rs.isUpdatable())
        return DbError::generic(QStringLiteral("Current Recordset does not support updating."));
    if (rs.eof() || rs.bof())
        return DbError::generic(QStringLiteral("Either BOF or EOF is True, or the current record has been deleted."));

    MYSQL *m = connection->mysql;
    SessionSql::UpdateTarget target;
    target.database = rs.m_database;
    target.table = rs.m_table;
    target.fields = rs.m_fields;
    auto key = rowKeyOn(*connection, rs.m_database, rs.m_table, rs.m_fields);
    if (!key)
        return key.error();
    target.key = std::move(*key);
    const qsizetype row = rs.m_position;
    for (int f = 0; f < rs.fieldCount(); ++f)
        target.original.push_back(rs.bytes(row, f));
    for (const auto &[field, value] : rs.m_pending)
        target.changes.emplace_back(field, value);

    const QByteArray sql = SessionSql::buildUpdate(target, [m](QByteArrayView v) { return escapeOn(m, v); });
    if (DbError error = sendOn(*connection, sql))
        return error;
    if (mysql_affected_rows(m) == 0)
        return DbError{AdoError::RowNotFound, kRowNotFoundText, 0};

    for (const auto &[field, value] : rs.m_pending) {
        TextColumn &c = rs.m_columns[static_cast<size_t>(field)];
        if (value)
            c.setText(row, *value);
        else
            c.setNull(row);
    }
    return {};
}

DbResult<std::vector<int>> DatabaseSession::rowKey(const QString &database, const QString &table,
                                                   const std::vector<FieldInfo> &fields)
{
    if (!isOpen())
        return notOpen();
    return rowKeyOn(*m_connection, database, table, fields);
}

// ---- Reading a result row by row ----

DbError DatabaseSession::streamQuery(const QString &sql, const FieldsSink &onFields, const RowSink &onRow,
                                     const Waiting &whileWaiting, int waitingMs)
{
    if (!isOpen())
        return notOpen();
    detail::Connection &c = *m_connection;
    MYSQL *m = c.mysql;
    // Without waiting outside, the client library waits for the answer and each row itself.
    if (whileWaiting && c.canWaitOutside == 0)
        c.canWaitOutside = mysql_optionsv(m, MYSQL_OPT_NONBLOCK, 0) == 0 ? 1 : -1;
    DbError stopped;
    std::optional<WaitOutside> waiter;
    if (whileWaiting && c.canWaitOutside == 1)
        waiter.emplace(m, whileWaiting, waitingMs, stopped);
    // A statement stopped while the server held it back (a table locked by another program)
    // ends in the server's own error, which is the stop's.
    if (DbError error = sendOn(c, sql.toUtf8(), waiter ? &*waiter : nullptr))
        return stopped ? stopped : error;
    MYSQL_RES *r = mysql_use_result(m);
    if (!r) {
        if (mysql_field_count(m) != 0)
            return lastError();
        drainResults(m);
        return stopped;
    }

    const unsigned nFields = mysql_num_fields(r);
    const MYSQL_FIELD *fields = mysql_fetch_fields(r);
    std::vector<FieldInfo> infos(nFields);
    std::vector<bool> isBit(nFields, false);
    for (unsigned i = 0; i < nFields; ++i) {
        infos[i] = fieldInfoOf(fields[i]);
        isBit[i] = fields[i].type == MYSQL_TYPE_BIT;
    }

    c.reading = true;
    const auto done = qScopeGuard([&c] { c.reading = false; });
    if (onFields && !stopped)
        stopped = onFields(infos);
    const auto fetch = [&]() -> MYSQL_ROW { return waiter ? waiter->fetch(r) : mysql_fetch_row(r); };
    if (!stopped && onRow) {
        std::vector<std::optional<QByteArrayView>> cells(nFields);
        std::vector<QByteArray> bits(nFields);
        while (MYSQL_ROW row = fetch()) {
            if (stopped)
                break;
            const unsigned long *lengths = mysql_fetch_lengths(r);
            for (unsigned i = 0; i < nFields; ++i) {
                if (!row[i]) {
                    cells[i].reset();
                } else if (isBit[i]) {
                    bits[i] = bitText(row[i], lengths[i]);
                    cells[i] = QByteArrayView(bits[i]);
                } else {
                    cells[i] = QByteArrayView(row[i], static_cast<qsizetype>(lengths[i]));
                }
            }
            if ((stopped = onRow(cells)))
                break;
        }
    }
    // Freeing a result that was not read to its end reads off the rest, so the connection
    // stays usable for the next statement.
    const bool failed = !stopped && mysql_errno(m) != 0;
    const DbError fetchError = failed ? lastError() : DbError{};
    mysql_free_result(r);
    drainResults(m);
    return stopped ? stopped : fetchError;
}

namespace SessionSql {

QByteArray escapeDefault(QByteArrayView utf8)
{
    QByteArray out;
    out.reserve(utf8.size() + 8);
    for (const char ch : utf8) {
        switch (ch) {
        case '\0': out += "\\0"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\\': out += "\\\\"; break;
        case '\'': out += "\\'"; break;
        case '"': out += "\\\""; break;
        case '\x1a': out += "\\Z"; break;
        default: out += ch;
        }
    }
    return out;
}

namespace {
QByteArray literal(const std::optional<QByteArray> &v, const Escaper &escape)
{
    if (!v)
        return QByteArrayLiteral("NULL");
    return '\'' + escape(QByteArrayView(*v)) + '\'';
}
QByteArray literal(const std::optional<QString> &v, const Escaper &escape)
{
    return literal(v ? std::optional<QByteArray>(v->toUtf8()) : std::nullopt, escape);
}
QByteArray ident(const QString &name)
{
    return DatabaseSession::quoteIdentifier(name).toUtf8();
}
} // namespace

namespace {
// How a column's value is compared byte for byte.
enum class Compare { Bytes, Text, FloatText, Bit, Value };

Compare compareOf(const FieldInfo &f)
{
    if (ServerTypes::isString(f.serverType))
        return f.binaryCharset ? Compare::Bytes : Compare::Text;
    switch (static_cast<enum_field_types>(f.serverType)) {
    case MYSQL_TYPE_BIT: return Compare::Bit;
    case MYSQL_TYPE_FLOAT:
    case MYSQL_TYPE_DOUBLE: return Compare::FloatText;
    default: return Compare::Value;
    }
}

QByteArray hexLiteral(QByteArrayView bytes)
{
    return "X'" + QByteArray(bytes.data(), bytes.size()).toHex().toUpper() + '\'';
}

QByteArray fieldIdent(const FieldInfo &f)
{
    return ident(f.originalName.isEmpty() ? f.name : f.originalName);
}
} // namespace

QByteArray sameBytes(const FieldInfo &f, const std::optional<QByteArray> &original, const Escaper &escape)
{
    const QByteArray name = fieldIdent(f);
    if (!original)
        return name + " IS NULL";
    switch (compareOf(f)) {
    case Compare::Bytes: return name + '=' + hexLiteral(*original);
    case Compare::Text:
        // The first term lets an index narrow the search; the second demands the very bytes,
        // which the collation would not (accents, letter case, trailing blanks).
        return name + '=' + literal(original, escape) + " AND CAST(CONVERT(" + name +
               " USING utf8mb4) AS BINARY)=" + hexLiteral(*original);
    case Compare::FloatText:
        // The server's text of a FLOAT or DOUBLE is all the row was read with.
        return "CAST(" + name + " AS CHAR)=" + literal(original, escape);
    case Compare::Bit: {
        bool ok = false;
        const qulonglong bits = original->toULongLong(&ok);
        return name + '=' + (ok ? QByteArray::number(bits) : literal(original, escape));
    }
    case Compare::Value: break;
    }
    return name + '=' + literal(original, escape);
}

QByteArray buildUpdate(const UpdateTarget &t, const Escaper &escape)
{
    QByteArray sql = "UPDATE ";
    if (!t.database.isEmpty())
        sql += ident(t.database) + '.';
    sql += ident(t.table) + " SET ";
    bool first = true;
    for (const auto &[field, value] : t.changes) {
        if (!first)
            sql += ',';
        first = false;
        sql += fieldIdent(t.fields[static_cast<size_t>(field)]);
        sql += '=' + literal(value, escape);
    }

    sql += " WHERE ";
    first = true;
    const auto where = [&](size_t i) {
        if (!first)
            sql += " AND ";
        first = false;
        sql += sameBytes(t.fields[i], t.original[i], escape);
    };
    if (t.key.empty()) {
        for (size_t i = 0; i < t.fields.size(); ++i)
            where(i);
    } else {
        for (const int i : t.key)
            where(static_cast<size_t>(i));
    }
    if (first)
        sql += "1=0";
    sql += " LIMIT 1";
    return sql;
}

} // namespace SessionSql

} // namespace tabulon
