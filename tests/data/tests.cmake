tabulon_add_test(test_recordwriter data/test_recordwriter.cpp LIBS tabulon_data)
tabulon_add_test(test_tabledata data/test_tabledata.cpp LIBS tabulon_data)
