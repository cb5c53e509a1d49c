// What the grid file's writer, reader and whole-grid functions share: the form's constants
// and small helpers. Private to the grid library.
#pragma once

#include "db/dberror.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QString>

#include <cstdint>

namespace tabulon::gridfileform {

inline const QByteArray kMagicPrefix = QByteArrayLiteral("TABULON-GRID ");
inline const QByteArray kEndMarker = QByteArrayLiteral("END\n");
constexpr char kRowTag = '\x01';
constexpr char kEndTag = '\x00';
constexpr qsizetype kChunk = 256 * 1024;
// Longest magic line we look at before calling a file foreign.
constexpr qsizetype kMaxMagicLine = 32;
// Far more columns than any table can have; a count above it is damage, not a grid.
constexpr std::uint32_t kMaxCols = 1u << 16;
// What follows the last row: end tag, row count, marker, checksum.
inline const qint64 kTrailer = 1 + 4 + kEndMarker.size() + 4;

inline QString tr(const char *text)
{
    return QCoreApplication::translate("tabulon::GridFile", text);
}

inline QString nativePath(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

} // namespace tabulon::gridfileform
