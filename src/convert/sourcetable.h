// What the conversion reads from a source: table names, each table's fields with the ADO type
// codes the source's provider reports, and rows whose values are already the texts that a
// US-English string conversion of the values gives, or the bytes of binary values.
#pragma once

#include "db/dberror.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

namespace tabulon {

struct SourceField final {
    QString name;
    int type = 0; // ADO data type code
};

// One value of a source row: NULL, a text, or the bytes of a binary field. Bytes stay bytes, so
// that a binary value of any length (an odd one too) and any content travels whole.
class SourceValue final {
public:
    SourceValue() = default; // NULL
    SourceValue(std::nullopt_t) {}
    SourceValue(QString text) : m_value(std::move(text)) {}
    SourceValue(std::optional<QString> text)
    {
        if (text)
            m_value = std::move(*text);
    }
    static SourceValue fromBytes(QByteArray bytes)
    {
        SourceValue value;
        value.m_value = std::move(bytes);
        return value;
    }

    bool isNull() const { return std::holds_alternative<std::monostate>(m_value); }
    bool isBytes() const { return std::holds_alternative<QByteArray>(m_value); }
    // The text a string conversion gives the value: bytes two to a text unit, low byte first,
    // an odd last byte padded with zero. Nothing for NULL.
    std::optional<QString> text() const;
    // The bytes of a binary value; a text's UTF-8.
    QByteArray bytes() const;

    friend bool operator==(const SourceValue &, const SourceValue &) = default;

private:
    std::variant<std::monostate, QString, QByteArray> m_value;
};

using SourceRow = std::vector<SourceValue>;

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

    // The user tables, in name order compared without case.
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
