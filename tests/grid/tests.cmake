tabulon_add_test(test_griddata grid/test_griddata.cpp LIBS tabulon_gridcore)
tabulon_add_test(test_gridfile grid/test_gridfile.cpp LIBS tabulon_gridcore ZLIB::ZLIB)
tabulon_add_test(test_grid grid/test_grid.cpp LIBS tabulon_grid)
