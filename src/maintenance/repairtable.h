// The repair tool: REPAIR TABLE ... EXTENDED on every ticked table, whatever the server
// answers, then one closing message.
#pragma once

#include <QDialog>

namespace tabulon {

class KeyPreview;
class TableChecklist;
class ToolHost;

class RepairTable final : public QDialog {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(RepairTable)
public:
    // The table list is filled here; a failing list leaves it empty.
    explicit RepairTable(ToolHost &host, QWidget *parent = nullptr);
    ~RepairTable() override;

    TableChecklist *checklist() const { return m_list; }

private:
    void repair();

    ToolHost &m_host;
    TableChecklist *m_list;
    KeyPreview *m_keys;
};

} // namespace tabulon
