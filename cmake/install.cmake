# SPDX-License-Identifier: MIT
# What is installed, by component: runtime (programs), library, dev, sim. Packages are in packaging.cmake.
option(KELISP_PACKAGES "Install the library as packages want it, shared and static at once" OFF)

install(TARGETS camStat drvI2cTest camConf RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)

if(KELISP_PACKAGES)
    # Position-independent, unlike the objects of the programs: others link it into programs of any kind.
    kel_library(kelisp_shared SHARED ${kelisp_sources})
    kel_library(kelisp_static STATIC ${kelisp_sources})
    set_target_properties(kelisp_static PROPERTIES POSITION_INDEPENDENT_CODE ON EXPORT_NAME kelisp_static
        ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/package)
    set_target_properties(kelisp_shared PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/package)
    set(kelisp_installed kelisp_shared kelisp_static)
else()
    set(kelisp_installed kelisp)
endif()
install(TARGETS ${kelisp_installed} EXPORT kelisp
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT dev
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)

# The public headers: kelisp.h and the folder kelisp/ beside it.
install(FILES kelisp.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(DIRECTORY kelisp DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)

include(CMakePackageConfigHelpers)
set(kelisp_cmake_folder ${CMAKE_INSTALL_LIBDIR}/cmake/kelisp)
install(EXPORT kelisp NAMESPACE kelisp:: FILE kelispConfig.cmake DESTINATION ${kelisp_cmake_folder} COMPONENT dev)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/kelispConfigVersion.cmake COMPATIBILITY SameMinorVersion)
configure_file(cmake/kelisp.pc.in ${CMAKE_BINARY_DIR}/kelisp.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/kelispConfigVersion.cmake DESTINATION ${kelisp_cmake_folder} COMPONENT dev)
install(FILES ${CMAKE_BINARY_DIR}/kelisp.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

include(cmake/packaging.cmake)
