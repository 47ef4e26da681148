#include <sstream>
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

void ExpectId(T_PDU_OBJT type, const std::string& name, UNUM32 id) {
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
    std::istringstream names(
        "RESET CLEAR_TX_QUEUE SUSPEND_TX_QUEUE RESUME_TX_QUEUE CLEAR_RX_QUEUE READ_VBATT "
        "SET_PROG_VOLTAGE READ_PROG_VOLTAGE GENERIC SET_BUFFER_SIZE START_MSG_FILTER "
        "CLEAR_MSG_FILTER STOP_MSG_FILTER SET_EVENT_QUEUE_PROPERTIES GET_CABLE_ID SEND_BREAK "
        "READ_IGNITION_SENSE_STATE VEHICLE_ID_REQUEST SET_ETH_SWITCH_STATE GET_ENTITY_STATUS "
        "GET_DIAGNOSTIC_POWER_MODE GET_ETH_PIN_OPTION TLS_SET_CERTIFICATE "
        "TLS_GET_CURRENT_SESSION_MODE ISOBUS_GET_DETECTED_CFS");
    UNUM32 id = 5000;
    for (std::string name; names >> name;)
        ExpectId(PDU_OBJT_IO_CTRL, "PDU_IOCTL_" + name, id++);
    EXPECT_EQ(id, 5025u);
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
    ExpectNotFound(PDU_OBJT_PINTYPE, "LOWER");
    ExpectNotFound(PDU_OBJT_PINTYPE, "hi");
    ExpectNotFound(PDU_OBJT_COMPARAM, "cp_p2max");
    ExpectNotFound(PDU_OBJT_COMPARAM, "CP_P2Ma");
    ExpectNotFound(PDU_OBJT_COMPARAM, "CP_P2Max ");
    for (T_PDU_OBJT type = PDU_OBJT_PROTOCOL; type <= PDU_OBJT_RESOURCE; ++type) {
        ExpectNotFound(type, "");
        ExpectNotFound(type, "CP_Nothing");
    }
}

TEST_F(ObjectIds, NamesBelongToTheirType) {
    ExpectNotFound(PDU_OBJT_PROTOCOL, "ISO_11898_2_DWCAN");
    ExpectNotFound(PDU_OBJT_PROTOCOL, "CP_P2Max");
    ExpectNotFound(PDU_OBJT_RESOURCE, "ISO_11898_2_DWCAN");
    ExpectNotFound(PDU_OBJT_COMPARAM, "PDU_IOCTL_RESET");
    ExpectNotFound(PDU_OBJT_IO_CTRL, "CP_P2Max");
}

TEST_F(ObjectIds, TypesOutsideTheKnownRangeAreRefused) {
    ExpectNotFound(0x8020, "ISO_11898_RAW");
    ExpectNotFound(0x8027, "ISO_UDS_on_OBD");
    ExpectNotFound(0, "HI");
    ExpectNotFound(0xFFFFFFFF, "PDU_IOCTL_RESET");
}

TEST_F(ObjectIds, NullNameIsNotFound) {
    UNUM32 id = 0xABCD;
    const LogCapture log;
    EXPECT_EQ(Pdu().PDUGetObjectId(PDU_OBJT_COMPARAM, nullptr, &id), PDU_ERR_INVALID_PARAMETERS);
    EXPECT_EQ(id, 0u);
    EXPECT_EQ(log.MissingOf({"[PDUGetObjectId] (32804, '(null)', ...)",
                             "[PDUGetObjectId] Not found: (null)"}),
              "");
}

TEST_F(ObjectIds, NullOutputIsNotWritten) {
    char known[] = "CP_P2Max";
    char unknown[] = "CP_P2Maximum";
    EXPECT_EQ(Pdu().PDUGetObjectId(PDU_OBJT_COMPARAM, known, nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(Pdu().PDUGetObjectId(PDU_OBJT_COMPARAM, unknown, nullptr),
              PDU_ERR_INVALID_PARAMETERS);
}

TEST_F(ObjectIds, OnlyTheResetCommandLogsItsSuccess) {
    const LogCapture log;
    ExpectId(PDU_OBJT_IO_CTRL, "PDU_IOCTL_RESET", 5000);
    ExpectId(PDU_OBJT_IO_CTRL, "PDU_IOCTL_READ_VBATT", 5005);
    ExpectId(PDU_OBJT_PINTYPE, "HI", 0);
    ExpectId(PDU_OBJT_COMPARAM, "CP_P2Max", 12);
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{
                               "[PDUGetObjectId] (32803, 'PDU_IOCTL_RESET', ...)",
                               "[PDUGetObjectId] Returning PDU_STATUS_NOERROR, *pPduObjectId=5000",
                               "[PDUGetObjectId] (32803, 'PDU_IOCTL_READ_VBATT', ...)",
                               "[PDUGetObjectId] (32805, 'HI', ...)",
                               "[PDUGetObjectId] (32804, 'CP_P2Max', ...)",
                           }));
}

FRESH_PROCESS_TEST(FreshLibrary, ObjectIdsAreReturnedBeforeConstruct) {
    ExpectId(PDU_OBJT_PROTOCOL, "ISO_15765_3_on_ISO_15765_2", 3000);
    ExpectId(PDU_OBJT_COMPARAM, "CP_P2Max", 12);
}
