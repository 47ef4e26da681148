// A library with only some of the functions, as an older version might be.

#include "dpdu_api.h"

T_PDU_ERROR PDUConstruct(CHAR8* OptionStr, void* pAPITag) {
    (void)OptionStr;
    (void)pAPITag;
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR PDUDestruct(void) { return PDU_STATUS_NOERROR; }
