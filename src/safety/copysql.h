// Statement text of the safety net, in functions that tests call directly: how a table's
// columns are read so that every value comes back exactly, and how a copy's CREATE TABLE text
// and rows become the statements of a put-back.
#pragma once

#include "safety/safetycopy.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace tabulon::CopySql {

using Escaper = std::function<QByteArray(QByteArrayView)>;

// Both sides of a copy run in the same mode: no quoting or table-option surprises in SHOW
// CREATE TABLE, a stored 0 in an auto-increment column stays 0, zero dates are accepted, and
// TIMESTAMP values are read and written in UTC so no local-time gap or overlap shifts them.
QString sessionSetup();

// A column as SHOW COLUMNS describes it.
struct ColumnDescription final {
    QString name;
    QString type;  // "varbinary(16)", "bit(3)", ...
    QString extra; // "auto_increment", "VIRTUAL GENERATED", ...
};

// How the column's values are kept; nullopt for generated columns, which the server computes.
std::optional<CopyValueForm> formFor(const ColumnDescription &column);
// "SELECT `a`, CAST(`b` AS UNSIGNED) FROM `t`" over the columns kept.
QString selectFor(const QString &table, const std::vector<CopyColumn> &columns);

// A value as it goes into an INSERT: NULL, a quoted escaped text, a hex literal or a number.
QByteArray literal(const std::optional<QByteArrayView> &value, CopyValueForm form, const Escaper &escape);

// The CREATE TABLE text split for a put-back: the statement that makes the table under
// `database`.`newName` without its foreign keys (their names belong to the table being
// replaced until it is dropped), and the foreign key clauses to add once it is in place.
struct CreateParts final {
    QString create;
    QStringList foreignKeys; // "CONSTRAINT `fk` FOREIGN KEY (...) REFERENCES ..."
};
// nullopt when the text does not start as SHOW CREATE TABLE writes it for `table`.
std::optional<CreateParts> splitCreate(const QByteArray &createText, const QString &table, const QString &database,
                                       const QString &newName);

QString qualified(const QString &database, const QString &table);

} // namespace tabulon::CopySql
