# What every target of our own has in common.

set(TARVIK_SANITIZER "" CACHE STRING "empty, address (with undefined), thread or fuzzer")
set_property(CACHE TARVIK_SANITIZER PROPERTY STRINGS "" address thread fuzzer)

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
set(CMAKE_CXX_FLAGS_DEBUG "-O1 -g -fno-omit-frame-pointer")
set(CMAKE_C_FLAGS_DEBUG "-O1 -g -fno-omit-frame-pointer")

# The library and the tools land beside one another at the top of the build folder.
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
elseif(NOT TARVIK_SANITIZER STREQUAL "")
    message(FATAL_ERROR "TARVIK_SANITIZER is '${TARVIK_SANITIZER}'; known: address, thread, fuzzer")
endif()
add_compile_options(${TARVIK_SANITIZER_FLAGS})
add_link_options(${TARVIK_SANITIZER_FLAGS})

# Most of a build is the compiling of the same headers once more for each file of tests and tools.
# That each file includes what it uses is seen by clang-tidy, which reads them one by one.
option(TARVIK_UNITY "compile the files of a test or tool together" OFF)

# tarvik_unity(TARGET files): so many files of the target at once; 0 is all.
function(tarvik_unity target files)
    if(TARVIK_UNITY)
        set_target_properties(${target} PROPERTIES
            UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${files})
        # Said of every fixture in an unnamed namespace, as the file with it is no longer the main one.
        target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-Wno-subobject-linkage>)
    endif()
endfunction()

# tarvik_target_defaults(TARGET): warnings as errors, include paths and definitions of our own code.
function(tarvik_target_defaults target)
    target_include_directories(${target} PRIVATE
        "${PROJECT_SOURCE_DIR}/include" "${PROJECT_SOURCE_DIR}/src")
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Werror)
    if(WIN32)
        target_compile_definitions(${target} PRIVATE
            _WIN32_WINNT=0x0A00 NOMINMAX WIN32_LEAN_AND_MEAN __USE_MINGW_ANSI_STDIO=1)
    endif()
endfunction()

# tarvik_test_defaults(TARGET): the same for code of the tests. It is not optimised: compiling it is
# most of a build, and it is the library that has to be fast.
function(tarvik_test_defaults target)
    tarvik_target_defaults(${target})
    target_compile_options(${target} PRIVATE -O0)
    tarvik_unity(${target} 0)
    target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
endfunction()
