#include "data/tabledata.h"

#include "data/exactvalues.h"
#include "data/recordwriter.h"
#include "db/databasesession.h"
#include "db/statementpipeline.h"
#include "db/tabletransaction.h"
#include "db/typecodes.h"
#include "db/writemode.h"
#include "grid/grid.h"
#include "grid/griddata.h"
#include "safety/safetynet.h"
#include "ui/dialogs.h"
#include "ui/tablelist.h"
#include "ui/toolhost.h"
#include "ui/toolwindow.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QCoreApplication>
#include <QEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QScopeGuard>
#include <QSignalBlocker>

#include <vector>

namespace tabulon {

namespace {

// The design's layout in pixels: a strip of controls above the grid and room below it that
// the resize rule keeps free (1000 twips).
constexpr int kGridLeft = 8;
constexpr int kGridTop = 40;
constexpr int kGridWidth = 900;
constexpr int kBottomMargin = 67;

} // namespace

TableData::TableData(ToolHost &host, QWidget *parent)
    : QWidget(parent), m_host(host), m_label(new QLabel(QStringLiteral("Select Table Name"), this)),
      m_combo(new QComboBox(this)), m_grid(new Grid(this)), m_text(new QLineEdit(this)),
      m_find(new QPushButton(QStringLiteral("&Find"), this))
{
    setObjectName(QStringLiteral("TableData"));
    setWindowTitle(QStringLiteral("Form1"));
    setAttribute(Qt::WA_DeleteOnClose);

    m_label->setObjectName(QStringLiteral("Label1"));
    m_combo->setObjectName(QStringLiteral("Combo1"));
    m_text->setObjectName(QStringLiteral("Text1"));
    m_find->setObjectName(QStringLiteral("cmdfind"));

    m_label->setGeometry(8, 12, 110, 20);
    m_combo->setGeometry(120, 8, 240, 24);
    m_text->setGeometry(380, 8, 200, 24);
    m_find->setGeometry(588, 7, 80, 26);
    m_grid->setGeometry(kGridLeft, kGridTop, kGridWidth, 400);
    resize(kGridLeft * 2 + kGridWidth, kGridTop + 400 + kBottomMargin);
    // Text1 starts empty, and an empty search text leaves the button off.
    m_find->setEnabled(false);

    // Escape during a load stops it and keeps the window; otherwise it closes the window.
    new KeyPreview(this, [this] {
        if (m_busy.isBusy())
            m_busy.requestStop();
        else
            closeToolWindow(this);
    });
    // A pick in the list by mouse, key or wheel starts a new selection (see onComboActivated).
    m_combo->installEventFilter(this);

    connect(m_combo, &QComboBox::currentIndexChanged, this, &TableData::onComboIndexChanged);
    connect(m_combo, &QComboBox::activated, this, &TableData::onComboActivated);
    connect(m_find, &QPushButton::clicked, this, &TableData::FindNext);
    connect(m_text, &QLineEdit::textChanged, this, &TableData::onSearchTextChanged);
    connect(m_grid, &Grid::afterSort, this, &TableData::onAfterSort);
    connect(m_grid, &Grid::mouseDown, this, &TableData::onGridMouseDown);

    loadWindow();
}

TableData::~TableData() = default;

TableLoad::Pace &TableData::defaultLoadPace()
{
    static TableLoad::Pace pace;
    return pace;
}

void TableData::setDefaultLoadPace(const TableLoad::Pace &pace)
{
    defaultLoadPace() = pace;
}

DatabaseSession &TableData::session() const
{
    return m_host.sessionOrClosed();
}

void TableData::loadWindow()
{
    qCDebug(lcTableLoad) << "listing tables";
    if (const DbError error = fillTableList(m_combo, session(), QStringLiteral("SHOW Tables"))) {
        Dialogs::runtimeError(this, error);
        return;
    }
    {
        // Adding the first entry made it current; the load below is the one selection event.
        const QSignalBlocker blocker(m_combo);
        m_combo->setCurrentIndex(-1);
    }
    m_grid->setEditable(true);
    if (m_combo->count() > 0)
        selectTable(0);
}

void TableData::selectTable(int index)
{
    if (m_busy.isBusy())
        return;
    if (index < 0 || index >= m_combo->count())
        return;
    if (index == m_combo->currentIndex()) {
        LoadTable();
        return;
    }
    m_combo->setCurrentIndex(index);
    m_loadedByIndexChange = false;
}

void TableData::setTableListEnabled(bool enabled)
{
    m_combo->setEnabled(enabled);
}

void TableData::onComboIndexChanged()
{
    if (m_combo->currentIndex() < 0)
        return;
    LoadTable();
    m_loadedByIndexChange = true;
}

void TableData::onComboActivated()
{
    // A pick of another entry has already loaded through the index change; a pick of the
    // entry already shown loads it again.
    if (m_loadedByIndexChange) {
        m_loadedByIndexChange = false;
        return;
    }
    LoadTable();
}

void TableData::LoadTable()
{
    if (m_busy.isBusy())
        return;
    if (const DbError error = loadTableSteps()) {
        Dialogs::runtimeError(this, error);
        return;
    }
}

DbError TableData::loadTableSteps()
{
    // A load that fails leaves no rows under the table's name, which no command may then write
    // back as the whole table.
    const auto failed = [this](const DbError &error) {
        m_grid->clear();
        m_loaded = Loaded::Failed;
        return error;
    };
    const QString table = m_combo->currentText();
    TableLoad load;
    {
        BusyGuard busy(m_busy);
        if (!busy)
            return {};
        // The list stays on the table being read: a pick meanwhile would put another table's
        // name over these rows.
        const bool listEnabled = m_combo->isEnabled();
        m_combo->setEnabled(false);
        const auto listBack = qScopeGuard([&] { m_combo->setEnabled(listEnabled); });
        // So that the grid shows what is on disk, not what another program still holds back.
        // A server slow to answer leaves the window its turns, as the reading does.
        qCDebug(lcTableLoad) << "flushing";
        const DatabaseSession::Waiting turn = [] {
            QCoreApplication::processEvents();
            return DbError{};
        };
        for (const QString &flush : {QStringLiteral("Flush Tables"), QStringLiteral("Flush Logs")}) {
            if (DbError error =
                    session().streamQuery(flush, {}, {}, m_pace.pauseMs > 0 ? turn : DatabaseSession::Waiting(),
                                          std::max(m_pace.pauseMs / 2, 1)))
                return failed(error);
        }
        qCDebug(lcTableLoad) << "flushed";
        m_grid->clear();
        m_loaded = Loaded::Whole;

        // Column 0 shows each row's number and the hidden column 1 holds its load number, which
        // travels with its row through sorts so that ModifyRecord can find the row's record again
        // by position. Both are worked out when read, so they cost no memory.
        const auto open = [this](const QStringList &names) -> GridData & {
            m_grid->startAppending(QStringList{QString(), QString()} + names);
            m_grid->cells().numberAppendedRows(1);
            m_grid->setColHidden(1, true);
            return m_grid->cells();
        };
        // The rows read so far join the view a slice at a time, so that no step at the end has
        // to present the whole table at once; the columns are sized once, from the first slice.
        // A pause may come before the first row, while the server holds the table back.
        bool sized = false;
        load = TableLoad::read(session(), table, 2, open, m_pace, [&](qsizetype rows) {
            m_grid->commitAppendedRows();
            if (!sized && rows > 0) {
                m_grid->autoSize(0, m_grid->cols() - 1);
                sized = true;
                qCDebug(lcTableLoad) << "columns sized";
            }
            m_host.showStatus(QStringLiteral("Loading %1: %2 rows").arg(table).arg(rows));
            QCoreApplication::processEvents();
            return m_busy.stopRequested();
        });
        // A read long enough to have paused ends up to one pause after the last; the window
        // has its turn before the columns are trimmed, so that the two do not add up to one
        // long wait.
        if (sized)
            QCoreApplication::processEvents();
        qCDebug(lcTableLoad) << "trimming";
        m_grid->finishAppending();
        qCDebug(lcTableLoad) << "trimmed";
        if (!sized && !load.error)
            m_grid->autoSize(0, m_grid->cols() - 1);
    }
    if (load.error)
        return failed(load.error);
    m_loaded = load.stopped ? Loaded::Part : Loaded::Whole;
    m_host.showStatus(load.stopped ? QStringLiteral("%1: loading stopped after %2 rows").arg(table).arg(load.rows)
                                   : QStringLiteral("%1: %2 rows loaded").arg(table).arg(load.rows));
    m_cursor.reset();
    return {};
}

void TableData::renumber()
{
    m_grid->cells().setRowNumbers(0);
    m_grid->refresh();
}

void TableData::FindNext()
{
    if (m_combo->currentIndex() < 0) {
        Dialogs::message(this, QStringLiteral("No records to search"));
        return;
    }
    const Grid *grid = m_grid;
    const FindHit hit = findNext(m_cursor, m_text->text(), grid->rows(), grid->cols(),
                                 [grid](int row, int col) { return grid->textMatrix(row, col); });
    if (hit.found) {
        m_grid->setCurrentCell(hit.row, hit.col);
        return;
    }
    Dialogs::message(this, QStringLiteral("Finished searching"));
}

void TableData::onSearchTextChanged(const QString &text)
{
    if (text.trimmed().isEmpty()) {
        m_find->setEnabled(false);
        return;
    }
    m_find->setEnabled(true);
    m_cursor.reset();
}

void TableData::onAfterSort(int col, int order)
{
    renumber();
    m_sortColumn = col;
    m_sortOrder = order;
}

void TableData::onGridMouseDown(Qt::MouseButton button, const QPoint &globalPos)
{
    if (button != Qt::RightButton || m_grid->row() <= 0)
        return;
    if (QMenu *menu = m_host.popupMenu(QStringLiteral("mnupop1")))
        menu->popup(globalPos);
}

void TableData::sortByRemembered()
{
    // Before the operator's first sort there is nothing to repeat.
    if (m_sortColumn && m_sortOrder)
        m_grid->sort(*m_sortColumn, *m_sortOrder);
}

void TableData::showError(const DbError &error)
{
    Dialogs::message(this, error.description);
}

bool TableData::wholeTableLoaded(const QString &command)
{
    QString why;
    switch (m_loaded) {
    case Loaded::Whole: return true;
    case Loaded::Part:
        why = QStringLiteral("Only the first %1 rows of %2 are loaded, the loading having been stopped: %3 "
                             "would write them as the whole table and lose the others. Choose the table "
                             "again to load it whole.")
                  .arg(m_grid->rows() - 1)
                  .arg(m_combo->currentText(), command);
        break;
    case Loaded::Failed:
        why = QStringLiteral("%1 could not be read, so none of its rows are loaded: %2 would write the table "
                             "empty. Choose the table again to load it.")
                  .arg(m_combo->currentText(), command);
        break;
    }
    Dialogs::message(this, why, Dialogs::Icon::Critical);
    return false;
}

bool TableData::keepSafetyCopy(const QString &command)
{
    const DbError error = SafetyNet::protectTables(
        session(), command, {m_combo->currentText()},
        command == QLatin1String("Modify Record") ? SafetyNet::Reach::Rows : SafetyNet::Reach::WholeTable);
    if (error)
        Dialogs::message(this, SafetyNet::failureText(error), Dialogs::Icon::Critical);
    return !error;
}

void TableData::DeleteRecord()
{
    if (m_busy.isBusy() || !wholeTableLoaded(QStringLiteral("Delete Record")))
        return;
    if (Dialogs::ask(this, QStringLiteral("This will Delete the record from Table")) != Dialogs::Answer::Yes)
        return;
    rewriteTable(true, QStringLiteral("Delete Record"));
}

void TableData::SaveTable()
{
    if (m_busy.isBusy() || !wholeTableLoaded(QStringLiteral("Save Table")))
        return;
    if (Dialogs::ask(this, QStringLiteral("This will update the Table")) != Dialogs::Answer::Yes)
        return;
    rewriteTable(false, QStringLiteral("Save Table"));
}

void TableData::rewriteTable(bool skipSelectedRows, const QString &command)
{
    const QString table = m_combo->currentText();
    // Opened to learn each field's type. When it fails, or a header names no field of the
    // table, the operator is told; such a column is then written as text.
    auto tableRows = session().openTable(table);
    if (!tableRows.ok())
        showError(tableRows.error());

    const int rows = m_grid->rows();
    const int cols = m_grid->cols();
    std::vector<char> skip(static_cast<size_t>(std::max(rows, 0)), 0);
    if (skipSelectedRows) {
        for (const int row : m_grid->selectedRows()) {
            if (row >= 0 && row < rows)
                skip[static_cast<size_t>(row)] = 1;
        }
    }
    QStringList names;
    std::vector<ExactValues::Column> columns;
    for (int c = 2; c < cols; ++c) {
        const QString name = m_grid->textMatrix(0, c);
        names << name;
        const int field = tableRows.ok() ? tableRows->fieldIndex(name) : -1;
        if (tableRows.ok() && field < 0)
            showError(DbError::itemNotFound());
        columns.push_back(field >= 0 ? ExactValues::Column::of(tableRows->field(field)) : ExactValues::Column{});
    }
    if (tableRows.ok())
        tableRows->close();

    // The check before the first write: rows whose usual statement would change or lose a value.
    const GridData &cells = m_grid->cells();
    const QByteArray head = RecordWriter::insertStatement(table, names, {}).toUtf8();
    const auto rowReasons = [&](int row) {
        unsigned why = 0;
        for (int c = 2; c < cols; ++c)
            why |= ExactValues::reasons(ExactValues::Rules::TableData, columns[static_cast<size_t>(c - 2)],
                                        cells.utf8(row, c), cells.isNull(row, c));
        return why;
    };
    std::vector<char> affected(static_cast<size_t>(std::max(rows, 0)), 0);
    ExactValues::TableFindings findings;
    findings.table = table;
    qint64 limit = -1;
    for (int row = 1; row < rows && ExactValues::checkBeforeWrites(); ++row) {
        if (skip[static_cast<size_t>(row)])
            continue;
        const unsigned why = rowReasons(row);
        affected[static_cast<size_t>(row)] = why != 0;
        findings.addRow(why);
        qint64 bound = head.size();
        for (int c = 2; c < cols; ++c)
            bound += ExactValues::literalBound(cells.utf8(row, c));
        if (bound < 1024)
            continue;
        if (limit < 0)
            limit = session().statementLimit();
        if (bound > limit && insertBytes(table, names, columns, row, why != 0).size() > limit) {
            if (findings.tooLong++ == 0) {
                findings.longestRow = row;
                findings.longestField = longestValueField(row);
            }
        }
    }
    bool exact = false;
    if (const QString question = ExactValues::question({findings}); !question.isEmpty()) {
        switch (Dialogs::ask(this, question, Dialogs::Buttons::YesNoCancel)) {
        case Dialogs::Answer::Yes: exact = true; break;
        case Dialogs::Answer::No: break;
        default: return;
        }
    }
    if (!keepSafetyCopy(command))
        return;

    {
        const WriteSessionMode mode(session());
        if (mode.error()) {
            showError(mode.error());
            return;
        }
        // On InnoDB the table is written whole or not at all.
        TableTransaction transaction(session(), table);
        if (transaction.error()) {
            showError(transaction.error());
            return;
        }
        // False once the server has rolled the table back: the rest would go in on its own.
        const auto written = [&](const DbError &error) {
            if (const DbError ended = transaction.afterWrite(error)) {
                showError(SafetyNet::afterCopy(ended));
                return false;
            }
            if (error)
                showError(SafetyNet::afterCopy(error));
            return true;
        };
        bool going = written(session().execute(RecordWriter::deleteAllStatement(table)));
        // The inserts need not wait for each other once the delete is done: they go out ahead of
        // their answers, each still told in its turn.
        StatementPipeline inserts(session());
        QStringList values;
        for (int row = 1; going && row < rows; ++row) {
            if (skip[static_cast<size_t>(row)])
                continue;
            QByteArray sql;
            if (exact && affected[static_cast<size_t>(row)]) {
                sql = insertBytes(table, names, columns, row, true);
            } else {
                values.clear();
                for (int c = 2; c < cols; ++c)
                    values << RecordWriter::insertValue(columns[static_cast<size_t>(c - 2)].adoType,
                                                        m_grid->textMatrix(row, c));
                sql = RecordWriter::insertStatement(table, names, values).toUtf8();
            }
            going = inserts.add(sql, [&, row](DbError error) {
                if (error.serverCode == kStatementTooLong)
                    error.description =
                        QStringLiteral("Row %1 of %2 was not written, its longest value being in %3: %4")
                            .arg(row)
                            .arg(table, longestValueField(row), error.description);
                return written(error);
            });
        }
        (void)inserts.finish();
        if (const DbError error = transaction.commit())
            showError(SafetyNet::afterCopy(error));
    }

    if (const DbError error = loadTableSteps())
        showError(error);
    if (m_grid->rows() > 1)
        sortByRemembered();
    renumber();
}

QByteArray TableData::insertBytes(const QString &table, const QStringList &names,
                                  const std::vector<ExactValues::Column> &columns, int row, bool exact) const
{
    const GridData &cells = m_grid->cells();
    QByteArray sql = QStringLiteral("Insert into %1 (%2) values (").arg(table, names.join(QLatin1Char(','))).toUtf8();
    for (int c = 2; c < m_grid->cols(); ++c) {
        if (c > 2)
            sql += ',';
        const ExactValues::Column &column = columns[static_cast<size_t>(c - 2)];
        sql += exact ? ExactValues::exactLiteral(ExactValues::Rules::TableData, column, cells.utf8(row, c),
                                                 cells.isNull(row, c))
                     : ExactValues::usualLiteral(ExactValues::Rules::TableData, column, cells.utf8(row, c));
    }
    sql += ')';
    return sql;
}

QString TableData::longestValueField(int row) const
{
    int longest = 2;
    for (int c = 2; c < m_grid->cols(); ++c) {
        if (m_grid->cells().utf8(row, c).size() > m_grid->cells().utf8(row, longest).size())
            longest = c;
    }
    return m_grid->textMatrix(0, longest);
}

void TableData::ModifyRecord()
{
    if (m_busy.isBusy())
        return;
    if (Dialogs::ask(this, QStringLiteral("This will Update the current record in Table")) != Dialogs::Answer::Yes)
        return;
    if (!keepSafetyCopy(QStringLiteral("Modify Record")))
        return;
    const WriteSessionMode mode(session());
    if (mode.error()) {
        showError(mode.error());
        return;
    }
    auto tableRows = session().openTable(m_combo->currentText());
    if (!tableRows.ok()) {
        showError(tableRows.error());
        return;
    }
    Recordset &records = *tableRows;
    const int row = m_grid->row();
    bool ok = false;
    qsizetype loadIndex = m_grid->textMatrix(row, 1).toLongLong(&ok);
    if (!ok)
        loadIndex = 0;
    const GridData &cells = m_grid->cells();

    // The record is found by its place at load time, which is what the hidden column holds.
    records.moveFirst();
    for (qsizetype counter = 1; !records.eof(); ++counter) {
        if (counter != loadIndex) {
            records.moveNext();
            continue;
        }
        const qsizetype at = records.position();
        for (int field = 0; field < records.fieldCount(); ++field) {
            // A cell that still holds what the record holds is left alone: giving it back
            // through the value rules could only change it (a NULL, a date and time, bytes).
            const std::optional<QByteArray> held = records.bytes(at, field);
            if (cells.isNull(row, field + 2) ? !held : held && QByteArrayView(*held) == cells.utf8(row, field + 2))
                continue;
            const RecordWriter::FieldChange change =
                RecordWriter::modifyValue(records.field(field).type, m_grid->textMatrix(row, field + 2));
            if (change)
                records.setField(field, *change);
        }
        if (!records.hasPendingChanges()) {
            records.moveNext();
            continue;
        }
        if (const DbError error = records.update()) {
            showError(error);
            if (error.number == AdoError::Generic || error.number == AdoError::RowNotFound) {
                sortByRemembered();
                break;
            }
        }
    }
    records.close();
}

bool TableData::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_combo && (event->type() == QEvent::MouseButtonPress || event->type() == QEvent::KeyPress ||
                               event->type() == QEvent::Wheel))
        m_loadedByIndexChange = false;
    return QWidget::eventFilter(watched, event);
}

void TableData::closeEvent(QCloseEvent *event)
{
    // A close during a load (Exit, the frame's button) stops the reading and keeps the rows
    // read so far in the window, as Escape does; the next close closes it.
    if (m_busy.isBusy()) {
        m_busy.requestStop();
        event->ignore();
        return;
    }
    QWidget::closeEvent(event);
}

void TableData::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    // A window too small for the grid leaves it with no height rather than failing.
    m_grid->resize(m_grid->width(), std::max(0, height() - m_grid->y() - kBottomMargin));
}

} // namespace tabulon
