# The window kit every tool uses.
tabulon_window_library(tabulon_ui
    SOURCES
        ui/dialogs.cpp ui/dialogs.h
        ui/toolhost.cpp ui/toolhost.h
        ui/toolwindow.cpp ui/toolwindow.h
        ui/progressview.cpp ui/progressview.h
        ui/tablelist.cpp ui/tablelist.h
        ui/tablechecklist.cpp ui/tablechecklist.h
    DEPS tabulon_db)
