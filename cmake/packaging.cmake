# SPDX-License-Identifier: MIT
# Debian packages (presets host and arm) and an archive to unpack on a board (preset arm-static):
#   cmake --build build/PRESET && cpack --config build/PRESET/CPackConfig.cmake -B build/PRESET/packages
set(CPACK_PACKAGE_NAME camstat)
set(CPACK_PACKAGE_CONTACT "The camStat authors <camstat@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

if(NOT KELISP_PACKAGES)
    # One archive with the programs alone, for a board without a package manager.
    set(CPACK_GENERATOR TGZ)
    set(CPACK_PACKAGE_FILE_NAME camstat-${PROJECT_VERSION}-${CMAKE_SYSTEM_PROCESSOR})
    set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
    set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
    set(CPACK_COMPONENTS_ALL runtime)
    include(CPack)
    return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${CPACK_PACKAGE_CONTACT})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armel)
endif()
# Named here, because CPack would add a script to each package whose dependencies it looks up: these need none.
set(needs_libc "libc6 (>= 2.34)")
set(needs_camsim "libc6 (>= 2.36), libgcc-s1 (>= 3.5), libstdc++6 (>= 12)")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS camstat-plot)

# kel_package(COMPONENT NAME SECTION DEPENDS SUMMARY TEXT)
set(CPACK_COMPONENTS_ALL "")
macro(kel_package component name section depends summary text)
    string(TOUPPER ${component} upper)
    list(APPEND CPACK_COMPONENTS_ALL ${component})
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
    set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}")
    set(CPACK_COMPONENT_${upper}_DESCRIPTION "${summary}\n${text}")
    kel_package_documents(${component} ${name})
endmacro()

# Every package carries its licence and its changes.
function(kel_package_documents component name)
    install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} RENAME copyright
        COMPONENT ${component})
    install(FILES ${PROJECT_BINARY_DIR}/changelog.Debian.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name}
        COMPONENT ${component})
endfunction()

file(WRITE ${PROJECT_BINARY_DIR}/changelog.Debian "camstat (${PROJECT_VERSION}-1) unstable; urgency=medium\n\n"
    "  * See the project's CHANGELOG.md.\n\n -- ${CPACK_PACKAGE_CONTACT}  Sun, 22 Nov 2026 12:00:00 +0000\n")
execute_process(COMMAND gzip -9nf ${PROJECT_BINARY_DIR}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)

kel_package(runtime camstat utils "${needs_libc}" "diagnostic and control tool of an IP-camera board"
    "camStat prints what the camera's exposure and white balance are doing,
switches IR LEDs and IR-cut filter, forces exposure and gains, resets the
sensor and stresses the I2C link. camCtl works on register
fields by name, camConf on the image configuration, drvI2cTest on single
registers.")
kel_package(library libkelisp${PROJECT_VERSION_MAJOR} libs "${needs_libc}" "camera library of an IP-camera board"
    "The library under camStat: register access, conversions, sensor control
and image configuration.")
kel_package(dev libkelisp-dev libdevel "libkelisp${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}-1)"
    "camera library of an IP-camera board (development files)"
    "Headers, static library, pkg-config and CMake files of libkelisp, for C11
and C++20.")
kel_package(plot camstat-plot utils "python3, python3-matplotlib" "pictures and numbers of IP-camera boards"
    "Draws what stress tests left on the flash of one board or of many, ranked
from worst to best, and live values over time, as pictures or as a page.
With playbooks that burn in and watch many boards.")
set(CPACK_DEBIAN_PLOT_PACKAGE_ARCHITECTURE all)
if(KELISP_SIM)
    if(FUSE3_LIBRARY)
        string(APPEND needs_camsim ", libfuse3-3 (>= 3.2)")
    endif()
    kel_package(sim camsim utils "${needs_camsim}" "simulated IP-camera board"
        "Runs programs of the camera board on a PC: device nodes, registers,
flash, faults on request, and a trace.")
endif()

# What other packages need of the library's, and the linker cache that follows its installation.
file(WRITE ${PROJECT_BINARY_DIR}/shlibs
    "libkelisp ${PROJECT_VERSION_MAJOR} libkelisp${PROJECT_VERSION_MAJOR} (>= ${PROJECT_VERSION})\n")
file(WRITE ${PROJECT_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/shlibs ${PROJECT_BINARY_DIR}/triggers)

# Debian keeps manual pages compressed; a plain installation does not.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    install(CODE [[
        file(GLOB pages "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/share/man/man*/*.[1-9]")
        if(pages AND "$ENV{DESTDIR}" MATCHES "_CPack_Packages")
            execute_process(COMMAND gzip -9nf ${pages} COMMAND_ERROR_IS_FATAL ANY)
        endif()
    ]] COMPONENT ${component})
endforeach()
include(CPack)
