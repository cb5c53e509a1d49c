# Compiler policy shared by every Tabulon target: link tabulon_common_cfg instead of
# setting flags globally.
add_library(tabulon_common_cfg INTERFACE)
target_compile_features(tabulon_common_cfg INTERFACE cxx_std_20)
target_compile_definitions(tabulon_common_cfg INTERFACE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_KEYWORDS QT_NO_FOREACH)
if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(tabulon_common_cfg INTERFACE -Wall -Wextra -pedantic)
    option(TABULON_WERROR "Treat warnings as errors" OFF)
    if(TABULON_WERROR)
        target_compile_options(tabulon_common_cfg INTERFACE -Werror)
    endif()
endif()
set(CMAKE_CXX_EXTENSIONS OFF)
