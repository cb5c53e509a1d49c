#include "convert/conversionreport.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

#include <QStandardPaths>
#include <cerrno>

#include <numeric>

namespace tabulon {

void ConversionReport::start(const QString &source, const QString &database, bool structureOnly)
{
    m_source = source;
    m_database = database;
    m_structureOnly = structureOnly;
    m_stopped.clear();
    m_tables.clear();
}

TableAccount &ConversionReport::table(const QString &source)
{
    if (!m_tables.empty() && m_tables.back().source == source)
        return m_tables.back();
    m_tables.push_back(TableAccount{});
    m_tables.back().source = m_tables.back().table = source;
    return m_tables.back();
}

TableAccount &ConversionReport::created(const QString &name)
{
    if (!m_tables.empty() && m_tables.back().table == name)
        return m_tables.back();
    return table(name);
}

namespace {

template <typename F> qint64 total(const std::vector<TableAccount> &tables, F field)
{
    return std::accumulate(tables.begin(), tables.end(), qint64(0),
                           [&](qint64 sum, const TableAccount &t) { return sum + field(t); });
}

} // namespace

qint64 ConversionReport::written() const
{
    return total(m_tables, [](const TableAccount &t) { return t.written; });
}

qint64 ConversionReport::refused() const
{
    return total(m_tables, [](const TableAccount &t) { return t.refused; });
}

qint64 ConversionReport::changed() const
{
    return total(m_tables, [](const TableAccount &t) { return t.changed; });
}

qint64 ConversionReport::notCarried() const
{
    return total(m_tables, [](const TableAccount &t) { return t.notCarried; });
}

qint64 ConversionReport::tooLong() const
{
    return total(m_tables, [](const TableAccount &t) { return t.tooLong; });
}

qint64 ConversionReport::leftBehind() const
{
    return total(m_tables, [](const TableAccount &t) { return t.leftBehind; });
}

QString ConversionReport::text() const
{
    QString out;
    out += QStringLiteral("Conversion of %1 into database %2%3\n")
               .arg(m_source, m_database.isEmpty() ? QStringLiteral("(none named)") : m_database,
                    m_structureOnly ? QStringLiteral(", structure only") : QString());
    out += QStringLiteral("Run at %1\n\n").arg(QDateTime::currentDateTime().toString(Qt::ISODate));
    for (const TableAccount &t : m_tables) {
        out += t.source == t.table ? QStringLiteral("Table %1\n").arg(t.table)
                                   : QStringLiteral("Table %1 (source table %2)\n").arg(t.table, t.source);
        const QString left =
            t.leftBehind > 0 ? QStringLiteral("  rows left behind: %1\n").arg(t.leftBehind) : QString();
        if (!t.reached) {
            out += QStringLiteral("  not reached: the run stopped before it\n") + left + QLatin1Char('\n');
            continue;
        }
        if (!t.created) {
            if (t.holder.isEmpty())
                out += QStringLiteral("  not created\n");
            else
                out += QStringLiteral("  not created: table %1 holds the rows of source table %2; the rows of "
                                      "source table %3 were not copied\n")
                           .arg(t.table, t.holder, t.source);
            out += left + QLatin1Char('\n');
            continue;
        }
        out += QStringLiteral("  rows written: %1\n").arg(t.written);
        if (t.refused > 0)
            out += QStringLiteral("  rows refused: %1 (the rows after it were not copied): %2\n")
                       .arg(t.refused)
                       .arg(t.firstRefusal);
        if (t.tooLong > 0)
            out += QStringLiteral("  rows too long for the server (max_allowed_packet): %1\n").arg(t.tooLong);
        if (t.refused == 0 && !t.firstRefusal.isEmpty())
            out += QStringLiteral("  rows not read from the source: %1\n").arg(t.firstRefusal);
        if (t.changed > 0) {
            out += QStringLiteral("  values changed by the server: %1\n").arg(t.changed);
            for (const QString &m : t.changeMessages)
                out += QStringLiteral("    %1\n").arg(m);
            if (t.changed > t.changeMessages.size())
                out += QStringLiteral("    ...\n");
        }
        if (t.notCarried > 0)
            out += QStringLiteral("  values that cannot travel as they are (binary data written as text): %1\n")
                       .arg(t.notCarried);
        out += left + QLatin1Char('\n');
    }
    if (!m_stopped.isEmpty())
        out += QStringLiteral("The run stopped: %1\n").arg(m_stopped);
    return out;
}

QString ConversionReport::summary(const QString &path) const
{
    QString line = QStringLiteral("Conversion: %1 tables, %2 rows written, %3 refused, %4 left behind, %5 values "
                                  "changed")
                       .arg(m_tables.size())
                       .arg(written())
                       .arg(refused())
                       .arg(leftBehind())
                       .arg(changed());
    if (const qint64 n = tooLong())
        line += QStringLiteral(", %1 rows too long for the server").arg(n);
    if (const qint64 n = notCarried())
        line += QStringLiteral(", %1 not carried exactly").arg(n);
    if (!m_stopped.isEmpty())
        line += QStringLiteral(", stopped: ") + m_stopped;
    return line + QStringLiteral(" (report: %1)").arg(QDir::toNativeSeparators(path));
}

QString ConversionReport::defaultPath()
{
    return QDir(QStandardPaths::writableLocation(QStandardPaths::AppDataLocation))
        .filePath(QStringLiteral("conversion-report.txt"));
}

bool ConversionReport::save(const QString &path, QString &reason) const
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
        reason = QStringLiteral("its folder cannot be created");
        return false;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        reason = file.errorString();
        return false;
    }
    const QByteArray bytes = text().toUtf8();
    // commit() puts the file in place even when writing out its buffer failed (a full disk):
    // the flush is checked first, and the earlier report stays.
    errno = 0;
    if (file.write(bytes) != bytes.size() || !file.flush()) {
        reason = errno != 0 ? qt_error_string(errno) : file.errorString();
        file.cancelWriting();
        return false;
    }
    if (!file.commit()) {
        reason = file.errorString();
        return false;
    }
    return true;
}

} // namespace tabulon
