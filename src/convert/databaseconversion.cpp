#include "convert/databaseconversion.h"

#include "convert/conversionrules.h"
#include "convert/conversionsource.h"
#include "db/databasesession.h"
#include "db/tabletransaction.h"
#include "db/writemode.h"

#include <QHash>

#include <algorithm>

namespace tabulon {

DatabaseConversion &DatabaseConversion::shared()
{
    static DatabaseConversion state;
    return state;
}

void DatabaseConversion::ConvertDatabase(DatabaseSession &session, ConversionPrompts &prompts, const QString &source,
                                         const QString &databaseName)
{
    attach(&session, &prompts);
    m_report.start(source, databaseName.trimmed().isEmpty() ? m_targetDatabase : databaseName, m_structureOnly);
    if (!OpenConversionSource(source)) {
        m_report.setStopped(QStringLiteral("the source cannot be opened: ") + m_sourceError);
        prompts.message(QStringLiteral("Error occured"));
        return;
    }
    // The conversion's statements are built for the write mode, as Save Table's are.
    const WriteSessionMode mode(session);
    const QString trimmed = databaseName.trimmed();
    if (!trimmed.isEmpty()) {
        if (session.execute(QStringLiteral("CREATE DATABASE ") + trimmed).isError() &&
            !prompts.askYesNo(QStringLiteral("Database already exists. Do you want to continue ?"))) {
            m_report.setStopped(QStringLiteral("the database exists and the operator did not go on"));
            return;
        }
        m_targetDatabase = databaseName;
    }
    ConvertAllTables();
}

bool DatabaseConversion::OpenConversionSource(const QString &source)
{
    // The previous run's source is closed first, also when this one cannot be opened.
    m_source.reset();
    m_tableNames.clear();
    m_sourceError.clear();
    auto opened = m_openSource ? m_openSource(source) : openConversionSource(source);
    if (!opened.ok()) {
        m_sourceError = opened.error().description;
        return false;
    }
    m_source = std::move(opened.value());
    m_tableNames = m_source->tableNames();
    return true;
}

void DatabaseConversion::ConvertAllTables()
{
    // The source table each table of this run was created from, by the name it was created as.
    QHash<QString, QString> createdFrom;
    for (qsizetype i = 0; i < m_tableNames.size(); ++i) {
        const QString source = m_tableNames[i];
        m_report.table(source);
        DbError error = ReadSourceFields(m_tableNames[i]);
        bool created = false;
        if (!error) {
            auto result = CreateConvertedTable(m_tableNames[i]);
            if (result.ok())
                created = result.value();
            else
                error = result.error();
        }
        m_report.table(source).table = m_tableNames[i];
        if (error) {
            TableAccount &account = m_report.table(source);
            account.created = false;
            account.holder = createdFrom.value(m_tableNames[i]);
            account.leftBehind = sourceRows(source);
            m_report.setStopped(QStringLiteral("table %1: %2").arg(m_tableNames[i], error.description));
            // The tables after it are not converted: their rows stay behind too.
            for (qsizetype j = i + 1; j < m_tableNames.size(); ++j) {
                TableAccount &later = m_report.table(m_tableNames[j]);
                later.reached = false;
                later.leftBehind = sourceRows(m_tableNames[j]);
            }
            m_prompts->message(QStringLiteral("Error Occured err.desc : ") + error.description);
            return;
        }
        m_report.table(source).created = created;
        if (created)
            createdFrom.insert(m_tableNames[i], source);
        if (created && !m_structureOnly) {
            CopyTableRows(m_tableNames[i]);
            // Rows the source did not give under the created name (the copy reads the table by
            // that name) are all left behind.
            TableAccount &account = m_report.table(source);
            if (account.refused == 0 && !account.firstRefusal.isEmpty())
                account.leftBehind = std::max<qint64>(sourceRows(source) - account.written, 0);
        }
    }
}

qint64 DatabaseConversion::sourceRows(const QString &table)
{
    if (m_structureOnly || !m_source)
        return 0; // no row was to be copied
    qint64 rows = 0;
    const DbError error = m_source->readRows(table, [&rows](const SourceRow &) {
        ++rows;
        return DbError::none();
    });
    return error ? 0 : rows;
}

DbError DatabaseConversion::ReadSourceFields(const QString &table)
{
    // A system table keeps the previous table's fields, as it always has; the source lists
    // normally leave such tables out.
    if (table.isEmpty() || table.startsWith(QLatin1String("MSys")))
        return DbError::none();
    if (!m_source)
        return DbError::generic(QStringLiteral("Operation is not allowed when the object is closed."));
    auto fields = m_source->readFields(table);
    if (!fields.ok())
        return fields.error();
    m_fieldNames.clear();
    m_fieldTypes.clear();
    for (const SourceField &f : fields.value()) {
        m_fieldTypes.push_back(f.type);
        m_fieldNames << f.name;
    }
    return DbError::none();
}

DbResult<bool> DatabaseConversion::CreateConvertedTable(QString &table)
{
    DbError error;
    for (const bool retry : {false, true}) {
        Conversion::SanitizeName(table);
        for (QString &name : m_fieldNames)
            Conversion::SanitizeName(name);
        error = m_session->execute(
            Conversion::createTableStatement(m_targetDatabase, table, m_fieldNames, m_fieldTypes, retry));
        if (!error)
            return true;
    }
    return error;
}

void DatabaseConversion::CopyTableRows(const QString &table)
{
    TableAccount &counts = m_report.created(table);
    counts.created = true;
    if (!m_source) {
        counts.firstRefusal = QStringLiteral("Operation is not allowed when the object is closed.");
        m_prompts->message(counts.firstRefusal);
        return;
    }
    DbError refusal;
    constexpr int kRowsAsked = 20;
    int warnedRows = 0;
    // On InnoDB the table's rows go in as one transaction: one disk flush for the table instead
    // of one per row on a server that makes every commit durable. Should the server roll it
    // back, the rows written so far are counted as left behind.
    TableTransaction transaction(*m_session, table, m_targetDatabase);
    const auto rolledBack = [&](const DbError &ended) {
        if (!refusal)
            refusal = ended;
        counts.leftBehind += counts.written;
        counts.written = 0;
    };
    const DbError error = m_source->readRows(table, [&](const SourceRow &row) {
        // After a refused row the rest of the table is not copied, only counted.
        if (refusal) {
            ++counts.leftBehind;
            return DbError::none();
        }
        QStringList values;
        values.reserve(static_cast<qsizetype>(row.size()));
        for (size_t k = 0; k < row.size(); ++k) {
            values << Conversion::copyValue(row[k].text(), k < m_fieldTypes.size() ? m_fieldTypes[k] : 0);
            if (!Conversion::carriesExactly(values.back()))
                ++counts.notCarried;
        }
        if (DbError e = m_session->execute(Conversion::insertStatement(m_targetDatabase, table, values))) {
            if (const DbError ended = transaction.afterWrite(e))
                rolledBack(ended);
            else
                refusal = e;
            return DbError::none();
        }
        ++counts.written;
        // The server took the row but changed some of its values: every one counted, and the
        // first different messages kept in the server's words (looked for in the first rows
        // that have any, so a table of like warnings costs no more than a few questions).
        if (const unsigned warnings = m_session->warningCount()) {
            counts.changed += warnings;
            if (++warnedRows <= kRowsAsked && counts.changeMessages.size() < ConversionReport::kMessagesKept) {
                auto listed = m_session->openQuery(QStringLiteral("SHOW WARNINGS"));
                for (qsizetype r = 0; listed.ok() && listed->isOpen() && r < listed->recordCount() &&
                                      counts.changeMessages.size() < ConversionReport::kMessagesKept;
                     ++r) {
                    const QString message = listed->text(r, listed->fieldCount() - 1);
                    if (!counts.changeMessages.contains(message))
                        counts.changeMessages << message;
                }
            }
        }
        return DbError::none();
    });
    if (const DbError committed = transaction.commit())
        rolledBack(committed);
    if (refusal || error) {
        counts.refused = refusal ? 1 : 0;
        counts.tooLong = refusal.serverCode == kStatementTooLong ? 1 : 0;
        counts.firstRefusal = (refusal ? refusal : error).description;
        m_prompts->message(counts.firstRefusal);
    }
}

} // namespace tabulon
