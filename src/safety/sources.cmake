# The safety net: copies of what destructive commands change, written before their first
# statement, kept within limits and put back on request (logic), and the Safety Copies window.
tabulon_logic_library(tabulon_safety_logic
    SOURCES
        safety/safetysettings.cpp safety/safetysettings.h
        safety/checksum.cpp safety/checksum.h
        safety/safetycopy.cpp safety/safetycopy.h
        safety/copysql.cpp safety/copysql.h
        safety/safetynet.cpp safety/safetynet.h
        safety/putback.cpp safety/putback.h
    DEPS tabulon_db
    PRIVATE_DEPS tabulon_settings ZLIB::ZLIB)
tabulon_window_library(tabulon_safety
    SOURCES
        safety/safetycopies.cpp safety/safetycopies.h
    DEPS tabulon_safety_logic tabulon_ui)
list(APPEND TABULON_TOOL_LIBRARIES tabulon_safety)
