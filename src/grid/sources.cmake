# The grid's cells and file form (logic), and the grid widget over them.
tabulon_logic_library(tabulon_gridcore
    SOURCES
        grid/griddata.cpp grid/griddata.h
        grid/gridfile.cpp grid/gridfile.h grid/gridfileform.h
        grid/gridfilereader.cpp grid/gridfilewriter.cpp
        grid/tableload.cpp grid/tableload.h
    DEPS tabulon_db
    PRIVATE_DEPS ZLIB::ZLIB)
tabulon_window_library(tabulon_grid
    SOURCES
        grid/gridmodel.cpp grid/gridmodel.h
        grid/grid.cpp grid/grid.h
    DEPS tabulon_gridcore tabulon_db)
