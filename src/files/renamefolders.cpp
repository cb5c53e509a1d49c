#include "files/renamefolders.h"

#include "files/filetext.h"
#include "ui/dialogs.h"
#include "ui/progressview.h"
#include "ui/toolhost.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QDir>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QProgressBar>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <functional>
#include <optional>
#include <type_traits>

namespace tabulon {

namespace {

constexpr int kPathRole = Qt::UserRole;
constexpr int kPreviewLines = 15;

QString pathOf(const QTreeWidgetItem *item)
{
    return item ? item->data(0, kPathRole).toString() : QString();
}

QString plural(int n, const QString &unit)
{
    return QStringLiteral("%1 %2%3").arg(n).arg(unit, n == 1 ? QString() : QStringLiteral("s"));
}

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

// Runs `work` with the progress bar and status line, the status reading `verb` and the name of
// each step; nothing when another run is on.
template <typename Work>
auto runBusy(BusyState &busy, QProgressBar *bar, QLabel *status, const QString &verb, Work work)
    -> std::optional<std::invoke_result_t<Work, Progress &>>
{
    BusyGuard guard(busy);
    if (!guard)
        return std::nullopt;
    ProgressView progress(bar, status,
                          [verb](const QString &name, int, int) -> QString { return verb + QLatin1Char(' ') + name; });
    progress.setBusyState(&busy);
    return work(progress);
}

// Appends the first lines of a preview, and how many more there are.
void appendPreview(QString &text, const QStringList &lines)
{
    for (qsizetype i = 0; i < std::min(lines.size(), qsizetype(kPreviewLines)); ++i)
        text += QLatin1Char('\n') + lines[i];
    if (lines.size() > kPreviewLines)
        text += QStringLiteral("\n... and %1 more").arg(lines.size() - kPreviewLines);
}

} // namespace

RenameFolders::RenameFolders(ToolHost &host, QWidget *parent)
    : QDialog(parent), m_host(host), m_folder(new QLineEdit(this)), m_tree(new QTreeWidget(this)),
      m_case(new QCheckBox(QStringLiteral("&Match Case"), this)), m_bar(new QProgressBar(this)),
      m_status(new QLabel(this)), m_keys(new KeyPreview(this)), m_busy(this)
{
    setObjectName(QStringLiteral("RenameFolders"));
    setWindowTitle(QStringLiteral("Rename Folders & Files"));
    setWindowFlags(Qt::Dialog | Qt::MSWindowsFixedSizeDialogHint);

    m_folder->setObjectName(QStringLiteral("txtfolder"));
    auto *browseButton = new QPushButton(QStringLiteral("&Browse..."), this);
    browseButton->setObjectName(QStringLiteral("cmdbrowse"));
    m_tree->setObjectName(QStringLiteral("TreeView1"));
    m_tree->setHeaderHidden(true);
    m_tree->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_tree->setContextMenuPolicy(Qt::CustomContextMenu);
    m_tree->setUniformRowHeights(true);
    m_case->setObjectName(QStringLiteral("chkcase"));
    m_bar->setObjectName(QStringLiteral("ProgressBar1"));
    m_bar->setTextVisible(false);
    m_status->setObjectName(QStringLiteral("lblstatus"));
    auto *exitButton = new QPushButton(QStringLiteral("E&xit"), this);
    exitButton->setObjectName(QStringLiteral("cmdexit"));
    // Enter in the folder box opens the typed folder; it must not press a button as well.
    browseButton->setAutoDefault(false);
    exitButton->setAutoDefault(false);

    auto *folderLabel = new QLabel(QStringLiteral("&Folder:"), this);
    folderLabel->setBuddy(m_folder);
    auto *top = new QHBoxLayout;
    top->addWidget(folderLabel);
    top->addWidget(m_folder, 1);
    top->addWidget(browseButton);
    auto *bottom = new QHBoxLayout;
    bottom->addWidget(m_case);
    bottom->addStretch(1);
    bottom->addWidget(exitButton);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(m_tree, 1);
    layout->addWidget(m_status);
    layout->addWidget(m_bar);
    layout->addLayout(bottom);
    setFixedSize(600, 560);

    connect(browseButton, &QPushButton::clicked, this, &RenameFolders::browse);
    connect(m_folder, &QLineEdit::returnPressed, this, [this] {
        const QString typed = m_folder->text().trimmed();
        if (QFileInfo(typed).isDir())
            openFolder(typed);
        else
            Dialogs::message(this, QStringLiteral("\"%1\" is not a folder.").arg(typed));
    });
    connect(m_tree, &QWidget::customContextMenuRequested, this, &RenameFolders::showPopup);
    connect(exitButton, &QPushButton::clicked, this, &RenameFolders::exitAsked);
    noDefaultButtons(this);

    openFolder(m_host.programFolder());
}

RenameFolders::~RenameFolders() = default;

Qt::CaseSensitivity RenameFolders::caseSensitivity() const
{
    return m_case->isChecked() ? Qt::CaseSensitive : Qt::CaseInsensitive;
}

void RenameFolders::openFolder(const QString &folder)
{
    m_root = QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    m_folder->setText(QDir::toNativeSeparators(m_root));
    m_tree->clear();
    reload();
}

void RenameFolders::browse()
{
    const QString chosen = Dialogs::folderName(this, QStringLiteral("Choose a Folder"), m_root);
    if (!chosen.isEmpty())
        openFolder(chosen);
}

void RenameFolders::reload()
{
    QSet<QString> expanded;
    forEachBelow(m_tree->invisibleRootItem(), [&expanded](QTreeWidgetItem *item) {
        if (item->isExpanded())
            expanded.insert(pathOf(item));
    });
    const auto read = runBusy(m_busy, m_bar, m_status, QStringLiteral("Reading"),
                              [this](Progress &progress) { return Files::listFolder(m_root, progress); });
    if (!read)
        return;
    const Files::Listing &listing = *read;

    m_tree->setUpdatesEnabled(false);
    m_tree->clear();
    const QFileIconProvider icons;
    auto *root = new QTreeWidgetItem(m_tree, {QDir::toNativeSeparators(m_root)});
    root->setData(0, kPathRole, m_root);
    root->setIcon(0, icons.icon(QFileIconProvider::Folder));
    std::vector<QTreeWidgetItem *> items;
    items.reserve(listing.entries.size());
    QFont linkFont = m_tree->font();
    linkFont.setItalic(true);
    for (const Files::Entry &e : listing.entries) {
        QTreeWidgetItem *parent = e.parent < 0 ? root : items[size_t(e.parent)];
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
    root->setExpanded(true);
    m_tree->setCurrentItem(root);
    m_tree->setUpdatesEnabled(true);
    applyMarks();

    QString status = plural(int(listing.entries.size()), QStringLiteral("item"));
    if (listing.stopped)
        status += QStringLiteral(" (reading stopped)");
    if (!listing.unreadable.isEmpty())
        status += QStringLiteral("; %1 could not be read")
                      .arg(plural(int(listing.unreadable.size()), QStringLiteral("folder")));
    m_status->setText(status);
    if (!QFileInfo(m_root).isDir())
        Dialogs::message(this, QStringLiteral("\"%1\" is not a folder.").arg(QDir::toNativeSeparators(m_root)));
}

void RenameFolders::applyMarks()
{
    QTreeWidgetItem *root = m_tree->topLevelItem(0);
    if (!root)
        return;
    const Qt::CaseSensitivity cs = caseSensitivity();
    QFont plain = m_tree->font();
    QFont bold = plain;
    bold.setBold(true);
    const QBrush mark(QColor(255, 236, 140));
    forEachBelow(root, [&](QTreeWidgetItem *item) {
        const bool found = Files::nameContains(item->text(0), m_found, cs);
        QFont font = item->font(0);
        font.setBold(found);
        item->setFont(0, font);
        item->setBackground(0, found ? mark : QBrush());
        if (found) {
            for (QTreeWidgetItem *up = item->parent(); up; up = up->parent())
                up->setExpanded(true);
        }
    });
    applyVisibility();
}

void RenameFolders::applyVisibility()
{
    QTreeWidgetItem *root = m_tree->topLevelItem(0);
    if (!root)
        return;
    if (m_showAll) {
        forEachBelow(root, [](QTreeWidgetItem *item) { item->setHidden(false); });
        return;
    }
    const Qt::CaseSensitivity cs = caseSensitivity();
    QSet<QTreeWidgetItem *> found;
    forEachBelow(root, [&](QTreeWidgetItem *item) {
        if (Files::nameContains(item->text(0), m_found, cs))
            found.insert(item);
    });
    for (int i = 0; i < root->childCount(); ++i)
        showFound(root->child(i), found);
    root->setHidden(false);
}

void RenameFolders::showPopup(const QPoint &pos)
{
    if (QMenu *menu = m_host.popupMenu(QStringLiteral("mnupopren")))
        menu->exec(m_tree->viewport()->mapToGlobal(pos));
}

QTreeWidgetItem *RenameFolders::chosenItem() const
{
    QTreeWidgetItem *item = m_tree->currentItem();
    return item && item->parent() ? item : nullptr;
}

QTreeWidgetItem *RenameFolders::currentOrRoot() const
{
    QTreeWidgetItem *item = m_tree->currentItem();
    return item ? item : m_tree->topLevelItem(0);
}

QStringList RenameFolders::chosenPaths() const
{
    QStringList paths;
    for (QTreeWidgetItem *item : m_tree->selectedItems()) {
        if (item->parent() && !item->isHidden())
            paths << pathOf(item);
    }
    if (paths.isEmpty()) {
        if (QTreeWidgetItem *item = chosenItem())
            paths << pathOf(item);
    }
    return paths;
}

QString RenameFolders::folderOf(QTreeWidgetItem *item) const
{
    const QFileInfo info(pathOf(item));
    return info.isDir() && !info.isSymLink() ? info.absoluteFilePath() : info.absolutePath();
}

std::optional<RenameFolders::Replacement> RenameFolders::askReplacement()
{
    const QString find = Dialogs::input(this, QStringLiteral("Find what:"), QString(), m_found);
    if (find.isEmpty())
        return std::nullopt;
    return Replacement{find, Dialogs::input(this, QStringLiteral("Replace \"%1\" with:").arg(find))};
}

void RenameFolders::ShowNodes(bool all)
{
    m_showAll = all;
    applyVisibility();
}

void RenameFolders::FindString()
{
    if (m_busy.isBusy())
        return;
    const QString text = Dialogs::input(this, QStringLiteral("Find what:"), QString(), m_found);
    if (text.isEmpty())
        return;
    m_found = text;
    applyMarks();
    int count = 0;
    forEachBelow(m_tree->invisibleRootItem(), [&](QTreeWidgetItem *item) {
        if (item->parent() && Files::nameContains(item->text(0), m_found, caseSensitivity()))
            ++count;
    });
    m_status->setText(QStringLiteral("%1 found").arg(plural(count, QStringLiteral("name"))));
    if (count == 0)
        Dialogs::message(this, QStringLiteral("No folder or file name holds \"%1\".").arg(text));
}

void RenameFolders::carryOut(const Files::RenamePlan &plan, const QString &find, const QString &unit)
{
    if (plan.renames.empty()) {
        if (plan.skipped.empty())
            Dialogs::message(this, QStringLiteral("No %1 name holds \"%2\".").arg(unit, find));
        else
            Dialogs::message(
                this, Files::summaryText(QStringLiteral("Renamed"), unit, Files::Outcome{0, plan.skipped, false}));
        return;
    }
    QString preview = QStringLiteral("Rename %1?\n").arg(plural(int(plan.renames.size()), unit));
    QStringList lines;
    for (const Files::Rename &r : plan.renames)
        lines << QStringLiteral("%1  ->  %2").arg(QFileInfo(r.from).fileName(), QFileInfo(r.to).fileName());
    appendPreview(preview, lines);
    if (!plan.skipped.empty())
        preview += QStringLiteral("\n\n%1 cannot be renamed and will be left alone.")
                       .arg(plural(int(plan.skipped.size()), unit));
    if (Dialogs::ask(this, preview, Dialogs::Buttons::YesNo, Dialogs::Icon::Question) != Dialogs::Answer::Yes)
        return;
    const auto outcome = runBusy(m_busy, m_bar, m_status, QStringLiteral("Renaming"),
                                 [&plan](Progress &progress) { return Files::applyRenames(plan, progress); });
    if (!outcome)
        return;
    reload();
    Dialogs::message(this, Files::summaryText(QStringLiteral("Renamed"), unit, *outcome));
}

void RenameFolders::ReplaceString()
{
    if (m_busy.isBusy())
        return;
    const QStringList paths = chosenPaths();
    if (paths.isEmpty()) {
        Dialogs::message(this, QStringLiteral("Choose the folders or files to rename first."));
        return;
    }
    const auto replacement = askReplacement();
    if (!replacement)
        return;
    const auto &[find, with] = *replacement;
    carryOut(Files::planReplaceInNames(paths, find, with, caseSensitivity()), find, QStringLiteral("item"));
}

void RenameFolders::Rename()
{
    if (m_busy.isBusy())
        return;
    QTreeWidgetItem *item = chosenItem();
    if (!item) {
        Dialogs::message(this, QStringLiteral("Choose a folder or file to rename first."));
        return;
    }
    const QString name = Dialogs::input(this, QStringLiteral("New name:"), QString(), item->text(0));
    if (name.isEmpty() || name == item->text(0))
        return;
    // The typed name is the preview of this change.
    const Files::RenamePlan plan = Files::planRename(pathOf(item), name);
    const auto outcome = runBusy(m_busy, m_bar, m_status, QStringLiteral("Renaming"),
                                 [&plan](Progress &progress) { return Files::applyRenames(plan, progress); });
    if (!outcome)
        return;
    if (outcome->changed > 0)
        reload();
    Dialogs::message(this, Files::summaryText(QStringLiteral("Renamed"), QStringLiteral("item"), *outcome));
}

void RenameFolders::RenameItems(const QString &kind)
{
    if (m_busy.isBusy())
        return;
    const bool folders = kind == QLatin1String("Folder");
    if (!folders && kind != QLatin1String("File"))
        return;
    QTreeWidgetItem *item = currentOrRoot();
    if (!item)
        return;
    const auto replacement = askReplacement();
    if (!replacement)
        return;
    const auto &[find, with] = *replacement;
    const QStringList paths = Files::itemsBelow(folderOf(item), folders ? Files::Kind::Folders : Files::Kind::Files);
    carryOut(Files::planReplaceInNames(paths, find, with, caseSensitivity()), find,
             folders ? QStringLiteral("folder") : QStringLiteral("file"));
}

void RenameFolders::ReplaceFiles()
{
    if (m_busy.isBusy())
        return;
    QTreeWidgetItem *item = currentOrRoot();
    if (!item)
        return;
    const auto replacement = askReplacement();
    if (!replacement)
        return;
    const auto &[find, with] = *replacement;
    const QString target = pathOf(item);
    const Qt::CaseSensitivity cs = caseSensitivity();
    const auto planned = runBusy(m_busy, m_bar, m_status, QStringLiteral("Reading"), [&](Progress &progress) {
        return Files::planReplaceInFiles(target, find, with, cs, progress);
    });
    if (!planned || planned->stopped)
        return;
    const Files::ContentPlan &plan = *planned;
    const Files::Outcome unchanged{0, plan.skipped, false};
    if (plan.files.empty()) {
        QString text = QStringLiteral("No text file holds \"%1\".").arg(find);
        if (!plan.skipped.empty())
            text +=
                QLatin1Char('\n') + Files::summaryText(QStringLiteral("Changed"), QStringLiteral("file"), unchanged);
        Dialogs::message(this, text);
        return;
    }
    const int n = int(plan.files.size());
    QString preview =
        QStringLiteral("Replace %1 of \"%2\" with \"%3\" in %4?\n")
            .arg(plural(plan.occurrences, QStringLiteral("occurrence")), find, with, plural(n, QStringLiteral("file")));
    QStringList lines;
    for (const Files::FileChange &f : plan.files)
        lines << QStringLiteral("%1 (%2)").arg(QDir(target).relativeFilePath(f.path)).arg(f.occurrences);
    appendPreview(preview, lines);
    if (!plan.skipped.empty())
        preview +=
            QStringLiteral("\n\n%1 will be left alone.").arg(plural(int(plan.skipped.size()), QStringLiteral("file")));
    if (Dialogs::ask(this, preview, Dialogs::Buttons::YesNo, Dialogs::Icon::Question) != Dialogs::Answer::Yes)
        return;
    const auto outcome = runBusy(m_busy, m_bar, m_status, QStringLiteral("Changing"), [&](Progress &progress) {
        return Files::applyReplaceInFiles(plan, find, with, cs, progress);
    });
    if (outcome)
        Dialogs::message(this, Files::summaryText(QStringLiteral("Changed"), QStringLiteral("file"), *outcome));
}

void RenameFolders::Delete()
{
    if (m_busy.isBusy())
        return;
    const QStringList paths = Files::outermostPaths(chosenPaths());
    if (paths.isEmpty()) {
        Dialogs::message(this, QStringLiteral("Choose the folders or files to delete first."));
        return;
    }
    const Files::DeleteCount count = Files::countForDelete(paths);
    QString question =
        QStringLiteral("Delete %1 and %2?\n")
            .arg(plural(count.folders, QStringLiteral("folder")), plural(count.files, QStringLiteral("file")));
    QStringList lines;
    for (const QString &path : paths)
        lines << QDir(m_root).relativeFilePath(path);
    appendPreview(question, lines);
    if (count.folders > 0)
        question += QStringLiteral("\n\nFolders go with everything inside them.");
    if (Dialogs::ask(this, question, Dialogs::Buttons::YesNo, Dialogs::Icon::Exclamation) != Dialogs::Answer::Yes)
        return;
    const auto outcome = runBusy(m_busy, m_bar, m_status, QStringLiteral("Deleting"),
                                 [&paths](Progress &progress) { return Files::deleteEntries(paths, progress); });
    if (!outcome)
        return;
    reload();
    Dialogs::message(this, Files::summaryText(QStringLiteral("Deleted"), QStringLiteral("item"), *outcome));
}

void RenameFolders::exitAsked()
{
    if (confirmExit(this))
        closeToolWindow(this);
}

void RenameFolders::closeEvent(QCloseEvent *event)
{
    if (!m_busy.closeRequested()) {
        event->ignore();
        return;
    }
    QDialog::closeEvent(event);
}

} // namespace tabulon
