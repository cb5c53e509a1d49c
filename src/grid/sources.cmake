add_library(tabulon_grid INTERFACE)
target_link_libraries(tabulon_grid INTERFACE tabulon_db Qt6::Widgets)
