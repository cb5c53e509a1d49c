#include "safety/safetycopies.h"

#include "safety/putback.h"
#include "safety/safetynet.h"
#include "ui/dialogs.h"
#include "ui/progressview.h"
#include "ui/toolhost.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QProgressBar>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace tabulon {

namespace {

QString sizeText(qint64 bytes)
{
    return QLocale::c().formattedDataSize(bytes, 1, QLocale::DataSizeTraditionalFormat);
}

} // namespace

SafetyCopies::SafetyCopies(ToolHost &host, QWidget *parent)
    : QDialog(parent), m_host(host), m_list(new QTreeWidget(this)),
      m_putBack(new QPushButton(QStringLiteral("Put &Back"), this)), m_bar(new QProgressBar(this)),
      m_status(new QLabel(this)), m_keys(new KeyPreview(this)), m_busy(this)
{
    setObjectName(QStringLiteral("SafetyCopies"));
    setWindowTitle(QStringLiteral("Safety Copies"));

    m_list->setObjectName(QStringLiteral("lstcopies"));
    m_list->setRootIsDecorated(false);
    m_list->setUniformRowHeights(true);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setHeaderLabels({QStringLiteral("Time"), QStringLiteral("Command"), QStringLiteral("Database"),
                             QStringLiteral("Tables"), QStringLiteral("Rows"), QStringLiteral("Size")});
    m_putBack->setObjectName(QStringLiteral("cmdputback"));
    auto *exitButton = new QPushButton(QStringLiteral("E&xit"), this);
    exitButton->setObjectName(QStringLiteral("cmdexit"));
    m_bar->setObjectName(QStringLiteral("ProgressBar1"));
    m_bar->setTextVisible(false);
    m_status->setObjectName(QStringLiteral("lblstatus"));

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_putBack);
    buttons->addStretch();
    buttons->addWidget(exitButton);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_list, 1);
    layout->addWidget(m_bar);
    layout->addWidget(m_status);
    layout->addLayout(buttons);
    resize(760, 420);

    connect(m_putBack, &QPushButton::clicked, this, &SafetyCopies::putBack);
    connect(exitButton, &QPushButton::clicked, this, &SafetyCopies::exitAsked);
    refresh();
}

SafetyCopies::~SafetyCopies() = default;

void SafetyCopies::refresh()
{
    m_list->clear();
    const QLocale locale;
    for (const SafetyCopyInfo &copy : SafetyNet::listCopies(SafetySettings::current().folder)) {
        const QString rows = copy.withoutCopy                           ? QStringLiteral("(no copy)")
                             : copy.kind == SafetyCopyInfo::Kind::Files ? QStringLiteral("(files)")
                                                                        : locale.toString(copy.rows);
        auto *item = new QTreeWidgetItem(
            m_list, {copy.time.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")), copy.command,
                     copy.database, copy.tables.join(QStringLiteral(", ")), rows, sizeText(copy.size)});
        item->setData(0, Qt::UserRole, copy.path);
        item->setTextAlignment(4, Qt::AlignRight | Qt::AlignVCenter);
        item->setTextAlignment(5, Qt::AlignRight | Qt::AlignVCenter);
    }
    for (int c = 0; c < m_list->columnCount(); ++c)
        m_list->resizeColumnToContents(c);
    if (m_list->topLevelItemCount() > 0)
        m_list->setCurrentItem(m_list->topLevelItem(0));
    m_putBack->setEnabled(m_list->topLevelItemCount() > 0);
}

void SafetyCopies::putBack()
{
    BusyGuard busy(m_busy);
    if (!busy)
        return;
    const QTreeWidgetItem *item = m_list->currentItem();
    if (!item)
        return;
    // Read again: the copy may have gone since the list was made.
    auto copy = SafetyCopy::readInfo(item->data(0, Qt::UserRole).toString());
    if (!copy) {
        Dialogs::message(this, copy.error().description, Dialogs::Icon::Critical);
        refresh();
        return;
    }
    if (Dialogs::ask(this, PutBack::question(*copy), Dialogs::Buttons::YesNo, Dialogs::Icon::Question) !=
        Dialogs::Answer::Yes)
        return;
    ProgressView progress(m_bar, m_status, [](const QString &name, int index, int total) -> QString {
        return QStringLiteral("Putting back ") + name + QStringLiteral(" (%1 of %2)").arg(index).arg(total);
    });
    progress.setBusyState(&m_busy);
    const auto done = PutBack::putBack(m_host.sessionOrClosed(), *copy, progress);
    // The put-back wrote a copy of what it replaced.
    refresh();
    if (!done) {
        Dialogs::message(this, QStringLiteral("The safety copy was not put back.\n") + done.error().description,
                         Dialogs::Icon::Critical);
        return;
    }
    Dialogs::message(this, PutBack::summaryText(*copy, done.value()));
}

void SafetyCopies::exitAsked()
{
    if (confirmExit(this))
        closeToolWindow(this);
}

void SafetyCopies::closeEvent(QCloseEvent *event)
{
    if (!m_busy.closeRequested()) {
        event->ignore();
        return;
    }
    QDialog::closeEvent(event);
}

} // namespace tabulon
