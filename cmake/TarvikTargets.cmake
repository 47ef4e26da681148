# What every target of our own has in common.

include(GNUInstallDirs)  # programs have paths to what is installed with them

# What the code is instrumented for. Coverage concerns only the library's own code: see
# tarvik_count_coverage.
set(TARVIK_SANITIZER "" CACHE STRING "empty, address (with undefined), thread, fuzzer or coverage")
set_property(CACHE TARVIK_SANITIZER PROPERTY STRINGS "" address thread fuzzer coverage)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(CMAKE_C_FLAGS_RELEASE "-O2 -DNDEBUG")
# What a sanitizer's report shows: functions, files and lines.
set(CMAKE_CXX_FLAGS_DEBUG "-O1 -g1 -fno-omit-frame-pointer")
set(CMAKE_C_FLAGS_DEBUG "-O1 -g1 -fno-omit-frame-pointer")

# The library and the tools are built into the top of the build folder.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")

# Names the folder or the file suffix with the implementation for the system being built for:
# "${TARVIK_OS}/event.cpp", "serial_port_${TARVIK_OS}.cpp".
if(WIN32)
    set(TARVIK_OS win32)
else()
    set(TARVIK_OS posix)
endif()

if(TARVIK_SANITIZER STREQUAL "address")
    set(TARVIK_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=all)
elseif(TARVIK_SANITIZER STREQUAL "thread")
    set(TARVIK_SANITIZER_FLAGS -fsanitize=thread)
elseif(TARVIK_SANITIZER STREQUAL "fuzzer")
    set(TARVIK_SANITIZER_FLAGS -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)
elseif(NOT TARVIK_SANITIZER MATCHES "^(coverage)?$")
    message(FATAL_ERROR
        "TARVIK_SANITIZER is '${TARVIK_SANITIZER}'; known: address, thread, fuzzer, coverage")
endif()
add_compile_options(${TARVIK_SANITIZER_FLAGS})
add_link_options(${TARVIK_SANITIZER_FLAGS})

# What makes a fault in our code harder to use for an attack, in what users install: the library and the
# tools. The sanitizers find such faults themselves. The C library checks sizes only in optimised code,
# and warns otherwise.
set(TARVIK_HARDENING "")
set(TARVIK_HARDENING_OPTIMISED "")
if(TARVIK_SANITIZER STREQUAL "")
    set(TARVIK_HARDENING -fstack-protector-strong -fcf-protection=full)
    if(NOT WIN32)  # there the stack is always probed, and the C library has hardly any checks
        list(APPEND TARVIK_HARDENING -fstack-clash-protection)
        set(TARVIK_HARDENING_OPTIMISED
            "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
    endif()
endif()
if(WIN32)
    set(TARVIK_HARDENING_LINK
        -fstack-protector-strong -Wl,--dynamicbase,--high-entropy-va,--nxcompat)
else()
    set(TARVIK_HARDENING_LINK -Wl,-z,relro,-z,now,-z,noexecstack,-z,separate-code)
endif()

# tarvik_harden_library(TARGET): the target consists of the library's code.
function(tarvik_harden_library target)
    target_compile_options(${target} PRIVATE ${TARVIK_HARDENING} "${TARVIK_HARDENING_OPTIMISED}")
    target_link_options(${target} PRIVATE ${TARVIK_HARDENING_LINK})
endfunction()

# tarvik_version_resource(TARGET DESCRIPTION): what Windows shows of the target's file.
function(tarvik_version_resource target FILE_DESCRIPTION)
    get_target_property(type ${target} TYPE)
    get_target_property(FILE_NAME ${target} OUTPUT_NAME)
    if(NOT FILE_NAME)
        set(FILE_NAME ${target})
    endif()
    if(type STREQUAL "EXECUTABLE")
        set(FILE_TYPE VFT_APP)
        set(FILE_SUFFIX .exe)
    else()
        set(FILE_TYPE VFT_DLL)
        set(FILE_SUFFIX .dll)
    endif()
    set(resource "${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc")
    configure_file("${PROJECT_SOURCE_DIR}/cmake/version.rc.in" "${resource}" @ONLY)
    target_sources(${target} PRIVATE "${resource}")
endfunction()

# tarvik_count_coverage(TARGET): the target consists of the library's code, whose execution the preset
# coverage counts. Not optimised, so that each line keeps code of its own; exact with threads.
function(tarvik_count_coverage target)
    if(TARVIK_SANITIZER STREQUAL "coverage")
        target_compile_options(${target} PRIVATE -O0 --coverage -fprofile-update=atomic)
        target_link_options(${target} PUBLIC --coverage)
    endif()
endfunction()

# Most of a build is spent compiling the same headers again and again. The presets that run tests
# therefore compile the files of a test or tool together and precompile the headers of others. That
# each file includes what it uses is checked by the lint presets, which compile without this option.
option(TARVIK_FAST_BUILD "compile files together, precompile headers, use ccache if it is there" OFF)
if(TARVIK_FAST_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # The compiler collects its garbage less often: a tenth of the time for some hundred MB.
    add_compile_options(--param=ggc-min-heapsize=1000000)
endif()

if(TARVIK_FAST_BUILD AND NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
    find_program(CCACHE_PROGRAM ccache)
    if(CCACHE_PROGRAM)
        # Precompiled headers need this sloppiness. The one file that uses __TIME__ is compiled
        # without ccache.
        set(launcher "${CMAKE_COMMAND};-E;env;CCACHE_SLOPPINESS=pch_defines,time_macros;${CCACHE_PROGRAM}")
        set(CMAKE_C_COMPILER_LAUNCHER "${launcher}")
        set(CMAKE_CXX_COMPILER_LAUNCHER "${launcher}")
    endif()
endif()

option(TARVIK_UNITY "compile files of a test or tool together, also without TARVIK_FAST_BUILD" OFF)

# tarvik_unity(TARGET files): how many files of the target are compiled together; 0 is all.
function(tarvik_unity target files)
    if(TARVIK_FAST_BUILD OR TARVIK_UNITY)
        set_target_properties(${target} PROPERTIES
            UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${files})
        # GCC reports every fixture in an unnamed namespace, whose file is no longer the main one, and
        # Clang each local name that another file has in its unnamed namespace.
        target_compile_options(${target} PRIVATE
            $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-subobject-linkage>
            $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wno-shadow>)
    endif()
endfunction()

# tarvik_target_defaults(TARGET): warnings as errors, include paths and definitions of our own code.
function(tarvik_target_defaults target)
    target_include_directories(${target} PRIVATE
        "${PROJECT_SOURCE_DIR}/include" "${PROJECT_SOURCE_DIR}/src")
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Werror)
    if(TARVIK_SANITIZER STREQUAL "")
        # What is built in another folder has the same bytes.
        target_compile_options(${target} PRIVATE "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
    endif()
    if(WIN32)
        target_compile_definitions(${target} PRIVATE
            _WIN32_WINNT=0x0A00 NOMINMAX WIN32_LEAN_AND_MEAN __USE_MINGW_ANSI_STDIO=1)
    endif()
endfunction()

# ccache needs an option to follow precompiled headers: of GCC that the header is named in what it
# preprocesses, of Clang that the header is the same whenever it is made.
function(_tarvik_precompiled_in_ccache target)
    if("${CMAKE_CXX_COMPILER_LAUNCHER}" MATCHES "ccache")
        target_compile_options(${target} PRIVATE
            $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>
            "$<$<CXX_COMPILER_ID:Clang>:SHELL:-Xclang -fno-pch-timestamp>")
    endif()
endfunction()

# tarvik_precompile_own(TARGET HEADER): precompiles cmake/precompiled/HEADER.h for the target alone.
function(tarvik_precompile_own target header)
    if(TARVIK_FAST_BUILD)
        target_precompile_headers(${target} PRIVATE
            "$<$<COMPILE_LANGUAGE:CXX>:${PROJECT_SOURCE_DIR}/cmake/precompiled/${header}.h>")
        _tarvik_precompiled_in_ccache(${target})
    endif()
endfunction()

# All files of programs, and of the libraries that only programs link, are compiled with the
# same options, since a precompiled header serves only one set. Some dependencies ask for -pthread.
function(_tarvik_program_code target)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
    if(NOT WIN32)
        target_compile_options(${target} PRIVATE -fPIE -pthread)
    endif()
    _tarvik_precompiled_in_ccache(${target})
endfunction()

# The target tarvik_precompiled_HEADER has cmake/precompiled/HEADER.h, for others to use. OPTIONS
# are compile options.
function(_tarvik_precompile header)
    cmake_parse_arguments(ARG "" "" "OPTIONS;LIBRARIES" ${ARGN})
    set(target tarvik_precompiled_${header})
    file(CONFIGURE OUTPUT "${CMAKE_BINARY_DIR}/precompiled/${header}.cpp" CONTENT "")
    add_library(${target} OBJECT EXCLUDE_FROM_ALL "${CMAKE_BINARY_DIR}/precompiled/${header}.cpp")
    tarvik_target_defaults(${target})
    _tarvik_program_code(${target})
    target_compile_options(${target} PRIVATE ${ARG_OPTIONS})
    target_link_libraries(${target} PRIVATE Threads::Threads ${ARG_LIBRARIES})
    tarvik_precompile_own(${target} ${header})
endfunction()

# tarvik_precompiled_headers(): makes them, once the dependencies are known.
macro(tarvik_precompiled_headers)
    if(TARVIK_FAST_BUILD)
        add_library(tarvik_json STATIC "${PROJECT_SOURCE_DIR}/cmake/precompiled/json.cpp")
        tarvik_target_defaults(tarvik_json)
        _tarvik_program_code(tarvik_json)
        # Not our code, and most expensive of all to check for undefined behaviour.
        target_compile_options(tarvik_json PRIVATE ${TARVIK_TOOL_OPTIONS} -fno-sanitize=undefined)
        target_link_libraries(tarvik_json PUBLIC tarvik::nlohmann_json)
        target_link_options(tarvik_json PUBLIC ${TARVIK_HARDENING_LINK})

        _tarvik_precompile(json OPTIONS ${TARVIK_TOOL_OPTIONS} LIBRARIES tarvik_json)
        _tarvik_precompile(tests OPTIONS -O0 LIBRARIES tarvik::gtest)
        _tarvik_precompile(tests_json
            OPTIONS -O0 ${TARVIK_OUTSIDE_CHECKS} LIBRARIES tarvik_json tarvik::gtest)
    endif()
endmacro()

# _tarvik_use_precompiled(TARGET HEADER): for targets with _tarvik_program_code. Not for those with
# files in C.
function(_tarvik_use_precompiled target header)
    get_target_property(sources ${target} SOURCES)
    if(TARVIK_FAST_BUILD AND NOT "${sources}" MATCHES "\\.c(;|$)")
        target_precompile_headers(${target} REUSE_FROM tarvik_precompiled_${header})
        target_link_libraries(${target} PRIVATE Threads::Threads)
        if("${header}" MATCHES "json")
            target_link_libraries(${target} PRIVATE tarvik_json)
        endif()
    endif()
endfunction()

# Tests from outside contain no code of the library (those that link the client, its inline functions
# only). Of undefined behaviour it is the alignment of what the library hands out that they can show;
# the other checks double their compile time.
if(TARVIK_SANITIZER STREQUAL "address")
    set(TARVIK_OUTSIDE_CHECKS -fno-sanitize=undefined -fsanitize=alignment)
endif()

# Sanitizers need no optimisation, which takes half of the compile time.
if(TARVIK_SANITIZER STREQUAL "")
    set(TARVIK_TOOL_OPTIONS ${TARVIK_HARDENING} "${TARVIK_HARDENING_OPTIMISED}")
else()
    set(TARVIK_TOOL_OPTIONS -O0)
endif()

# tarvik_tool_defaults(TARGET files): the same for programs and for the libraries that they are made
# of. `files` are compiled together.
function(tarvik_tool_defaults target files)
    tarvik_target_defaults(${target})
    target_compile_options(${target} PRIVATE ${TARVIK_TOOL_OPTIONS})
    target_link_options(${target} PUBLIC ${TARVIK_HARDENING_LINK})  # of tests of it, too
    tarvik_unity(${target} ${files})
    _tarvik_program_code(${target})
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "EXECUTABLE" AND NOT WIN32)
        target_link_options(${target} PRIVATE -pie)
    endif()
    _tarvik_use_precompiled(${target} json)
endfunction()

# tarvik_command_line(TARGET file...): adds the files that describe the target's command line. They
# are hardly optimised: they run once, and their library takes longest of all to compile. Not at all
# would be wrong: they come first to the linker, whose programs then have their copies of the standard
# library's inline functions (dpdu read traces at less than half the speed).
function(tarvik_command_line target)
    set(part ${target}_command_line)
    add_library(${part} OBJECT ${ARGN})
    tarvik_target_defaults(${part})
    target_compile_options(${part} PRIVATE
        $<IF:$<STREQUAL:${TARVIK_SANITIZER},>,-O1,-O0> ${TARVIK_HARDENING})
    tarvik_unity(${part} 0)
    _tarvik_program_code(${part})
    target_link_libraries(${part} PRIVATE tarvik::cli11 tarvik::nlohmann_json)
    set_target_properties(${part} PROPERTIES
        INCLUDE_DIRECTORIES "$<TARGET_PROPERTY:${target},INCLUDE_DIRECTORIES>")
    target_compile_definitions(${part} PRIVATE $<TARGET_PROPERTY:${target},COMPILE_DEFINITIONS>)
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:${part}>)
endfunction()

# tarvik_test_defaults(TARGET [JSON]): the same for code of the tests. It is not optimised: compiling
# it is most of a build, and it is the library that has to be fast. JSON: tests from outside, most of
# which use JSON.
function(tarvik_test_defaults target)
    tarvik_target_defaults(${target})
    target_compile_options(${target} PRIVATE -O0)
    tarvik_unity(${target} 0)
    target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
    get_target_property(type ${target} TYPE)
    if(type MATCHES "^(EXECUTABLE|STATIC_LIBRARY|OBJECT_LIBRARY)$")
        _tarvik_program_code(${target})
        if("JSON" IN_LIST ARGN)
            target_compile_options(${target} PRIVATE ${TARVIK_OUTSIDE_CHECKS})
            _tarvik_use_precompiled(${target} tests_json)
        else()
            _tarvik_use_precompiled(${target} tests)
        endif()
        if(TARGET tarvik::gtest)  # not for fuzz targets
            target_link_libraries(${target} PRIVATE tarvik::gtest)  # its definitions, as the header has
        endif()
        # No definition for programs that export names to what they load.
        set_target_properties(${target} PROPERTIES DEFINE_SYMBOL "")
    endif()
endfunction()
