#pragma once

#include <cstdio>
#include <cstdlib>

namespace tarvik::bench {

// Ends the program, with what failed and the system's reason.
[[noreturn]] inline void Fail(const char* what) {
    std::perror(what);
    std::_Exit(1);
}

}  // namespace tarvik::bench
