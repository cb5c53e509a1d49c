// Mapping of server error codes to the numbers the tools test for.
#include "db/dberror.h"

namespace tabulon {

std::uint32_t DbError::adoNumberFor(int serverCode)
{
    switch (serverCode) {
    case 0: return AdoError::None;
    case 1044: // ER_DBACCESS_DENIED_ERROR
    case 1045: // ER_ACCESS_DENIED_ERROR
    case 1142: // ER_TABLEACCESS_DENIED_ERROR
    case 1143: // ER_COLUMNACCESS_DENIED_ERROR
    case 1227: // ER_SPECIFIC_ACCESS_DENIED_ERROR
    case 1370: // ER_PROCACCESS_DENIED_ERROR
        return AdoError::PermissionDenied;
    case 1064: // ER_PARSE_ERROR
    case 1149: // ER_SYNTAX_ERROR
        return AdoError::Syntax;
    default: return AdoError::Generic;
    }
}

DbError DbError::fromServer(int serverCode, const QString &description)
{
    DbError e;
    e.number = adoNumberFor(serverCode);
    if (e.number == AdoError::None)
        e.number = AdoError::Generic;
    e.description = description;
    e.serverCode = serverCode;
    return e;
}

DbError DbError::file(const QString &path, const QString &reason)
{
    return {AdoError::FileAccess, path + QStringLiteral(": ") + reason, 0};
}

DbError DbError::itemNotFound()
{
    return {AdoError::ItemNotFound,
            QStringLiteral("Item cannot be found in the collection corresponding to the requested name or ordinal."),
            0};
}

QString DbError::numberText() const
{
    const auto asSigned = static_cast<std::int32_t>(number);
    return QStringLiteral("%1 (%2)").arg(asSigned).arg(number, 8, 16, QLatin1Char('0'));
}

} // namespace tabulon
