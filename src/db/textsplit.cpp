#include "db/textsplit.h"

namespace tabulon {

QString SplitAtLastChar(const QString &text, QChar ch, bool before)
{
    const qsizetype i = text.lastIndexOf(ch);
    if (i < 0)
        return text;
    return before ? text.left(i) : text.mid(i + 1);
}

} // namespace tabulon
