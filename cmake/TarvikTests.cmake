# Registration of tests. Every test program is one ctest test: under Wine each start costs seconds,
# under a sanitizer a tenth of one, and there are two thousand cases. It writes its results as XML
# below <build folder>/results, from which scripts/test.sh counts test cases. docs/testing.md shows
# how to add a test.

set(TARVIK_RESULTS_DIR "${CMAKE_BINARY_DIR}/results")
if(WIN32)
    set(TARVIK_RESULTS_DIR "Z:${TARVIK_RESULTS_DIR}")  # the drive that Wine gives the root folder
endif()

# Simulators, launchers and mocked devices are Linux programs. The Windows build and the sanitizer
# builds use those of the Linux release build.
if(WIN32 OR NOT TARVIK_SANITIZER STREQUAL "")
    set(TARVIK_HOST_TOOLS_DIR "${PROJECT_SOURCE_DIR}/build/linux-release")
else()
    set(TARVIK_HOST_TOOLS_DIR "${CMAKE_BINARY_DIR}")
endif()

set(TARVIK_TEST_ENVIRONMENT
    "ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1"
    "UBSAN_OPTIONS=print_stacktrace=1"
    "TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=${PROJECT_SOURCE_DIR}/tests/thread_sanitizer.supp")

# tarvik_register_test(NAME LABELS label... [LAUNCHER command...] [TIMEOUT seconds]
#                      [ENVIRONMENT variable=value...])
# Registers an executable of that name with GoogleTest's main. LAUNCHER precedes the command.
# Those with the label unit or quick, and what they need, are built by the target check_programs,
# those with the label unit or conformance by coverage_programs.
add_custom_target(check_programs)
add_custom_target(coverage_programs)
function(tarvik_register_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "LABELS;LAUNCHER;ENVIRONMENT" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 600)
    endif()
    add_test(NAME ${name}
        COMMAND ${ARG_LAUNCHER} ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${name}>)
    if(ARG_LABELS MATCHES "unit|quick")
        add_dependencies(check_programs ${name})
    endif()
    if(ARG_LABELS MATCHES "unit|conformance")
        add_dependencies(coverage_programs ${name})
    endif()
    # Before ctest kills it, scripts/run-wine.sh ends the program and reports what it waits for.
    math(EXPR run_limit "${ARG_TIMEOUT} * 4 / 5")
    set_tests_properties(${name} PROPERTIES
        LABELS "${ARG_LABELS}"
        TIMEOUT ${ARG_TIMEOUT}
        ENVIRONMENT "${TARVIK_TEST_ENVIRONMENT};GTEST_OUTPUT=xml:${TARVIK_RESULTS_DIR}/${name}.xml;TARVIK_RUN_LIMIT=${run_limit};${ARG_ENVIRONMENT}")
endfunction()

# MinGW's linker takes seconds for a test program, as it searches each object's list of sections for
# every symbol; LLVM's takes a tenth of one. What is released is linked by MinGW's own.
if(WIN32 AND TARVIK_FAST_BUILD)
    find_program(LLD_PROGRAM ld.lld)
    if(LLD_PROGRAM)
        set(TARVIK_TEST_LINKER -wrapper "${PROJECT_SOURCE_DIR}/scripts/link_with_lld.sh")
    endif()
endif()

# What several unit test programs are linked with, compiled once: the sources that are named.
function(_tarvik_unit_objects name)
    if(NOT TARGET ${name})
        list(TRANSFORM ARGN PREPEND "${PROJECT_SOURCE_DIR}/tests/unit/")
        add_library(${name} OBJECT EXCLUDE_FROM_ALL ${ARGN})
        tarvik_test_defaults(${name})
        tarvik_count_coverage(${name})
        # Faults include sources of the library under other names.
        set_target_properties(${name} PROPERTIES UNITY_BUILD OFF)
        target_link_libraries(${name} PRIVATE tarvik_dpdu_core tarvik::gtest)
    endif()
endfunction()

# tarvik_add_unit_test(NAME SOURCES file... [FAULTS name...] [CHILDREN] [LIBRARIES lib...]
#                      [LAUNCHER command...] [TIMEOUT seconds] [SLOW])
# Tests of internals: linked with all of src/. FAULTS names files tests/unit/faults/NAME_fault.cpp:
# each replaces one function of the library, together with the rest of the source that defines it.
# CHILDREN: tests start the program again as a child, or use test_system.h otherwise.
function(tarvik_add_unit_test name)
    cmake_parse_arguments(ARG "SLOW;CHILDREN" "TIMEOUT" "SOURCES;FAULTS;LIBRARIES;LAUNCHER" ${ARGN})
    set(objects "")
    foreach(fault IN LISTS ARG_FAULTS)
        _tarvik_unit_objects(tarvik_${fault}_fault faults/${fault}_fault.cpp)
        list(APPEND objects $<TARGET_OBJECTS:tarvik_${fault}_fault>)
    endforeach()
    if(ARG_CHILDREN)
        _tarvik_unit_objects(tarvik_unit_main test_main.cpp test_system_${TARVIK_OS}.cpp)
        list(APPEND objects $<TARGET_OBJECTS:tarvik_unit_main>)
    endif()
    set(labels unit)
    if(ARG_SLOW)
        list(APPEND labels slow)
    endif()

    add_executable(${name} ${ARG_SOURCES} ${objects})
    tarvik_test_defaults(${name})
    target_link_libraries(${name} PRIVATE tarvik_dpdu_core ${ARG_LIBRARIES} tarvik::gtest_main)
    if("heap" IN_LIST ARG_FAULTS)
        # Not with LLVM's linker, whose result crashes.
        target_link_options(${name} PRIVATE
            -Wl,--wrap=malloc -Wl,--wrap=calloc -Wl,--wrap=realloc -Wl,--wrap=strdup)
    else()
        target_link_options(${name} PRIVATE ${TARVIK_TEST_LINKER})
    endif()
    if("system_call" IN_LIST ARG_FAULTS)
        set(wrapped
            chown clock_nanosleep connect dladdr dlopen epoll_create1 epoll_ctl epoll_wait eventfd
            fdopen fopen fopen64 fstat getaddrinfo getgrgid_r getpwuid_r getrandom open pipe2 poll
            __poll_chk pread pthread_cond_timedwait pthread_cond_wait pthread_create pthread_key_create
            pthread_setspecific read send socket stat syslog __syslog_chk tcgetattr udev_new write
            _ZnwmRKSt9nothrow_t)
        list(TRANSFORM wrapped PREPEND "-Wl,--wrap=")
        target_link_options(${name} PRIVATE ${wrapped})
    endif()
    set_target_properties(${name} PROPERTIES
        RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/tests/unit")
    tarvik_register_test(${name} LABELS ${labels} LAUNCHER ${ARG_LAUNCHER} TIMEOUT ${ARG_TIMEOUT})
endfunction()

# tarvik_add_conformance_test(NAME SOURCES file... [LIBRARIES lib...] [LAUNCHER command...]
#                             [TIMEOUT seconds] [SLOW] [QUICK])
# Tests of the shared library from outside. They find it by TARVIK_DPDU_LIBRARY and the simulator
# by TARVIK_DPDU_SIMULATOR in their environment. LAUNCHER precedes the command. QUICK: a matter of
# seconds, so `make check` runs it too.
function(tarvik_add_conformance_test name)
    cmake_parse_arguments(ARG "SLOW;QUICK" "TIMEOUT" "SOURCES;LIBRARIES;LAUNCHER" ${ARGN})
    set(labels conformance)
    if(ARG_SLOW)
        list(APPEND labels slow)
    endif()
    if(ARG_QUICK)
        list(APPEND labels quick)
    endif()

    add_executable(${name} ${ARG_SOURCES})
    tarvik_test_defaults(${name} JSON)
    target_link_libraries(${name} PRIVATE
        ${ARG_LIBRARIES} tarvik::gtest_main Threads::Threads ${CMAKE_DL_LIBS})
    target_link_options(${name} PRIVATE ${TARVIK_TEST_LINKER})
    set_target_properties(${name} PROPERTIES
        RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/tests/conformance")
    add_dependencies(${name} tarvik_dpdu)

    tarvik_register_test(${name}
        LABELS ${labels}
        LAUNCHER ${ARG_LAUNCHER}
        TIMEOUT ${ARG_TIMEOUT}
        ENVIRONMENT
            "TARVIK_DPDU_LIBRARY=$<TARGET_FILE:tarvik_dpdu>"
            "TARVIK_DPDU_SIMULATOR=${TARVIK_HOST_TOOLS_DIR}/brennix-sim")
endfunction()

# tarvik_add_fuzz_target(NAME SOURCES file... CORPUS folder [DICTIONARY file] [GROUP name]
#                        [PLAIN])
# scripts/fuzz.sh runs every program in <build folder>/tests/fuzz with NAME.dict and the folder
# NAME.corpus beside it. In the presets with tests, the target is an object library instead, part of
# a test program that replays the corpus: that of its GROUP, or one of its own if its sources stand
# in for some of the library's. PLAIN: not under the address sanitizer, which takes long to compile it.
function(tarvik_add_fuzz_target name)
    cmake_parse_arguments(ARG "PLAIN" "DICTIONARY;CORPUS;GROUP" "SOURCES" ${ARGN})
    if(TARVIK_SANITIZER STREQUAL "address" AND ARG_PLAIN)
        return()
    endif()
    if(NOT TARVIK_SANITIZER STREQUAL "fuzzer")
        _tarvik_replay_corpus(${name} "${ARG_GROUP}" "${ARG_CORPUS}" ${ARG_SOURCES})
        return()
    endif()
    set(folder "${CMAKE_BINARY_DIR}/tests/fuzz")
    add_executable(${name} ${ARG_SOURCES} "${PROJECT_SOURCE_DIR}/tests/fuzz/silence_output.cpp")
    tarvik_target_defaults(${name})
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
    target_link_libraries(${name} PRIVATE tarvik_dpdu_core)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${folder}")
    if(ARG_DICTIONARY)
        configure_file("${ARG_DICTIONARY}" "${folder}/${name}.dict" COPYONLY)
    endif()
    file(GLOB seeds CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${ARG_CORPUS}/*")
    file(COPY ${seeds} DESTINATION "${folder}/${name}.corpus")
endfunction()

# tarvik_fuzz_program(NAME variable): the program that the target is in.
function(tarvik_fuzz_program name variable)
    get_target_property(program ${name} TARVIK_CORPUS_PROGRAM)
    if(NOT program)
        set(program ${name})
    endif()
    set(${variable} ${program} PARENT_SCOPE)
endfunction()

function(_tarvik_replay_corpus name group corpus)
    string(REGEX REPLACE "_fuzz$" "" program "${name}")
    if(group)
        set(program ${group})
    endif()
    string(APPEND program _corpus_test)
    if(NOT TARGET ${program})
        # The list of its targets: each is a line of the property.
        set(list "${CMAKE_BINARY_DIR}/tests/fuzz/${program}.cpp")
        file(GENERATE OUTPUT "${list}" CONTENT
            "#include \"fuzz/corpus_test.h\"\n\n$<JOIN:$<TARGET_PROPERTY:${program},TARVIK_CORPORA>,\n>\n")
        add_executable(${program} "${PROJECT_SOURCE_DIR}/tests/fuzz/corpus_test.cpp" "${list}")
        tarvik_test_defaults(${program})
        set_target_properties(${program} PROPERTIES
            UNITY_BUILD OFF
            RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/tests/unit")
        target_link_libraries(${program} PRIVATE tarvik::gtest_main)
        target_link_options(${program} PRIVATE ${TARVIK_TEST_LINKER})
        tarvik_register_test(${program} LABELS unit)
    endif()

    add_library(${name} OBJECT EXCLUDE_FROM_ALL ${ARGN})
    tarvik_test_defaults(${name})
    set_target_properties(${name} PROPERTIES UNITY_BUILD OFF TARVIK_CORPUS_PROGRAM ${program})
    target_compile_definitions(${name} PRIVATE
        LLVMFuzzerTestOneInput=${name}_TestOneInput LLVMFuzzerInitialize=${name}_Initialize)
    target_link_libraries(${name} PRIVATE tarvik_dpdu_core)
    target_link_libraries(${program} PRIVATE ${name} tarvik_dpdu_core)

    list(GET ARGN 0 source)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${source}")
    file(STRINGS "${source}" initializer REGEX "LLVMFuzzerInitialize")
    set(macro TARVIK_CORPUS)
    if(initializer)
        set(macro TARVIK_CORPUS_WITH_INITIALIZER)
    endif()
    set(folder "${CMAKE_CURRENT_SOURCE_DIR}/${corpus}")
    if(WIN32)
        string(PREPEND folder "Z:")  # the drive that Wine gives the root folder
    endif()
    set_property(TARGET ${program} APPEND PROPERTY TARVIK_CORPORA "${macro}(${name}, \"${folder}\")")
endfunction()
