tabulon_add_test(test_importdata import/test_importdata.cpp
    LIBS tabulon_import tabulon_app tabulon_testoperator tabulon_testgrid tabulon_testwholevalues)
target_compile_definitions(test_importdata PRIVATE TABULON_FIXTURES_DIR="${PROJECT_SOURCE_DIR}/tests/fixtures")
# Reads the long and binary values of the SQLite data source; see the conversion's tests.
set_tests_properties(test_importdata PROPERTIES
    ENVIRONMENT_MODIFICATION "ASAN_OPTIONS=string_append::fast_unwind_on_malloc=0")
