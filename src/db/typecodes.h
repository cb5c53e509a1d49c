// The ADO data type codes that the tools compare field types against, and the mapping from
// the server's column types to the codes the MySQL ODBC driver reports through ADO.
#pragma once

namespace tabulon {

namespace AdoType {
constexpr int Empty = 0;
constexpr int SmallInt = 2;
constexpr int Integer = 3;
constexpr int Single = 4;
constexpr int Double = 5;
constexpr int Currency = 6;
constexpr int Date = 7;
constexpr int Boolean = 11;
constexpr int TinyInt = 16;
constexpr int UnsignedTinyInt = 17;
constexpr int UnsignedSmallInt = 18;
constexpr int UnsignedInt = 19;
constexpr int BigInt = 20;
constexpr int UnsignedBigInt = 21;
constexpr int Guid = 72;
constexpr int Binary = 128;
constexpr int Char = 129;
constexpr int WChar = 130;
constexpr int Numeric = 131;
constexpr int DBDate = 133;
constexpr int DBTime = 134;
constexpr int DBTimeStamp = 135;
constexpr int VarChar = 200;
constexpr int LongVarChar = 201;
constexpr int VarWChar = 202;
constexpr int LongVarWChar = 203;
constexpr int VarBinary = 204;
constexpr int LongVarBinary = 205;
} // namespace AdoType

// What the mapping needs to know of a server column (kept free of the client library's types
// so that it can be tested on its own).
struct ServerColumnType final {
    int mysqlType = 0; // enum_field_types value
    bool isUnsigned = false;
    bool isBinary = false;    // binary character set (63)
    unsigned long length = 0; // declared length; tells bit(1) from wider bit columns
};

int adoTypeFor(const ServerColumnType &column);

// Facts of a server column type (the client library's enum_field_types value) that the value
// rules need, without the client library's header.
namespace ServerTypes {
bool isBit(int serverType);
// Integers, decimals, floating point, YEAR and BIT: columns that hold numbers only.
bool isNumber(int serverType);
// Texts and binaries of every length, ENUM, SET, JSON and GEOMETRY: values the server keeps as
// strings of characters or bytes.
bool isString(int serverType);
// Texts, binaries and SET, in which '' is a value of its own; not numbers, dates, ENUM.
bool holdsEmptyText(int serverType, bool isEnum);
} // namespace ServerTypes

} // namespace tabulon
