// Writes a table back from the table data window, as the operator's "Save Table" does (the
// whole table deleted, one INSERT per grid row, the table read back into the grid), and
// reports the time of the rewrite alone and the process's peak memory. Run by
// scripts/bench-all.sh, which times the mariadb client rewriting the same table beside it.
//
//   bench_savetable HOST:PORT DATABASE TABLE plain|safety
//
// "safety" times the rewrite with the safety copy it writes first; "plain" goes on without the
// copy (a size limit below the table's, answered Yes), so the two differ by the copy alone.
#include "benchmemory.h"
#include "benchwindow.h"
#include "data/tabledata.h"
#include "db/databasesession.h"
#include "safety/safetynet.h"
#include "safety/safetysettings.h"
#include "ui/dialogs.h"

#include <QApplication>
#include <QComboBox>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <cstdio>

using namespace tabulon;

namespace {

[[noreturn]] void fail(const QString &what)
{
    bench::fail("bench_savetable", what);
}

} // namespace

int main(int argc, char **argv)
{
    bench::prepareWindows();
    QApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 5 || (args.at(4) != QLatin1String("plain") && args.at(4) != QLatin1String("safety")))
        fail(QStringLiteral("usage: bench_savetable HOST:PORT DATABASE TABLE plain|safety"));
    QTemporaryDir folder;
    SafetySettings::useStore(folder.filePath(QStringLiteral("settings.ini")));
    SafetySettings settings;
    settings.folder = folder.filePath(QStringLiteral("safety"));
    if (args.at(4) == QLatin1String("plain"))
        settings.maxMB = 1;
    SafetySettings::store(settings);
    SafetyNet::setConfirm([](const QString &) { return true; });

    DatabaseSession session;
    bench::openForWindows("bench_savetable", session, args.at(1), args.at(2));
    // The rewrite's one question is answered Yes; any other box ends the run with its text.
    Dialogs::setResponder([](const Dialogs::Prompt &p) -> Dialogs::Reply {
        if (p.text == QLatin1String("This will update the Table"))
            return Dialogs::Reply{Dialogs::Answer::Yes, {}};
        fail(p.text);
    });
    bench::BenchHost host(session);
    auto *window = new TableData(host);
    auto *combo = window->findChild<QComboBox *>(QStringLiteral("Combo1"));
    const int index = combo->findText(args.at(3));
    if (index < 0)
        fail(QStringLiteral("no table ") + args.at(3));
    combo->setCurrentIndex(index);

    QElapsedTimer timer;
    timer.start();
    window->SaveTable();
    const qint64 ms = timer.elapsed();
    std::printf("ms=%lld\npeak_kib=%ld\n", static_cast<long long>(ms), bench::peakKiB());
    delete window;
    return 0;
}
