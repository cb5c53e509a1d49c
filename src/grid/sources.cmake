add_library(tabulon_grid STATIC
    grid/griddata.cpp grid/griddata.h
    grid/gridfile.cpp grid/gridfile.h
    grid/gridmodel.cpp grid/gridmodel.h
    grid/grid.cpp grid/grid.h
)
target_link_libraries(tabulon_grid PUBLIC tabulon_db Qt6::Widgets PRIVATE tabulon_common_cfg ZLIB::ZLIB)
