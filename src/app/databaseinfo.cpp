#include "app/databaseinfo.h"

#include "app/mdiform1.h"
#include "db/connectionstring.h"
#include "db/databasesession.h"
#include "ui/dialogs.h"

#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

namespace tabulon {

namespace {
QLabel *label(QWidget *parent, const char *name, const QString &text)
{
    auto *l = new QLabel(text, parent);
    l->setObjectName(QLatin1String(name));
    return l;
}
QLineEdit *edit(QWidget *parent, const char *name, const QString &text)
{
    auto *e = new QLineEdit(text, parent);
    e->setObjectName(QLatin1String(name));
    return e;
}
} // namespace

DatabaseInfo::DatabaseInfo(MDIForm1 &main) : QDialog(&main), m_main(main)
{
    setObjectName(QStringLiteral("DatabaseInfo"));
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(QString());
    setWindowFlags(Qt::Dialog | Qt::MSWindowsFixedSizeDialogHint);
    setModal(true);

    auto *layout = new QGridLayout(this);
    // A fixed border: the window takes its layout's size and cannot be resized.
    layout->setSizeConstraint(QLayout::SetFixedSize);
    auto *title = label(this, "Label1", QStringLiteral("DATABASE INFO SETUP"));
    title->setAlignment(Qt::AlignCenter);
    layout->addWidget(title, 0, 0, 1, 2);
    m_db = edit(this, "txtdbname", main.Database);
    m_uid = edit(this, "txtuid", main.User);
    m_pwd = edit(this, "txtpwd", main.Password);
    m_pwd->setEchoMode(QLineEdit::Password);
    m_svr = edit(this, "txtsvr", main.Server);
    layout->addWidget(label(this, "Label2", QStringLiteral("Database Name:")), 1, 0);
    layout->addWidget(m_db, 1, 1);
    layout->addWidget(label(this, "Label3", QStringLiteral("User Id:")), 2, 0);
    layout->addWidget(m_uid, 2, 1);
    layout->addWidget(label(this, "Label4", QStringLiteral("Password:")), 3, 0);
    layout->addWidget(m_pwd, 3, 1);
    layout->addWidget(label(this, "Label5", QStringLiteral("Server:")), 4, 0);
    layout->addWidget(m_svr, 4, 1);
    auto *ok = new QPushButton(QStringLiteral("&OK"), this);
    ok->setObjectName(QStringLiteral("cmdok"));
    ok->setDefault(true);
    auto *cancel = new QPushButton(QStringLiteral("&CANCEL"), this);
    cancel->setObjectName(QStringLiteral("cmdcancel"));
    layout->addWidget(ok, 5, 0);
    layout->addWidget(cancel, 5, 1);
    connect(ok, &QPushButton::clicked, this, &DatabaseInfo::accept);
    connect(cancel, &QPushButton::clicked, this, &DatabaseInfo::reject);
}

void DatabaseInfo::accept()
{
    m_main.replaceSession();
    DatabaseSession *s = m_main.session();
    const QString db = m_db->text().trimmed();
    const QString uid = m_uid->text().trimmed();
    const QString pwd = m_pwd->text().trimmed();
    const QString svr = m_svr->text().trimmed();
    DbError e = s->open(ConnectionString::mysql(svr, uid, pwd, db), QString(), QString());
    if (!e)
        e = s->execute(QStringLiteral("Show Tables"));
    m_main.showSessionSecurity();
    if (e) {
        m_main.disableDatabaseMenus();
        QString text = QStringLiteral("Error connecting to Database.");
        // The server answered but TLS stood in the way: say why, and which setting to change.
        if (SessionTls::isRefusal(e))
            text += QStringLiteral("\n\n") + e.description;
        Dialogs::message(this, text, Dialogs::Icon::Information);
        return;
    }
    m_main.Database = db;
    m_main.User = uid;
    m_main.Password = pwd;
    m_main.Server = svr;
    Settings &st = m_main.settingsStore();
    st.WriteRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kDatabase, db);
    st.WriteRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kUser, uid);
    st.WriteRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kPassword, pwd);
    st.WriteRegistryString(Hive::LocalMachine, Settings::kKey, Settings::kServer, svr);
    m_main.enableAllMenus();
    m_main.setWindowTitle(QStringLiteral("Tabulon [ ") + m_db->text() + QStringLiteral(" : ") + m_svr->text() +
                          QStringLiteral(" ]"));
    QDialog::accept();
}

} // namespace tabulon
