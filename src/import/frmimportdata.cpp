#include "import/frmimportdata.h"

#include "convert/conversionrules.h"
#include "convert/conversionsource.h"
#include "grid/grid.h"
#include "safety/safetynet.h"
#include "ui/dialogs.h"
#include "ui/tablelist.h"
#include "ui/toolhost.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>

#include <algorithm>

namespace tabulon {

namespace {

const QString kNoMatch = QStringLiteral("(no match: skipped)");

QString fields(qsizetype count)
{
    return QString::number(count) + (count == 1 ? QStringLiteral(" field") : QStringLiteral(" fields"));
}

QLabel *label(const QString &text, const QString &name, QWidget *buddy, QWidget *parent)
{
    auto *l = new QLabel(text, parent);
    l->setObjectName(name);
    l->setBuddy(buddy);
    return l;
}

} // namespace

frmimportdata::frmimportdata(ToolHost &host, QWidget *parent)
    : QDialog(parent), m_host(host), m_source(new QLineEdit(this)),
      m_browse(new QPushButton(QStringLiteral("&Browse..."), this)), m_table(new QComboBox(this)),
      m_fields(new QListWidget(this)), m_optNew(new QRadioButton(QStringLiteral("&New table"), this)),
      m_newTable(new QLineEdit(this)), m_optExisting(new QRadioButton(QStringLiteral("&Existing table"), this)),
      m_target(new QComboBox(this)), m_grid(new Grid(this)), m_import(new QPushButton(QStringLiteral("&Import"), this)),
      m_exit(new QPushButton(QStringLiteral("E&xit"), this)), m_bar(new QProgressBar(this)), m_status(new QLabel(this)),
      m_busy(this), m_progress(m_bar, m_status)
{
    setObjectName(QStringLiteral("frmimportdata"));
    setWindowTitle(QStringLiteral("Import Data"));
    m_source->setObjectName(QStringLiteral("txtsource"));
    m_browse->setObjectName(QStringLiteral("cmdbrowse"));
    m_table->setObjectName(QStringLiteral("cbotable"));
    m_fields->setObjectName(QStringLiteral("lstfields"));
    m_optNew->setObjectName(QStringLiteral("optnew"));
    m_newTable->setObjectName(QStringLiteral("txtnewtable"));
    m_optExisting->setObjectName(QStringLiteral("optexisting"));
    m_target->setObjectName(QStringLiteral("cbotarget"));
    m_grid->setObjectName(QStringLiteral("Edi_Gr"));
    m_import->setObjectName(QStringLiteral("cmdimport"));
    m_exit->setObjectName(QStringLiteral("cmdexit"));
    m_bar->setObjectName(QStringLiteral("ProgressBar1"));
    m_status->setObjectName(QStringLiteral("lblstatus"));
    auto *stop = new QPushButton(QStringLiteral("St&op"), this);
    stop->setObjectName(QStringLiteral("cmdstop"));
    stop->setEnabled(false);

    QLabel *sourceLabel = label(QStringLiteral("Source &file"), QStringLiteral("lblsource"), m_source, this);
    QLabel *tableLabel = label(QStringLiteral("&Table"), QStringLiteral("lbltable"), m_table, this);
    QLabel *fieldsLabel = label(QStringLiteral("Fiel&ds to copy"), QStringLiteral("lblfields"), m_fields, this);
    QLabel *gridLabel = label(QStringLiteral("Fields and target columns"), QStringLiteral("lblmatch"), nullptr, this);

    m_optNew->setChecked(true);
    m_target->setEnabled(false);
    m_grid->setFixedCols(0);
    m_grid->setCols(5);
    m_grid->setTextMatrix(0, 0, QStringLiteral("Source Field"));
    m_grid->setTextMatrix(0, 1, QStringLiteral("Type"));
    m_grid->setTextMatrix(0, 2, QStringLiteral("Target Column"));
    m_grid->setTextMatrix(0, 3, QStringLiteral("Column Type"));
    m_grid->setTextMatrix(0, 4, QStringLiteral("Cannot Hold"));
    m_grid->setEditable(false);
    m_bar->setTextVisible(false);

    sourceLabel->setGeometry(16, 18, 90, 20);
    m_source->setGeometry(110, 16, 420, 24);
    m_browse->setGeometry(540, 14, 90, 28);
    tableLabel->setGeometry(16, 54, 90, 20);
    m_table->setGeometry(110, 52, 300, 24);
    fieldsLabel->setGeometry(16, 88, 200, 20);
    m_fields->setGeometry(16, 110, 300, 180);
    m_optNew->setGeometry(332, 110, 200, 22);
    m_newTable->setGeometry(352, 136, 278, 24);
    m_optExisting->setGeometry(332, 176, 200, 22);
    m_target->setGeometry(352, 202, 278, 24);
    gridLabel->setGeometry(16, 300, 300, 20);
    m_grid->setGeometry(16, 322, 614, 150);
    m_bar->setGeometry(16, 482, 614, 16);
    m_status->setGeometry(16, 502, 614, 20);
    m_import->setGeometry(330, 530, 96, 28);
    stop->setGeometry(432, 530, 96, 28);
    m_exit->setGeometry(534, 530, 96, 28);
    setFixedSize(646, 572);
    // Enter in a text box finishes the entry; it must not press a button as well.
    for (QPushButton *button : {m_browse, m_import, stop, m_exit})
        button->setAutoDefault(false);

    m_progress.setBusyState(&m_busy);
    new KeyPreview(this);
    connect(m_browse, &QPushButton::clicked, this, &frmimportdata::browse);
    connect(m_source, &QLineEdit::editingFinished, this, &frmimportdata::openSource);
    connect(m_table, &QComboBox::currentIndexChanged, this, &frmimportdata::tableChosen);
    connect(m_fields, &QListWidget::itemChanged, this, &frmimportdata::refreshMapping);
    connect(m_optNew, &QRadioButton::toggled, this, &frmimportdata::targetChanged);
    connect(m_target, &QComboBox::currentIndexChanged, this, &frmimportdata::targetChanged);
    connect(m_import, &QPushButton::clicked, this, [this, stop] {
        stop->setEnabled(true);
        import();
        stop->setEnabled(false);
    });
    connect(stop, &QPushButton::clicked, this, [this] { m_busy.requestStop(); });
    connect(m_exit, &QPushButton::clicked, this, &frmimportdata::exitAsked);
    noDefaultButtons(this);

    // Nothing here traps: a list the server refuses stays empty.
    (void)fillTableList(m_target, m_host.sessionOrClosed(), QStringLiteral("SHOW Tables"));
    m_target->setCurrentIndex(-1);
    refreshMapping();
}

frmimportdata::~frmimportdata()
{
    // QDialog's destructor hides the window, and the text box's focus-out would then try to
    // open a source on a half-destroyed window.
    disconnect(m_source, nullptr, this, nullptr);
}

void frmimportdata::browse()
{
    const QString path = Dialogs::openFileName(this, QStringLiteral("Access Database|*.mdb|DSN|*.dsn"));
    if (path.isEmpty())
        return;
    m_source->setText(path);
    openSource();
}

void frmimportdata::openSource()
{
    const QString path = m_source->text().trimmed();
    if (path == m_openedPath || m_busy.isBusy())
        return;
    m_openedPath = path;
    m_opened.reset();
    {
        const QSignalBlocker block(m_table);
        m_table->clear();
    }
    if (!path.isEmpty()) {
        // A data source file names its source by its own name, wherever the file lies.
        auto opened = openConversionSource(Conversion::isDataSourceFile(path) ? QFileInfo(path).fileName() : path);
        if (opened.ok()) {
            m_opened = std::move(opened.value());
            const QSignalBlocker block(m_table);
            m_table->addItems(m_opened->tableNames());
        } else {
            Dialogs::message(this, QStringLiteral("The source cannot be opened.\n\n") + opened.error().description,
                             Dialogs::Icon::Critical);
        }
    }
    tableChosen();
}

void frmimportdata::tableChosen()
{
    m_sourceFields.clear();
    {
        const QSignalBlocker block(m_fields);
        m_fields->clear();
    }
    const QString table = m_table->currentText();
    if (m_opened && !table.isEmpty()) {
        auto read = m_opened->readFields(table);
        if (read.ok()) {
            m_sourceFields = std::move(read.value());
            const QSignalBlocker block(m_fields);
            for (const SourceField &field : m_sourceFields) {
                auto *item = new QListWidgetItem(
                    field.name + QStringLiteral("  (") + Import::mappedType(field.type) + QLatin1Char(')'), m_fields);
                item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
                item->setCheckState(Qt::Checked);
            }
        } else {
            Dialogs::message(this, read.error().description, Dialogs::Icon::Critical);
        }
        m_newTable->setText(Import::sanitized(table));
    }
    refreshMapping();
}

void frmimportdata::targetChanged()
{
    const bool existing = m_optExisting->isChecked();
    m_newTable->setEnabled(!existing);
    m_target->setEnabled(existing);
    m_targetColumns.clear();
    if (existing && !m_target->currentText().isEmpty()) {
        // A table that cannot be read matches nothing; the import reads it again and says why.
        if (auto columns = Import::readColumns(m_host.sessionOrClosed(), m_target->currentText()); columns.ok())
            m_targetColumns = std::move(columns.value());
    }
    refreshMapping();
}

std::vector<int> frmimportdata::tickedFields() const
{
    std::vector<int> ticked;
    for (int i = 0; i < m_fields->count(); ++i) {
        if (m_fields->item(i)->checkState() == Qt::Checked)
            ticked.push_back(i);
    }
    return ticked;
}

void frmimportdata::refreshMapping()
{
    const std::vector<int> ticked = tickedFields();
    m_mapping = m_optExisting->isChecked() ? Import::existingTableMapping(m_sourceFields, ticked, m_targetColumns)
                                           : Import::newTableMapping(m_sourceFields, ticked);
    m_grid->setRows(1 + static_cast<int>(m_mapping.size()));
    int row = 1;
    for (const Import::FieldMapping &m : m_mapping) {
        m_grid->setTextMatrix(row, 0, m.field.name);
        m_grid->setTextMatrix(row, 1, Import::mappedType(m.field.type));
        m_grid->setTextMatrix(row, 2, m.column.isEmpty() ? kNoMatch : m.column);
        m_grid->setTextMatrix(row, 3, m.columnType);
        m_grid->setTextMatrix(row, 4, m.column.isEmpty() ? QString() : Import::fitProblem(m.field, m.columnType));
        ++row;
    }
    m_grid->refresh();
    m_grid->autoSize(0, 4);
}

void frmimportdata::import()
{
    if (m_busy.isBusy())
        return;
    openSource(); // a path typed without Enter (an access key presses Import with the focus kept)
    BusyGuard busy(m_busy);
    if (!busy)
        return;
    if (!m_opened || m_table->currentText().isEmpty()) {
        Dialogs::message(this, QStringLiteral("Choose a source file and one of its tables first."),
                         Dialogs::Icon::Exclamation);
        return;
    }
    if (tickedFields().empty()) {
        Dialogs::message(this, QStringLiteral("No field has been selected."), Dialogs::Icon::Exclamation);
        return;
    }
    DatabaseSession &session = m_host.sessionOrClosed();
    Import::Plan plan;
    plan.sourceTable = m_table->currentText();
    plan.newTable = m_optNew->isChecked();
    if (plan.newTable) {
        plan.targetTable = m_newTable->text().trimmed();
        if (plan.targetTable.isEmpty()) {
            Dialogs::message(this, QStringLiteral("Enter the name of the new table."), Dialogs::Icon::Exclamation);
            return;
        }
        const auto exists = Import::tableExists(session, plan.targetTable);
        if (!exists.ok() || exists.value()) {
            Dialogs::message(this,
                             exists.ok() ? QStringLiteral("Table '%1' already exists. Nothing has been imported.\n\n"
                                                          "Enter another name, or choose it as the existing table.")
                                               .arg(plan.targetTable)
                                         : exists.error().description,
                             Dialogs::Icon::Exclamation);
            return;
        }
    } else {
        plan.targetTable = m_target->currentText();
        if (plan.targetTable.isEmpty()) {
            Dialogs::message(this, QStringLiteral("Choose the table to import into."), Dialogs::Icon::Exclamation);
            return;
        }
        // The columns as they are now, not as they were when the table was chosen.
        auto columns = Import::readColumns(session, plan.targetTable);
        if (!columns.ok()) {
            Dialogs::message(this, columns.error().description, Dialogs::Icon::Critical);
            return;
        }
        m_targetColumns = std::move(columns.value());
    }
    refreshMapping();
    plan.mapping = m_mapping;

    const int matched = Import::matchedCount(plan.mapping);
    const qsizetype skipped = static_cast<qsizetype>(plan.mapping.size()) - matched;
    if (matched == 0) {
        Dialogs::message(this,
                         QStringLiteral("None of the ticked fields matches a column of table '%1'. "
                                        "Nothing has been imported.")
                             .arg(plan.targetTable),
                         Dialogs::Icon::Exclamation);
        return;
    }
    QString question = QStringLiteral("Import %1 of table '%2' into the %3 table '%4'?")
                           .arg(fields(matched), plan.sourceTable,
                                plan.newTable ? QStringLiteral("new") : QStringLiteral("existing"), plan.targetTable);
    if (skipped > 0)
        question += skipped == 1
                        ? QStringLiteral("\n\n1 ticked field matches no column and will be skipped.")
                        : QStringLiteral("\n\n%1 ticked fields match no column and will be skipped.").arg(skipped);
    const auto unfit = std::count_if(plan.mapping.begin(), plan.mapping.end(), [](const Import::FieldMapping &m) {
        return !m.column.isEmpty() && !Import::fitProblem(m.field, m.columnType).isEmpty();
    });
    if (unfit == 1)
        question += QStringLiteral("\n\n1 column cannot hold every value its field may bring (marked in the grid): "
                                   "such values are changed or refused by the server.");
    else if (unfit > 1)
        question += QStringLiteral("\n\n%1 columns cannot hold every value their fields may bring (marked in the "
                                   "grid): such values are changed or refused by the server.")
                        .arg(unfit);
    if (Dialogs::ask(this, question, Dialogs::Buttons::YesNo, Dialogs::Icon::Question) != Dialogs::Answer::Yes)
        return;
    copyRows(plan);
}

void frmimportdata::copyRows(const Import::Plan &plan)
{
    DatabaseSession &session = m_host.sessionOrClosed();
    if (!plan.newTable) {
        if (const DbError error =
                SafetyNet::protectTables(session, QStringLiteral("Import Data"), {plan.targetTable})) {
            Dialogs::message(this, SafetyNet::failureText(error), Dialogs::Icon::Critical);
            return;
        }
    }

    // The choices stay as they are while the copy yields to events.
    const QList<QWidget *> inputs = {m_source,   m_browse,      m_table,  m_fields, m_optNew,
                                     m_newTable, m_optExisting, m_target, m_import};
    for (QWidget *input : inputs)
        input->setEnabled(false);
    const auto keep = [this](const Import::Outcome &sofar) {
        const QString question =
            QStringLiteral("The import %1 after %2 rows.\n\nKeep the rows copied so far? No rolls them back.")
                .arg(sofar.stopped ? QStringLiteral("was stopped") : QStringLiteral("failed"))
                .arg(sofar.copied + sofar.changed);
        return Dialogs::ask(this, question, Dialogs::Buttons::YesNo, Dialogs::Icon::Question) == Dialogs::Answer::Yes;
    };
    const Import::Outcome outcome = Import::run(*m_opened, session, plan, m_progress, keep);
    for (QWidget *input : inputs)
        input->setEnabled(true);
    m_newTable->setEnabled(plan.newTable);
    m_target->setEnabled(!plan.newTable);

    // A table the run created joins the list of existing ones.
    if (plan.newTable && m_target->findText(plan.targetTable, Qt::MatchFixedString | Qt::MatchCaseSensitive) < 0) {
        const QSignalBlocker block(m_target);
        m_target->clear();
        (void)fillTableList(m_target, session, QStringLiteral("SHOW Tables"));
        m_target->setCurrentIndex(-1);
    }

    QString summary;
    if (outcome.error)
        summary = QStringLiteral("The import failed.\n\n") + outcome.error.description + QStringLiteral("\n\n");
    else if (outcome.stopped)
        summary = QStringLiteral("The import was stopped.\n\n");
    else
        summary = QStringLiteral("The import is complete.\n\n");
    summary += QStringLiteral("Rows copied: %1\nRows changed: %2\nRows refused: %3")
                   .arg(outcome.copied)
                   .arg(outcome.changed)
                   .arg(outcome.refused);
    if (outcome.tooLong > 0)
        summary += QStringLiteral("\nRows too long for the server (max_allowed_packet): %1").arg(outcome.tooLong);
    if (outcome.transactionLost)
        summary += QStringLiteral("\n\nThe server ended the transaction: the %1 rows it had taken are not in the "
                                  "table, and the copy stopped there.")
                       .arg(outcome.lost);
    else if (outcome.lost > 0)
        summary += QStringLiteral("\n\n%1 rows the server had taken are not in the table.").arg(outcome.lost);
    if (outcome.counted)
        summary += QStringLiteral("\n\nCounted afterwards, the table keeps %1 rows of this import.")
                       .arg(outcome.copied + outcome.changed);
    else if (!outcome.uncounted.isEmpty())
        summary += QStringLiteral("\n\nHow many rows the table keeps could not be counted: ") + outcome.uncounted;
    if (outcome.rolledBack)
        summary += QStringLiteral("\n\nThe rows copied have been rolled back.");
    else if ((outcome.stopped || outcome.error) && !outcome.transactional && outcome.copied + outcome.changed > 0)
        summary += QStringLiteral("\n\nThe rows copied stay in the table: its engine takes no transactions.");
    if (!outcome.warnings.isEmpty())
        summary += QStringLiteral("\n\nFirst warnings:\n") + outcome.warnings.join(QLatin1Char('\n'));
    if (!outcome.refusals.isEmpty())
        summary += QStringLiteral("\n\nFirst refusals:\n") + outcome.refusals.join(QLatin1Char('\n'));
    m_status->setText(QStringLiteral("Rows copied: %1, changed: %2, refused: %3")
                          .arg(outcome.copied)
                          .arg(outcome.changed)
                          .arg(outcome.refused) +
                      (outcome.tooLong > 0 ? QStringLiteral(", too long: %1").arg(outcome.tooLong) : QString()) +
                      (outcome.lost > 0 ? QStringLiteral(", lost: %1").arg(outcome.lost) : QString()));
    const bool clean = !outcome.error && !outcome.stopped && outcome.refused == 0 && outcome.changed == 0;
    Dialogs::message(this, summary, clean ? Dialogs::Icon::Information : Dialogs::Icon::Exclamation);
}

void frmimportdata::exitAsked()
{
    if (confirmExit(this))
        closeToolWindow(this);
}

void frmimportdata::closeEvent(QCloseEvent *event)
{
    if (!m_busy.closeRequested()) {
        event->ignore();
        return;
    }
    QDialog::closeEvent(event);
}

} // namespace tabulon
