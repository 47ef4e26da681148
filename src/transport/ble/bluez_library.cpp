// The functions of sdbus-c++, found when Bluetooth is switched on: the library must also load where
// sdbus-c++ is not installed. Each one is a jump through an entry of a table, under the function's
// own symbol, so that its callers are ordinary C++. All that crosses are calls of functions that
// sdbus-c++ exports; exceptions pass because the C++ runtime compares their types by name.
#include "transport/ble/bluez_library.h"

#include <dlfcn.h>

#include <iterator>
#include <string>

#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/posix/standard_descriptors.h"
#include "transport/ble/ble_radio.h"

// A function that is missing here does not link.
// clang-format off
#define TARVIK_SDBUS_FUNCTIONS \
    CALLED(_ZN5sdbus11createProxyERNS_11IConnectionENSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES7_) \
    CALLED(_ZN5sdbus16PendingAsyncCall6cancelEv) \
    CALLED(_ZN5sdbus25createSystemBusConnectionEv) \
    CALLED(_ZN5sdbus7Message10clearFlagsEv) \
    CALLED(_ZN5sdbus7Message11exitVariantEv) \
    CALLED(_ZN5sdbus7Message11openVariantERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE) \
    CALLED(_ZN5sdbus7Message12closeVariantEv) \
    CALLED(_ZN5sdbus7Message12enterVariantERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE) \
    CALLED(_ZN5sdbus7Message13exitContainerEv) \
    CALLED(_ZN5sdbus7Message13exitDictEntryEv) \
    CALLED(_ZN5sdbus7Message13openContainerERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE) \
    CALLED(_ZN5sdbus7Message13openDictEntryERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE) \
    CALLED(_ZN5sdbus7Message14closeContainerEv) \
    CALLED(_ZN5sdbus7Message14closeDictEntryEv) \
    CALLED(_ZN5sdbus7Message14enterContainerERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE) \
    CALLED(_ZN5sdbus7Message14enterDictEntryERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE) \
    CALLED(_ZN5sdbus7Message4sealEv) \
    CALLED(_ZN5sdbus7Message6rewindEb) \
    CALLED(_ZN5sdbus7MessageC2EOS0_) \
    CALLED(_ZN5sdbus7MessageC2ERKS0_) \
    CALLED(_ZN5sdbus7MessageD2Ev) \
    CALLED(_ZN5sdbus7MessagelsERKNS_7VariantE) \
    CALLED(_ZN5sdbus7MessagelsERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE) \
    CALLED(_ZN5sdbus7MessagelsEb) \
    CALLED(_ZN5sdbus7MessagelsEh) \
    CALLED(_ZN5sdbus7MessagersERNS_10ObjectPathE) \
    CALLED(_ZN5sdbus7MessagersERNS_7VariantE) \
    CALLED(_ZN5sdbus7MessagersERNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE) \
    CALLED(_ZN5sdbus7MessagersERb) \
    CALLED(_ZN5sdbus7MessagersERh) \
    CALLED(_ZN5sdbus7MessagersERs) \
    CALLED(_ZN5sdbus7MessagersERt) \
    CALLED(_ZN5sdbus7VariantC1Ev) \
    CALLED(_ZN5sdbus7VariantC2Ev) \
    CALLED(_ZNK5sdbus7Message7getPathB5cxx11Ev) \
    CALLED(_ZNK5sdbus7MessagecvbEv) \
    CALLED(_ZNK5sdbus7Variant13peekValueTypeB5cxx11Ev)
// clang-format on

// Nothing but the jump may run: the arguments are in registers and on the stack.
// NOLINTBEGIN(bugprone-macro-parentheses)
// clang-format off
#define CALLED(symbol) \
    extern "C" [[gnu::visibility("hidden")]] void* tarvik##symbol; \
    void* tarvik##symbol = nullptr; \
    asm(".pushsection .text\n" \
        ".globl " #symbol "\n" \
        ".hidden " #symbol "\n" \
        ".type " #symbol ", @function\n" \
        ".balign 16\n" \
        #symbol ":\n" \
        "endbr64\n" \
        "jmp *tarvik" #symbol "(%rip)\n" \
        ".size " #symbol ", . - " #symbol "\n" \
        ".popsection");
// clang-format on
TARVIK_SDBUS_FUNCTIONS
#undef CALLED
// NOLINTEND(bugprone-macro-parentheses)

namespace tarvik {
namespace {

constexpr char kFile[] = "libsdbus-c++.so.1";

struct Function {
    const char* symbol;
    void** address;
};
#define CALLED(symbol) {#symbol, &tarvik##symbol},
constexpr Function kFunctions[] = {TARVIK_SDBUS_FUNCTIONS};
#undef CALLED

class Loader {
public:
    void Load() {
        const LockGuard hold(lock_);
        if (loaded_) return;
        // Never unloaded: it has static objects that are destroyed when the process ends.
        void* const library = Open();
        if (library == nullptr) Fail();
        void* found[std::size(kFunctions)];
        for (std::size_t i = 0; i < std::size(kFunctions); ++i) {
            found[i] = ::dlsym(library, kFunctions[i].symbol);
            if (found[i] == nullptr) Fail();
        }
        for (std::size_t i = 0; i < std::size(kFunctions); ++i)
            *kFunctions[i].address = found[i];
        loaded_ = true;
    }

private:
    static void* Open() {
        const StandardDescriptorsTaken standard;
        return ::dlopen(kFile, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    }
    [[noreturn]] static void Fail() {
        const char* const why = ::dlerror();
        throw BleError(std::string(kFile) +
                       " cannot be loaded, install the package libsdbus-c++1 (" +
                       (why != nullptr ? why : "unknown error") + ")");
    }

    OsLock lock_;
    bool loaded_ = false;  // guarded by lock_
};

Immortal<Loader> loader;

}  // namespace

void LoadBluezLibrary() { loader->Load(); }

}  // namespace tarvik
