add_library(tabulon_data STATIC
    data/recordwriter.cpp data/recordwriter.h
    data/findcursor.cpp data/findcursor.h
    data/tabledata.cpp data/tabledata.h
)
target_link_libraries(tabulon_data PUBLIC tabulon_app tabulon_grid tabulon_db PRIVATE tabulon_common_cfg)
