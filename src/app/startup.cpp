#include "app/startup.h"

#include <QFile>
#include <QProcess>
#include <QStringList>
#include <QTextStream>

namespace tabulon {

bool IsNtFamily()
{
    // Every system this build runs on is of the NT lineage's successors.
    return true;
}

namespace {
QStringList readLines(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    QStringList lines;
    QTextStream in(&f);
    while (!in.atEnd())
        lines << in.readLine();
    return lines;
}

bool isSection(const QString &line, QString *name)
{
    const QString t = line.trimmed();
    if (!t.startsWith(QLatin1Char('[')) || !t.endsWith(QLatin1Char(']')))
        return false;
    *name = t.mid(1, t.size() - 2).trimmed();
    return true;
}
} // namespace

QString readProfileString(const QString &path, const QString &section, const QString &key, const QString &defaultText)
{
    bool inSection = false;
    for (const QString &line : readLines(path)) {
        QString name;
        if (isSection(line, &name)) {
            inSection = name.compare(section, Qt::CaseInsensitive) == 0;
            continue;
        }
        if (!inSection)
            continue;
        const qsizetype eq = line.indexOf(QLatin1Char('='));
        if (eq > 0 && line.left(eq).trimmed().compare(key, Qt::CaseInsensitive) == 0)
            return line.mid(eq + 1).trimmed();
    }
    return defaultText;
}

bool writeProfileString(const QString &path, const QString &section, const QString &key, const QString &value)
{
    QStringList lines = readLines(path);
    qsizetype sectionAt = -1;
    qsizetype insertAt = -1;
    bool done = false;
    for (qsizetype i = 0; i < lines.size() && !done; ++i) {
        QString name;
        if (isSection(lines[i], &name)) {
            if (sectionAt >= 0)
                break;
            if (name.compare(section, Qt::CaseInsensitive) == 0) {
                sectionAt = i;
                insertAt = i + 1;
            }
            continue;
        }
        if (sectionAt < 0)
            continue;
        const qsizetype eq = lines[i].indexOf(QLatin1Char('='));
        if (eq > 0 && lines[i].left(eq).trimmed().compare(key, Qt::CaseInsensitive) == 0) {
            lines[i] = key + QLatin1Char('=') + value;
            done = true;
        } else if (!lines[i].trimmed().isEmpty()) {
            insertAt = i + 1;
        }
    }
    if (!done) {
        if (sectionAt < 0) {
            lines << QLatin1Char('[') + section + QLatin1Char(']');
            insertAt = lines.size();
        }
        lines.insert(insertAt, key + QLatin1Char('=') + value);
    }
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
        return false;
    QTextStream out(&f);
    for (const QString &l : lines)
        out << l << '\n';
    return true;
}

ServerStartEnvironment ServerStartEnvironment::platformDefault()
{
    ServerStartEnvironment env;
#ifdef Q_OS_WIN
    env.profilePath = QStringLiteral("\\my.ini");
    env.candidate = QStringLiteral("C:\\Mysql\\Bin\\") +
                    (IsNtFamily() ? QStringLiteral("mysqld-nt.exe") : QStringLiteral("mysqld-opt.exe"));
#else
    env.profilePath = QStringLiteral("/my.ini");
    env.candidate = QStringLiteral("/usr/sbin/mariadbd");
#endif
    env.launch = [](const QString &program) {
        QProcess p;
        p.setProgram(program);
        p.setStandardInputFile(QProcess::nullDevice());
        p.setStandardOutputFile(QProcess::nullDevice());
        p.setStandardErrorFile(QProcess::nullDevice());
        return p.startDetached();
    };
    return env;
}

void StartMySqlServer(const ServerStartEnvironment &env)
{
    writeProfileString(env.profilePath, QStringLiteral("WinMySqlAdmin"), QStringLiteral("Server"), env.candidate);
    QString server =
        readProfileString(env.profilePath, QStringLiteral("WinMySqlAdmin"), QStringLiteral("Server"), QString())
            .left(254)
            .trimmed();
    if (server.isEmpty())
        server = env.candidate;
    if (!server.isEmpty() && env.launch)
        env.launch(server);
}

} // namespace tabulon
