# The SQLite data source of long and binary values that the import and conversion tests read.
add_library(tabulon_testwholevalues STATIC convert/wholevaluesource.cpp convert/wholevaluesource.h)
target_include_directories(tabulon_testwholevalues PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/convert)
target_link_libraries(tabulon_testwholevalues PUBLIC Qt6::Core PRIVATE PkgConfig::ODBC tabulon_common_cfg)

tabulon_add_test(test_accessfile convert/test_accessfile.cpp LIBS tabulon_convert_logic)
tabulon_add_test(test_convertdb convert/test_convertdb.cpp
    LIBS tabulon_convert tabulon_app tabulon_testoperator tabulon_testwholevalues)
foreach(test test_accessfile test_convertdb)
    target_compile_definitions(${test} PRIVATE TABULON_FIXTURES_DIR="${PROJECT_SOURCE_DIR}/tests/fixtures")
endforeach()
add_dependencies(test_accessfile tabulon-accessreader)
# The Access reader made slow, for the test that a slow reader is not taken for a stopped one.
add_executable(test-slowaccessreader convert/slowreader_main.cpp)
target_link_libraries(test-slowaccessreader PRIVATE tabulon_convert_logic tabulon_common_cfg)
add_dependencies(test_accessfile test-slowaccessreader)
target_compile_definitions(test_accessfile PRIVATE TABULON_SLOW_READER="$<TARGET_FILE:test-slowaccessreader>")
# The test writes a long memo into a copy of the sample with the library's own row writer.
target_link_libraries(test_accessfile PRIVATE PkgConfig::LIBMDB)
# The SQLite ODBC driver keeps some memory to the end of the process and has no frame pointers:
# only the slow unwinder follows its allocations back into the driver, where the leak checker's
# suppression for the driver can see them.
set_tests_properties(test_convertdb PROPERTIES
    ENVIRONMENT_MODIFICATION "ASAN_OPTIONS=string_append::fast_unwind_on_malloc=0")
