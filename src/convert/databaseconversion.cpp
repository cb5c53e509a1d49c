#include "convert/databaseconversion.h"

#include "convert/conversionrules.h"
#include "convert/conversionsource.h"
#include "db/databasesession.h"

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
    if (!OpenConversionSource(source)) {
        prompts.message(QStringLiteral("Error occured"));
        return;
    }
    const QString trimmed = databaseName.trimmed();
    if (!trimmed.isEmpty()) {
        if (session.execute(QStringLiteral("CREATE DATABASE ") + trimmed).isError() &&
            !prompts.askYesNo(QStringLiteral("Database already exists. Do you want to continue ?")))
            return;
        m_targetDatabase = databaseName;
    }
    ConvertAllTables();
}

bool DatabaseConversion::OpenConversionSource(const QString &source)
{
    // The previous run's source is closed first, also when this one cannot be opened.
    m_source.reset();
    m_tableNames.clear();
    auto opened = openConversionSource(source);
    if (!opened.ok())
        return false;
    m_source = std::move(opened.value());
    m_tableNames = m_source->tableNames();
    return true;
}

void DatabaseConversion::ConvertAllTables()
{
    for (qsizetype i = 0; i < m_tableNames.size(); ++i) {
        DbError error = ReadSourceFields(m_tableNames[i]);
        bool created = false;
        if (!error) {
            auto result = CreateConvertedTable(m_tableNames[i]);
            if (result.ok())
                created = result.value();
            else
                error = result.error();
        }
        if (error) {
            m_prompts->message(QStringLiteral("Error Occured err.desc : ") + error.description);
            return;
        }
        if (created && !m_structureOnly)
            CopyTableRows(m_tableNames[i]);
    }
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
    if (!m_source) {
        m_prompts->message(QStringLiteral("Operation is not allowed when the object is closed."));
        return;
    }
    const DbError error = m_source->readRows(table, [&](const SourceRow &row) {
        QStringList values;
        values.reserve(static_cast<qsizetype>(row.size()));
        for (size_t k = 0; k < row.size(); ++k)
            values << Conversion::copyValue(row[k], k < m_fieldTypes.size() ? m_fieldTypes[k] : 0);
        return m_session->execute(Conversion::insertStatement(m_targetDatabase, table, values));
    });
    if (error)
        m_prompts->message(error.description);
}

} // namespace tabulon
