// The table detail tool: the columns of one table or of every table as the server lists them,
// optionally only one column name, and the adding, changing and dropping of a column that the
// main window's field pop-up menu calls.
#pragma once

#include <QWidget>

class QComboBox;
class QLineEdit;
class QPushButton;
class QRadioButton;

namespace tabulon {

class Grid;
class KeyPreview;
class ToolHost;

class TableInfo final : public QWidget {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TableInfo)
public:
    // Creating the window loads it: lists the tables and shows the first one's columns, also
    // when a pop-up command creates it without showing it. Nothing here traps errors: a
    // failing statement is reported as untrapped and ends the program.
    explicit TableInfo(ToolHost &host, QWidget *parent = nullptr);
    ~TableInfo() override;

    // Each asks first, acts on the table selected in Combo1 (whatever table the grid row is
    // from) and takes the current grid row's name and type for answers left empty. Without a
    // current column row they do nothing; without a table chosen they ask for one.
    void AddField();
    void DeleteField();
    void ModifyField();

    Grid *grid() const { return m_grid; }
    // Whether the last listing left at least one column row in the grid.
    bool hasRows() const { return m_hasRows; }

private:
    void fillTables();
    void listTables(int from, int to);
    void showClicked();
    void reload();
    void onOption();
    void onGridMouseDown(Qt::MouseButton button, const QPoint &globalPos);
    // Writes the safety copy of the selected table before `command` changes it; false (the
    // operator told why) when the command must not go on.
    bool keepSafetyCopy(const QString &command);
    QString currentCell(int col) const;
    // Whether a field command may go on: a current column row and a table chosen in Combo1.
    bool canEditFields();

    ToolHost &m_host;
    QComboBox *m_combo;
    QRadioButton *m_selected;
    QRadioButton *m_all;
    QLineEdit *m_filter;
    QPushButton *m_show;
    QPushButton *m_reload;
    Grid *m_grid;
    KeyPreview *m_keys;
    bool m_hasRows = false;
};

} // namespace tabulon
