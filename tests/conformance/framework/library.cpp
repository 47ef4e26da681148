#include "conformance/framework/library.h"

#include <cstdio>
#include <cstdlib>

#include "conformance/framework/surroundings.h"
#include "conformance/framework/system.h"

namespace conformance {
namespace {

void* loaded = nullptr;

// The name of a missing function, or null.
const char* FindAll(void* library, Functions* functions) {
#define CONFORMANCE_FIND(name)                                                   \
    functions->name = reinterpret_cast<name##_Fn>(FindFunction(library, #name)); \
    if (functions->name == nullptr) return #name;
    CONFORMANCE_FUNCTIONS(CONFORMANCE_FIND)
#undef CONFORMANCE_FIND
    return nullptr;
}

[[noreturn]] void GiveUp(const std::string& reason) {
    std::fprintf(stderr, "%s\n", reason.c_str());
    std::exit(1);
}

Functions LoadForAllTests() {
    PrivateFolder();  // the library must not see the user's files
    std::string error;
    loaded = LoadLibraryFile(LibraryPath(), &error);
    if (loaded == nullptr) {
        GiveUp("cannot load '" + LibraryPath() + "', named by TARVIK_DPDU_LIBRARY: " + error);
    }
    Functions functions;
    const char* missing = FindAll(loaded, &functions);
    if (missing != nullptr) GiveUp(LibraryPath() + " does not export " + missing);
    return functions;
}

}  // namespace

const Functions& Pdu() {
    static const Functions functions = LoadForAllTests();
    return functions;
}

void* LoadedLibraryHandle() { return loaded; }

LibraryInstance::LibraryInstance(const std::string& path) {
    PrivateFolder();
    handle_ = LoadLibraryFile(path, &error_);
    if (handle_ == nullptr) return;
    if (const char* missing = FindAll(handle_, &functions_); missing != nullptr) {
        error_ = std::string("not exported: ") + missing;
        Unload();
    }
}

bool LibraryInstance::Unload() {
    if (handle_ == nullptr) return false;
    const bool unloaded = UnloadLibraryFile(handle_);
    handle_ = nullptr;
    return unloaded;
}

}  // namespace conformance
