// The session mode the program's own whole-row writes are built for, set for as long as a
// command writes and put back on every way out.
#pragma once

#include "db/dberror.h"

#include <QString>

namespace tabulon {

class DatabaseSession;

namespace SessionSql {
// The server's mode without the strict modes (an empty number cell goes in as 0, as the value
// rules write it, instead of refusing the row) and with NO_BACKSLASH_ESCAPES (a backslash
// between quotes is a backslash, not the start of an escape).
QString writeSqlMode(const QString &serverMode);
} // namespace SessionSql

// Sets the write mode on construction and puts the session's own mode back when it ends.
class WriteSessionMode final {
public:
    explicit WriteSessionMode(DatabaseSession &session);
    ~WriteSessionMode();
    WriteSessionMode(const WriteSessionMode &) = delete;
    WriteSessionMode &operator=(const WriteSessionMode &) = delete;

    // Why the mode could not be read or set (the writes then run in the session's own mode).
    const DbError &error() const { return m_error; }

private:
    DatabaseSession &m_session;
    QString m_saved;
    bool m_set = false;
    DbError m_error;
};

} // namespace tabulon
