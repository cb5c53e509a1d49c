#include "backup/restore.h"

#include "backup/backuparchive.h"
#include "backup/folderlists.h"
#include "backup/restorecheck.h"
#include "backup/tablebackup.h"
#include "backup/tablerestore.h"
#include "db/connectionstring.h"
#include "db/databasesession.h"
#include "db/tabletransaction.h"
#include "db/writemode.h"
#include "safety/safetynet.h"
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

// The server's error for a table that does not exist.
constexpr int kNoSuchTable = 1146;

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
    // Below the pages: the way out of every page but the progress page.
    m_exit = button(this, "cmdexit", "&E&xit");
    auto *fileLayout = new QGridLayout(m_filePage);
    fileLayout->addWidget(label1, 0, 0, 1, 2);
    fileLayout->addWidget(m_lists->drives(), 1, 0, 1, 2);
    fileLayout->addWidget(m_lists->folders(), 2, 0);
    fileLayout->addWidget(m_lists->files(), 2, 1);
    fileLayout->addWidget(m_path, 3, 0, 1, 2);
    fileLayout->addWidget(fileNext, 4, 0);

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
    layout->addWidget(m_exit, 0, Qt::AlignRight);
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
    m_ended = m_stopped = false;
    m_stopReason.clear();
    m_failures = 0;
    m_firstFailure = {};
    m_clientRows.clear();
    m_otherRows = 0;
    m_exit->hide();
    if (m_clientOnly->isChecked())
        runClientRestore();
    else
        runTableRestore();
}

std::optional<RestoreCheck::Findings> Restore::checkTables(bool deletes, bool client)
{
    const QStringList tables = m_list->tickedTables();
    auto found = RestoreCheck::check(*m_target, tables, m_extracted, deletes);
    if (!found) {
        Dialogs::message(this, found.error().description);
        return std::nullopt;
    }
    if (!found->refusals.isEmpty()) {
        Dialogs::message(this,
                         QStringLiteral("Nothing was restored, because:\n") + found->refusals.join(QLatin1Char('\n')));
        return std::nullopt;
    }
    for (const QString &table : client ? tables : QStringList()) {
        auto rows = RestoreCheck::clientRows(*m_target, table, QDir(m_extracted).filePath(table), m_clientCode);
        if (!rows) {
            Dialogs::message(this, rows.error().description);
            return std::nullopt;
        }
        m_clientRows.insert(table, *rows);
    }
    return *found;
}

bool Restore::keepSafetyCopy(const QString &command, const QStringList &cascaded)
{
    QStringList tables = m_list->tickedTables();
    for (const QString &table : cascaded) {
        if (!tables.contains(table))
            tables << table;
    }
    const DbError error = SafetyNet::protectTables(
        *m_target, command, tables,
        command == QLatin1String("Client Restore") ? SafetyNet::Reach::Rows : SafetyNet::Reach::WholeTable);
    if (error)
        Dialogs::message(this, SafetyNet::failureText(error), Dialogs::Icon::Critical);
    return !error;
}

bool Restore::holdCascades(const RestoreCheck::Findings &found)
{
    if (!found.cascadesAmongTicked)
        return true;
    if (DbError error = m_target->execute(QStringLiteral("SET SESSION foreign_key_checks = 0"))) {
        Dialogs::message(this, error.description);
        return false;
    }
    m_cascadesHeld = true;
    return true;
}

void Restore::releaseCascades()
{
    if (m_cascadesHeld && m_target->isOpen())
        (void)m_target->execute(QStringLiteral("SET SESSION foreign_key_checks = 1"));
    m_cascadesHeld = false;
}

bool Restore::failed(const DbError &error, bool counted)
{
    if (counted) {
        if (m_failures++ == 0)
            m_firstFailure = error;
        return true;
    }
    m_ended = true;
    m_list->busy().requestStop();
    Dialogs::runtimeError(this, SafetyNet::afterCopy(error)); // and the program ends
    return false;
}

void Restore::stop(const QString &reason)
{
    m_stopped = true;
    m_stopReason = reason;
    m_list->busy().requestStop();
}

void Restore::restoreTable(const QString &table, const TableRestore::ClientCode *client)
{
    const bool counted = client != nullptr;
    if (DbError error = m_target->execute(TableRestore::existenceTest(table))) {
        if (error.serverCode != kNoSuchTable) {
            (void)failed(error, counted);
            return;
        }
        if (Dialogs::ask(this, QStringLiteral("This table is not exist in Database, Continue ?")) !=
            Dialogs::Answer::Yes)
            stop(QString());
        return;
    }
    // Everything that can be known before the table changes is checked here: a file that does
    // not fit would otherwise fail after the old rows are gone.
    const QString file = QDir(m_extracted).filePath(table);
    const auto fit = TableRestore::checkFit(*m_target, table, file);
    if (!fit) {
        (void)failed(fit.error(), counted);
        return;
    }
    if (!fit->misfit.isEmpty()) {
        stop(QStringLiteral("The restore stopped at the table %1, which was left as it was: %2")
                 .arg(table, fit->misfit));
        return;
    }
    const QStringList deletes = client ? TableRestore::clientDeletes(table, client->code, fit->types)
                                : m_deleteAll->isChecked() ? QStringList{TableRestore::deleteAllStatement(table)}
                                                           : QStringList();
    // On InnoDB the table is restored whole or not at all: the transaction is rolled back when
    // the restore stops part-way through it.
    TableTransaction transaction(*m_target, table);
    if (transaction.error()) {
        (void)failed(transaction.error(), counted);
        return;
    }
    bool rolledBack = false;
    // True to go on with the table's next statement.
    const auto written = [&](const DbError &error) {
        if (const DbError ended = transaction.afterWrite(error)) {
            rolledBack = true;
            (void)failed(ended, counted);
            return false;
        }
        return !error || failed(error, counted);
    };
    for (const QString &sql : deletes) {
        if (!written(m_target->execute(sql)))
            return;
    }
    // A refused row stops the table restore where it is: what was sent after it would stay in
    // a table without transactions, so there each row waits for the answer to the one before.
    const auto sending = counted || transaction.active() ? StatementPipeline::Sending::Ahead
                                                         : StatementPipeline::Sending::AfterEachAnswer;
    if (DbError error =
            TableRestore::insertRows(*m_target, table, file, fit->columns, client, m_exact, sending, written);
        error && !m_ended && !rolledBack) {
        (void)failed(error, counted); // the file itself, read whole before, fails to read again
        return;
    }
    if (!m_ended && !rolledBack) {
        if (DbError error = transaction.commit())
            (void)failed(error, counted);
    }
}

bool Restore::chooseExactValues(const QString &clientCode)
{
    // Every ticked table's file against its target table, before the first statement that
    // changes anything: for the client restore, the rows it will write under its code.
    m_exact = false;
    if (!ExactValues::checkBeforeWrites())
        return true;
    std::vector<ExactValues::TableFindings> findings;
    for (const QString &table : m_list->tickedTables()) {
        auto columns = TableRestore::fieldColumns(*m_target, table);
        if (!columns)
            continue;
        const TableRestore::ClientCode client{
            clientCode,
            [rows = m_clientRows.value(table)](const std::vector<QByteArray> &row) { return rows.owns(row); }};
        auto found = TableRestore::checkValues(*m_target, table, QDir(m_extracted).filePath(table), *columns,
                                               clientCode.isEmpty() ? nullptr : &client);
        if (found)
            findings.push_back(*found);
    }
    m_exact = false;
    const QString question = ExactValues::question(findings);
    if (question.isEmpty())
        return true;
    switch (Dialogs::ask(this, question, Dialogs::Buttons::YesNoCancel)) {
    case Dialogs::Answer::Yes: m_exact = true; return true;
    case Dialogs::Answer::No: return true;
    default: return false;
    }
}

void Restore::runTableRestore()
{
    runChecked(QStringLiteral("Restore"), m_deleteAll->isChecked(), QString(), [this](const QString &table) {
        if (!m_ended && !m_stopped)
            restoreTable(table, nullptr);
    });
}

void Restore::runChecked(const QString &command, bool deletes, const QString &clientCode,
                         const TableChecklist::TableAction &restoreOne)
{
    const auto found = checkTables(deletes, !clientCode.isEmpty());
    if (!found || !chooseExactValues(clientCode) || !keepSafetyCopy(command, found->cascaded) ||
        !holdCascades(*found)) {
        showTablePage();
        return;
    }
    const WriteSessionMode mode(*m_target);
    if (mode.error()) {
        Dialogs::message(this, mode.error().description);
        releaseCascades();
        showTablePage();
        return;
    }
    const auto run = m_list->run(restoreOne);
    releaseCascades();
    finishRun(run);
}

void Restore::finishRun(TableChecklist::Run run)
{
    if (m_ended || run == TableChecklist::Run::AlreadyRunning || run == TableChecklist::Run::NoneTicked)
        return;
    if (run == TableChecklist::Run::Stopped && !m_stopped)
        return; // the window is closing
    const QString leftOut =
        m_otherRows > 0
            ? QStringLiteral("\n%1 rows of the archive were left out: they are not this client's.").arg(m_otherRows)
            : QString();
    if (!m_stopReason.isEmpty())
        Dialogs::message(this, m_stopReason + leftOut);
    else if (m_failures > 0)
        Dialogs::message(this, QStringLiteral("The restore is done, but %1 of its statements failed. The first: %2")
                                       .arg(m_failures)
                                       .arg(m_firstFailure.description) +
                                   leftOut);
    else
        Dialogs::message(this, QStringLiteral("Restored Sucessfully") + leftOut);
    closeToolWindow(this);
}

QString Restore::chooseClientCode()
{
    QString code =
        Dialogs::input(this, QStringLiteral("Please Enter the Code No to Restore Data"), kOrvita).trimmed().toUpper();
    m_clientCode = code;
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
            // Taken as typed: the operator chooses the new code's spelling.
            code = Dialogs::input(this, QStringLiteral("Please Enter a new Code No"), kOrvita).trimmed();
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
    runChecked(QStringLiteral("Client Restore"), true, code, [this, &code](const QString &table) {
        // From here on failed statements are counted and skipped: a row the server refuses, a
        // table whose fields cannot be read.
        if (m_stopped)
            return;
        const TableRestore::ClientCode client{
            code, [this, rows = m_clientRows.value(table)](const std::vector<QByteArray> &row) {
                if (rows.owns(row))
                    return true;
                ++m_otherRows;
                return false;
            }};
        restoreTable(table, &client);
    });
}

void Restore::closeEvent(QCloseEvent *event)
{
    // A close during the loop reaches here only once the loop has ended (TableChecklist).
    removeExtracted();
    QDialog::closeEvent(event);
}

} // namespace tabulon
