tabulon_add_test(test_textcolumn db/test_textcolumn.cpp LIBS tabulon_db)
tabulon_add_test(test_databasesession db/test_databasesession.cpp LIBS tabulon_db)
