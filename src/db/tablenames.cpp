#include "db/tablenames.h"

#include "db/databasesession.h"

namespace tabulon {

DbResult<QStringList> readFirstColumn(DatabaseSession &session, const QString &sql)
{
    auto rows = session.openQuery(sql);
    if (!rows.ok())
        return rows.error();
    QStringList names;
    if (rows->isOpen() && rows->fieldCount() > 0) {
        names.reserve(rows->recordCount());
        for (qsizetype row = 0; row < rows->recordCount(); ++row)
            names << rows->text(row, 0);
    }
    return names;
}

} // namespace tabulon
