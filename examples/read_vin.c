#include <dpdu_api.h>
#include <stdio.h>
#include <unistd.h>

static UNUM32 Id(T_PDU_OBJT type, char* name) {
    UNUM32 id = 0;
    PDUGetObjectId(type, name, &id);
    return id;
}

static void Set(char* comparam, UNUM32 value) {
    PDU_PARAM_ITEM item = {PDU_IT_PARAM, Id(PDU_OBJT_COMPARAM, comparam), PDU_PT_UNUM32, 0, &value};
    PDUSetComParam(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, &item);
}

int main(void) {
    PDU_RSC_DATA can = {Id(PDU_OBJT_BUSTYPE, "ISO_11898_2_DWCAN"),
                        Id(PDU_OBJT_PROTOCOL, "ISO_15765_3_on_ISO_15765_2"), 0, NULL};
    PDU_EXP_RESP_DATA any = {.ResponseType = 0, .AcceptanceId = 1};
    PDU_COP_CTRL_DATA once = {0, 1, 1, 0, {0, NULL}, 1, &any};
    UNUM8 read_vin[] = {0x22, 0xF1, 0x90};
    PDU_MODULE_ITEM* modules;
    PDU_EVENT_ITEM* event;
    UNUM32 link, request, found = 0, state = 0;

    PDUConstruct(NULL, NULL);
    for (int tries = 0; tries < 10 && !found; ++tries) {
        PDUGetModuleIds(&modules);  // scans for 200 ms or more
        found = modules->NumEntries;
        PDUDestroyItem((PDU_ITEM*)modules);
    }
    PDUModuleConnect(0);
    Set("CP_P2Max", 1000000), Set("CP_CanPhysReqId", 0x7E0), Set("CP_CanRespUSDTId", 0x7E8);
    if (!found || PDUCreateComLogicalLink(0, &can, PDU_ID_UNDEF, NULL, &link, NULL)) return 1;
    PDUConnect(0, link);
    PDUStartComPrimitive(0, link, PDU_COPT_SENDRECV, 3, read_vin, &once, NULL, &request);
    for (; state != PDU_COPST_FINISHED; usleep(1000)) {
        while (PDUGetEventItem(0, link, &event) == PDU_STATUS_NOERROR) {
            PDU_RESULT_DATA* answer = event->pData;
            if (event->ItemType == PDU_IT_STATUS) state = *(UNUM32*)event->pData;
            if (event->ItemType == PDU_IT_RESULT)
                printf("VIN %.*s\n", (int)answer->NumDataBytes - 3, answer->pDataBytes + 3);
            PDUDestroyItem((PDU_ITEM*)event);
        }
    }
    PDUDestroyComLogicalLink(0, link);
    return PDUDestruct() != PDU_STATUS_NOERROR;
}
