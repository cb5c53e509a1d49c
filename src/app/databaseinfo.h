// The connection setup window: confirms or changes the four settings, opens the shared
// session on them, saves them and switches the main window's menus on or off.
#pragma once

#include <QDialog>

class QLineEdit;

namespace tabulon {

class MDIForm1;

class DatabaseInfo final : public QDialog {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(DatabaseInfo)
public:
    explicit DatabaseInfo(MDIForm1 &main);

    void accept() override; // "&OK"

private:
    MDIForm1 &m_main;
    QLineEdit *m_db;
    QLineEdit *m_uid;
    QLineEdit *m_pwd;
    QLineEdit *m_svr;
};

} // namespace tabulon
