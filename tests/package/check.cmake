# Installs a finished build into a scratch prefix, and builds and runs a host against it: by find_package, and by pkg-config where there is
# one.
#
#   cmake -DBUILD_DIR=build/release [-DCOMPILER=g++] [-DFLAGS=...] -P tests/package/check.cmake
#
# FLAGS are compiler flags that host and library must share, such as those of a sanitizer.

cmake_minimum_required(VERSION 3.19)

get_filename_component(BUILD_DIR "${BUILD_DIR}" ABSOLUTE)
set(scratch "${BUILD_DIR}/package-check")
set(prefix "${scratch}/prefix")
if(NOT COMPILER)
    find_program(COMPILER NAMES c++ g++ clang++ REQUIRED)
endif()

# The host is built with what built the library; another generator's program need not be there.
load_cache("${BUILD_DIR}" READ_WITH_PREFIX library_ CMAKE_GENERATOR CMAKE_MAKE_PROGRAM)

function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        list(JOIN ARGV " " command)
        message(FATAL_ERROR "${command}\n${output}\nended with ${result}")
    endif()
endfunction()

file(REMOVE_RECURSE "${scratch}")
run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")

# Nothing internal is installed.
file(GLOB_RECURSE installed RELATIVE "${prefix}" "${prefix}/*")
list(FILTER installed INCLUDE REGEX "gridweave_(objects|testable)|gtest|gmock")
if(installed)
    message(FATAL_ERROR "installed, and should not be: ${installed}")
endif()

run(${CMAKE_COMMAND} -S "${CMAKE_CURRENT_LIST_DIR}" -B "${scratch}/host" -G "${library_CMAKE_GENERATOR}"
    "-DCMAKE_MAKE_PROGRAM=${library_CMAKE_MAKE_PROGRAM}" "-DCMAKE_PREFIX_PATH=${prefix}" "-DCMAKE_CXX_COMPILER=${COMPILER}"
    "-DCMAKE_CXX_FLAGS=${FLAGS}" -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build "${scratch}/host")
run("${scratch}/host/host")
run("${scratch}/host/containers")
message(STATUS "find_package: passed")

find_program(PKG_CONFIG NAMES pkg-config pkgconf)
if(NOT PKG_CONFIG)
    message(STATUS "pkg-config: not installed, left out")
    return()
endif()
file(GLOB_RECURSE pc_file "${prefix}/*/gridweave.pc")
get_filename_component(pc_dir "${pc_file}" DIRECTORY)
get_filename_component(library_dir "${pc_dir}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} "${pc_dir}")
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs "gridweave >= 4.9" OUTPUT_VARIABLE options OUTPUT_STRIP_TRAILING_WHITESPACE
                        COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(options UNIX_COMMAND "${options}")
separate_arguments(FLAGS UNIX_COMMAND "${FLAGS}")
run(${COMPILER} -std=c++17 ${FLAGS} "${CMAKE_CURRENT_LIST_DIR}/host.cpp" ${options} "-Wl,-rpath,${library_dir}" -o "${scratch}/host_by_pkg_config")
run("${scratch}/host_by_pkg_config")
message(STATUS "pkg-config: passed")
