# Installation: headers, libraries, a CMake package and a pkg-config file.

include(CMakePackageConfigHelpers)

install(TARGETS numcore auxkit gridweave EXPORT gridweave-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tq4 DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
