// Grid contents as texts, for comparing whole grids, rows or columns in tests.
#pragma once

#include "grid/griddata.h"

#include <QStringList>

namespace tabulon::test {

// Rows firstRow.. of the grid, each as its cells from column firstCol on joined by "|".
QStringList gridRowTexts(const GridData &grid, int firstRow = 0, int firstCol = 0);
// The cells of one column from row firstRow on.
QStringList gridColumnTexts(const GridData &grid, int col, int firstRow = 1);

} // namespace tabulon::test
