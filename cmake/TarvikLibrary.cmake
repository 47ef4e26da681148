# The product: the shared library made of the whole core, exporting the names of exports.txt.

file(STRINGS "${PROJECT_SOURCE_DIR}/cmake/exports.txt" exports REGEX "^[^#]")
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
    set(definition "${CMAKE_BINARY_DIR}/tarvik_dpdu_x64.def")
    file(CONFIGURE OUTPUT "${definition}"
        CONTENT "LIBRARY tarvik_dpdu_x64.dll\nEXPORTS\n    @export_lines@\n" @ONLY)
    target_sources(tarvik_dpdu PRIVATE "${definition}")
    tarvik_version_resource(tarvik_dpdu "D-PDU API library for the Brennix dongle")
    set_target_properties(tarvik_dpdu PROPERTIES PREFIX "")
    target_link_options(tarvik_dpdu PRIVATE -Wl,--no-insert-timestamp -Wl,--entry=LibraryEntry)

    # MinGW's linker writes the import library for MinGW; this one is in the form of Microsoft's.
    find_program(LLVM_DLLTOOL llvm-dlltool REQUIRED)
    set(import_library "${CMAKE_BINARY_DIR}/tarvik_dpdu_x64.lib")
    add_custom_command(OUTPUT "${import_library}"
        COMMAND "${LLVM_DLLTOOL}" -m i386:x86-64 -d "${definition}" -l "${import_library}"
        DEPENDS "${definition}"
        VERBATIM)
    add_custom_target(tarvik_import_library DEPENDS "${import_library}")
    add_dependencies(tarvik_dpdu tarvik_import_library)
else()
    list(TRANSFORM exports REPLACE " @.*" "")
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
