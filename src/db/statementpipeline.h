// Statements whose order of results matters but that need not wait for each other's answer,
// such as the inserts of a table's rewrite, sent on the session's one connection, each its own
// statement. Sent ahead, they go out one after another while their answers are read back in
// the order sent. Sent after each answer, a statement goes out only once the one before it has
// been answered, so that nothing follows a statement whose outcome stops the work; the caller
// builds the next statement while the server runs the last. Either way each statement's
// outcome is handed to its own completion, in order.
#pragma once

#include "db/dberror.h"

#include <QByteArray>

#include <deque>
#include <functional>

namespace tabulon {

class DatabaseSession;

class StatementPipeline final {
public:
    // The statement's outcome; false to send nothing more (what is already on its way is read
    // off and its outcomes dropped).
    using Completion = std::function<bool(const DbError &outcome)>;

    enum class Sending {
        Ahead,          // when the session allows it (DatabaseSession::sendsAhead)
        AfterEachAnswer // always, for work that a failed statement stops where it is
    };
    explicit StatementPipeline(DatabaseSession &session, Sending sending = Sending::Ahead);
    // Reads whatever is still on its way (finish()).
    ~StatementPipeline();
    StatementPipeline(const StatementPipeline &) = delete;
    StatementPipeline &operator=(const StatementPipeline &) = delete;

    // Whether statements go out ahead of their answers (else after each answer).
    bool pipelined() const { return m_pipelined; }
    // Sends `sql`; its completion runs now or once the answers before it have been read. False
    // once a completion asked to stop: `sql` was then not sent.
    bool add(const QByteArray &sql, Completion done);
    // Hands `outcome`, an error found without asking the server, to `done` in its turn among
    // the statements. False once a completion asked to stop.
    bool add(const DbError &outcome, Completion done);
    // Reads every answer still on its way. False when a completion asked to stop.
    bool finish();

    // At most this many statements, and bytes of them, are on their way at once: the answers
    // of a few hundred statements fit in any socket buffer, so neither side ever blocks on a
    // full one while the other waits to be read.
    static constexpr int kMaxInFlight = 200;
    static constexpr qsizetype kMaxBytesInFlight = 4 * 1024 * 1024;

private:
    struct Pending final {
        Completion done;
        qsizetype bytes = 0;
        bool sent = false;     // on its way (else refused before sending)
        bool answered = false; // its outcome is known
        DbError outcome;
    };
    bool queue(Pending p);
    // Reads the answer of a statement on its way.
    void answer(Pending &p);
    // Completes the oldest statement, reading its answer first when needed.
    void completeOne();

    DatabaseSession &m_session;
    bool m_pipelined = false;
    bool m_stopped = false;
    DbError m_lost; // how the connection failed: no answer will come after it
    qint64 m_limit = 0;
    std::deque<Pending> m_pending;
    qsizetype m_bytes = 0;
    int m_sent = 0;
};

} // namespace tabulon
