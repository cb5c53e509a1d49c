// The grid's file form: a grid (fixed parts, column count, every cell's text) in one file, as
// backup archives hold one table each. Written and read row by row, so a table of any size
// passes through with one row in memory.
//
// Byte layout, form 2 (all integers little-endian):
//
//   offset 0   "TABULON-GRID 2\n"             magic line; the number is the form's version
//   +15        uint32 fixedRows (0 or 1)
//   +19        uint32 fixedCols (0 or 1)
//   +23        uint32 cols                     including the fixed column
//   +27        rows, top to bottom, each:
//                byte 0x01                     row tag
//                cols cells, left to right, each its UTF-8 byte count as an unsigned LEB128
//                varint (7 bits per byte, low group first, high bit set on every byte but the
//                last, at most 5 bytes) followed by that many bytes of UTF-8 text
//   then       byte 0x00                       end tag
//   then       uint32 rows                     rows written, the fixed row included
//   then       "END\n"                         end marker
//   then       uint32 CRC-32 (zlib crc32) of every byte before this field, magic included
//   then       end of file
//
// Texts are stored byte for byte, so commas, quotes, tabs, line breaks and any other
// character survive unchanged; an empty cell is the single byte 0. A reader rejects a file
// whose magic line differs, whose version is not the one it knows, whose lengths run past its
// end, whose row count, marker or checksum do not match, or that has bytes after the checksum.
// Because the checksum comes last, a reader that must not act on a damaged file reads it
// through once (GridFileReader::verify) before acting on its rows.
#pragma once

#include "db/dberror.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <memory>
#include <span>
#include <vector>

namespace tabulon {

class GridData;

namespace detail {
struct GridFileWriterState;
struct GridFileReaderState;
} // namespace detail

// Takes a grid file's bytes in place of a file on disk, so that another step (the backup's
// compressor) consumes them as they are written instead of reading them back from the disk.
class GridFileSink {
public:
    virtual ~GridFileSink() = default;
    // The next bytes of the file, in whole chunks.
    virtual DbError take(QByteArray chunk) = 0;
    // Every byte is given; `crc` is the CRC-32 of all of them, the stored checksum included.
    virtual DbError end(quint32 crc) = 0;
    // The file will not be completed: what was taken so far is of no use.
    virtual void abandon() = 0;
};

// Writes a grid file row by row. Nothing appears at the path until commit() succeeds: the file
// is written under a temporary name beside it and renamed when complete.
class GridFileWriter final {
public:
    GridFileWriter();
    ~GridFileWriter(); // an uncommitted file is abandoned
    GridFileWriter(const GridFileWriter &) = delete;
    GridFileWriter &operator=(const GridFileWriter &) = delete;

    DbError open(const QString &path, int fixedRows, int fixedCols, int cols);
    // The same file form into `sink`, which must outlive the writing; commit() ends it.
    DbError open(GridFileSink &sink, int fixedRows, int fixedCols, int cols);
    // One row of cols cells: missing cells are written empty, extra ones are dropped. Returns
    // the first write failure, which commit() reports again.
    DbError writeRow(std::span<const QByteArrayView> cells);
    DbError writeRow(const QStringList &cells);
    DbError commit();
    void cancel();

    qint64 rows() const;

private:
    DbError start(int fixedRows, int fixedCols, int cols);

    std::unique_ptr<detail::GridFileWriterState> m_state;
};

// Reads a grid file row by row.
class GridFileReader final {
public:
    GridFileReader();
    ~GridFileReader();
    GridFileReader(const GridFileReader &) = delete;
    GridFileReader &operator=(const GridFileReader &) = delete;

    // Opens the file and reads its head (magic line, fixed parts, column count).
    DbError open(const QString &path);
    int fixedRows() const;
    int fixedCols() const;
    int cols() const;

    // Reads the next row into row(): true with a row, false at the end (the trailer then has
    // been checked) or on an error, which error() then holds.
    bool next();
    // The cells of the row next() read; valid until the next call.
    const std::vector<QByteArray> &row() const;
    DbError error() const;

    // Opens the file and reads it to its end without keeping any row: the error of a damaged
    // or foreign file, none for a good one. `rows`, when given, receives the row count.
    static DbError verify(const QString &path, qint64 *rows = nullptr);

private:
    std::unique_ptr<detail::GridFileReaderState> m_state;
};

class GridFile final {
public:
    static constexpr int kVersion = 2;

    // The whole grid in its row order, through a GridFileWriter.
    static DbError save(const GridData &grid, const QString &path);
    // `*grid` is assigned only when the whole file was read and checked.
    static DbError load(const QString &path, GridData *grid);
};

} // namespace tabulon
