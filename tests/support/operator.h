// The operator in window tests: answers every box the program shows, keeps what it was asked
// and told, opens modal windows without blocking, and stands in for the end of the program.
// Installed for its lifetime.
#pragma once

#include "ui/dialogs.h"

#include <QList>
#include <QStringList>

class QDialog;

namespace tabulon::test {

class Operator final {
    Q_DISABLE_COPY_MOVE(Operator)
public:
    Operator();
    ~Operator();

    Dialogs::Answer answer = Dialogs::Answer::Yes; // to every question not answered by `answers`
    QList<Dialogs::Answer> answers;                // to the next questions, first first
    QString chosenFile;                            // from every open-file dialog ("" cancels)
    QString chosenFolder;                          // from every folder dialog ("" cancels)
    QStringList typed; // answers to input boxes, first first; then "". A null QString() cancels the box.

    QList<Dialogs::Prompt> prompts; // every box, input and file dialog, whole (icons, buttons, titles)
    QStringList asked;              // questions
    QStringList told;               // messages and input prompts
    QStringList runtimeErrors;      // reports of untrapped errors
    QStringList fileFilters;        // open-file dialogs shown
    QList<QDialog *> modals;        // windows shown modally, in order
    QList<int> ends;                // exit codes of every end of the program
};

} // namespace tabulon::test
