# Demo database generator: the library that tests and benchmarks call, and the program the demo
# script runs.
tabulon_logic_library(tabulon_demo
    SOURCES demo/demodatabase.cpp demo/demodatabase.h demo/demotables.cpp demo/demotables.h
    DEPS tabulon_db)

add_executable(tabulon-demodb demo/main.cpp)
target_link_libraries(tabulon-demodb PRIVATE tabulon_demo tabulon_common_cfg)
