#include "safety/safetynet.h"

#include "db/databasesession.h"
#include "safety/copysql.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace tabulon::SafetyNet {

namespace {

Confirm &installedConfirm()
{
    static Confirm confirm;
    return confirm;
}

bool ask(const Confirm &confirm, const QString &question)
{
    return confirm && confirm(question);
}

DbError declined()
{
    return DbError::generic(QStringLiteral("Nothing was changed: the command was stopped without a safety copy."));
}

QString megabytes(qint64 bytes)
{
    return QString::number((bytes + 1024 * 1024 - 1) / (1024 * 1024));
}

QString tooBigQuestion(const QString &what, qint64 bytes, const SafetySettings &settings)
{
    return what + QStringLiteral(" holds about ") + megabytes(bytes) +
           QStringLiteral(" MB, more than the safety copy limit of ") + QString::number(settings.maxMB) +
           QStringLiteral(" MB. Go on without a safety copy of it?");
}

// A new file name in the folder, named by the copy's time so that names sort as the copies were
// made; two copies in the same millisecond take the next free one.
QString newCopyPath(const QString &folder, QDateTime &time)
{
    for (;;) {
        const QString path =
            folder + QLatin1Char('/') + time.toString(QStringLiteral("yyyyMMdd-HHmmss-zzz")) + SafetyCopy::kSuffix;
        if (!QFileInfo::exists(path))
            return path;
        time = time.addMSecs(1);
    }
}

DbError makeFolder(const QString &folder)
{
    QFileInfo info(folder);
    if (info.isDir())
        return info.isWritable() ? DbError{} : DbError::file(folder, QStringLiteral("Permission denied"));
    if (!QDir().mkpath(folder))
        return DbError::file(folder, QStringLiteral("the folder could not be created"));
    return {};
}

// One table as it will be copied.
struct Source final {
    CopyTable table;
    qint64 dataBytes = 0;
};

// Reads what a copy of `table` needs; nullopt (without error) when there is no such table.
DbResult<std::optional<Source>> describe(DatabaseSession &db, const QString &table)
{
    const QString quoted = DatabaseSession::quoteIdentifier(table);
    auto create = db.openQuery(QStringLiteral("SHOW CREATE TABLE ") + quoted);
    if (!create) {
        // No such table (or a name no table can have): nothing of it can be lost.
        const int code = create.error().serverCode;
        if (code == 1146 || code == 1103 || code == 1049)
            return std::optional<Source>();
        return create.error();
    }
    if (create->recordCount() == 0 || create->fieldCount() < 2 ||
        create->field(0).name.compare(QLatin1String("Table"), Qt::CaseInsensitive) != 0)
        return std::optional<Source>(); // a view: its rows belong to other tables
    Source source;
    source.table.name = table;
    source.table.createText = create->text(0, 1).toUtf8();

    auto columns = db.openQuery(QStringLiteral("SHOW COLUMNS FROM ") + quoted);
    if (!columns)
        return columns.error();
    for (qsizetype r = 0; r < columns->recordCount(); ++r) {
        const CopySql::ColumnDescription column{columns->text(r, 0), columns->text(r, 1), columns->text(r, 5)};
        if (const auto form = CopySql::formFor(column))
            source.table.columns.push_back({column.name, *form});
    }
    const QString nameLiteral = QLatin1Char('\'') + QString::fromUtf8(db.escape(table.toUtf8())) + QLatin1Char('\'');
    auto triggers = db.openQuery(
        QStringLiteral("SELECT TRIGGER_NAME FROM information_schema.TRIGGERS WHERE EVENT_OBJECT_SCHEMA = DATABASE() "
                       "AND EVENT_OBJECT_TABLE = BINARY ") +
        nameLiteral + QStringLiteral(" ORDER BY ACTION_TIMING, EVENT_MANIPULATION, ACTION_ORDER"));
    if (!triggers)
        return triggers.error();
    for (qsizetype r = 0; r < triggers->recordCount(); ++r) {
        const QString name = triggers->text(r, 0);
        auto shown = db.openQuery(QStringLiteral("SHOW CREATE TRIGGER ") + DatabaseSession::quoteIdentifier(name));
        if (!shown)
            return shown.error();
        if (shown->recordCount() == 0 || shown->fieldCount() < 3)
            return DbError::generic(QStringLiteral("The trigger ") + name + QStringLiteral(" of table ") + table +
                                    QStringLiteral(" could not be read."));
        source.table.triggers.push_back({name, shown->text(0, 1).toUtf8(), shown->text(0, 2).toUtf8()});
    }
    auto status = db.openQuery(
        QStringLiteral("SELECT DATA_LENGTH FROM information_schema.TABLES WHERE TABLE_SCHEMA = DATABASE() AND "
                       "TABLE_NAME = '") +
        QString::fromUtf8(db.escape(table.toUtf8())) + QLatin1Char('\''));
    if (!status)
        return status.error();
    if (status->recordCount() > 0)
        source.dataBytes = status->text(0, 0).toLongLong();
    return std::optional<Source>(std::move(source));
}

// Opens a new copy file for `header` in the safety folder, stamping the header with the time;
// returns the file's path.
DbResult<QString> openCopy(const SafetySettings &settings, SafetyCopyInfo &header, SafetyCopyWriter &out)
{
    if (DbError e = makeFolder(settings.folder))
        return e;
    header.time = QDateTime::currentDateTimeUtc();
    const QString path = newCopyPath(settings.folder, header.time);
    if (DbError e = out.open(path, header))
        return e;
    return path;
}

// Makes the copy whole and keeps the folder within its limits; returns where the copy went.
DbResult<QString> finishCopy(const SafetySettings &settings, SafetyCopyWriter &out, const QString &alsoKeep)
{
    if (DbError e = out.commit())
        return e;
    const QString path = out.finalPath();
    prune(settings, {path, alsoKeep});
    return path;
}

} // namespace

void setConfirm(Confirm confirm)
{
    installedConfirm() = std::move(confirm);
}

QString failureText(const DbError &error)
{
    if (error.isFileError())
        return QStringLiteral("The safety copy could not be written, so nothing was changed.\n") + error.description;
    return error.description;
}

DbResult<QString> writeTableCopy(DatabaseSession &source, const SafetySettings &settings, const QString &command,
                                 const QStringList &tables, const Confirm &confirm, const QString &alsoKeep)
{
    if (DbError e = source.execute(CopySql::sessionSetup()))
        return e;
    std::vector<Source> sources;
    QStringList seen;
    for (const QString &table : tables) {
        if (table.isEmpty() || seen.contains(table, Qt::CaseInsensitive))
            continue;
        seen << table;
        auto described = describe(source, table);
        if (!described)
            return described.error();
        if (!*described)
            continue;
        Source &s = **described;
        if (s.dataBytes > settings.maxBytes()) {
            if (!ask(confirm, tooBigQuestion(QStringLiteral("The table ") + table, s.dataBytes, settings)))
                return declined();
            continue;
        }
        sources.push_back(std::move(s));
    }
    if (sources.empty())
        return QString();

    SafetyCopyInfo header;
    header.command = command;
    header.database = source.databaseName();
    for (const Source &s : sources)
        header.tables << s.table.name;
    SafetyCopyWriter out;
    auto opened = openCopy(settings, header, out);
    if (!opened)
        return opened.error();
    const QString path = *opened;
    for (const Source &s : sources) {
        if (DbError e = out.beginTable(s.table))
            return e;
        DbError writeError;
        const DbError read = source.streamQuery(CopySql::selectFor(s.table.name, s.table.columns), {},
                                                [&](CopyCells cells) { return writeError = out.writeRow(cells); });
        if (writeError)
            return writeError;
        if (read) {
            // The copy is not whole: say which file it would have been.
            return DbError::file(path, read.description);
        }
        if (DbError e = out.endTable())
            return e;
    }
    return finishCopy(settings, out, alsoKeep);
}

DbResult<QString> writeFileCopy(const SafetySettings &settings, const QString &command, const QString &database,
                                const QString &folder, const QStringList &files, const Confirm &confirm,
                                const QString &alsoKeep)
{
    qint64 total = 0;
    for (const QString &name : files)
        total += QFileInfo(QDir(folder).filePath(name)).size();
    if (total > settings.maxBytes() &&
        !ask(confirm, tooBigQuestion(QStringLiteral("The files to be replaced"), total, settings)))
        return declined();
    if (total > settings.maxBytes() || files.isEmpty())
        return QString();

    SafetyCopyInfo header;
    header.command = command;
    header.database = database;
    header.tables = files;
    header.kind = SafetyCopyInfo::Kind::Files;
    header.folder = folder;
    SafetyCopyWriter out;
    auto opened = openCopy(settings, header, out);
    if (!opened)
        return opened.error();
    const QString path = *opened;
    for (const QString &name : files) {
        QFile in(QDir(folder).filePath(name));
        const bool existed = in.exists();
        if (DbError e = out.beginFile(name, existed))
            return e;
        if (existed) {
            if (!in.open(QIODevice::ReadOnly))
                return DbError::file(in.fileName(), in.errorString());
            while (!in.atEnd()) {
                const QByteArray chunk = in.read(1024 * 1024);
                if (chunk.isEmpty() && in.error() != QFileDevice::NoError)
                    return DbError::file(in.fileName(), in.errorString());
                if (DbError e = out.writeFileData(chunk))
                    return e;
            }
        }
        if (DbError e = out.endFile())
            return e;
    }
    return finishCopy(settings, out, alsoKeep);
}

DbError protectTables(DatabaseSession &session, const QString &command, const QStringList &tables)
{
    if (!session.isOpen() || tables.isEmpty())
        return {};
    const auto settings = SafetySettings::read();
    if (!settings)
        return settings.error();
    DatabaseSession reader;
    if (DbError e = session.openSibling(reader))
        return e;
    auto written = writeTableCopy(reader, settings.value(), command, tables, installedConfirm());
    return written.error();
}

DbError protectFiles(const QString &command, const QString &database, const QString &folder, const QStringList &files)
{
    const auto settings = SafetySettings::read();
    if (!settings)
        return settings.error();
    auto written = writeFileCopy(settings.value(), command, database, folder, files, installedConfirm());
    return written.error();
}

QList<SafetyCopyInfo> listCopies(const QString &folder)
{
    QList<SafetyCopyInfo> copies;
    const QDir dir(folder);
    const QStringList names =
        dir.entryList({QLatin1Char('*') + SafetyCopy::kSuffix}, QDir::Files, QDir::Name | QDir::Reversed);
    for (const QString &name : names) {
        auto info = SafetyCopy::readInfo(dir.filePath(name));
        if (info)
            copies << *info;
    }
    std::stable_sort(copies.begin(), copies.end(),
                     [](const SafetyCopyInfo &a, const SafetyCopyInfo &b) { return a.time > b.time; });
    return copies;
}

const Confirm &confirm()
{
    return installedConfirm();
}

QStringList prune(const SafetySettings &settings, const QStringList &keep)
{
    QList<SafetyCopyInfo> copies = listCopies(settings.folder);
    qint64 total = 0;
    for (const SafetyCopyInfo &c : copies)
        total += c.size;
    QStringList removed;
    QStringList kept;
    for (const QString &path : keep) {
        if (!path.isEmpty())
            kept << QFileInfo(path).absoluteFilePath();
    }
    while (!copies.isEmpty() && (copies.size() > settings.keepCount || total > settings.maxBytes())) {
        // Oldest last; the copy just written is never the one to go.
        qsizetype victim = copies.size() - 1;
        while (victim >= 0 && kept.contains(QFileInfo(copies[victim].path).absoluteFilePath()))
            --victim;
        if (victim < 0)
            break;
        if (!QFile::remove(copies[victim].path))
            break;
        removed << copies[victim].path;
        total -= copies[victim].size;
        copies.removeAt(victim);
    }
    return removed;
}

} // namespace tabulon::SafetyNet
