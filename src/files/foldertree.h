// The tree of the folders and files tool: a folder's listing with the names holding the last
// text found marked, and the choice of the items a change works on.
#pragma once

#include "files/folderwork.h"

#include <QTreeWidget>

namespace tabulon {

class FolderTree final : public QTreeWidget {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(FolderTree)
public:
    explicit FolderTree(QWidget *parent = nullptr);

    // Fills the tree with the listing of `root`; folders open before stay open.
    void fill(const QString &root, const Files::Listing &listing);
    // Marks the names that hold `found` and opens the folders holding them.
    void mark(const QString &found, Qt::CaseSensitivity cs);
    // Every item, or only the marked ones and the folders holding them.
    void showAll(bool all);
    // How many names are marked.
    int markedCount() const;

    static QString pathOf(const QTreeWidgetItem *item);
    // The item the pop-up works on, and the chosen ones; the root item counts as neither.
    QTreeWidgetItem *chosenItem() const;
    QTreeWidgetItem *currentOrRoot() const;
    QStringList chosenPaths() const;
    // The folder the item stands for: itself, or the folder holding a file.
    static QString folderOf(const QTreeWidgetItem *item);

private:
    bool isMarked(const QTreeWidgetItem *item) const;
    void applyVisibility();

    QString m_found;
    Qt::CaseSensitivity m_cs = Qt::CaseInsensitive;
    bool m_showAll = true;
};

} // namespace tabulon
