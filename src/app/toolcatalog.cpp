#include "app/toolcatalog.h"

#include "app/mdiform1.h"
#include "backup/backup.h"
#include "backup/restore.h"
#include "convert/convertdb.h"
#include "data/replacedata.h"
#include "data/search.h"
#include "data/tabledata.h"
#include "files/renamefolders.h"
#include "import/frmimportdata.h"
#include "maintenance/checktable.h"
#include "maintenance/repairtable.h"
#include "safety/safetycopies.h"
#include "safety/safetynet.h"
#include "structure/createtable.h"
#include "structure/tableinfo.h"
#include "ui/dialogs.h"

namespace tabulon {

namespace {
TableData *tableData(MDIForm1 &main)
{
    return qobject_cast<TableData *>(main.ensureToolWindow(QStringLiteral("mnuTabData")));
}
RenameFolders *folders(MDIForm1 &main)
{
    return qobject_cast<RenameFolders *>(main.ensureToolWindow(QStringLiteral("mnurenfld")));
}
TableInfo *tableInfo(MDIForm1 &main)
{
    return qobject_cast<TableInfo *>(main.ensureToolWindow(QStringLiteral("mnuTabDet")));
}
} // namespace

void registerTools(MDIForm1 &main)
{
    // The safety net reads its folder and limits from the same store as the connection, and
    // asks its questions through the program's own boxes.
    SafetySettings::useStore(main.settingsStore().fileName());
    if (const auto safety = SafetySettings::read(); !safety)
        Dialogs::message(&main, safety.error().description, Dialogs::Icon::Critical);
    SafetyNet::setConfirm([](const QString &question) {
        return Dialogs::ask(nullptr, question, Dialogs::Buttons::YesNo, Dialogs::Icon::Question) ==
               Dialogs::Answer::Yes;
    });
    main.registerModalTool(QStringLiteral("mnusafety"),
                           [](MDIForm1 &m) -> QWidget * { return new SafetyCopies(m, &m); });
    main.registerChildTool(QStringLiteral("mnuTabData"), [](MDIForm1 &m) -> QWidget * { return new TableData(m); });
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
    main.registerChildTool(QStringLiteral("mnusearch"), [](MDIForm1 &m) -> QWidget * {
        MDIForm1 *frame = &m;
        return new Search(m, TableDataAccess{[frame] { return tableData(*frame); },
                                             [frame] { frame->runCommand(QStringLiteral("mnuTabData")); }});
    });
    main.registerChildTool(QStringLiteral("mnureplace"), [](MDIForm1 &m) -> QWidget * { return new ReplaceData(m); });
    main.registerModalTool(QStringLiteral("mnuchktab"), [](MDIForm1 &m) -> QWidget * {
        auto *check = new CheckTable(m, &m);
        check->setDataFolder(m.settingsStore().ReadRegistryString(
            Hive::LocalMachine, Settings::kKey, QStringLiteral("DataFolder"), CheckTable::kDefaultDataFolder));
        return check;
    });
    main.registerModalTool(QStringLiteral("mnuconvertdb"),
                           [](MDIForm1 &m) -> QWidget * { return new ConvertDb(m, &m); });
    main.registerModalTool(QStringLiteral("mnuimpdata"),
                           [](MDIForm1 &m) -> QWidget * { return new frmimportdata(m, &m); });
    main.registerModalTool(QStringLiteral("mnureptab"),
                           [](MDIForm1 &m) -> QWidget * { return new RepairTable(m, &m); });
    main.registerModalTool(QStringLiteral("mnubackup"), [](MDIForm1 &m) -> QWidget * { return new BackUp(m, &m); });
    main.registerModalTool(QStringLiteral("mnurestore"), [](MDIForm1 &m) -> QWidget * { return new Restore(m, &m); });
    main.registerChildTool(QStringLiteral("mnuTabDet"), [](MDIForm1 &m) -> QWidget * { return new TableInfo(m); });
    main.registerPopupCommand(QStringLiteral("mnuaf"), [](MDIForm1 &m) {
        if (TableInfo *t = tableInfo(m))
            t->AddField();
    });
    main.registerPopupCommand(QStringLiteral("mnudf"), [](MDIForm1 &m) {
        if (TableInfo *t = tableInfo(m))
            t->DeleteField();
    });
    main.registerPopupCommand(QStringLiteral("mnumf"), [](MDIForm1 &m) {
        if (TableInfo *t = tableInfo(m))
            t->ModifyField();
    });
    main.registerModalTool(QStringLiteral("mnurenfld"),
                           [](MDIForm1 &m) -> QWidget * { return new RenameFolders(m, &m); });
    // The folder window's pop-up; a command before the window was opened loads it unseen.
    const auto onFolders = [&main](const char *name, void (*routine)(RenameFolders &)) {
        main.registerPopupCommand(QString::fromLatin1(name), [routine](MDIForm1 &m) {
            if (RenameFolders *f = folders(m))
                routine(*f);
        });
    };
    onFolders("mnushowall", [](RenameFolders &f) { f.ShowNodes(true); });
    onFolders("mnushowfind", [](RenameFolders &f) { f.ShowNodes(false); });
    onFolders("mnufindstr", [](RenameFolders &f) { f.FindString(); });
    onFolders("mnureplacestr", [](RenameFolders &f) { f.ReplaceString(); });
    onFolders("mnuren", [](RenameFolders &f) { f.Rename(); });
    onFolders("mnurensub", [](RenameFolders &f) { f.RenameItems(QStringLiteral("Folder")); });
    onFolders("mnurenfiles", [](RenameFolders &f) { f.RenameItems(QStringLiteral("File")); });
    onFolders("mnurepfiles", [](RenameFolders &f) { f.ReplaceFiles(); });
    onFolders("mnuDelete", [](RenameFolders &f) { f.Delete(); });
    main.registerChildTool(QStringLiteral("mnuct"), [](MDIForm1 &m) -> QWidget * { return new CreateTable(m); });
}

} // namespace tabulon
