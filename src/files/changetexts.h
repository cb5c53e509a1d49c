// What the folders and files tool tells the operator about a change: the question that
// previews it and the summary of what it did.
#pragma once

#include "files/filetext.h"
#include "files/folderwork.h"
#include "files/trash.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace tabulon::Files {

// "1 file", "3 files".
QString plural(int n, const QString &unit);

// "Rename 2 files?" with the renames (each entry's path relative to the plan's root -> its new
// name) and how many will be left alone.
QString renameQuestion(const RenamePlan &plan, const QString &unit);
// The replacement with its counts, then each file (relative to the plan's root) with its
// matching lines.
QString contentQuestion(const ContentPlan &plan, const TextReplacement &replacement);
// What a deletion of `paths` (relative to `base`) removes.
QString deleteQuestion(const QStringList &paths, const DeleteCount &count, const QString &base);
// Asked when some entries would not go to the trash: whether to delete them for good.
QString deleteForGoodQuestion(const TrashOutcome &trash, const QString &base);
// Where the deleted entries went: the trash, or nowhere (`forGood`, when that was done).
QString deleteSummary(const TrashOutcome &trash, const std::optional<Outcome> &forGood);
// What Undo Replace in Files did; when some files were not put back, that their copies are kept.
QString putBackSummary(const Outcome &outcome, int copiesKept);

} // namespace tabulon::Files
