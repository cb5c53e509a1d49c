#include "backup/backup.h"

#include "backup/backuparchive.h"
#include "backup/folderlists.h"
#include "backup/servernames.h"
#include "db/databasesession.h"
#include "ui/dialogs.h"
#include "ui/tablechecklist.h"
#include "ui/toolhost.h"
#include "ui/toolwindow.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFrame>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

#include <cerrno>
#include <cstring>

namespace tabulon {

namespace {

QPushButton *button(QWidget *parent, const char *name, const char *caption)
{
    auto *b = new QPushButton(QString::fromUtf8(caption), parent);
    b->setObjectName(QString::fromUtf8(name));
    return b;
}

const QString kTableVerb = QStringLiteral("Copying Table ");
const QString kClientVerb = QStringLiteral("BackingUp Data from Table ");

// The server's error for a column the table lacks: a client select that does not apply.
constexpr int kUnknownColumn = 1054;

} // namespace

BackUp::BackUp(ToolHost &host, QWidget *parent)
    : QDialog(parent), m_host(host), m_pathPage(new QFrame(this)), m_list(new TableChecklist(kTableVerb, {}, this)),
      m_keys(new KeyPreview(this))
{
    setObjectName(QStringLiteral("BackUp"));
    setWindowTitle(QStringLiteral("BackUp"));

    m_pathPage->setObjectName(QStringLiteral("Frame1"));
    m_pathPage->setFrameShape(QFrame::StyledPanel);
    auto *label = new QLabel(QStringLiteral("Set Data Backup Path"), m_pathPage);
    label->setObjectName(QStringLiteral("Label1"));
    m_lists = new FolderLists(m_pathPage);
    m_path = new QLineEdit(m_pathPage);
    m_path->setObjectName(QStringLiteral("txtpath"));
    m_clientOnly = new QCheckBox(QStringLiteral("BackUp of Particular Client Only"), m_pathPage);
    m_clientOnly->setObjectName(QStringLiteral("Check1"));
    auto *next = button(m_pathPage, "cmdok", "&Next >>");
    auto *cancel = button(m_pathPage, "cmdCancel", "&E&xit");
    auto *pathLayout = new QGridLayout(m_pathPage);
    pathLayout->addWidget(label, 0, 0, 1, 2);
    pathLayout->addWidget(m_lists->drives(), 1, 0, 1, 2);
    pathLayout->addWidget(m_lists->folders(), 2, 0, 1, 2);
    pathLayout->addWidget(m_path, 3, 0, 1, 2);
    pathLayout->addWidget(m_clientOnly, 4, 0, 1, 2);
    pathLayout->addWidget(next, 5, 0);
    pathLayout->addWidget(cancel, 5, 1);

    auto *backup = button(this, "cmdBackup", "&BackUp");
    auto *back = button(this, "cmdback", "<<Back");
    auto *exit = button(this, "cmdExit", "E&xit");
    m_list->addSelectionWidget(backup);
    m_list->addSelectionWidget(back);
    m_list->addSelectionWidget(exit);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_pathPage);
    layout->addWidget(m_list);
    m_list->hide();
    resize(460, 440);

    connect(m_lists, &FolderLists::folderChanged, this,
            [this](const QString &folder) { m_path->setText(TableBackup::withSeparator(folder)); });
    connect(next, &QPushButton::clicked, this, &BackUp::nextPressed);
    exitOnConfirm(cancel, this);
    connect(backup, &QPushButton::clicked, this, &BackUp::backupPressed);
    connect(back, &QPushButton::clicked, this, &BackUp::backPressed);
    exitOnConfirm(exit, this);
    noDefaultButtons(this);

    // A list the server refuses stays empty; the table page then says no table was selected.
    (void)m_list->fillTables(m_host.sessionOrClosed());
}

BackUp::~BackUp()
{
    m_packer.reset(); // its thread ends and its parts go before the folder is removed
    // The working folder of a backup the operator left before it ran; only an empty one goes.
    if (!m_set.workingFolder.isEmpty())
        QDir().rmdir(m_set.workingFolder);
}

void BackUp::nextPressed()
{
    if (m_path->text().isEmpty()) {
        Dialogs::message(this, QStringLiteral("Please select a path"));
        return;
    }
    if (!prepare())
        return;
    m_pathPage->hide();
    m_list->show();
    m_list->showSelectionPage();
    if (!m_tablePageShown)
        m_list->selectAll();
    m_tablePageShown = true;
}

bool BackUp::prepare()
{
    m_set = TableBackup::BackupSet::forPath(m_path->text(), QDate::currentDate());
    m_replace = false;
    if (QFileInfo::exists(m_set.archivePath())) {
        if (Dialogs::ask(this, QStringLiteral("The backup is already taken, are you want to delete it")) !=
            Dialogs::Answer::Yes) {
            closeToolWindow(this);
            return false;
        }
        // Only a file can be replaced: anything else in its place is told now, before the tables
        // are read, rather than when the finished archive cannot take its name.
        if (!QFileInfo(m_set.archivePath()).isFile()) {
            Dialogs::message(this, DbError::file(QDir::toNativeSeparators(m_set.archivePath()),
                                                 QString::fromLocal8Bit(std::strerror(EISDIR)))
                                       .description);
            return false;
        }
        // The earlier archive stays until the new one is whole and takes its place: an exit or a
        // failure before then leaves the operator the backup they had.
        m_replace = true;
    }
    if (!QFileInfo(m_set.workingFolder).isDir() && !QDir().mkpath(m_set.workingFolder)) {
        Dialogs::message(this, DbError::file(QDir::toNativeSeparators(m_set.workingFolder),
                                             QStringLiteral("The folder cannot be created."))
                                   .description);
        return false;
    }
    return true;
}

void BackUp::backPressed()
{
    m_list->hide();
    m_pathPage->show();
}

void BackUp::backupPressed()
{
    m_missing.clear();
    m_unread.clear();
    m_unreadWhy.clear();
    m_taken.clear();
    m_fatal = {};
    m_packer = std::make_unique<BackupArchive::Packer>(m_set.workingFolder);
    m_list->setVerb(m_clientOnly->isChecked() ? kClientVerb : kTableVerb);
    if (m_clientOnly->isChecked())
        runClientBackup();
    else
        runTableBackup();
}

bool BackUp::learnNames(DatabaseSession &session)
{
    auto views = ServerNames::views(session);
    auto keywords = views ? ServerNames::keywords(session) : views.error();
    auto reserved =
        keywords ? ServerNames::reservedNames(session, *keywords, m_list->tickedTables(), ServerNames::Place::Table)
                 : keywords.error();
    if (!reserved) {
        Dialogs::message(this, QStringLiteral("The backup was not made: ") + reserved.error().description);
        closeToolWindow(this);
        return false;
    }
    m_views = *views;
    m_reserved = *reserved;
    return true;
}

bool BackUp::leftOut(const QString &table)
{
    QString why;
    const QString twin = m_taken.value(table.toLower());
    if (!BackupArchive::isTableName(table))
        why = QStringLiteral("its name is not one a restore can take (letters, digits, _ and $)");
    else if (m_views.contains(table))
        why = QStringLiteral("a view; its rows are in its base tables");
    else if (m_reserved.contains(table))
        why = QStringLiteral("its name is a word the server reserves, which a restore cannot take");
    else if (!twin.isEmpty())
        why =
            QStringLiteral("its name differs from %1 only in letter case, and an archive holds one of them").arg(twin);
    if (why.isEmpty()) {
        m_taken.insert(table.toLower(), table);
        return false;
    }
    m_missing << table + QStringLiteral(": ") + why;
    return true;
}

void BackUp::unreadable(const QString &table, const DbError &why)
{
    m_unread << table;
    m_unreadWhy << table + QStringLiteral(": ") + why.description;
}

void BackUp::runTableBackup()
{
    DatabaseSession &session = m_host.sessionOrClosed();
    if (m_list->tickedCount() > 0 && !learnNames(session))
        return;
    const auto run = m_list->run([this, &session](const QString &table) {
        if (ended() || leftOut(table))
            return;
        DbError refused;
        if (DbError error =
                TableBackup::writeTableFile(session, TableBackup::tableSelect(table), *m_packer, table, &refused)) {
            m_fatal = error;
            m_list->busy().requestStop();
            return;
        }
        // An empty table file would restore as an empty table; a table that could not be read
        // has no file, and the closing message names it.
        if (refused)
            unreadable(table, refused);
    });
    if (run == TableChecklist::Run::Finished || run == TableChecklist::Run::Stopped)
        complete(run == TableChecklist::Run::Finished);
}

void BackUp::runClientBackup()
{
    if (m_list->tickedCount() == 0) {
        m_list->run({}); // says that no table has been selected
        return;
    }
    const QString code =
        Dialogs::input(this, QStringLiteral("Please Enter the Code No to take BackUp"), QStringLiteral("Orvita"))
            .toUpper();
    DatabaseSession &session = m_host.sessionOrClosed();
    const auto client = TableBackup::findClient(session, code);
    if (!client.ok()) {
        Dialogs::message(this, client.error().description);
        return;
    }
    if (!client->found) {
        Dialogs::message(this, QStringLiteral("The Code does not exist"));
        m_list->showSelectionPage();
        return;
    }
    if (!learnNames(session))
        return;
    const QString other = client->other;
    const auto run = m_list->run([this, &session, &code, &other](const QString &table) {
        if (ended() || leftOut(table))
            return;
        bool written = false;
        DbError unreadable;
        for (const QString &select : TableBackup::clientSelects(table, code, other)) {
            DbError refused;
            if (DbError error = TableBackup::writeTableFile(session, select, *m_packer, table, &refused)) {
                m_fatal = error;
                m_list->busy().requestStop();
                return;
            }
            written = written || !refused;
            // A table without the select's column has no rows of the client; any other refusal
            // means the table could not be read.
            if (refused && refused.serverCode != kUnknownColumn && !unreadable)
                unreadable = refused;
        }
        if (!written && unreadable)
            this->unreadable(table, unreadable);
    });
    if (run == TableChecklist::Run::Finished || run == TableChecklist::Run::Stopped)
        complete(run == TableChecklist::Run::Finished);
}

bool BackUp::ended()
{
    if (!m_fatal && (m_fatal = m_packer->failure()))
        m_list->busy().requestStop();
    return bool(m_fatal);
}

void BackUp::complete(bool finished)
{
    if (!finished || m_fatal) {
        // Nothing of a broken run may look like a backup: its parts go, no archive is made.
        m_packer.reset();
        QDir().rmdir(m_set.workingFolder);
        if (m_fatal)
            Dialogs::message(this, QStringLiteral("The backup was not made: ") + m_fatal.description);
        closeToolWindow(this);
        return;
    }
    // The archive about to be replaced may hold the only good copy of a table that could not
    // be read now: that copy goes into the new archive.
    QStringList carried;
    QStringList damaged;
    if (m_replace && !m_unread.isEmpty()) {
        if (DbError error =
                BackupArchive::carryOver(m_set.archivePath(), m_unread, m_set.workingFolder, &carried, &damaged)) {
            // Nothing of it can be kept: the earlier archive stays as it is and the new one is
            // not made.
            m_packer.reset();
            QDir().rmdir(m_set.workingFolder);
            Dialogs::message(this, QStringLiteral("The backup was not made: the day's earlier archive, which holds "
                                                  "tables that could not be read now, cannot be read: ") +
                                       error.description);
            closeToolWindow(this);
            return;
        }
    }
    QStringList missing = m_missing;
    QStringList kept;
    for (qsizetype i = 0; i < m_unread.size(); ++i)
        (carried.contains(m_unread[i]) ? kept : missing) << m_unreadWhy[i];
    missing << damaged;
    for (const QString &name : std::as_const(carried))
        m_packer->add(name);
    const DbError packed = TableBackup::finish(
        m_set, *m_packer, carried, m_replace ? BackupArchive::Existing::Replace : BackupArchive::Existing::Keep);
    m_packer.reset();
    if (DbError error = packed) {
        Dialogs::message(this, QStringLiteral("The backup was not made: ") + error.description);
        closeToolWindow(this);
        return;
    }
    QString text = QStringLiteral("Backup Sucessfully");
    if (!missing.isEmpty())
        text += QStringLiteral(", without these tables:\n") + missing.join(QLatin1Char('\n'));
    if (!kept.isEmpty())
        text += QStringLiteral("\nThese tables could not be read; the archive keeps their copies from the day's "
                               "earlier backup:\n") +
                kept.join(QLatin1Char('\n'));
    Dialogs::message(this, text);
    closeToolWindow(this);
}

} // namespace tabulon
