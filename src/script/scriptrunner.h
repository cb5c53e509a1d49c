// What the import_db companion does with import.sql: splits it into statements and runs them
// one by one on a session, going on after a failure, and sums up what happened.
#pragma once

#include <QString>
#include <QStringList>

#include <vector>

namespace tabulon {

class DatabaseSession;
class Progress;

namespace ScriptRunner {

// The statements of a script: split at every ";" outside quotes, back-ticks and comments,
// comments left out (but for the versioned "/*!" ones the server runs), blanks and line ends
// around each trimmed, empty ones left out.
QStringList splitStatements(const QString &script);

struct Failure final {
    QString statement;
    QString error;
};

struct Summary final {
    int run = 0; // statements sent, failed ones included
    std::vector<Failure> failures;
    bool stopped = false;
};

// Runs every statement in order, one progress step each; stops early only on request.
Summary runStatements(DatabaseSession &session, const QStringList &statements, Progress &progress);
// "N statements run, M failed" and a line per failure.
QString summaryText(const Summary &summary);

} // namespace ScriptRunner
} // namespace tabulon
