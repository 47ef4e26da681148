#include "conformance/cloud/host_openssl.h"

#include <cstdio>
#include <cstdlib>

// Not inlined into a test, and exported, as a host's own would be.
#define END_PROCESS(name)                                                         \
    extern "C" __attribute__((visibility("default"), noinline)) void name() {     \
        std::fputs("the library called the host's function " #name "\n", stderr); \
        std::abort();                                                             \
    }
HOST_OPENSSL_FUNCTIONS(END_PROCESS)
