// Files that tests make and read back.
#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

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

} // namespace tabulon::test
