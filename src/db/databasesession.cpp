#include "db/databasesession.h"

#include "db/connectionstring.h"
#include "db/statementhook.h"
#include "db/typecodes.h"

#include <mysql.h>

// The transport's own settings; it builds on the types of mysql.h.
#include <ma_pvio.h>

#include <exception>

namespace tabulon {

namespace detail {
struct Connection final {
    MYSQL *mysql = nullptr;
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

// Text of a BIT value: bit(1) reads as a boolean, wider ones as their number.
QByteArray bitText(const char *data, unsigned long length, bool boolean)
{
    quint64 v = 0;
    for (unsigned long i = 0; i < length; ++i)
        v = (v << 8) | static_cast<unsigned char>(data[i]);
    if (boolean)
        return v ? QByteArrayLiteral("True") : QByteArrayLiteral("False");
    return QByteArray::number(v);
}

void drainResults(MYSQL *mysql)
{
    while (mysql_more_results(mysql) && mysql_next_result(mysql) == 0) {
        if (MYSQL_RES *r = mysql_store_result(mysql))
            mysql_free_result(r);
    }
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
    MYSQL *m = m_connection->mysql;
    StatementHook::before(bytes);
    if (mysql_real_query(m, bytes.constData(), static_cast<unsigned long>(bytes.size())) != 0)
        return lastError();
    return {};
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
                    c.append(QByteArrayView(bitText(row[i], lengths[i], rs.m_fields[i].type == AdoType::Boolean)));
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
    const qsizetype row = rs.m_position;
    for (int f = 0; f < rs.fieldCount(); ++f)
        target.original.push_back(rs.bytes(row, f));
    for (const auto &[field, value] : rs.m_pending)
        target.changes.emplace_back(field, value);

    const QByteArray sql = SessionSql::buildUpdate(target, [m](QByteArrayView v) { return escapeOn(m, v); });
    StatementHook::before(sql);
    if (mysql_real_query(m, sql.constData(), static_cast<unsigned long>(sql.size())) != 0)
        return errorOf(m);
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

// ---- Reading a result row by row ----

DbError DatabaseSession::streamQuery(const QString &sql, const FieldsSink &onFields, const RowSink &onRow)
{
    if (DbError error = send(sql))
        return error;
    MYSQL *m = m_connection->mysql;
    MYSQL_RES *r = mysql_use_result(m);
    if (!r) {
        if (mysql_field_count(m) != 0)
            return lastError();
        drainResults(m);
        return {};
    }

    const unsigned nFields = mysql_num_fields(r);
    const MYSQL_FIELD *fields = mysql_fetch_fields(r);
    std::vector<FieldInfo> infos(nFields);
    std::vector<bool> isBit(nFields, false);
    for (unsigned i = 0; i < nFields; ++i) {
        infos[i] = fieldInfoOf(fields[i]);
        isBit[i] = fields[i].type == MYSQL_TYPE_BIT;
    }

    DbError stopped;
    if (onFields)
        stopped = onFields(infos);
    if (!stopped && onRow) {
        std::vector<std::optional<QByteArrayView>> cells(nFields);
        std::vector<QByteArray> bits(nFields);
        while (MYSQL_ROW row = mysql_fetch_row(r)) {
            const unsigned long *lengths = mysql_fetch_lengths(r);
            for (unsigned i = 0; i < nFields; ++i) {
                if (!row[i]) {
                    cells[i].reset();
                } else if (isBit[i]) {
                    bits[i] = bitText(row[i], lengths[i], infos[i].type == AdoType::Boolean);
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
        sql += ident(t.fields[static_cast<size_t>(field)].originalName.isEmpty()
                         ? t.fields[static_cast<size_t>(field)].name
                         : t.fields[static_cast<size_t>(field)].originalName);
        sql += '=' + literal(value, escape);
    }

    bool hasKey = false;
    for (const auto &f : t.fields)
        hasKey = hasKey || f.primaryKey;
    sql += " WHERE ";
    first = true;
    for (size_t i = 0; i < t.fields.size(); ++i) {
        const FieldInfo &f = t.fields[i];
        if (hasKey && !f.primaryKey)
            continue;
        if (!first)
            sql += " AND ";
        first = false;
        // <=> matches NULL to NULL, which a plain = never does.
        sql += ident(f.originalName.isEmpty() ? f.name : f.originalName) + "<=>" + literal(t.original[i], escape);
    }
    if (first)
        sql += "1=0";
    sql += " LIMIT 1";
    return sql;
}

} // namespace SessionSql

} // namespace tabulon
