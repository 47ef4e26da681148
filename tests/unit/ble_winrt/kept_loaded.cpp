// The linker's --wrap leads every call of OsKeepLibraryLoaded here instead.
#include "unit/ble_winrt/kept_loaded.h"

#include <atomic>

namespace tarvik {

void WrappedKeepLibraryLoaded() __asm__("__wrap__ZN6tarvik19OsKeepLibraryLoadedEv");

static std::atomic<int> kept_loaded{0};

void WrappedKeepLibraryLoaded() { ++kept_loaded; }

namespace test {

int KeptLoaded() { return kept_loaded; }

}  // namespace test
}  // namespace tarvik
