#include "safety/safetynet.h"

#include "db/databasesession.h"
#include "db/tablenames.h"
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

// The copy the last protect call wrote ("" when it wrote none).
QString &lastCopy()
{
    static QString path;
    return path;
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
    return what + QStringLiteral(" hold about ") + megabytes(bytes) +
           QStringLiteral(" MB, more than the safety copy limit of ") + QString::number(settings.maxMB) +
           QStringLiteral(" MB. Go on without a safety copy?");
}

QString literal(DatabaseSession &db, const QString &text)
{
    return QLatin1Char('\'') + QString::fromUtf8(db.escape(text.toUtf8())) + QLatin1Char('\'');
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
    bool isView = false;
};

// "The tables a, b" or "The table a".
QString tablesText(const QStringList &tables)
{
    return (tables.size() == 1 ? QStringLiteral("The table ") : QStringLiteral("The tables ")) +
           tables.join(QStringLiteral(", "));
}

// Reads what a copy of `table` needs; nullopt (without error) when there is no such table.
DbResult<std::optional<Source>> describe(DatabaseSession &db, const QString &table)
{
    const QString quoted = DatabaseSession::quoteIdentifier(table);
    auto create = db.openQuery(QStringLiteral("SHOW CREATE TABLE ") + quoted);
    if (!create) {
        const int code = create.error().serverCode;
        if (code == 1146 && table.contains(QLatin1Char('.'))) {
            // Not a table of that whole name, but a statement that writes the name bare reads
            // it as database.table: if such a table is there it would be changed uncopied.
            const QString database = table.section(QLatin1Char('.'), 0, 0);
            const QString name = table.section(QLatin1Char('.'), 1);
            auto there = db.openQuery(QStringLiteral("SELECT 1 FROM information_schema.TABLES WHERE TABLE_SCHEMA = ") +
                                      literal(db, database) + QStringLiteral(" AND TABLE_NAME = ") + literal(db, name));
            if (!there)
                return there.error();
            if (there->recordCount() > 0)
                return DbError::generic(QStringLiteral("The name ") + table + QStringLiteral(" stands for the table ") +
                                        name + QStringLiteral(" of database ") + database +
                                        QStringLiteral(", of which no safety copy can be made here. Nothing was "
                                                       "changed."));
        }
        // No such table (or a name no table can have): nothing of it can be lost.
        if (code == 1146 || code == 1103 || code == 1049)
            return std::optional<Source>();
        return create.error();
    }
    if (create->recordCount() == 0 || create->fieldCount() < 2)
        return std::optional<Source>();
    if (create->field(0).name.compare(QLatin1String("View"), Qt::CaseInsensitive) == 0) {
        Source view;
        view.table.name = table;
        view.isView = true;
        return std::optional<Source>(std::move(view));
    }
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

DbError afterCopy(const DbError &error)
{
    if (!error || lastCopy().isEmpty())
        return error;
    auto info = SafetyCopy::readInfo(lastCopy());
    if (!info || info->withoutCopy)
        return error;
    DbError e = error;
    const QString what =
        info->kind == SafetyCopyInfo::Kind::Files ? QStringLiteral("the files ") : QStringLiteral("the tables ");
    e.description += QStringLiteral("\n\nThe safety copy of ") +
                     info->time.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) +
                     QStringLiteral(" holds ") + what + info->tables.join(QStringLiteral(", ")) +
                     QStringLiteral(" as they were before ") + info->command +
                     QStringLiteral(": Safety Copies under Database Utilities puts them back.");
    return e;
}

DbResult<QString> writeTableCopy(DatabaseSession &source, const SafetySettings &settings, const QString &command,
                                 const QStringList &tables, const Confirm &confirm, const QString &alsoKeep,
                                 Reach reach)
{
    if (DbError e = source.execute(CopySql::sessionSetup()))
        return e;
    // Table names compare as the server compares them: `Foo` and `foo` are two tables unless
    // the server folds names to lower case.
    auto folding = source.openQuery(QStringLiteral("SELECT @@lower_case_table_names"));
    if (!folding)
        return folding.error();
    const Qt::CaseSensitivity nameCase = folding->recordCount() > 0 && folding->text(0, 0) != QLatin1String("0")
                                             ? Qt::CaseInsensitive
                                             : Qt::CaseSensitive;
    std::vector<Source> sources;
    QStringList seen;
    QStringList work = tables;
    qint64 total = 0;
    for (qsizetype i = 0; i < work.size(); ++i) {
        const QString table = work[i];
        if (table.isEmpty() || seen.contains(table, nameCase))
            continue;
        seen << table;
        auto described = describe(source, table);
        if (!described)
            return described.error();
        if (!*described)
            continue;
        Source &s = **described;
        if (s.isView) {
            if (reach == Reach::Definition)
                continue;
            auto bases = viewBaseTables(source, table);
            if (!bases)
                return bases.error();
            // A view that reads no table (one whose tables are gone) has no rows to lose.
            if (reach == Reach::WholeTable && !bases->isEmpty())
                return DbError::generic(command + QStringLiteral(" writes the whole of ") + table +
                                        QStringLiteral(", which is a view of the table(s) ") +
                                        bases->join(QStringLiteral(", ")) +
                                        QStringLiteral(": their columns the view does not show would be emptied. "
                                                       "Nothing was changed."));
            for (const QString &base : *bases) {
                if (base.contains(QLatin1Char('.')))
                    return DbError::generic(QStringLiteral("The view ") + table +
                                            QStringLiteral(" shows rows of the table ") + base +
                                            QStringLiteral(" of another database, of which no safety copy can be "
                                                           "made here. Nothing was changed."));
                work << base;
            }
            continue;
        }
        total += s.dataBytes;
        sources.push_back(std::move(s));
    }
    if (sources.empty())
        return QString();
    QStringList copied;
    for (const Source &s : sources)
        copied << s.table.name;
    if (total > settings.maxBytes()) {
        // The limit holds for the command as a whole: one copy, or none with the operator's Yes,
        // which the list of copies then shows.
        if (!ask(confirm, tooBigQuestion(tablesText(copied), total, settings)))
            return declined();
        SafetyCopyInfo marker;
        marker.command = command;
        marker.database = source.databaseName();
        marker.tables = copied;
        marker.withoutCopy = true;
        SafetyCopyWriter out;
        auto opened = openCopy(settings, marker, out);
        if (!opened)
            return opened.error();
        return finishCopy(settings, out, alsoKeep);
    }

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
    if (files.isEmpty())
        return QString();
    if (total > settings.maxBytes() &&
        !ask(confirm, tooBigQuestion(QStringLiteral("The files to be replaced"), total, settings)))
        return declined();

    SafetyCopyInfo header;
    header.command = command;
    header.database = database;
    header.tables = files;
    header.kind = SafetyCopyInfo::Kind::Files;
    header.folder = folder;
    header.withoutCopy = total > settings.maxBytes();
    header.stored = true;
    SafetyCopyWriter out;
    auto opened = openCopy(settings, header, out);
    if (!opened)
        return opened.error();
    if (header.withoutCopy)
        return finishCopy(settings, out, alsoKeep);
    QByteArray chunk(1024 * 1024, Qt::Uninitialized);
    for (const QString &name : files) {
        QFile in(QDir(folder).filePath(name));
        const bool existed = in.exists();
        if (DbError e = out.beginFile(name, existed))
            return e;
        if (existed) {
            if (!in.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
                return DbError::file(in.fileName(), in.errorString());
            for (;;) {
                const qint64 n = in.read(chunk.data(), chunk.size());
                if (n < 0)
                    return DbError::file(in.fileName(), in.errorString());
                if (n == 0)
                    break;
                if (DbError e = out.writeFileData(QByteArrayView(chunk.constData(), n)))
                    return e;
            }
        }
        if (DbError e = out.endFile())
            return e;
    }
    return finishCopy(settings, out, alsoKeep);
}

DbError protectTables(DatabaseSession &session, const QString &command, const QStringList &tables, Reach reach)
{
    lastCopy().clear();
    if (!session.isOpen() || tables.isEmpty())
        return {};
    const auto settings = SafetySettings::read();
    if (!settings)
        return settings.error();
    DatabaseSession reader;
    if (DbError e = session.openSibling(reader))
        return e;
    auto written = writeTableCopy(reader, settings.value(), command, tables, installedConfirm(), {}, reach);
    if (written)
        lastCopy() = *written;
    return written.error();
}

DbError protectTableFiles(DatabaseSession &session, const QString &command, const QStringList &tables)
{
    lastCopy().clear();
    if (!session.isOpen() || tables.isEmpty())
        return {};
    // Over a connection of its own: the session sees none of these statements.
    DatabaseSession reader;
    if (DbError e = session.openSibling(reader))
        return e;
    const QString database = reader.databaseName();
    auto where = reader.openQuery(QStringLiteral("SELECT @@datadir"));
    if (!where)
        return where.error();
    const QString folder = QDir(where->recordCount() > 0 ? where->text(0, 0) : QString()).filePath(database);
    QStringList files;
    QStringList unreachable;
    QStringList rewritable;
    for (const QString &table : tables) {
        if (table.isEmpty() || rewritable.contains(table))
            continue;
        auto engine =
            reader.openQuery(QStringLiteral("SELECT ENGINE FROM information_schema.TABLES WHERE TABLE_SCHEMA = "
                                            "DATABASE() AND TABLE_NAME = BINARY ") +
                             literal(reader, table));
        if (!engine)
            return engine.error();
        const QString kind = engine->recordCount() > 0 ? engine->text(0, 0).toLower() : QString();
        const QStringList suffixes =
            kind == QLatin1String("myisam") ? QStringList{QStringLiteral(".MYD"), QStringLiteral(".MYI")}
            : kind == QLatin1String("aria") ? QStringList{QStringLiteral(".MAD"), QStringLiteral(".MAI")}
                                            : QStringList();
        if (suffixes.isEmpty())
            continue;
        rewritable << table;
        if (!QFileInfo(QDir(folder).filePath(table + suffixes.first())).isFile()) {
            unreachable << table;
            continue;
        }
        for (const QString &suffix : suffixes + QStringList{QStringLiteral(".frm")})
            files << table + suffix;
    }
    // One question for the command, however many tables it repairs.
    if (!unreachable.isEmpty() &&
        !ask(installedConfirm(), QStringLiteral("The files of ") +
                                     (unreachable.size() == 1 ? QStringLiteral("table ") : QStringLiteral("tables ")) +
                                     unreachable.join(QStringLiteral(", ")) +
                                     QStringLiteral(" are not reachable here (") + folder +
                                     QStringLiteral("). Go on without a safety copy of them?")))
        return declined();
    if (files.isEmpty())
        return {};
    // The server writes what it holds of the tables to their files first.
    QStringList quoted;
    for (const QString &table : rewritable)
        quoted << DatabaseSession::quoteIdentifier(table);
    (void)reader.execute(QStringLiteral("FLUSH TABLES ") + quoted.join(QStringLiteral(", ")));
    return protectFiles(command, database, folder, files);
}

DbError protectFiles(const QString &command, const QString &database, const QString &folder, const QStringList &files)
{
    lastCopy().clear();
    const auto settings = SafetySettings::read();
    if (!settings)
        return settings.error();
    auto written = writeFileCopy(settings.value(), command, database, folder, files, installedConfirm());
    if (written)
        lastCopy() = *written;
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
