tabulon_add_test(test_startup app/test_startup.cpp LIBS tabulon_app)
tabulon_add_test(test_mainwindow app/test_mainwindow.cpp LIBS tabulon_app tabulon_testoperator)
