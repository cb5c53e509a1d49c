#include "files/folderwork.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#ifdef Q_OS_LINUX
#include <fcntl.h>
#endif

namespace tabulon::Files {

namespace {

const QString kTaken = QStringLiteral("a file or folder of that name already exists");

// A real folder: links to folders are entries of their own, never gone into.
bool isRealFolder(const QFileInfo &info)
{
    return info.isDir() && !info.isSymLink();
}

// A folder's entries by name, its real folders first; links go with the files.
QFileInfoList folderContent(const QString &folder)
{
    QFileInfoList content = QDir(folder).entryInfoList(
        QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System, QDir::Name | QDir::IgnoreCase);
    std::stable_partition(content.begin(), content.end(), isRealFolder);
    return content;
}

int depthOf(const QString &path)
{
    return int(path.count(QLatin1Char('/')));
}

void sortDeepestFirst(QStringList &paths)
{
    std::stable_sort(paths.begin(), paths.end(), [](const QString &a, const QString &b) {
        const int da = depthOf(a);
        const int db = depthOf(b);
        return da != db ? da > db : a < b;
    });
}

void listInto(Listing &out, const QString &folder, int parent, Progress &progress)
{
    if (progress.stopRequested()) {
        out.stopped = true;
        return;
    }
    progress.step(folder);
    if (!QDir(folder).isReadable()) {
        out.unreadable << folder;
        return;
    }
    const QFileInfoList content = folderContent(folder);
    for (const QFileInfo &info : content) {
        if (out.stopped)
            return;
        out.entries.push_back(
            Entry{info.absoluteFilePath(), info.fileName(), isRealFolder(info), info.isSymLink(), parent});
        if (isRealFolder(info))
            listInto(out, info.absoluteFilePath(), int(out.entries.size()) - 1, progress);
    }
}

} // namespace

QString chosenFolder(const QString &folder)
{
    const QFileInfo info(folder);
    const QString canonical = info.canonicalFilePath();
    return canonical.isEmpty() ? QDir::cleanPath(info.absoluteFilePath()) : canonical;
}

bool liesBelow(const QString &root, const QString &path)
{
    if (root.isEmpty())
        return false;
    const QFileInfo info(path);
    const QString name = info.fileName();
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        return false;
    // The folder holding the entry, resolved now: a link on the way that leads elsewhere since
    // the folder was chosen shows here.
    const QString holder = QFileInfo(info.absolutePath()).canonicalFilePath();
    if (holder.isEmpty())
        return false;
    const QString inside = root.endsWith(QLatin1Char('/')) ? root : root + QLatin1Char('/');
    return holder == root || holder.startsWith(inside);
}

QString outsideReason()
{
    return QStringLiteral("outside the chosen folder, left alone");
}

bool entryExists(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

QString writeWhole(const QString &path, const QByteArray &bytes)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return file.errorString();
    // commit() puts the file in place even when writing out its buffer failed (a full disk, a
    // file size limit): the flush is checked here first.
    errno = 0;
    if (file.write(bytes) != bytes.size() || !file.flush()) {
        const int error = errno;
        const QString problem = error != 0 ? qt_error_string(error) : file.errorString();
        file.cancelWriting();
        return problem;
    }
    if (!file.commit())
        return file.errorString();
    return {};
}

QString moveWithoutReplacing(const QString &from, const QString &to)
{
#ifdef Q_OS_LINUX
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) == 0)
        return {};
    if (errno == EEXIST || errno == ENOTEMPTY)
        return kTaken;
    if (errno != EINVAL && errno != ENOSYS)
        return qt_error_string(errno);
        // The file system cannot refuse by itself: look first.
#endif
    if (entryExists(to))
        return kTaken;
    if (std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) != 0)
        return qt_error_string(errno);
    return {};
}

namespace {

// Removes an entry and, for a folder, its content; read-only files stay.
void removeEntry(const QFileInfo &info, Outcome &out, Progress &progress)
{
    if (progress.stopRequested()) {
        out.stopped = true;
        return;
    }
    const QString path = info.absoluteFilePath();
    if (isRealFolder(info)) {
        const int keptBefore = int(out.skipped.size());
        for (const QFileInfo &inner : folderContent(path)) {
            removeEntry(inner, out, progress);
            if (out.stopped)
                return;
        }
        progress.step(info.fileName());
        if (int(out.skipped.size()) > keptBefore) {
            out.skipped.push_back(Skipped{path, QStringLiteral("something inside it was kept")});
            return;
        }
        if (!QDir().rmdir(path)) {
            out.skipped.push_back(Skipped{path, QStringLiteral("the folder could not be removed")});
            return;
        }
        ++out.changed;
        return;
    }
    progress.step(info.fileName());
    if (!info.isSymLink() && isReadOnly(path)) {
        out.skipped.push_back(Skipped{path, QStringLiteral("read-only")});
        return;
    }
    // QFile::remove on a link removes the link, not what it points at.
    QFile file(path);
    if (!file.remove()) {
        out.skipped.push_back(Skipped{path, file.errorString()});
        return;
    }
    ++out.changed;
}

void countInto(DeleteCount &count, const QFileInfo &info)
{
    if (!isRealFolder(info)) {
        ++count.files;
        return;
    }
    ++count.folders;
    for (const QFileInfo &inner : folderContent(info.absoluteFilePath()))
        countInto(count, inner);
}

} // namespace

Listing listFolder(const QString &root, Progress &progress)
{
    Listing out;
    progress.begin(0);
    listInto(out, QFileInfo(root).absoluteFilePath(), -1, progress);
    progress.end();
    return out;
}

QStringList itemsBelow(const QString &folder, Kind kind, bool hidden)
{
    QStringList out;
    // Without FollowSymlinks the iterator lists links but does not go into them; without
    // QDir::Hidden it neither lists hidden entries nor goes into hidden folders.
    QDir::Filters filters = QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System;
    if (hidden)
        filters |= QDir::Hidden;
    QDirIterator it(folder, filters, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        const QFileInfo info = it.fileInfo();
        if (isRealFolder(info) == (kind == Kind::Folders))
            out << info.absoluteFilePath();
    }
    sortDeepestFirst(out);
    return out;
}

bool nameContains(const QString &name, const QString &text, Qt::CaseSensitivity cs)
{
    return !text.isEmpty() && name.contains(text, cs);
}

QString nameProblem(const QString &name)
{
    if (name.trimmed().isEmpty())
        return QStringLiteral("the new name is empty");
    if (name == QLatin1String(".") || name == QLatin1String(".."))
        return QStringLiteral("\"%1\" cannot be a name").arg(name);
    // Kept to names every system of the installation can hold.
    static const QString forbidden = QStringLiteral("/\\:*?\"<>|");
    for (const QChar c : name) {
        if (forbidden.contains(c) || c.unicode() < 0x20)
            return QStringLiteral("a name cannot hold any of / \\ : * ? \" < > | or control characters");
    }
    return {};
}

QString summaryText(const QString &done, const QString &unit, const Outcome &outcome, int listed)
{
    return QStringLiteral("%1 %2 %3%4.")
               .arg(done)
               .arg(outcome.changed)
               .arg(unit, outcome.changed == 1 ? QString() : QStringLiteral("s")) +
           leftAloneText(outcome, listed);
}

QString leftAloneText(const Outcome &outcome, int listed)
{
    QString text;
    if (outcome.stopped)
        text += QStringLiteral("\nStopped before the end.");
    if (outcome.skipped.empty())
        return text;
    text += QStringLiteral("\n\nLeft alone: %1").arg(outcome.skipped.size());
    const int shown = std::min(int(outcome.skipped.size()), listed);
    for (int i = 0; i < shown; ++i)
        text += QStringLiteral("\n%1: %2").arg(outcome.skipped[size_t(i)].path, outcome.skipped[size_t(i)].reason);
    if (int(outcome.skipped.size()) > shown)
        text += QStringLiteral("\n... and %1 more").arg(int(outcome.skipped.size()) - shown);
    return text;
}

RenamePlan planReplaceInNames(const QString &root, const QStringList &paths, const QString &find, const QString &with,
                              Qt::CaseSensitivity cs)
{
    RenamePlan plan{root, {}, {}};
    if (find.isEmpty())
        return plan;
    QStringList ordered = paths;
    sortDeepestFirst(ordered);
    QSet<QString> taken;
    for (const QString &path : std::as_const(ordered)) {
        const QFileInfo info(path);
        const QString name = info.fileName();
        if (!nameContains(name, find, cs))
            continue;
        if (!liesBelow(root, path)) {
            plan.skipped.push_back(Skipped{path, outsideReason()});
            continue;
        }
        const QString newName = QString(name).replace(find, with, cs);
        if (newName == name)
            continue;
        if (const QString problem = nameProblem(newName); !problem.isEmpty()) {
            plan.skipped.push_back(Skipped{path, problem});
            continue;
        }
        const QString target = info.absolutePath() + QLatin1Char('/') + newName;
        if (entryExists(target)) {
            plan.skipped.push_back(Skipped{path, kTaken});
            continue;
        }
        if (taken.contains(target)) {
            plan.skipped.push_back(Skipped{path, QStringLiteral("another entry of the same folder gets that name")});
            continue;
        }
        taken.insert(target);
        plan.renames.push_back(Rename{info.absoluteFilePath(), target});
    }
    return plan;
}

RenamePlan planRename(const QString &root, const QString &path, const QString &newName)
{
    RenamePlan plan{root, {}, {}};
    const QFileInfo info(path);
    if (newName == info.fileName())
        return plan;
    if (!liesBelow(root, path)) {
        plan.skipped.push_back(Skipped{path, outsideReason()});
        return plan;
    }
    if (const QString problem = nameProblem(newName); !problem.isEmpty()) {
        plan.skipped.push_back(Skipped{path, problem});
        return plan;
    }
    const QString target = info.absolutePath() + QLatin1Char('/') + newName;
    if (entryExists(target))
        plan.skipped.push_back(Skipped{path, kTaken});
    else
        plan.renames.push_back(Rename{info.absoluteFilePath(), target});
    return plan;
}

Outcome applyRenames(const RenamePlan &plan, Progress &progress)
{
    Outcome out;
    out.skipped = plan.skipped;
    progress.begin(int(plan.renames.size()));
    for (const Rename &r : plan.renames) {
        if (progress.stopRequested()) {
            out.stopped = true;
            break;
        }
        progress.step(QFileInfo(r.from).fileName());
        if (!liesBelow(plan.root, r.from) || !liesBelow(plan.root, r.to)) {
            out.skipped.push_back(Skipped{r.from, outsideReason()});
            continue;
        }
        if (const QString problem = moveWithoutReplacing(r.from, r.to); !problem.isEmpty()) {
            out.skipped.push_back(Skipped{r.from, problem});
            continue;
        }
        ++out.changed;
        out.moved.push_back(r);
    }
    progress.end();
    return out;
}

Outcome undoRenames(const std::vector<Rename> &done, Progress &progress)
{
    Outcome out;
    progress.begin(int(done.size()));
    // Last first: a folder renamed after its content gets its old name back before its content.
    for (auto r = done.rbegin(); r != done.rend(); ++r) {
        if (progress.stopRequested()) {
            out.stopped = true;
            break;
        }
        progress.step(QFileInfo(r->to).fileName());
        if (!entryExists(r->to)) {
            out.skipped.push_back(Skipped{r->to, QStringLiteral("no longer there")});
            continue;
        }
        if (const QString problem = moveWithoutReplacing(r->to, r->from); !problem.isEmpty()) {
            out.skipped.push_back(Skipped{r->to, problem});
            continue;
        }
        ++out.changed;
        out.moved.push_back(Rename{r->to, r->from});
    }
    progress.end();
    return out;
}

QStringList outermostPaths(const QStringList &paths)
{
    QStringList sorted;
    for (const QString &p : paths)
        sorted << QDir::cleanPath(QFileInfo(p).absoluteFilePath());
    sorted.sort();
    sorted.removeDuplicates();
    // Sorting alone does not put a folder's content right after it: "a b" sorts between "a" and
    // "a/x". Each path's own folders are looked up instead.
    const QSet<QString> chosen(sorted.cbegin(), sorted.cend());
    QStringList out;
    for (const QString &p : std::as_const(sorted)) {
        bool inside = false;
        for (QString up = p, next = QFileInfo(p).path(); !inside && next != up; next = QFileInfo(up).path()) {
            up = next;
            inside = chosen.contains(up);
        }
        if (!inside)
            out << p;
    }
    return out;
}

DeleteCount countForDelete(const QStringList &paths)
{
    DeleteCount count;
    for (const QString &p : outermostPaths(paths))
        countInto(count, QFileInfo(p));
    return count;
}

Outcome deleteEntries(const QStringList &paths, Progress &progress)
{
    Outcome out;
    const DeleteCount count = countForDelete(paths);
    progress.begin(count.folders + count.files);
    for (const QString &p : outermostPaths(paths)) {
        const QFileInfo info(p);
        if (!info.exists() && !info.isSymLink()) {
            out.skipped.push_back(Skipped{p, QStringLiteral("no longer there")});
            continue;
        }
        removeEntry(info, out, progress);
        if (out.stopped)
            break;
    }
    progress.end();
    return out;
}

bool isReadOnly(const QString &path)
{
    return !(QFileInfo(path).permissions() & QFile::WriteOwner);
}

} // namespace tabulon::Files
