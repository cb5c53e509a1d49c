// TLS for the session's connections: the configuration a session opens with when it is given
// none, the client library's options for each TlsMode, and refusals that say why and which
// setting to change.
#pragma once

#include "db/dberror.h"
#include "settings/tlsconfig.h"

#include <QString>

#include <optional>

struct st_mysql;

namespace tabulon {

// What an open connection negotiated; both empty when it is not encrypted.
struct TlsState final {
    QString version; // "TLSv1.3"
    QString cipher;  // "TLS_AES_256_GCM_SHA384"
    bool encrypted() const { return !cipher.isEmpty(); }
};

namespace SessionTls {

// The server number a refusal for TLS reasons carries (the client library's own for a failed
// TLS connection), so that a window can tell it from a wrong password.
constexpr int kRefusalCode = 2026;
inline bool isRefusal(const DbError &error)
{
    return error.serverCode == kRefusalCode;
}

// The configuration of every session that was given none: the one set here (the main window
// sets its settings store's), otherwise the user's settings file as it stands at each open, so
// that import_db and any other opener follow the same TlsMode.
void setProgramDefault(std::optional<TlsConfig> config);
TlsConfig programDefault();

// Before connecting: refuses settings that cannot work (an unknown TlsMode, a file that cannot
// be read, a certificate without its key) and sets the client library's options for the mode.
DbError apply(st_mysql *mysql, const TlsConfig &config);
// The failed connect's error, put in the operator's terms when TLS was the reason.
DbError connectError(st_mysql *mysql, const TlsConfig &config, const QString &host);
// After connecting: a mode that requires TLS refuses a connection that has none. The client
// library falls back to plain text when the server offers no TLS, except with the host name
// check, so for required and verify-ca the refusal comes after the login exchange (with the
// server's usual authentication, a scrambled hash of the password, not the password).
DbError checkConnected(st_mysql *mysql, const TlsConfig &config);
TlsState stateOf(st_mysql *mysql);

// The texts of the refusals, for the tests that compare them.
QString noTlsText(const TlsConfig &config);
QString untrustedText(const TlsConfig &config, const QString &reason);
QString hostMismatchText(const QString &host);
QString fileText(const QString &setting, const QString &path, const QString &reason);

} // namespace SessionTls

} // namespace tabulon
