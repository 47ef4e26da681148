// Loading a shared library by path at run time; one implementation per operating system.

#ifndef TOOLS_DPDU_PDU_LIBRARY_LOADER_H
#define TOOLS_DPDU_PDU_LIBRARY_LOADER_H

#include <string>

namespace dpdu {

struct LoadedLibrary {
    void* handle = nullptr;  // null: not loaded
    std::string error;       // then the system's reason, without a line end
};

// The library stays loaded until the process ends: threads of its own may still be running in it
// after its last function has returned.
LoadedLibrary LoadSharedLibrary(const std::string& path);

// The address of an exported function, or null.
void* FindFunction(void* library, const char* name);

// Where this project's library lies when it was installed beside the program.
std::string DefaultLibraryPath();

}  // namespace dpdu

#endif  // TOOLS_DPDU_PDU_LIBRARY_LOADER_H
