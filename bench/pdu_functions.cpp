#include "pdu_functions.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace tarvik::bench {
namespace {

template <typename Function>
void Find(void* library, const char* name, Function* function) {
    *function = reinterpret_cast<Function>(::dlsym(library, name));
    if (*function != nullptr) return;
    std::fprintf(stderr, "bench: the library has no %s\n", name);
    std::exit(1);
}

PduFunctions Load() {
    void* library = ::dlopen(TARVIK_BENCH_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::fprintf(stderr, "bench: %s\n", ::dlerror());
        std::exit(1);
    }
    PduFunctions found{};
    Find(library, "PDUConstruct", &found.Construct);
    Find(library, "PDUDestruct", &found.Destruct);
    Find(library, "PDUGetModuleIds", &found.GetModuleIds);
    Find(library, "PDUModuleConnect", &found.ModuleConnect);
    Find(library, "PDUGetObjectId", &found.GetObjectId);
    Find(library, "PDUGetComParam", &found.GetComParam);
    Find(library, "PDUSetComParam", &found.SetComParam);
    Find(library, "PDUCreateComLogicalLink", &found.CreateComLogicalLink);
    Find(library, "PDUSetUniqueRespIdTable", &found.SetUniqueRespIdTable);
    Find(library, "PDUConnect", &found.Connect);
    Find(library, "PDURegisterEventCallback", &found.RegisterEventCallback);
    Find(library, "PDUStartComPrimitive", &found.StartComPrimitive);
    Find(library, "PDUGetEventItem", &found.GetEventItem);
    Find(library, "PDUDestroyItem", &found.DestroyItem);
    return found;
}

}  // namespace

const PduFunctions& LoadedPduFunctions() {
    static const PduFunctions functions = Load();
    return functions;
}

}  // namespace tarvik::bench
