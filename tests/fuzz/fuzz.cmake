# libFuzzer targets (clang only): scripts/fuzz.sh configures a separate build with
# CC=clang-14 CXX=clang++-14 -DTABULON_FUZZ=ON -DTABULON_SANITIZE=ON and runs each of them over
# its seed corpus in tests/fuzz/corpus/<target>/.
function(tabulon_add_fuzzer name source)
    add_executable(${name} ${source} ${CMAKE_CURRENT_LIST_DIR}/fuzzfile.h)
    target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_LIST_DIR})
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_libraries(${name} PRIVATE tabulon_common_cfg ${ARGN})
endfunction()

tabulon_add_fuzzer(fuzz_gridfile ${CMAKE_CURRENT_LIST_DIR}/fuzz_gridfile.cpp tabulon_gridcore)
tabulon_add_fuzzer(fuzz_archive ${CMAKE_CURRENT_LIST_DIR}/fuzz_archive.cpp tabulon_backup_logic)
tabulon_add_fuzzer(fuzz_scriptsplit ${CMAKE_CURRENT_LIST_DIR}/fuzz_scriptsplit.cpp tabulon_script_logic)
tabulon_add_fuzzer(fuzz_conversionrules ${CMAKE_CURRENT_LIST_DIR}/fuzz_conversionrules.cpp tabulon_convert_logic)
