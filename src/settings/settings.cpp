#include "settings/settings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>

#include <memory>

#ifndef Q_OS_WIN
#include <fcntl.h>
#include <unistd.h>
#endif

namespace tabulon {

namespace {
// On Windows the values live in the machine's registry key; elsewhere in an INI file.
std::unique_ptr<QSettings> openStore(const QString &path)
{
#ifdef Q_OS_WIN
    if (path.startsWith(QLatin1String("HKEY_")))
        return std::make_unique<QSettings>(path, QSettings::NativeFormat);
#endif
    return std::make_unique<QSettings>(path, QSettings::IniFormat);
}

void makeOwnerOnly(const QString &path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    // Create the file 0600 before QSettings writes the password into it.
#ifndef Q_OS_WIN
    const QByteArray native = QFile::encodeName(path);
    const int fd = ::open(native.constData(), O_WRONLY | O_CREAT, 0600);
    if (fd >= 0)
        ::close(fd);
#endif
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}

// The value's text exactly as it stands in the INI file (blanks around it aside). QSettings
// turns a hand-typed value with a comma into a list and drops the blanks after the commas;
// a setting is one text, so such a value is read from the line itself.
QVariant rawIniValue(const QString &path, const QString &key)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    QString section;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(QLatin1Char('[')) && line.endsWith(QLatin1Char(']'))) {
            section = line.mid(1, line.size() - 2);
            continue;
        }
        const qsizetype eq = line.indexOf(QLatin1Char('='));
        if (eq <= 0)
            continue;
        QString name = line.left(eq).trimmed();
        name.replace(QLatin1Char('\\'), QLatin1Char('/'));
        const QString full =
            section.isEmpty() || section == QLatin1String("General") ? name : section + QLatin1Char('/') + name;
        if (full == key)
            return line.mid(eq + 1).trimmed();
    }
    return {};
}
} // namespace

Settings::Settings()
{
#ifdef Q_OS_WIN
    m_path = QStringLiteral("HKEY_LOCAL_MACHINE");
    m_systemFallback = false;
#else
    QSettings s(QSettings::IniFormat, QSettings::UserScope, QStringLiteral("Corvane"), QStringLiteral("Tabulon"));
    m_path = s.fileName();
#endif
}

Settings::Settings(const QString &iniPath) : m_path(iniPath), m_systemFallback(false) {}

QString Settings::keyPath(const QString &subKey, const QString &valueName)
{
    QString group = subKey;
    group.replace(QLatin1Char('\\'), QLatin1Char('/'));
    return group + QLatin1Char('/') + valueName;
}

QString Settings::ReadRegistryString(Hive, const QString &subKey, const QString &valueName,
                                     const QString &defaultText) const
{
    const QString key = keyPath(subKey, valueName);
    QVariant v;
    {
        v = openStore(m_path)->value(key);
    }
    if (v.typeId() == QMetaType::QStringList && !m_path.startsWith(QLatin1String("HKEY_")))
        v = rawIniValue(m_path, key);
    if (!v.isValid() && m_systemFallback) {
        QSettings system(QSettings::IniFormat, QSettings::SystemScope, QStringLiteral("Corvane"),
                         QStringLiteral("Tabulon"));
        v = system.value(key);
    }
    if (!v.isValid() || v.typeId() != QMetaType::QString)
        return defaultText;
    QString text = v.toString();
    const qsizetype nul = text.indexOf(QChar(u'\0'));
    if (nul >= 0)
        text.truncate(nul);
    return text;
}

void Settings::WriteRegistryString(Hive, const QString &subKey, const QString &valueName, const QString &text)
{
    const bool isFile = !m_path.startsWith(QLatin1String("HKEY_"));
    if (isFile)
        makeOwnerOnly(m_path);
    {
        auto store = openStore(m_path);
        store->setValue(keyPath(subKey, valueName), text);
        store->sync();
    }
    if (isFile)
        QFile::setPermissions(m_path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}

TlsConfig Settings::readTls() const
{
    const auto read = [this](const QString &name) {
        return ReadRegistryString(Hive::LocalMachine, kKey, name, QString());
    };
    TlsConfig config;
    config.ca = read(kTlsCa);
    config.cert = read(kTlsCert);
    config.key = read(kTlsKey);
    const QString modeText = read(kTlsMode);
    if (const auto mode = Tls::modeFromText(modeText)) {
        config.mode = *mode;
    } else {
        config.problem = QStringLiteral("The setting TlsMode holds \"%1\", which is not a TLS mode. Change TlsMode in "
                                        "%2 to off, preferred, required, verify-ca or verify-identity.")
                             .arg(modeText, m_path);
    }
    return config;
}

void Settings::writeTls(const TlsConfig &config)
{
    WriteRegistryString(Hive::LocalMachine, kKey, kTlsMode, Tls::modeText(config.mode));
    WriteRegistryString(Hive::LocalMachine, kKey, kTlsCa, config.ca);
    WriteRegistryString(Hive::LocalMachine, kKey, kTlsCert, config.cert);
    WriteRegistryString(Hive::LocalMachine, kKey, kTlsKey, config.key);
}

} // namespace tabulon
