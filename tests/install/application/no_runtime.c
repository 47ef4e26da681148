// A program without a C runtime: ends with 42 if the library answers as it should.
#include <dpdu_api.h>

__declspec(dllimport) void __stdcall ExitProcess(unsigned code);

void Start(void) {
    char name[] = "ISO_15765_3_on_ISO_15765_2";
    UNUM32 id = 0;
    PDU_VERSION_DATA version;
    const T_PDU_ERROR found = PDUGetObjectId(PDU_OBJT_PROTOCOL, name, &id);
    const T_PDU_ERROR refused = PDUGetVersion(7, &version);
    const int as_expected =
        found == PDU_STATUS_NOERROR && id == 3000 && refused == PDU_ERR_INVALID_HANDLE;
    ExitProcess(as_expected ? 42 : 1);
}

int main(void) {
    Start();
    return 1;
}
