#include "data/search.h"

#include "data/tabledata.h"
#include "data/tablesearch.h"
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
#include <QRadioButton>

namespace tabulon {

namespace {

const QString kSearchCaption = QStringLiteral("&Search");
const QString kStopCaption = QStringLiteral("S&top");

// Room the resize rule keeps free below the grid (1000 twips).
constexpr int kBottomMargin = 67;
constexpr int kGridTop = 150;

} // namespace

Search::Search(ToolHost &host, TableDataAccess tableData, QWidget *parent)
    : QWidget(parent), m_host(host), m_tableData(std::move(tableData)),
      m_label(new QLabel(QStringLiteral("Search Data"), this)), m_text(new QLineEdit(this)),
      m_frame(new QGroupBox(QStringLiteral("Search In"), this)),
      m_selected(new QRadioButton(QStringLiteral("Selected Table"), m_frame)),
      m_all(new QRadioButton(QStringLiteral("All Tables"), m_frame)), m_combo(new QComboBox(m_frame)),
      m_button(new QPushButton(kSearchCaption, this)), m_grid(new Grid(this)), m_bar(new QProgressBar(this)),
      m_status(new QLabel(this)), m_busy(this)
{
    setObjectName(QStringLiteral("Search"));
    setWindowTitle(QStringLiteral("Search"));
    m_label->setObjectName(QStringLiteral("Label1"));
    m_text->setObjectName(QStringLiteral("txtsdata"));
    m_frame->setObjectName(QStringLiteral("frame1"));
    m_selected->setObjectName(QStringLiteral("optseltab"));
    m_all->setObjectName(QStringLiteral("optall"));
    m_combo->setObjectName(QStringLiteral("Combo1"));
    m_button->setObjectName(QStringLiteral("cmdsearch"));
    m_bar->setObjectName(QStringLiteral("ProgressBar1"));
    m_status->setObjectName(QStringLiteral("lblstatus"));

    m_label->setGeometry(8, 12, 90, 20);
    m_text->setGeometry(100, 8, 260, 24);
    m_frame->setGeometry(8, 40, 520, 70);
    m_selected->setGeometry(10, 22, 120, 20);
    m_all->setGeometry(10, 44, 120, 20);
    m_combo->setGeometry(140, 22, 240, 24);
    m_button->setGeometry(540, 60, 90, 28);
    m_bar->setGeometry(8, 118, 420, 20);
    m_status->setGeometry(440, 118, 300, 20);
    m_grid->setGeometry(8, kGridTop, 620, 360);
    resize(760, kGridTop + 360 + kBottomMargin);

    m_progress = std::make_unique<ProgressView>(m_bar, m_status);
    m_progress->setBusyState(&m_busy);
    new KeyPreview(this);

    m_grid->setEditable(false);
    m_grid->setCols(3);
    m_grid->setColHidden(2, true);
    m_grid->autoSize(0, m_grid->cols() - 1);

    // One table at a time by default; the list starts with none chosen.
    m_selected->setChecked(true);
    connect(m_selected, &QRadioButton::toggled, this, [this](bool on) {
        if (on)
            m_combo->setEnabled(true);
    });
    connect(m_all, &QRadioButton::toggled, this, [this](bool on) {
        if (on)
            m_combo->setEnabled(false);
    });
    connect(m_button, &QPushButton::clicked, this, &Search::StartOrStop);
    connect(m_grid, &Grid::cellDoubleClicked, this, &Search::OpenHit);

    if (const DbError error = fillTableList(m_combo, m_host.sessionOrClosed(), QStringLiteral("SHOW Tables"))) {
        Dialogs::runtimeError(this, error);
        return;
    }
    m_combo->setCurrentIndex(-1);
}

Search::~Search() = default;

void Search::StartOrStop()
{
    if (m_button->text() != kSearchCaption) {
        m_busy.requestStop();
        return;
    }
    m_button->setText(kStopCaption);
    if (m_all->isChecked()) {
        SearchTables(0, m_combo->count() - 1);
    } else if (m_selected->isChecked()) {
        // The caption stays at "S&top": only a finished search restores it.
        if (m_combo->currentIndex() < 0) {
            Dialogs::message(this, QStringLiteral("Select a Table"));
            return;
        }
        SearchTables(m_combo->currentIndex(), m_combo->currentIndex());
    }
}

void Search::SearchTables(int first, int last)
{
    BusyGuard busy(m_busy);
    if (!busy)
        return;
    m_grid->setRows(1);
    m_grid->refresh();

    QStringList tables;
    tables.reserve(m_combo->count());
    for (int i = 0; i < m_combo->count(); ++i)
        tables << m_combo->itemText(i);
    // Every table searched is repaired first, which can drop rows of a MyISAM or Aria table it
    // cannot read: their files are copied before the first one.
    if (const DbError copy = SafetyNet::protectTableFiles(m_host.sessionOrClosed(), QStringLiteral("Search"),
                                                          tables.mid(first, last - first + 1))) {
        m_button->setText(kSearchCaption);
        Dialogs::message(this, SafetyNet::failureText(copy), Dialogs::Icon::Critical);
        return;
    }
    const DbError error =
        TableSearch::searchTables(m_host.sessionOrClosed(), tables, first, last, m_text->text(), *m_progress,
                                  [this](const TableSearch::TableHit &hit) { addHit(hit.table, hit.position); });
    m_button->setText(kSearchCaption);
    if (error)
        Dialogs::runtimeError(this, error);
}

void Search::addHit(const QString &table, int position)
{
    const int row = m_grid->rows();
    m_grid->setRows(row + 1);
    m_grid->setTextMatrix(row, 0, QString::number(row));
    m_grid->setTextMatrix(row, 1, table);
    m_grid->setTextMatrix(row, 2, QString::number(position));
    m_grid->refresh();
    m_grid->autoSize(0, m_grid->cols() - 1);
}

void Search::OpenHit()
{
    const int row = m_grid->row();
    if (row < 1 || row >= m_grid->rows() || !m_tableData.ensure)
        return;
    TableData *tableData = m_tableData.ensure();
    if (!tableData)
        return;
    // The position is taken as it is: both lists come from the same "SHOW Tables".
    bool ok = false;
    const int position = m_grid->textMatrix(row, 2).toInt(&ok);
    if (ok)
        tableData->selectTable(position);
    tableData->setTableListEnabled(false);
    if (m_tableData.show)
        m_tableData.show();
}

void Search::closeEvent(QCloseEvent *event)
{
    // A close during a search stops it first; the close follows when the search has ended.
    if (!m_busy.closeRequested()) {
        event->ignore();
        return;
    }
    QWidget::closeEvent(event);
}

void Search::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    m_grid->resize(m_grid->width(), std::max(0, height() - m_grid->y() - kBottomMargin));
}

} // namespace tabulon
