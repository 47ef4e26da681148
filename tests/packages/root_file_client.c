// root_file_client ROOT-FILE VENDOR: what an application does that knows of no library. Chooses the
// entry of the root file whose name begins with VENDOR, loads its library, and prints the path, the
// names of the description files and the VIN of the car behind the first dongle. On Windows the
// ROOT-FILE "registry" is the one that the registry names.

#include <dpdu_api.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#ifdef _WIN32
#include <windows.h>

enum { kDriveAt = 1 };  // "/C:/..." follows "file://"

static void* Open(const char* path) { return LoadLibraryA(path); }
static void* Find(void* library, const char* name) {
    return (void*)GetProcAddress((HMODULE)library, name);
}
static const char* FromRegistry(void) {
    static char path[1024];
    DWORD size = sizeof path;
    const LSTATUS status = RegGetValueA(HKEY_LOCAL_MACHINE, "SOFTWARE\\D-PDU API", "Root File",
                                        RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY, NULL, path, &size);
    return status == ERROR_SUCCESS ? path : "not in the registry";
}
#else
#include <dlfcn.h>

enum { kDriveAt = 0 };

static void* Open(const char* path) { return dlopen(path, RTLD_NOW | RTLD_LOCAL); }
static void* Find(void* library, const char* name) { return dlsym(library, name); }
static const char* FromRegistry(void) { return "there is no registry"; }
#endif

static struct {
    PDUConstruct_Fn construct;
    PDUDestruct_Fn destruct;
    PDUGetModuleIds_Fn get_module_ids;
    PDUModuleConnect_Fn module_connect;
    PDUGetObjectId_Fn get_object_id;
    PDUSetComParam_Fn set_com_param;
    PDUCreateComLogicalLink_Fn create_link;
    PDUDestroyComLogicalLink_Fn destroy_link;
    PDUConnect_Fn connect;
    PDUStartComPrimitive_Fn start;
    PDUGetEventItem_Fn get_event;
    PDUDestroyItem_Fn destroy_item;
} pdu;

static void Fail(const char* what, const char* name) {
    fprintf(stderr, "root_file_client: %s: %s\n", what, name);
    exit(1);
}

// The first 64 KiB.
static char* ReadText(const char* path) {
    static char text[65536];
    FILE* file = fopen(path, "rb");
    if (file == NULL) Fail("not readable", path);
    text[fread(text, 1, sizeof text - 1, file)] = '\0';
    fclose(file);
    return text;
}

// The text of the entry, up to its end.
static char* EntryOf(char* text, const char* vendor) {
    static const char kName[] = "<SHORT_NAME>";
    for (char* name = text; (name = strstr(name, kName)) != NULL; ++name) {
        char* begin = name + strlen(kName);
        char* end = strstr(begin, "</MVCI_PDU_API>");
        if (strncmp(begin, vendor, strlen(vendor)) != 0 || end == NULL) continue;
        *end = '\0';
        return begin;
    }
    Fail("no entry of this vendor", vendor);
    return NULL;
}

// The path that the element's address names, whose file is readable.
static const char* PathOf(const char* entry, const char* element) {
    static char paths[3][4096];
    static int count = 0;
    const char* begin = strstr(entry, element);
    if (begin == NULL) Fail("missing in the entry", element);
    char* path = paths[count++];
    if (sscanf(begin + strlen(element), " URI=\"file://%4095[^\"]\"", path) != 1)
        Fail("no address of a file", element);
    path += kDriveAt;
    if (access(path, R_OK) != 0) Fail("not readable", path);
    return path;
}

static void* Function(void* library, const char* name) {
    void* function = Find(library, name);
    if (function == NULL) Fail("not exported", name);
    return function;
}

static void Load(const char* path) {
    void* library = Open(path);
    if (library == NULL) Fail("not loaded", path);
    pdu.construct = (PDUConstruct_Fn)Function(library, "PDUConstruct");
    pdu.destruct = (PDUDestruct_Fn)Function(library, "PDUDestruct");
    pdu.get_module_ids = (PDUGetModuleIds_Fn)Function(library, "PDUGetModuleIds");
    pdu.module_connect = (PDUModuleConnect_Fn)Function(library, "PDUModuleConnect");
    pdu.get_object_id = (PDUGetObjectId_Fn)Function(library, "PDUGetObjectId");
    pdu.set_com_param = (PDUSetComParam_Fn)Function(library, "PDUSetComParam");
    pdu.create_link = (PDUCreateComLogicalLink_Fn)Function(library, "PDUCreateComLogicalLink");
    pdu.destroy_link = (PDUDestroyComLogicalLink_Fn)Function(library, "PDUDestroyComLogicalLink");
    pdu.connect = (PDUConnect_Fn)Function(library, "PDUConnect");
    pdu.start = (PDUStartComPrimitive_Fn)Function(library, "PDUStartComPrimitive");
    pdu.get_event = (PDUGetEventItem_Fn)Function(library, "PDUGetEventItem");
    pdu.destroy_item = (PDUDestroyItem_Fn)Function(library, "PDUDestroyItem");
}

static UNUM32 Id(T_PDU_OBJT type, char* name) {
    UNUM32 id = 0;
    if (pdu.get_object_id(type, name, &id) != PDU_STATUS_NOERROR) Fail("unknown object", name);
    return id;
}

static void Set(char* comparam, UNUM32 value) {
    PDU_PARAM_ITEM item = {PDU_IT_PARAM, Id(PDU_OBJT_COMPARAM, comparam), PDU_PT_UNUM32, 0, &value};
    pdu.set_com_param(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, &item);
}

static UNUM32 FindDongle(void) {
    for (int tries = 0; tries < 10; ++tries) {
        PDU_MODULE_ITEM* modules;
        if (pdu.get_module_ids(&modules) != PDU_STATUS_NOERROR) continue;
        const UNUM32 found = modules->NumEntries;
        const UNUM32 module = found > 0 ? modules->pModuleData[0].hMod : PDU_HANDLE_UNDEF;
        pdu.destroy_item((PDU_ITEM*)modules);
        if (found > 0) return module;
    }
    Fail("not found", "dongle");
    return PDU_HANDLE_UNDEF;
}

static int PrintVin(UNUM32 module, UNUM32 link) {
    PDU_EXP_RESP_DATA any = {.ResponseType = 0, .AcceptanceId = 1};
    PDU_COP_CTRL_DATA once = {0, 1, 1, 0, {0, NULL}, 1, &any};
    UNUM8 read_vin[] = {0x22, 0xF1, 0x90};
    UNUM32 request, state = 0;
    int answers = 0;
    if (pdu.start(module, link, PDU_COPT_SENDRECV, sizeof read_vin, read_vin, &once, NULL,
                  &request) != PDU_STATUS_NOERROR)
        Fail("not started", "request");
    for (; state != PDU_COPST_FINISHED; usleep(1000)) {
        PDU_EVENT_ITEM* event;
        while (pdu.get_event(module, link, &event) == PDU_STATUS_NOERROR) {
            const PDU_RESULT_DATA* answer = event->pData;
            if (event->ItemType == PDU_IT_STATUS) state = *(UNUM32*)event->pData;
            if (event->ItemType == PDU_IT_RESULT && answer->NumDataBytes > 3) {
                printf("VIN %.*s\n", (int)answer->NumDataBytes - 3, answer->pDataBytes + 3);
                ++answers;
            }
            pdu.destroy_item((PDU_ITEM*)event);
        }
    }
    return answers;
}

int main(int argc, char** argv) {
    if (argc != 3) Fail("usage", "root_file_client ROOT-FILE VENDOR");
    const char* root_file = strcmp(argv[1], "registry") == 0 ? FromRegistry() : argv[1];
    const char* entry = EntryOf(ReadText(root_file), argv[2]);
    const char* library = PathOf(entry, "<LIBRARY_FILE");
    printf("library %s\n", library);
    printf("module description %s\n", PathOf(entry, "<MODULE_DESCRIPTION_FILE"));
    printf("cable description %s\n", PathOf(entry, "<CABLE_DESCRIPTION_FILE"));

    Load(library);
    if (pdu.construct(NULL, NULL) != PDU_STATUS_NOERROR) Fail("not constructed", library);
    const UNUM32 module = FindDongle();
    PDU_RSC_DATA can = {Id(PDU_OBJT_BUSTYPE, "ISO_11898_2_DWCAN"),
                        Id(PDU_OBJT_PROTOCOL, "ISO_15765_3_on_ISO_15765_2"), 0, NULL};
    UNUM32 link;
    if (pdu.module_connect(module) != PDU_STATUS_NOERROR) Fail("not connected", "dongle");
    Set("CP_P2Max", 1000000);
    Set("CP_CanPhysReqId", 0x7E0);
    Set("CP_CanRespUSDTId", 0x7E8);
    if (pdu.create_link(module, &can, PDU_ID_UNDEF, NULL, &link, NULL) != PDU_STATUS_NOERROR ||
        pdu.connect(module, link) != PDU_STATUS_NOERROR)
        Fail("not connected", "vehicle");
    const int answers = PrintVin(module, link);
    pdu.destroy_link(module, link);
    return pdu.destruct() == PDU_STATUS_NOERROR && answers == 1 ? 0 : 1;
}
