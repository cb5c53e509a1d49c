// The statement hook: one function object, empty unless a campaign installs one.
#include "db/statementhook.h"

#include <utility>

namespace tabulon::StatementHook {

namespace {
Hook &current()
{
    static Hook hook;
    return hook;
}
} // namespace

void set(Hook hook)
{
    current() = std::move(hook);
}

void clear()
{
    current() = nullptr;
}

void before(QByteArrayView sql)
{
    if (const Hook &hook = current())
        hook(sql);
}

} // namespace tabulon::StatementHook
