// A process-wide hook called before every statement any session sends. The program never sets
// it; the fault campaigns do, to count a tool's statements and to inject their fault (a killed
// server, a killed connection) right before a chosen one.
#pragma once

#include <QByteArrayView>

#include <functional>

namespace tabulon::StatementHook {

using Hook = std::function<void(QByteArrayView sql)>;

void set(Hook hook);
void clear();
// Called by the session before it sends `sql`.
void before(QByteArrayView sql);

} // namespace tabulon::StatementHook
