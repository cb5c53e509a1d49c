#include "ui/toolhost.h"

#include "db/databasesession.h"

namespace tabulon {

DatabaseSession &ToolHost::sessionOrClosed() const
{
    if (DatabaseSession *s = session())
        return *s;
    // Without a session every statement fails as on a closed connection.
    static DatabaseSession closed;
    return closed;
}

} // namespace tabulon
