// The create table tool: field names and types typed into a two-column grid, saved as one
// CREATE TABLE statement under a name the operator gives.
#pragma once

#include <QWidget>

class QMenu;

namespace tabulon {

class Grid;
class KeyPreview;
class ToolHost;

class CreateTable final : public QWidget {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(CreateTable)
public:
    explicit CreateTable(ToolHost &host, QWidget *parent = nullptr);
    ~CreateTable() override;

    // Adds a row at the end, and copies the current row's field name into every row below it
    // (types stay where they are): the grid's right-click "Insert Row" and the Insert key.
    void InsertRow();
    // Removes the current row, but never the last field row: the grid's right-click
    // "Delete Row" and the Delete key.
    void DeleteRow();
    // Asks for the table's name and creates it ("Save Table").
    void SaveTable();

    Grid *grid() const { return m_grid; }
    QMenu *rowMenu() const { return m_rowMenu; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // The keys of an open cell editor: Enter goes to the next row (adding one at the end),
    // Tab from the name to the type, and from the type as Enter does.
    void commitEdit(QWidget *editor);
    void enterKey();
    void tabKey();
    void editCell(int row, int col);
    void onGridMouseDown(Qt::MouseButton button, const QPoint &globalPos);

    ToolHost &m_host;
    Grid *m_grid;
    QMenu *m_rowMenu;
    KeyPreview *m_keys;
};

} // namespace tabulon
