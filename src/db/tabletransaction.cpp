#include "db/tabletransaction.h"

#include "db/databasesession.h"

namespace tabulon {

bool TableTransaction::isTransactional(const QString &engine)
{
    return engine.compare(QLatin1String("InnoDB"), Qt::CaseInsensitive) == 0;
}

TableTransaction::TableTransaction(DatabaseSession &session, const QString &table, const QString &database)
    : m_session(session), m_table(table)
{
    const QString schema = database.isEmpty()
                               ? QStringLiteral("DATABASE()")
                               : QStringLiteral("'%1'").arg(QString::fromUtf8(session.escape(database.toUtf8())));
    // Names compare without regard to case here; the exact name decides when case twins exist,
    // and where the server folds names, every table it could mean must be InnoDB.
    auto found = session.openQuery(
        QStringLiteral("SELECT TABLE_NAME, ENGINE FROM information_schema.TABLES WHERE TABLE_SCHEMA = %1 "
                       "AND TABLE_NAME = '%2'")
            .arg(schema, QString::fromUtf8(session.escape(table.toUtf8()))));
    if (!found) {
        m_error = found.error();
        return;
    }
    bool exact = false;
    for (qsizetype r = 0; r < found->recordCount(); ++r)
        exact = exact || found->text(r, 0) == table;
    bool transactional = found->recordCount() > 0;
    for (qsizetype r = 0; r < found->recordCount(); ++r) {
        if (!exact || found->text(r, 0) == table)
            transactional = transactional && isTransactional(found->text(r, 1));
    }
    if (!transactional)
        return;
    m_error = session.execute(QStringLiteral("SET SESSION autocommit=0"));
    m_active = !m_error;
    // Opened at once, so that a failed statement never leaves the question "was there anything
    // to roll back" open: from here, only the server's own rollback ends the transaction.
    if (m_active)
        m_error = session.execute(QStringLiteral("START TRANSACTION"));
    if (m_error)
        rollback();
}

TableTransaction::~TableTransaction()
{
    rollback();
}

DbError TableTransaction::afterWrite(const DbError &outcome)
{
    if (!m_active)
        return {};
    if (!outcome)
        return {};
    // A deadlock always takes the whole transaction back, and so does running out of lock
    // space; a lock wait that times out does on a server set to (innodb_rollback_on_timeout).
    // Other failures end only their own statement, unless the server says otherwise. The
    // transaction being open says nothing after a whole rollback: the statements sent ahead
    // behind the failed one have opened a new one meanwhile.
    constexpr int kDeadlock = 1213, kLockTableFull = 1206, kLockWaitTimeout = 1205;
    const bool wholeRollback = outcome.serverCode == kDeadlock || outcome.serverCode == kLockTableFull ||
                               (outcome.serverCode == kLockWaitTimeout && rollsBackOnTimeout());
    if (!wholeRollback && m_session.inTransaction().value_or(false))
        return {};
    rollback();
    return DbError{outcome.number,
                   QStringLiteral("The server rolled back the writes to %1 (%2): the table is as it was before, and "
                                  "its other rows were not written.")
                       .arg(m_table, outcome.description),
                   outcome.serverCode};
}

bool TableTransaction::rollsBackOnTimeout()
{
    auto setting = m_session.openQuery(QStringLiteral("SELECT @@innodb_rollback_on_timeout"));
    // Unknown counts as a rollback: the table's writes then stop rather than risk going in
    // without the ones before them.
    return !setting.ok() || setting->recordCount() != 1 || setting->text(0, 0) != QLatin1String("0");
}

DbError TableTransaction::commit()
{
    if (!m_active)
        return {};
    const DbError error = m_session.execute(QStringLiteral("COMMIT"));
    end(error ? "ROLLBACK" : nullptr);
    return error;
}

void TableTransaction::rollback()
{
    if (m_active)
        end("ROLLBACK");
}

void TableTransaction::end(const char *statement)
{
    m_active = false;
    if (!m_session.isOpen())
        return;
    if (statement)
        (void)m_session.execute(QString::fromLatin1(statement));
    (void)m_session.execute(QStringLiteral("SET SESSION autocommit=1"));
}

} // namespace tabulon
