// The public headers as a C11 program sees them, with all warnings as errors.

#include "dpdu_api.h"
#include "dpdu_types.h"
#include "fact.h"

// A constant must also do where only an integer constant expression does.
#if PDU_IT_RESULT != 0x1300 || PDU_HANDLE_UNDEF != 0xFFFFFFFF
#error "the constants do not work in #if"
#endif

static const Fact kFacts[] = {
#define PDU_VALUE(name, value) {#name, name, value},
#define PDU_SIZE(type, bytes) {"sizeof(" #type ")", sizeof(type), bytes},
#define PDU_OFFSET(type, field, bytes) \
    {"offsetof(" #type ", " #field ")", offsetof(type, field), bytes},
#include "iso22900_2_facts.inc"
};

const Fact* FactsInC(int* count) {
    *count = (int)(sizeof(kFacts) / sizeof(kFacts[0]));
    return kFacts;
}

int FunctionPointersInC(void) {
    struct {
        PDUConstruct_Fn construct;
        PDUDestruct_Fn destruct;
        PDUIoCtl_Fn io_ctl;
        PDUGetVersion_Fn get_version;
        PDUGetStatus_Fn get_status;
        PDUGetLastError_Fn get_last_error;
        PDUGetResourceStatus_Fn get_resource_status;
        PDUCreateComLogicalLink_Fn create_link;
        PDUDestroyComLogicalLink_Fn destroy_link;
        PDUConnect_Fn connect;
        PDUDisconnect_Fn disconnect;
        PDULockResource_Fn lock_resource;
        PDUUnlockResource_Fn unlock_resource;
        PDUGetComParam_Fn get_com_param;
        PDUSetComParam_Fn set_com_param;
        PDUStartComPrimitive_Fn start_com_primitive;
        PDUCancelComPrimitive_Fn cancel_com_primitive;
        PDUGetEventItem_Fn get_event_item;
        PDUDestroyItem_Fn destroy_item;
        PDURegisterEventCallback_Fn register_event_callback;
        PDUGetObjectId_Fn get_object_id;
        PDUGetModuleIds_Fn get_module_ids;
        PDUGetResourceIds_Fn get_resource_ids;
        PDUGetConflictingResources_Fn get_conflicting_resources;
        PDUGetUniqueRespIdTable_Fn get_unique_resp_id_table;
        PDUSetUniqueRespIdTable_Fn set_unique_resp_id_table;
        PDUModuleConnect_Fn module_connect;
        PDUModuleDisconnect_Fn module_disconnect;
        PDUGetTimestamp_Fn get_timestamp;
    } functions;
    return (int)(sizeof(functions) / sizeof(functions.construct));
}
