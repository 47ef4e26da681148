# What is installed, and where. The components are what packages are made of: runtime (the library with
# what clients need to find and describe it), development, and tools. Paths are relative to the prefix,
# so an installed tree can be moved as a whole.

include(CMakePackageConfigHelpers)

# On Linux the library has a folder of its own, for the files that belong beside it. The loader's names
# of it are links in the folder of all libraries.
set(private_dir "${CMAKE_INSTALL_LIBDIR}/tarvik-dpdu")
if(WIN32)
    set(library_dir "${CMAKE_INSTALL_BINDIR}")
    set(library_file tarvik_dpdu_x64.dll)
else()
    set(library_dir "${private_dir}")
    set(library_file libtarvik_dpdu_x64.so)
endif()
set(documents_dir "${CMAKE_INSTALL_DATADIR}/doc/tarvik-dpdu")
set(vehicles_dir "${CMAKE_INSTALL_DATADIR}/tarvik-dpdu/vehicles")
set(config_dir "${CMAKE_INSTALL_LIBDIR}/cmake/TarvikDpdu")
set(pkgconfig_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

# _tarvik_install_link(COMPONENT NAME TARGET): a link in the folder of all libraries.
function(_tarvik_install_link component name target)
    set(links "${CMAKE_BINARY_DIR}/install/links")
    file(MAKE_DIRECTORY "${links}")
    file(CREATE_LINK "${target}" "${links}/${name}" SYMBOLIC)
    install(FILES "${links}/${name}" DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT ${component})
endfunction()

# _tarvik_way_to_prefix(FOLDER variable): from a folder of the installed tree, "../..".
function(_tarvik_way_to_prefix folder variable)
    string(REGEX REPLACE "[^/]+" ".." way "${folder}")
    set(${variable} "${way}" PARENT_SCOPE)
endfunction()

# --- runtime ---

install(FILES
    "${CMAKE_BINARY_DIR}/descriptions/tarvik_mdf.xml"
    "${CMAKE_BINARY_DIR}/descriptions/tarvik_cdf.xml"
    "${CMAKE_BINARY_DIR}/descriptions/config.json"
    DESTINATION "${library_dir}" COMPONENT runtime)
if(WIN32)
    install(TARGETS tarvik_dpdu
        RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT runtime
        ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
    # On Linux, packages are stripped by their own tools.
    configure_file("${PROJECT_SOURCE_DIR}/cmake/split_symbols.cmake.in"
        "${CMAKE_BINARY_DIR}/install/split_symbols.cmake" @ONLY)
    install(SCRIPT "${CMAKE_BINARY_DIR}/install/split_symbols.cmake" COMPONENT runtime)
else()
    # Under the name that clients look for: the library takes the folder of this file for its own.
    install(FILES "$<TARGET_FILE:tarvik_dpdu>"
        DESTINATION "${library_dir}" COMPONENT runtime RENAME ${library_file})
    set(version_link ${library_file}.${PROJECT_VERSION})
    set(soname_link ${library_file}.${PROJECT_VERSION_MAJOR})
    _tarvik_install_link(runtime ${version_link} tarvik-dpdu/${library_file})
    _tarvik_install_link(runtime ${soname_link} ${version_link})
    _tarvik_install_link(development ${library_file} ${soname_link})
    # udev reads this folder only, whatever the name of the libraries' is.
    install(FILES "${PROJECT_SOURCE_DIR}/packaging/linux/60-tarvik-brennix.rules"
        DESTINATION lib/udev/rules.d COMPONENT runtime)
    if(TARGET dpdu_root)
        install(TARGETS dpdu_root RUNTIME DESTINATION "${library_dir}" COMPONENT runtime)
    endif()
endif()

# --- development ---

install(FILES
    "${PROJECT_SOURCE_DIR}/include/dpdu.hpp"
    "${PROJECT_SOURCE_DIR}/include/dpdu_api.h"
    "${PROJECT_SOURCE_DIR}/include/dpdu_types.h"
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT development)
if(WIN32)
    install(FILES "${CMAKE_BINARY_DIR}/tarvik_dpdu_x64.lib" "${CMAKE_BINARY_DIR}/tarvik_dpdu_x64.def"
        DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
endif()

_tarvik_way_to_prefix("${config_dir}" prefix_of_config)
configure_file("${PROJECT_SOURCE_DIR}/cmake/package/TarvikDpduConfig.cmake.in"
    "${CMAKE_BINARY_DIR}/install/TarvikDpduConfig.cmake" @ONLY)
write_basic_package_version_file("${CMAKE_BINARY_DIR}/install/TarvikDpduConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES
    "${CMAKE_BINARY_DIR}/install/TarvikDpduConfig.cmake"
    "${CMAKE_BINARY_DIR}/install/TarvikDpduConfigVersion.cmake"
    DESTINATION "${config_dir}" COMPONENT development)

_tarvik_way_to_prefix("${pkgconfig_dir}" prefix_of_pkgconfig)
configure_file("${PROJECT_SOURCE_DIR}/cmake/package/tarvik-dpdu.pc.in"
    "${CMAKE_BINARY_DIR}/install/tarvik-dpdu.pc" @ONLY)
install(FILES "${CMAKE_BINARY_DIR}/install/tarvik-dpdu.pc"
    DESTINATION "${pkgconfig_dir}" COMPONENT development)

# --- tools ---

install(TARGETS dpdu RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tools)
install(FILES "${PROJECT_SOURCE_DIR}/docs/scripts.md"
    DESTINATION "${documents_dir}" COMPONENT tools)
set(client "${PROJECT_SOURCE_DIR}/tools/dpdu")
if(WIN32)
    install(FILES "${client}/completion/dpdu_completion.ps1"
        DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tools)
else()
    install(FILES "${client}/dpdu.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT tools)
    install(FILES "${client}/completion/dpdu.bash"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
        COMPONENT tools RENAME dpdu)
    install(FILES "${client}/completion/_dpdu"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions" COMPONENT tools)
endif()
if(TARGET brennix-sim)
    set(simulator "${PROJECT_SOURCE_DIR}/tools/simulator")
    install(TARGETS brennix-sim brennix-relay
        RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tools)
    # Looked for there by the simulator.
    install(TARGETS brennix_serial_lines brennix_mocked_ports
        LIBRARY DESTINATION "${private_dir}" COMPONENT tools)
    file(GLOB vehicles CONFIGURE_DEPENDS "${simulator}/vehicles/*.json")
    install(FILES ${vehicles} DESTINATION "${vehicles_dir}" COMPONENT tools)
    install(FILES "${simulator}/brennix-sim.1" "${simulator}/brennix-relay.1"
        DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT tools)
    foreach(program brennix-sim brennix-relay)
        install(FILES "${simulator}/completion/brennix.bash"
            DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
            COMPONENT tools RENAME ${program})
    endforeach()
    install(FILES "${simulator}/completion/_brennix"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions" COMPONENT tools)
    install(FILES "${simulator}/README.md"
        DESTINATION "${documents_dir}" COMPONENT tools RENAME simulator.md)
endif()

# --- all ---

if(TARGET notices)
    foreach(component runtime development tools)
        install(DIRECTORY "${CMAKE_BINARY_DIR}/notices/"
            DESTINATION "${documents_dir}" COMPONENT ${component})
    endforeach()
endif()

# The target products builds what the rules above install.
add_custom_target(products)
foreach(target
        tarvik_dpdu descriptions dpdu dpdu_root brennix-sim brennix-relay notices)
    if(TARGET ${target})
        add_dependencies(products ${target})
    endif()
endforeach()
