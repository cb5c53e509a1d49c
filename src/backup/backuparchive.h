// The backup archive: a zip archive named after the day, holding one table file (the grid's file
// form) per table at its root. Archives are written under a temporary name and renamed when
// complete, and checked whole before anything is taken out of them, so that an archive from
// elsewhere cannot write outside its folder, fill the disk or feed a damaged table.
#pragma once

#include "db/dberror.h"
#include "grid/gridfile.h"

#include <QDate>
#include <QList>
#include <QString>
#include <QStringList>

#include <memory>
#include <thread>

namespace tabulon::BackupArchive {

// "dd-mmm-yy" with English month abbreviations whatever the locale: 15-Nov-26.
QString datedName(const QDate &date);

// True for a name that the restore's unquoted statements ("Delete from " + name + " where ...")
// read as exactly one table name, which also makes it a plain file name: at most 64 letters
// (beyond ASCII too), digits, "_" and "$", and not a number to the server's parser (only digits,
// 1e5, 0x1f, 0b01). Anything else could turn a statement into another one ("t #" comments out
// its where clause), so such names are neither written into nor read from an archive.
bool isTableName(const QString &name);

enum class Existing { Keep, Replace };

// Zips the named files of `folder` into `archivePath`, each at the archive's root. The archive is
// written as `archivePath` + ".partial", flushed to disk and only then renamed to its name, so an
// archive at `archivePath` is either the earlier one or the new one whole. With Existing::Keep an
// archive already there is never replaced (an error names it); with Existing::Replace it stays
// until the new one takes its place.
DbError pack(const QString &folder, const QStringList &fileNames, const QString &archivePath,
             Existing existing = Existing::Keep);

// Packs the table files of one folder while the next ones are still being read. A file handed
// over whole, or the bytes of one as its writer produces them (entry()), is compressed (deflate
// at the fastest level) by a thread of its own into a part file in the folder, so the second
// core compresses a table while it is read; finish() then writes the archive as pack() does,
// taking the parts' compressed bytes as they are. Bytes pass through fixed buffers and a short
// queue, so memory stays flat whatever the files' sizes.
class Packer final {
public:
    // The compressing thread's name, as the system lists it.
    static constexpr const char *kThreadName = "backup-packer";
    // How many bytes an entry's writer may have waiting for the thread before it waits too.
    static constexpr qsizetype kQueueBytes = 4 * 1024 * 1024;

    explicit Packer(const QString &folder);
    // Ends the thread (a file half compressed is given up) and removes every part it wrote.
    ~Packer();
    Packer(const Packer &) = delete;
    Packer &operator=(const Packer &) = delete;

    // Hands over a finished file of the folder; it must not change from here on.
    void add(const QString &fileName);
    // A table file to be written straight into the archive as `fileName`: its bytes are
    // compressed as they come, with no file of its own in the folder. An entry that ends
    // replaces one of the same name handed over before it; an abandoned one leaves nothing.
    // Only one entry is written at a time, on the thread that hands files over.
    std::unique_ptr<GridFileSink> entry(const QString &fileName);
    // What stopped the compressing thread (a file that cannot be read, a part that cannot be
    // written), or no error; nothing handed over after it is packed.
    DbError failure() const;
    // Waits for every file handed over, then writes them into `archivePath` in the order given,
    // all or nothing, as pack() does. The parts are gone afterwards, whatever the outcome.
    DbError finish(const QString &archivePath, Existing existing = Existing::Keep);

    // The part that holds a file's compressed bytes until the archive is written, in the same
    // folder; no table file has such a name.
    static QString partName(const QString &fileName);

    struct State;

private:
    void stop();

    std::unique_ptr<State> m_state;
    std::thread m_thread;
};

struct Limits final {
    qint64 maxUnpackedBytes = qint64(64) * 1024 * 1024 * 1024;
    int maxEntries = 10000;
    qint64 freeBytes = -1; // the disk's free space; -1 asks the disk
};

// The disk space that unpacking entries of these sizes takes: each file rounded up to whole
// blocks, plus an eighth for the folder entries and the file system's own bookkeeping.
qint64 spaceToUnpack(const QList<quint64> &entrySizes);

// Checks the archive whole and takes its table files out into `targetFolder` (created when
// missing; files of the same names are replaced). The entries are first written into a
// temporary folder beside it and checked there: every entry's CRC, its size against what it
// declares, the total against the limit and the free disk space, plain unique names, no links
// or encrypted entries, and every table file's form. Only an archive that passes every check
// moves into `targetFolder`; otherwise nothing is left behind and the error says what is
// wrong. `tables` receives the table names, sorted as a file list shows them.
DbError extract(const QString &archivePath, const QString &targetFolder, QStringList *tables,
                const Limits &limits = Limits());

// Copies the entries named in `tables` that the archive holds into `folder`, each checked as
// extract() checks it (its CRC and size, the table file form), byte for byte. `carried`
// receives the names copied; an entry that fails its check is left out and named in
// `damaged` with the reason. An archive that cannot be opened is returned as the error.
DbError carryOver(const QString &archivePath, const QStringList &tables, const QString &folder, QStringList *carried,
                  QStringList *damaged);

} // namespace tabulon::BackupArchive
