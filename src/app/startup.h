// Start-up helpers: the platform test, starting a local server when the trial connection
// fails, and the profile file it keeps the server's path in.
#pragma once

#include <QString>

#include <functional>

namespace tabulon {

bool IsNtFamily();

// GetPrivateProfileString / WritePrivateProfileString over an INI-style text file; other
// sections and keys are kept as they are.
QString readProfileString(const QString &path, const QString &section, const QString &key, const QString &defaultText);
bool writeProfileString(const QString &path, const QString &section, const QString &key, const QString &value);

struct ServerStartEnvironment final {
    QString profilePath;                                // "/my.ini" (the root of the current drive on Windows)
    QString candidate;                                  // the server program written into the profile
    std::function<bool(const QString &program)> launch; // detached, no window
    static ServerStartEnvironment platformDefault();
};

// Writes the candidate into section WinMySqlAdmin, reads it back and starts that program.
// Every failure is silent.
void StartMySqlServer(const ServerStartEnvironment &env);

} // namespace tabulon
