// What the conversion reads from a source: table names, each table's fields with the ADO type
// codes the source's provider reports, and rows whose values are already the texts that a
// US-English string conversion of the values gives.
#pragma once

#include "db/dberror.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace tabulon {

struct SourceField final {
    QString name;
    int type = 0; // ADO data type code
};

using SourceRow = std::vector<std::optional<QString>>;

struct SourceTable final {
    QString name;
    std::vector<SourceField> fields;
    std::vector<SourceRow> rows;
};

// An open source: an Access file or an ODBC data source.
class ConversionSource {
public:
    ConversionSource() = default;
    ConversionSource(const ConversionSource &) = delete;
    ConversionSource &operator=(const ConversionSource &) = delete;
    virtual ~ConversionSource() = default;

    // The user tables, in the order the source's catalog lists them.
    virtual QStringList tableNames() const = 0;
    // The fields of a table, opened by name as the provider would (names match
    // case-insensitively; an unknown name is an error).
    virtual DbResult<std::vector<SourceField>> readFields(const QString &table) = 0;
    // Hands every row of a table to `row`, in order; stops at the first error, the source's or
    // the one `row` returns.
    using RowSink = std::function<DbError(const SourceRow &)>;
    virtual DbError readRows(const QString &table, const RowSink &row) = 0;
};

// The error a provider gives for a table name the source does not hold.
DbError unknownSourceTable(const QString &table);

} // namespace tabulon
