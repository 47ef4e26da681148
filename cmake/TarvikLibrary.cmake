# The product: the shared library made of the whole core, exporting the names of exports.txt.

file(STRINGS "${PROJECT_SOURCE_DIR}/cmake/exports.txt" exports)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/cmake/exports.txt")

# The objects themselves, since a linker takes only referenced objects from an archive. The archive
# is also named, for the libraries that it depends on.
add_library(tarvik_dpdu SHARED $<TARGET_OBJECTS:tarvik_dpdu_core>)
set_target_properties(tarvik_dpdu PROPERTIES
    OUTPUT_NAME tarvik_dpdu_x64
    LINKER_LANGUAGE CXX)
target_link_libraries(tarvik_dpdu PRIVATE tarvik_dpdu_core)
tarvik_harden_library(tarvik_dpdu)

if(WIN32)
    list(JOIN exports "\n    " export_lines)
    set(definition "${CMAKE_CURRENT_BINARY_DIR}/tarvik_dpdu.def")
    file(CONFIGURE OUTPUT "${definition}" CONTENT "EXPORTS\n    @export_lines@\n" @ONLY)
    configure_file("${PROJECT_SOURCE_DIR}/cmake/version.rc.in"
        "${CMAKE_CURRENT_BINARY_DIR}/version.rc" @ONLY)
    target_sources(tarvik_dpdu PRIVATE "${CMAKE_CURRENT_BINARY_DIR}/version.rc" "${definition}")
    set_target_properties(tarvik_dpdu PROPERTIES PREFIX "")
    target_link_options(tarvik_dpdu PRIVATE -Wl,--no-insert-timestamp -Wl,--entry=LibraryEntry)
else()
    list(JOIN exports ";\n        " export_lines)
    set(script "${CMAKE_CURRENT_BINARY_DIR}/tarvik_dpdu.map")
    file(CONFIGURE OUTPUT "${script}"
        CONTENT "{\n    global:\n        @export_lines@;\n    local: *;\n};\n" @ONLY)
    set_target_properties(tarvik_dpdu PROPERTIES
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        LINK_DEPENDS "${script}")
    # Calls inside the library stay inside, even when another D-PDU library is also loaded.
    target_link_options(tarvik_dpdu PRIVATE "-Wl,--version-script=${script}" -Wl,-Bsymbolic)
    if(TARVIK_SANITIZER STREQUAL "")
        target_link_options(tarvik_dpdu PRIVATE -Wl,--no-undefined)
    endif()
endif()

include(GNUInstallDirs)
install(TARGETS tarvik_dpdu
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT runtime
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime)
if(WIN32)
    # On Linux, packages are stripped by their own tools.
    configure_file("${PROJECT_SOURCE_DIR}/cmake/split_symbols.cmake.in"
        "${CMAKE_CURRENT_BINARY_DIR}/split_symbols.cmake" @ONLY)
    install(SCRIPT "${CMAKE_CURRENT_BINARY_DIR}/split_symbols.cmake" COMPONENT runtime)
endif()
