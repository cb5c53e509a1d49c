# The persisted connection settings, read by the program and by its companion import_db; Qt
# Core only, so that neither has to link the other's libraries to reach them.
tabulon_logic_library(tabulon_settings
    SOURCES
        settings/settings.cpp settings/settings.h
        settings/tlsconfig.cpp settings/tlsconfig.h)
