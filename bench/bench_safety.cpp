// Times the safety net on one table through the real table data window: Save Table without a
// copy (the copy declined as too big), Save Table with its copy, the copy alone, and a put-back
// of that copy. Run by scripts/bench-safety.sh.
//
//   bench_safety HOST:PORT DATABASE TABLE FOLDER
//
// Prints key=value lines: rows, save_plain_ms, save_with_copy_ms, copy_ms, copy_bytes,
// putback_ms.
#include "benchwindow.h"
#include "data/tabledata.h"
#include "db/databasesession.h"
#include "db/progress.h"
#include "safety/putback.h"
#include "safety/safetynet.h"
#include "ui/dialogs.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>

#include <cstdio>

using namespace tabulon;

namespace {

[[noreturn]] void fail(const QString &what)
{
    bench::fail("bench_safety", what);
}

qint64 saveTable(TableData &window)
{
    QElapsedTimer timer;
    timer.start();
    window.SaveTable();
    return timer.elapsed();
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 5)
        fail(QStringLiteral("usage: bench_safety HOST:PORT DATABASE TABLE FOLDER"));
    const QString table = args.at(3);
    const QString folder = args.at(4);

    DatabaseSession session;
    bench::openForWindows("bench_safety", session, args.at(1), args.at(2));
    // Save Table's question is answered Yes; any message means the measured work went wrong.
    Dialogs::setResponder([](const Dialogs::Prompt &p) -> Dialogs::Reply {
        if (p.kind == Dialogs::Prompt::Kind::Question)
            return {Dialogs::Answer::Yes, {}};
        fail(p.text);
    });
    bool declineCopy = true;
    SafetyNet::setConfirm([&declineCopy](const QString &) { return declineCopy; });
    SafetySettings::useStore(QDir(folder).filePath(QStringLiteral("settings.ini")));
    SafetySettings settings;
    settings.folder = QDir(folder).filePath(QStringLiteral("copies"));

    bench::BenchHost host(session);
    auto *window = new TableData(host);
    auto *combo = window->findChild<QComboBox *>(QStringLiteral("Combo1"));
    window->selectTable(combo->findText(table));
    if (combo->currentText() != table)
        fail(QStringLiteral("no table ") + table);

    // Without the copy: a size limit below the table's, and Yes to going on without one.
    settings.maxMB = 1;
    SafetySettings::store(settings);
    const qint64 plainMs = saveTable(*window);

    settings.maxMB = SafetySettings::kDefaultMaxMB;
    SafetySettings::store(settings);
    declineCopy = false;
    const qint64 withCopyMs = saveTable(*window);

    QElapsedTimer timer;
    timer.start();
    if (const DbError e = SafetyNet::protectTables(session, QStringLiteral("Save Table"), {table}))
        fail(e.description);
    const qint64 copyMs = timer.elapsed();

    const auto copies = SafetyNet::listCopies(settings.folder);
    if (copies.isEmpty())
        fail(QStringLiteral("no copy written"));
    NoProgress progress;
    timer.restart();
    const auto done = PutBack::putBack(session, copies.first(), progress);
    const qint64 putBackMs = timer.elapsed();
    if (!done)
        fail(done.error().description);

    std::printf("rows=%lld\nsave_plain_ms=%lld\nsave_with_copy_ms=%lld\ncopy_ms=%lld\ncopy_bytes=%lld\n"
                "putback_ms=%lld\n",
                static_cast<long long>(done->rows), static_cast<long long>(plainMs), static_cast<long long>(withCopyMs),
                static_cast<long long>(copyMs), static_cast<long long>(copies.first().size),
                static_cast<long long>(putBackMs));
    delete window;
    return 0;
}
