// libFuzzer target for the script runner's statement splitter: any text. Every statement it
// returns is trimmed and not empty, reads alone as it read in the script (split alone, it
// gives itself back: the runner sends each one alone), and splitting the statements joined
// again by ";\n" gives the same statements back, so no text is lost or invented between two
// statements.
#include "script/scriptrunner.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QString script = QString::fromUtf8(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    const QStringList statements = tabulon::ScriptRunner::splitStatements(script);
    for (const QString &statement : statements) {
        if (statement.isEmpty() || statement != statement.trimmed())
            __builtin_trap();
        if (tabulon::ScriptRunner::splitStatements(statement) != QStringList{statement})
            __builtin_trap();
    }
    if (tabulon::ScriptRunner::splitStatements(statements.join(QStringLiteral(";\n"))) != statements)
        __builtin_trap();
    return 0;
}
