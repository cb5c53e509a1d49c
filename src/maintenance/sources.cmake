# Table maintenance: check and repair tables (the checklist they share is in the window kit).
tabulon_logic_library(tabulon_maintenance_logic
    SOURCES
        maintenance/tablecheck.cpp maintenance/tablecheck.h
    DEPS tabulon_db)
tabulon_window_library(tabulon_maintenance
    SOURCES
        maintenance/checktable.cpp maintenance/checktable.h
        maintenance/repairtable.cpp maintenance/repairtable.h
    DEPS tabulon_maintenance_logic tabulon_ui tabulon_grid tabulon_safety_logic)
list(APPEND TABULON_TOOL_LIBRARIES tabulon_maintenance)
