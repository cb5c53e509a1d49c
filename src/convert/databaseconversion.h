// One conversion run: opens the source, creates the target database, creates every table with
// mapped types and sanitised names, and copies the rows one insert statement each. Its state
// (the source, the table and field lists, the target database) lives on between runs, as the
// conversion window's module state did. No transaction: what was written before a failure stays.
#pragma once

#include "convert/conversionreport.h"
#include "convert/sourcetable.h"
#include "db/dberror.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <vector>

namespace tabulon {

class DatabaseSession;

// How the run talks to the operator (the window answers through its dialogs).
class ConversionPrompts {
public:
    ConversionPrompts() = default;
    ConversionPrompts(const ConversionPrompts &) = delete;
    ConversionPrompts &operator=(const ConversionPrompts &) = delete;
    virtual ~ConversionPrompts() = default;
    // A message with an OK button.
    virtual void message(const QString &text) = 0;
    // A question with Yes and No; true for Yes.
    virtual bool askYesNo(const QString &text) = 0;
};

class DatabaseConversion final {
public:
    DatabaseConversion() = default;
    DatabaseConversion(const DatabaseConversion &) = delete;
    DatabaseConversion &operator=(const DatabaseConversion &) = delete;

    // The one state the conversion window uses from run to run.
    static DatabaseConversion &shared();

    void setStructureOnly(bool structureOnly) { m_structureOnly = structureOnly; }
    bool structureOnly() const { return m_structureOnly; }
    const QString &targetDatabase() const { return m_targetDatabase; }
    const QStringList &tableNames() const { return m_tableNames; }
    const QStringList &fieldNames() const { return m_fieldNames; }
    const std::vector<int> &fieldTypes() const { return m_fieldTypes; }
    // The account of the last run (or of the steps run since).
    const ConversionReport &report() const { return m_report; }

    // The whole run; reports every failure through `prompts`. Its statements run in a session
    // mode of their own (see Conversion::lenientSqlMode); the session's mode is put back on
    // every way out.
    void ConvertDatabase(DatabaseSession &session, ConversionPrompts &prompts, const QString &source,
                         const QString &databaseName);

    // The run's steps, public for the tests.
    bool OpenConversionSource(const QString &source);
    void ConvertAllTables();
    DbError ReadSourceFields(const QString &table);
    // Sanitises `table` in place; the error is the retry's.
    DbResult<bool> CreateConvertedTable(QString &table);
    // Reports a failing row (or a table that cannot be read) and goes on with the next table.
    void CopyTableRows(const QString &table);

    // How the run opens its source by name: an Access file or a data source file unless
    // replaced (the tests bring sources of their own).
    using SourceOpener = std::function<DbResult<std::unique_ptr<ConversionSource>>(const QString &)>;
    void setSourceOpener(SourceOpener opener) { m_openSource = std::move(opener); }

    // For the steps run on their own.
    void attach(DatabaseSession *session, ConversionPrompts *prompts)
    {
        m_session = session;
        m_prompts = prompts;
    }

private:
    // The rows of a source table, counted for the report (none in a structure-only run).
    qint64 sourceRows(const QString &table);

    DatabaseSession *m_session = nullptr;
    ConversionPrompts *m_prompts = nullptr;
    SourceOpener m_openSource;
    std::unique_ptr<ConversionSource> m_source;
    QStringList m_tableNames;
    QStringList m_fieldNames;
    std::vector<int> m_fieldTypes;
    QString m_targetDatabase;
    bool m_structureOnly = false;
    ConversionReport m_report;
    QString m_sourceError;
};

} // namespace tabulon
