#include "ui/tablelist.h"

#include <QComboBox>
#include <QListWidget>
#include <QSignalBlocker>

namespace tabulon {

DbError fillTableList(QComboBox *list, DatabaseSession &session, const QString &sql)
{
    auto names = readFirstColumn(session, sql);
    if (!names.ok())
        return names.error();
    const QSignalBlocker blocker(list);
    list->addItems(*names);
    return {};
}

DbError fillTableList(QListWidget *list, DatabaseSession &session, const QString &sql)
{
    auto names = readFirstColumn(session, sql);
    if (!names.ok())
        return names.error();
    const QSignalBlocker blocker(list);
    list->addItems(*names);
    return {};
}

} // namespace tabulon
