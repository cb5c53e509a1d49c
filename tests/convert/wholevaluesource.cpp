#include "wholevaluesource.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <dlfcn.h>
#include <sql.h>
#include <sqlext.h>

namespace tabulon::test {

namespace {

bool append(const QString &path, const QByteArray &text)
{
    QFile file(path);
    return file.open(QIODevice::Append) && file.write(text) == text.size();
}

QString diagnostic(SQLSMALLINT type, SQLHANDLE handle)
{
    SQLCHAR state[6] = {};
    SQLCHAR text[1024] = {};
    SQLINTEGER native = 0;
    SQLSMALLINT length = 0;
    SQLGetDiagRec(type, handle, 1, state, &native, text, sizeof text, &length);
    return QString::fromUtf8(reinterpret_cast<const char *>(text));
}

bool ok(SQLRETURN r)
{
    return r == SQL_SUCCESS || r == SQL_SUCCESS_WITH_INFO;
}

// Writes the rows through the driver itself, with bound parameters: the bytes go in as bytes.
QString writeRows(const QString &name)
{
    SQLHENV env = SQL_NULL_HENV;
    SQLHDBC dbc = SQL_NULL_HDBC;
    SQLHSTMT stmt = SQL_NULL_HSTMT;
    QString error;
    // The driver manager loads its installer library for the connection and unloads it again;
    // what that library keeps for the life of the process would then be reported under whatever
    // is mapped at its old place later. Kept loaded, it is reported as its own.
    static void *const installer = dlopen("libodbcinst.so.2", RTLD_NOW | RTLD_NODELETE);
    (void)installer;
    SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env);
    SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    SQLAllocHandle(SQL_HANDLE_DBC, env, &dbc);
    QByteArray connect = "DSN=" + name.toUtf8();
    auto sql = [&](const char *text) {
        return ok(SQLExecDirect(stmt, reinterpret_cast<SQLCHAR *>(const_cast<char *>(text)), SQL_NTS));
    };
    if (!ok(SQLDriverConnect(dbc, nullptr, reinterpret_cast<SQLCHAR *>(connect.data()),
                             static_cast<SQLSMALLINT>(connect.size()), nullptr, 0, nullptr, SQL_DRIVER_NOPROMPT))) {
        error = diagnostic(SQL_HANDLE_DBC, dbc);
    } else {
        SQLAllocHandle(SQL_HANDLE_STMT, dbc, &stmt);
        if (!sql("CREATE TABLE wholevalues (id INTEGER, memo TEXT, data BLOB)") ||
            !ok(SQLPrepare(stmt,
                           reinterpret_cast<SQLCHAR *>(const_cast<char *>("INSERT INTO wholevalues VALUES (?, ?, ?)")),
                           SQL_NTS)))
            error = diagnostic(SQL_HANDLE_STMT, stmt);
        for (const WholeValueRow &row : wholeValueRows()) {
            if (!error.isEmpty())
                break;
            SQLINTEGER id = row.id;
            QByteArray memo = row.memo.value_or(QString()).toUtf8();
            QByteArray data = row.data.value_or(QByteArray());
            SQLLEN memoLength = row.memo ? memo.size() : SQL_NULL_DATA;
            SQLLEN dataLength = row.data ? data.size() : SQL_NULL_DATA;
            SQLBindParameter(stmt, 1, SQL_PARAM_INPUT, SQL_C_LONG, SQL_INTEGER, 0, 0, &id, 0, nullptr);
            SQLBindParameter(stmt, 2, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_LONGVARCHAR, memo.size(), 0, memo.data(),
                             memo.size(), &memoLength);
            SQLBindParameter(stmt, 3, SQL_PARAM_INPUT, SQL_C_BINARY, SQL_LONGVARBINARY, data.size(), 0, data.data(),
                             data.size(), &dataLength);
            if (!ok(SQLExecute(stmt)))
                error = diagnostic(SQL_HANDLE_STMT, stmt);
        }
        // A timestamp with a fraction of a second, in a table made after the first: the
        // driver lists its tables in the order they were made, which is not their name order.
        if (error.isEmpty() && (!sql("CREATE TABLE stamps (id INTEGER, at TIMESTAMP)") ||
                                !sql("INSERT INTO stamps VALUES (1, '2020-01-02 10:11:12.345')")))
            error = diagnostic(SQL_HANDLE_STMT, stmt);
        SQLFreeHandle(SQL_HANDLE_STMT, stmt);
        SQLDisconnect(dbc);
    }
    SQLFreeHandle(SQL_HANDLE_DBC, dbc);
    SQLFreeHandle(SQL_HANDLE_ENV, env);
    return error;
}

} // namespace

const std::vector<WholeValueRow> &wholeValueRows()
{
    static const std::vector<WholeValueRow> rows = [] {
        QString memo;
        for (int line = 0; memo.toUtf8().size() < 300 * 1024; ++line)
            memo += QStringLiteral("Zeile %1: Größe, Übermaß, 漢字 and O'Brien's \\ note.\n").arg(line);
        QByteArray large(70001, Qt::Uninitialized); // odd, and longer than a read's piece
        for (qsizetype i = 0; i < large.size(); ++i)
            large[i] = static_cast<char>(i % 7 == 0 ? 0 : (i * 31) & 0xff);
        return std::vector<WholeValueRow>{
            {1, memo, large},
            {2, QStringLiteral("short"), QByteArray("\x00\x01\x00\xff\x00", 5)},
            {3, std::nullopt, QByteArray("\x00", 1)},
            {4, QString(), QByteArray()},
            {5, QStringLiteral("no bytes"), std::nullopt},
        };
    }();
    return rows;
}

QString sqliteOdbcDriver()
{
    for (const char *folder : {"/usr/lib/x86_64-linux-gnu/odbc", "/usr/lib/aarch64-linux-gnu/odbc", "/usr/lib/odbc",
                               "/usr/lib64", "/usr/local/lib"}) {
        const QString path = QDir(QString::fromLatin1(folder)).filePath(QStringLiteral("libsqlite3odbc.so"));
        if (QFileInfo::exists(path))
            return path;
    }
    return {};
}

bool startAccessSource(const QString &folder, const QString &name, const QString &mdb)
{
    const QDir dir(folder);
    for (const char *file : {"odbcinst.ini", "odbc.ini"})
        QFile::remove(dir.filePath(QString::fromLatin1(file)));
    qputenv("ODBCSYSINI", QFile::encodeName(folder));
    qputenv("ODBCINI", QFile::encodeName(dir.filePath(QStringLiteral("odbc.ini"))));
    return append(dir.filePath(QStringLiteral("odbcinst.ini")), "[MDBTools]\nDriver=libmdbodbc.so\n") &&
           append(dir.filePath(QStringLiteral("odbc.ini")),
                  "[" + name.toUtf8() + "]\nDriver=MDBTools\nDatabase=" + mdb.toUtf8() + '\n') &&
           append(dir.filePath(name + QStringLiteral(".dsn")), {}); // its content is never read
}

QString addWholeValueSource(const QString &folder, const QString &name)
{
    const QString driver = sqliteOdbcDriver();
    if (driver.isEmpty())
        return QStringLiteral("the SQLite ODBC driver is not installed");
    const QDir dir(folder);
    const QString database = dir.filePath(name + QStringLiteral(".sqlite"));
    QFile::remove(database);
    // The driver stays loaded to the end of the process, so that what it keeps for its whole
    // life is still named as its own when the leak checker looks.
    if (!append(dir.filePath(QStringLiteral("odbcinst.ini")),
                "\n[SQLite3]\nDriver=" + driver.toUtf8() + "\nDontDLClose=1\n") ||
        !append(dir.filePath(QStringLiteral("odbc.ini")),
                "\n[" + name.toUtf8() + "]\nDriver=SQLite3\nDatabase=" + database.toUtf8() + '\n') ||
        !append(dir.filePath(name + QStringLiteral(".dsn")), {}))
        return QStringLiteral("the ODBC files in %1 cannot be written").arg(folder);
    return writeRows(name);
}

} // namespace tabulon::test
