#include "maintenance/checktable.h"

#include "db/databasesession.h"
#include "grid/grid.h"
#include "maintenance/tablecheck.h"
#include "safety/safetynet.h"
#include "ui/dialogs.h"
#include "ui/tablechecklist.h"
#include "ui/toolhost.h"
#include "ui/toolwindow.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace tabulon {

namespace {

QPushButton *exitButton(QWidget *parent)
{
    auto *button = new QPushButton(QStringLiteral("E&xit"), parent);
    button->setObjectName(QStringLiteral("cmdExit"));
    return button;
}

} // namespace

CheckTable::CheckTable(ToolHost &host, QWidget *parent)
    : QDialog(parent), m_host(host), m_list(new TableChecklist(QStringLiteral("Checking Table "), {}, this)),
      m_check(new QPushButton(QStringLiteral("&Check"), this)), m_resultPage(new QFrame(this)),
      m_result(new Grid(m_resultPage)), m_text(new QLineEdit(m_resultPage)), m_keys(new KeyPreview(this))
{
    setObjectName(QStringLiteral("CheckTable"));
    setWindowTitle(QStringLiteral("Check Tables"));

    m_check->setObjectName(QStringLiteral("cmdcheck"));
    QPushButton *selectionExit = exitButton(this);
    m_list->addSelectionWidget(m_check);
    m_list->addSelectionWidget(selectionExit);

    m_resultPage->setObjectName(QStringLiteral("Frame1"));
    m_resultPage->setFrameShape(QFrame::StyledPanel);
    m_result->setObjectName(QStringLiteral("vsf"));
    m_result->setFixedCols(0);
    m_result->setCols(2);
    m_result->setTextMatrix(0, 0, QStringLiteral("Message"));
    m_result->setTextMatrix(0, 1, QStringLiteral("File"));
    m_text->setObjectName(QStringLiteral("Text1"));
    auto *back = new QPushButton(QStringLiteral("&Back"), m_resultPage);
    back->setObjectName(QStringLiteral("cmdback"));
    auto *replaceButton = new QPushButton(QStringLiteral("&Replace"), m_resultPage);
    replaceButton->setObjectName(QStringLiteral("cmdreplace"));
    QPushButton *resultExit = exitButton(m_resultPage);

    auto *folderRow = new QHBoxLayout;
    folderRow->addWidget(new QLabel(QStringLiteral("Copy good files from database"), m_resultPage));
    folderRow->addWidget(m_text, 1);
    auto *buttonRow = new QHBoxLayout;
    buttonRow->addStretch();
    buttonRow->addWidget(back);
    buttonRow->addWidget(replaceButton);
    buttonRow->addWidget(resultExit);
    auto *resultLayout = new QVBoxLayout(m_resultPage);
    resultLayout->addWidget(m_result, 1);
    resultLayout->addLayout(folderRow);
    resultLayout->addLayout(buttonRow);
    m_resultPage->hide();

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_list);
    layout->addWidget(m_resultPage);
    resize(680, 440);

    connect(m_check, &QPushButton::clicked, this, &CheckTable::check);
    exitOnConfirm(selectionExit, this);
    exitOnConfirm(resultExit, this);
    connect(back, &QPushButton::clicked, this, &CheckTable::back);
    connect(replaceButton, &QPushButton::clicked, this, &CheckTable::replace);

    noDefaultButtons(this);

    // Nothing here traps: a list the server refuses stays empty.
    (void)m_list->fillTables(m_host.sessionOrClosed());
}

CheckTable::~CheckTable() = default;

void CheckTable::check()
{
    if (m_list->busy().isBusy())
        return;
    if (m_list->tickedCount() > 0) {
        m_result->setRows(1);
        m_result->refresh();
    }
    DatabaseSession &session = m_host.sessionOrClosed();
    const TableChecklist::Run run = m_list->run([this, &session](const QString &table) {
        for (const TableCheck::Finding &finding : TableCheck::checkTable(session, table)) {
            const int row = m_result->rows();
            m_result->addRow();
            m_result->setTextMatrix(row, 0, finding.message);
            m_result->setTextMatrix(row, 1, finding.name);
        }
    });
    if (run != TableChecklist::Run::Finished)
        return;
    if (m_result->rows() == 1) {
        Dialogs::message(this, QStringLiteral("No Error Found."), Dialogs::Icon::Information);
        closeToolWindow(this);
        return;
    }
    m_result->autoSize(0, 1);
    m_list->hide();
    m_resultPage->show();
}

void CheckTable::back()
{
    m_resultPage->hide();
    m_list->showSelectionPage();
    m_list->show();
}

void CheckTable::replace()
{
    QStringList names;
    for (int row = 1; row < m_result->rows(); ++row)
        names << m_result->textMatrix(row, 1);
    names.removeAll(QString());
    names.removeDuplicates();
    const QString database = m_host.settings().database;
    if (const DbError error = SafetyNet::protectFiles(QStringLiteral("Check Tables Replace"), database,
                                                      TableCheck::databaseFolder(m_dataFolder, database), names)) {
        Dialogs::message(this, SafetyNet::failureText(error), Dialogs::Icon::Critical);
        return;
    }
    // A file that cannot be copied is not reported on its own; the operator checks again.
    (void)TableCheck::replaceFiles(m_dataFolder, m_text->text(), m_host.settings().database, names);
    Dialogs::message(this, QStringLiteral("Completed."), Dialogs::Icon::Information);
}

} // namespace tabulon
