#include "convert/odbcsource.h"
#include "db/typecodes.h"

#include "convert/valuetext.h"

#include <sql.h>
#include <sqlext.h>

#include <algorithm>

namespace tabulon {

namespace {

bool succeeded(SQLRETURN r)
{
    return r == SQL_SUCCESS || r == SQL_SUCCESS_WITH_INFO;
}

// The first diagnostic of a handle, as the provider's error description.
DbError diagnostic(SQLSMALLINT type, SQLHANDLE handle, const QString &fallback)
{
    SQLCHAR state[6] = {};
    SQLCHAR text[1024] = {};
    SQLINTEGER native = 0;
    SQLSMALLINT length = 0;
    if (handle && succeeded(SQLGetDiagRec(type, handle, 1, state, &native, text, sizeof text, &length)) && length > 0)
        return DbError::generic(QString::fromUtf8(reinterpret_cast<const char *>(text)).trimmed());
    return DbError::generic(fallback);
}

QString fromSql(const SQLCHAR *text, SQLLEN length)
{
    return QString::fromUtf8(reinterpret_cast<const char *>(text), length == SQL_NTS ? -1 : length);
}

// One value's whole bytes, read in pieces as long values need; nullopt for NULL.
DbResult<std::optional<QByteArray>> readValue(SQLHSTMT stmt, SQLUSMALLINT column, SQLSMALLINT cType)
{
    QByteArray out;
    char buffer[8192];
    const bool text = cType == SQL_C_CHAR;
    for (;;) {
        SQLLEN indicator = 0;
        const SQLRETURN r = SQLGetData(stmt, column, cType, buffer, sizeof buffer, &indicator);
        if (r == SQL_NO_DATA)
            break;
        if (!succeeded(r))
            return diagnostic(SQL_HANDLE_STMT, stmt, QStringLiteral("A value cannot be read"));
        if (indicator == SQL_NULL_DATA)
            return std::optional<QByteArray>();
        const qsizetype room = static_cast<qsizetype>(sizeof buffer) - (text ? 1 : 0);
        const qsizetype got =
            (indicator == SQL_NO_TOTAL || indicator > room) ? room : static_cast<qsizetype>(indicator);
        out.append(buffer, got);
        if (r == SQL_SUCCESS)
            break;
    }
    return std::optional<QByteArray>(out);
}

} // namespace

struct OdbcSource::Statement final {
    SQLHSTMT handle = SQL_NULL_HSTMT;
    ~Statement()
    {
        if (handle)
            SQLFreeHandle(SQL_HANDLE_STMT, handle);
    }
};

int OdbcSource::adoTypeFor(int sqlType)
{
    switch (sqlType) {
    case SQL_CHAR: return AdoType::Char;
    case SQL_VARCHAR: return AdoType::VarChar;
    case SQL_LONGVARCHAR: return AdoType::LongVarChar;
    case SQL_WCHAR: return AdoType::WChar;
    case SQL_WVARCHAR: return AdoType::VarWChar;
    case SQL_WLONGVARCHAR: return AdoType::LongVarWChar;
    case SQL_DECIMAL:
    case SQL_NUMERIC: return AdoType::Numeric;
    case SQL_SMALLINT: return AdoType::SmallInt;
    case SQL_INTEGER: return AdoType::Integer;
    case SQL_REAL: return AdoType::Single;
    case SQL_FLOAT:
    case SQL_DOUBLE: return AdoType::Double;
    case SQL_BIT: return AdoType::Boolean;
    case SQL_TINYINT: return AdoType::TinyInt;
    case SQL_BIGINT: return AdoType::BigInt;
    case SQL_BINARY: return AdoType::Binary;
    case SQL_VARBINARY: return AdoType::VarBinary;
    case SQL_LONGVARBINARY: return AdoType::LongVarBinary;
    case SQL_DATE:
    case SQL_TYPE_DATE: return AdoType::DBDate;
    case SQL_TIME:
    case SQL_TYPE_TIME: return AdoType::DBTime;
    case SQL_TIMESTAMP:
    case SQL_TYPE_TIMESTAMP: return AdoType::DBTimeStamp;
    case SQL_GUID: return AdoType::Guid;
    default: return AdoType::VarChar;
    }
}

DbResult<std::unique_ptr<ConversionSource>> OdbcSource::open(const QString &dataSourceName)
{
    std::unique_ptr<OdbcSource> source(new OdbcSource);
    SQLHENV env = SQL_NULL_HENV;
    if (!succeeded(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env)))
        return DbError::generic(QStringLiteral("The ODBC driver manager cannot be used"));
    source->m_env = env;
    SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    SQLHDBC dbc = SQL_NULL_HDBC;
    if (!succeeded(SQLAllocHandle(SQL_HANDLE_DBC, env, &dbc)))
        return diagnostic(SQL_HANDLE_ENV, env, QStringLiteral("The ODBC driver manager cannot be used"));
    const QByteArray connect = QStringLiteral("DSN=%1").arg(dataSourceName).toUtf8();
    SQLCHAR out[1024];
    SQLSMALLINT outLength = 0;
    const SQLRETURN r =
        SQLDriverConnect(dbc, nullptr, reinterpret_cast<SQLCHAR *>(const_cast<char *>(connect.data())),
                         static_cast<SQLSMALLINT>(connect.size()), out, sizeof out, &outLength, SQL_DRIVER_NOPROMPT);
    if (!succeeded(r)) {
        const DbError e = diagnostic(SQL_HANDLE_DBC, dbc, QStringLiteral("The data source cannot be opened"));
        SQLFreeHandle(SQL_HANDLE_DBC, dbc);
        return e;
    }
    source->m_dbc = dbc;

    SQLCHAR quote[8] = {};
    SQLSMALLINT quoteLength = 0;
    if (succeeded(SQLGetInfo(dbc, SQL_IDENTIFIER_QUOTE_CHAR, quote, sizeof quote, &quoteLength)))
        source->m_quote = fromSql(quote, SQL_NTS).trimmed();

    Statement tables;
    if (!succeeded(SQLAllocHandle(SQL_HANDLE_STMT, dbc, &tables.handle)))
        return diagnostic(SQL_HANDLE_DBC, dbc, QStringLiteral("The tables cannot be listed"));
    SQLCHAR type[] = "TABLE";
    if (!succeeded(SQLTables(tables.handle, nullptr, 0, nullptr, 0, nullptr, 0, type, SQL_NTS)))
        return diagnostic(SQL_HANDLE_STMT, tables.handle, QStringLiteral("The tables cannot be listed"));
    for (;;) {
        const SQLRETURN f = SQLFetch(tables.handle);
        if (f == SQL_NO_DATA)
            break;
        if (!succeeded(f))
            return diagnostic(SQL_HANDLE_STMT, tables.handle, QStringLiteral("The tables cannot be listed"));
        auto name = readValue(tables.handle, 3, SQL_C_CHAR);
        if (!name.ok())
            return name.error();
        // Some drivers ignore the restriction; the type column says what each row is.
        auto kind = readValue(tables.handle, 4, SQL_C_CHAR);
        if (!kind.ok())
            return kind.error();
        if (kind->value_or(QByteArray()).trimmed().toUpper() == "TABLE")
            source->m_tables << QString::fromUtf8(name->value_or(QByteArray()));
    }
    // In name order whatever the case, as the Access file's tables: a driver lists them in the
    // order of its own catalog.
    std::stable_sort(source->m_tables.begin(), source->m_tables.end(),
                     [](const QString &a, const QString &b) { return a.compare(b, Qt::CaseInsensitive) < 0; });
    return std::unique_ptr<ConversionSource>(std::move(source));
}

OdbcSource::~OdbcSource()
{
    if (m_dbc) {
        SQLDisconnect(static_cast<SQLHDBC>(m_dbc));
        SQLFreeHandle(SQL_HANDLE_DBC, static_cast<SQLHDBC>(m_dbc));
    }
    if (m_env)
        SQLFreeHandle(SQL_HANDLE_ENV, static_cast<SQLHENV>(m_env));
}

QString OdbcSource::quoted(const QString &table) const
{
    if (m_quote.isEmpty())
        return table;
    return m_quote + table + m_quote;
}

DbResult<std::shared_ptr<OdbcSource::Statement>> OdbcSource::select(const QString &table)
{
    auto stmt = std::make_shared<Statement>();
    if (!succeeded(SQLAllocHandle(SQL_HANDLE_STMT, static_cast<SQLHDBC>(m_dbc), &stmt->handle)))
        return diagnostic(SQL_HANDLE_DBC, static_cast<SQLHDBC>(m_dbc), QStringLiteral("The table cannot be opened"));
    const QByteArray sql = (QStringLiteral("SELECT * FROM ") + quoted(table)).toUtf8();
    if (!succeeded(SQLExecDirect(stmt->handle, reinterpret_cast<SQLCHAR *>(const_cast<char *>(sql.data())),
                                 static_cast<SQLINTEGER>(sql.size()))))
        return diagnostic(SQL_HANDLE_STMT, stmt->handle, QStringLiteral("The table cannot be opened"));
    return stmt;
}

DbResult<std::vector<SourceField>> OdbcSource::readFields(const QString &table)
{
    auto stmt = select(table);
    if (!stmt.ok())
        return stmt.error();
    SQLSMALLINT count = 0;
    if (!succeeded(SQLNumResultCols((*stmt)->handle, &count)))
        return diagnostic(SQL_HANDLE_STMT, (*stmt)->handle, QStringLiteral("The fields cannot be read"));
    std::vector<SourceField> fields;
    for (SQLUSMALLINT c = 1; c <= count; ++c) {
        SQLCHAR name[512] = {};
        SQLSMALLINT nameLength = 0;
        SQLSMALLINT type = 0;
        SQLULEN size = 0;
        SQLSMALLINT digits = 0;
        SQLSMALLINT nullable = 0;
        if (!succeeded(
                SQLDescribeCol((*stmt)->handle, c, name, sizeof name, &nameLength, &type, &size, &digits, &nullable)))
            return diagnostic(SQL_HANDLE_STMT, (*stmt)->handle, QStringLiteral("The fields cannot be read"));
        fields.push_back(SourceField{fromSql(name, SQL_NTS), adoTypeFor(type)});
    }
    return fields;
}

DbError OdbcSource::readRows(const QString &table, const RowSink &row)
{
    auto fields = readFields(table);
    if (!fields.ok())
        return fields.error();
    auto stmt = select(table);
    if (!stmt.ok())
        return stmt.error();
    const SQLHSTMT h = (*stmt)->handle;
    for (;;) {
        const SQLRETURN f = SQLFetch(h);
        if (f == SQL_NO_DATA)
            return DbError::none();
        if (!succeeded(f))
            return diagnostic(SQL_HANDLE_STMT, h, QStringLiteral("A row cannot be read"));
        SourceRow values;
        values.reserve(fields->size());
        for (SQLUSMALLINT c = 1; c <= fields->size(); ++c) {
            const int type = (*fields)[c - 1].type;
            switch (type) {
            case 4:
            case 5: {
                SQLDOUBLE v = 0;
                SQLLEN indicator = 0;
                if (!succeeded(SQLGetData(h, c, SQL_C_DOUBLE, &v, sizeof v, &indicator)))
                    return diagnostic(SQL_HANDLE_STMT, h, QStringLiteral("A value cannot be read"));
                if (indicator == SQL_NULL_DATA)
                    values.emplace_back();
                else
                    values.emplace_back(type == 4 ? ValueText::number(static_cast<float>(v)) : ValueText::number(v));
                continue;
            }
            case 133:
            case 134:
            case 135: {
                SQL_TIMESTAMP_STRUCT ts{};
                SQLLEN indicator = 0;
                if (!succeeded(SQLGetData(h, c, SQL_C_TYPE_TIMESTAMP, &ts, sizeof ts, &indicator)))
                    return diagnostic(SQL_HANDLE_STMT, h, QStringLiteral("A value cannot be read"));
                if (indicator == SQL_NULL_DATA) {
                    values.emplace_back();
                    continue;
                }
                const QDate date = type == 134 ? QDate(1899, 12, 30) : QDate(ts.year, ts.month, ts.day);
                // The fraction comes in billionths of a second; its digits without trailing zeros.
                QString fraction = ts.fraction == 0
                                       ? QString()
                                       : QStringLiteral("%1").arg(ts.fraction % 1000000000u, 9, 10, QLatin1Char('0'));
                while (fraction.endsWith(QLatin1Char('0')))
                    fraction.chop(1);
                values.emplace_back(ValueText::dateTime(date, QTime(ts.hour, ts.minute, ts.second), fraction));
                continue;
            }
            default: break;
            }
            const bool binary = type == 128 || type == 204 || type == 205;
            auto bytes = readValue(h, c, binary ? SQL_C_BINARY : SQL_C_CHAR);
            if (!bytes.ok())
                return bytes.error();
            if (!bytes->has_value()) {
                values.emplace_back();
                continue;
            }
            const QByteArray &b = **bytes;
            if (binary)
                values.push_back(SourceValue::fromBytes(b));
            else if (type == 11)
                values.emplace_back(ValueText::boolean(b.trimmed() != "0" && !b.trimmed().isEmpty()));
            else if (type == 131)
                values.emplace_back(ValueText::trimFraction(QString::fromUtf8(b)));
            else
                values.emplace_back(QString::fromUtf8(b));
        }
        if (DbError e = row(values))
            return e;
    }
}

} // namespace tabulon
