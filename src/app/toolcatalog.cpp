#include "toolcatalog.h"

#include "app/mdiform1.h"
#include "data/tabledata.h"

namespace tabulon {

namespace {
TableData *tableData(MDIForm1 &main)
{
    return qobject_cast<TableData *>(main.ensureToolWindow(QStringLiteral("mnuTabData")));
}
} // namespace

void registerTools(MDIForm1 &main)
{
    main.registerChildTool(QStringLiteral("mnuTabData"), [](MDIForm1 &m) -> QWidget * {
        MDIForm1 *frame = &m;
        return new TableData(TableDataHost{[frame] { return frame->session(); },
                                           [frame] { return frame->popupMenu(QStringLiteral("mnupop1")); }});
    });
    main.registerPopupCommand(QStringLiteral("mnudr"), [](MDIForm1 &m) {
        if (TableData *t = tableData(m))
            t->DeleteRecord();
    });
    main.registerPopupCommand(QStringLiteral("mnumr"), [](MDIForm1 &m) {
        if (TableData *t = tableData(m))
            t->ModifyRecord();
    });
    main.registerPopupCommand(QStringLiteral("mnusavetable"), [](MDIForm1 &m) {
        if (TableData *t = tableData(m))
            t->SaveTable();
    });
}

} // namespace tabulon
