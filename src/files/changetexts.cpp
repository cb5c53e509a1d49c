#include "files/changetexts.h"

#include <QDir>
#include <QFileInfo>

namespace tabulon::Files {

namespace {

constexpr int kPreviewLines = 15;
constexpr int kPreviewFiles = 8;

// Appends the first lines of a preview, and how many more there are.
void appendPreview(QString &text, const QStringList &lines)
{
    for (qsizetype i = 0; i < std::min(lines.size(), qsizetype(kPreviewLines)); ++i)
        text += QLatin1Char('\n') + lines[i];
    if (lines.size() > kPreviewLines)
        text += QStringLiteral("\n... and %1 more").arg(lines.size() - kPreviewLines);
}

QStringList relativePaths(const QStringList &paths, const QString &base)
{
    QStringList out;
    for (const QString &path : paths)
        out << QDir(base).relativeFilePath(path);
    return out;
}

} // namespace

QString plural(int n, const QString &unit)
{
    return QStringLiteral("%1 %2%3").arg(n).arg(unit, n == 1 ? QString() : QStringLiteral("s"));
}

QString renameQuestion(const RenamePlan &plan, const QString &unit)
{
    QString text = QStringLiteral("Rename %1?\n").arg(plural(int(plan.renames.size()), unit));
    QStringList lines;
    for (const Rename &r : plan.renames)
        lines << QStringLiteral("%1  ->  %2").arg(QDir(plan.root).relativeFilePath(r.from), QFileInfo(r.to).fileName());
    appendPreview(text, lines);
    if (!plan.skipped.empty())
        text += QStringLiteral("\n\n%1 cannot be renamed and will be left alone.")
                    .arg(plural(int(plan.skipped.size()), unit));
    return text;
}

QString contentQuestion(const ContentPlan &plan, const TextReplacement &replacement)
{
    QString text = QStringLiteral("Replace %1 of \"%2\" with \"%3\" in %4?\n")
                       .arg(plural(plan.occurrences, QStringLiteral("occurrence")), replacement.find, replacement.with,
                            plural(int(plan.files.size()), QStringLiteral("file")));
    const int shown = std::min(int(plan.files.size()), kPreviewFiles);
    for (int i = 0; i < shown; ++i) {
        const FileChange &f = plan.files[size_t(i)];
        text += QStringLiteral("\n%1 (%2)").arg(QDir(plan.root).relativeFilePath(f.path)).arg(f.occurrences);
        for (const MatchedLine &line : f.lines)
            text += QStringLiteral("\n    %1: %2").arg(line.number).arg(line.text);
        if (f.matchedLines > int(f.lines.size()))
            text += QStringLiteral("\n    ... and %1 more")
                        .arg(plural(f.matchedLines - int(f.lines.size()), QStringLiteral("line")));
    }
    if (int(plan.files.size()) > shown)
        text += QStringLiteral("\n... and %1 more").arg(plural(int(plan.files.size()) - shown, QStringLiteral("file")));
    if (!plan.skipped.empty())
        text +=
            QStringLiteral("\n\n%1 will be left alone.").arg(plural(int(plan.skipped.size()), QStringLiteral("file")));
    return text;
}

QString deleteQuestion(const QStringList &paths, const DeleteCount &count, const QString &base)
{
    QString text =
        QStringLiteral("Delete %1 and %2?\n")
            .arg(plural(count.folders, QStringLiteral("folder")), plural(count.files, QStringLiteral("file")));
    appendPreview(text, relativePaths(paths, base));
    if (count.folders > 0)
        text += QStringLiteral("\n\nFolders go with everything inside them.");
    return text;
}

QString deleteForGoodQuestion(const TrashOutcome &trash, const QString &base)
{
    QString text = QStringLiteral("%1 cannot go to the trash (%2):\n")
                       .arg(plural(int(trash.notTrashed.size()), QStringLiteral("item")), trash.reason);
    appendPreview(text, relativePaths(trash.notTrashed, base));
    text += QStringLiteral("\n\nDelete %1 for good? There is no bringing %1 back.")
                .arg(trash.notTrashed.size() == 1 ? QStringLiteral("it") : QStringLiteral("them"));
    return text;
}

QString deleteSummary(const TrashOutcome &trash, const std::optional<Outcome> &forGood)
{
    Outcome all = trash.outcome;
    QStringList said;
    if (all.changed > 0 || !forGood)
        said << QStringLiteral("Moved %1 to the trash.").arg(plural(all.changed, QStringLiteral("item")));
    if (forGood) {
        said << QStringLiteral("Deleted %1 for good.").arg(plural(forGood->changed, QStringLiteral("item")));
        all.skipped.insert(all.skipped.end(), forGood->skipped.begin(), forGood->skipped.end());
        all.stopped = all.stopped || forGood->stopped;
    } else {
        for (const QString &path : trash.notTrashed)
            all.skipped.push_back(Skipped{path, QStringLiteral("not deleted: %1").arg(trash.reason)});
    }
    return said.join(QLatin1Char('\n')) + leftAloneText(all);
}

QString putBackSummary(const Outcome &outcome, int copiesKept)
{
    QString text = summaryText(QStringLiteral("Put back"), QStringLiteral("file"), outcome);
    if (copiesKept > 0)
        text += QStringLiteral("\n\nKept the copies of %1 not put back: Undo Replace in Files can try again.")
                    .arg(plural(copiesKept, QStringLiteral("file")));
    return text;
}

} // namespace tabulon::Files
