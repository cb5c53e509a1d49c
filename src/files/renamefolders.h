// The folders and files tool: the tree of a folder (at first the program's own), marked by
// "Find String" and changed through the main window's pop-up: names replaced or renamed, text
// replaced inside files, entries moved to the trash. Every change is previewed with its count,
// asked for, and ends with a summary of what it did and what it left alone; the last change of
// each kind can be taken back from the window's own Undo menu.
#pragma once

#include "files/folderwork.h"
#include "ui/toolwindow.h"

#include <QDialog>
#include <QString>

#include <memory>
#include <optional>
#include <vector>

class QAction;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QProgressBar;

namespace tabulon {

namespace Files {
class FileCopies;
}
class FolderTree;
class ToolHost;

class RenameFolders final : public QDialog {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(RenameFolders)
public:
    explicit RenameFolders(ToolHost &host, QWidget *parent = nullptr);
    ~RenameFolders() override;

    // Lists `folder` in the tree; an unreadable folder is reported and the tree left empty.
    void openFolder(const QString &folder);
    QString folder() const { return m_root; }

    // The pop-up's commands.
    void ShowNodes(bool all);
    void FindString();
    void ReplaceString();
    void Rename();
    void RenameItems(const QString &kind); // "Folder" or "File"
    void ReplaceFiles();
    void Delete();

    // The Undo menu's commands: each takes back the last change of its kind.
    void UndoRename();
    void UndoReplaceFiles();
    void UndoDelete();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void browse();
    void reload();
    void showPopup(const QPoint &pos);
    void exitAsked();
    void updateUndo();
    Qt::CaseSensitivity caseSensitivity() const;
    struct Replacement final {
        QString find;
        QString with;
    };
    // Asks for the text to find and the one to put instead; nothing when either box is cancelled
    // or no text to find is given.
    std::optional<Replacement> askReplacement();
    // Previews the renames, asks, carries them out and reports; `unit` names what is renamed.
    void carryOut(const Files::RenamePlan &plan, const QString &find, const QString &unit);
    // Carries out renames asked for and keeps them for Undo.
    std::optional<Files::Outcome> applyRenames(const Files::RenamePlan &plan);

    ToolHost &m_host;
    QLineEdit *m_folder;
    FolderTree *m_tree;
    QCheckBox *m_case;
    QCheckBox *m_hidden;
    QComboBox *m_encoding; // of the files without a byte order mark, for Replace in Files
    QAction *m_undoRename;
    QAction *m_undoReplace;
    QAction *m_undoDelete;
    QProgressBar *m_bar;
    QLabel *m_status;
    KeyPreview *m_keys;
    BusyState m_busy;
    QString m_root;
    QString m_found; // the last text found
    // The last change of each kind, for Undo: renames as carried out, entries moved into the
    // trash (from -> place in the trash), and copies of the files Replace in Files changed.
    std::vector<Files::Rename> m_renamed;
    std::vector<Files::Rename> m_trashed;
    std::unique_ptr<Files::FileCopies> m_copies;
};

} // namespace tabulon
