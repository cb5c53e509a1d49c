// Where safety copies go and how many of them are kept, read from the program's settings store
// beside the connection values (SafetyFolder, SafetyKeepCount, SafetyMaxMB).
#pragma once

#include <QString>

namespace tabulon {

struct SafetySettings final {
    static constexpr int kDefaultKeepCount = 50;
    static constexpr qint64 kDefaultMaxMB = 2048;

    QString folder;
    int keepCount = kDefaultKeepCount;
    qint64 maxMB = kDefaultMaxMB;

    qint64 maxBytes() const { return maxMB * 1024 * 1024; }

    // The folder under the user's data directory that holds the copies when none is set.
    static QString defaultFolder();

    // The store the program keeps its settings in (an INI file path; on Windows the registry
    // root "HKEY_LOCAL_MACHINE"). Until one is given the user's own Tabulon INI file is read.
    static void useStore(const QString &storePath);
    static QString storePath();

    // The settings as stored now; a missing or unreadable value takes its default, a count or
    // size below 1 counts as 1.
    static SafetySettings current();
    // Writes the three values to the store.
    static void store(const SafetySettings &settings);
};

} // namespace tabulon
