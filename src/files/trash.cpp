#include "files/trash.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <optional>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

namespace tabulon::Files {

namespace {

// The description the freedesktop.org trash keeps beside an entry it holds: <trash>/files/NAME
// is described by <trash>/info/NAME.trashinfo.
QString trashInfoOf(const QString &inTrash)
{
    const QFileInfo entry(inTrash);
    const QDir trash = QFileInfo(entry.absolutePath()).dir();
    return trash.filePath(QStringLiteral("info/%1.trashinfo").arg(entry.fileName()));
}

// Whether there is a trash to move entries into, making the user's own where it is missing.
// QFile::moveToTrash needs that trash to exist: without it, the Qt versions we build with move
// the entry into "files" of the current folder instead of failing.
bool haveTrash()
{
#if defined(Q_OS_UNIX) && !defined(Q_OS_DARWIN)
    const QString dataHome = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (dataHome.isEmpty() || !QDir().mkpath(dataHome))
        return false;
    const QString trash = QDir(dataHome).filePath(QStringLiteral("Trash"));
    if (!QFileInfo(trash).isDir() && QDir(dataHome).mkdir(QStringLiteral("Trash")))
        QFile::setPermissions(trash, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return QFileInfo(trash).isDir();
#else
    return true;
#endif
}

#ifdef Q_OS_UNIX
std::optional<dev_t> deviceOf(const QString &path)
{
    struct stat st {};
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0)
        return std::nullopt;
    return st.st_dev;
}
#endif

// Why the entry may not go to the trash of the chosen folder's file system: it lies on another
// one, or holds something that does (a file system mounted inside a folder). "" when it may.
QString otherFileSystem(const QString &root, const QString &path)
{
#ifdef Q_OS_UNIX
    const std::optional<dev_t> home = deviceOf(root);
    const std::optional<dev_t> own = deviceOf(path);
    if (!home || !own)
        return QStringLiteral("its file system could not be told");
    if (*own != *home)
        return QStringLiteral("on another file system than the chosen folder, left alone");
    const QFileInfo info(path);
    if (!info.isDir() || info.isSymLink())
        return {};
    // Without FollowSymlinks the walk stays out of linked folders.
    QDirIterator it(path, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString inner = it.next();
        if (deviceOf(inner).value_or(*home) != *home)
            return QStringLiteral("%1 inside it is on another file system than the chosen folder, left alone")
                .arg(QDir(path).relativeFilePath(inner));
    }
#else
    Q_UNUSED(root);
    Q_UNUSED(path);
#endif
    return {};
}

// Why the entry is left alone whatever the operator says, "" when it may go.
QString leftAlone(const QString &root, const QString &path)
{
    if (!entryExists(path))
        return QStringLiteral("no longer there");
    if (!liesBelow(root, path))
        return outsideReason();
    return otherFileSystem(root, path);
}

} // namespace

TrashOutcome moveToTrash(const QString &root, const QStringList &paths, Progress &progress)
{
    TrashOutcome out;
    const QStringList outermost = outermostPaths(paths);
    if (!haveTrash()) {
        for (const QString &path : outermost) {
            if (const QString reason = leftAlone(root, path); !reason.isEmpty())
                out.outcome.skipped.push_back(Skipped{path, reason});
            else
                out.notTrashed << path;
        }
        out.reason = QStringLiteral("this desktop has no trash");
        return out;
    }
    progress.begin(int(outermost.size()));
    for (const QString &path : outermost) {
        if (progress.stopRequested()) {
            out.outcome.stopped = true;
            break;
        }
        progress.step(QFileInfo(path).fileName());
        if (const QString reason = leftAlone(root, path); !reason.isEmpty()) {
            out.outcome.skipped.push_back(Skipped{path, reason});
            continue;
        }
        QFile file(path);
        if (file.moveToTrash()) {
            // The file now names the entry's place in the trash.
            ++out.outcome.changed;
            out.outcome.moved.push_back(Rename{path, file.fileName()});
            continue;
        }
        if (!entryExists(path)) {
            // Gone, yet not reported as moved: nothing to put back later.
            ++out.outcome.changed;
            continue;
        }
        out.notTrashed << path;
        if (out.reason.isEmpty())
            out.reason = file.error() != QFileDevice::NoError && !file.errorString().isEmpty()
                             ? file.errorString()
                             : QStringLiteral("there is no trash for it");
    }
    progress.end();
    return out;
}

Outcome restoreFromTrash(const std::vector<Rename> &moved, Progress &progress)
{
    Outcome out;
    progress.begin(int(moved.size()));
    for (auto m = moved.rbegin(); m != moved.rend(); ++m) {
        if (progress.stopRequested()) {
            out.stopped = true;
            break;
        }
        progress.step(QFileInfo(m->from).fileName());
        if (!entryExists(m->to)) {
            out.skipped.push_back(Skipped{m->from, QStringLiteral("no longer in the trash")});
            continue;
        }
        // Its folder may have gone meanwhile (deleted with it, or moved); the entry needs it back.
        QDir().mkpath(QFileInfo(m->from).absolutePath());
        if (const QString problem = moveWithoutReplacing(m->to, m->from); !problem.isEmpty()) {
            out.skipped.push_back(Skipped{m->from, problem});
            continue;
        }
#ifndef Q_OS_WIN
        QFile::remove(trashInfoOf(m->to));
#endif
        ++out.changed;
        out.moved.push_back(Rename{m->to, m->from});
    }
    progress.end();
    return out;
}

} // namespace tabulon::Files
