// Whole grids to and from the grid file form, through the row-by-row writer and reader.
#include "grid/gridfile.h"
#include "grid/gridfileform.h"

#include "grid/griddata.h"

#include <limits>
#include <new>
#include <stdexcept>

namespace tabulon {

using namespace gridfileform;

// ---- Whole grids ----

DbError GridFile::save(const GridData &grid, const QString &path)
{
    GridFileWriter out;
    if (DbError error = out.open(path, grid.fixedRows(), grid.fixedCols(), grid.cols()))
        return error;
    std::vector<QByteArrayView> cells(static_cast<size_t>(grid.cols()));
    for (int r = 0; r < grid.rows(); ++r) {
        for (int c = 0; c < grid.cols(); ++c)
            cells[static_cast<size_t>(c)] = grid.utf8(r, c);
        if (DbError error = out.writeRow(cells))
            return error;
    }
    return out.commit();
}

DbError GridFile::load(const QString &path, GridData *grid)
{
    GridFileReader in;
    if (DbError error = in.open(path))
        return error;
    try {
        std::vector<TextColumn> columns(static_cast<size_t>(in.cols()));
        qint64 rows = 0;
        while (in.next()) {
            if (rows == std::numeric_limits<int>::max())
                return DbError::file(nativePath(path), tr("The grid file holds more rows than a grid can keep."));
            const auto &row = in.row();
            for (size_t c = 0; c < columns.size(); ++c)
                columns[c].append(QByteArrayView(row[c]));
            ++rows;
        }
        if (DbError error = in.error())
            return error;
        *grid = GridData::fromColumns(std::move(columns), static_cast<int>(rows), in.fixedRows(), in.fixedCols());
    } catch (const std::length_error &) {
        return DbError::file(nativePath(path), tr("The grid file holds more text in one column than a grid can keep."));
    } catch (const std::bad_alloc &) {
        return DbError::file(nativePath(path), tr("Not enough memory to load the grid file."));
    }
    return {};
}

} // namespace tabulon
