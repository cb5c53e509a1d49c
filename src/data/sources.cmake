add_library(tabulon_data INTERFACE)
