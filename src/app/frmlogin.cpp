#include "app/frmlogin.h"

#include "app/databaseinfo.h"
#include "app/mdiform1.h"
#include "ui/dialogs.h"

#include <QDateTime>
#include <QEvent>
#include <QFontDatabase>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include <cmath>
#include <random>

namespace tabulon {

frmlogin::frmlogin(MDIForm1 &main) : QDialog(&main), m_main(main)
{
    setObjectName(QStringLiteral("frmlogin"));
    setAttribute(Qt::WA_DeleteOnClose);
    auto *layout = new QVBoxLayout(this);
    m_challenge = new QLineEdit(this);
    m_challenge->setObjectName(QStringLiteral("Text1"));
    m_challenge->setReadOnly(true);
    auto *label = new QLabel(QStringLiteral("Enter Password"), this);
    label->setObjectName(QStringLiteral("Label1"));
    m_password = new QLineEdit(this);
    m_password->setObjectName(QStringLiteral("txtpassword"));
    m_password->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    auto *okButton = new QPushButton(QStringLiteral("&OK"), this);
    okButton->setObjectName(QStringLiteral("cmdok"));
    auto *cancel = new QPushButton(QStringLiteral("&CANCEL"), this);
    cancel->setObjectName(QStringLiteral("cmdcancel"));
    for (QWidget *w :
         {static_cast<QWidget *>(m_challenge), static_cast<QWidget *>(label), static_cast<QWidget *>(m_password),
          static_cast<QWidget *>(okButton), static_cast<QWidget *>(cancel)})
        layout->addWidget(w);
    connect(okButton, &QPushButton::clicked, this, &frmlogin::ok);
    connect(cancel, &QPushButton::clicked, this, [] { Dialogs::endProgram(0); });
}

QString frmlogin::challenge() const
{
    return m_challenge->text();
}

bool frmlogin::event(QEvent *e)
{
    if (e->type() == QEvent::WindowActivate)
        activate();
    return QDialog::event(e);
}

void frmlogin::activate()
{
    static constexpr int kTable[10] = {41, 7, 158, 93, 260, 12, 77, 199, 3, 131};
    QString text;
    int picked[5];
    m_answer.clear();
    for (int &p : picked) {
        // Re-seeded from the clock before every pick, so picks within one tick repeat.
        std::mt19937 gen(static_cast<unsigned>(QDateTime::currentMSecsSinceEpoch() / 16));
        const double random = std::generate_canonical<double, 32>(gen);
        int r = static_cast<int>(std::lround(random * 10 + 1));
        if (r > 10)
            r = 10;
        p = kTable[r - 1];
        text += QString::number(p);
    }
    m_challenge->setText(text);
    for (int p : picked) {
        while (p < 'a')
            p += 26;
        while (p > 'z')
            p -= 26;
        m_answer += QChar(p);
    }
}

void frmlogin::ok()
{
    // Only an empty entry passes; the expected answer is not compared.
    if (m_password->text().isEmpty()) {
        MDIForm1 &main = m_main;
        close();
        Dialogs::showModal(new DatabaseInfo(main));
        return;
    }
    Dialogs::message(this, QStringLiteral("Invalid Password"));
}

} // namespace tabulon
