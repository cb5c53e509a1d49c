tabulon_add_test(test_startup app/test_startup.cpp LIBS tabulon_app)
tabulon_add_test(test_mainwindow app/test_mainwindow.cpp LIBS tabulon_app tabulon_testoperator)
tabulon_add_test(test_toolloops app/test_toolloops.cpp LIBS tabulon_app tabulon_backup tabulon_testoperator)
tabulon_add_test(test_tls app/test_tls.cpp LIBS tabulon_app tabulon_backup tabulon_testoperator)
# The test starts its own TLS server with the project's script unless the test command names one.
target_compile_definitions(test_tls PRIVATE
    TABULON_MARIADB_SCRIPT="${PROJECT_SOURCE_DIR}/scripts/private-mariadb.sh"
    TABULON_IMPORT_DB="$<TARGET_FILE:import_db>")
add_dependencies(test_tls import_db)
