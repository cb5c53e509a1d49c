// What a benchmark needs to open a tool window as the operator does: a host that lends the
// window the benchmark's own session, and message boxes that end the run, since nobody is
// there to answer them and any message means the measured work went wrong.
#pragma once

#include "db/connectionstring.h"
#include "db/databasesession.h"
#include "db/memorypolicy.h"
#include "ui/dialogs.h"
#include "ui/toolhost.h"

#include <cstdio>
#include <cstdlib>

namespace tabulon::bench {

[[noreturn]] inline void fail(const char *program, const QString &what)
{
    std::fprintf(stderr, "%s: %s\n", program, qPrintable(what));
    std::exit(1);
}

// Before the QApplication of a benchmark that opens windows: no display needed, and memory
// mapped for large blocks as the program maps it.
inline void prepareWindows()
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    mapLargeBlocks();
}

class BenchHost final : public ToolHost {
public:
    explicit BenchHost(DatabaseSession &session) : m_session(session) {}
    DatabaseSession *session() const override { return &m_session; }
    ConnectionSettings settings() const override { return {}; }
    QMenu *popupMenu(const QString &) const override { return nullptr; }
    QString programFolder() const override { return {}; }
    void showStatus(const QString &) override {}

private:
    DatabaseSession &m_session;
};

// Opens `session` on the database as dbop and makes every box end the run with its text.
inline void openForWindows(const char *program, DatabaseSession &session, const QString &server,
                           const QString &database)
{
    Dialogs::setResponder([program](const Dialogs::Prompt &p) -> Dialogs::Reply { fail(program, p.text); });
    if (const DbError e = session.open(ConnectionString::mysql(server, QStringLiteral("dbop"), QString(), database)))
        fail(program, e.description);
}

} // namespace tabulon::bench
