# The table script: "Create Text File" writes import.sql (logic), and the import_db companion
# that "Execute Text File" starts runs it, with its progress window.
tabulon_logic_library(tabulon_script_logic
    SOURCES
        script/scriptrunner.cpp script/scriptrunner.h
        script/tablescript.cpp script/tablescript.h
    DEPS tabulon_db)
tabulon_window_library(tabulon_script
    SOURCES
        script/importdb.cpp script/importdb.h
    DEPS tabulon_script_logic tabulon_ui tabulon_settings)
list(APPEND TABULON_TOOL_LIBRARIES tabulon_script)

# The companion "Execute Text File" starts; built beside the program, installed with it.
add_executable(import_db script/importdb_main.cpp)
target_link_libraries(import_db PRIVATE tabulon_script tabulon_common_cfg)
set_target_properties(import_db PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
