#include "db/tablenames.h"

#include "db/databasesession.h"

#include <QRegularExpression>
#include <QSet>

namespace tabulon {

DbResult<QStringList> readFirstColumn(DatabaseSession &session, const QString &sql)
{
    auto rows = session.openQuery(sql);
    if (!rows.ok())
        return rows.error();
    QStringList names;
    if (rows->isOpen() && rows->fieldCount() > 0) {
        names.reserve(rows->recordCount());
        for (qsizetype row = 0; row < rows->recordCount(); ++row)
            names << rows->text(row, 0);
    }
    return names;
}

namespace {

QString literal(DatabaseSession &db, const QString &text)
{
    return QLatin1Char('\'') + QString::fromUtf8(db.escape(text.toUtf8())) + QLatin1Char('\'');
}

} // namespace

DbResult<QStringList> viewBaseTables(DatabaseSession &db, const QString &view, int depth)
{
    auto definition =
        db.openQuery(QStringLiteral("SELECT VIEW_DEFINITION, TABLE_SCHEMA FROM information_schema.VIEWS WHERE "
                                    "TABLE_SCHEMA = DATABASE() AND TABLE_NAME = BINARY ") +
                     literal(db, view));
    if (!definition)
        return definition.error();
    if (definition->recordCount() == 0 || depth > 16)
        return DbError::generic(QStringLiteral("The tables of the view ") + view +
                                QStringLiteral(" could not be learned."));
    const QString schema = definition->text(0, 1);
    // The server writes every table a view reads as `database`.`table`; the pairs that name an
    // existing table or view are the ones it reads.
    static const QRegularExpression pair(QStringLiteral("`((?:[^`]|``)*)`\\.`((?:[^`]|``)*)`"));
    QStringList bases;
    QSet<QString> checked;
    for (auto it = pair.globalMatch(definition->text(0, 0)); it.hasNext();) {
        const auto m = it.next();
        const QString db1 = m.captured(1).replace(QStringLiteral("``"), QStringLiteral("`"));
        const QString name = m.captured(2).replace(QStringLiteral("``"), QStringLiteral("`"));
        const QString key = db1 + QLatin1Char('\0') + name;
        if (checked.contains(key))
            continue;
        checked.insert(key);
        auto kind = db.openQuery(QStringLiteral("SELECT TABLE_TYPE FROM information_schema.TABLES WHERE TABLE_SCHEMA = "
                                                "BINARY ") +
                                 literal(db, db1) + QStringLiteral(" AND TABLE_NAME = BINARY ") + literal(db, name));
        if (!kind)
            return kind.error();
        if (kind->recordCount() == 0)
            continue;
        const QString qualified = db1 == schema ? name : db1 + QLatin1Char('.') + name;
        if (kind->text(0, 0) == QLatin1String("VIEW") && db1 == schema) {
            auto inner = viewBaseTables(db, name, depth + 1);
            if (!inner)
                return inner.error();
            for (const QString &t : *inner) {
                if (!bases.contains(t))
                    bases << t;
            }
        } else if (!bases.contains(qualified)) {
            bases << qualified;
        }
    }
    return bases;
}

} // namespace tabulon
