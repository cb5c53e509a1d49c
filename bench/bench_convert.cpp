// Converts an Access file into new databases as "&Convert Database" does, a given number of
// times, and reports the wall time, the statements sent, the rows the server kept and the
// messages the conversion showed (their count on the first line, then each one's text on a
// "message=" line). Run by scripts/bench-convert.sh and scripts/bench-all.sh, which time
// mdb-export piped into the mariadb client beside it.
//
//   bench_convert HOST:PORT USER FILE.mdb RUNS
#include "convert/databaseconversion.h"
#include "db/connectionstring.h"
#include "db/databasesession.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>

using namespace tabulon;

namespace {

// Answers Yes and keeps the messages a run would show.
class CountingPrompts final : public ConversionPrompts {
public:
    int messages = 0;
    QStringList texts;
    void message(const QString &text) override
    {
        ++messages;
        texts << text;
    }
    bool askYesNo(const QString &) override { return true; }
};

qint64 number(DatabaseSession &session, const QString &sql)
{
    auto rs = session.openQuery(sql);
    return rs.ok() && rs->isOpen() && rs->recordCount() == 1 ? rs->text(0, rs->fieldCount() - 1).toLongLong() : -1;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() != 5) {
        std::fprintf(stderr, "usage: bench_convert HOST:PORT USER FILE.mdb RUNS\n");
        return 1;
    }
    DatabaseSession session;
    if (const DbError e = session.open(ConnectionString::mysql(args[1], args[2], QString(), QString()))) {
        std::fprintf(stderr, "bench_convert: %s\n", qPrintable(e.description));
        return 1;
    }
    const int runs = args[4].toInt();
    const qint64 before = number(session, QStringLiteral("SHOW SESSION STATUS LIKE 'Questions'"));
    CountingPrompts prompts;
    QElapsedTimer timer;
    timer.start();
    for (int run = 0; run < runs; ++run) {
        const QString db = QStringLiteral("bench_convert_%1").arg(run);
        (void)session.execute(QStringLiteral("DROP DATABASE IF EXISTS ") + db);
        DatabaseConversion conversion;
        conversion.ConvertDatabase(session, prompts, args[3], db);
    }
    const double seconds = static_cast<double>(timer.elapsed()) / 1000.0;
    const qint64 statements = number(session, QStringLiteral("SHOW SESSION STATUS LIKE 'Questions'")) - before;
    const qint64 rows = number(session, QStringLiteral("SELECT SUM(table_rows) FROM information_schema.tables WHERE "
                                                       "table_schema LIKE 'bench\\_convert\\_%'"));
    std::printf("%.3f %lld %lld %d\n", seconds, static_cast<long long>(statements), static_cast<long long>(rows),
                prompts.messages);
    for (const QString &text : prompts.texts)
        std::printf("message=%s\n", qPrintable(QString(text).replace(QLatin1Char('\n'), QLatin1Char(' '))));
    return 0;
}
