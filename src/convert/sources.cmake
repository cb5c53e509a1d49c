tabulon_logic_library(tabulon_convert_logic
    SOURCES
        convert/accessfile.cpp convert/accessfile.h
        convert/conversionrules.cpp convert/conversionrules.h
        convert/conversionsource.cpp convert/conversionsource.h
        convert/databaseconversion.cpp convert/databaseconversion.h
        convert/odbcsource.cpp convert/odbcsource.h
        convert/sourcetable.h
        convert/valuetext.cpp convert/valuetext.h
    DEPS tabulon_db
    PRIVATE_DEPS PkgConfig::LIBMDB PkgConfig::ODBC)
tabulon_window_library(tabulon_convert
    SOURCES
        convert/convertdb.cpp convert/convertdb.h
    DEPS tabulon_convert_logic tabulon_ui)
list(APPEND TABULON_TOOL_LIBRARIES tabulon_convert)
