#include "db/sessiontls.h"

#include "settings/settings.h"

#include <QFile>
#include <QFileInfo>

#include <mysql.h>

namespace tabulon::SessionTls {

namespace {

std::optional<TlsConfig> &programConfig()
{
    static std::optional<TlsConfig> config;
    return config;
}

DbError refusal(const QString &text)
{
    return DbError::fromServer(kRefusalCode, text);
}

DbError unreadable(const QString &setting, const QString &path)
{
    const QFileInfo info(path);
    if (info.exists() && !info.isFile())
        return refusal(fileText(setting, path, QStringLiteral("it is not a file")));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return refusal(fileText(setting, path, file.errorString()));
    return {};
}

bool verifies(TlsMode mode)
{
    return mode == TlsMode::VerifyCa || mode == TlsMode::VerifyIdentity;
}

// The reasons OpenSSL gives when the server's certificate chain does not check out.
bool isTrustFailure(const QString &reason)
{
    static const char *const phrases[] = {
        "self-signed",
        "self signed",
        "issuer certificate",
        "first certificate",
        "certificate has expired",
        "not yet valid",
        "signature failure",
        "certificate revoked",
        "certificate purpose",
        "chain too long",
        "invalid ca certificate",
        "certificate rejected",
        "certificate not trusted",
    };
    for (const char *phrase : phrases) {
        if (reason.contains(QLatin1String(phrase), Qt::CaseInsensitive))
            return true;
    }
    return false;
}

} // namespace

void setProgramDefault(std::optional<TlsConfig> config)
{
    programConfig() = std::move(config);
}

TlsConfig programDefault()
{
    if (const auto &config = programConfig())
        return *config;
    return Settings().readTls();
}

DbError apply(st_mysql *mysql, const TlsConfig &config)
{
    if (!config.problem.isEmpty())
        return refusal(config.problem);
    my_bool useTls = config.mode != TlsMode::Off;
    mysql_optionsv(mysql, MYSQL_OPT_SSL_ENFORCE, &useTls);
    if (!useTls)
        return {};

    if (config.cert.isEmpty() != config.key.isEmpty())
        return refusal(QStringLiteral("TlsCert and TlsKey go together: set both to the client's certificate and its "
                                      "key, or neither."));
    if (config.mode == TlsMode::VerifyCa && config.ca.isEmpty())
        return refusal(QStringLiteral("TlsMode verify-ca checks the server's certificate against the CA in TlsCa, "
                                      "which is empty. Set TlsCa to the CA's certificate file."));
    const bool useCa = verifies(config.mode) && !config.ca.isEmpty();
    if (useCa) {
        if (DbError e = unreadable(QStringLiteral("TlsCa"), config.ca))
            return e;
    }
    if (!config.cert.isEmpty()) {
        if (DbError e = unreadable(QStringLiteral("TlsCert"), config.cert))
            return e;
        if (DbError e = unreadable(QStringLiteral("TlsKey"), config.key))
            return e;
        mysql_optionsv(mysql, MYSQL_OPT_SSL_CERT, QFile::encodeName(config.cert).constData());
        mysql_optionsv(mysql, MYSQL_OPT_SSL_KEY, QFile::encodeName(config.key).constData());
    }
    // A CA makes the library check the certificate's chain; only the last mode adds the host
    // name (and without a CA checks against the system's).
    if (useCa)
        mysql_optionsv(mysql, MYSQL_OPT_SSL_CA, QFile::encodeName(config.ca).constData());
    my_bool checkHost = config.mode == TlsMode::VerifyIdentity;
    mysql_optionsv(mysql, MYSQL_OPT_SSL_VERIFY_SERVER_CERT, &checkHost);
    return {};
}

DbError connectError(st_mysql *mysql, const TlsConfig &config, const QString &host)
{
    const int code = static_cast<int>(mysql_errno(mysql));
    QString text = QString::fromUtf8(mysql_error(mysql));
    if (code != kRefusalCode)
        return DbError::fromServer(code ? code : 2000, text);
    // "TLS/SSL error: <reason>"
    const qsizetype colon = text.indexOf(QLatin1String(": "));
    const QString reason = colon >= 0 ? text.mid(colon + 2) : text;
    if (reason.contains(QLatin1String("does not support")))
        return refusal(noTlsText(config));
    if (reason.contains(QLatin1String("Validation of SSL server certificate failed")))
        return refusal(hostMismatchText(host.isEmpty() ? QStringLiteral("localhost") : host));
    if (isTrustFailure(reason))
        return refusal(untrustedText(config, reason));
    return refusal(QStringLiteral("The TLS connection failed: %1. Check the files in TlsCa, TlsCert and TlsKey, or "
                                  "set TlsMode to off to connect without TLS.")
                       .arg(reason));
}

DbError checkConnected(st_mysql *mysql, const TlsConfig &config)
{
    if (config.mode == TlsMode::Off || config.mode == TlsMode::Preferred || mysql_get_ssl_cipher(mysql))
        return {};
    return refusal(noTlsText(config));
}

TlsState stateOf(st_mysql *mysql)
{
    TlsState state;
    if (const char *cipher = mysql_get_ssl_cipher(mysql)) {
        state.cipher = QString::fromLatin1(cipher);
        const char *version = nullptr;
        if (mariadb_get_infov(mysql, MARIADB_CONNECTION_TLS_VERSION, &version) == 0 && version)
            state.version = QString::fromLatin1(version);
    }
    return state;
}

QString noTlsText(const TlsConfig &config)
{
    return QStringLiteral("The server offers no TLS, and TlsMode is %1. Enable TLS on the server, or set TlsMode to "
                          "preferred to connect without it.")
        .arg(Tls::modeText(config.mode));
}

QString untrustedText(const TlsConfig &config, const QString &reason)
{
    const QString against = config.ca.isEmpty() ? QStringLiteral("the system's CAs, TlsCa being empty")
                                                : QStringLiteral("the CA in TlsCa, \"%1\"").arg(config.ca);
    return QStringLiteral("The server's certificate is not trusted (%1): it was checked against %2. Set TlsCa to the "
                          "CA that signed it, or TlsMode to required to encrypt without checking the certificate.")
        .arg(reason, against);
}

QString hostMismatchText(const QString &host)
{
    return QStringLiteral("The server's certificate does not name the host \"%1\". Connect by a name the certificate "
                          "holds, or set TlsMode to verify-ca to check the certificate without the host name.")
        .arg(host);
}

QString fileText(const QString &setting, const QString &path, const QString &reason)
{
    return QStringLiteral("The file in %1, \"%2\", cannot be read: %3. Set %1 to a readable file.")
        .arg(setting, path, reason);
}

} // namespace tabulon::SessionTls
