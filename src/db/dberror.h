// Errors as values: an ADO-style error number and the server's description. File work reports
// through the same type, so every failure a window shows has one form.
#pragma once

#include <QString>

#include <cstdint>
#include <utility>
#include <variant>

namespace tabulon {

// The numbers the tools compare against, as the ODBC provider reports them.
namespace AdoError {
constexpr std::uint32_t None = 0;
constexpr std::uint32_t Generic = 0x80004005; // anything without a closer match
constexpr std::uint32_t PermissionDenied = 0x80040E09;
constexpr std::uint32_t Syntax = 0x80040E14;
constexpr std::uint32_t RowNotFound = 0x80040E38;  // an update that located no row
constexpr std::uint32_t ItemNotFound = 0x800A0CC1; // a field name the recordset does not have
constexpr std::uint32_t FileAccess = 0x800A004B;   // a file or folder could not be read or written
} // namespace AdoError

// The server's number for a statement longer than its max_allowed_packet. The session refuses
// such a statement itself, with this number, before the server would drop the connection.
constexpr int kStatementTooLong = 1153;

struct DbError final {
    std::uint32_t number = AdoError::None;
    QString description;
    int serverCode = 0; // the server's own error number, 0 when the error is ours

    bool isError() const { return number != AdoError::None; }
    explicit operator bool() const { return isError(); }

    static DbError none() { return {}; }
    static DbError generic(const QString &description) { return {AdoError::Generic, description, 0}; }
    // A failed file or folder operation: the description names the path and the system's
    // reason, as "<path>: <reason>".
    static DbError file(const QString &path, const QString &reason);
    // "Item cannot be found in the collection corresponding to the requested name or ordinal."
    static DbError itemNotFound();
    bool isFileError() const { return number == AdoError::FileAccess; }

    // Maps a MariaDB client or server error code to its ADO number.
    static std::uint32_t adoNumberFor(int serverCode);
    static DbError fromServer(int serverCode, const QString &description);

    // The signed decimal form and the hex form VB-era run-time reports show, e.g.
    // "-2147467259 (80004005)".
    QString numberText() const;
};

// Either a value or the error that prevented it.
template <typename T> class DbResult final {
public:
    DbResult(T value) : m_state(std::move(value)) {}
    DbResult(DbError error) : m_state(std::move(error)) {}

    bool ok() const { return std::holds_alternative<T>(m_state); }
    explicit operator bool() const { return ok(); }

    T &value() { return std::get<T>(m_state); }
    const T &value() const { return std::get<T>(m_state); }
    T &operator*() { return value(); }
    T *operator->() { return &value(); }
    const T *operator->() const { return &value(); }

    DbError error() const { return ok() ? DbError{} : std::get<DbError>(m_state); }

private:
    std::variant<T, DbError> m_state;
};

} // namespace tabulon
