// Loads a table through the real table data window, as the operator's "Table D&ata" does, and
// reports the load time, the process's peak memory and the table's data size. The load is the
// only work of this process, so that the peak belongs to it. Run by scripts/bench.sh.
//
//   bench_tabledata HOST:PORT DATABASE
//
// The window shows the first table the database lists; the benchmark database holds one.
#include "benchwindow.h"
#include "data/tabledata.h"
#include "db/databasesession.h"
#include "db/memorypolicy.h"
#include "grid/grid.h"
#include "ui/dialogs.h"

#include <QApplication>
#include <QComboBox>
#include <QElapsedTimer>
#include <QFile>

#include <cstdio>

using namespace tabulon;

namespace {

qint64 statusKb(const char *field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray key = QByteArray(field) + ':';
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith(key))
            return line.mid(key.size()).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

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
    if (args.size() != 3)
        fail(QStringLiteral("usage: bench_tabledata HOST:PORT DATABASE"));

    DatabaseSession session;
    bench::openForWindows("bench_tabledata", session, args.at(1), args.at(2));

    const qint64 baselineKb = statusKb("VmHWM");
    QElapsedTimer timer;
    timer.start();
    bench::BenchHost host(session);
    auto *window = new TableData(host);
    const qint64 loadMs = timer.elapsed();
    const qint64 peakKb = statusKb("VmHWM");
    const qint64 residentKb = statusKb("VmRSS");

    const Grid &grid = *window->grid();
    const GridData &cells = grid.cells();
    qint64 cellBytes = 0;
    for (int c = 2; c < cells.cols(); ++c) {
        for (int r = 1; r < cells.rows(); ++r)
            cellBytes += cells.utf8(r, c).size();
    }
    const QString table = window->findChild<QComboBox *>(QStringLiteral("Combo1"))->currentText();
    qint64 dataLength = -1;
    auto info = session.openQuery(
        QStringLiteral("SELECT data_length FROM information_schema.tables WHERE table_schema = DATABASE() "
                       "AND table_name = '%1'")
            .arg(table));
    if (info.ok() && info->recordCount() == 1)
        dataLength = info->text(0, 0).toLongLong();

    std::printf("table=%s\n", qPrintable(table));
    std::printf("rows=%d\n", cells.rows() - 1);
    std::printf("fields=%d\n", cells.cols() - 2);
    std::printf("load_ms=%lld\n", loadMs);
    std::printf("baseline_hwm_kb=%lld\n", baselineKb);
    std::printf("peak_hwm_kb=%lld\n", peakKb);
    std::printf("rss_after_load_kb=%lld\n", residentKb);
    std::printf("grid_bytes=%lld\n", static_cast<long long>(cells.memoryUse()));
    std::printf("cell_text_bytes=%lld\n", cellBytes);
    std::printf("data_length=%lld\n", dataLength);
    delete window;
    return 0;
}
