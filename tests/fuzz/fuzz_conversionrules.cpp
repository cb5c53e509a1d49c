// libFuzzer target for the conversion's name and value rules: the first byte picks a type code
// (its index in the table below), the rest is a name or a value. A name comes out without the
// blanks, dashes and parentheses the rules replace, and the rules give it back unchanged when
// applied again (the table's retry applies them twice); a value never holds the apostrophe
// that would end its quotes in the row's statement; statements are built whatever the text holds.
#include "convert/conversionrules.h"

#include <cstddef>
#include <cstdint>
#include <optional>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size < 1)
        return 0;
    static const int types[] = {2,   3,   4,   5,   6,   7,   11,  16,  17,  72,  128,
                                129, 130, 131, 133, 135, 200, 201, 202, 203, 204, 205};
    const int type = types[data[0] % (sizeof types / sizeof types[0])];
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data + 1), static_cast<qsizetype>(size - 1));

    QString name = text;
    tabulon::Conversion::SanitizeName(name);
    for (const char c : {' ', '-', '(', ')'}) {
        if (name.contains(QLatin1Char(c)))
            __builtin_trap();
    }
    QString again = name;
    if (tabulon::Conversion::SanitizeName(again) != name)
        __builtin_trap();
    if (tabulon::Conversion::MapFieldType(type).isEmpty())
        __builtin_trap();
    const QString value = tabulon::Conversion::copyValue(std::optional<QString>(text), type);
    if (value.contains(QLatin1Char('\'')) || !tabulon::Conversion::copyValue(std::nullopt, type).isEmpty())
        __builtin_trap();
    (void)tabulon::Conversion::dayMonthYear(text);
    (void)tabulon::Conversion::insertStatement(QStringLiteral("db"), name, {value, name});
    (void)tabulon::Conversion::createTableStatement(QStringLiteral("db"), name, {name, text}, {type, 3}, false);
    (void)tabulon::Conversion::proposedDatabaseName(text);
    if (tabulon::Conversion::isDataSourceFile(text))
        (void)tabulon::Conversion::dataSourceName(text);
    return 0;
}
