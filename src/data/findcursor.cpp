#include "data/findcursor.h"

namespace tabulon {

FindHit findNext(FindCursor &cursor, const QString &searchText, int rows, int cols,
                 const std::function<QString(int row, int col)> &cellText)
{
    const QString wanted = searchText.toUpper();
    for (int r = cursor.row; r < rows; ++r) {
        for (int c = cursor.col; c < cols; ++c) {
            if (cellText(r, c).toUpper() == wanted) {
                cursor.row = r;
                cursor.col = c + 1;
                return {true, r, c};
            }
        }
    }
    cursor.row = 0;
    cursor.col = 2;
    return {};
}

} // namespace tabulon
