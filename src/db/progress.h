// How long loops over tables, rows or files tell the operator how far they are, and learn
// that the operator asked them to stop. Windows implement it with a progress bar and a
// status label (and yield to pending events in step()); tests fake it.
#pragma once

#include <QString>

namespace tabulon {

class Progress {
public:
    Progress() = default;
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;
    virtual ~Progress() = default;

    // A loop of `total` steps starts.
    virtual void begin(int total) = 0;
    // One step starts; `name` is what it works on (a table, a file). A window shows it and
    // lets pending events run, so the operator can press Stop or close the window.
    virtual void step(const QString &name) = 0;
    // The loop has ended, finished or stopped.
    virtual void end() = 0;
    // Polled by loops between steps; true ends the loop early.
    virtual bool stopRequested() const { return false; }
};

// For callers that want no report.
class NoProgress final : public Progress {
public:
    void begin(int) override {}
    void step(const QString &) override {}
    void end() override {}
};

} // namespace tabulon
