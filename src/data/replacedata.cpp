#include "data/replacedata.h"

#include "data/tablesearch.h"
#include "db/dberror.h"
#include "db/writemode.h"
#include "grid/grid.h"
#include "safety/safetynet.h"
#include "ui/dialogs.h"
#include "ui/progressview.h"
#include "ui/tablelist.h"
#include "ui/toolhost.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QScopeGuard>

#include <optional>

namespace tabulon {

namespace {

const QString kFindCaption = QStringLiteral("Find");
const QString kStopCaption = QStringLiteral("Stop");
constexpr int kClientCodeEntry = 0;
constexpr int kOthersEntry = 1;

// Hit grid columns.
constexpr int kTableCol = 0;
constexpr int kFieldCol = 1;
constexpr int kValueCol = 2;
constexpr int kTablePosCol = 3;
constexpr int kFieldPosCol = 4;
constexpr int kHitCol = 5; // the hit's place in m_hits; grid rows move when sorted
constexpr int kHitCols = 6;

constexpr int kGridTop = 150;
constexpr int kBottomMargin = 67; // 1000 twips kept free below the grid

} // namespace

ReplaceData::ReplaceData(ToolHost &host, QWidget *parent)
    : QWidget(parent), m_host(host), m_findFrame(new QGroupBox(this)),
      m_findLabel(new QLabel(QStringLiteral("Find Data"), m_findFrame)), m_find(new QLineEdit(m_findFrame)),
      m_replaceLabel(new QLabel(QStringLiteral("Replace With:"), m_findFrame)), m_replace(new QLineEdit(m_findFrame)),
      m_fieldLabel(new QLabel(QStringLiteral("Find in Field"), m_findFrame)), m_field(new QComboBox(m_findFrame)),
      m_findButton(new QPushButton(kFindCaption, m_findFrame)), m_tables(new QComboBox(this)),
      m_replaceFrame(new QGroupBox(this)), m_rep(new QPushButton(QStringLiteral("&Replace"), m_replaceFrame)),
      m_repAll(new QPushButton(QStringLiteral("Replace &All"), m_replaceFrame)),
      m_ignore(new QPushButton(QStringLiteral("I&gnore"), m_replaceFrame)),
      m_cancel(new QPushButton(QStringLiteral("&Cancel"), m_replaceFrame)), m_grid(new Grid(this)),
      m_bar(new QProgressBar(this)), m_status(new QLabel(this)), m_busy(this)
{
    setObjectName(QStringLiteral("ReplaceData"));
    setWindowTitle(QStringLiteral("Replace"));
    m_findFrame->setObjectName(QStringLiteral("Frame1"));
    m_findLabel->setObjectName(QStringLiteral("Label1"));
    m_find->setObjectName(QStringLiteral("txtfind"));
    m_replaceLabel->setObjectName(QStringLiteral("Label2"));
    m_replace->setObjectName(QStringLiteral("txtreplace"));
    m_fieldLabel->setObjectName(QStringLiteral("Label3"));
    m_field->setObjectName(QStringLiteral("cbofield"));
    m_findButton->setObjectName(QStringLiteral("cmdfind"));
    m_tables->setObjectName(QStringLiteral("Combo1"));
    m_replaceFrame->setObjectName(QStringLiteral("Frame2"));
    m_rep->setObjectName(QStringLiteral("cmdrep"));
    m_repAll->setObjectName(QStringLiteral("cmdrepall"));
    m_ignore->setObjectName(QStringLiteral("cmdignore"));
    m_cancel->setObjectName(QStringLiteral("cmdcancel"));
    m_bar->setObjectName(QStringLiteral("ProgressBar1"));
    m_status->setObjectName(QStringLiteral("lblstatus"));

    m_findFrame->setGeometry(8, 4, 640, 104);
    m_findLabel->setGeometry(10, 14, 90, 20);
    m_find->setGeometry(110, 10, 240, 24);
    m_replaceLabel->setGeometry(10, 44, 90, 20);
    m_replace->setGeometry(110, 40, 240, 24);
    m_fieldLabel->setGeometry(10, 74, 90, 20);
    m_field->setGeometry(110, 70, 240, 24);
    m_findButton->setGeometry(380, 40, 90, 28);
    m_replaceFrame->setGeometry(8, 4, 640, 104);
    m_rep->setGeometry(10, 40, 100, 28);
    m_ignore->setGeometry(120, 40, 100, 28);
    m_repAll->setGeometry(230, 40, 100, 28);
    m_cancel->setGeometry(340, 40, 100, 28);
    m_bar->setGeometry(8, 118, 420, 20);
    m_status->setGeometry(440, 118, 300, 20);
    m_grid->setGeometry(8, kGridTop, 640, 360);
    resize(760, kGridTop + 360 + kBottomMargin);

    // The scan's table list: the operator never picks from it.
    m_tables->hide();
    m_replaceFrame->hide();
    m_grid->hide();
    m_findButton->setEnabled(false);

    m_progress = std::make_unique<ProgressView>(m_bar, m_status);
    m_progress->setBusyState(&m_busy);
    new KeyPreview(this);

    m_grid->setEditable(false);
    m_grid->setCols(kHitCols);
    m_grid->setColHidden(kTablePosCol, true);
    m_grid->setColHidden(kFieldPosCol, true);
    m_grid->setColHidden(kHitCol, true);

    m_field->addItems({QStringLiteral("Code, Code_no, Codeno"), QStringLiteral("Others")});
    m_field->setCurrentIndex(kOthersEntry);

    connect(m_find, &QLineEdit::textChanged, this, [this](const QString &text) {
        // A running scan keeps its Stop button whatever happens to the text.
        if (!m_busy.isBusy())
            m_findButton->setEnabled(!text.trimmed().isEmpty());
    });
    connect(m_findButton, &QPushButton::clicked, this, &ReplaceData::StartFind);
    // While Replace All runs (a message box of it lets clicks through), single steps wait.
    connect(m_rep, &QPushButton::clicked, this, [this] {
        if (!m_busy.isBusy())
            actOnCurrent(Step::Replace);
    });
    connect(m_ignore, &QPushButton::clicked, this, [this] {
        if (!m_busy.isBusy())
            actOnCurrent(Step::Ignore);
    });
    connect(m_repAll, &QPushButton::clicked, this, &ReplaceData::replaceAll);
    connect(m_cancel, &QPushButton::clicked, this, &ReplaceData::cancel);

    if (const DbError error = fillTableList(m_tables, m_host.sessionOrClosed(), QStringLiteral("SHOW Tables")))
        Dialogs::runtimeError(this, error);
}

ReplaceData::~ReplaceData() = default;

void ReplaceData::StartFind()
{
    if (m_findButton->text() != kFindCaption) {
        m_busy.requestStop();
        return;
    }
    const int kind = m_field->currentIndex();
    if (kind < 0) {
        Dialogs::message(this, QStringLiteral("Please select a field name"));
        return;
    }
    lockTexts();
    // The find repairs every table it reads (and the two tables of client codes), which can
    // drop rows of a MyISAM or Aria table the repair cannot read: their files are copied first.
    QStringList repaired;
    if (kind == kClientCodeEntry)
        repaired << QStringLiteral("main_info1") << QStringLiteral("owner1");
    for (int i = 0; i < m_tables->count(); ++i)
        repaired << m_tables->itemText(i);
    repaired.removeDuplicates();
    if (const DbError error =
            SafetyNet::protectTableFiles(m_host.sessionOrClosed(), QStringLiteral("Replace Find"), repaired)) {
        unlockTexts();
        Dialogs::message(this, SafetyNet::failureText(error), Dialogs::Icon::Critical);
        return;
    }
    if (kind == kClientCodeEntry) {
        const DbResult<bool> exists = TableSearch::clientCodeExists(m_host.sessionOrClosed(), m_replaceText);
        if (!exists.ok()) {
            unlockTexts();
            Dialogs::runtimeError(this, exists.error());
            return;
        }
        if (exists.value()) {
            unlockTexts();
            Dialogs::message(this, QStringLiteral("The Code is already exist"));
            return;
        }
    }
    ScanTables();
}

void ReplaceData::ScanTables()
{
    BusyGuard busy(m_busy);
    if (!busy)
        return;
    lockTexts();
    m_findButton->setText(kStopCaption);
    m_findButton->setEnabled(true);
    m_hits.clear();
    m_grid->setRows(1);
    m_grid->refresh();
    m_grid->show();

    QStringList tables;
    tables.reserve(m_tables->count());
    for (int i = 0; i < m_tables->count(); ++i)
        tables << m_tables->itemText(i);
    const DbError error = TableSearch::scanTables(m_host.sessionOrClosed(), tables, m_findText, *m_progress,
                                                  [this](const TableSearch::FieldHits &hits) { addHits(hits); });
    m_findButton->setText(kFindCaption);
    m_findButton->setEnabled(!m_find->text().trimmed().isEmpty());
    if (error) {
        unlockTexts();
        Dialogs::runtimeError(this, error);
        return;
    }
    if (m_grid->rows() > 1) {
        m_findFrame->hide();
        m_replaceFrame->show();
        m_grid->setCurrentCell(1, kValueCol);
    } else {
        unlockTexts();
        Dialogs::message(this, QStringLiteral("No Matching Record Found"));
    }
}

void ReplaceData::lockTexts()
{
    if (m_textsLocked)
        return;
    m_findText = m_find->text();
    m_replaceText = m_replace->text();
    m_find->setReadOnly(true);
    m_replace->setReadOnly(true);
    m_textsLocked = true;
}

void ReplaceData::unlockTexts()
{
    m_find->setReadOnly(false);
    m_replace->setReadOnly(false);
    m_textsLocked = false;
}

void ReplaceData::addHits(const TableSearch::FieldHits &hits)
{
    const int first = m_grid->rows();
    const int last = first + static_cast<int>(hits.hits.size()) - 1;
    const int firstHit = static_cast<int>(m_hits.size());
    m_hits.insert(m_hits.end(), hits.hits.begin(), hits.hits.end());
    GridData &cells = m_grid->cells();
    cells.setRows(last + 1);
    const QString tablePos = QString::number(hits.tablePosition);
    const QString fieldPos = QString::number(hits.fieldPosition);
    cells.setColumnTexts(kTableCol, first, last, [&hits](int) { return hits.table; });
    cells.setColumnTexts(kFieldCol, first, last, [&hits](int) { return hits.field; });
    cells.setColumnTexts(kValueCol, first, last,
                         [&hits, first](int row) { return hits.hits[static_cast<size_t>(row - first)].foundValue; });
    cells.setColumnTexts(kTablePosCol, first, last, [&tablePos](int) { return tablePos; });
    cells.setColumnTexts(kFieldPosCol, first, last, [&fieldPos](int) { return fieldPos; });
    cells.setColumnTexts(kHitCol, first, last,
                         [firstHit, first](int row) { return QString::number(firstHit + row - first); });
    m_grid->refresh();
    m_grid->autoSize(0, kValueCol);
}

TableSearch::Hit *ReplaceData::hitOfRow(int row)
{
    bool ok = false;
    const int index = m_grid->textMatrix(row, kHitCol).toInt(&ok);
    if (!ok || index < 0 || index >= static_cast<int>(m_hits.size()))
        return nullptr;
    return &m_hits[static_cast<size_t>(index)];
}

bool ReplaceData::ReplaceHit(int row)
{
    return replaceRow(row, true) != Done::Failed;
}

ReplaceData::Done ReplaceData::replaceRow(int row, bool tellUnchanged)
{
    TableSearch::Hit *hit = hitOfRow(row);
    if (!hit)
        return Done::Unchanged;
    // Replace All holds the write mode for all of its hits.
    std::optional<WriteSessionMode> mode;
    if (!m_replacingAll)
        mode.emplace(m_host.sessionOrClosed());
    const auto outcome = TableSearch::replaceHit(m_host.sessionOrClosed(), *hit, m_findText, m_replaceText);
    if (!outcome.ok()) {
        const DbError error = outcome.error();
        Dialogs::message(this, SafetyNet::afterCopy(error).description);
        // A record that can no longer be located was left as it was: the other hits can go on.
        return error.number == AdoError::RowNotFound ? Done::Told : Done::Failed;
    }
    switch (outcome->outcome) {
    case TableSearch::ReplaceOutcome::Replaced:
        TableSearch::followReplacement(m_hits, *hit, outcome->written);
        return Done::Replaced;
    case TableSearch::ReplaceOutcome::RowChanged:
        if (!tellUnchanged)
            return Done::Unchanged;
        Dialogs::message(this, QStringLiteral("The row of this hit no longer holds %1 in %2 of %3; it was not changed.")
                                   .arg(hit->foundValue, hit->field, hit->table));
        return Done::Told;
    case TableSearch::ReplaceOutcome::NotFindText:
        if (!tellUnchanged)
            return Done::Unchanged;
        Dialogs::message(this, QStringLiteral("%1 in %2 of %3 is not the text looked for (%4); it was not changed.")
                                   .arg(hit->foundValue, hit->field, hit->table, m_findText));
        return Done::Told;
    }
    return Done::Unchanged;
}

bool ReplaceData::actOnCurrent(Step step)
{
    const int row = m_grid->row();
    const int rows = m_grid->rows();
    if (row < 1 || row >= rows)
        return true;
    // Replace All has copied every table with a hit already.
    if (step == Step::Replace && !m_replacingAll &&
        !keepSafetyCopy(QStringLiteral("Replace"), {m_grid->textMatrix(row, kTableCol)}))
        return false;
    // A failed replacement keeps its row selected, so that the operator sees which one it was.
    if (step == Step::Replace && !ReplaceHit(row))
        return false;
    m_grid->setCurrentCell(row + 1 < rows ? row + 1 : 1, kValueCol);
    return true;
}

bool ReplaceData::keepSafetyCopy(const QString &command, const QStringList &tables)
{
    // Each replacement repairs its table first: the files of those a repair can change, then
    // the rows the replacements change.
    DbError error = SafetyNet::protectTableFiles(m_host.sessionOrClosed(), command, tables);
    if (!error)
        error = SafetyNet::protectTables(m_host.sessionOrClosed(), command, tables, SafetyNet::Reach::Rows);
    if (error)
        Dialogs::message(this, SafetyNet::failureText(error), Dialogs::Icon::Critical);
    return !error;
}

void ReplaceData::replaceAll()
{
    BusyGuard busy(m_busy);
    if (!busy)
        return;
    const int rows = m_grid->rows();
    // One copy of every table that holds a hit, before the first hit is replaced.
    QStringList tables;
    for (int row = 1; row < rows; ++row) {
        if (const TableSearch::Hit *hit = hitOfRow(row))
            tables << hit->table;
    }
    tables.removeDuplicates();
    if (!keepSafetyCopy(QStringLiteral("Replace All"), tables))
        return;
    const WriteSessionMode mode(m_host.sessionOrClosed());
    m_replacingAll = true;
    const auto resetFlag = qScopeGuard([this] { m_replacingAll = false; });
    // Hits left unchanged are told about once, at the end, not one message each.
    int unchanged = 0;
    for (int row = 1; row < rows; ++row) {
        m_grid->setCurrentCell(row, kValueCol);
        const Done done = replaceRow(row, false);
        if (done == Done::Failed)
            return;
        if (done == Done::Unchanged)
            ++unchanged;
        m_grid->setCurrentCell(row + 1 < rows ? row + 1 : 1, kValueCol);
    }
    if (unchanged > 0)
        Dialogs::message(this, QStringLiteral("%1 of the %2 hits were not changed: their rows no longer hold the value "
                                              "found, or it is not the text looked for (%3).")
                                   .arg(unchanged)
                                   .arg(rows - 1)
                                   .arg(m_findText));
}

void ReplaceData::cancel()
{
    unlockTexts();
    m_replaceFrame->hide();
    m_grid->hide();
    m_findFrame->show();
}

void ReplaceData::closeEvent(QCloseEvent *event)
{
    // A close during a scan stops it first; the close follows when the scan has ended.
    if (!m_busy.closeRequested()) {
        event->ignore();
        return;
    }
    QWidget::closeEvent(event);
}

void ReplaceData::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    m_grid->resize(m_grid->width(), std::max(0, height() - m_grid->y() - kBottomMargin));
}

} // namespace tabulon
