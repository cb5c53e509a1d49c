// A recordset: field descriptions and every row of one result, held column by column in
// compact text storage, with an ADO-style cursor and, when opened on a table, updates of the
// current record.
#pragma once

#include "db/dberror.h"
#include "db/textcolumn.h"

#include <QString>
#include <QStringList>

#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace tabulon {

namespace detail {
struct Connection;
}

struct FieldInfo final {
    QString name;         // as the result names it (alias included)
    QString originalName; // the column's name in its table
    QString table;        // the column's table, empty for computed columns
    QString database;
    int type = 0; // ADO data type code
    bool primaryKey = false;
    bool isUnsigned = false;
    // What the value rules and the exact-value check need beyond the ADO code.
    int serverType = 0;         // the client library's enum_field_types value
    bool nullable = true;       // false for NOT NULL columns
    bool binaryCharset = false; // bytes, not text (BINARY, VARBINARY, BLOB, BIT)
    unsigned long length = 0;   // declared length (in bytes for texts)
    bool isEnum = false;        // an ENUM, which the server reports as a fixed-length text
};

class Recordset final {
public:
    Recordset() = default;
    Recordset(Recordset &&) noexcept = default;
    Recordset &operator=(Recordset &&) noexcept = default;
    Recordset(const Recordset &) = delete;
    Recordset &operator=(const Recordset &) = delete;

    // A statement that returns no rows yields a closed recordset.
    bool isOpen() const { return m_open; }
    void close();

    int fieldCount() const { return static_cast<int>(m_fields.size()); }
    const FieldInfo &field(int i) const { return m_fields[static_cast<size_t>(i)]; }
    // Case-insensitive lookup by name; -1 when the recordset has no such field.
    int fieldIndex(const QString &name) const;
    QStringList fieldNames() const;

    qsizetype recordCount() const { return m_rows; }
    bool isNull(qsizetype row, int field) const { return column(field).isNull(row); }
    // The value's text; a null reads as empty text.
    QString text(qsizetype row, int field) const { return column(field).text(row); }
    std::optional<QString> value(qsizetype row, int field) const;
    // The value's bytes exactly as the server sent them (binary values need not be UTF-8).
    std::optional<QByteArray> bytes(qsizetype row, int field) const;
    const TextColumn &column(int field) const { return m_columns[static_cast<size_t>(field)]; }
    // Hands the stored columns over (the grid takes them without copying the texts); the
    // recordset is left with its fields and no rows.
    std::vector<TextColumn> takeColumns();

    // Cursor.
    bool eof() const { return m_position >= m_rows; }
    bool bof() const { return m_position < 0 || m_rows == 0; }
    qsizetype position() const { return m_position; }
    void moveFirst() { m_position = 0; }
    void moveNext();
    void moveTo(qsizetype row) { m_position = row; }
    std::optional<QString> current(int field) const { return value(m_position, field); }

    // Editing the current record of a recordset opened on a table.
    QString sourceTable() const { return m_table; }
    QString sourceDatabase() const { return m_database; }
    bool isUpdatable() const { return !m_table.isEmpty(); }
    void setField(int field, std::optional<QString> value);
    bool hasPendingChanges() const { return !m_pending.empty(); }
    void cancelUpdate() { m_pending.clear(); }
    // Writes the pending changes of the current record with one UPDATE, locating the record
    // by its primary key or, without one, by all of its values as they were read.
    DbError update();

    // Rough bytes held by the stored rows.
    qsizetype memoryUse() const;

private:
    friend class DatabaseSession;

    bool m_open = false;
    std::vector<FieldInfo> m_fields;
    std::vector<TextColumn> m_columns;
    qsizetype m_rows = 0;
    qsizetype m_position = 0;
    QString m_table;
    QString m_database;
    std::map<int, std::optional<QString>> m_pending;
    std::weak_ptr<detail::Connection> m_connection;
};

} // namespace tabulon
