# The composition root: start-up, the main window and the catalog of tools. Every
# tool library registers itself in TABULON_TOOL_LIBRARIES; nothing links this one but the
# program and its tests.
add_library(tabulon_app STATIC
    app/startup.cpp app/startup.h
    app/mdiform1.cpp app/mdiform1.h
    app/databaseinfo.cpp app/databaseinfo.h
    app/frmlogin.cpp app/frmlogin.h
    app/toolcatalog.cpp app/toolcatalog.h
)
target_include_directories(tabulon_app PUBLIC ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(tabulon_app PUBLIC tabulon_ui tabulon_db tabulon_settings ${TABULON_TOOL_LIBRARIES} Qt6::Widgets
    PRIVATE tabulon_common_cfg)

add_executable(tabulon app/main.cpp)
target_link_libraries(tabulon PRIVATE tabulon_app tabulon_common_cfg)
target_compile_definitions(tabulon PRIVATE TABULON_VERSION="${PROJECT_VERSION}")
# The window icon, for a run from the build folder where no icon theme knows it.
qt_add_resources(tabulon tabulon_icon PREFIX /icons
    BASE ${PROJECT_SOURCE_DIR}/data/icons/hicolor/256x256/apps
    FILES ${PROJECT_SOURCE_DIR}/data/icons/hicolor/256x256/apps/tabulon.png)
