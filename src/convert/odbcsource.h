// A data source named by a .dsn file, read through unixODBC as "DSN=name".
#pragma once

#include "convert/sourcetable.h"

namespace tabulon {

class OdbcSource final : public ConversionSource {
public:
    // Connects to the data source and lists its tables of type "TABLE".
    static DbResult<std::unique_ptr<ConversionSource>> open(const QString &dataSourceName);
    ~OdbcSource() override;

    // The ADO type code the ODBC provider gives an ODBC SQL type.
    static int adoTypeFor(int sqlType);

    QStringList tableNames() const override { return m_tables; }
    DbResult<std::vector<SourceField>> readFields(const QString &table) override;
    DbError readRows(const QString &table, const RowSink &row) override;

private:
    OdbcSource() = default;
    struct Statement;
    DbResult<std::shared_ptr<Statement>> select(const QString &table);
    QString quoted(const QString &table) const;

    void *m_env = nullptr;
    void *m_dbc = nullptr;
    QString m_quote;
    QStringList m_tables;
};

} // namespace tabulon
