// Test access to the private MariaDB server that the test command starts: connection strings,
// scratch databases that each test owns, and what the server received on one connection.
#pragma once

#include "db/databasesession.h"

#include <QString>
#include <QStringList>
#include <QTest>

#include <initializer_list>

namespace tabulon::test {

// A text and a list of texts from UTF-8 literals, for comparing against cells and rows.
QString qs(const char *text);
QStringList sl(std::initializer_list<const char *> items);

// "127.0.0.1:<port>" from TABULON_TEST_SERVER (the test command sets it).
QString serverAddress();
QString connectionString(const QString &database);
// Opens a session as the test user; fails the calling test (QVERIFY-style) through the
// returned error when the server does not answer.
DbError openSession(DatabaseSession &session, const QString &database);

// A database created empty for one test and dropped again afterwards.
class ScratchDatabase final {
public:
    explicit ScratchDatabase(const QString &name);
    ~ScratchDatabase();
    ScratchDatabase(const ScratchDatabase &) = delete;
    ScratchDatabase &operator=(const ScratchDatabase &) = delete;

    const QString &name() const { return m_name; }
    bool ok() const { return !m_error.isError(); }
    const DbError &error() const { return m_error; }
    // A second session, as a test's own observer of what the program did.
    DatabaseSession &admin() { return m_admin; }
    // Runs statements on the admin session and stops at the first error.
    DbError run(const QStringList &statements);
    // Every row of a query as "a|b|c" lines (NULL as \N), for comparisons.
    QStringList rows(const QString &sql);

private:
    QString m_name;
    DatabaseSession m_admin;
    DbError m_error;
};

// Statements the server received on connection `connectionId`, in order, from its general
// query log (the test server runs with it on). Only queries, not connects or quits.
QStringList statementsReceived(DatabaseSession &observer, unsigned long connectionId);
// The connections opened since the log was last cleared, by others than `observer`, as the log
// describes them ("dbop@localhost on mysql using TCP/IP").
QStringList connectsReceived(DatabaseSession &observer);
// Forgets everything logged so far.
void clearServerLog(DatabaseSession &observer);

} // namespace tabulon::test

#define QVERIFY_DB(expr)                                                                                               \
    do {                                                                                                               \
        const ::tabulon::DbError qverifyDbError_ = (expr);                                                             \
        QVERIFY2(!qverifyDbError_.isError(),                                                                           \
                 qPrintable(QStringLiteral("%1 failed: %2").arg(QStringLiteral(#expr), qverifyDbError_.description))); \
    } while (false)
