add_library(tabulon_app STATIC
    app/dialogs.cpp app/dialogs.h
    app/settings.cpp app/settings.h
    app/startup.cpp app/startup.h
    app/mdiform1.cpp app/mdiform1.h
    app/databaseinfo.cpp app/databaseinfo.h
    app/frmlogin.cpp app/frmlogin.h
)
target_include_directories(tabulon_app PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(tabulon_app PUBLIC tabulon_db tabulon_grid Qt6::Widgets PRIVATE tabulon_common_cfg)

# Kept apart so that tool libraries can link tabulon_app without a cycle.
add_library(tabulon_catalog STATIC app/toolcatalog.cpp app/toolcatalog.h)
target_link_libraries(tabulon_catalog PUBLIC tabulon_app tabulon_data PRIVATE tabulon_common_cfg)
