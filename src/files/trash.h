// Deleting by moving into the desktop's trash (the freedesktop.org trash on Linux, the recycle
// bin on Windows), and taking such a move back.
#pragma once

#include "files/folderwork.h"

namespace tabulon::Files {

struct TrashOutcome final {
    Outcome outcome;        // `changed` and `moved` (entry -> its place in the trash) for what went
    QStringList notTrashed; // entries still there because no trash would take them
    QString reason;         // why the first of them would not go
};

// Moves each entry, folders whole, into the trash; one progress step each.
TrashOutcome moveToTrash(const QStringList &paths, Progress &progress);

// Puts entries moved into the trash (`Outcome::moved` of moveToTrash) back where they were,
// each unless its old place has been taken meanwhile or it has left the trash; the trash forgets
// the ones put back.
Outcome restoreFromTrash(const std::vector<Rename> &moved, Progress &progress);

} // namespace tabulon::Files
