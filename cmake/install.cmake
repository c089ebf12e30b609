# SPDX-License-Identifier: MIT
# What is installed, by component: runtime (programs), library, dev, plot, sim. Packages are in packaging.cmake.

install(TARGETS camStat drvI2cTest camConf camCtl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
if(KELISP_SIM)
    install(TARGETS camSim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT sim)
    install(TARGETS camsimBoard LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/camSim COMPONENT sim)
endif()

if(KELISP_PACKAGES)
    # Position-independent, unlike the objects of the programs: others link it into programs of any kind.
    kel_library(kelisp_shared SHARED)
    kel_library(kelisp_static STATIC)
    set_target_properties(kelisp_static PROPERTIES POSITION_INDEPENDENT_CODE ON EXPORT_NAME kelisp_static
        ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/package)
    set_target_properties(kelisp_shared PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/package)
    set(kelisp_installed kelisp_shared kelisp_static)
    foreach(library IN LISTS kelisp_installed)
        target_link_libraries(${library} PRIVATE $<BUILD_INTERFACE:kel_hardened>)
    endforeach()
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
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kelispConfigVersion.cmake COMPATIBILITY SameMinorVersion)
file(RELATIVE_PATH kelisp_prefix_from_pc ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/kelisp.pc.in ${PROJECT_BINARY_DIR}/kelisp.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kelispConfigVersion.cmake DESTINATION ${kelisp_cmake_folder} COMPONENT dev)
install(FILES ${PROJECT_BINARY_DIR}/kelisp.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# kel_pages(COMPONENT PROGRAM_OR_PAGE...): manual pages, and the completion of programs; the shell looks for a file with the
# name of the program, so each program has the one file under its name.
function(kel_pages component)
    foreach(page IN LISTS ARGN)
        string(REGEX MATCH "[0-9]$" section ${page})
        install(FILES man/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
        if(section EQUAL 1)
            string(REGEX REPLACE "\\.1$" "" program ${page})
            install(FILES tools/completion/camStat.bash RENAME ${program} COMPONENT ${component}
                DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
        endif()
    endforeach()
endfunction()
if(KELISP_PACKAGES OR NOT CMAKE_CROSSCOMPILING) # a board gets the programs alone
    # Python puts the folder of the program itself on its path, behind the link.
    file(GLOB modules ${PROJECT_SOURCE_DIR}/tools/camPlot/*.py)
    install(PROGRAMS tools/camPlot/camPlot DESTINATION ${CMAKE_INSTALL_DATADIR}/camPlot COMPONENT plot)
    install(FILES ${modules} DESTINATION ${CMAKE_INSTALL_DATADIR}/camPlot COMPONENT plot)
    file(RELATIVE_PATH camplot ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_DATADIR}/camPlot/camPlot)
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/link)
    file(CREATE_LINK ${camplot} ${PROJECT_BINARY_DIR}/link/camPlot SYMBOLIC)
    install(FILES ${PROJECT_BINARY_DIR}/link/camPlot DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT plot)
    kel_pages(plot camPlot.1)
    install(FILES fleet/alerts.yml fleet/alerts.test.yml fleet/burnIn.yml fleet/camera-metrics.service fleet/camera-metrics.timer fleet/inventory.example.yml
        fleet/metrics.yml DESTINATION ${CMAKE_INSTALL_DATADIR}/camPlot/fleet COMPONENT plot)
    install(PROGRAMS fleet/boardMetrics fleet/simulate DESTINATION ${CMAKE_INSTALL_DATADIR}/camPlot/fleet COMPONENT plot)
    install(FILES docs/fleet.md docs/fleet.png DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/camstat-plot COMPONENT plot)
    kel_pages(runtime camConf.1 camCtl.1 camStat.1 conf.img.5 drvI2cTest.1)
    kel_pages(dev kelisp.3)
    install(FILES docs/operating.md docs/recipes.md docs/registers.md docs/camCtl.schema.json DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/camstat COMPONENT runtime)
    install(FILES docs/library.md docs/porting.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libkelisp-dev COMPONENT dev)
    if(KELISP_SIM)
        kel_pages(sim camSim.1)
    endif()
endif()

include(cmake/packaging.cmake)
