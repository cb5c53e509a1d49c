// The backup archive: a zip archive named after the day, holding one table file (the grid's file
// form) per table at its root. Archives are written under a temporary name and renamed when
// complete, and checked whole before anything is taken out of them, so that an archive from
// elsewhere cannot write outside its folder, fill the disk or feed a damaged table.
#pragma once

#include "db/dberror.h"

#include <QDate>
#include <QString>
#include <QStringList>

namespace tabulon::BackupArchive {

// "dd-mmm-yy" with English month abbreviations whatever the locale: 15-Nov-26.
QString datedName(const QDate &date);

// True for a name that can only ever be a file directly inside a folder: not empty, no path
// separators, no drive colon, no "..", no control characters, at most 64 characters.
bool isPlainTableName(const QString &name);

// Zips the named files of `folder` into `archivePath`, each at the archive's root. The archive is written as
// `archivePath` + ".partial" and renamed at the end; an archive already at `archivePath` is never replaced (an error
// names it).
DbError pack(const QString &folder, const QStringList &fileNames, const QString &archivePath);

struct Limits final {
    qint64 maxUnpackedBytes = qint64(64) * 1024 * 1024 * 1024;
    int maxEntries = 10000;
};

// Checks the archive whole and takes its table files out into `targetFolder` (created when
// missing; files of the same names are replaced). The entries are first written into a
// temporary folder beside it and checked there: every entry's CRC, its size against what it
// declares, the total against the limit and the free disk space, plain unique names, no links
// or encrypted entries, and every table file's form. Only an archive that passes every check
// moves into `targetFolder`; otherwise nothing is left behind and the error says what is
// wrong. `tables` receives the table names, sorted as a file list shows them.
DbError extract(const QString &archivePath, const QString &targetFolder, QStringList *tables,
                const Limits &limits = Limits());

} // namespace tabulon::BackupArchive
