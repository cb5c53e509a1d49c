tabulon_logic_library(tabulon_db
    SOURCES
        db/dberror.cpp db/dberror.h
        db/progress.h
        db/bytebuffer.cpp db/bytebuffer.h
        db/textcolumn.cpp db/textcolumn.h
        db/recordset.cpp db/recordset.h
        db/typecodes.cpp db/typecodes.h
        db/connectionstring.cpp db/connectionstring.h
        db/databasesession.cpp db/databasesession.h
        db/sessiontls.cpp db/sessiontls.h
        db/tablenames.cpp db/tablenames.h
        db/memorypolicy.cpp db/memorypolicy.h
        db/textsplit.cpp db/textsplit.h
        db/statementhook.cpp db/statementhook.h
        db/writemode.cpp db/writemode.h
        db/tabletransaction.cpp db/tabletransaction.h
        db/statementpipeline.cpp db/statementpipeline.h
    DEPS tabulon_settings
    PRIVATE_DEPS PkgConfig::MARIADB)
