// Copies of files taken just before a change writes them, so that the change can be taken back
// until the next one. The copies live in a temporary folder that goes with the object.
#pragma once

#include "files/folderwork.h"

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <vector>

namespace tabulon::Files {

class FileCopies final {
    Q_DISABLE_COPY_MOVE(FileCopies)
public:
    FileCopies();
    ~FileCopies();

    // Keeps a copy of `before`, what the file at `path` holds now, and notes that the change will
    // write `after` there. Returns why no copy could be kept, "" when one was.
    QString keep(const QString &path, const QByteArray &before, const QByteArray &after);
    // Drops the last copy kept: its change did not happen.
    void forgetLast();
    int size() const { return int(m_kept.size()); }

    // Writes each file back as it was before the change, last first, unless it is gone or holds
    // something else than the change wrote (changed again since). Only the copies of the files
    // put back are dropped: the copy of a file not put back, for whatever reason, is kept for
    // another try, so a failure leaves nothing lost.
    Outcome restore(Progress &progress);

private:
    struct Kept final {
        QString path;
        QString copy;
        QByteArray written; // digest of what the change wrote
    };
    QTemporaryDir m_dir;
    std::vector<Kept> m_kept;
    int m_next = 0;
};

} // namespace tabulon::Files
