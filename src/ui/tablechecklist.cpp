#include "ui/tablechecklist.h"

#include "db/tablenames.h"
#include "ui/dialogs.h"

#include <QCloseEvent>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QRadioButton>
#include <QVBoxLayout>

namespace tabulon {

TableChecklist::TableChecklist(const QString &verb, const QStringList &tables, QWidget *parent)
    : QWidget(parent), m_verb(verb), m_selectionPage(new QFrame(this)), m_progressPage(new QFrame(this)),
      m_list(new QListWidget(m_selectionPage)),
      m_optAll(new QRadioButton(QStringLiteral("Select All"), m_selectionPage)),
      m_optDeselAll(new QRadioButton(QStringLiteral("Deselect All"), m_selectionPage)),
      m_selectionButtons(new QHBoxLayout), m_bar(new QProgressBar(m_progressPage)),
      m_status(new QLabel(m_progressPage)), m_busy(parent), m_progress(m_bar, m_status)
{
    setObjectName(QStringLiteral("TableChecklist"));
    m_selectionPage->setObjectName(QStringLiteral("Frame2"));
    m_progressPage->setObjectName(QStringLiteral("Frame3"));
    m_list->setObjectName(QStringLiteral("lsttables"));
    m_optAll->setObjectName(QStringLiteral("optall"));
    m_optDeselAll->setObjectName(QStringLiteral("optdeselall"));
    m_bar->setObjectName(QStringLiteral("pb1"));
    m_status->setObjectName(QStringLiteral("lblcopying"));

    m_selectionPage->setFrameShape(QFrame::StyledPanel);
    m_progressPage->setFrameShape(QFrame::StyledPanel);
    m_list->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_bar->setTextVisible(false);

    auto *options = new QHBoxLayout;
    options->addWidget(m_optAll);
    options->addWidget(m_optDeselAll);
    options->addStretch();
    auto *selection = new QVBoxLayout(m_selectionPage);
    selection->addWidget(m_list, 1);
    selection->addLayout(options);
    m_selectionButtons->addStretch();
    selection->addLayout(m_selectionButtons);

    auto *progress = new QVBoxLayout(m_progressPage);
    progress->addStretch();
    progress->addWidget(m_bar);
    progress->addWidget(m_status);
    progress->addStretch();

    auto *pages = new QVBoxLayout(this);
    pages->setContentsMargins(0, 0, 0, 0);
    pages->addWidget(m_selectionPage);
    pages->addWidget(m_progressPage);
    m_progressPage->hide();

    m_progress.setFormat(
        [this](const QString &name, int index, int total) { return statusText(m_verb, name, index, total); });
    m_progress.setBusyState(&m_busy);

    // Clicking an option that is already set runs its rule again, as the first click did.
    connect(m_optAll, &QRadioButton::clicked, this, [this] {
        if (m_optAll->isChecked())
            selectAll();
    });
    connect(m_optDeselAll, &QRadioButton::clicked, this, [this] {
        if (m_optDeselAll->isChecked())
            deselectAll();
    });

    setTables(tables);
    if (parent)
        parent->installEventFilter(this);
}

TableChecklist::~TableChecklist() = default;

bool TableChecklist::eventFilter(QObject *watched, QEvent *event)
{
    // A close during run() becomes a stop; the busy state closes the window when run() ends.
    if (event->type() == QEvent::Close && watched == parent() && !m_busy.closeRequested()) {
        event->ignore();
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

QString TableChecklist::statusText(const QString &verb, const QString &name, int index, int total)
{
    return verb + name + QLatin1Char('(') + QString::number(index) + QStringLiteral(" of ") + QString::number(total) +
           QLatin1Char(')');
}

DbError TableChecklist::fillTables(DatabaseSession &session)
{
    auto names = readFirstColumn(session, QStringLiteral("SHOW Tables"));
    if (!names.ok()) {
        setTables({});
        return names.error();
    }
    setTables(*names);
    return {};
}

void TableChecklist::setTables(const QStringList &tables)
{
    m_list->clear();
    for (const QString &name : tables) {
        auto *item = new QListWidgetItem(name, m_list);
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        item->setCheckState(Qt::Unchecked);
    }
}

QStringList TableChecklist::tables() const
{
    QStringList out;
    for (int i = 0; i < m_list->count(); ++i)
        out << m_list->item(i)->text();
    return out;
}

QStringList TableChecklist::tickedTables() const
{
    QStringList out;
    for (int i = 0; i < m_list->count(); ++i) {
        if (m_list->item(i)->checkState() == Qt::Checked)
            out << m_list->item(i)->text();
    }
    return out;
}

int TableChecklist::tickedCount() const
{
    int count = 0;
    for (int i = 0; i < m_list->count(); ++i) {
        if (m_list->item(i)->checkState() == Qt::Checked)
            ++count;
    }
    return count;
}

void TableChecklist::setTicked(const QString &table, bool ticked)
{
    for (int i = 0; i < m_list->count(); ++i) {
        if (m_list->item(i)->text() == table)
            m_list->item(i)->setCheckState(ticked ? Qt::Checked : Qt::Unchecked);
    }
}

void TableChecklist::tickAll(bool ticked)
{
    for (int i = 0; i < m_list->count(); ++i)
        m_list->item(i)->setCheckState(ticked ? Qt::Checked : Qt::Unchecked);
}

void TableChecklist::selectAll()
{
    m_optAll->setChecked(true);
    tickAll(true);
    if (m_list->count() > 0)
        m_list->setCurrentRow(0);
}

void TableChecklist::deselectAll()
{
    m_optDeselAll->setChecked(true);
    tickAll(false);
}

void TableChecklist::showSelectionPage()
{
    m_progressPage->hide();
    m_selectionPage->show();
}

void TableChecklist::showProgressPage()
{
    m_selectionPage->hide();
    m_progressPage->show();
}

void TableChecklist::addSelectionWidget(QWidget *widget)
{
    m_selectionButtons->addWidget(widget);
}

TableChecklist::Run TableChecklist::run(const TableAction &action)
{
    BusyGuard guard(m_busy);
    if (!guard)
        return Run::AlreadyRunning;
    // The names are taken once: ticks changed while the loop yields do not move it.
    const QStringList ticked = tickedTables();
    if (ticked.isEmpty()) {
        Dialogs::message(this, QStringLiteral("No table has been selected"));
        return Run::NoneTicked;
    }
    showProgressPage();
    m_progress.begin(static_cast<int>(ticked.size()));
    for (const QString &table : ticked) {
        m_progress.step(table);
        if (m_progress.stopRequested()) {
            m_progress.end();
            return Run::Stopped;
        }
        if (action)
            action(table);
    }
    m_progress.end();
    return m_progress.stopRequested() ? Run::Stopped : Run::Finished;
}

} // namespace tabulon
