// The table data tool: every row of one table in an editable grid, a find box, and the three
// write-backs (delete records, modify the current record, save the whole table) that the main
// window's record pop-up menu calls.
#pragma once

#include "data/exactvalues.h"
#include "data/findcursor.h"
#include "db/dberror.h"
#include "grid/tableload.h"
#include "ui/toolwindow.h"

#include <QWidget>

#include <optional>
#include <vector>

class QComboBox;
class QLabel;
class QLineEdit;
class QMenu;
class QPushButton;

namespace tabulon {

class DatabaseSession;
class Grid;
class ToolHost;

class TableData final : public QWidget {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TableData)
public:
    // Creating the window loads it: lists the tables and shows the first one, also when a pop-up
    // command creates it without showing it. A failing statement there is an untrapped error.
    explicit TableData(ToolHost &host, QWidget *parent = nullptr);
    ~TableData() override;

    // Reloads the table selected in Combo1 from the server, discarding edits in the grid. The
    // window stays alive meanwhile: the status line counts the rows, and Escape, Exit or a
    // close stops the reading, keeping the rows read so far (Save Table and Delete Record then
    // refuse, since they would write that part as the whole table).
    void LoadTable();
    // Moves to the next cell equal to Text1's text (the "&Find" button).
    void FindNext();

    // The write-backs, each behind its own question. DeleteRecord and SaveTable rewrite the
    // whole table from the grid (DeleteRecord leaving out the selected rows); ModifyRecord
    // writes the current row into the record it was loaded from.
    void DeleteRecord();
    void ModifyRecord();
    void SaveTable();

    // Selects a table of Combo1 by position and loads it, also when it is already selected (for
    // tools that open a table here). Positions outside the list are ignored.
    void selectTable(int index);
    // Keeps the window on its table (the search tool opens a hit this way) or frees the list.
    void setTableListEnabled(bool enabled);

    int findRow() const { return m_cursor.row; }
    int findCol() const { return m_cursor.col; }
    std::optional<int> sortColumn() const { return m_sortColumn; }
    std::optional<int> sortOrder() const { return m_sortOrder; }
    Grid *grid() const { return m_grid; }
    // Whether the grid holds only the first rows of its table, the loading having been stopped.
    bool isPartlyLoaded() const { return m_loaded == Loaded::Part; }
    // Whether the last load failed, leaving the grid without the table's rows.
    bool loadFailed() const { return m_loaded == Loaded::Failed; }
    // How often a load pauses for the window: this window's, and that of windows created
    // afterwards (which load while they are built). Tests and benchmarks change it.
    void setLoadPace(const TableLoad::Pace &pace) { m_pace = pace; }
    static void setDefaultLoadPace(const TableLoad::Pace &pace);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    static TableLoad::Pace &defaultLoadPace();
    DatabaseSession &session() const;
    void loadWindow();
    // LoadTable's steps; stops at the first failure and hands it back to the caller, who
    // either reports it as untrapped or, inside the write-backs, shows it and goes on.
    DbError loadTableSteps();
    // Writes the safety copy of the current table before `command` changes it; false (the
    // operator told why) when the command must not go on.
    bool keepSafetyCopy(const QString &command);
    // False (the operator told why) when the grid holds only part of its table.
    bool wholeTableLoaded(const QString &command);
    // DeleteRecord and SaveTable after their question: the check of values the usual statements
    // would not carry exactly (and the operator's choice), the safety copy, the delete and the
    // inserts in the write mode, and the reload.
    void rewriteTable(bool skipSelectedRows, const QString &command);
    // Row `row`'s INSERT as bytes, its values usual or, with `exact`, exact where they differ.
    QByteArray insertBytes(const QString &table, const QStringList &names,
                           const std::vector<ExactValues::Column> &columns, int row, bool exact) const;
    QString longestValueField(int row) const;
    void renumber();
    void sortByRemembered();
    void showError(const DbError &error);
    void onComboIndexChanged();
    void onComboActivated();
    void onSearchTextChanged(const QString &text);
    void onAfterSort(int col, int order);
    void onGridMouseDown(Qt::MouseButton button, const QPoint &globalPos);

    ToolHost &m_host;
    QLabel *m_label;
    QComboBox *m_combo;
    Grid *m_grid;
    QLineEdit *m_text;
    QPushButton *m_find;

    FindCursor m_cursor;
    std::optional<int> m_sortColumn;
    std::optional<int> m_sortOrder;
    BusyState m_busy{this};
    TableLoad::Pace m_pace = defaultLoadPace();
    // What the grid holds of the table Combo1 names; only a whole table may be written back.
    enum class Loaded { Whole, Part, Failed };
    Loaded m_loaded = Loaded::Whole;
    // Set when a change of Combo1's index has loaded the table, so that the activation that
    // follows the same pick does not load it twice.
    bool m_loadedByIndexChange = false;
};

} // namespace tabulon
