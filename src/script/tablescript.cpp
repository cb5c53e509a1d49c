#include "script/tablescript.h"

#include "db/databasesession.h"

#include <QSaveFile>

#include <cerrno>

namespace tabulon::TableScript {

namespace {

const QLatin1String kLineEnd("\r\n");

DbError writeFile(const QString &path, const QString &text)
{
    // Written beside the file and put in its place only when whole: a full disk or a lost
    // connection keeps the earlier file.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return DbError::file(path, file.errorString());
    const QByteArray bytes = text.toUtf8();
    // commit() puts the file in place even when writing out its buffer failed, so the flush is
    // checked here; a short write leaves no reason in the file, errno holds it.
    errno = 0;
    if (file.write(bytes) != bytes.size() || !file.flush()) {
        const QString reason = errno != 0 ? qt_error_string(errno) : file.errorString();
        file.cancelWriting();
        return DbError::file(path, reason);
    }
    if (!file.commit())
        return DbError::file(path, file.errorString());
    return DbError::none();
}

} // namespace

QString definitionLine(const QString &database, const QString &table, const std::vector<Column> &columns)
{
    QString line =
        QLatin1String("Create Table if not exists ") + database + QLatin1Char('.') + table + QLatin1String(" (");
    for (const auto &[name, type] : columns) {
        const QString written = name.toUpper() == QLatin1String("CHECK") ? QStringLiteral("CHECK1") : name;
        line += written + QLatin1Char(' ') + type + QLatin1String(", ");
    }
    // Without columns this drops " (" instead of the last ", ".
    line.chop(2);
    return line + QLatin1String(");") + kLineEnd;
}

QString scriptText(const QString &database, const QString &tableLines)
{
    return QLatin1String("CREATE DATABASE ") + database + QLatin1Char(';') + kLineEnd + QLatin1String("Use ") +
           database + QLatin1Char(';') + kLineEnd + kLineEnd + tableLines + kLineEnd;
}

QString baseFolder(const QString &datadir)
{
    // Upper-cased letter by letter: a whole-text upper-casing can change the length ("ß" gives
    // "SS") and the position found would then cut the original in the wrong place.
    QString upper = datadir;
    for (QChar &c : upper)
        c = c.toUpper();
    const qsizetype at = upper.indexOf(QLatin1String("\\DATA"));
    return at < 0 ? QString() : datadir.left(at + 1);
}

QString batchText(const QString &base)
{
    return base.left(2) + kLineEnd + base + QLatin1String("bin") + kLineEnd + QLatin1String("mysql.exe") + kLineEnd;
}

DbResult<QString> BuildTableDefinition(DatabaseSession &session, const QString &database, const QString &table)
{
    auto columns = session.openQuery(QStringLiteral("Show Columns from ") + table);
    if (!columns.ok())
        return columns.error();
    std::vector<Column> list;
    if (columns->isOpen() && columns->fieldCount() >= 2) {
        for (columns->moveFirst(); !columns->eof(); columns->moveNext())
            list.emplace_back(columns->current(0).value_or(QString()), columns->current(1).value_or(QString()));
    }
    columns->close();
    return definitionLine(database, table, list);
}

DbResult<QString> BuildTableScript(DatabaseSession &session, const QString &database)
{
    auto tables = session.openQuery(QStringLiteral("Show Tables"));
    if (!tables.ok())
        return tables.error();
    QStringList names;
    if (tables->isOpen() && tables->fieldCount() > 0) {
        for (tables->moveFirst(); !tables->eof(); tables->moveNext())
            names << tables->current(0).value_or(QString());
    }
    tables->close();
    QString script;
    for (const QString &table : names) {
        auto line = BuildTableDefinition(session, database, table);
        if (!line.ok())
            return line.error();
        script += line.value();
    }
    return script;
}

DbError WriteServerBatch(DatabaseSession &session, const QString &folder)
{
    auto variables = session.openQuery(QStringLiteral("Show Variables"));
    if (!variables.ok())
        return variables.error();
    QString base;
    const int name = variables->fieldIndex(QStringLiteral("variable_name"));
    const int value = variables->fieldIndex(QStringLiteral("Value"));
    if (variables->isOpen() && name >= 0 && value >= 0) {
        for (variables->moveFirst(); !variables->eof(); variables->moveNext()) {
            if (variables->current(name).value_or(QString()) == QLatin1String("datadir"))
                base = baseFolder(variables->current(value).value_or(QString()));
        }
    }
    variables->close();
    return writeFile(folder + QLatin1String("/Cr_Db.bat"), batchText(base));
}

DbError CreateScriptFile(DatabaseSession &session, const QString &folder, const QString &database)
{
    if (database.isEmpty())
        return DbError::none();
    // Every table is read before the file is written: a failure on the way keeps the earlier
    // script whole.
    auto lines = BuildTableScript(session, database);
    if (!lines.ok())
        return lines.error();
    if (DbError e = writeFile(folder + QLatin1String("/import.sql"), scriptText(database, lines.value())))
        return e;
    return WriteServerBatch(session, folder);
}

} // namespace tabulon::TableScript
