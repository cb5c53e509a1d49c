// libFuzzer target for the table file reader: any bytes, read the way a restore reads a table
// file (verify the whole file, then walk its rows). A reader that accepts a file must also
// have checked its trailer; a rejected file must come back as an error, never a crash.
#include "grid/gridfile.h"

#include "fuzzfile.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static tabulon::fuzz::ScratchFile file(QStringLiteral("table.grd"));
    if (!file.write(data, size))
        return 0;
    qint64 rows = -1;
    const tabulon::DbError verified = tabulon::GridFileReader::verify(file.path(), &rows);

    tabulon::GridFileReader reader;
    if (reader.open(file.path()).isError())
        return 0;
    qint64 seen = 0;
    while (reader.next()) {
        if (reader.row().size() != static_cast<std::size_t>(reader.cols()))
            __builtin_trap(); // a row always has every column
        ++seen;
    }
    // A file that verified reads to its end with exactly the rows its trailer counts, and one
    // read to its end without an error is one that verifies (its trailer was checked).
    if (!verified.isError() && (reader.error().isError() || seen != rows))
        __builtin_trap();
    if (verified.isError() && !reader.error().isError())
        __builtin_trap();
    return 0;
}
