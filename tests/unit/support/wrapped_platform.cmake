include_guard()

# tarvik_wrap_platform(TARGET): adds wrapped_platform.cpp, which tests use to put their own in front
# of services of the library, by the names that the linker sees: the test folder stands in for the
# system's folders, debugger output is kept to be looked at, and the heap can be made to run out.
set(TARVIK_WRAPPED_PLATFORM "${CMAKE_CURRENT_LIST_DIR}/wrapped_platform.cpp")
function(tarvik_wrap_platform target)
    set(size_t_letter m)
    if(WIN32)
        set(size_t_letter y)
    endif()
    set(wrapped
        malloc
        _ZN6tarvik10OsTempPathEPcj
        _ZN6tarvik12OsOpenStreamEPKcS1_
        _ZN6tarvik13OsDebugOutputEPKc
        _ZN6tarvik15OsLibraryFolderEPc${size_t_letter}
        _ZN6tarvik16OsUserDataFolderEPc${size_t_letter})
    list(TRANSFORM wrapped PREPEND "-Wl,--wrap=")
    target_sources(${target} PRIVATE "${TARVIK_WRAPPED_PLATFORM}")
    target_link_options(${target} PRIVATE ${wrapped})
    target_compile_definitions(${target} PRIVATE "TARVIK_SIZE_T_LETTER=\"${size_t_letter}\"")
endfunction()
