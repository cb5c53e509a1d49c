#include "db/statementpipeline.h"

#include "db/databasesession.h"

#include <limits>

namespace tabulon {

namespace {
// Client-side numbers (2000 and up) on an answer mean the connection itself failed: no later
// answer will come over it.
bool connectionFailed(const DbError &error)
{
    return error.serverCode >= 2000 && error.serverCode < 3000;
}
} // namespace

StatementPipeline::StatementPipeline(DatabaseSession &session, Sending sending) : m_session(session)
{
    m_pipelined = sending == Sending::Ahead && session.sendsAhead();
    // Asked now, while no answer is outstanding: the length check needs it for every statement.
    m_limit = session.isOpen() ? session.statementLimit() : std::numeric_limits<qint64>::max();
}

StatementPipeline::~StatementPipeline()
{
    (void)finish();
}

bool StatementPipeline::add(const QByteArray &sql, Completion done)
{
    if (m_stopped)
        return false;
    // One at a time: the last statement's outcome decides whether this one goes at all.
    if (!m_pipelined && !finish())
        return false;
    Pending p;
    p.done = std::move(done);
    p.bytes = sql.size();
    if (m_lost.isError())
        p.outcome = m_lost;
    else if (sql.size() > m_limit)
        p.outcome = DatabaseSession::tooLong(sql.size(), m_limit + 1);
    else if (DbError error = m_session.sendAhead(sql))
        p.outcome = m_lost = error;
    else
        p.sent = true;
    p.answered = !p.sent;
    if (p.sent) {
        ++m_sent;
        m_bytes += p.bytes;
    }
    return queue(std::move(p));
}

bool StatementPipeline::add(const DbError &outcome, Completion done)
{
    if (m_stopped)
        return false;
    Pending p;
    p.done = std::move(done);
    p.outcome = outcome;
    p.answered = true;
    return queue(std::move(p));
}

bool StatementPipeline::queue(Pending p)
{
    m_pending.push_back(std::move(p));
    while (!m_pending.empty() && (m_pending.front().answered || m_sent >= kMaxInFlight || m_bytes >= kMaxBytesInFlight))
        completeOne();
    return !m_stopped;
}

bool StatementPipeline::finish()
{
    while (!m_pending.empty())
        completeOne();
    return !m_stopped;
}

void StatementPipeline::answer(Pending &p)
{
    p.outcome = m_lost.isError() ? m_lost : m_session.readAnswer();
    if (connectionFailed(p.outcome) && !m_lost.isError())
        m_lost = p.outcome;
    p.answered = true;
    --m_sent;
    m_bytes -= p.bytes;
}

void StatementPipeline::completeOne()
{
    Pending &front = m_pending.front();
    if (!front.answered)
        answer(front);
    // Before a failure is told, every answer still on its way is read: whoever is told may
    // need the connection (to ask the server, to roll back), and nothing may be outstanding then.
    if (front.outcome.isError()) {
        for (Pending &p : m_pending) {
            if (!p.answered)
                answer(p);
        }
    }
    Pending p = std::move(m_pending.front());
    m_pending.pop_front();
    if (!m_stopped && !p.done(p.outcome))
        m_stopped = true;
}

} // namespace tabulon
