// The floor under a table load: reads every row of one table through the session, row by row,
// and keeps nothing. No window and no storage: what is left is the server producing the rows
// and the wire carrying them, which no reader can go below. Run by scripts/bench-all.sh.
//
//   bench_wire HOST:PORT DATABASE TABLE
#include "db/connectionstring.h"
#include "db/databasesession.h"

#include <QCoreApplication>

#include <cstdio>

using namespace tabulon;

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 4) {
        std::fprintf(stderr, "usage: bench_wire HOST:PORT DATABASE TABLE\n");
        return 2;
    }
    DatabaseSession session;
    if (const DbError e =
            session.open(ConnectionString::mysql(args.at(1), QStringLiteral("dbop"), QString(), args.at(2)))) {
        std::fprintf(stderr, "bench_wire: %s\n", qPrintable(e.description));
        return 1;
    }
    qint64 rows = 0;
    const DbError e = session.streamQuery(
        QStringLiteral("SELECT * FROM ") + DatabaseSession::quoteIdentifier(args.at(3)), {}, [&rows](auto) {
            ++rows;
            return DbError{};
        });
    if (e) {
        std::fprintf(stderr, "bench_wire: %s\n", qPrintable(e.description));
        return 1;
    }
    std::printf("rows=%lld\n", static_cast<long long>(rows));
    return 0;
}
