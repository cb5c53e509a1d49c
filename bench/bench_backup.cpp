// Backs up tables into the day's archive, or restores them from one, through the same logic
// the backup and restore windows run, and prints the time taken and the process's peak memory.
// TABLES is one name or several separated by commas.
//
// The restore takes the window's steps: the check of the tables against their files, the
// exact-value check of every file, whose question (when it has one) is answered Yes, so that a
// row the usual values would change goes with exact values, then the write mode and, per table,
// the existence test, the fit of the file, the delete and the inserts (one transaction on
// InnoDB). A refused row is counted and the restore goes on, as the operator would see them one
// by one. It prints the rows the check found for exact values and the rows refused.
//
//   bench_backup backup  SERVER DATABASE TABLES FOLDER
//   bench_backup restore SERVER DATABASE TABLES ARCHIVE
#include "backup/backuparchive.h"
#include "backup/restorecheck.h"
#include "backup/tablebackup.h"
#include "backup/tablerestore.h"
#include "benchmemory.h"
#include "db/connectionstring.h"
#include "db/databasesession.h"
#include "db/tabletransaction.h"
#include "db/writemode.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <cstdio>
#include <vector>

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
        // As the backup window does: each table file is compressed while it is read.
        BackupArchive::Packer packer(set.workingFolder);
        for (const QString &table : tables) {
            if (DbError error = TableBackup::writeTableFile(session, TableBackup::tableSelect(table), packer, table))
                return fail(error);
        }
        // What is left after the last table is read: the end of its compression and the archive's
        // writing.
        std::printf("read_ms=%lld\n", static_cast<long long>(timer.elapsed()));
        if (DbError error = TableBackup::finish(set, packer, tables))
            return fail(error);
        std::printf("archive=%s\n", qPrintable(set.archivePath()));
    } else {
        QTemporaryDir extracted;
        const QString folder = extracted.filePath(QStringLiteral("x"));
        QStringList archived;
        if (DbError error = BackupArchive::extract(where, folder, &archived))
            return fail(error);
        auto found = RestoreCheck::check(session, tables, folder, true);
        if (!found)
            return fail(found.error());
        if (!found->refusals.isEmpty())
            return fail(DbError::file(where, found->refusals.join(QLatin1String("; "))));
        // The exact-value check over every file before the first write; its question is
        // answered Yes.
        std::vector<ExactValues::TableFindings> findings;
        for (const QString &table : tables) {
            auto columns = TableRestore::fieldColumns(session, table);
            if (!columns)
                return fail(columns.error());
            auto tableFindings =
                TableRestore::checkValues(session, table, QDir(folder).filePath(table), *columns, nullptr);
            if (!tableFindings)
                return fail(tableFindings.error());
            findings.push_back(*tableFindings);
        }
        const bool exact = !ExactValues::question(findings).isEmpty();
        qint64 exactRows = 0;
        for (const auto &table : findings)
            exactRows += table.affected;
        if (found->cascadesAmongTicked) {
            if (DbError error = session.execute(QStringLiteral("SET SESSION foreign_key_checks = 0")))
                return fail(error);
        }
        const WriteSessionMode mode(session);
        if (mode.error())
            return fail(mode.error());
        for (const QString &table : tables) {
            // The restore's own check that the table exists reads it whole.
            if (DbError error = session.execute(TableRestore::existenceTest(table)))
                return fail(error);
            const QString file = QDir(folder).filePath(table);
            auto fit = TableRestore::checkFit(session, table, file);
            if (!fit)
                return fail(fit.error());
            if (!fit->misfit.isEmpty())
                return fail(DbError::file(file, fit->misfit));
            // On InnoDB the delete and inserts are one transaction.
            TableTransaction transaction(session, table);
            if (transaction.error())
                return fail(transaction.error());
            if (DbError error = session.execute(TableRestore::deleteAllStatement(table)))
                return fail(error);
            // As the restore window sends them: a refused row stops it, so on a table without
            // transactions each row waits for the answer to the one before.
            const auto sending =
                transaction.active() ? StatementPipeline::Sending::Ahead : StatementPipeline::Sending::AfterEachAnswer;
            if (DbError error = TableRestore::insertRows(session, table, file, fit->columns, nullptr, exact, sending,
                                                         [&refused](const DbError &) {
                                                             ++refused;
                                                             return true;
                                                         }))
                return fail(error);
            if (DbError error = transaction.commit())
                return fail(error);
        }
        std::printf("exact=%s\nexact_rows=%lld\n", exact ? "yes" : "no", static_cast<long long>(exactRows));
        std::printf("refused=%lld\n", static_cast<long long>(refused));
    }
    std::printf("ms=%lld\npeak_kib=%ld\n", static_cast<long long>(timer.elapsed()), bench::peakKiB());
    return 0;
}
