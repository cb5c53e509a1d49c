// Every message box, question, input box and modal window of the program goes through here,
// so that tests can answer them without a human and without nested event loops.
#pragma once

#include <QString>

#include <functional>
#include <optional>

class QDialog;
class QWidget;

namespace tabulon {

struct DbError;

namespace Dialogs {

enum class Icon { None, Information, Question, Exclamation, Critical };
enum class Buttons { Ok, OkCancel, YesNo, YesNoCancel };
enum class Answer { Ok, Cancel, Yes, No };

struct Prompt final {
    enum class Kind { Message, Question, Input, RuntimeError, OpenFile, OpenFolder };
    Kind kind = Kind::Message;
    QString text;
    QString title; // empty: the program's name, as boxes without a title of their own show
    Icon icon = Icon::None;
    Buttons buttons = Buttons::Ok;
    QString defaultText; // input boxes; the file filter of open-file dialogs; the start of folder dialogs
};

struct Reply final {
    Answer answer = Answer::Ok;
    QString text; // input boxes: the answer; file and folder dialogs: the chosen path ("" when cancelled)
};

using Responder = std::function<Reply(const Prompt &)>;
// Replaces the real boxes (tests); an empty responder restores them.
void setResponder(Responder responder);

void message(QWidget *parent, const QString &text, Icon icon = Icon::None, const QString &title = QString());
Answer ask(QWidget *parent, const QString &text, Buttons buttons = Buttons::YesNo, Icon icon = Icon::None,
           const QString &title = QString());
// An input box: the typed text, or "" when the operator cancels.
QString input(QWidget *parent, const QString &prompt, const QString &title = QString(),
              const QString &defaultText = QString());
// An input box where an empty answer means something: the typed text, possibly "", or nothing
// when the operator cancels.
std::optional<QString> inputOrCancel(QWidget *parent, const QString &prompt, const QString &title = QString(),
                                     const QString &defaultText = QString());

// The common open-file dialog. `filter` pairs descriptions and patterns as
// "Access Database|*.mdb|DSN|*.dsn". Returns the chosen file's full path, "" when cancelled.
QString openFileName(QWidget *parent, const QString &filter);
// The folder dialog, opened at `start`. Returns the chosen folder's full path, "" when cancelled.
QString folderName(QWidget *parent, const QString &title, const QString &start);

// The report of an error nothing traps: "Run-time error '<number>':" and the description;
// then the program ends. Callers return at once after it.
void runtimeError(QWidget *parent, const DbError &error);
QString runtimeErrorText(const DbError &error);

// Ends the program (the main loop and every nested one stop). Tests replace the action.
void endProgram(int exitCode = 0);
void setProgramEnder(std::function<void(int)> ender);

// Shows a window modally. The real runner blocks in exec(); a test runner opens the window
// without blocking so the test can drive it. Callers never rely on code after this call
// running after the window closed: they connect to its finished() or destroyed() signals.
void showModal(QDialog *dialog);
void setModalRunner(std::function<void(QDialog *)> runner);

} // namespace Dialogs
} // namespace tabulon
