// Opening a conversion source by the name the operator chose: a ".dsn" file names an ODBC data
// source (its content is not read), anything else is an Access file.
#pragma once

#include "convert/sourcetable.h"

namespace tabulon {

DbResult<std::unique_ptr<ConversionSource>> openConversionSource(const QString &sourceFileName);

} // namespace tabulon
