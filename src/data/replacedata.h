// The find and replace tool: every row of every table whose field holds a value, listed one
// hit per row, then replaced hit by hit, skipped, or replaced all at once; a new client code
// is refused when it already exists.
#pragma once

#include "ui/toolwindow.h"

#include <QWidget>

#include <memory>

class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;

namespace tabulon {

class Grid;
class ProgressView;
class ToolHost;

namespace TableSearch {
struct FieldHits;
}

class ReplaceData final : public QWidget {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ReplaceData)
public:
    explicit ReplaceData(ToolHost &host, QWidget *parent = nullptr);
    ~ReplaceData() override;

    // The "Find" / "Stop" button: the client-code guard when that kind of field is chosen, then
    // the scan; while a scan runs, a stop request.
    void StartFind();
    void ScanTables();
    // Replaces the hit of the given grid row; false when the replacement failed in a way the
    // operator must look at (the message has been shown).
    bool ReplaceHit(int row);

    Grid *grid() const { return m_grid; }

protected:
    void closeEvent(QCloseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    enum class Step { Replace, Ignore };
    // cmdrep / cmdignore on the current row; false when a replacement failed.
    bool actOnCurrent(Step step);
    void replaceAll();
    // Writes the safety copy of `tables` before `command` changes them; false (the operator
    // told why) when the command must not go on.
    bool keepSafetyCopy(const QString &command, const QStringList &tables);
    void cancel();
    void addHits(const TableSearch::FieldHits &hits);

    ToolHost &m_host;
    QGroupBox *m_findFrame;
    QLabel *m_findLabel;
    QLineEdit *m_find;
    QLabel *m_replaceLabel;
    QLineEdit *m_replace;
    QLabel *m_fieldLabel;
    QComboBox *m_field;
    QPushButton *m_findButton;
    QComboBox *m_tables;
    QGroupBox *m_replaceFrame;
    QPushButton *m_rep;
    QPushButton *m_repAll;
    QPushButton *m_ignore;
    QPushButton *m_cancel;
    Grid *m_grid;
    QProgressBar *m_bar;
    QLabel *m_status;
    BusyState m_busy;
    std::unique_ptr<ProgressView> m_progress;
    bool m_replacingAll = false;
};

} // namespace tabulon
