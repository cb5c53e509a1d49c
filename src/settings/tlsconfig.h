// How connections to the server use TLS: the mode and the certificate files, as the settings
// hold them.
#pragma once

#include <QString>

#include <optional>

namespace tabulon {

enum class TlsMode {
    Off,           // never TLS
    Preferred,     // TLS when the server offers it, otherwise without
    Required,      // TLS or no connection; the certificate is not checked
    VerifyCa,      // and the server's certificate must be signed by the CA in TlsCa
    VerifyIdentity // and it must name the host connected to
};

struct TlsConfig final {
    TlsMode mode = TlsMode::Preferred;
    QString ca;   // CA bundle the server's certificate is checked against
    QString cert; // the client's own certificate, with its key, for servers that ask for one
    QString key;
    // Why no connection may be made with these settings (a TlsMode that is none of the five);
    // empty when they can be used.
    QString problem;
};

namespace Tls {
// "off", "preferred", "required", "verify-ca", "verify-identity", in any case, blanks around
// ignored; an empty text is the default. Anything else is nullopt.
std::optional<TlsMode> modeFromText(const QString &text);
QString modeText(TlsMode mode);
} // namespace Tls

} // namespace tabulon
