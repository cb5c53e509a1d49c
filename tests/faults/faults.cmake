# The fault campaigns' driver: one run of one tool with one fault (scripts/faults.sh runs the
# campaigns), and a smoke test that keeps it working against the suite's server.
add_executable(fault_run ${CMAKE_CURRENT_LIST_DIR}/fault_run.cpp)
target_compile_definitions(fault_run PRIVATE TABULON_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
target_link_libraries(fault_run PRIVATE tabulon_app tabulon_testoperator tabulon_testsupport Qt6::Test
    tabulon_common_cfg)
