#include "safety/safetysettings.h"

#include <QDir>
#include <QSettings>
#include <QStandardPaths>

#include <memory>

namespace tabulon {

namespace {

QString &configuredStore()
{
    static QString path;
    return path;
}

std::unique_ptr<QSettings> openStore()
{
    const QString path = SafetySettings::storePath();
#ifdef Q_OS_WIN
    if (path.startsWith(QLatin1String("HKEY_")))
        return std::make_unique<QSettings>(path, QSettings::NativeFormat);
#endif
    return std::make_unique<QSettings>(path, QSettings::IniFormat);
}

// The connection values live under this group; the safety values sit beside them.
QString key(const char *name)
{
    return QStringLiteral("Software/Corvane/Tabulon/") + QLatin1String(name);
}

qint64 positive(const QVariant &value, qint64 fallback)
{
    if (!value.isValid())
        return fallback;
    bool ok = false;
    const qint64 n = value.toString().trimmed().toLongLong(&ok);
    if (!ok)
        return fallback;
    return n < 1 ? 1 : n;
}

} // namespace

QString SafetySettings::defaultFolder()
{
    QString base = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    if (base.isEmpty())
        base = QDir::homePath() + QStringLiteral("/.tabulon");
    return base + QStringLiteral("/safety");
}

void SafetySettings::useStore(const QString &storePath)
{
    configuredStore() = storePath;
}

QString SafetySettings::storePath()
{
    if (!configuredStore().isEmpty())
        return configuredStore();
    QSettings s(QSettings::IniFormat, QSettings::UserScope, QStringLiteral("Corvane"), QStringLiteral("Tabulon"));
    return s.fileName();
}

SafetySettings SafetySettings::current()
{
    SafetySettings settings;
    const auto store = openStore();
    const QVariant folder = store->value(key("SafetyFolder"));
    settings.folder = folder.typeId() == QMetaType::QString && !folder.toString().trimmed().isEmpty()
                          ? folder.toString().trimmed()
                          : defaultFolder();
    settings.keepCount =
        static_cast<int>(qMin<qint64>(positive(store->value(key("SafetyKeepCount")), kDefaultKeepCount), 1000000));
    settings.maxMB = qMin<qint64>(positive(store->value(key("SafetyMaxMB")), kDefaultMaxMB), qint64(1) << 30);
    return settings;
}

void SafetySettings::store(const SafetySettings &settings)
{
    const auto store = openStore();
    store->setValue(key("SafetyFolder"), settings.folder);
    store->setValue(key("SafetyKeepCount"), QString::number(settings.keepCount));
    store->setValue(key("SafetyMaxMB"), QString::number(settings.maxMB));
    store->sync();
}

} // namespace tabulon
