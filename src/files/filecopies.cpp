#include "files/filecopies.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>

namespace tabulon::Files {

namespace {

QByteArray digest(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
}

} // namespace

FileCopies::FileCopies() = default;
FileCopies::~FileCopies() = default;

QString FileCopies::keep(const QString &path, const QByteArray &before, const QByteArray &after)
{
    if (!m_dir.isValid())
        return QStringLiteral("no copy could be kept to undo the change: %1").arg(m_dir.errorString());
    const QString copy = m_dir.filePath(QString::number(++m_next));
    QFile file(copy);
    if (!file.open(QIODevice::WriteOnly) || file.write(before) != before.size() || !file.flush()) {
        const QString problem = QStringLiteral("no copy could be kept to undo the change: %1").arg(file.errorString());
        file.close();
        QFile::remove(copy);
        return problem;
    }
    m_kept.push_back(Kept{path, copy, digest(after)});
    return {};
}

void FileCopies::forgetLast()
{
    if (m_kept.empty())
        return;
    QFile::remove(m_kept.back().copy);
    m_kept.pop_back();
}

Outcome FileCopies::restore(Progress &progress)
{
    Outcome out;
    std::vector<Kept> notPutBack;
    progress.begin(size());
    for (auto k = m_kept.rbegin(); k != m_kept.rend(); ++k) {
        if (progress.stopRequested()) {
            out.stopped = true;
            notPutBack.insert(notPutBack.begin(), m_kept.begin(), k.base());
            break;
        }
        const auto keepCopy = [&notPutBack, &k] { notPutBack.insert(notPutBack.begin(), *k); };
        progress.step(QFileInfo(k->path).fileName());
        const QFileInfo info(k->path);
        if (info.isSymLink() || !info.isFile()) {
            keepCopy();
            out.skipped.push_back(Skipped{k->path, QStringLiteral("no longer there")});
            continue;
        }
        QFile now(k->path);
        if (!now.open(QIODevice::ReadOnly)) {
            keepCopy();
            out.skipped.push_back(Skipped{k->path, now.errorString()});
            continue;
        }
        if (digest(now.readAll()) != k->written) {
            keepCopy();
            out.skipped.push_back(Skipped{k->path, QStringLiteral("changed again since, left as it is")});
            continue;
        }
        now.close();
        QFile copy(k->copy);
        if (!copy.open(QIODevice::ReadOnly)) {
            keepCopy();
            out.skipped.push_back(Skipped{k->path, copy.errorString()});
            continue;
        }
        if (const QString problem = writeWhole(k->path, copy.readAll()); !problem.isEmpty()) {
            keepCopy();
            out.skipped.push_back(Skipped{k->path, problem});
            continue;
        }
        QFile::remove(k->copy);
        ++out.changed;
    }
    m_kept = std::move(notPutBack);
    progress.end();
    return out;
}

} // namespace tabulon::Files
