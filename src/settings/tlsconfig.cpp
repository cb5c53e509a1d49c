#include "settings/tlsconfig.h"

#include <array>
#include <utility>

namespace tabulon::Tls {

namespace {
const std::array<std::pair<TlsMode, const char *>, 5> kNames{{
    {TlsMode::Off, "off"},
    {TlsMode::Preferred, "preferred"},
    {TlsMode::Required, "required"},
    {TlsMode::VerifyCa, "verify-ca"},
    {TlsMode::VerifyIdentity, "verify-identity"},
}};
} // namespace

std::optional<TlsMode> modeFromText(const QString &text)
{
    const QString t = text.trimmed().toLower();
    if (t.isEmpty())
        return TlsConfig{}.mode;
    for (const auto &[mode, name] : kNames) {
        if (t == QLatin1String(name))
            return mode;
    }
    return std::nullopt;
}

QString modeText(TlsMode mode)
{
    for (const auto &[m, name] : kNames) {
        if (m == mode)
            return QLatin1String(name);
    }
    return {};
}

} // namespace tabulon::Tls
