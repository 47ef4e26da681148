#include "pdu/functions.h"

#include <string>

#include "console/failure.h"
#include "pdu/library_loader.h"

namespace dpdu {
namespace {

constexpr char kAdvice[] = "; name a D-PDU library with --library, --vendor or DPDU_LIBRARY";

// Finds the functions of a library and keeps the names of the missing ones.
class FunctionFinder {
public:
    explicit FunctionFinder(void* library) : library_(library) {}

    template <typename Function>
    void Find(const char* name, Function* function) {
        *function = reinterpret_cast<Function>(FindFunction(library_, name));
        if (!*function) missing_.emplace_back(name);
    }

    const std::vector<std::string>& Missing() const { return missing_; }

private:
    void* library_;
    std::vector<std::string> missing_;
};

void FindAll(FunctionFinder* finder, PduFunctions* functions) {
    finder->Find("PDUConstruct", &functions->Construct);
    finder->Find("PDUDestruct", &functions->Destruct);
    finder->Find("PDUIoCtl", &functions->IoCtl);
    finder->Find("PDUGetVersion", &functions->GetVersion);
    finder->Find("PDUGetStatus", &functions->GetStatus);
    finder->Find("PDUGetLastError", &functions->GetLastError);
    finder->Find("PDUGetResourceStatus", &functions->GetResourceStatus);
    finder->Find("PDUCreateComLogicalLink", &functions->CreateComLogicalLink);
    finder->Find("PDUDestroyComLogicalLink", &functions->DestroyComLogicalLink);
    finder->Find("PDUConnect", &functions->Connect);
    finder->Find("PDUDisconnect", &functions->Disconnect);
    finder->Find("PDULockResource", &functions->LockResource);
    finder->Find("PDUUnlockResource", &functions->UnlockResource);
    finder->Find("PDUGetComParam", &functions->GetComParam);
    finder->Find("PDUSetComParam", &functions->SetComParam);
    finder->Find("PDUStartComPrimitive", &functions->StartComPrimitive);
    finder->Find("PDUCancelComPrimitive", &functions->CancelComPrimitive);
    finder->Find("PDUGetEventItem", &functions->GetEventItem);
    finder->Find("PDUDestroyItem", &functions->DestroyItem);
    finder->Find("PDURegisterEventCallback", &functions->RegisterEventCallback);
    finder->Find("PDUGetObjectId", &functions->GetObjectId);
    finder->Find("PDUGetModuleIds", &functions->GetModuleIds);
    finder->Find("PDUGetResourceIds", &functions->GetResourceIds);
    finder->Find("PDUGetConflictingResources", &functions->GetConflictingResources);
    finder->Find("PDUGetUniqueRespIdTable", &functions->GetUniqueRespIdTable);
    finder->Find("PDUSetUniqueRespIdTable", &functions->SetUniqueRespIdTable);
    finder->Find("PDUModuleConnect", &functions->ModuleConnect);
    finder->Find("PDUModuleDisconnect", &functions->ModuleDisconnect);
    finder->Find("PDUGetTimestamp", &functions->GetTimestamp);
}

}  // namespace

PduFunctions LoadPduFunctions(const std::string& path) {
    const std::string used = path.empty() ? DefaultLibraryPath() : path;
    const LoadedLibrary library = LoadSharedLibrary(used);
    if (!library.handle) {
        throw Failure("cannot load the library '" + used + "': " + library.error + kAdvice,
                      ExitCode::kNoLibrary);
    }

    PduFunctions functions{};
    FunctionFinder finder(library.handle);
    FindAll(&finder, &functions);
    if (!finder.Missing().empty()) {
        const std::size_t others = finder.Missing().size() - 1;
        throw Failure(
            "'" + used + "' is not a complete D-PDU library, it lacks " + finder.Missing().front() +
                (others > 0 ? " and " + std::to_string(others) + " more functions" : "") + kAdvice,
            ExitCode::kNoLibrary);
    }
    return functions;
}

std::vector<std::string> MissingPduFunctions(void* library) {
    PduFunctions functions{};
    FunctionFinder finder(library);
    FindAll(&finder, &functions);
    return finder.Missing();
}

}  // namespace dpdu
