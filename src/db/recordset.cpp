#include "db/recordset.h"

#include "db/databasesession.h"

namespace tabulon {

void Recordset::close()
{
    m_open = false;
    m_columns.clear();
    m_rows = 0;
    m_position = 0;
    m_pending.clear();
    m_connection.reset();
}

int Recordset::fieldIndex(const QString &name) const
{
    for (size_t i = 0; i < m_fields.size(); ++i) {
        if (m_fields[i].name.compare(name, Qt::CaseInsensitive) == 0)
            return static_cast<int>(i);
    }
    return -1;
}

QStringList Recordset::fieldNames() const
{
    QStringList names;
    names.reserve(fieldCount());
    for (const auto &f : m_fields)
        names << f.name;
    return names;
}

std::optional<QString> Recordset::value(qsizetype row, int field) const
{
    const auto &c = column(field);
    if (c.isNull(row))
        return std::nullopt;
    return c.text(row);
}

std::optional<QByteArray> Recordset::bytes(qsizetype row, int field) const
{
    const auto &c = column(field);
    if (c.isNull(row))
        return std::nullopt;
    return c.utf8(row).toByteArray();
}

std::vector<TextColumn> Recordset::takeColumns()
{
    std::vector<TextColumn> taken = std::move(m_columns);
    m_columns.assign(m_fields.size(), TextColumn());
    m_rows = 0;
    m_position = 0;
    return taken;
}

void Recordset::moveNext()
{
    if (m_position < m_rows)
        ++m_position;
}

void Recordset::setField(int field, std::optional<QString> value)
{
    m_pending[field] = std::move(value);
}

DbError Recordset::update()
{
    if (m_pending.empty())
        return {};
    DbError e = DatabaseSession::updateRecord(*this);
    m_pending.clear();
    return e;
}

qsizetype Recordset::memoryUse() const
{
    qsizetype use = 0;
    for (const auto &c : m_columns)
        use += c.memoryUse();
    return use;
}

} // namespace tabulon
