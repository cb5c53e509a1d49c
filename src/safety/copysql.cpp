#include "safety/copysql.h"

#include "db/databasesession.h"

#include <QRegularExpression>

#include <algorithm>

namespace tabulon::CopySql {

QString sessionSetup()
{
    return QStringLiteral("SET SESSION sql_mode='NO_AUTO_VALUE_ON_ZERO,NO_ENGINE_SUBSTITUTION', "
                          "time_zone='+00:00', foreign_key_checks=0");
}

std::optional<CopyValueForm> formFor(const ColumnDescription &column)
{
    const QString extra = column.extra.toUpper();
    if (extra.contains(QLatin1String("GENERATED")) || extra.contains(QLatin1String("PERSISTENT")))
        return std::nullopt;
    const QString type = column.type.toLower();
    if (type.startsWith(QLatin1String("bit")))
        return CopyValueForm::Number;
    // The text form of a FLOAT keeps six significant digits; read as DOUBLE it keeps them all.
    if (type.startsWith(QLatin1String("float")))
        return CopyValueForm::Float;
    static const QRegularExpression binary(QStringLiteral(
        "^(binary|varbinary|tinyblob|blob|mediumblob|longblob|geometry|point|linestring|polygon|multipoint|"
        "multilinestring|multipolygon|geometrycollection)\\b"));
    if (binary.match(type).hasMatch())
        return CopyValueForm::Binary;
    return CopyValueForm::Text;
}

QString selectFor(const QString &table, const std::vector<CopyColumn> &columns)
{
    QStringList exprs;
    for (const CopyColumn &c : columns) {
        const QString name = DatabaseSession::quoteIdentifier(c.name);
        // BIT values would otherwise arrive as their raw bytes turned into text.
        if (c.form == CopyValueForm::Number)
            exprs << QStringLiteral("CAST(") + name + QStringLiteral(" AS UNSIGNED)");
        else if (c.form == CopyValueForm::Float)
            exprs << QStringLiteral("CAST(") + name + QStringLiteral(" AS DOUBLE)");
        else
            exprs << name;
    }
    return QStringLiteral("SELECT ") + exprs.join(QStringLiteral(", ")) + QStringLiteral(" FROM ") +
           DatabaseSession::quoteIdentifier(table);
}

QByteArray literal(const std::optional<QByteArrayView> &value, CopyValueForm form, const Escaper &escape)
{
    if (!value)
        return QByteArrayLiteral("NULL");
    switch (form) {
    case CopyValueForm::Binary: return QByteArrayLiteral("X'") + value->toByteArray().toHex() + '\'';
    case CopyValueForm::Number: {
        const bool digits =
            !value->isEmpty() && std::all_of(value->begin(), value->end(), [](char c) { return c >= '0' && c <= '9'; });
        if (digits)
            return value->toByteArray();
        break;
    }
    case CopyValueForm::Float: {
        const bool number = !value->isEmpty() && std::all_of(value->begin(), value->end(), [](char c) {
            return (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '+' || c == 'e' || c == 'E';
        });
        if (number)
            return value->toByteArray();
        break;
    }
    case CopyValueForm::Text: break;
    }
    return '\'' + escape(*value) + '\'';
}

QString qualified(const QString &database, const QString &table)
{
    return DatabaseSession::quoteIdentifier(database) + QLatin1Char('.') + DatabaseSession::quoteIdentifier(table);
}

std::optional<CreateParts> splitCreate(const QByteArray &createText, const QString &table, const QString &database,
                                       const QString &newName)
{
    const QString text = QString::fromUtf8(createText);
    const QString head =
        QStringLiteral("CREATE TABLE ") + DatabaseSession::quoteIdentifier(table) + QStringLiteral(" (");
    if (!text.startsWith(head))
        return std::nullopt;
    // SHOW CREATE TABLE writes one column, key or constraint per line, each but the last
    // followed by a comma, and the closing parenthesis with the table options on a line of
    // its own.
    QStringList lines = text.mid(head.size()).split(QLatin1Char('\n'));
    CreateParts parts;
    static const QRegularExpression foreignKey(
        QStringLiteral("^\\s*(CONSTRAINT\\s+`(?:[^`]|``)*`\\s+)?FOREIGN KEY\\b"));
    QStringList kept;
    for (const QString &line : lines) {
        if (foreignKey.match(line).hasMatch()) {
            QString clause = line.trimmed();
            if (clause.endsWith(QLatin1Char(',')))
                clause.chop(1);
            parts.foreignKeys << clause;
        } else {
            kept << line;
        }
    }
    // The line before the closing one must not end in a comma any more.
    for (qsizetype i = kept.size() - 1; i > 0; --i) {
        if (kept[i].startsWith(QLatin1Char(')'))) {
            QString &last = kept[i - 1];
            if (last.endsWith(QLatin1Char(',')))
                last.chop(1);
            break;
        }
    }
    parts.create = QStringLiteral("CREATE TABLE ") + qualified(database, newName) + QStringLiteral(" (") +
                   kept.join(QLatin1Char('\n'));
    return parts;
}

} // namespace tabulon::CopySql
