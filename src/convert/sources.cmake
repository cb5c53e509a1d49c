# Convert Database: an Access file or an ODBC data source read table by table (logic, with the
# Access reader run as a helper process), copied into a new database, and its window.
tabulon_logic_library(tabulon_convert_logic
    SOURCES
        convert/accessfile.cpp convert/accessfile.h
        convert/accessreader.cpp
        convert/conversionreport.cpp convert/conversionreport.h
        convert/conversionrules.cpp convert/conversionrules.h
        convert/conversionsource.cpp convert/conversionsource.h
        convert/databaseconversion.cpp convert/databaseconversion.h
        convert/odbcsource.cpp convert/odbcsource.h
        convert/sourcetable.h
        convert/valuetext.cpp convert/valuetext.h
    DEPS tabulon_db
    PRIVATE_DEPS PkgConfig::LIBMDB PkgConfig::ODBC)
tabulon_window_library(tabulon_convert
    SOURCES
        convert/convertdb.cpp convert/convertdb.h
    DEPS tabulon_convert_logic tabulon_ui)
list(APPEND TABULON_TOOL_LIBRARIES tabulon_convert)

# The Access reader the conversion and the import start for every Access file; built and
# installed beside the program. Programs of the build tree fall back on its build path.
add_executable(tabulon-accessreader convert/accessreader_main.cpp)
target_link_libraries(tabulon-accessreader PRIVATE tabulon_convert_logic tabulon_common_cfg)
set_target_properties(tabulon-accessreader PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
set_property(SOURCE convert/accessreader.cpp APPEND PROPERTY COMPILE_DEFINITIONS
    TABULON_ACCESS_READER_BUILT="$<TARGET_FILE:tabulon-accessreader>")
add_dependencies(tabulon_convert tabulon-accessreader)

# The Access reader's libFuzzer target (clang only): configure a separate build with
# CC=clang CXX=clang++ -DTABULON_FUZZ=ON -DTABULON_SANITIZE=ON.
option(TABULON_FUZZ "Build the libFuzzer targets (needs clang)" OFF)
if(TABULON_FUZZ)
    add_executable(fuzz_accessfile convert/fuzz_accessfile.cpp)
    target_compile_options(fuzz_accessfile PRIVATE -fsanitize=fuzzer)
    target_link_options(fuzz_accessfile PRIVATE -fsanitize=fuzzer)
    target_compile_options(tabulon_convert_logic PRIVATE -fsanitize=fuzzer-no-link)
    target_link_libraries(fuzz_accessfile PRIVATE tabulon_convert_logic tabulon_common_cfg)
endif()
