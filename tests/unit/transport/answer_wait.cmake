include_guard()

# tarvik_hook_answer_wait(TARGET): adds answer_wait.cpp and has the linker lead the library's waits
# there.
set(TARVIK_ANSWER_WAIT "${CMAKE_CURRENT_LIST_DIR}/answer_wait.cpp")
function(tarvik_hook_answer_wait target)
    target_sources(${target} PRIVATE "${TARVIK_ANSWER_WAIT}")
    target_link_options(${target} PRIVATE
        -Wl,--wrap=_ZN6tarvik13WaitForPacketEPNS_12DeviceQueuesEjjjPKSt6atomicIbES5_)
    # Its functions have names of the linker's.
    set_source_files_properties(
        "${TARVIK_ANSWER_WAIT}" PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()
