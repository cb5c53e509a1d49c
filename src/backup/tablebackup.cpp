// Backup sets, client selects and the streaming of results into table files.
#include "backup/tablebackup.h"

#include "backup/backuparchive.h"
#include "db/databasesession.h"
#include "grid/gridfile.h"

#include <QDir>
#include <QFile>

#include <functional>
#include <optional>
#include <vector>

namespace tabulon::TableBackup {

namespace {

QString quoted(const QString &text)
{
    return QLatin1Char('\'') + text + QLatin1Char('\'');
}

} // namespace

BackupSet BackupSet::forPath(const QString &chosenPath, const QDate &date)
{
    const QString base = chosenPath + BackupArchive::datedName(date);
    return {base, base};
}

QString withSeparator(const QString &folder)
{
    return folder.endsWith(QLatin1Char('/')) || folder.endsWith(QDir::separator()) ? folder : folder + QLatin1Char('/');
}

bool isFatal(const DbError &error)
{
    // 2000-2999 are the client library's own errors: a lost or broken connection.
    return error.isFileError() || (error.serverCode >= 2000 && error.serverCode < 3000);
}

namespace {

// Runs `select` into a table file that `open` starts once the result's columns are known.
DbError streamTable(DatabaseSession &session, const QString &select,
                    const std::function<DbError(GridFileWriter &, int cols)> &open, DbError *refused)
{
    GridFileWriter out;
    std::vector<QByteArrayView> cells;
    DbError fileError;
    bool started = false;
    DbError error = session.streamQuery(
        select,
        [&](const std::vector<FieldInfo> &fields) {
            started = true;
            if ((fileError = open(out, static_cast<int>(fields.size()))))
                return fileError;
            std::vector<QByteArray> names;
            for (const FieldInfo &f : fields)
                names.push_back(f.name.toUtf8());
            cells.assign(names.begin(), names.end());
            fileError = out.writeRow(cells);
            return fileError;
        },
        [&](std::span<const std::optional<QByteArrayView>> row) {
            for (size_t i = 0; i < row.size(); ++i)
                cells[i] = row[i] ? *row[i] : QByteArrayView();
            fileError = out.writeRow(cells);
            return fileError;
        });
    if (fileError)
        return fileError;
    if (error) {
        out.cancel();
        // A select the server refused before sending rows is skipped; anything that breaks off
        // a result once it has started would leave a table file that looks whole but is not.
        if (isFatal(error) || started)
            return error;
        if (refused)
            *refused = error;
        return {};
    }
    if (!started) {
        if (refused)
            *refused = DbError::generic(QStringLiteral("The statement returned no rows."));
        return {};
    }
    return out.commit();
}

} // namespace

DbError writeTableFile(DatabaseSession &session, const QString &select, const QString &path, DbError *refused)
{
    return streamTable(
        session, select, [&path](GridFileWriter &out, int cols) { return out.open(path, 1, 0, cols); }, refused);
}

DbError writeTableFile(DatabaseSession &session, const QString &select, BackupArchive::Packer &packer,
                       const QString &name, DbError *refused)
{
    std::unique_ptr<GridFileSink> sink;
    return streamTable(
        session, select,
        [&](GridFileWriter &out, int cols) {
            sink = packer.entry(name);
            return out.open(*sink, 1, 0, cols);
        },
        refused);
}

QString tableSelect(const QString &table)
{
    return QStringLiteral("SELECT * FROM ") + DatabaseSession::quoteIdentifier(table);
}

QString mainInfoLookup(const QString &code)
{
    return QStringLiteral("Select * from main_info1 where ucase(code_no) = ") + quoted(code);
}

QString ownerLookup(const QString &code)
{
    return QStringLiteral("Select * from owner1 where ucase(code) = ") + quoted(code);
}

DbResult<Client> findClient(DatabaseSession &session, const QString &code)
{
    for (const QString &sql : {mainInfoLookup(code), ownerLookup(code)}) {
        auto rs = session.openQuery(sql);
        if (!rs.ok()) {
            // A look-up the server refused (a quote in the code) finds nothing; no connection
            // at all must not read as an unknown code.
            if (isFatal(rs.error()) || !session.isOpen())
                return rs.error();
            continue;
        }
        if (!rs->isOpen() || rs->recordCount() == 0)
            continue;
        const int codeNo = rs->fieldIndex(QStringLiteral("code_no"));
        const int codeField = rs->fieldIndex(QStringLiteral("code"));
        const QString codeNoText = codeNo >= 0 ? rs->text(0, codeNo) : QString();
        const QString codeText = codeField >= 0 ? rs->text(0, codeField) : QString();
        return Client{true, codeNoText != codeText ? codeNoText : QString()};
    }
    return Client{};
}

QStringList clientSelects(const QString &table, const QString &code, const QString &other)
{
    const QString head = QStringLiteral("Select * from ") + table + QStringLiteral(" where ucase(");
    const auto select = [&head](const char *column, const QString &value) -> QString {
        return head + QLatin1String(column) + QStringLiteral(") = ") + quoted(value);
    };
    const QString upper = table.toUpper();
    if (upper == QLatin1String("BILL") || upper == QLatin1String("TABLE4"))
        return {select("name", code)};
    if (upper == QLatin1String("MAIN_INFO1"))
        return other.isEmpty() ? QStringList() : QStringList{select("code_no", other)};
    if (upper == QLatin1String("OWNER1"))
        return {code != other ? select("code", code) : select("code_no", code)};
    return {select("code", code), select("code_no", code)};
}

DbError finish(const BackupSet &set, const QStringList &tableFiles, BackupArchive::Existing existing)
{
    BackupArchive::Packer packer(set.workingFolder);
    for (const QString &name : tableFiles)
        packer.add(name);
    return finish(set, packer, tableFiles, existing);
}

DbError finish(const BackupSet &set, BackupArchive::Packer &packer, const QStringList &tableFiles,
               BackupArchive::Existing existing)
{
    const DbError error = packer.finish(set.archivePath(), existing);
    QDir folder(set.workingFolder);
    for (const QString &name : tableFiles)
        folder.remove(name);
    QDir().rmdir(set.workingFolder); // only when empty: nothing of the operator's goes
    return error;
}

} // namespace tabulon::TableBackup
