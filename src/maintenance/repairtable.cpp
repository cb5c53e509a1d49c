#include "maintenance/repairtable.h"

#include "db/databasesession.h"
#include "maintenance/tablecheck.h"
#include "safety/safetynet.h"
#include "ui/dialogs.h"
#include "ui/tablechecklist.h"
#include "ui/toolhost.h"
#include "ui/toolwindow.h"

#include <QPushButton>
#include <QVBoxLayout>

namespace tabulon {

RepairTable::RepairTable(ToolHost &host, QWidget *parent)
    : QDialog(parent), m_host(host), m_list(new TableChecklist(QStringLiteral("Repairing Table "), {}, this)),
      m_keys(new KeyPreview(this))
{
    setObjectName(QStringLiteral("RepairTable"));
    setWindowTitle(QStringLiteral("Repair Tables"));

    auto *repairButton = new QPushButton(QStringLiteral("&Repair"), this);
    repairButton->setObjectName(QStringLiteral("cmdrepair"));
    auto *exitButton = new QPushButton(QStringLiteral("E&xit"), this);
    exitButton->setObjectName(QStringLiteral("cmdExit"));
    m_list->addSelectionWidget(repairButton);
    m_list->addSelectionWidget(exitButton);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_list);
    resize(420, 400);

    connect(repairButton, &QPushButton::clicked, this, &RepairTable::repair);
    exitOnConfirm(exitButton, this);
    noDefaultButtons(this);

    // Nothing here traps: a list the server refuses stays empty.
    (void)m_list->fillTables(m_host.sessionOrClosed());
}

RepairTable::~RepairTable() = default;

void RepairTable::repair()
{
    DatabaseSession &session = m_host.sessionOrClosed();
    if (const DbError error =
            SafetyNet::protectTableFiles(session, QStringLiteral("Repair Tables"), m_list->tickedTables())) {
        Dialogs::message(this, SafetyNet::failureText(error), Dialogs::Icon::Critical);
        return;
    }
    const TableChecklist::Run run = m_list->run([&session](const QString &table) {
        // What the server says, and whether it could repair at all, is not shown.
        (void)TableCheck::repairTable(session, table);
    });
    if (run != TableChecklist::Run::Finished)
        return;
    Dialogs::message(this, QStringLiteral("Database Repaired Sucessfully"));
    closeToolWindow(this);
}

} // namespace tabulon
