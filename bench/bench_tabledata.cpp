// Loads a table through the real table data window, as the operator's "Table D&ata" does, and
// optionally sorts it by one column as a click on its header does; reports the times and the
// process's peak memory. The load (and the sort) is the only work of this process, so that
// the peak belongs to it and a timer around the whole process measures it. Run by
// scripts/bench-all.sh.
//
//   bench_tabledata [--no-yield | --stop-after MS] HOST:PORT DATABASE [SORT-FIELD]
//
// The window shows the first table the database lists; the benchmark database holds one.
// A timer ticking every few milliseconds throughout tells how long the window's event loop
// was held up at most (max_block_ms). --no-yield loads without pausing for the window, as the
// measure of what the pauses cost; --stop-after presses Escape that long into the load and
// reports the rows kept and how long the stop took. The load's steps are recorded as it logs
// them, and the ones that ran during the longest wait are printed (max_block_steps).
#include "benchmemory.h"
#include "benchwindow.h"
#include "data/tabledata.h"
#include "db/databasesession.h"
#include "grid/grid.h"
#include "ui/dialogs.h"

#include <QApplication>
#include <QComboBox>
#include <QElapsedTimer>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLoggingCategory>
#include <QTimer>

#include <cstdio>
#include <vector>

using namespace tabulon;

namespace {

void fail(const QString &what)
{
    bench::fail("bench_tabledata", what);
}

// The load's steps as it logs them, with the time from the start of the load.
struct Step {
    qint64 ms;
    QString what;
};
QElapsedTimer loadClock;
std::vector<Step> steps;
QtMessageHandler passOn = nullptr;

void recordStep(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type == QtDebugMsg && qstrcmp(context.category, lcTableLoad().categoryName()) == 0) {
        steps.push_back(Step{loadClock.isValid() ? loadClock.elapsed() : -1, message});
        return;
    }
    passOn(type, context, message);
}

// The steps logged from the start of the wait that ended at `endMs` and lasted `ms` (and the
// last one before it, which was running when it began), as "step@ms; ...".
QString stepsDuring(qint64 endMs, qint64 ms)
{
    QStringList out;
    for (size_t k = 0; k < steps.size(); ++k) {
        const bool last = k + 1 == steps.size() || steps[k + 1].ms >= endMs - ms;
        if (steps[k].ms <= endMs && (steps[k].ms >= endMs - ms || last))
            out << QStringLiteral("%1@%2").arg(steps[k].what).arg(steps[k].ms);
    }
    return out.join(QStringLiteral("; "));
}

} // namespace

int main(int argc, char **argv)
{
    bench::prepareWindows();
    passOn = qInstallMessageHandler(recordStep);
    QLoggingCategory::setFilterRules(QStringLiteral("tabulon.load.debug=true"));
    QApplication app(argc, argv);
    QStringList args = app.arguments();
    TableLoad::Pace pace;
    int stopAfterMs = -1;
    if (args.size() > 1 && args.at(1) == QLatin1String("--no-yield")) {
        pace.pauseMs = -1;
        args.removeAt(1);
    } else if (args.size() > 2 && args.at(1) == QLatin1String("--stop-after")) {
        stopAfterMs = args.at(2).toInt();
        args.remove(1, 2);
    }
    if (args.size() != 3 && args.size() != 4)
        fail(QStringLiteral("usage: bench_tabledata [--no-yield | --stop-after MS] HOST:PORT DATABASE [SORT-FIELD]"));

    DatabaseSession session;
    bench::openForWindows("bench_tabledata", session, args.at(1), args.at(2));

    const long baselineKb = bench::peakKiB();
    QElapsedTimer timer;
    timer.start();
    loadClock.start();
    // The longest time between two ticks is the longest the event loop was held up.
    QElapsedTimer sinceTick;
    sinceTick.start();
    qint64 maxBlockMs = 0;
    qint64 maxBlockEndMs = 0; // when the longest wait ended, from the start of the load
    QTimer ticker;
    ticker.setInterval(5);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        if (const qint64 waited = sinceTick.restart(); waited > maxBlockMs) {
            maxBlockMs = waited;
            maxBlockEndMs = timer.elapsed();
        }
    });
    ticker.start();
    qint64 stopMs = -1;
    QTimer stopper;
    stopper.setSingleShot(true);
    if (stopAfterMs >= 0) {
        QObject::connect(&stopper, &QTimer::timeout, [&] {
            for (QWidget *w : QApplication::topLevelWidgets()) {
                if (qobject_cast<TableData *>(w)) {
                    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
                    QCoreApplication::sendEvent(w, &escape);
                }
            }
            stopMs = timer.elapsed();
        });
        stopper.start(stopAfterMs);
    }
    bench::BenchHost host(session);
    // The window loads its first table while it is built; the pace must be set before that.
    TableData::setDefaultLoadPace(pace);
    auto *window = new TableData(host);
    const qint64 loadMs = timer.elapsed();
    if (sinceTick.elapsed() > maxBlockMs) {
        maxBlockMs = sinceTick.elapsed();
        maxBlockEndMs = timer.elapsed();
    }
    ticker.stop();
    if (stopMs >= 0)
        stopMs = loadMs - stopMs;
    const long loadPeakKb = bench::peakKiB();

    Grid &grid = *window->grid();
    qint64 sortMs = -1;
    if (args.size() == 4) {
        int col = -1;
        for (int c = 2; c < grid.cols() && col < 0; ++c) {
            if (grid.textMatrix(0, c).compare(args.at(3), Qt::CaseInsensitive) == 0)
                col = c;
        }
        if (col < 0)
            fail(QStringLiteral("no field ") + args.at(3));
        timer.restart();
        Q_EMIT grid.horizontalHeader()->sectionClicked(col); // as the operator's click
        sortMs = timer.elapsed();
    }

    std::printf("table=%s\n", qPrintable(window->findChild<QComboBox *>(QStringLiteral("Combo1"))->currentText()));
    std::printf("rows=%d\n", grid.rows() - 1);
    std::printf("fields=%d\n", grid.cols() - 2);
    std::printf("load_ms=%lld\n", loadMs);
    std::printf("max_block_ms=%lld\n", maxBlockMs);
    std::printf("max_block_end_ms=%lld\n", maxBlockEndMs);
    std::printf("max_block_steps=%s\n", qPrintable(stepsDuring(maxBlockEndMs, maxBlockMs)));
    std::printf("partly_loaded=%d\n", window->isPartlyLoaded() ? 1 : 0);
    std::printf("stop_ms=%lld\n", stopMs);
    std::printf("sort_ms=%lld\n", sortMs);
    std::printf("baseline_hwm_kb=%ld\n", baselineKb);
    std::printf("load_hwm_kb=%ld\n", loadPeakKb);
    std::printf("peak_hwm_kb=%ld\n", bench::peakKiB());
    std::printf("grid_bytes=%lld\n", static_cast<long long>(grid.cells().memoryUse()));
    delete window;
    return 0;
}
