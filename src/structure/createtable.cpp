#include "structure/createtable.h"

#include "db/databasesession.h"
#include "grid/grid.h"
#include "safety/safetynet.h"
#include "structure/structuresql.h"
#include "ui/dialogs.h"
#include "ui/toolhost.h"
#include "ui/toolwindow.h"

#include <QAbstractItemDelegate>
#include <QApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QMenu>
#include <QPushButton>
#include <QVBoxLayout>

namespace tabulon {

CreateTable::CreateTable(ToolHost &host, QWidget *parent)
    : QWidget(parent), m_host(host), m_grid(new Grid(this)), m_rowMenu(new QMenu(this)), m_keys(new KeyPreview(this))
{
    setObjectName(QStringLiteral("CreateTable"));
    setWindowTitle(QStringLiteral("Create Table"));

    m_grid->setFixedCols(0);
    m_grid->setCols(2);
    m_grid->setRows(2);
    m_grid->setTextMatrix(0, 0, QStringLiteral("Field Name"));
    m_grid->setTextMatrix(0, 1, QStringLiteral("Field Type"));
    m_grid->setEditable(true);
    m_grid->setColumnWidth(0, 220);
    m_grid->setColumnWidth(1, 220);
    m_grid->refresh();
    m_grid->setCurrentCell(1, 0);

    auto *save = new QPushButton(QStringLiteral("Save Table"), this);
    save->setObjectName(QStringLiteral("cmdsavetable"));

    QAction *insert = m_rowMenu->addAction(QStringLiteral("Insert Row"));
    insert->setObjectName(QStringLiteral("mnuInsertRow"));
    QAction *remove = m_rowMenu->addAction(QStringLiteral("Delete Row"));
    remove->setObjectName(QStringLiteral("mnuDeleteRow"));

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(save);
    buttons->addStretch();
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_grid, 1);
    layout->addLayout(buttons);
    resize(600, 400);

    connect(save, &QPushButton::clicked, this, &CreateTable::SaveTable);
    connect(insert, &QAction::triggered, this, &CreateTable::InsertRow);
    connect(remove, &QAction::triggered, this, &CreateTable::DeleteRow);
    connect(m_grid, &Grid::mouseDown, this, &CreateTable::onGridMouseDown);
    // Keys reach a cell editor before the grid sees them; the application shows them to us
    // first.
    qApp->installEventFilter(this);
}

CreateTable::~CreateTable()
{
    if (qApp)
        qApp->removeEventFilter(this);
}

bool CreateTable::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::KeyPress)
        return QWidget::eventFilter(watched, event);
    auto *widget = qobject_cast<QWidget *>(watched);
    if (!widget)
        return QWidget::eventFilter(watched, event);
    const int key = static_cast<QKeyEvent *>(event)->key();
    // Cell editors are the only widgets the grid places inside its viewport.
    const bool inEditor = widget->parentWidget() == m_grid->viewport();
    if (inEditor) {
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            commitEdit(widget);
            enterKey();
            return true;
        }
        if (key == Qt::Key_Tab) {
            commitEdit(widget);
            tabKey();
            return true;
        }
        return QWidget::eventFilter(watched, event);
    }
    if (widget == m_grid && key == Qt::Key_Insert) {
        InsertRow();
        return true;
    }
    if (widget == m_grid && key == Qt::Key_Delete) {
        DeleteRow();
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

void CreateTable::commitEdit(QWidget *editor)
{
    // Before the grid grows: a change of its row count drops an open editor unsaved.
    const QModelIndex index = m_grid->currentIndex();
    if (QAbstractItemDelegate *delegate = m_grid->itemDelegateForIndex(index))
        delegate->setModelData(editor, m_grid->model(), index);
}

void CreateTable::editCell(int row, int col)
{
    // Moving the current cell commits the open editor; the new cell opens for typing.
    m_grid->setCurrentCell(row, col);
    m_grid->edit(m_grid->currentIndex());
}

void CreateTable::enterKey()
{
    const int row = m_grid->row();
    if (row == m_grid->rows() - 1) {
        m_grid->addRow();
        m_grid->refresh();
    }
    editCell(row + 1, 0);
}

void CreateTable::tabKey()
{
    if (m_grid->col() != 0) {
        enterKey();
        return;
    }
    editCell(m_grid->row(), 1);
}

void CreateTable::onGridMouseDown(Qt::MouseButton button, const QPoint &globalPos)
{
    if (button == Qt::RightButton)
        m_rowMenu->popup(globalPos);
}

void CreateTable::InsertRow()
{
    const int current = m_grid->row();
    QStringList names;
    for (int r = 0; r < m_grid->rows(); ++r)
        names << m_grid->textMatrix(r, 0);
    m_grid->addRow();
    // Without a current field row there is nothing to copy down.
    if (current >= 1) {
        names = StructureSql::namesAfterInsert(names, current);
        for (int r = current + 1; r < m_grid->rows(); ++r)
            m_grid->setTextMatrix(r, 0, names.value(r));
    }
    m_grid->refresh();
}

void CreateTable::DeleteRow()
{
    if (m_grid->rows() == 2) {
        Dialogs::message(this, QStringLiteral("One Field is Must"));
        return;
    }
    const int row = m_grid->row();
    if (row < 1)
        return;
    m_grid->removeRow(row);
    m_grid->refresh();
}

void CreateTable::SaveTable()
{
    const QString name = Dialogs::input(this, QStringLiteral("Please Give the Table Name"));
    if (name.trimmed().isEmpty())
        return;
    QList<StructureSql::FieldRow> fields;
    for (int r = 1; r < m_grid->rows(); ++r)
        fields << StructureSql::FieldRow{m_grid->textMatrix(r, 0), m_grid->textMatrix(r, 1)};
    const QString create = StructureSql::createTable(name, fields);

    DatabaseSession &session = m_host.sessionOrClosed();
    const DbError error = session.execute(create);
    if (!error)
        return;
    if (error.number == AdoError::Generic) {
        // An existing table is what this error usually means.
        if (Dialogs::ask(this, QStringLiteral("This Table is already exist, Do You still want to create Table")) !=
            Dialogs::Answer::Yes)
            return;
        // The drop takes the name as typed: every table it can name gets its copy.
        QStringList dropped;
        for (const QString &part : name.split(QLatin1Char(',')))
            dropped << part.trimmed().remove(QLatin1Char('`'));
        if (const DbError copyError = SafetyNet::protectTables(session, QStringLiteral("Create Table"), dropped,
                                                               SafetyNet::Reach::Definition)) {
            Dialogs::message(this, SafetyNet::failureText(copyError), Dialogs::Icon::Critical);
            return;
        }
        for (const QString &statement : {StructureSql::dropTable(name), create}) {
            if (const DbError again = session.execute(statement)) {
                // Once the drop has gone through, the table lives only in its safety copy.
                Dialogs::runtimeError(this, statement == create ? SafetyNet::afterCopy(again) : again);
                return;
            }
        }
        return;
    }
    if (error.number == AdoError::PermissionDenied)
        Dialogs::message(this, QStringLiteral("Can't create Table"));
    // Any other failure is passed over.
}

} // namespace tabulon
