// The import wizard: a source file and one of its tables, the fields to copy, a new or an
// existing table of the current database with the field matching shown in a grid, and the row
// copy behind a question, with progress and a summary of what the server refused.
#pragma once

#include "import/importdata.h"
#include "ui/progressview.h"
#include "ui/toolwindow.h"

#include <QDialog>

#include <memory>
#include <vector>

class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QProgressBar;
class QPushButton;
class QRadioButton;

namespace tabulon {

class ConversionSource;
class Grid;
class ToolHost;

class frmimportdata final : public QDialog {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmimportdata)
public:
    // The list of existing tables is filled here; a failing list stays empty.
    explicit frmimportdata(ToolHost &host, QWidget *parent = nullptr);
    ~frmimportdata() override;

    // The fields as the grid shows them (for the current choices).
    const std::vector<Import::FieldMapping> &mapping() const { return m_mapping; }

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void browse();
    // Opens the file named in the text box, unless it is the one already open.
    void openSource();
    void tableChosen();
    void targetChanged();
    // Rebuilds the mapping from the ticks and the target, and shows it.
    void refreshMapping();
    std::vector<int> tickedFields() const;
    void import();
    // Writes the rows of a confirmed plan into its table: where every import starts writing.
    void copyRows(const Import::Plan &plan);
    void exitAsked();

    ToolHost &m_host;
    QLineEdit *m_source;
    QPushButton *m_browse;
    QComboBox *m_table;
    QListWidget *m_fields;
    QRadioButton *m_optNew;
    QLineEdit *m_newTable;
    QRadioButton *m_optExisting;
    QComboBox *m_target;
    Grid *m_grid;
    QPushButton *m_import;
    QPushButton *m_exit;
    QProgressBar *m_bar;
    QLabel *m_status;
    BusyState m_busy;
    ProgressView m_progress;

    std::unique_ptr<ConversionSource> m_opened;
    QString m_openedPath; // the last path tried, opened or not
    std::vector<SourceField> m_sourceFields;
    std::vector<Import::TargetColumn> m_targetColumns;
    std::vector<Import::FieldMapping> m_mapping;
};

} // namespace tabulon
