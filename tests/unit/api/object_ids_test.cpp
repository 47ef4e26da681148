#include <gtest/gtest.h>

#include <string>

#include "comparam/comparam_table.h"
#include "dpdu_api.h"
#include "unit/test_support.h"

namespace tarvik::test {
namespace {

constexpr UNUM32 kUntouchedId = 0xABCDu;

struct Answer {
    T_PDU_ERROR status;
    UNUM32 id;
    bool operator==(const Answer&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Answer& answer) {
    return out << "status " << answer.status << ", id " << answer.id;
}

Answer Ask(T_PDU_OBJT type, std::string name) {
    Answer answer{0, kUntouchedId};
    answer.status = PDUGetObjectId(type, name.data(), &answer.id);
    return answer;
}

constexpr Answer Found(UNUM32 id) { return {PDU_STATUS_NOERROR, id}; }
constexpr Answer kNotFound = {PDU_ERR_INVALID_PARAMETERS, 0};

TEST(GetObjectId, PinTypeHighIsNotFound) {
    EXPECT_EQ(Ask(PDU_OBJT_PINTYPE, "HIGH"), kNotFound);
    EXPECT_EQ(Ask(PDU_OBJT_PINTYPE, "H"), kNotFound);
    EXPECT_EQ(Ask(PDU_OBJT_PINTYPE, "LOWER"), kNotFound);
}

TEST(GetObjectId, CaseMatters) {
    EXPECT_EQ(Ask(PDU_OBJT_BUSTYPE, "iso_11898_2_dwcan"), kNotFound);
    EXPECT_EQ(Ask(PDU_OBJT_COMPARAM, "cp_p2max"), kNotFound);
    EXPECT_EQ(Ask(PDU_OBJT_PINTYPE, "hi"), kNotFound);
}

TEST(GetObjectId, NamesOfOtherTypesAreNotFound) {
    EXPECT_EQ(Ask(PDU_OBJT_RESOURCE, "ISO_11898_2_DWCAN"), kNotFound);
    EXPECT_EQ(Ask(PDU_OBJT_PROTOCOL, "CP_P2Max"), kNotFound);
}

TEST(GetObjectId, KnowsAll25IoCtlNames) {
    const char* const kNames[] = {
        "PDU_IOCTL_RESET",
        "PDU_IOCTL_CLEAR_TX_QUEUE",
        "PDU_IOCTL_SUSPEND_TX_QUEUE",
        "PDU_IOCTL_RESUME_TX_QUEUE",
        "PDU_IOCTL_CLEAR_RX_QUEUE",
        "PDU_IOCTL_READ_VBATT",
        "PDU_IOCTL_SET_PROG_VOLTAGE",
        "PDU_IOCTL_READ_PROG_VOLTAGE",
        "PDU_IOCTL_GENERIC",
        "PDU_IOCTL_SET_BUFFER_SIZE",
        "PDU_IOCTL_START_MSG_FILTER",
        "PDU_IOCTL_CLEAR_MSG_FILTER",
        "PDU_IOCTL_STOP_MSG_FILTER",
        "PDU_IOCTL_SET_EVENT_QUEUE_PROPERTIES",
        "PDU_IOCTL_GET_CABLE_ID",
        "PDU_IOCTL_SEND_BREAK",
        "PDU_IOCTL_READ_IGNITION_SENSE_STATE",
        "PDU_IOCTL_VEHICLE_ID_REQUEST",
        "PDU_IOCTL_SET_ETH_SWITCH_STATE",
        "PDU_IOCTL_GET_ENTITY_STATUS",
        "PDU_IOCTL_GET_DIAGNOSTIC_POWER_MODE",
        "PDU_IOCTL_GET_ETH_PIN_OPTION",
        "PDU_IOCTL_TLS_SET_CERTIFICATE",
        "PDU_IOCTL_TLS_GET_CURRENT_SESSION_MODE",
        "PDU_IOCTL_ISOBUS_GET_DETECTED_CFS",
    };
    UNUM32 id = 5000;
    for (const char* name : kNames)
        EXPECT_EQ(Ask(PDU_OBJT_IO_CTRL, name), Found(id++)) << name;
    EXPECT_EQ(id, 5025u);
}

TEST(GetObjectId, KnowsEveryComParamByItsName) {
    for (const ComParamDescription& row : kComParamTable) {
        EXPECT_EQ(Ask(PDU_OBJT_COMPARAM, row.name), Found(row.id)) << row.name;
    }
}

TEST(GetObjectId, UnknownNameGivesInvalidParametersAndIdZero) {
    for (T_PDU_OBJT type = PDU_OBJT_PROTOCOL; type <= PDU_OBJT_RESOURCE; ++type) {
        EXPECT_EQ(Ask(type, "CP_Nothing"), kNotFound);
        EXPECT_EQ(Ask(type, ""), kNotFound);
    }
}

TEST(GetObjectId, ComParamNameMustMatchCompletely) {
    EXPECT_EQ(Ask(PDU_OBJT_COMPARAM, "CP_P2Ma"), kNotFound);
    EXPECT_EQ(Ask(PDU_OBJT_COMPARAM, "CP_P2Max "), kNotFound);
}

TEST(GetObjectId, TypesOutsideTheKnownSixAreRefused) {
    EXPECT_EQ(Ask(0x8020u, "HI"), kNotFound);
    EXPECT_EQ(Ask(0x8027u, "HI"), kNotFound);
    EXPECT_EQ(Ask(0xFFFFFFFFu, "PDU_IOCTL_RESET"), kNotFound);
}

TEST(GetObjectId, NullNameIsNotFound) {
    const LogCapture log;
    UNUM32 id = kUntouchedId;
    EXPECT_EQ(PDUGetObjectId(PDU_OBJT_COMPARAM, nullptr, &id), PDU_ERR_INVALID_PARAMETERS);
    EXPECT_EQ(id, 0u);
    EXPECT_TRUE(log.Has("[PDUGetObjectId] (32804, '(null)', ...)"));
    EXPECT_TRUE(log.Has("[PDUGetObjectId] Not found: (null)"));
}

TEST(GetObjectId, NullOutputIsNotWritten) {
    std::string name = "CP_P2Max";
    EXPECT_EQ(PDUGetObjectId(PDU_OBJT_COMPARAM, name.data(), nullptr), PDU_STATUS_NOERROR);
    name = "CP_P2Maximum";
    EXPECT_EQ(PDUGetObjectId(PDU_OBJT_COMPARAM, name.data(), nullptr), PDU_ERR_INVALID_PARAMETERS);
}

TEST(GetObjectId, OnlyTheResetCommandLogsItsSuccess) {
    const LogCapture log;
    Ask(PDU_OBJT_IO_CTRL, "PDU_IOCTL_RESET");
    Ask(PDU_OBJT_IO_CTRL, "PDU_IOCTL_READ_VBATT");
    Ask(PDU_OBJT_COMPARAM, "CP_P2Max");
    const std::vector<std::string> expected = {
        "[PDUGetObjectId] (32803, 'PDU_IOCTL_RESET', ...)",
        "[PDUGetObjectId] Returning PDU_STATUS_NOERROR, *pPduObjectId=5000",
        "[PDUGetObjectId] (32803, 'PDU_IOCTL_READ_VBATT', ...)",
        "[PDUGetObjectId] (32804, 'CP_P2Max', ...)",
    };
    EXPECT_EQ(log.Lines(), expected);
}

TEST(GetObjectId, LogsWhatWasNotFound) {
    const LogCapture log;
    Ask(PDU_OBJT_BUSTYPE, "K_LINE");
    Ask(0x8027u, "HI");
    EXPECT_TRUE(log.Has("[PDUGetObjectId] Not found: K_LINE"));
    EXPECT_TRUE(log.Has("[PDUGetObjectId] Not found: HI"));
}

}  // namespace
}  // namespace tarvik::test
