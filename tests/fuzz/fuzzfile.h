// A scratch file for fuzz targets whose code under test reads a path: one temporary folder per
// process, the input rewritten into the same file for every run.
#pragma once

#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>

namespace tabulon::fuzz {

class ScratchFile final {
public:
    explicit ScratchFile(const QString &name) : m_path(m_dir.filePath(name)) {}
    bool write(const std::uint8_t *data, std::size_t size)
    {
        QFile file(m_path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return false;
        return file.write(reinterpret_cast<const char *>(data), static_cast<qint64>(size)) == static_cast<qint64>(size);
    }
    QString path() const { return m_path; }
    QString folder() const { return m_dir.path(); }

private:
    QTemporaryDir m_dir;
    QString m_path;
};

} // namespace tabulon::fuzz
