// The grid's file form: a whole grid (counts, fixed row and column, every cell's text) in one
// file, as backup archives hold one table each. Written and read as a stream.
//
// Byte layout, form 1 (all integers little-endian):
//
//   offset 0   "TABULON-GRID 1\n"             magic line; the number is the form's version
//   +15        uint32 fixedRows (0 or 1)
//   +19        uint32 fixedCols (0 or 1)
//   +23        uint32 rows                     including the fixed row
//   +27        uint32 cols                     including the fixed column
//   +31        cells, column by column (all rows of column 0 top to bottom, then column 1, ...);
//              each cell is its UTF-8 byte count as an unsigned LEB128 varint (7 bits per byte,
//              low group first, high bit set on every byte but the last, at most 5 bytes)
//              followed by that many bytes of UTF-8 text, no terminator
//   then       "END\n"                         end marker
//   then       uint32 CRC-32 (zlib crc32) of every byte before this field, magic included
//   then       end of file
//
// Texts are stored byte for byte, so commas, quotes, tabs, line breaks and any other
// character survive unchanged; an empty cell is the single byte 0. A reader rejects a file
// whose magic line differs, whose version is higher than it knows, whose counts cannot fit in
// its size, whose marker or checksum do not match, or that has bytes after the checksum.
#pragma once

#include <QString>

namespace tabulon {

class GridData;

class GridFile final {
public:
    static constexpr int kVersion = 1;

    // Written through a temporary file that replaces `path` only when complete.
    static bool save(const GridData &grid, const QString &path, QString *error);
    // `*grid` is assigned only when the whole file was read and checked.
    static bool load(const QString &path, GridData *grid, QString *error);
};

} // namespace tabulon
