# The window kit: Escape, busy state, progress, table lists.
tabulon_add_test(test_toolwindow ui/test_toolwindow.cpp LIBS tabulon_ui tabulon_testoperator)
