add_library(tabulon_db STATIC
    db/dberror.cpp db/dberror.h
    db/textcolumn.cpp db/textcolumn.h
    db/recordset.cpp db/recordset.h
    db/typecodes.cpp db/typecodes.h
    db/connectionstring.cpp db/connectionstring.h
    db/databasesession.cpp db/databasesession.h
)
target_include_directories(tabulon_db PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(tabulon_db PUBLIC Qt6::Core PRIVATE PkgConfig::MARIADB tabulon_common_cfg)
