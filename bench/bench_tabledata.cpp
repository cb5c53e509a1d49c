// Loads a table through the real table data window, as the operator's "Table D&ata" does, and
// optionally sorts it by one column as a click on its header does; reports the times and the
// process's peak memory. The load (and the sort) is the only work of this process, so that
// the peak belongs to it and a timer around the whole process measures it. Run by
// scripts/bench-all.sh.
//
//   bench_tabledata HOST:PORT DATABASE [SORT-FIELD]
//
// The window shows the first table the database lists; the benchmark database holds one.
#include "benchmemory.h"
#include "benchwindow.h"
#include "data/tabledata.h"
#include "db/databasesession.h"
#include "db/memorypolicy.h"
#include "grid/grid.h"
#include "ui/dialogs.h"

#include <QApplication>
#include <QComboBox>
#include <QElapsedTimer>
#include <QHeaderView>

#include <cstdio>

using namespace tabulon;

namespace {

void fail(const QString &what)
{
    bench::fail("bench_tabledata", what);
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    mapLargeBlocks(); // as the program does
    QApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 3 && args.size() != 4)
        fail(QStringLiteral("usage: bench_tabledata HOST:PORT DATABASE [SORT-FIELD]"));

    DatabaseSession session;
    bench::openForWindows("bench_tabledata", session, args.at(1), args.at(2));

    const long baselineKb = bench::peakKiB();
    QElapsedTimer timer;
    timer.start();
    bench::BenchHost host(session);
    auto *window = new TableData(host);
    const qint64 loadMs = timer.elapsed();
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
    std::printf("sort_ms=%lld\n", sortMs);
    std::printf("baseline_hwm_kb=%ld\n", baselineKb);
    std::printf("load_hwm_kb=%ld\n", loadPeakKb);
    std::printf("peak_hwm_kb=%ld\n", bench::peakKiB());
    std::printf("grid_bytes=%lld\n", static_cast<long long>(grid.cells().memoryUse()));
    delete window;
    return 0;
}
