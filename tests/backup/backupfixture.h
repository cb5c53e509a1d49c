// Table files for the backup tests: written from rows, read back as texts.
#pragma once

#include "files.h"
#include "grid/gridfile.h"

#include <QDir>
#include <QFile>
#include <QStringList>

namespace tabulon::test {

// Writes `rows` (row 0 the field names) as the table file `path`; false when it cannot.
inline bool writeGridFile(const QString &path, const QList<QStringList> &rows)
{
    GridFileWriter out;
    if (out.open(path, 1, 0, rows.isEmpty() ? 0 : int(rows.first().size())))
        return false;
    for (const QStringList &row : rows)
        out.writeRow(row);
    return !out.commit();
}

// Every row of a table file as "a|b" lines; a file that cannot be read ends in "error: …".
inline QStringList gridFileRows(const QString &path)
{
    GridFileReader in;
    if (DbError error = in.open(path))
        return {QStringLiteral("error: ") + error.description};
    QStringList rows;
    while (in.next()) {
        QStringList cells;
        for (const QByteArray &cell : in.row())
            cells << QString::fromUtf8(cell);
        rows << cells.join(QLatin1Char('|'));
    }
    if (in.error())
        rows << QStringLiteral("error: ") + in.error().description;
    return rows;
}

// The threads of this process named `name` now.
inline int threadsNamed(const char *name)
{
    const QDir tasks(QStringLiteral("/proc/self/task"));
    int count = 0;
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile comm(tasks.filePath(task + QStringLiteral("/comm")));
        if (comm.open(QIODevice::ReadOnly) && comm.readAll().trimmed() == name)
            ++count;
    }
    return count;
}

} // namespace tabulon::test
