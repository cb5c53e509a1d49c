// Where safety copies go and how many of them are kept, read from the program's settings store
// beside the connection values (SafetyFolder, SafetyKeepCount, SafetyMaxMB).
#pragma once

#include "db/dberror.h"

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

    // The settings as stored now. A value that is not there takes its default; a count or size
    // that is not a whole number from 1 up is an error naming the setting and the store: the
    // safety net then writes no copy, so no command that needs one runs until it is put right.
    static DbResult<SafetySettings> read();
    // The same, with the default in place of a value in error (for listing the copies).
    static SafetySettings current();
    // Writes the three values to the store.
    static void store(const SafetySettings &settings);
};

} // namespace tabulon
