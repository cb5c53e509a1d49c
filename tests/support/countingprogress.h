// A progress that counts what the loop reports and asks to stop once `stopAfter` steps have
// started (0: never).
#pragma once

#include "db/progress.h"

#include <QList>

namespace tabulon::test {

class CountingProgress final : public Progress {
public:
    explicit CountingProgress(int stopAfter = 0) : stopAfter(stopAfter) {}
    void begin(int total) override { totals << total; }
    void step(const QString &) override { ++steps; }
    void end() override { ++ends; }
    bool stopRequested() const override { return stopAfter > 0 && steps >= stopAfter; }
    int stopAfter;
    QList<int> totals;
    int steps = 0;
    int ends = 0;
};

} // namespace tabulon::test
