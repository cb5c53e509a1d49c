# Import Data: chosen fields of one Access or ODBC table copied into a new or an existing table
# (logic, reading its source through the conversion's sources), and the wizard window.
tabulon_logic_library(tabulon_import_logic
    SOURCES
        import/importdata.cpp import/importdata.h
    DEPS tabulon_db tabulon_convert_logic)
tabulon_window_library(tabulon_import
    SOURCES
        import/frmimportdata.cpp import/frmimportdata.h
    DEPS tabulon_import_logic tabulon_ui tabulon_grid tabulon_safety_logic)
list(APPEND TABULON_TOOL_LIBRARIES tabulon_import)
# The wizard starts the Access reader for an Access file.
add_dependencies(tabulon_import tabulon-accessreader)
