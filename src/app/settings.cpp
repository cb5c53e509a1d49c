#include "settings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>

#include <fcntl.h>
#include <unistd.h>

namespace tabulon {

namespace {
void makeOwnerOnly(const QString &path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    // Create the file 0600 before QSettings writes the password into it.
    const QByteArray native = QFile::encodeName(path);
    const int fd = ::open(native.constData(), O_WRONLY | O_CREAT, 0600);
    if (fd >= 0)
        ::close(fd);
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}
} // namespace

Settings::Settings()
{
    QSettings s(QSettings::IniFormat, QSettings::UserScope, QStringLiteral("Corvane"), QStringLiteral("Tabulon"));
    m_path = s.fileName();
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
        QSettings user(m_path, QSettings::IniFormat);
        v = user.value(key);
    }
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
    makeOwnerOnly(m_path);
    {
        QSettings s(m_path, QSettings::IniFormat);
        s.setValue(keyPath(subKey, valueName), text);
        s.sync();
    }
    QFile::setPermissions(m_path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}

} // namespace tabulon
