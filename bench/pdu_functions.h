#pragma once

#include "dpdu_api.h"

// The functions of a D-PDU library that the benchmarks call.
namespace tarvik::bench {

struct PduFunctions {
    PDUConstruct_Fn Construct;
    PDUDestruct_Fn Destruct;
    PDUGetModuleIds_Fn GetModuleIds;
    PDUModuleConnect_Fn ModuleConnect;
    PDUGetObjectId_Fn GetObjectId;
    PDUGetComParam_Fn GetComParam;
    PDUSetComParam_Fn SetComParam;
    PDUCreateComLogicalLink_Fn CreateComLogicalLink;
    PDUSetUniqueRespIdTable_Fn SetUniqueRespIdTable;
    PDUConnect_Fn Connect;
    PDURegisterEventCallback_Fn RegisterEventCallback;
    PDUStartComPrimitive_Fn StartComPrimitive;
    PDUGetEventItem_Fn GetEventItem;
    PDUDestroyItem_Fn DestroyItem;
};

// The functions of the shared library, found by name as in an application. Ends the program if the
// library cannot be loaded.
const PduFunctions& LoadedPduFunctions();

}  // namespace tarvik::bench
