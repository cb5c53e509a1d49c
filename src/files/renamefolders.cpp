#include "files/renamefolders.h"

#include "files/changetexts.h"
#include "files/filecopies.h"
#include "files/filetext.h"
#include "files/foldertree.h"
#include "files/trash.h"
#include "ui/dialogs.h"
#include "ui/progressview.h"
#include "ui/toolhost.h"

#include <QAction>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QDir>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include <optional>
#include <type_traits>

namespace tabulon {

namespace {

using Files::plural;

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

} // namespace

RenameFolders::RenameFolders(ToolHost &host, QWidget *parent)
    : QDialog(parent), m_host(host), m_folder(new QLineEdit(this)), m_tree(new FolderTree(this)),
      m_case(new QCheckBox(QStringLiteral("&Match Case"), this)),
      m_hidden(new QCheckBox(QStringLiteral("Include &Hidden Files"), this)), m_encoding(new QComboBox(this)),
      m_bar(new QProgressBar(this)), m_status(new QLabel(this)), m_keys(new KeyPreview(this)), m_busy(this)
{
    setObjectName(QStringLiteral("RenameFolders"));
    setWindowTitle(QStringLiteral("Rename Folders & Files"));
    setWindowFlags(Qt::Dialog | Qt::MSWindowsFixedSizeDialogHint);

    auto *menuBar = new QMenuBar(this);
    QMenu *undo = menuBar->addMenu(QStringLiteral("&Undo"));
    undo->setObjectName(QStringLiteral("mnuundo"));
    undo->menuAction()->setObjectName(QStringLiteral("mnuundo"));
    const auto addUndo = [this, undo](const char *name, const QString &caption, void (RenameFolders::*routine)()) {
        QAction *action = undo->addAction(caption);
        action->setObjectName(QLatin1String(name));
        connect(action, &QAction::triggered, this, routine);
        return action;
    };
    m_undoRename = addUndo("mnuundoren", QStringLiteral("Undo &Rename"), &RenameFolders::UndoRename);
    m_undoReplace = addUndo("mnuundorep", QStringLiteral("Undo Replace in &Files"), &RenameFolders::UndoReplaceFiles);
    m_undoDelete = addUndo("mnuundodel", QStringLiteral("Undo &Delete"), &RenameFolders::UndoDelete);

    m_folder->setObjectName(QStringLiteral("txtfolder"));
    auto *browseButton = new QPushButton(QStringLiteral("&Browse..."), this);
    browseButton->setObjectName(QStringLiteral("cmdbrowse"));
    m_tree->setObjectName(QStringLiteral("TreeView1"));
    m_case->setObjectName(QStringLiteral("chkcase"));
    m_hidden->setObjectName(QStringLiteral("chkhidden"));
    m_hidden->setToolTip(QStringLiteral("Replace in Files also changes hidden files and the files in hidden folders"));
    m_encoding->setObjectName(QStringLiteral("cboencoding"));
    m_encoding->addItem(QStringLiteral("UTF-8"), QString());
    for (const QString &name : Files::choosableEncodings())
        m_encoding->addItem(name, name);
    m_encoding->setToolTip(QStringLiteral("How Replace in Files reads files without a byte order mark; with UTF-8, "
                                          "files that are not UTF-8 are left alone"));
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
    bottom->addWidget(m_hidden);
    auto *encodingLabel = new QLabel(QStringLiteral("&Encoding:"), this);
    encodingLabel->setBuddy(m_encoding);
    bottom->addWidget(encodingLabel);
    bottom->addWidget(m_encoding);
    bottom->addStretch(1);
    bottom->addWidget(exitButton);
    auto *layout = new QVBoxLayout(this);
    layout->setMenuBar(menuBar);
    layout->addLayout(top);
    layout->addWidget(m_tree, 1);
    layout->addWidget(m_status);
    layout->addWidget(m_bar);
    layout->addLayout(bottom);
    setFixedSize(600, 580);

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

    updateUndo();
    openFolder(m_host.programFolder());
}

RenameFolders::~RenameFolders() = default;

Qt::CaseSensitivity RenameFolders::caseSensitivity() const
{
    return m_case->isChecked() ? Qt::CaseSensitive : Qt::CaseInsensitive;
}

void RenameFolders::openFolder(const QString &folder)
{
    // A folder reached through a link is worked on where it is: every change stays below it.
    m_root = Files::chosenFolder(folder);
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
    const auto read = runBusy(m_busy, m_bar, m_status, QStringLiteral("Reading"),
                              [this](Progress &progress) { return Files::listFolder(m_root, progress); });
    if (!read)
        return;
    const Files::Listing &listing = *read;
    m_tree->fill(m_root, listing);

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

void RenameFolders::showPopup(const QPoint &pos)
{
    if (QMenu *menu = m_host.popupMenu(QStringLiteral("mnupopren")))
        menu->exec(m_tree->viewport()->mapToGlobal(pos));
}

void RenameFolders::updateUndo()
{
    m_undoRename->setEnabled(!m_renamed.empty());
    m_undoRename->setToolTip(
        QStringLiteral("Give %1 back the old name").arg(plural(int(m_renamed.size()), QStringLiteral("renamed item"))));
    const int copies = m_copies ? m_copies->size() : 0;
    m_undoReplace->setEnabled(copies > 0);
    m_undoReplace->setToolTip(
        QStringLiteral("Put back %1 as before the replacement").arg(plural(copies, QStringLiteral("file"))));
    m_undoDelete->setEnabled(!m_trashed.empty());
    m_undoDelete->setToolTip(
        QStringLiteral("Bring %1 back from the trash").arg(plural(int(m_trashed.size()), QStringLiteral("item"))));
}

std::optional<RenameFolders::Replacement> RenameFolders::askReplacement()
{
    const QString find = Dialogs::input(this, QStringLiteral("Find what:"), QString(), m_found);
    if (find.isEmpty())
        return std::nullopt;
    // An empty answer removes the text from the names; only Cancel drops the change.
    const std::optional<QString> with = Dialogs::inputOrCancel(this, QStringLiteral("Replace \"%1\" with:").arg(find));
    if (!with)
        return std::nullopt;
    return Replacement{find, *with};
}

void RenameFolders::ShowNodes(bool all)
{
    m_tree->showAll(all);
}

void RenameFolders::FindString()
{
    if (m_busy.isBusy())
        return;
    const QString text = Dialogs::input(this, QStringLiteral("Find what:"), QString(), m_found);
    if (text.isEmpty())
        return;
    m_found = text;
    m_tree->mark(m_found, caseSensitivity());
    const int count = m_tree->markedCount();
    m_status->setText(QStringLiteral("%1 found").arg(plural(count, QStringLiteral("name"))));
    if (count == 0)
        Dialogs::message(this, QStringLiteral("No folder or file name holds \"%1\".").arg(text));
}

std::optional<Files::Outcome> RenameFolders::applyRenames(const Files::RenamePlan &plan)
{
    auto outcome = runBusy(m_busy, m_bar, m_status, QStringLiteral("Renaming"),
                           [&plan](Progress &progress) { return Files::applyRenames(plan, progress); });
    if (outcome && !outcome->moved.empty()) {
        m_renamed = outcome->moved;
        updateUndo();
    }
    return outcome;
}

void RenameFolders::carryOut(const Files::RenamePlan &plan, const QString &find, const QString &unit)
{
    if (plan.renames.empty()) {
        if (plan.skipped.empty())
            Dialogs::message(this, QStringLiteral("No %1 name holds \"%2\".").arg(unit, find));
        else
            Dialogs::message(
                this, Files::summaryText(QStringLiteral("Renamed"), unit, Files::Outcome{0, plan.skipped, false, {}}));
        return;
    }
    if (Dialogs::ask(this, Files::renameQuestion(plan, unit), Dialogs::Buttons::YesNo, Dialogs::Icon::Question) !=
        Dialogs::Answer::Yes)
        return;
    const auto outcome = applyRenames(plan);
    if (!outcome)
        return;
    reload();
    Dialogs::message(this, Files::summaryText(QStringLiteral("Renamed"), unit, *outcome));
}

void RenameFolders::ReplaceString()
{
    if (m_busy.isBusy())
        return;
    const QStringList paths = m_tree->chosenPaths();
    if (paths.isEmpty()) {
        Dialogs::message(this, QStringLiteral("Choose the folders or files to rename first."));
        return;
    }
    const auto replacement = askReplacement();
    if (!replacement)
        return;
    const auto &[find, with] = *replacement;
    carryOut(Files::planReplaceInNames(m_root, paths, find, with, caseSensitivity()), find, QStringLiteral("item"));
}

void RenameFolders::Rename()
{
    if (m_busy.isBusy())
        return;
    QTreeWidgetItem *item = m_tree->chosenItem();
    if (!item) {
        Dialogs::message(this, QStringLiteral("Choose a folder or file to rename first."));
        return;
    }
    const QString name = Dialogs::input(this, QStringLiteral("New name:"), QString(), item->text(0));
    if (name.isEmpty() || name == item->text(0))
        return;
    // The typed name is the preview of this change.
    const auto outcome = applyRenames(Files::planRename(m_root, FolderTree::pathOf(item), name));
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
    QTreeWidgetItem *item = m_tree->currentOrRoot();
    if (!item)
        return;
    const auto replacement = askReplacement();
    if (!replacement)
        return;
    const auto &[find, with] = *replacement;
    const QStringList paths =
        Files::itemsBelow(FolderTree::folderOf(item), folders ? Files::Kind::Folders : Files::Kind::Files);
    carryOut(Files::planReplaceInNames(m_root, paths, find, with, caseSensitivity()), find,
             folders ? QStringLiteral("folder") : QStringLiteral("file"));
}

void RenameFolders::ReplaceFiles()
{
    if (m_busy.isBusy())
        return;
    QTreeWidgetItem *item = m_tree->currentOrRoot();
    if (!item)
        return;
    const auto asked = askReplacement();
    if (!asked)
        return;
    const Files::TextReplacement replacement{asked->find, asked->with, caseSensitivity(), m_hidden->isChecked(),
                                             m_encoding->currentData().toString()};
    const QString target = FolderTree::pathOf(item);
    const auto planned = runBusy(m_busy, m_bar, m_status, QStringLiteral("Reading"), [&](Progress &progress) {
        return Files::planReplaceInFiles(m_root, target, replacement, progress);
    });
    if (!planned || planned->stopped)
        return;
    const Files::ContentPlan &plan = *planned;
    if (plan.files.empty()) {
        QString text = QStringLiteral("No text file holds \"%1\".").arg(replacement.find);
        if (!plan.skipped.empty())
            text += QLatin1Char('\n') + Files::summaryText(QStringLiteral("Changed"), QStringLiteral("file"),
                                                           Files::Outcome{0, plan.skipped, false, {}});
        Dialogs::message(this, text);
        return;
    }
    const QString question = Files::contentQuestion(plan, replacement);
    if (Dialogs::ask(this, question, Dialogs::Buttons::YesNo, Dialogs::Icon::Question) != Dialogs::Answer::Yes)
        return;
    auto copies = std::make_unique<Files::FileCopies>();
    const auto outcome = runBusy(m_busy, m_bar, m_status, QStringLiteral("Changing"), [&](Progress &progress) {
        return Files::applyReplaceInFiles(plan, replacement, *copies, progress);
    });
    if (!outcome)
        return;
    // The copies of an earlier replacement are dropped only once this one has changed something.
    if (copies->size() > 0) {
        m_copies = std::move(copies);
        updateUndo();
    }
    Dialogs::message(this, Files::summaryText(QStringLiteral("Changed"), QStringLiteral("file"), *outcome));
}

void RenameFolders::Delete()
{
    if (m_busy.isBusy())
        return;
    const QStringList paths = Files::outermostPaths(m_tree->chosenPaths());
    if (paths.isEmpty()) {
        Dialogs::message(this, QStringLiteral("Choose the folders or files to delete first."));
        return;
    }
    const QString question = Files::deleteQuestion(paths, Files::countForDelete(paths), m_root);
    if (Dialogs::ask(this, question, Dialogs::Buttons::YesNo, Dialogs::Icon::Exclamation) != Dialogs::Answer::Yes)
        return;
    const auto trashed = runBusy(m_busy, m_bar, m_status, QStringLiteral("Deleting"),
                                 [&](Progress &progress) { return Files::moveToTrash(m_root, paths, progress); });
    if (!trashed)
        return;
    if (!trashed->outcome.moved.empty()) {
        m_trashed = trashed->outcome.moved;
        updateUndo();
    }
    // Only what no trash takes is deleted for good, and only when asked again.
    std::optional<Files::Outcome> forGood;
    if (!trashed->notTrashed.isEmpty() &&
        Dialogs::ask(this, Files::deleteForGoodQuestion(*trashed, m_root), Dialogs::Buttons::YesNo,
                     Dialogs::Icon::Exclamation) == Dialogs::Answer::Yes) {
        forGood = runBusy(m_busy, m_bar, m_status, QStringLiteral("Deleting"), [&trashed](Progress &progress) {
            return Files::deleteEntries(trashed->notTrashed, progress);
        });
    }
    reload();
    Dialogs::message(this, Files::deleteSummary(*trashed, forGood));
}

void RenameFolders::UndoRename()
{
    if (m_busy.isBusy() || m_renamed.empty())
        return;
    const auto outcome = runBusy(m_busy, m_bar, m_status, QStringLiteral("Renaming back"),
                                 [this](Progress &progress) { return Files::undoRenames(m_renamed, progress); });
    if (!outcome)
        return;
    m_renamed.clear();
    updateUndo();
    reload();
    Dialogs::message(this, Files::summaryText(QStringLiteral("Renamed back"), QStringLiteral("item"), *outcome));
}

void RenameFolders::UndoReplaceFiles()
{
    if (m_busy.isBusy() || !m_copies)
        return;
    const auto outcome = runBusy(m_busy, m_bar, m_status, QStringLiteral("Putting back"),
                                 [this](Progress &progress) { return m_copies->restore(progress); });
    if (!outcome)
        return;
    // The copies of files not put back stay for another try.
    const int kept = m_copies->size();
    if (kept == 0)
        m_copies.reset();
    updateUndo();
    Dialogs::message(this, Files::putBackSummary(*outcome, kept));
}

void RenameFolders::UndoDelete()
{
    if (m_busy.isBusy() || m_trashed.empty())
        return;
    const auto outcome = runBusy(m_busy, m_bar, m_status, QStringLiteral("Bringing back"),
                                 [this](Progress &progress) { return Files::restoreFromTrash(m_trashed, progress); });
    if (!outcome)
        return;
    m_trashed.clear();
    updateUndo();
    reload();
    Dialogs::message(this, Files::summaryText(QStringLiteral("Brought back"), QStringLiteral("item"), *outcome));
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
