add_library(tabulon_app STATIC
    app/dialogs.cpp app/dialogs.h
)
target_include_directories(tabulon_app PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(tabulon_app PUBLIC tabulon_db tabulon_grid Qt6::Widgets PRIVATE tabulon_common_cfg)
