// Searches a value in all tables through the real search window, as the operator's "&Search"
// with "All Tables" does, and reports the wall time, this process's own processor time (what
// the program adds to the server's work), the statements sent and the hits, and how much of
// the time went to the safety copy of the table files (up to the first repair) and to the
// repairs themselves (each from its statement to the next one). Run by
// scripts/bench-search.sh, which times the mariadb client over the same tables beside it.
//
//   bench_search HOST:PORT DATABASE VALUE
#include "benchwindow.h"
#include "data/search.h"
#include "db/databasesession.h"
#include "db/statementhook.h"
#include "grid/grid.h"
#include "ui/dialogs.h"

#include <QApplication>
#include <QComboBox>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>

#include <sys/resource.h>

#include <cstdio>

using namespace tabulon;

namespace {

void fail(const QString &what)
{
    bench::fail("bench_search", what);
}

double cpuMs()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto ms = [](const timeval &t) { return static_cast<double>(t.tv_sec) * 1000.0 + t.tv_usec / 1000.0; };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

// Statements of one search: per table a repair and the field list, then one query per
// field that the value can be compared with, up to the first hit.
qint64 sessionQueries(DatabaseSession &session)
{
    auto rs = session.openQuery(QStringLiteral("SHOW SESSION STATUS LIKE 'Questions'"));
    return rs.ok() && rs->recordCount() == 1 ? rs->text(0, 1).toLongLong() : -1;
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 4)
        fail(QStringLiteral("usage: bench_search HOST:PORT DATABASE VALUE"));

    DatabaseSession session;
    bench::openForWindows("bench_search", session, args.at(1), args.at(2));
    bench::BenchHost host(session);

    auto *window = new Search(host);
    window->findChild<QRadioButton *>(QStringLiteral("optall"))->setChecked(true);
    window->findChild<QLineEdit *>(QStringLiteral("txtsdata"))->setText(args.at(3));
    const int tables = window->findChild<QComboBox *>(QStringLiteral("Combo1"))->count();

    const qint64 questionsBefore = sessionQueries(session);
    const double cpuBefore = cpuMs();
    QElapsedTimer timer;
    qint64 copyMs = -1, repairMs = 0, repairSince = -1;
    StatementHook::set([&](QByteArrayView sql) {
        const qint64 now = timer.elapsed();
        if (repairSince >= 0)
            repairMs += now - repairSince;
        repairSince = -1;
        if (sql.startsWith("Repair Table ")) {
            if (copyMs < 0)
                copyMs = now;
            repairSince = now;
        }
    });
    timer.start();
    window->findChild<QPushButton *>(QStringLiteral("cmdsearch"))->click();
    const qint64 searchMs = timer.elapsed();
    StatementHook::clear();
    if (repairSince >= 0)
        repairMs += searchMs - repairSince;
    const double cpu = cpuMs() - cpuBefore;
    // The status query itself counts once.
    const qint64 statements = sessionQueries(session) - questionsBefore - 1;

    std::printf("tables=%d\n", tables);
    std::printf("hits=%d\n", window->grid()->rows() - 1);
    for (int r = 1; r < window->grid()->rows(); ++r)
        std::printf("hit=%s\n", qPrintable(window->grid()->textMatrix(r, 1)));
    std::printf("statements=%lld\n", statements);
    std::printf("search_ms=%lld\n", searchMs);
    std::printf("copy_ms=%lld\n", copyMs);
    std::printf("repair_ms=%lld\n", repairMs);
    std::printf("program_cpu_ms=%.0f\n", cpu);
    std::printf("program_us_per_statement=%.1f\n",
                statements > 0 ? cpu * 1000.0 / static_cast<double>(statements) : 0.0);
    delete window;
    return 0;
}
