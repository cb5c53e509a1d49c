// What the folders and files tool does to the disk, without a window: listing a folder's tree,
// renaming by a text replaced in names, deleting, and the outcome every change reports.
//
// Nothing here follows a link: a link is listed, renamed and deleted as the entry it is, and
// never descended into. The chosen folder itself is taken with its links resolved, and every
// change checks again, entry by entry, that it stays below that folder. No change overwrites
// anything: a name that is already taken is reported and left alone.
#pragma once

#include "db/progress.h"

#include <QString>
#include <QStringList>

#include <vector>

namespace tabulon::Files {

// One entry below the listed folder.
struct Entry final {
    QString path; // absolute
    QString name;
    bool folder = false; // a real folder; a link to a folder is not one
    bool link = false;
    int parent = -1; // index of the folder entry holding it; -1 for the listed folder's own entries
};

struct Listing final {
    std::vector<Entry> entries; // depth first; in each folder its folders, then its files, by name
    QStringList unreadable;     // folders whose content could not be read
    bool stopped = false;
};

// Lists everything below `root` (the root itself is not an entry); one progress step per
// folder read.
Listing listFolder(const QString &root, Progress &progress);

enum class Kind { Folders, Files };
// The paths of every folder, or of every file (links included), below `folder`, deepest first.
// Without `hidden`, hidden entries are left out, and so is everything inside hidden folders.
QStringList itemsBelow(const QString &folder, Kind kind, bool hidden = true);

// The chosen folder as the changes work below it: the folder a link or a path through links
// leads to; the cleaned path itself when it leads nowhere.
QString chosenFolder(const QString &folder);
// Whether the entry at `path` lies below `root` (a chosen folder): the folder holding it, its
// links resolved, is `root` or inside it. The entry itself may be a link; a change acts on the
// link, not on what it points at.
bool liesBelow(const QString &root, const QString &path);
// The reason given for an entry that does not.
QString outsideReason();

// Whether the name holds the text; an empty text holds nowhere.
bool nameContains(const QString &name, const QString &text, Qt::CaseSensitivity cs);
// What is wrong with a new name for an entry: "" when nothing is.
QString nameProblem(const QString &name);

// Something a change left alone, and why.
struct Skipped final {
    QString path;
    QString reason;
};

struct Rename final {
    QString from;
    QString to;
};

// What one change did: how many entries (or files) it changed, what it skipped, and which
// entries it moved where (renamed, or put in the trash), in the order it moved them.
struct Outcome final {
    int changed = 0;
    std::vector<Skipped> skipped;
    bool stopped = false;
    std::vector<Rename> moved;
};
// "Renamed 3 items." and, when something was skipped, each skipped path with its reason (at most
// `listed` of them, then how many more).
QString summaryText(const QString &done, const QString &unit, const Outcome &outcome, int listed = 15);
// The part of the summary after the count: whether it stopped early, and what was left alone.
QString leftAloneText(const Outcome &outcome, int listed = 15);

struct RenamePlan final {
    QString root;                // the chosen folder every rename stays below
    std::vector<Rename> renames; // deepest first, so a folder is renamed after its content
    std::vector<Skipped> skipped;
};

// The renames that replacing `find` by `with` in the names of `paths` makes. Names that do not
// change are left out; an entry that does not lie below `root`, or whose new name is invalid or
// already taken (on disk or by an earlier rename of the plan), is skipped with its reason.
RenamePlan planReplaceInNames(const QString &root, const QStringList &paths, const QString &find, const QString &with,
                              Qt::CaseSensitivity cs);
// The plan of one entry given a new name.
RenamePlan planRename(const QString &root, const QString &path, const QString &newName);
// Carries the renames out, never replacing an existing entry and checking again that each stays
// below the plan's root; one progress step each.
Outcome applyRenames(const RenamePlan &plan, Progress &progress);
// Takes back renames that were carried out (`Outcome::moved`), last first: each entry gets its
// old name again unless it is gone or its old name has been taken meanwhile.
Outcome undoRenames(const std::vector<Rename> &done, Progress &progress);

// Moves an entry without replacing anything at the target. Returns the reason of a failure, ""
// on success.
QString moveWithoutReplacing(const QString &from, const QString &to);
// Whether anything, a dangling link included, has this path.
bool entryExists(const QString &path);
// Writes a file whole: beside it first, then put in its place (its permissions kept), so that a
// failure leaves it as it was. Returns the reason of a failure, "" on success.
QString writeWhole(const QString &path, const QByteArray &bytes);

// How much a deletion of `paths` removes, every entry inside the folders counted.
struct DeleteCount final {
    int folders = 0;
    int files = 0;
};
// Drops paths that lie inside another path of the list, and paths given twice.
QStringList outermostPaths(const QStringList &paths);
DeleteCount countForDelete(const QStringList &paths);
// Deletes the entries, folders with their content. Read-only files are kept (and so the folders
// holding them); a link goes, never what it points at. `changed` counts the entries removed.
Outcome deleteEntries(const QStringList &paths, Progress &progress);

// True when the entry's owner may not write it (the read-only attribute, whoever runs this).
bool isReadOnly(const QString &path);

} // namespace tabulon::Files
