// The password window: shows a fresh challenge on every activation and lets only an empty
// answer through to the connection setup. Nothing in the program opens it.
#pragma once

#include <QDialog>

class QLineEdit;

namespace tabulon {

class MDIForm1;

class frmlogin final : public QDialog {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmlogin)
public:
    explicit frmlogin(MDIForm1 &main);
    QString challenge() const;
    QString expectedAnswer() const { return m_answer; }
    void activate(); // what each activation does

protected:
    bool event(QEvent *e) override;

private:
    void ok();
    MDIForm1 &m_main;
    QLineEdit *m_challenge;
    QLineEdit *m_password;
    QString m_answer;
};

} // namespace tabulon
