// Backs up one table into the day's archive, or restores it from one, through the same logic
// the backup and restore windows run, and prints the time taken and the process's peak memory.
//
//   bench_backup backup  SERVER DATABASE TABLE FOLDER
//   bench_backup restore SERVER DATABASE TABLE ARCHIVE
#include "backup/backuparchive.h"
#include "backup/tablebackup.h"
#include "backup/tablerestore.h"
#include "db/connectionstring.h"
#include "db/databasesession.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <sys/resource.h>

#include <cstdio>

using namespace tabulon;

namespace {

int fail(const DbError &error)
{
    std::fprintf(stderr, "%s\n", qPrintable(error.description));
    return 1;
}

long peakKiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 6) {
        std::fprintf(stderr, "usage: bench_backup backup|restore SERVER DATABASE TABLE FOLDER|ARCHIVE\n");
        return 2;
    }
    const QString &mode = args[1], &table = args[4], &where = args[5];
    DatabaseSession session;
    if (DbError error = session.open(ConnectionString::mysql(args[2], QStringLiteral("dbop"), QString(), args[3])))
        return fail(error);

    QElapsedTimer timer;
    timer.start();
    if (mode == QLatin1String("backup")) {
        const auto set = TableBackup::BackupSet::forPath(TableBackup::withSeparator(where), QDate::currentDate());
        QFile::remove(set.archivePath());
        if (!QDir().mkpath(set.workingFolder))
            return fail(DbError::file(set.workingFolder, QStringLiteral("cannot create")));
        if (DbError error = TableBackup::writeTableFile(session, TableBackup::tableSelect(table),
                                                        QDir(set.workingFolder).filePath(table)))
            return fail(error);
        if (DbError error = TableBackup::finish(set, {table}))
            return fail(error);
        std::printf("archive=%s\n", qPrintable(set.archivePath()));
    } else {
        QTemporaryDir extracted;
        QStringList tables;
        if (DbError error = BackupArchive::extract(where, extracted.filePath(QStringLiteral("x")), &tables))
            return fail(error);
        if (DbError error = session.execute(TableRestore::deleteAllStatement(table)))
            return fail(error);
        auto types = TableRestore::fieldTypes(session, table);
        if (!types)
            return fail(types.error());
        if (DbError error = TableRestore::insertRows(session, table, extracted.filePath(QStringLiteral("x/")) + table,
                                                     *types, nullptr, [](const DbError &) { return false; }))
            return fail(error);
    }
    std::printf("ms=%lld\npeak_kib=%ld\n", static_cast<long long>(timer.elapsed()), peakKiB());
    return 0;
}
