// Deleting by moving into the desktop's trash (the freedesktop.org trash on Linux, the recycle
// bin on Windows), and taking such a move back.
#pragma once

#include "files/folderwork.h"

namespace tabulon::Files {

struct TrashOutcome final {
    Outcome outcome;        // `changed` and `moved` (entry -> its place in the trash) for what went;
                            // `skipped` for what is left alone whatever the operator says
    QStringList notTrashed; // entries still there because no trash would take them
    QString reason;         // why the first of them would not go
};

// Moves each entry, folders whole, into the trash; one progress step each. Only entries below
// `root` (the chosen folder) that lie, with all they hold, on the file system of `root` go: the
// trash of another file system would be made at that file system's top, outside the chosen
// folder. The others are left alone and say why.
TrashOutcome moveToTrash(const QString &root, const QStringList &paths, Progress &progress);

// Puts entries moved into the trash (`Outcome::moved` of moveToTrash) back where they were,
// each unless its old place has been taken meanwhile or it has left the trash; the trash forgets
// the ones put back.
Outcome restoreFromTrash(const std::vector<Rename> &moved, Progress &progress);

} // namespace tabulon::Files
