# Installation: headers, the three libraries, a CMake package and a pkg-config file. Hosts name the targets as in the build tree:
# tq4::gridweave, tq4::numcore, tq4::auxkit.

include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/gridweave)

install(
    TARGETS numcore auxkit gridweave
    EXPORT gridweave-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tq4 DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(
    EXPORT gridweave-targets
    NAMESPACE tq4::
    DESTINATION ${package_dir})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/gridweaveConfig.cmake.in ${PROJECT_BINARY_DIR}/gridweaveConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/gridweaveConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/gridweaveConfig.cmake ${PROJECT_BINARY_DIR}/gridweaveConfigVersion.cmake
        DESTINATION ${package_dir})

# pkg-config: a shared library brings LAPACK along by itself, with a static one the host links it.
set(pc_libraries -lgridweave -ltq4_auxkit -ltq4_numcore)
set(pc_definitions "")
if(NOT BUILD_SHARED_LIBS)
    foreach(library IN LISTS LAPACK_LIBRARIES)
        # A path becomes -l, so that the file serves machines on which the library lies elsewhere.
        string(REGEX REPLACE "^.*/lib([^/]+)\\.(so|a|dylib)[^/]*$" "-l\\1" library "${library}")
        list(APPEND pc_libraries ${library})
    endforeach()
    list(REMOVE_DUPLICATES pc_libraries)
    set(pc_definitions "-DTQ4_STATIC")
endif()
list(JOIN pc_libraries " " pc_libraries)
# The prefix is told relative to the file itself: an installed tree may be moved.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE pc_prefix)
configure_file(${CMAKE_CURRENT_LIST_DIR}/gridweave.pc.in ${PROJECT_BINARY_DIR}/gridweave.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/gridweave.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
