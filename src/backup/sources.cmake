# Backup and restore: dated zip archives of table files (logic), and the two wizard windows.
tabulon_logic_library(tabulon_backup_logic
    SOURCES
        backup/backuparchive.cpp backup/backuparchive.h
        backup/tablebackup.cpp backup/tablebackup.h
        backup/tablerestore.cpp backup/tablerestore.h
        backup/servernames.cpp backup/servernames.h
        backup/restorecheck.cpp backup/restorecheck.h
    DEPS tabulon_db tabulon_gridcore tabulon_data_logic
    PRIVATE_DEPS PkgConfig::LIBZIP ZLIB::ZLIB)
tabulon_window_library(tabulon_backup
    SOURCES
        backup/folderlists.cpp backup/folderlists.h
        backup/backup.cpp backup/backup.h
        backup/restore.cpp backup/restore.h
    DEPS tabulon_backup_logic tabulon_ui tabulon_safety_logic)
list(APPEND TABULON_TOOL_LIBRARIES tabulon_backup)
