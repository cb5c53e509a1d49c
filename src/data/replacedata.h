// The find and replace tool: every row of every table whose field holds a value, listed one
// hit per row, then replaced hit by hit, skipped, or replaced all at once; a new client code
// is refused when it already exists.
#pragma once

#include "ui/toolwindow.h"

#include <QWidget>

#include <memory>
#include <vector>

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
struct Hit;
} // namespace TableSearch

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
    // Replaces the hit of the given grid row in that hit's own row, and tells the operator
    // when it was left unchanged; false when the replacement failed in a way the operator
    // must look at (the message has been shown).
    bool ReplaceHit(int row);

    Grid *grid() const { return m_grid; }

protected:
    void closeEvent(QCloseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    enum class Step { Replace, Ignore };
    // Unchanged: not changed and not yet told; Told: not changed, and the operator was told.
    enum class Done { Replaced, Unchanged, Told, Failed };
    // cmdrep / cmdignore on the current row; false when a replacement failed.
    bool actOnCurrent(Step step);
    // One replacement; an unchanged hit is told about only when `tellUnchanged`.
    Done replaceRow(int row, bool tellUnchanged);
    void replaceAll();
    // Writes the safety copy of `tables` before `command` changes them; false (the operator
    // told why) when the command must not go on.
    bool keepSafetyCopy(const QString &command, const QStringList &tables);
    void cancel();
    void addHits(const TableSearch::FieldHits &hits);
    // The find and replace texts are read once, when a find starts, and stay as read (the
    // boxes read-only) until the hits are given up, so that the client-code guard, the scan
    // and every replacement work with the same texts.
    void lockTexts();
    void unlockTexts();
    TableSearch::Hit *hitOfRow(int row);

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
    std::vector<TableSearch::Hit> m_hits; // grid rows name theirs in a hidden column
    bool m_textsLocked = false;
    QString m_findText;
    QString m_replaceText;
    bool m_replacingAll = false;
};

} // namespace tabulon
