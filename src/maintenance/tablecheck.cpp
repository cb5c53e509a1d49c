#include "maintenance/tablecheck.h"

#include "db/databasesession.h"

#include <QFile>

#include <filesystem>
#include <system_error>

namespace tabulon::TableCheck {

QString checkStatement(const QString &table)
{
    return QStringLiteral("Check Table ") + table + QStringLiteral(" Extended");
}

QString repairStatement(const QString &table)
{
    return QStringLiteral("Repair Table ") + table + QStringLiteral(" Extended");
}

QString namedFile(const QString &table, const QString &message)
{
    const qsizetype start = message.toUpper().indexOf(table.toUpper());
    if (table.isEmpty() || start < 0)
        return table;
    const qsizetype quote = message.indexOf(QLatin1Char('\''), start + 1);
    if (quote < 0)
        return table;
    return message.mid(start, quote - start);
}

QList<Finding> checkTable(DatabaseSession &session, const QString &table)
{
    DbResult<Recordset> answer = [&] {
        UnlimitedReadWait wait(session);
        return session.openQuery(checkStatement(table));
    }();
    if (!answer.ok() || !answer->isOpen())
        return {Finding{QStringLiteral("Could open table"), table}};
    QList<Finding> findings;
    // Table, operation, message type, message text; an answer of another shape has no text.
    if (answer->fieldCount() >= 4) {
        for (qsizetype row = 0; row < answer->recordCount(); ++row) {
            const QString text = answer->text(row, 3);
            if (text != QLatin1String("OK"))
                findings << Finding{text, namedFile(table, text)};
        }
    }
    answer->close();
    return findings;
}

DbError repairTable(DatabaseSession &session, const QString &table)
{
    UnlimitedReadWait wait(session);
    return session.execute(repairStatement(table));
}

QString databaseFolder(const QString &dataFolder, const QString &database)
{
    QString folder = dataFolder;
    if (!folder.isEmpty() && !folder.endsWith(QLatin1Char('/')))
        folder += QLatin1Char('/');
    return folder + database + QLatin1Char('/');
}

namespace {

DbError copyOver(const QString &source, const QString &target)
{
    QFile from(source);
    if (!from.exists())
        return DbError::file(source, QStringLiteral("No such file"));
    // Through a temporary beside the target, so that a failed copy never costs the target.
    const QString temporary = target + QStringLiteral(".tabulon-copy");
    QFile::remove(temporary);
    if (!from.copy(temporary))
        return DbError::file(target, from.errorString());
    // Replaces the target in one step.
    std::error_code failure;
    std::filesystem::rename(std::filesystem::path(temporary.toStdU16String()),
                            std::filesystem::path(target.toStdU16String()), failure);
    if (failure) {
        QFile::remove(temporary);
        return DbError::file(target, QString::fromStdString(failure.message()));
    }
    return {};
}

} // namespace

QList<DbError> replaceFiles(const QString &dataFolder, const QString &fromDatabase, const QString &toDatabase,
                            const QStringList &names)
{
    const QString fromFolder = databaseFolder(dataFolder, fromDatabase);
    const QString toFolder = databaseFolder(dataFolder, toDatabase);
    QList<DbError> failures;
    for (const QString &name : names) {
        if (name.isEmpty())
            continue;
        if (DbError error = copyOver(fromFolder + name, toFolder + name))
            failures << error;
    }
    return failures;
}

} // namespace tabulon::TableCheck
