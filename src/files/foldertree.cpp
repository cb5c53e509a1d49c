#include "files/foldertree.h"

#include <QDir>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QSet>

#include <functional>

namespace tabulon {

namespace {

constexpr int kPathRole = Qt::UserRole;

// Walks the items below `item`, depth first.
void forEachBelow(QTreeWidgetItem *item, const std::function<void(QTreeWidgetItem *)> &visit)
{
    for (int i = 0; i < item->childCount(); ++i) {
        visit(item->child(i));
        forEachBelow(item->child(i), visit);
    }
}

// Shows the items that are found or hold found items; true when `item` is one of them.
bool showFound(QTreeWidgetItem *item, const QSet<QTreeWidgetItem *> &found)
{
    bool any = found.contains(item);
    for (int i = 0; i < item->childCount(); ++i)
        any = showFound(item->child(i), found) || any;
    item->setHidden(!any);
    return any;
}

} // namespace

FolderTree::FolderTree(QWidget *parent) : QTreeWidget(parent)
{
    setHeaderHidden(true);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setContextMenuPolicy(Qt::CustomContextMenu);
    setUniformRowHeights(true);
}

QString FolderTree::pathOf(const QTreeWidgetItem *item)
{
    return item ? item->data(0, kPathRole).toString() : QString();
}

void FolderTree::fill(const QString &root, const Files::Listing &listing)
{
    QSet<QString> expanded;
    forEachBelow(invisibleRootItem(), [&expanded](QTreeWidgetItem *item) {
        if (item->isExpanded())
            expanded.insert(pathOf(item));
    });
    setUpdatesEnabled(false);
    clear();
    const QFileIconProvider icons;
    auto *top = new QTreeWidgetItem(this, {QDir::toNativeSeparators(root)});
    top->setData(0, kPathRole, root);
    top->setIcon(0, icons.icon(QFileIconProvider::Folder));
    std::vector<QTreeWidgetItem *> items;
    items.reserve(listing.entries.size());
    QFont linkFont = font();
    linkFont.setItalic(true);
    for (const Files::Entry &e : listing.entries) {
        QTreeWidgetItem *parent = e.parent < 0 ? top : items[size_t(e.parent)];
        auto *item = new QTreeWidgetItem(parent, {e.name});
        item->setData(0, kPathRole, e.path);
        item->setIcon(0, icons.icon(e.folder ? QFileIconProvider::Folder : QFileIconProvider::File));
        if (e.link) {
            item->setFont(0, linkFont);
            item->setToolTip(0, QStringLiteral("Link to %1").arg(QFileInfo(e.path).symLinkTarget()));
        }
        if (expanded.contains(e.path))
            item->setExpanded(true);
        items.push_back(item);
    }
    top->setExpanded(true);
    setCurrentItem(top);
    setUpdatesEnabled(true);
    mark(m_found, m_cs);
}

bool FolderTree::isMarked(const QTreeWidgetItem *item) const
{
    return item->parent() && Files::nameContains(item->text(0), m_found, m_cs);
}

void FolderTree::mark(const QString &found, Qt::CaseSensitivity cs)
{
    m_found = found;
    m_cs = cs;
    QTreeWidgetItem *top = topLevelItem(0);
    if (!top)
        return;
    const QBrush highlight(QColor(255, 236, 140));
    forEachBelow(top, [&](QTreeWidgetItem *item) {
        const bool marked = isMarked(item);
        QFont f = item->font(0);
        f.setBold(marked);
        item->setFont(0, f);
        item->setBackground(0, marked ? highlight : QBrush());
        if (marked) {
            for (QTreeWidgetItem *up = item->parent(); up; up = up->parent())
                up->setExpanded(true);
        }
    });
    applyVisibility();
}

int FolderTree::markedCount() const
{
    int count = 0;
    forEachBelow(invisibleRootItem(), [&](QTreeWidgetItem *item) {
        if (isMarked(item))
            ++count;
    });
    return count;
}

void FolderTree::showAll(bool all)
{
    m_showAll = all;
    applyVisibility();
}

void FolderTree::applyVisibility()
{
    QTreeWidgetItem *top = topLevelItem(0);
    if (!top)
        return;
    if (m_showAll) {
        forEachBelow(top, [](QTreeWidgetItem *item) { item->setHidden(false); });
        return;
    }
    QSet<QTreeWidgetItem *> found;
    forEachBelow(top, [&](QTreeWidgetItem *item) {
        if (isMarked(item))
            found.insert(item);
    });
    for (int i = 0; i < top->childCount(); ++i)
        showFound(top->child(i), found);
    top->setHidden(false);
}

QTreeWidgetItem *FolderTree::chosenItem() const
{
    QTreeWidgetItem *item = currentItem();
    return item && item->parent() ? item : nullptr;
}

QTreeWidgetItem *FolderTree::currentOrRoot() const
{
    QTreeWidgetItem *item = currentItem();
    return item ? item : topLevelItem(0);
}

QStringList FolderTree::chosenPaths() const
{
    QStringList paths;
    for (QTreeWidgetItem *item : selectedItems()) {
        if (item->parent() && !item->isHidden())
            paths << pathOf(item);
    }
    if (paths.isEmpty()) {
        if (QTreeWidgetItem *item = chosenItem())
            paths << pathOf(item);
    }
    return paths;
}

QString FolderTree::folderOf(const QTreeWidgetItem *item)
{
    const QFileInfo info(pathOf(item));
    return info.isDir() && !info.isSymLink() ? info.absoluteFilePath() : info.absolutePath();
}

} // namespace tabulon
