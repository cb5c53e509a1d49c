tabulon_add_test(test_settings app/test_settings.cpp LIBS tabulon_app)
tabulon_add_test(test_mainwindow app/test_mainwindow.cpp LIBS tabulon_app tabulon_testoperator)
