// Progress shown in a window: a progress bar counting the steps and a status label, with a
// yield to pending events at every step so the window stays live during long loops.
#pragma once

#include "db/progress.h"

#include <QPointer>

#include <functional>

class QLabel;
class QProgressBar;

namespace tabulon {

class BusyState;

class ProgressView final : public Progress {
public:
    // Turns (name, step number from 1, total) into the status text; by default the name.
    using StatusFormat = std::function<QString(const QString &name, int index, int total)>;

    ProgressView(QProgressBar *bar, QLabel *status, StatusFormat format = {});
    // Stop requests come from the window's busy state (its Stop button or a close).
    void setBusyState(const BusyState *busy) { m_busy = busy; }
    void setFormat(StatusFormat format) { m_format = std::move(format); }

    void begin(int total) override;
    void step(const QString &name) override;
    void end() override;
    bool stopRequested() const override;

    int index() const { return m_index; }

private:
    QPointer<QProgressBar> m_bar;
    QPointer<QLabel> m_status;
    StatusFormat m_format;
    const BusyState *m_busy = nullptr;
    int m_total = 0;
    int m_index = 0;
};

} // namespace tabulon
