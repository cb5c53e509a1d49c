// tabulon-demodb: creates the Orvita demo database on a server, once.
//
//   tabulon-demodb --server 127.0.0.1:13310 --user dbop --database Orvita --clients 300 [--recreate]
//
// The password comes from TABULON_DEMODB_PASSWORD (empty when unset): on the command line it
// would show in the process list and the shell history.
#include "demo/demodatabase.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>

using namespace tabulon;

namespace {

void print(FILE *to, const QString &line)
{
    std::fputs(qPrintable(line + QLatin1Char('\n')), to);
    std::fflush(to);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tabulon-demodb"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Creates an Orvita-like demo database unless it exists already.\n"
                       "The password is read from TABULON_DEMODB_PASSWORD (empty when unset)."));
    parser.addHelpOption();
    const QCommandLineOption server(QStringLiteral("server"), QStringLiteral("Server as host[:port]."),
                                    QStringLiteral("host:port"), QStringLiteral("localhost"));
    const QCommandLineOption user(QStringLiteral("user"), QStringLiteral("User name."), QStringLiteral("user"),
                                  QStringLiteral("dbop"));
    const QCommandLineOption database(QStringLiteral("database"), QStringLiteral("Database to create."),
                                      QStringLiteral("name"), QStringLiteral("Orvita"));
    const QCommandLineOption clients(QStringLiteral("clients"), QStringLiteral("Number of clients."),
                                     QStringLiteral("n"), QStringLiteral("300"));
    const QCommandLineOption batch(QStringLiteral("batch"), QStringLiteral("Rows per INSERT statement."),
                                   QStringLiteral("rows"), QStringLiteral("500"));
    const QCommandLineOption recreate(QStringLiteral("recreate"),
                                      QStringLiteral("Replace the database when it exists already."));
    const QCommandLineOption quiet(QStringLiteral("quiet"), QStringLiteral("Print only errors."));
    parser.addOptions({server, user, database, clients, batch, recreate, quiet});
    parser.process(app);

    bool ok = false;
    const int clientCount = parser.value(clients).toInt(&ok);
    if (!ok || clientCount < 0) {
        print(stderr, QStringLiteral("tabulon-demodb: --clients needs a number of 0 or more"));
        return 2;
    }
    DemoOptions options;
    options.batchRows = parser.value(batch).toInt(&ok);
    if (!ok || options.batchRows < 1) {
        print(stderr, QStringLiteral("tabulon-demodb: --batch needs a number of 1 or more"));
        return 2;
    }
    const bool verbose = !parser.isSet(quiet);
    if (verbose)
        options.tableWritten = [](const QString &table, qint64 rows) {
            print(stdout, QStringLiteral("  %1: %2 rows").arg(table, -14).arg(rows));
        };

    DatabaseSession session;
    // The user and password travel as arguments, so a password with ';' needs no quoting.
    const QString connection = QStringLiteral("server=%1;database=;").arg(parser.value(server));
    const QString password = qEnvironmentVariable("TABULON_DEMODB_PASSWORD");
    if (DbError e = session.open(connection, parser.value(user), password)) {
        print(stderr, QStringLiteral("tabulon-demodb: cannot connect to %1 as %2: %3")
                          .arg(parser.value(server), parser.value(user), e.description));
        return 1;
    }

    const QString name = parser.value(database);
    QElapsedTimer timer;
    timer.start();
    DemoDatabase::Outcome outcome;
    if (DbError e = DemoDatabase::create(session, name, clientCount, parser.isSet(recreate), options, &outcome)) {
        print(stderr, QStringLiteral("tabulon-demodb: creating %1 failed: %2").arg(name, e.description));
        return 1;
    }
    if (verbose) {
        if (outcome == DemoDatabase::Outcome::Created)
            print(stdout, QStringLiteral("created database %1 with %2 clients in %3 s")
                              .arg(name)
                              .arg(clientCount)
                              .arg(static_cast<double>(timer.elapsed()) / 1000.0, 0, 'f', 1));
        else
            print(stdout, QStringLiteral("database %1 exists already; left as it is").arg(name));
    }
    return 0;
}
