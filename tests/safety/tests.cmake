tabulon_add_test(test_safetynet safety/test_safetynet.cpp LIBS tabulon_safety_logic)
tabulon_add_test(test_safetycopies safety/test_safetycopies.cpp
    LIBS tabulon_safety tabulon_app tabulon_testoperator)
