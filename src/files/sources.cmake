# Folders and files: the tree of a folder, names and file texts replaced, entries deleted.
tabulon_logic_library(tabulon_files_logic
    SOURCES
        files/changetexts.cpp files/changetexts.h
        files/filecopies.cpp files/filecopies.h
        files/filetext.cpp files/filetext.h
        files/folderwork.cpp files/folderwork.h
        files/trash.cpp files/trash.h
    DEPS tabulon_db)
tabulon_window_library(tabulon_files
    SOURCES
        files/foldertree.cpp files/foldertree.h
        files/renamefolders.cpp files/renamefolders.h
    DEPS tabulon_files_logic tabulon_ui)
list(APPEND TABULON_TOOL_LIBRARIES tabulon_files)
