// The one connection type every statement goes through: opens from an ODBC-style connection
// string, executes statements, opens recordsets on tables or statement text, and writes
// recordset updates. Errors come back as values (DbError), never as exceptions or dialogs.
#pragma once

#include "db/dberror.h"
#include "db/recordset.h"
#include "db/sessiontls.h"

#include <QByteArray>
#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace tabulon {

namespace detail {
struct Connection;
}
class StatementPipeline;

class DatabaseSession final {
public:
    DatabaseSession();
    ~DatabaseSession();
    DatabaseSession(const DatabaseSession &) = delete;
    DatabaseSession &operator=(const DatabaseSession &) = delete;

    // ADO's cursor location; kept for the callers that set it (every recordset here is a
    // client-side one).
    void setCursorLocation(int location) { m_cursorLocation = location; }
    int cursorLocation() const { return m_cursorLocation; }

    // Seconds; a server that stops answering gives an error after these, never a hang.
    void setTimeouts(unsigned connectSeconds, unsigned readSeconds, unsigned writeSeconds);
    unsigned readTimeout() const { return m_readTimeout; }
    // Changes how long the open connection waits for an answer, 0 for as long as it takes, until
    // it is set again or the session reopens (which takes the setTimeouts() value again).
    void setOpenReadTimeout(unsigned seconds);

    // The TLS configuration open() uses; without one it takes SessionTls::programDefault().
    void setTls(const TlsConfig &config) { m_tls = config; }
    // Whether the open connection is encrypted, and how.
    TlsState tlsState() const;

    // Whether statements that need not wait for each other's answer (StatementPipeline) go out
    // ahead of their answers, or each only once the one before has been answered. Ahead unless
    // told otherwise: even a local server answers later than the next statement can be sent.
    enum class Pipelining { Always, Never };
    void setPipelining(Pipelining mode) { m_pipelining = mode; }
    Pipelining pipelining() const { return m_pipelining; }
    // Whether StatementPipeline sends ahead on this connection.
    bool sendsAhead() const;

    // Opens on "server=host[:port];uid=...;pwd=...;database=...;" (other attributes are read
    // and ignored). A non-empty user or password argument overrides the string's. The
    // connection follows the TLS configuration's mode; a refusal for TLS reasons says why.
    DbError open(const QString &connectionString, const QString &user = QString(), const QString &password = QString());
    void close();
    bool isOpen() const;
    // Opens `other` as a second connection with this session's connection string, user,
    // password and TLS configuration: work that must not change this session's state, nor be seen among its
    // statements, runs there.
    DbError openSibling(DatabaseSession &other) const;
    // ADO's connection state: 1 open, 0 closed.
    int state() const { return isOpen() ? 1 : 0; }

    // Runs a statement and discards whatever it returns.
    DbError execute(const QString &sql);
    // The same for a statement whose bytes must reach the server as they are: one that
    // carries binary values, which need not be valid UTF-8.
    DbError executeBytes(const QByteArray &sql);
    // Opens the table as ADO's table command does: every row and field, updatable.
    DbResult<Recordset> openTable(const QString &table);
    // Runs statement text and reads its rows; a statement without rows gives a closed recordset.
    DbResult<Recordset> openQuery(const QString &sql);

    QString databaseName() const;
    unsigned long connectionId() const;
    // The longest statement the server takes (its max_allowed_packet less the command byte),
    // asked of the server once per connection; 0 when closed. Longer statements are never sent:
    // they fail with kStatementTooLong and the connection stays open.
    qint64 statementLimit() const;
    // That refusal, for a statement of `bytes` against a packet limit of `limit`.
    static DbError tooLong(qsizetype bytes, qint64 limit);
    // Whether a transaction is open on the connection (@@in_transaction), asked without the
    // statement hook: it is the session's own question. Unset when the server does not answer.
    std::optional<bool> inTransaction();
    // Rows the last statement changed (or matched, for updates).
    qint64 affectedRows() const;
    // Warnings the last statement left (values the server changed to make them fit, say);
    // "SHOW WARNINGS" lists them.
    unsigned warningCount() const;

    // The fields (positions in `fields`) that locate one row of `table` for an update: the
    // columns of its primary key, or else of a unique key without NULLs or prefixes, when the
    // table is a base table and `fields` hold every column of that key. Empty otherwise (a view,
    // a table without such a key), and then a row is located by every field. An empty
    // `database` is the session's own.
    DbResult<std::vector<int>> rowKey(const QString &database, const QString &table,
                                      const std::vector<FieldInfo> &fields);

    static QString quoteIdentifier(const QString &name);
    // Escapes a value for use between single quotes on this connection.
    QByteArray escape(QByteArrayView utf8) const;

    // Writes the pending changes of a recordset's current record (used by Recordset::update).
    static DbError updateRecord(Recordset &recordset);

    // ---- Reading a result row by row ----
    // Runs statement text and hands its rows over one at a time as the server sends them,
    // without holding the result (memory stays at one row whatever the table's size).
    // `onFields` is called once with the result's fields, then `onRow` once per row with each
    // field's text as Recordset would hold it (nullopt for NULL; the views last for the call).
    // An error returned by a callback stops the reading (the rest of the result is read off and
    // dropped) and is returned; an empty `onRow` reads only the fields. A statement without
    // rows calls neither. No other statement may run on this session until it returns.
    //
    // With `whileWaiting`, the wait for a row that the server has not sent yet is cut into
    // turns of `waitingMs` milliseconds, and `whileWaiting` is called after each turn (a window
    // stays alive through a server that is slow to answer); its error stops the reading as
    // a callback's does, once the row being read has come in.
    using FieldsSink = std::function<DbError(const std::vector<FieldInfo> &fields)>;
    using RowSink = std::function<DbError(std::span<const std::optional<QByteArrayView>> cells)>;
    using Waiting = std::function<DbError()>;
    DbError streamQuery(const QString &sql, const FieldsSink &onFields, const RowSink &onRow,
                        const Waiting &whileWaiting = {}, int waitingMs = 10);

private:
    friend class StatementPipeline;
    // Sends a statement that StatementPipeline has found short enough, without reading its
    // answer; readAnswer() reads the oldest answer not yet read.
    DbError sendAhead(const QByteArray &sql);
    DbError readAnswer();

    // Sends statement text; the caller reads or discards what it returns.
    DbError send(const QString &sql);
    DbError sendBytes(const QByteArray &sql);
    DbResult<Recordset> read(const QString &sql, const QString &table);
    DbError lastError() const;

    std::shared_ptr<detail::Connection> m_connection;
    QString m_connectionString; // as opened, with the overriding user and password
    QString m_user;
    QString m_password;
    std::optional<TlsConfig> m_tls;
    int m_cursorLocation = 2;
    unsigned m_connectTimeout = 15;
    unsigned m_readTimeout = 600;
    unsigned m_writeTimeout = 600;
    Pipelining m_pipelining = Pipelining::Always;
};

// Lifts the session's read time-out for the statements run while it lives, then puts it back:
// for statements whose run time grows with the table (CHECK and REPAIR ... EXTENDED), where a
// time-out would drop the connection and with it every statement after.
class UnlimitedReadWait final {
public:
    explicit UnlimitedReadWait(DatabaseSession &session) : m_session(session) { m_session.setOpenReadTimeout(0); }
    ~UnlimitedReadWait() { m_session.setOpenReadTimeout(m_session.readTimeout()); }
    UnlimitedReadWait(const UnlimitedReadWait &) = delete;
    UnlimitedReadWait &operator=(const UnlimitedReadWait &) = delete;

private:
    DatabaseSession &m_session;
};

// Statement text built by the session, in functions that tests call directly.
namespace SessionSql {

using Escaper = std::function<QByteArray(QByteArrayView)>;

// Backslash escaping that matches the server's default mode.
QByteArray escapeDefault(QByteArrayView utf8);

struct UpdateTarget final {
    QString database;
    QString table;
    std::vector<FieldInfo> fields;
    std::vector<int> key; // the fields that locate the row (DatabaseSession::rowKey); empty: all
    std::vector<std::optional<QByteArray>> original;             // every field, its bytes as read
    std::vector<std::pair<int, std::optional<QString>>> changes; // field index, new value
};

// "UPDATE `db`.`t` SET `f`=... WHERE <key or every original value> LIMIT 1". The WHERE compares
// the bytes as they were read, never by the column's collation: 'Muller' does not locate
// 'Müller', nor 'Oslo' 'Oslo ' or 'OSLO', so LIMIT 1 only ever chooses among rows that read
// the same byte for byte.
QByteArray buildUpdate(const UpdateTarget &target, const Escaper &escape);
// One term of that WHERE: field `f` holds exactly `original`.
QByteArray sameBytes(const FieldInfo &f, const std::optional<QByteArray> &original, const Escaper &escape);

} // namespace SessionSql

} // namespace tabulon
