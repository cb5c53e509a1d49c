#include "backup/restore.h"

#include "backup/backuparchive.h"
#include "backup/folderlists.h"
#include "backup/tablebackup.h"
#include "backup/tablerestore.h"
#include "db/connectionstring.h"
#include "db/databasesession.h"
#include "ui/dialogs.h"
#include "ui/tablechecklist.h"
#include "ui/tablelist.h"
#include "ui/toolhost.h"
#include "ui/toolwindow.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QDir>
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

const QString kOrvita = QStringLiteral("Orvita");

QPushButton *button(QWidget *parent, const char *name, const char *caption)
{
    auto *b = new QPushButton(QString::fromUtf8(caption), parent);
    b->setObjectName(QString::fromUtf8(name));
    return b;
}

} // namespace

Restore::Restore(ToolHost &host, QWidget *parent)
    : QDialog(parent), m_host(host), m_target(std::make_unique<DatabaseSession>()), m_filePage(new QFrame(this)),
      m_databasePage(new QFrame(this)), m_list(new TableChecklist(QStringLiteral("Restoring Table "), {}, this)),
      m_keys(new KeyPreview(this))
{
    setObjectName(QStringLiteral("Restore"));
    setWindowTitle(QStringLiteral("Restore"));

    m_filePage->setObjectName(QStringLiteral("Frame1"));
    m_filePage->setFrameShape(QFrame::StyledPanel);
    auto *label1 = new QLabel(QStringLiteral("Select File from where to Restore"), m_filePage);
    label1->setObjectName(QStringLiteral("Label1"));
    m_lists = new FolderLists(m_filePage, QStringLiteral("*.zip"));
    m_path = new QLineEdit(m_filePage);
    m_path->setObjectName(QStringLiteral("txtpath"));
    auto *fileNext = button(m_filePage, "cmdok", "&Next >>");
    m_exit = button(m_filePage, "cmdexit", "&E&xit");
    auto *fileLayout = new QGridLayout(m_filePage);
    fileLayout->addWidget(label1, 0, 0, 1, 2);
    fileLayout->addWidget(m_lists->drives(), 1, 0, 1, 2);
    fileLayout->addWidget(m_lists->folders(), 2, 0);
    fileLayout->addWidget(m_lists->files(), 2, 1);
    fileLayout->addWidget(m_path, 3, 0, 1, 2);
    fileLayout->addWidget(fileNext, 4, 0);
    fileLayout->addWidget(m_exit, 4, 1);

    m_databasePage->setObjectName(QStringLiteral("Frame2"));
    m_databasePage->setFrameShape(QFrame::StyledPanel);
    auto *label2 = new QLabel(QStringLiteral("Database Name"), m_databasePage);
    label2->setObjectName(QStringLiteral("Label2"));
    m_database = new QLineEdit(m_databasePage);
    m_database->setObjectName(QStringLiteral("txtdbpath"));
    m_clientOnly = new QCheckBox(QStringLiteral("Restore Data of Particular Client Only"), m_databasePage);
    m_clientOnly->setObjectName(QStringLiteral("Check1"));
    auto *databaseNext = button(m_databasePage, "Command2", "&Next >>");
    auto *databaseBack = button(m_databasePage, "Command3", "<<&Back");
    auto *databaseLayout = new QGridLayout(m_databasePage);
    databaseLayout->addWidget(label2, 0, 0, 1, 2);
    databaseLayout->addWidget(m_database, 1, 0, 1, 2);
    databaseLayout->addWidget(m_clientOnly, 2, 0, 1, 2);
    databaseLayout->addWidget(databaseNext, 3, 0);
    databaseLayout->addWidget(databaseBack, 3, 1);
    m_databasePage->hide();

    m_list->selectionPage()->setObjectName(QStringLiteral("Frame3"));
    m_list->progressPage()->setObjectName(QStringLiteral("Frame4"));
    m_deleteAll = new QCheckBox(QStringLiteral("Delete all existing records"), this);
    m_deleteAll->setObjectName(QStringLiteral("chkdel"));
    auto *restore = button(this, "cmdrestore", "&Restore");
    auto *tableBack = button(this, "cmdback", "<<Back");
    m_list->addSelectionWidget(m_deleteAll);
    m_list->addSelectionWidget(restore);
    m_list->addSelectionWidget(tableBack);
    m_list->hide();

    // Hidden helpers: the extraction folder's files and the target database's tables.
    m_extractedFiles = new QListWidget(this);
    m_extractedFiles->setObjectName(QStringLiteral("File1"));
    m_extractedFiles->hide();
    m_targetTables = new QComboBox(this);
    m_targetTables->setObjectName(QStringLiteral("Combo1"));
    m_targetTables->hide();

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_filePage);
    layout->addWidget(m_databasePage);
    layout->addWidget(m_list);
    resize(520, 460);

    connect(m_lists, &FolderLists::folderChanged, this,
            [this](const QString &folder) { m_path->setText(TableBackup::withSeparator(folder)); });
    connect(m_lists, &FolderLists::fileClicked, this,
            [this](const QString &name) { m_path->setText(TableBackup::withSeparator(m_lists->folder()) + name); });
    connect(fileNext, &QPushButton::clicked, this, &Restore::filePageNext);
    exitOnConfirm(m_exit, this);
    connect(databaseNext, &QPushButton::clicked, this, &Restore::databasePageNext);
    connect(databaseBack, &QPushButton::clicked, this, &Restore::databasePageBack);
    connect(restore, &QPushButton::clicked, this, &Restore::restorePressed);
    connect(tableBack, &QPushButton::clicked, this, &Restore::tablePageBack);
    noDefaultButtons(this);
}

Restore::~Restore()
{
    removeExtracted();
}

void Restore::filePageNext()
{
    if (m_path->text().right(4) != QLatin1String(".zip")) {
        Dialogs::message(this, QStringLiteral("Please select a file"));
        return;
    }
    if (!extractArchive())
        return;
    m_filePage->hide();
    m_databasePage->show();
}

bool Restore::extractArchive()
{
    removeExtracted();
    const QString archive = m_path->text();
    const QString folder = archive.left(archive.size() - 4);
    const bool existed = QFileInfo::exists(folder);
    QStringList tables;
    if (DbError error = BackupArchive::extract(archive, folder, &tables)) {
        Dialogs::message(this, QStringLiteral("This archive cannot be restored: ") + error.description);
        return false;
    }
    m_extracted = folder;
    m_extractedNames = tables;
    m_createdFolder = !existed;
    m_extractedFiles->clear();
    m_extractedFiles->addItems(tables);
    m_list->setTables(tables);
    return true;
}

void Restore::removeExtracted()
{
    if (m_extracted.isEmpty())
        return;
    QDir folder(m_extracted);
    if (m_createdFolder) {
        folder.removeRecursively();
    } else {
        for (const QString &name : std::as_const(m_extractedNames))
            folder.remove(name);
    }
    m_extracted.clear();
    m_extractedNames.clear();
}

void Restore::databasePageNext()
{
    if (m_database->text().isEmpty()) {
        Dialogs::message(this, QStringLiteral("Select a Database Path"));
        return;
    }
    const ConnectionSettings s = m_host.settings();
    if (DbError error = m_target->open(
            ConnectionString::mysqlRestore(s.server, s.user, s.password, m_database->text().trimmed()))) {
        Dialogs::message(this, error.description);
        return;
    }
    m_targetTables->clear();
    (void)fillTableList(m_targetTables, *m_target, QStringLiteral("SHOW Tables"));
    m_databasePage->hide();
    showTablePage();
    m_list->selectAll();
    m_deleteAll->setVisible(!m_clientOnly->isChecked());
}

void Restore::databasePageBack()
{
    m_target->close();
    m_databasePage->hide();
    m_filePage->show();
}

void Restore::tablePageBack()
{
    m_list->hide();
    m_databasePage->show();
}

void Restore::showTablePage()
{
    m_list->show();
    m_list->showSelectionPage();
    m_exit->show();
}

void Restore::restorePressed()
{
    if (m_list->tickedCount() == 0) {
        m_list->run({}); // says that no table has been selected
        return;
    }
    m_exit->hide();
    if (m_clientOnly->isChecked())
        runClientRestore();
    else
        runTableRestore();
}

bool Restore::tableExists(const QString &table, bool *stop)
{
    if (!m_target->execute(TableRestore::existenceTest(table)))
        return true;
    if (Dialogs::ask(this, QStringLiteral("This table is not exist in Database, Continue ?")) != Dialogs::Answer::Yes) {
        *stop = true;
        m_list->busy().requestStop();
    }
    return false;
}

void Restore::runTableRestore()
{
    bool stopped = false;
    const auto untrapped = [this](const DbError &error) {
        m_ended = true;
        m_list->busy().requestStop();
        Dialogs::runtimeError(this, error); // and the program ends
    };
    const auto run = m_list->run([&](const QString &table) {
        if (m_ended || stopped || !tableExists(table, &stopped))
            return;
        if (m_deleteAll->isChecked()) {
            if (DbError error = m_target->execute(TableRestore::deleteAllStatement(table))) {
                untrapped(error);
                return;
            }
        }
        auto types = TableRestore::fieldTypes(*m_target, table);
        if (!types) {
            untrapped(types.error());
            return;
        }
        const QString file = QDir(m_extracted).filePath(table);
        if (DbError error = TableRestore::insertRows(*m_target, table, file, *types, nullptr,
                                                     [](const DbError &) { return false; }))
            untrapped(error);
    });
    if (m_ended || run == TableChecklist::Run::AlreadyRunning || run == TableChecklist::Run::NoneTicked)
        return;
    if (run == TableChecklist::Run::Stopped && !stopped)
        return; // the window is closing
    Dialogs::message(this, QStringLiteral("Restored Sucessfully"));
    closeToolWindow(this);
}

QString Restore::chooseClientCode()
{
    QString code =
        Dialogs::input(this, QStringLiteral("Please Enter the Code No to Restore Data"), kOrvita).trimmed().toUpper();
    for (;;) {
        if (code.isEmpty())
            return {};
        if (!TableRestore::isSafeClientCode(code)) {
            Dialogs::message(this, QStringLiteral("The Code No may not contain quotes or backslashes"));
            return {};
        }
        const auto client = TableBackup::findClient(*m_target, code);
        if (!client.ok()) {
            Dialogs::message(this, client.error().description);
            return {};
        }
        if (!client->found)
            return code;
        switch (Dialogs::ask(this,
                             QStringLiteral("The Code already exist in selected database, Do you want to Delete "
                                            "Existing Data"),
                             Dialogs::Buttons::YesNoCancel, Dialogs::Icon::None, kOrvita)) {
        case Dialogs::Answer::Yes: return code;
        case Dialogs::Answer::No:
            // Codes are kept in capitals, and looked up so.
            code = Dialogs::input(this, QStringLiteral("Please Enter a new Code No"), kOrvita).trimmed().toUpper();
            break;
        default: return {};
        }
    }
}

void Restore::runClientRestore()
{
    const QString code = chooseClientCode();
    if (code.isEmpty()) {
        showTablePage();
        return;
    }
    const TableRestore::ClientCode client{code};
    bool stopped = false;
    const auto run = m_list->run([&](const QString &table) {
        if (stopped || !tableExists(table, &stopped))
            return;
        // From here on every failure is skipped: a delete on a column the table lacks, a row
        // the server refuses, a table whose types cannot be read.
        for (const QString &sql : TableRestore::clientDeletes(table, client.code))
            (void)m_target->execute(sql);
        auto types = TableRestore::fieldTypes(*m_target, table);
        if (!types)
            return;
        (void)TableRestore::insertRows(*m_target, table, QDir(m_extracted).filePath(table), *types, &client,
                                       [](const DbError &) { return true; });
    });
    if (run == TableChecklist::Run::AlreadyRunning || run == TableChecklist::Run::NoneTicked)
        return;
    if (run == TableChecklist::Run::Stopped && !stopped)
        return;
    Dialogs::message(this, QStringLiteral("Restored Sucessfully"));
    closeToolWindow(this);
}

void Restore::closeEvent(QCloseEvent *event)
{
    // A close during the loop reaches here only once the loop has ended (TableChecklist).
    removeExtracted();
    QDialog::closeEvent(event);
}

} // namespace tabulon
