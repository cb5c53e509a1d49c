// Backs up tables into the day's archive, or restores them from one, through the same logic
// the backup and restore windows run, and prints the time taken and the process's peak memory.
// TABLES is one name or several separated by commas. The restore goes on past a refused row
// (a value with a quote breaks its own statement) and counts them, as the operator would see
// them one by one.
//
//   bench_backup backup  SERVER DATABASE TABLES FOLDER
//   bench_backup restore SERVER DATABASE TABLES ARCHIVE
#include "backup/backuparchive.h"
#include "backup/tablebackup.h"
#include "backup/tablerestore.h"
#include "benchmemory.h"
#include "db/connectionstring.h"
#include "db/databasesession.h"
#include "db/tabletransaction.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <cstdio>

using namespace tabulon;

namespace {

int fail(const DbError &error)
{
    std::fprintf(stderr, "%s\n", qPrintable(error.description));
    return 1;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 6) {
        std::fprintf(stderr, "usage: bench_backup backup|restore SERVER DATABASE TABLES FOLDER|ARCHIVE\n");
        return 2;
    }
    const QString &mode = args[1], &where = args[5];
    const QStringList tables = args[4].split(QLatin1Char(','), Qt::SkipEmptyParts);
    DatabaseSession session;
    if (DbError error = session.open(ConnectionString::mysql(args[2], QStringLiteral("dbop"), QString(), args[3])))
        return fail(error);

    QElapsedTimer timer;
    timer.start();
    qint64 refused = 0;
    if (mode == QLatin1String("backup")) {
        const auto set = TableBackup::BackupSet::forPath(TableBackup::withSeparator(where), QDate::currentDate());
        QFile::remove(set.archivePath());
        if (!QDir().mkpath(set.workingFolder))
            return fail(DbError::file(set.workingFolder, QStringLiteral("cannot create")));
        // As the backup window does: each table file is compressed while the next table is read.
        BackupArchive::Packer packer(set.workingFolder);
        for (const QString &table : tables) {
            if (DbError error = TableBackup::writeTableFile(session, TableBackup::tableSelect(table),
                                                            QDir(set.workingFolder).filePath(table)))
                return fail(error);
            packer.add(table);
        }
        // What is left after the last table is read: its compression and the archive's writing.
        std::printf("read_ms=%lld\n", static_cast<long long>(timer.elapsed()));
        if (DbError error = TableBackup::finish(set, packer, tables))
            return fail(error);
        std::printf("archive=%s\n", qPrintable(set.archivePath()));
    } else {
        QTemporaryDir extracted;
        QStringList archived;
        if (DbError error = BackupArchive::extract(where, extracted.filePath(QStringLiteral("x")), &archived))
            return fail(error);
        for (const QString &table : tables) {
            // The restore's own check that the table exists reads it whole.
            if (DbError error = session.execute(TableRestore::existenceTest(table)))
                return fail(error);
            // As the restore window does: on InnoDB the delete and inserts are one transaction.
            TableTransaction transaction(session, table);
            if (transaction.error())
                return fail(transaction.error());
            if (DbError error = session.execute(TableRestore::deleteAllStatement(table)))
                return fail(error);
            auto columns = TableRestore::fieldColumns(session, table);
            if (!columns)
                return fail(columns.error());
            if (DbError error =
                    TableRestore::insertRows(session, table, extracted.filePath(QStringLiteral("x/")) + table, *columns,
                                             nullptr, false, [&refused](const DbError &) {
                                                 ++refused;
                                                 return true;
                                             }))
                return fail(error);
            if (DbError error = transaction.commit())
                return fail(error);
        }
        std::printf("refused=%lld\n", static_cast<long long>(refused));
    }
    std::printf("ms=%lld\npeak_kib=%ld\n", static_cast<long long>(timer.elapsed()), bench::peakKiB());
    return 0;
}
