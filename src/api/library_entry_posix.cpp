#include "api/library_entry.h"

#include "platform/process.h"

namespace tarvik {
namespace {

// Run by the loader after the library's static objects are ready, and before they are destroyed.
// The last priority is that of static objects too; among equals the order of linking counts, and
// this folder is linked last (checked by the test exports).
__attribute__((constructor(65535))) void Attach() { OnLibraryLoad(); }
__attribute__((destructor)) void Detach() {
    if (!OsIsForked()) OnLibraryUnload();
}

}  // namespace
}  // namespace tarvik
