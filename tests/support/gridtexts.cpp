#include "gridtexts.h"

namespace tabulon::test {

QStringList gridRowTexts(const GridData &grid, int firstRow, int firstCol)
{
    QStringList out;
    for (int r = firstRow; r < grid.rows(); ++r) {
        QStringList cells;
        for (int c = firstCol; c < grid.cols(); ++c)
            cells << grid.text(r, c);
        out << cells.join(QLatin1Char('|'));
    }
    return out;
}

QStringList gridColumnTexts(const GridData &grid, int col, int firstRow)
{
    QStringList out;
    for (int r = firstRow; r < grid.rows(); ++r)
        out << grid.text(r, col);
    return out;
}

} // namespace tabulon::test
