tabulon_add_test(test_griddata grid/test_griddata.cpp LIBS tabulon_gridcore tabulon_testgrid)
tabulon_add_test(test_gridfile grid/test_gridfile.cpp LIBS tabulon_gridcore tabulon_testgrid ZLIB::ZLIB)
tabulon_add_test(test_grid grid/test_grid.cpp LIBS tabulon_grid tabulon_testgrid)
