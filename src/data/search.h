// The search tool: a value looked up field by field in one table or in all tables, one hit row
// per table that holds it, and a double click that opens the table in the table data window.
#pragma once

#include "ui/toolwindow.h"

#include <QWidget>

#include <functional>
#include <memory>

class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QRadioButton;

namespace tabulon {

class Grid;
class ProgressView;
class TableData;
class ToolHost;

// How the search reaches the one table data window; the main window provides both.
struct TableDataAccess final {
    std::function<TableData *()> ensure; // the window, created (and loaded) when missing
    std::function<void()> show;          // shows it as a child window
};

class Search final : public QWidget {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Search)
public:
    explicit Search(ToolHost &host, TableDataAccess tableData = {}, QWidget *parent = nullptr);
    ~Search() override;

    // The "&Search" / "S&top" button.
    void StartOrStop();
    // Searches Combo1's entries first..last; the caption goes back to "&Search" at the end.
    void SearchTables(int first, int last);
    // Opens the hit of the grid's current row in the table data window.
    void OpenHit();

    Grid *grid() const { return m_grid; }

protected:
    void closeEvent(QCloseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void addHit(const QString &table, int position);

    ToolHost &m_host;
    TableDataAccess m_tableData;
    QLabel *m_label;
    QLineEdit *m_text;
    QGroupBox *m_frame;
    QRadioButton *m_selected;
    QRadioButton *m_all;
    QComboBox *m_combo;
    QPushButton *m_button;
    Grid *m_grid;
    QProgressBar *m_bar;
    QLabel *m_status;
    BusyState m_busy;
    std::unique_ptr<ProgressView> m_progress;
};

} // namespace tabulon
