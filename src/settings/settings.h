// The persisted connection settings, kept where the registry key would be on Windows: an INI
// file (owner-only, it holds the password) read with the system file as fallback.
#pragma once

#include "settings/tlsconfig.h"

#include <QString>

namespace tabulon {

enum class Hive { LocalMachine };

class Settings final {
public:
    static inline const QString kKey = QStringLiteral("Software\\Corvane\\Tabulon");
    static inline const QString kServer = QStringLiteral("Server");
    static inline const QString kUser = QStringLiteral("User");
    static inline const QString kPassword = QStringLiteral("Password");
    static inline const QString kDatabase = QStringLiteral("Database");
    static inline const QString kDefaultServer = QStringLiteral("localhost");
    static inline const QString kDefaultUser = QStringLiteral("dbop");
    static inline const QString kDefaultPassword = QString();
    static inline const QString kDefaultDatabase = QStringLiteral("Orvita");
    // How every connection uses TLS (TlsConfig); beside the four, under the same key.
    static inline const QString kTlsMode = QStringLiteral("TlsMode");
    static inline const QString kTlsCa = QStringLiteral("TlsCa");
    static inline const QString kTlsCert = QStringLiteral("TlsCert");
    static inline const QString kTlsKey = QStringLiteral("TlsKey");

    // The user's own file (organisation Corvane, application Tabulon).
    Settings();
    // A given file, without the system fallback (tests).
    explicit Settings(const QString &iniPath);

    // The stored text, or the default when the value is missing or not a plain string; a NUL
    // cuts the text there. Never fails.
    QString ReadRegistryString(Hive hive, const QString &subKey, const QString &valueName,
                               const QString &defaultText) const;
    // Creates the key when needed and stores the text; failures are ignored.
    void WriteRegistryString(Hive hive, const QString &subKey, const QString &valueName, const QString &text);

    // The TLS settings; a TlsMode that is none of the modes leaves `problem` saying so and
    // which setting to change.
    TlsConfig readTls() const;
    void writeTls(const TlsConfig &config);

    QString fileName() const { return m_path; }

private:
    static QString keyPath(const QString &subKey, const QString &valueName);
    QString m_path;
    bool m_systemFallback = true;
};

} // namespace tabulon
