# What the three libraries, the tests, the examples and the benchmarks have in common.

# Warnings that everything here compiles without.
function(gridweave_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
    if(GRIDWEAVE_WARNINGS_AS_ERRORS)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()

# One library of the project: sources in C++20, public headers in C++17, hidden symbols but for the interface.
function(gridweave_library target output)
    add_library(tq4::${target} ALIAS ${target})
    gridweave_warnings(${target})
    target_compile_features(${target} PUBLIC cxx_std_17 PRIVATE cxx_std_20)
    # Results are fixed to the last bit: no contraction of a product and a sum, whatever the machine offers.
    target_compile_options(${target} PRIVATE -ffp-contract=off)
    target_include_directories(
        ${target}
        PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
        PRIVATE ${PROJECT_SOURCE_DIR})
    if(NOT BUILD_SHARED_LIBS)
        target_compile_definitions(${target} PUBLIC TQ4_STATIC)
    endif()
    set_target_properties(
        ${target}
        PROPERTIES OUTPUT_NAME ${output}
                   VERSION ${PROJECT_VERSION}
                   SOVERSION ${PROJECT_VERSION_MAJOR}
                   INSTALL_RPATH $ORIGIN # the three libraries find each other wherever they are installed
                   CXX_EXTENSIONS OFF
                   CXX_VISIBILITY_PRESET hidden
                   VISIBILITY_INLINES_HIDDEN ON
                   POSITION_INDEPENDENT_CODE ON)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL SHARED_LIBRARY AND CMAKE_EXECUTABLE_FORMAT STREQUAL ELF)
        target_link_options(${target} PRIVATE -Wl,--version-script,${PROJECT_SOURCE_DIR}/cmake/exports.map)
        set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.map)
    endif()
endfunction()
