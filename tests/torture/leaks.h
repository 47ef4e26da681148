#pragma once

// The leak checker of the address sanitizer.

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TORTURE_LEAKS 1
#endif
#endif

#ifdef TORTURE_LEAKS
#include <sanitizer/lsan_interface.h>
#endif

namespace torture {

#ifdef TORTURE_LEAKS
inline constexpr bool kHasLeakCheck = true;
inline bool LeaksMemory() { return __lsan_do_recoverable_leak_check() != 0; }
#else
inline constexpr bool kHasLeakCheck = false;
inline bool LeaksMemory() { return false; }
#endif

}  // namespace torture
