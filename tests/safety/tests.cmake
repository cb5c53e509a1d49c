tabulon_add_test(test_safetynet safety/test_safetynet.cpp LIBS tabulon_safety_logic)
tabulon_add_test(test_safetycopies safety/test_safetycopies.cpp
    LIBS tabulon_safety tabulon_app tabulon_testoperator)
tabulon_add_test(test_safetyhooks safety/test_safetyhooks.cpp
    LIBS tabulon_safety tabulon_data tabulon_structure tabulon_backup tabulon_maintenance tabulon_import tabulon_app
         tabulon_testoperator)
target_compile_definitions(test_safetyhooks PRIVATE TABULON_FIXTURES_DIR="${PROJECT_SOURCE_DIR}/tests/fixtures")
