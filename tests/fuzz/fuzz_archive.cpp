// libFuzzer target for the restore's archive check: any bytes as a backup archive, checked and
// unpacked with small limits into a scratch folder. Whatever the archive holds, the check either
// refuses it and leaves nothing behind, or unpacks only plain table names that read as table
// files.
#include "backup/backuparchive.h"
#include "grid/gridfile.h"

#include "fuzzfile.h"

#include <QDir>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static tabulon::fuzz::ScratchFile file(QStringLiteral("archive.zip"));
    if (!file.write(data, size))
        return 0;
    const QString target = file.folder() + QStringLiteral("/unpacked");
    QDir(target).removeRecursively();

    tabulon::BackupArchive::Limits limits;
    limits.maxUnpackedBytes = 8 * 1024 * 1024;
    limits.maxEntries = 64;
    QStringList tables;
    const tabulon::DbError error = tabulon::BackupArchive::extract(file.path(), target, &tables, limits);
    const QStringList left = QDir(target).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
    if (error.isError()) {
        if (!left.isEmpty())
            __builtin_trap(); // a refused archive leaves nothing behind
        return 0;
    }
    for (const QString &name : left) {
        if (!tabulon::BackupArchive::isTableName(name))
            __builtin_trap();
        if (tabulon::GridFileReader::verify(target + QLatin1Char('/') + name).isError())
            __builtin_trap(); // only whole table files pass
    }
    return 0;
}
