#include "ui/dialogs.h"

#include "db/dberror.h"

#include <QApplication>
#include <QDialog>
#include <QFileDialog>
#include <QInputDialog>
#include <QMessageBox>

namespace tabulon::Dialogs {

namespace {

Responder &responder()
{
    static Responder r;
    return r;
}

std::function<void(int)> &ender()
{
    static std::function<void(int)> e;
    return e;
}

std::function<void(QDialog *)> &modalRunner()
{
    static std::function<void(QDialog *)> r;
    return r;
}

QString titleOrDefault(const QString &title)
{
    return title.isEmpty() ? QApplication::applicationName() : title;
}

QMessageBox::Icon boxIcon(Icon icon)
{
    switch (icon) {
    case Icon::Information: return QMessageBox::Information;
    case Icon::Question: return QMessageBox::Question;
    case Icon::Exclamation: return QMessageBox::Warning;
    case Icon::Critical: return QMessageBox::Critical;
    case Icon::None: break;
    }
    return QMessageBox::NoIcon;
}

Reply showBox(QWidget *parent, const Prompt &p)
{
    QMessageBox box(boxIcon(p.icon), titleOrDefault(p.title), p.text, QMessageBox::NoButton, parent);
    switch (p.buttons) {
    case Buttons::Ok: box.setStandardButtons(QMessageBox::Ok); break;
    case Buttons::OkCancel: box.setStandardButtons(QMessageBox::Ok | QMessageBox::Cancel); break;
    case Buttons::YesNo: box.setStandardButtons(QMessageBox::Yes | QMessageBox::No); break;
    case Buttons::YesNoCancel: box.setStandardButtons(QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel); break;
    }
    switch (box.exec()) {
    case QMessageBox::Yes: return {Answer::Yes, {}};
    case QMessageBox::No: return {Answer::No, {}};
    case QMessageBox::Cancel: return {Answer::Cancel, {}};
    default: return {Answer::Ok, {}};
    }
}

// "Access Database|*.mdb|DSN|*.dsn" -> "Access Database (*.mdb);;DSN (*.dsn)".
QString qtFileFilter(const QString &filter)
{
    const QStringList parts = filter.split(QLatin1Char('|'));
    QStringList filters;
    for (qsizetype i = 0; i + 1 < parts.size(); i += 2) {
        QString patterns = parts[i + 1];
        patterns.replace(QLatin1Char(';'), QLatin1Char(' '));
        filters << parts[i] + QStringLiteral(" (") + patterns + QLatin1Char(')');
    }
    return filters.join(QStringLiteral(";;"));
}

Reply dispatch(QWidget *parent, const Prompt &p)
{
    if (responder())
        return responder()(p);
    if (p.kind == Prompt::Kind::OpenFile) {
        const QString path = QFileDialog::getOpenFileName(parent, p.title, QString(), qtFileFilter(p.defaultText));
        return {path.isEmpty() ? Answer::Cancel : Answer::Ok, path};
    }
    if (p.kind == Prompt::Kind::OpenFolder) {
        const QString path = QFileDialog::getExistingDirectory(parent, p.title, p.defaultText);
        return {path.isEmpty() ? Answer::Cancel : Answer::Ok, path};
    }
    if (p.kind == Prompt::Kind::Input) {
        bool ok = false;
        const QString text =
            QInputDialog::getText(parent, titleOrDefault(p.title), p.text, QLineEdit::Normal, p.defaultText, &ok);
        return {ok ? Answer::Ok : Answer::Cancel, ok ? text : QString()};
    }
    return showBox(parent, p);
}

} // namespace

void setResponder(Responder r)
{
    responder() = std::move(r);
}

void message(QWidget *parent, const QString &text, Icon icon, const QString &title)
{
    dispatch(parent, Prompt{Prompt::Kind::Message, text, title, icon, Buttons::Ok, {}});
}

Answer ask(QWidget *parent, const QString &text, Buttons buttons, Icon icon, const QString &title)
{
    return dispatch(parent, Prompt{Prompt::Kind::Question, text, title, icon, buttons, {}}).answer;
}

QString input(QWidget *parent, const QString &prompt, const QString &title, const QString &defaultText)
{
    const Reply r =
        dispatch(parent, Prompt{Prompt::Kind::Input, prompt, title, Icon::None, Buttons::OkCancel, defaultText});
    return r.answer == Answer::Cancel ? QString() : r.text;
}

std::optional<QString> inputOrCancel(QWidget *parent, const QString &prompt, const QString &title,
                                     const QString &defaultText)
{
    const Reply r =
        dispatch(parent, Prompt{Prompt::Kind::Input, prompt, title, Icon::None, Buttons::OkCancel, defaultText});
    if (r.answer == Answer::Cancel)
        return std::nullopt;
    return r.text;
}

QString openFileName(QWidget *parent, const QString &filter)
{
    const Reply r = dispatch(parent, Prompt{Prompt::Kind::OpenFile, {}, {}, Icon::None, Buttons::OkCancel, filter});
    return r.answer == Answer::Cancel ? QString() : r.text;
}

QString folderName(QWidget *parent, const QString &title, const QString &start)
{
    const Reply r = dispatch(parent, Prompt{Prompt::Kind::OpenFolder, {}, title, Icon::None, Buttons::OkCancel, start});
    return r.answer == Answer::Cancel ? QString() : r.text;
}

QString runtimeErrorText(const DbError &error)
{
    return QStringLiteral("Run-time error '%1':\n\n%2").arg(error.numberText(), error.description);
}

void runtimeError(QWidget *parent, const DbError &error)
{
    dispatch(parent, Prompt{Prompt::Kind::RuntimeError, runtimeErrorText(error), {}, Icon::Critical, Buttons::Ok, {}});
    endProgram(1);
}

void endProgram(int exitCode)
{
    if (ender()) {
        ender()(exitCode);
        return;
    }
    QCoreApplication::exit(exitCode);
}

void setProgramEnder(std::function<void(int)> e)
{
    ender() = std::move(e);
}

void showModal(QDialog *dialog)
{
    if (modalRunner()) {
        modalRunner()(dialog);
        return;
    }
    dialog->exec();
}

void setModalRunner(std::function<void(QDialog *)> r)
{
    modalRunner() = std::move(r);
}

} // namespace tabulon::Dialogs
