# Table structure: the detail of a table's columns with field editing, and create table.
tabulon_logic_library(tabulon_structure_logic
    SOURCES
        structure/structuresql.cpp structure/structuresql.h
    DEPS Qt6::Core)
tabulon_window_library(tabulon_structure
    SOURCES
        structure/tableinfo.cpp structure/tableinfo.h
        structure/createtable.cpp structure/createtable.h
    DEPS tabulon_structure_logic tabulon_ui tabulon_grid tabulon_safety_logic)
list(APPEND TABULON_TOOL_LIBRARIES tabulon_structure)
