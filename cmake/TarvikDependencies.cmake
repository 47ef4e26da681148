# Third-party libraries, found where scripts/setup.sh put them.
#
#   tarvik::json_c          configuration file
#   tarvik::mbedcrypto      cloud secure channel
#   tarvik::cli11           command-line client
#   tarvik::nlohmann_json   simulator and tests
#   tarvik::expat           the root file and description files, in the client
#   tarvik::zlib            the data in trace reports, in the client
#   tarvik::ssl, tarvik::crypto     OpenSSL: WebSocket to the relay (Linux), simulators
#   tarvik::gtest, tarvik::gtest_main

find_package(Threads REQUIRED)

if(WIN32)
    set(TARVIK_DEPS_DIR "${PROJECT_SOURCE_DIR}/build/deps/windows")
else()
    set(TARVIK_DEPS_DIR "${PROJECT_SOURCE_DIR}/build/deps/linux")
endif()

# _tarvik_import(NAME FILE [library...]): a static library, and those that it needs.
function(_tarvik_import name file)
    add_library(tarvik::${name} STATIC IMPORTED GLOBAL)
    set_target_properties(tarvik::${name} PROPERTIES
        IMPORTED_LOCATION "${file}"
        INTERFACE_LINK_LIBRARIES "${ARGN}")
endfunction()

# One that setup.sh built, with its headers as system headers.
function(tarvik_import_static name archive)
    if(NOT EXISTS "${TARVIK_DEPS_DIR}/lib/${archive}")
        message(FATAL_ERROR "${TARVIK_DEPS_DIR}/lib/${archive} is missing: run scripts/setup.sh")
    endif()
    _tarvik_import(${name} "${TARVIK_DEPS_DIR}/lib/${archive}" ${ARGN})
    set_target_properties(tarvik::${name} PROPERTIES
        INTERFACE_INCLUDE_DIRECTORIES "${TARVIK_DEPS_DIR}/include")
endfunction()

# Headers only. On Linux, Debian's are on the compiler's default path; setup.sh links them into the
# dependency folder for the cross compiler.
function(tarvik_import_headers name)
    add_library(tarvik::${name} INTERFACE IMPORTED GLOBAL)
    if(WIN32)
        target_include_directories(tarvik::${name} SYSTEM INTERFACE "${TARVIK_DEPS_DIR}/include")
    endif()
endfunction()

tarvik_import_static(json_c libjson-c.a)
tarvik_import_static(mbedcrypto libmbedcrypto.a)
tarvik_import_headers(cli11)
tarvik_import_headers(nlohmann_json)

# OpenSSL is inside the library, where a host that has an OpenSSL of its own cannot put it in place of
# ours. The simulators link the same files, since some programs are made of both.
function(tarvik_import_openssl name)
    find_library(TARVIK_OPENSSL_${name} lib${name}.a REQUIRED)
    _tarvik_import(${name} "${TARVIK_OPENSSL_${name}}" ${ARGN})
endfunction()

if(NOT WIN32)
    tarvik_import_openssl(crypto Threads::Threads ${CMAKE_DL_LIBS})
    tarvik_import_openssl(ssl tarvik::crypto)
endif()

if(WIN32)
    tarvik_import_static(expat libexpat.a)
    set_property(TARGET tarvik::expat PROPERTY INTERFACE_COMPILE_DEFINITIONS XML_STATIC)
else()
    # Shared: the system's package gets its security updates, and the static one needs glibc 2.36.
    find_package(EXPAT REQUIRED)
    add_library(tarvik::expat ALIAS EXPAT::EXPAT)
endif()

if(WIN32)
    # Debian's, for the cross compiler.
    find_library(TARVIK_ZLIB libz.a REQUIRED)
    _tarvik_import(zlib "${TARVIK_ZLIB}")
else()
    find_package(ZLIB REQUIRED)
    add_library(tarvik::zlib ALIAS ZLIB::ZLIB)
endif()

if(WIN32)
    tarvik_import_static(gtest libgtest.a)
    tarvik_import_static(gmock libgmock.a)
    tarvik_import_static(gtest_main libgmock_main.a tarvik::gmock tarvik::gtest Threads::Threads)
elseif(NOT TARVIK_SANITIZER STREQUAL "fuzzer")
    find_package(GTest REQUIRED)
    add_library(tarvik::gtest ALIAS GTest::gmock)
    add_library(tarvik::gtest_main ALIAS GTest::gmock_main)
endif()
