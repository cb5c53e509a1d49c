// The conversion window: confirms the source the convert command chose and the name of the
// database to create, then runs the conversion and closes.
#pragma once

#include <QDialog>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace tabulon {

class ToolHost;

class ConvertDb final : public QDialog {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ConvertDb)
public:
    explicit ConvertDb(ToolHost &host, QWidget *parent = nullptr);
    ~ConvertDb() override;

private:
    void onSourceChanged();
    void onOk();

    ToolHost &m_host;
    QLineEdit *m_source;
    QLabel *m_targetLabel;
    QComboBox *m_target;
    QLabel *m_nameLabel;
    QLineEdit *m_name;
    QCheckBox *m_structureOnly;
    QPushButton *m_ok;
    QPushButton *m_cancel;
    bool m_running = false;
};

} // namespace tabulon
