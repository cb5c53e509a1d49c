# The fault campaigns' driver: one run of one tool with one fault. It kills and restarts the
# server it is given, so it is no ctest test; scripts/faults.sh runs the campaigns.
add_executable(fault_run ${CMAKE_CURRENT_LIST_DIR}/fault_run.cpp)
target_compile_definitions(fault_run PRIVATE TABULON_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
target_link_libraries(fault_run PRIVATE tabulon_app tabulon_testoperator tabulon_testsupport Qt6::Test
    tabulon_common_cfg)
