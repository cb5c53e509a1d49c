// The find cursor of the table data tool: where the next search starts and how a search walks
// the grid, over any source of cell texts so that it can be tested without a grid.
#pragma once

#include <QString>

#include <functional>

namespace tabulon {

struct FindCursor final {
    int row = 1;
    int col = 2;

    void reset() { *this = FindCursor{}; }
};

struct FindHit final {
    bool found = false;
    int row = -1;
    int col = -1;
};

// Whole-cell, case-insensitive equality with the upper-cased search text (not trimmed). Every
// row is searched from the cursor's column, not from column 2: after a hit the search narrows
// to the columns right of it until the cursor is reset. A hit moves the cursor just past it;
// running off the end moves it to row 0 (the header row), column 2.
FindHit findNext(FindCursor &cursor, const QString &searchText, int rows, int cols,
                 const std::function<QString(int row, int col)> &cellText);

} // namespace tabulon
