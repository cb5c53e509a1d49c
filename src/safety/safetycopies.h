// The Safety Copies tool: the copies in the safety folder, newest first, and Put Back, which
// replaces the tables (or table files) of the chosen copy with what it holds.
#pragma once

#include "ui/toolwindow.h"

#include <QDialog>

class QLabel;
class QProgressBar;
class QPushButton;
class QTreeWidget;

namespace tabulon {

class ToolHost;

class SafetyCopies final : public QDialog {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SafetyCopies)
public:
    explicit SafetyCopies(ToolHost &host, QWidget *parent = nullptr);
    ~SafetyCopies() override;

    // Lists the copies again from the safety folder; the newest is chosen.
    void refresh();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void putBack();
    void exitAsked();

    ToolHost &m_host;
    QTreeWidget *m_list;
    QPushButton *m_putBack;
    QProgressBar *m_bar;
    QLabel *m_status;
    KeyPreview *m_keys;
    BusyState m_busy;
};

} // namespace tabulon
