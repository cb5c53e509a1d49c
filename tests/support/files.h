// Files that tests make and read back.
#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <csignal>

#include <sys/resource.h>

namespace tabulon::test {

// Writes a file, making its folders.
inline void write(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    QVERIFY2(f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size(), qPrintable(path));
}

// A file's bytes, or "<missing>".
inline QByteArray read(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

// While it lives, no file this process writes grows past `bytes`: a write beyond fails as on a
// full disk.
class FileSizeLimit final {
public:
    explicit FileSizeLimit(rlim_t bytes) : m_handler(std::signal(SIGXFSZ, SIG_IGN))
    {
        rlimit small{};
        m_set = ::getrlimit(RLIMIT_FSIZE, &m_old) == 0;
        small = m_old;
        small.rlim_cur = bytes;
        m_set = m_set && ::setrlimit(RLIMIT_FSIZE, &small) == 0;
    }
    ~FileSizeLimit()
    {
        if (m_set)
            ::setrlimit(RLIMIT_FSIZE, &m_old);
        std::signal(SIGXFSZ, m_handler);
    }
    Q_DISABLE_COPY_MOVE(FileSizeLimit)
    bool isSet() const { return m_set; }

private:
    void (*m_handler)(int);
    rlimit m_old{};
    bool m_set = false;
};

} // namespace tabulon::test
