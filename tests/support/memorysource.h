// A conversion source held in memory, for the tests of the import and the conversion.
#pragma once

#include "convert/sourcetable.h"

#include <functional>

namespace tabulon::test {

// Its tables are listed in the order given.
class MemorySource final : public ConversionSource {
public:
    explicit MemorySource(std::vector<SourceTable> tables) : tables(std::move(tables)) {}

    std::vector<SourceTable> tables;
    // Called before each row is handed over, with its index; the first pass that counts the
    // rows calls it too.
    std::function<void(size_t)> beforeRow;

    QStringList tableNames() const override
    {
        QStringList names;
        for (const SourceTable &t : tables)
            names << t.name;
        return names;
    }
    DbResult<std::vector<SourceField>> readFields(const QString &table) override
    {
        if (const SourceTable *t = find(table))
            return t->fields;
        return unknownSourceTable(table);
    }
    DbError readRows(const QString &table, const RowSink &sink) override
    {
        const SourceTable *t = find(table);
        if (!t)
            return unknownSourceTable(table);
        for (size_t i = 0; i < t->rows.size(); ++i) {
            if (beforeRow)
                beforeRow(i);
            if (DbError e = sink(t->rows[i]))
                return e;
        }
        return DbError::none();
    }

private:
    const SourceTable *find(const QString &name) const
    {
        for (const SourceTable &t : tables)
            if (t.name == name)
                return &t;
        return nullptr;
    }
};

} // namespace tabulon::test
