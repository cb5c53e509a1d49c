#include "convert/convertdb.h"

#include "convert/conversionrules.h"
#include "convert/databaseconversion.h"
#include "ui/dialogs.h"
#include "ui/toolhost.h"
#include "ui/toolwindow.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

namespace tabulon {

namespace {

class WindowPrompts final : public ConversionPrompts {
public:
    explicit WindowPrompts(QWidget *window) : m_window(window) {}
    void message(const QString &text) override { Dialogs::message(m_window, text); }
    bool askYesNo(const QString &text) override
    {
        return Dialogs::ask(m_window, text, Dialogs::Buttons::YesNo) == Dialogs::Answer::Yes;
    }

private:
    QWidget *m_window;
};

} // namespace

ConvertDb::ConvertDb(ToolHost &host, QWidget *parent)
    : QDialog(parent), m_host(host), m_source(new QLineEdit(this)),
      m_targetLabel(new QLabel(QStringLiteral("Convert to"), this)), m_target(new QComboBox(this)),
      m_nameLabel(new QLabel(QStringLiteral("Database Name"), this)), m_name(new QLineEdit(this)),
      m_structureOnly(new QCheckBox(QStringLiteral("Structure Only"), this)),
      m_ok(new QPushButton(QStringLiteral("&OK"), this)), m_cancel(new QPushButton(QStringLiteral("&CANCEL"), this))
{
    setObjectName(QStringLiteral("ConvertDb"));
    setWindowTitle(QStringLiteral("Convert Database"));
    m_source->setObjectName(QStringLiteral("Text1"));
    m_targetLabel->setObjectName(QStringLiteral("Label2"));
    m_target->setObjectName(QStringLiteral("Combo1"));
    m_nameLabel->setObjectName(QStringLiteral("Label3"));
    m_name->setObjectName(QStringLiteral("Text2"));
    m_structureOnly->setObjectName(QStringLiteral("Check1"));
    m_ok->setObjectName(QStringLiteral("Command2"));
    m_cancel->setObjectName(QStringLiteral("Command1"));

    m_target->addItem(QStringLiteral("MySql Database"));
    m_target->setEnabled(false); // the only target: shown, not chosen

    m_source->setGeometry(16, 16, 360, 24);
    m_targetLabel->setGeometry(16, 56, 110, 20);
    m_target->setGeometry(136, 52, 240, 24);
    m_nameLabel->setGeometry(16, 92, 110, 20);
    m_name->setGeometry(136, 88, 240, 24);
    m_structureOnly->setGeometry(136, 124, 240, 22);
    m_ok->setGeometry(136, 160, 110, 28);
    m_cancel->setGeometry(266, 160, 110, 28);
    setFixedSize(392, 204);

    new KeyPreview(this);
    connect(m_source, &QLineEdit::textChanged, this, &ConvertDb::onSourceChanged);
    connect(m_ok, &QPushButton::clicked, this, &ConvertDb::onOk);
    connect(m_cancel, &QPushButton::clicked, this, [this] { closeToolWindow(this); });
    noDefaultButtons(this);
}

ConvertDb::~ConvertDb() = default;

void ConvertDb::onSourceChanged()
{
    // A name too short to hold an extension proposes nothing.
    if (const auto name = Conversion::proposedDatabaseName(m_source->text()))
        m_name->setText(*name);
}

void ConvertDb::onOk()
{
    if (m_running)
        return; // the run shows boxes of its own; a click meanwhile starts nothing
    m_running = true;
    DatabaseConversion &conversion = DatabaseConversion::shared();
    conversion.setStructureOnly(m_structureOnly->checkState() == Qt::Checked);
    WindowPrompts prompts(this);
    conversion.ConvertDatabase(m_host.sessionOrClosed(), prompts, m_source->text(), m_name->text());
    m_running = false;
    // The run's account goes into a file and its counts into the status bar: the run itself
    // ends with the boxes it has always shown.
    const QString path = ConversionReport::defaultPath();
    QString reason;
    if (conversion.report().save(path, reason))
        m_host.showStatus(conversion.report().summary(path));
    else
        m_host.showStatus(QStringLiteral("The conversion report cannot be written to %1: %2")
                              .arg(QDir::toNativeSeparators(path), reason));
    closeToolWindow(this);
}

} // namespace tabulon
