// The check tool: CHECK TABLE ... EXTENDED on every ticked table, the messages that are not
// "OK" in a result grid, and a repair by copying the named files from another database's
// folder.
#pragma once

#include <QDialog>
#include <QString>

class QFrame;
class QLineEdit;
class QPushButton;

namespace tabulon {

class Grid;
class KeyPreview;
class TableChecklist;
class ToolHost;

class CheckTable final : public QDialog {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(CheckTable)
public:
    // The table list is filled here; a failing list leaves it empty.
    explicit CheckTable(ToolHost &host, QWidget *parent = nullptr);
    ~CheckTable() override;

    // The server's data folder, holding one folder per database (the setting "DataFolder").
    void setDataFolder(const QString &folder) { m_dataFolder = folder; }
    QString dataFolder() const { return m_dataFolder; }
    static inline const QString kDefaultDataFolder = QStringLiteral("/var/lib/mysql/");

    Grid *resultGrid() const { return m_result; }
    TableChecklist *checklist() const { return m_list; }

private:
    void check();
    void back();
    void replace();

    ToolHost &m_host;
    QString m_dataFolder = kDefaultDataFolder;
    TableChecklist *m_list;
    QPushButton *m_check;
    QFrame *m_resultPage;
    Grid *m_result;
    QLineEdit *m_text;
    KeyPreview *m_keys;
};

} // namespace tabulon
