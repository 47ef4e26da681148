// The functions of a D-PDU library, found by name.

#ifndef TOOLS_DPDU_PDU_FUNCTIONS_H
#define TOOLS_DPDU_PDU_FUNCTIONS_H

#include <string>
#include <vector>

#include "dpdu_api.h"

namespace dpdu {

// All 29 functions, none null.
struct PduFunctions {
    PDUConstruct_Fn Construct;
    PDUDestruct_Fn Destruct;
    PDUIoCtl_Fn IoCtl;
    PDUGetVersion_Fn GetVersion;
    PDUGetStatus_Fn GetStatus;
    PDUGetLastError_Fn GetLastError;
    PDUGetResourceStatus_Fn GetResourceStatus;
    PDUCreateComLogicalLink_Fn CreateComLogicalLink;
    PDUDestroyComLogicalLink_Fn DestroyComLogicalLink;
    PDUConnect_Fn Connect;
    PDUDisconnect_Fn Disconnect;
    PDULockResource_Fn LockResource;
    PDUUnlockResource_Fn UnlockResource;
    PDUGetComParam_Fn GetComParam;
    PDUSetComParam_Fn SetComParam;
    PDUStartComPrimitive_Fn StartComPrimitive;
    PDUCancelComPrimitive_Fn CancelComPrimitive;
    PDUGetEventItem_Fn GetEventItem;
    PDUDestroyItem_Fn DestroyItem;
    PDURegisterEventCallback_Fn RegisterEventCallback;
    PDUGetObjectId_Fn GetObjectId;
    PDUGetModuleIds_Fn GetModuleIds;
    PDUGetResourceIds_Fn GetResourceIds;
    PDUGetConflictingResources_Fn GetConflictingResources;
    PDUGetUniqueRespIdTable_Fn GetUniqueRespIdTable;
    PDUSetUniqueRespIdTable_Fn SetUniqueRespIdTable;
    PDUModuleConnect_Fn ModuleConnect;
    PDUModuleDisconnect_Fn ModuleDisconnect;
    PDUGetTimestamp_Fn GetTimestamp;
};

// Loads the library at `path`; if it is empty, this project's library beside the program. Throws
// Failure with advice if it cannot be loaded or lacks a function.
PduFunctions LoadPduFunctions(const std::string& path);

// Names of the functions that a loaded library lacks.
std::vector<std::string> MissingPduFunctions(void* library);

// The standard's prototypes take input texts without const; no library modifies them.
inline CHAR8* InputText(const std::string& text) { return const_cast<CHAR8*>(text.c_str()); }

}  // namespace dpdu

#endif  // TOOLS_DPDU_PDU_FUNCTIONS_H
