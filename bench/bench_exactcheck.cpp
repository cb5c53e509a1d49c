// Times Save Table and the table restore of one table with the exact-value check before the
// first write and without it, the two alternating, RUNS times each (5 unless given, never
// fewer), and prints for each work the median, least and most milliseconds of both and the
// ratio of the medians (with the check over without it); the same for the process's own
// processor time, which a machine busy with other work disturbs far less than the elapsed time.
// Run by scripts/bench-all.sh.
//
//   bench_exactcheck HOST:PORT DATABASE TABLE [RUNS]
//
// Save Table runs in the table data window as the operator's command does, without its safety
// copy (a size limit below the table's, answered Yes), which would only blur the difference.
// The restore writes the table back from a table file of it through the restore's own logic:
// with the check, the file is read through once for it before the delete and the inserts. A
// question the check asks is answered No, so both sides send the same statements.
#include "backup/tablebackup.h"
#include "backup/tablerestore.h"
#include "benchmemory.h"
#include "benchwindow.h"
#include "data/exactvalues.h"
#include "data/tabledata.h"
#include "db/databasesession.h"
#include "db/writemode.h"
#include "safety/safetynet.h"
#include "safety/safetysettings.h"
#include "ui/dialogs.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

#include <sys/resource.h>

using namespace tabulon;

namespace {

[[noreturn]] void fail(const QString &what)
{
    bench::fail("bench_exactcheck", what);
}

void check(const DbError &error)
{
    if (error)
        fail(error.description);
}

// Milliseconds of processor time the process has used, user and system.
qint64 processorMs()
{
    rusage use{};
    getrusage(RUSAGE_SELF, &use);
    return (use.ru_utime.tv_sec + use.ru_stime.tv_sec) * 1000 + (use.ru_utime.tv_usec + use.ru_stime.tv_usec) / 1000;
}

// Elapsed and processor milliseconds of each run of one piece of work on one side.
struct Times final {
    std::vector<qint64> elapsed, processor;
    template <typename Work> void time(Work &&work)
    {
        QElapsedTimer timer;
        const qint64 before = processorMs();
        timer.start();
        work();
        elapsed.push_back(timer.elapsed());
        processor.push_back(processorMs() - before);
    }
};

void restoreOnce(DatabaseSession &session, const QString &table, const QString &file, bool withCheck)
{
    auto columns = TableRestore::fieldColumns(session, table);
    if (!columns)
        fail(columns.error().description);
    if (withCheck) {
        // What the check finds is asked about; the answer here is No, the usual statements.
        auto found = TableRestore::checkValues(session, table, file, *columns, nullptr);
        if (!found)
            fail(found.error().description);
    }
    const WriteSessionMode mode(session);
    check(mode.error());
    check(session.execute(TableRestore::deleteAllStatement(table)));
    check(TableRestore::insertRows(session, table, file, *columns, nullptr, false, StatementPipeline::Sending::Ahead,
                                   [](const DbError &) { return true; }));
}

struct Spread final {
    qint64 median = 0, least = 0, most = 0;
};

Spread spread(std::vector<qint64> times)
{
    std::sort(times.begin(), times.end());
    return {times[(times.size() - 1) / 2], times.front(), times.back()};
}

void reportSpread(const char *work, const std::vector<qint64> &on, const std::vector<qint64> &off)
{
    const Spread a = spread(on), b = spread(off);
    std::printf("%s_on_ms=%lld\n%s_on_min_ms=%lld\n%s_on_max_ms=%lld\n", work, static_cast<long long>(a.median), work,
                static_cast<long long>(a.least), work, static_cast<long long>(a.most));
    std::printf("%s_off_ms=%lld\n%s_off_min_ms=%lld\n%s_off_max_ms=%lld\n", work, static_cast<long long>(b.median),
                work, static_cast<long long>(b.least), work, static_cast<long long>(b.most));
    std::printf("%s_ratio=%.3f\n", work, b.median > 0 ? static_cast<double>(a.median) / b.median : 0.0);
}

void report(const char *work, const Times &on, const Times &off)
{
    reportSpread(work, on.elapsed, off.elapsed);
    reportSpread(QByteArray(QByteArray(work) + "_cpu").constData(), on.processor, off.processor);
}

} // namespace

int main(int argc, char **argv)
{
    bench::prepareWindows();
    QApplication app(argc, argv);
    const QStringList args = app.arguments();
    const int runs = args.size() == 5 ? args.at(4).toInt() : 5;
    if ((args.size() != 4 && args.size() != 5) || runs < 5)
        fail(QStringLiteral("usage: bench_exactcheck HOST:PORT DATABASE TABLE [RUNS, 5 or more]"));
    const QString &table = args.at(3);
    QTemporaryDir folder;
    SafetySettings::useStore(folder.filePath(QStringLiteral("settings.ini")));
    SafetySettings settings;
    settings.folder = folder.filePath(QStringLiteral("safety"));
    settings.maxMB = 1;
    SafetySettings::store(settings);
    SafetyNet::setConfirm([](const QString &) { return true; });

    DatabaseSession session;
    bench::openForWindows("bench_exactcheck", session, args.at(1), args.at(2));
    Dialogs::setResponder([](const Dialogs::Prompt &p) -> Dialogs::Reply {
        if (p.text == QLatin1String("This will update the Table"))
            return Dialogs::Reply{Dialogs::Answer::Yes, {}};
        if (p.buttons == Dialogs::Buttons::YesNoCancel)
            return Dialogs::Reply{Dialogs::Answer::No, {}};
        fail(p.text);
    });
    const QString file = folder.filePath(table);
    check(TableBackup::writeTableFile(session, TableBackup::tableSelect(table), file));

    bench::BenchHost host(session);
    auto *window = new TableData(host);
    auto *combo = window->findChild<QComboBox *>(QStringLiteral("Combo1"));
    const int index = combo->findText(table);
    if (index < 0)
        fail(QStringLiteral("no table ") + table);
    combo->setCurrentIndex(index);

    Times saveOn, saveOff, restoreOn, restoreOff;
    for (int run = 0; run < runs; ++run) {
        // Alternating, and each run beginning with the other side, so that a slow spell of the
        // machine falls on both alike.
        for (const bool on : {run % 2 == 0, run % 2 != 0}) {
            ExactValues::setCheckBeforeWrites(on);
            (on ? saveOn : saveOff).time([window] { window->SaveTable(); });
            (on ? restoreOn : restoreOff).time([&] { restoreOnce(session, table, file, on); });
        }
    }
    report("save", saveOn, saveOff);
    report("restore", restoreOn, restoreOff);
    std::printf("runs=%d\npeak_kib=%ld\n", runs, bench::peakKiB());
    delete window;
    return 0;
}
