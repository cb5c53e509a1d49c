# Compiler policy shared by every Tabulon target (link tabulon_common_cfg instead of setting
# flags globally), and the two kinds of feature library.
add_library(tabulon_common_cfg INTERFACE)
target_compile_features(tabulon_common_cfg INTERFACE cxx_std_20)
target_compile_definitions(tabulon_common_cfg INTERFACE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_KEYWORDS QT_NO_FOREACH QT_USE_QSTRINGBUILDER)
if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(tabulon_common_cfg INTERFACE
        -Wall -Wextra -pedantic -Wold-style-cast -Woverloaded-virtual -Wnon-virtual-dtor)
    option(TABULON_WERROR "Treat warnings as errors" OFF)
    if(TABULON_WERROR)
        target_compile_options(tabulon_common_cfg INTERFACE -Werror)
    endif()
endif()
set(CMAKE_CXX_EXTENSIONS OFF)

# AddressSanitizer and UndefinedBehaviorSanitizer over everything built here.
option(TABULON_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
if(TABULON_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
    add_compile_definitions(TABULON_SANITIZED)
endif()

# libFuzzer targets (clang only): every library is built with the fuzzer's coverage
# instrumentation, and tests/fuzz adds one program per target. scripts/fuzz.sh sets this up.
option(TABULON_FUZZ "Build the libFuzzer targets (needs clang)" OFF)
if(TABULON_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# tabulon_logic_library(<name> SOURCES <files>... [DEPS <targets>...] [PRIVATE_DEPS <targets>...])
# Rules, statement builders, file forms: Qt Core and the session only, never a widget.
function(tabulon_logic_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;PRIVATE_DEPS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} PUBLIC Qt6::Core ${ARG_DEPS} PRIVATE tabulon_common_cfg ${ARG_PRIVATE_DEPS})
    set_property(GLOBAL APPEND PROPERTY TABULON_LOGIC_TARGETS ${name})
endfunction()

# tabulon_window_library(<name> SOURCES <files>... [DEPS <targets>...])
# A feature's windows: its logic library, the shared window kit, the session. Tools are
# linked into the program by the composition root (app/), never into each other's windows.
function(tabulon_window_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;PRIVATE_DEPS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} PUBLIC Qt6::Widgets ${ARG_DEPS} PRIVATE tabulon_common_cfg ${ARG_PRIVATE_DEPS})
endfunction()

# Fails the configuration when a logic library reaches Qt Widgets through its links.
function(tabulon_check_logic_targets)
    get_property(targets GLOBAL PROPERTY TABULON_LOGIC_TARGETS)
    foreach(target IN LISTS targets)
        set(seen "")
        set(queue ${target})
        while(queue)
            list(POP_FRONT queue current)
            if(current IN_LIST seen OR NOT TARGET ${current})
                continue()
            endif()
            list(APPEND seen ${current})
            if(current MATCHES "^Qt6::(Widgets|Gui)$")
                message(FATAL_ERROR "logic library ${target} links ${current}")
            endif()
            get_target_property(links ${current} INTERFACE_LINK_LIBRARIES)
            get_target_property(type ${current} TYPE)
            if(NOT type STREQUAL "INTERFACE_LIBRARY")
                get_target_property(own ${current} LINK_LIBRARIES)
                if(own)
                    list(APPEND links ${own})
                endif()
            endif()
            foreach(link IN LISTS links)
                if(link AND NOT link MATCHES "^\\$<")
                    list(APPEND queue ${link})
                endif()
            endforeach()
        endwhile()
    endforeach()
endfunction()
