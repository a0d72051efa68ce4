# Everything is compiled for libFuzzer when the fuzz targets are asked for: coverage of every branch, and both sanitizers. So such a build
# serves nothing else.
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "The fuzz targets need clang (with the preset `fuzz`: cmake --preset fuzz).")
endif()

add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
add_link_options(-fsanitize=address,undefined)
