#include "api/library_entry.h"

namespace tarvik {
namespace {

// Run by the loader after the library's static objects are ready, and before they are destroyed.
__attribute__((constructor(65535))) void Attach() { OnLibraryLoad(); }
__attribute__((destructor)) void Detach() { OnLibraryUnload(); }

}  // namespace
}  // namespace tarvik
