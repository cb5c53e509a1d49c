// The folders and files tool: the tree of a folder (at first the program's own), marked by
// "Find String" and changed through the main window's pop-up: names replaced or renamed, text
// replaced inside files, entries deleted. Every change is previewed with its count, asked for,
// and ends with a summary of what it did and what it left alone.
#pragma once

#include "files/folderwork.h"
#include "ui/toolwindow.h"

#include <QDialog>
#include <QSet>
#include <QString>

#include <optional>

class QCheckBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QTreeWidget;
class QTreeWidgetItem;

namespace tabulon {

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

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void browse();
    void reload();
    void applyMarks();
    void applyVisibility();
    void showPopup(const QPoint &pos);
    void exitAsked();
    Qt::CaseSensitivity caseSensitivity() const;
    // The item the pop-up works on, and the chosen ones; the root item counts as neither.
    QTreeWidgetItem *chosenItem() const;
    QTreeWidgetItem *currentOrRoot() const;
    QStringList chosenPaths() const;
    // The folder the item stands for: itself, or the folder holding a file.
    QString folderOf(QTreeWidgetItem *item) const;
    struct Replacement final {
        QString find;
        QString with;
    };
    // Asks for the text to find and the one to put instead; nothing when the first is not given.
    std::optional<Replacement> askReplacement();
    // Previews the renames, asks, carries them out and reports; `unit` names what is renamed.
    void carryOut(const Files::RenamePlan &plan, const QString &find, const QString &unit);

    ToolHost &m_host;
    QLineEdit *m_folder;
    QTreeWidget *m_tree;
    QCheckBox *m_case;
    QProgressBar *m_bar;
    QLabel *m_status;
    KeyPreview *m_keys;
    BusyState m_busy;
    QString m_root;
    QString m_found; // the last text found
    bool m_showAll = true;
};

} // namespace tabulon
