#include "db/typecodes.h"

#include <mysql.h>

namespace tabulon {

int adoTypeFor(const ServerColumnType &c)
{
    switch (static_cast<enum_field_types>(c.mysqlType)) {
    case MYSQL_TYPE_TINY: return c.isUnsigned ? AdoType::UnsignedTinyInt : AdoType::TinyInt;
    case MYSQL_TYPE_SHORT: return c.isUnsigned ? AdoType::UnsignedSmallInt : AdoType::SmallInt;
    case MYSQL_TYPE_YEAR: return AdoType::SmallInt;
    case MYSQL_TYPE_INT24:
    case MYSQL_TYPE_LONG: return c.isUnsigned ? AdoType::UnsignedInt : AdoType::Integer;
    case MYSQL_TYPE_LONGLONG: return c.isUnsigned ? AdoType::UnsignedBigInt : AdoType::BigInt;
    case MYSQL_TYPE_FLOAT: return AdoType::Single;
    case MYSQL_TYPE_DOUBLE: return AdoType::Double;
    case MYSQL_TYPE_DECIMAL:
    case MYSQL_TYPE_NEWDECIMAL: return AdoType::Numeric;
    case MYSQL_TYPE_DATE:
    case MYSQL_TYPE_NEWDATE: return AdoType::DBDate;
    case MYSQL_TYPE_TIME:
    case MYSQL_TYPE_TIME2: return AdoType::DBTime;
    case MYSQL_TYPE_DATETIME:
    case MYSQL_TYPE_DATETIME2:
    case MYSQL_TYPE_TIMESTAMP:
    case MYSQL_TYPE_TIMESTAMP2: return AdoType::DBTimeStamp;
    case MYSQL_TYPE_BIT: return c.length == 1 ? AdoType::Boolean : AdoType::Binary;
    case MYSQL_TYPE_STRING:
    case MYSQL_TYPE_ENUM:
    case MYSQL_TYPE_SET: return c.isBinary ? AdoType::Binary : AdoType::Char;
    case MYSQL_TYPE_VARCHAR:
    case MYSQL_TYPE_VAR_STRING: return c.isBinary ? AdoType::VarBinary : AdoType::VarChar;
    case MYSQL_TYPE_TINY_BLOB:
    case MYSQL_TYPE_MEDIUM_BLOB:
    case MYSQL_TYPE_LONG_BLOB:
    case MYSQL_TYPE_BLOB:
    case MYSQL_TYPE_JSON: return c.isBinary ? AdoType::LongVarBinary : AdoType::LongVarChar;
    case MYSQL_TYPE_GEOMETRY: return AdoType::LongVarBinary;
    case MYSQL_TYPE_NULL: return AdoType::Empty;
    default: return AdoType::VarChar;
    }
}

namespace ServerTypes {

bool isBit(int serverType)
{
    return serverType == MYSQL_TYPE_BIT;
}

bool isNumber(int serverType)
{
    switch (static_cast<enum_field_types>(serverType)) {
    case MYSQL_TYPE_TINY:
    case MYSQL_TYPE_SHORT:
    case MYSQL_TYPE_LONG:
    case MYSQL_TYPE_INT24:
    case MYSQL_TYPE_LONGLONG:
    case MYSQL_TYPE_FLOAT:
    case MYSQL_TYPE_DOUBLE:
    case MYSQL_TYPE_DECIMAL:
    case MYSQL_TYPE_NEWDECIMAL:
    case MYSQL_TYPE_YEAR:
    case MYSQL_TYPE_BIT: return true;
    default: return false;
    }
}

bool isString(int serverType)
{
    switch (static_cast<enum_field_types>(serverType)) {
    case MYSQL_TYPE_STRING:
    case MYSQL_TYPE_VARCHAR:
    case MYSQL_TYPE_VAR_STRING:
    case MYSQL_TYPE_TINY_BLOB:
    case MYSQL_TYPE_MEDIUM_BLOB:
    case MYSQL_TYPE_LONG_BLOB:
    case MYSQL_TYPE_BLOB:
    case MYSQL_TYPE_ENUM:
    case MYSQL_TYPE_SET:
    case MYSQL_TYPE_JSON:
    case MYSQL_TYPE_GEOMETRY: return true;
    default: return false;
    }
}

bool holdsEmptyText(int serverType, bool isEnum)
{
    // The server reports ENUM and SET columns as fixed-length strings, with a flag for ENUM.
    return isString(serverType) && !isEnum && serverType != MYSQL_TYPE_ENUM && serverType != MYSQL_TYPE_JSON &&
           serverType != MYSQL_TYPE_GEOMETRY;
}

} // namespace ServerTypes

} // namespace tabulon
