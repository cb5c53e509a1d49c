# Demo database generator: the library that tests and benchmarks call, and the program the demo
# script runs.
add_library(tabulon_demo STATIC
    demo/demodatabase.cpp demo/demodatabase.h
)
target_include_directories(tabulon_demo PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(tabulon_demo PUBLIC tabulon_db PRIVATE tabulon_common_cfg)

add_executable(tabulon-demodb demo/main.cpp)
target_link_libraries(tabulon-demodb PRIVATE tabulon_demo tabulon_common_cfg)
