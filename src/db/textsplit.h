// A small text helper that the conversion, import and folder tools share.
#pragma once

#include <QString>

namespace tabulon {

// The text before (before = true) or after the last `ch`; the whole text when it is absent.
QString SplitAtLastChar(const QString &text, QChar ch, bool before);

} // namespace tabulon
