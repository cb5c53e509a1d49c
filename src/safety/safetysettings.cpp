#include "safety/safetysettings.h"

#include "settings/settings.h"

#include <QDir>
#include <QSettings>
#include <QStandardPaths>

#include <memory>
#include <optional>

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

constexpr qint64 kMaxKeepCount = 1000000;
constexpr qint64 kMaxMB = qint64(1) << 30;

// The stored text of a value (a hand-typed one with a comma stays one text); nullopt when the
// value is not there.
std::optional<QString> storedText(const char *name)
{
    if (!openStore()->contains(key(name)))
        return std::nullopt;
    return Settings(SafetySettings::storePath())
        .ReadRegistryString(Hive::LocalMachine, Settings::kKey, QLatin1String(name), QString());
}

// A whole number from 1 to `most`; an error naming the setting otherwise.
DbResult<qint64> count(const char *name, qint64 fallback, qint64 most)
{
    const auto text = storedText(name);
    if (!text)
        return fallback;
    bool ok = false;
    const qint64 n = text->trimmed().toLongLong(&ok);
    if (ok && n >= 1 && n <= most)
        return n;
    return DbError::generic(QStringLiteral("The setting ") + QLatin1String(name) + QStringLiteral(" is \"") + *text +
                            QStringLiteral("\": it must be a whole number from 1 to ") + QString::number(most) +
                            QStringLiteral(". No safety copy can be written, so no command that changes data will "
                                           "run until it is put right in ") +
                            SafetySettings::storePath() + QLatin1Char('.'));
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

DbResult<SafetySettings> SafetySettings::read()
{
    SafetySettings settings;
    const QString folder = storedText("SafetyFolder").value_or(QString()).trimmed();
    settings.folder = folder.isEmpty() ? defaultFolder() : folder;
    auto keep = count("SafetyKeepCount", kDefaultKeepCount, kMaxKeepCount);
    if (!keep)
        return keep.error();
    auto size = count("SafetyMaxMB", kDefaultMaxMB, kMaxMB);
    if (!size)
        return size.error();
    settings.keepCount = static_cast<int>(*keep);
    settings.maxMB = *size;
    return settings;
}

SafetySettings SafetySettings::current()
{
    SafetySettings settings;
    const QString folder = storedText("SafetyFolder").value_or(QString()).trimmed();
    settings.folder = folder.isEmpty() ? defaultFolder() : folder;
    if (auto keep = count("SafetyKeepCount", kDefaultKeepCount, kMaxKeepCount))
        settings.keepCount = static_cast<int>(*keep);
    if (auto size = count("SafetyMaxMB", kDefaultMaxMB, kMaxMB))
        settings.maxMB = *size;
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
