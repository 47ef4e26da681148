#pragma once

// The library under test: its exported functions, looked up by name at run time.

#include <string>

#include "dpdu_api.h"

namespace conformance {

// One a line; clang-format would indent each further than the last.
// clang-format off
#define CONFORMANCE_FUNCTIONS(X) \
    X(PDUConstruct) \
    X(PDUDestruct) \
    X(PDUIoCtl) \
    X(PDUGetVersion) \
    X(PDUGetStatus) \
    X(PDUGetLastError) \
    X(PDUGetResourceStatus) \
    X(PDUCreateComLogicalLink) \
    X(PDUDestroyComLogicalLink) \
    X(PDUConnect) \
    X(PDUDisconnect) \
    X(PDULockResource) \
    X(PDUUnlockResource) \
    X(PDUGetComParam) \
    X(PDUSetComParam) \
    X(PDUStartComPrimitive) \
    X(PDUCancelComPrimitive) \
    X(PDUGetEventItem) \
    X(PDUDestroyItem) \
    X(PDURegisterEventCallback) \
    X(PDUGetObjectId) \
    X(PDUGetModuleIds) \
    X(PDUGetResourceIds) \
    X(PDUGetConflictingResources) \
    X(PDUGetUniqueRespIdTable) \
    X(PDUSetUniqueRespIdTable) \
    X(PDUModuleConnect) \
    X(PDUModuleDisconnect) \
    X(PDUGetTimestamp)
// clang-format on

struct Functions {
#define CONFORMANCE_MEMBER(name) name##_Fn name = nullptr;
    CONFORMANCE_FUNCTIONS(CONFORMANCE_MEMBER)
#undef CONFORMANCE_MEMBER
};

// The functions of the library under test. The first call loads it, and it stays loaded. Ends the
// process if that fails, because no test could run.
const Functions& Pdu();

// Null before the first call of Pdu().
void* LoadedLibraryHandle();

// For tests of loading and unloading themselves.
class LibraryInstance {
public:
    explicit LibraryInstance(const std::string& path);
    ~LibraryInstance() { Unload(); }
    LibraryInstance(const LibraryInstance&) = delete;
    LibraryInstance& operator=(const LibraryInstance&) = delete;

    bool IsLoaded() const { return handle_ != nullptr; }
    const std::string& Error() const { return error_; }
    bool Unload();
    const Functions& operator*() const { return functions_; }
    const Functions* operator->() const { return &functions_; }

private:
    void* handle_;
    std::string error_;
    Functions functions_;
};

}  // namespace conformance
