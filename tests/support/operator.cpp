#include "operator.h"

#include <QDialog>

namespace tabulon::test {

Operator::Operator()
{
    Dialogs::setResponder([this](const Dialogs::Prompt &p) {
        prompts << p;
        switch (p.kind) {
        case Dialogs::Prompt::Kind::Question:
            asked << p.text;
            return Dialogs::Reply{answers.isEmpty() ? answer : answers.takeFirst(), {}};
        case Dialogs::Prompt::Kind::RuntimeError: runtimeErrors << p.text; break;
        case Dialogs::Prompt::Kind::Input:
            told << p.text;
            if (typed.isEmpty())
                return Dialogs::Reply{Dialogs::Answer::Ok, QString()};
            if (typed.first().isNull())
                return Dialogs::Reply{Dialogs::Answer::Cancel, typed.takeFirst()};
            return Dialogs::Reply{Dialogs::Answer::Ok, typed.takeFirst()};
        case Dialogs::Prompt::Kind::OpenFile:
            fileFilters << p.defaultText;
            return Dialogs::Reply{chosenFile.isEmpty() ? Dialogs::Answer::Cancel : Dialogs::Answer::Ok, chosenFile};
        case Dialogs::Prompt::Kind::OpenFolder:
            return Dialogs::Reply{chosenFolder.isEmpty() ? Dialogs::Answer::Cancel : Dialogs::Answer::Ok, chosenFolder};
        default: told << p.text; break;
        }
        return Dialogs::Reply{Dialogs::Answer::Ok, {}};
    });
    Dialogs::setModalRunner([this](QDialog *d) {
        modals << d;
        d->show();
    });
    Dialogs::setProgramEnder([this](int code) { ends << code; });
}

Operator::~Operator()
{
    Dialogs::setResponder({});
    Dialogs::setModalRunner({});
    Dialogs::setProgramEnder({});
}

} // namespace tabulon::test
