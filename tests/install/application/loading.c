// loading LIBRARY: prints the id of the protocol.
#include <dlfcn.h>
#include <dpdu_api.h>
#include <stdio.h>

int main(int count, char** arguments) {
    char name[] = "ISO_15765_3_on_ISO_15765_2";
    UNUM32 id = 0;
    void* library = count == 2 ? dlopen(arguments[1], RTLD_NOW) : NULL;
    PDUGetObjectId_Fn look_up = NULL;
    if (library) *(void**)&look_up = dlsym(library, "PDUGetObjectId");
    if (!look_up || look_up(PDU_OBJT_PROTOCOL, name, &id) != PDU_STATUS_NOERROR) return 1;
    return printf("%u\n", (unsigned)id) < 0;
}
