#include "structure/tableinfo.h"

#include "db/databasesession.h"
#include "grid/grid.h"
#include "safety/safetynet.h"
#include "structure/structuresql.h"
#include "ui/dialogs.h"
#include "ui/tablelist.h"
#include "ui/toolhost.h"
#include "ui/toolwindow.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include <algorithm>

namespace tabulon {

namespace {

constexpr int kNameCol = 1; // the column's name; 2 holds its type

} // namespace

TableInfo::TableInfo(ToolHost &host, QWidget *parent)
    : QWidget(parent), m_host(host), m_combo(new QComboBox(this)),
      m_selected(new QRadioButton(QStringLiteral("Selected Table"), this)),
      m_all(new QRadioButton(QStringLiteral("All Tables"), this)), m_filter(new QLineEdit(this)),
      m_show(new QPushButton(QStringLiteral("&Show"), this)),
      m_reload(new QPushButton(QStringLiteral("&Refresh"), this)), m_grid(new Grid(this)), m_keys(new KeyPreview(this))
{
    setObjectName(QStringLiteral("TableInfo"));
    setWindowTitle(QStringLiteral("Table Detail"));
    m_combo->setObjectName(QStringLiteral("Combo1"));
    m_selected->setObjectName(QStringLiteral("optseltab"));
    m_all->setObjectName(QStringLiteral("optall"));
    m_filter->setObjectName(QStringLiteral("txtflname"));
    m_show->setObjectName(QStringLiteral("cmdshow"));
    m_reload->setObjectName(QStringLiteral("cmdreload"));
    m_combo->setMinimumWidth(220);
    m_selected->setChecked(true);

    m_grid->setCols(3);
    m_grid->setTextMatrix(0, 0, QStringLiteral("Table Name"));
    m_grid->setTextMatrix(0, 1, QStringLiteral("Field Name"));
    m_grid->setTextMatrix(0, 2, QStringLiteral("Field Type"));

    auto *controls = new QHBoxLayout;
    controls->addWidget(m_combo);
    controls->addWidget(m_selected);
    controls->addWidget(m_all);
    controls->addWidget(m_filter);
    controls->addWidget(m_show);
    controls->addWidget(m_reload);
    controls->addStretch();
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(controls);
    layout->addWidget(m_grid, 1);
    resize(900, 500);

    // A pick in the list, also of the entry already shown, lists that table; changes the
    // program makes to the list do not.
    connect(m_combo, &QComboBox::activated, this, [this](int index) { listTables(index, index); });
    connect(m_selected, &QRadioButton::clicked, this, &TableInfo::onOption);
    connect(m_all, &QRadioButton::clicked, this, &TableInfo::onOption);
    connect(m_show, &QPushButton::clicked, this, &TableInfo::showClicked);
    connect(m_reload, &QPushButton::clicked, this, &TableInfo::reload);
    connect(m_grid, &Grid::mouseDown, this, &TableInfo::onGridMouseDown);

    fillTables();
}

TableInfo::~TableInfo() = default;

void TableInfo::fillTables()
{
    if (const DbError error = fillTableList(m_combo, m_host.sessionOrClosed(), QStringLiteral("SHOW Tables"))) {
        Dialogs::runtimeError(this, error);
        return;
    }
    if (m_combo->count() == 0)
        return;
    {
        const QSignalBlocker blocker(m_combo);
        m_combo->setCurrentIndex(0);
    }
    listTables(0, 0);
}

void TableInfo::reload()
{
    m_combo->clear();
    fillTables();
}

void TableInfo::onOption()
{
    m_combo->setEnabled(m_selected->isChecked());
}

void TableInfo::showClicked()
{
    if (m_selected->isChecked()) {
        const int index = m_combo->currentIndex();
        if (index < 0) {
            Dialogs::message(this, QStringLiteral("Please select a Table"));
            return;
        }
        listTables(index, index);
        return;
    }
    listTables(0, m_combo->count() - 1);
}

void TableInfo::listTables(int from, int to)
{
    DatabaseSession &session = m_host.sessionOrClosed();
    // Each table is repaired before its fields are listed; a repair can drop rows of a MyISAM
    // or Aria table it cannot read, so their files are copied first.
    QStringList listed;
    for (int i = from; i <= to && i < m_combo->count(); ++i)
        listed << m_combo->itemText(i);
    if (const DbError error = SafetyNet::protectTableFiles(session, QStringLiteral("Table Detail"), listed)) {
        Dialogs::message(this, SafetyNet::failureText(error), Dialogs::Icon::Critical);
        return;
    }
    m_grid->setRows(1);
    m_grid->refresh();
    m_show->setEnabled(false);
    for (int i = from; i <= to && i < m_combo->count(); ++i) {
        const QString table = m_combo->itemText(i);
        if (const DbError error = session.execute(StructureSql::repairBeforeListing(table))) {
            Dialogs::runtimeError(this, error);
            return;
        }
        auto columns = session.openQuery(StructureSql::showColumns(table));
        if (!columns.ok()) {
            Dialogs::runtimeError(this, columns.error());
            return;
        }
        bool found = false;
        const int fields = columns->isOpen() ? columns->fieldCount() : 0;
        for (qsizetype r = 0; fields >= 2 && r < columns->recordCount(); ++r) {
            const QString name = columns->text(r, 0);
            const StructureSql::ColumnMatch match = StructureSql::matchColumn(name, m_filter->text());
            if (match == StructureSql::ColumnMatch::Skipped)
                continue;
            found = found || match == StructureSql::ColumnMatch::Found;
            const int row = m_grid->rows();
            m_grid->addRow();
            m_grid->setTextMatrix(row, 0, QString::number(row) + QStringLiteral(" - ") + table);
            m_grid->setTextMatrix(row, 1, name);
            m_grid->setTextMatrix(row, 2, columns->text(r, 1));
        }
        columns->close();
        // A table that has the column looked for leaves the list, so that the list ends up
        // naming the tables still without it; only Refresh brings them back.
        if (found) {
            const bool wasCurrent = m_combo->currentIndex() == i;
            const QSignalBlocker blocker(m_combo);
            m_combo->removeItem(i);
            if (wasCurrent)
                m_combo->setCurrentIndex(-1);
            --i;
            --to;
        }
    }
    m_grid->refresh();
    m_hasRows = m_grid->rows() >= 2;
    // The field commands act on the current row: a listing always leaves one when it can.
    if (m_hasRows)
        m_grid->setCurrentCell(1, kNameCol);
    m_grid->autoSize(0, 2);
    m_show->setEnabled(true);
}

void TableInfo::onGridMouseDown(Qt::MouseButton button, const QPoint &globalPos)
{
    if (button != Qt::RightButton || m_grid->rows() <= 1)
        return;
    // The pop-up's commands act on the row under the pointer, not on one picked earlier.
    const int row = m_grid->rowAtGlobal(globalPos);
    if (row >= 1)
        m_grid->setCurrentCell(row, std::max(m_grid->col(), kNameCol));
    if (QMenu *menu = m_host.popupMenu(QStringLiteral("mnupop")))
        menu->popup(globalPos);
}

QString TableInfo::currentCell(int col) const
{
    const int row = m_grid->row();
    return row >= 1 ? m_grid->textMatrix(row, col) : QString();
}

bool TableInfo::canEditFields()
{
    // Without a column row there is no name to act on, or to fall back on: nothing is sent.
    if (m_grid->row() < 1 || currentCell(kNameCol).isEmpty())
        return false;
    if (m_combo->currentIndex() < 0) {
        Dialogs::message(this, QStringLiteral("Please select a Table"));
        return false;
    }
    return true;
}

bool TableInfo::keepSafetyCopy(const QString &command)
{
    const DbError error = SafetyNet::protectTables(m_host.sessionOrClosed(), command, {m_combo->currentText()},
                                                   SafetyNet::Reach::Definition);
    if (error)
        Dialogs::message(this, SafetyNet::failureText(error), Dialogs::Icon::Critical);
    return !error;
}

void TableInfo::AddField()
{
    if (!canEditFields())
        return;
    const QString name = Dialogs::input(this, QStringLiteral("Enter the Field Name you want to create"));
    const QString type = Dialogs::input(this, QStringLiteral("Enter the DataType for the Field"));
    if (Dialogs::ask(this, QStringLiteral("This will Add the field from Table")) != Dialogs::Answer::Yes)
        return;
    if (!keepSafetyCopy(QStringLiteral("Add Field")))
        return;
    const QString statement =
        StructureSql::addField(m_combo->currentText(), StructureSql::answerOr(name, currentCell(1)),
                               StructureSql::answerOr(type, currentCell(2)));
    if (const DbError error = m_host.sessionOrClosed().execute(statement)) {
        Dialogs::runtimeError(this, error);
        return;
    }
    showClicked();
}

void TableInfo::ModifyField()
{
    if (!canEditFields())
        return;
    const QString name = Dialogs::input(this, QStringLiteral("Enter the Field Name you want to change with"));
    const QString type = Dialogs::input(this, QStringLiteral("Enter the DataType for the Field"));
    if (Dialogs::ask(this, QStringLiteral("This will Modify the field from Table")) != Dialogs::Answer::Yes)
        return;
    if (!keepSafetyCopy(QStringLiteral("Modify Field")))
        return;
    const QString current = currentCell(1);
    const QString statement =
        StructureSql::changeField(m_combo->currentText(), current, StructureSql::answerOr(name, current),
                                  StructureSql::answerOr(type, currentCell(2)));
    if (const DbError error = m_host.sessionOrClosed().execute(statement)) {
        Dialogs::runtimeError(this, error);
        return;
    }
    showClicked();
}

void TableInfo::DeleteField()
{
    if (!canEditFields())
        return;
    if (Dialogs::ask(this, QStringLiteral("This will Delete the field from Table")) != Dialogs::Answer::Yes)
        return;
    if (!keepSafetyCopy(QStringLiteral("Delete Field")))
        return;
    const int row = m_grid->row();
    const QString statement = StructureSql::dropField(m_combo->currentText(), currentCell(1));
    if (const DbError error = m_host.sessionOrClosed().execute(statement)) {
        Dialogs::runtimeError(this, error);
        return;
    }
    if (row >= 1) {
        m_grid->removeRow(row);
        m_grid->refresh();
        // The row that took its place (or the one above, after the last) is current.
        if (m_grid->rows() > 1)
            m_grid->setCurrentCell(std::min(row, m_grid->rows() - 1), kNameCol);
    }
}

} // namespace tabulon
