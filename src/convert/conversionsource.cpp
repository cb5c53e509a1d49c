#include "convert/conversionsource.h"

#include "convert/accessfile.h"
#include "convert/conversionrules.h"
#include "convert/odbcsource.h"
#include "convert/valuetext.h"

namespace tabulon {

std::optional<QString> SourceValue::text() const
{
    if (const auto *text = std::get_if<QString>(&m_value))
        return *text;
    if (const auto *bytes = std::get_if<QByteArray>(&m_value))
        return ValueText::bytes(*bytes);
    return std::nullopt;
}

QByteArray SourceValue::bytes() const
{
    if (const auto *bytes = std::get_if<QByteArray>(&m_value))
        return *bytes;
    if (const auto *text = std::get_if<QString>(&m_value))
        return text->toUtf8();
    return {};
}

DbError unknownSourceTable(const QString &table)
{
    return DbError::generic(QStringLiteral("The Microsoft Jet database engine cannot find the input table or query "
                                           "'%1'.  Make sure it exists and that its name is spelled correctly.")
                                .arg(table));
}

DbResult<std::unique_ptr<ConversionSource>> openConversionSource(const QString &sourceFileName)
{
    if (Conversion::isDataSourceFile(sourceFileName)) {
        const QString name = Conversion::dataSourceName(sourceFileName);
        if (!Conversion::isPlainDataSourceName(name))
            return DbError::generic(
                QStringLiteral("The data source name \"%1\" holds ';', '{', '}' or '=', which would add settings to "
                               "its connection; rename the data source file.")
                    .arg(name));
        return OdbcSource::open(name);
    }
    return AccessSource::open(sourceFileName);
}

} // namespace tabulon
