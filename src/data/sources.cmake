tabulon_logic_library(tabulon_data_logic
    SOURCES
        data/recordwriter.cpp data/recordwriter.h
        data/exactvalues.cpp data/exactvalues.h
        data/findcursor.cpp data/findcursor.h
        data/tablesearch.cpp data/tablesearch.h
    DEPS tabulon_db)
tabulon_window_library(tabulon_data
    SOURCES
        data/tabledata.cpp data/tabledata.h
        data/search.cpp data/search.h
        data/replacedata.cpp data/replacedata.h
    DEPS tabulon_data_logic tabulon_ui tabulon_grid tabulon_safety_logic)
list(APPEND TABULON_TOOL_LIBRARIES tabulon_data)
