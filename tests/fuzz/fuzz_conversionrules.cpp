// libFuzzer target for the conversion's name and value rules: the first byte picks a type code,
// the rest is a name or a value. Names come out as the rules make them (no character the
// statements cannot carry as a name), values and statements are built whatever the text holds.
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
    (void)tabulon::Conversion::MapFieldType(type);
    (void)tabulon::Conversion::copyValue(std::optional<QString>(text), type);
    (void)tabulon::Conversion::copyValue(std::nullopt, type);
    (void)tabulon::Conversion::dayMonthYear(text);
    (void)tabulon::Conversion::insertStatement(QStringLiteral("db"), name, {text, name});
    (void)tabulon::Conversion::createTableStatement(QStringLiteral("db"), name, {name, text}, {type, 3}, false);
    (void)tabulon::Conversion::proposedDatabaseName(text);
    if (tabulon::Conversion::isDataSourceFile(text))
        (void)tabulon::Conversion::dataSourceName(text);
    return 0;
}
