#include "backup/backup.h"

#include "backup/backuparchive.h"
#include "backup/folderlists.h"
#include "db/databasesession.h"
#include "ui/dialogs.h"
#include "ui/tablechecklist.h"
#include "ui/toolhost.h"
#include "ui/toolwindow.h"

#include <QCheckBox>
#include <QCloseEvent>
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

namespace tabulon {

namespace {

QPushButton *button(QWidget *parent, const char *name, const char *caption)
{
    auto *b = new QPushButton(QString::fromUtf8(caption), parent);
    b->setObjectName(QString::fromUtf8(name));
    return b;
}

} // namespace

BackUp::BackUp(ToolHost &host, QWidget *parent)
    : QDialog(parent), m_host(host), m_pathPage(new QFrame(this)),
      m_list(new TableChecklist(QStringLiteral("Copying Table "), {}, this)), m_keys(new KeyPreview(this))
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
    connect(cancel, &QPushButton::clicked, this, &BackUp::exitAsked);
    connect(backup, &QPushButton::clicked, this, &BackUp::backupPressed);
    connect(back, &QPushButton::clicked, this, &BackUp::backPressed);
    connect(exit, &QPushButton::clicked, this, &BackUp::exitAsked);

    // A list the server refuses stays empty; the table page then says no table was selected.
    (void)m_list->fillTables(m_host.sessionOrClosed());
}

BackUp::~BackUp() = default;

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
    const QString archive = m_set.archivePath();
    if (QFileInfo::exists(archive)) {
        if (Dialogs::ask(this, QStringLiteral("The backup is already taken, are you want to delete it")) !=
            Dialogs::Answer::Yes) {
            closeToolWindow(this);
            return false;
        }
        // The reason is the one the failed removal gave: a QFile that tried nothing knows none.
        QFile file(archive);
        if (!file.remove()) {
            Dialogs::message(this, DbError::file(QDir::toNativeSeparators(archive), file.errorString()).description);
            return false;
        }
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
    m_written.clear();
    m_fatal = {};
    if (m_clientOnly->isChecked())
        runClientBackup();
    else
        runTableBackup();
}

void BackUp::runTableBackup()
{
    DatabaseSession &session = m_host.sessionOrClosed();
    const auto run = m_list->run([this, &session](const QString &table) {
        if (m_fatal || !BackupArchive::isPlainTableName(table))
            return;
        const QString path = QDir(m_set.workingFolder).filePath(table);
        DbError refused;
        DbError error = TableBackup::writeTableFile(session, TableBackup::tableSelect(table), path, &refused);
        // A table the server will not open still gets its (empty) table file.
        if (!error && refused)
            error = TableBackup::writeEmptyTableFile(path);
        if (error) {
            m_fatal = error;
            m_list->busy().requestStop();
            return;
        }
        m_written << table;
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
    const QString other = client->other;
    const auto run = m_list->run([this, &session, &code, &other](const QString &table) {
        if (m_fatal || !BackupArchive::isPlainTableName(table))
            return;
        const QString path = QDir(m_set.workingFolder).filePath(table);
        bool written = false;
        for (const QString &select : TableBackup::clientSelects(table, code, other)) {
            DbError refused;
            if (DbError error = TableBackup::writeTableFile(session, select, path, &refused)) {
                m_fatal = error;
                m_list->busy().requestStop();
                return;
            }
            written = written || !refused;
        }
        if (written)
            m_written << table;
    });
    if (run == TableChecklist::Run::Finished || run == TableChecklist::Run::Stopped)
        complete(run == TableChecklist::Run::Finished);
}

void BackUp::complete(bool finished)
{
    if (!finished || m_fatal) {
        // Nothing of a broken run may look like a backup: its table files go, no archive is made.
        QDir folder(m_set.workingFolder);
        for (const QString &name : std::as_const(m_written))
            folder.remove(name);
        QDir().rmdir(m_set.workingFolder);
        if (m_fatal)
            Dialogs::message(this, QStringLiteral("The backup was not made: ") + m_fatal.description);
        closeToolWindow(this);
        return;
    }
    if (DbError error = TableBackup::finish(m_set, m_written)) {
        Dialogs::message(this, QStringLiteral("The backup was not made: ") + error.description);
        closeToolWindow(this);
        return;
    }
    Dialogs::message(this, QStringLiteral("Backup Sucessfully"));
    closeToolWindow(this);
}

void BackUp::exitAsked()
{
    if (confirmExit(this))
        closeToolWindow(this);
}

void BackUp::closeEvent(QCloseEvent *event)
{
    if (!m_list->busy().closeRequested()) {
        event->ignore();
        return;
    }
    QDialog::closeEvent(event);
}

} // namespace tabulon
