#include <string>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/log_file.h"

using namespace conformance;

namespace {

using ObjectIds = ConstructedLibrary;

struct Lookup {
    T_PDU_ERROR status;
    UNUM32 id;
};

Lookup Find(T_PDU_OBJT type, std::string name) {
    Lookup found{0, 0xABCD};
    found.status = Pdu().PDUGetObjectId(type, name.data(), &found.id);
    return found;
}

void ExpectId(T_PDU_OBJT type, const char* name, UNUM32 id) {
    const Lookup found = Find(type, name);
    EXPECT_EQ(found.status, PDU_STATUS_NOERROR) << name;
    EXPECT_EQ(found.id, id) << name;
}

void ExpectNotFound(T_PDU_OBJT type, const char* name) {
    const LogCapture log;
    const Lookup found = Find(type, name);
    EXPECT_EQ(found.status, PDU_ERR_INVALID_PARAMETERS) << name;
    EXPECT_EQ(found.id, 0u) << name;
    EXPECT_TRUE(log.Has("[PDUGetObjectId] (" + std::to_string(type) + ", '" + name + "', ...)"));
    EXPECT_TRUE(log.Has("[PDUGetObjectId] Not found: " + std::string(name)));
}

}  // namespace

TEST_F(ObjectIds, BothProtocolsHaveTheSameId) {
    ExpectId(PDU_OBJT_PROTOCOL, "ISO_15765_3_on_ISO_15765_2", 3000);
    ExpectId(PDU_OBJT_PROTOCOL, "ISO_11898_RAW", 3000);
}

TEST_F(ObjectIds, BusTypeResourceAndPinTypesAreKnown) {
    ExpectId(PDU_OBJT_BUSTYPE, "ISO_11898_2_DWCAN", 4000);
    ExpectId(PDU_OBJT_RESOURCE, "ISO_UDS_on_OBD", 2001);
    ExpectId(PDU_OBJT_PINTYPE, "HI", 0);
    ExpectId(PDU_OBJT_PINTYPE, "LOW", 1);
}

TEST_F(ObjectIds, IoCtlsAreNumberedFromReset) {
    ExpectId(PDU_OBJT_IO_CTRL, "PDU_IOCTL_RESET", 5000);
    ExpectId(PDU_OBJT_IO_CTRL, "PDU_IOCTL_READ_VBATT", 5005);
    ExpectId(PDU_OBJT_IO_CTRL, "PDU_IOCTL_ISOBUS_GET_DETECTED_CFS", 5024);
}

TEST_F(ObjectIds, ComParamsAreKnownByName) {
    ExpectId(PDU_OBJT_COMPARAM, "CP_CanTransmissionTime", 1);
    ExpectId(PDU_OBJT_COMPARAM, "CP_P2Max", 12);
    ExpectId(PDU_OBJT_COMPARAM, "CP_CanPhysReqId", 61);
    ExpectId(PDU_OBJT_COMPARAM, "CPM_VWTP_TE", 137);
    ExpectId(PDU_OBJT_COMPARAM, "CP_ECULayerShortName", 228);
}

TEST_F(ObjectIds, NamesMustMatchCompletelyAndInCase) {
    ExpectNotFound(PDU_OBJT_BUSTYPE, "iso_11898_2_dwcan");
    ExpectNotFound(PDU_OBJT_PINTYPE, "HIGH");
    ExpectNotFound(PDU_OBJT_PINTYPE, "H");
    ExpectNotFound(PDU_OBJT_PINTYPE, "LO");
    ExpectNotFound(PDU_OBJT_COMPARAM, "CP_P2Ma");
    ExpectNotFound(PDU_OBJT_COMPARAM, "CP_P2Max ");
    ExpectNotFound(PDU_OBJT_PROTOCOL, "");
    ExpectNotFound(PDU_OBJT_RESOURCE, "nothing like it");
}

TEST_F(ObjectIds, NamesBelongToTheirType) {
    ExpectNotFound(PDU_OBJT_PROTOCOL, "ISO_11898_2_DWCAN");
    ExpectNotFound(PDU_OBJT_COMPARAM, "PDU_IOCTL_RESET");
    ExpectNotFound(PDU_OBJT_IO_CTRL, "CP_P2Max");
}

TEST_F(ObjectIds, TypesOutsideTheKnownRangeAreRefused) {
    ExpectNotFound(0x8020, "ISO_11898_RAW");
    ExpectNotFound(0x8027, "ISO_UDS_on_OBD");
    ExpectNotFound(0, "HI");
    ExpectNotFound(0xFFFFFFFF, "HI");
}

TEST_F(ObjectIds, OnlyTheResetCommandLogsItsSuccess) {
    const LogCapture log;
    ExpectId(PDU_OBJT_IO_CTRL, "PDU_IOCTL_RESET", 5000);
    ExpectId(PDU_OBJT_IO_CTRL, "PDU_IOCTL_READ_VBATT", 5005);
    ExpectId(PDU_OBJT_PINTYPE, "HI", 0);
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{
                               "[PDUGetObjectId] (32803, 'PDU_IOCTL_RESET', ...)",
                               "[PDUGetObjectId] Returning PDU_STATUS_NOERROR, *pPduObjectId=5000",
                               "[PDUGetObjectId] (32803, 'PDU_IOCTL_READ_VBATT', ...)",
                               "[PDUGetObjectId] (32805, 'HI', ...)",
                           }));
}

FRESH_PROCESS_TEST(FreshLibrary, ObjectIdsAreReturnedBeforeConstruct) {
    ExpectId(PDU_OBJT_PROTOCOL, "ISO_15765_3_on_ISO_15765_2", 3000);
    ExpectId(PDU_OBJT_COMPARAM, "CP_P2Max", 12);
}
