#include <cstring>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"

using namespace conformance;

namespace {

using IoCtl = ConstructedLibrary;

auto* const kUntouched = reinterpret_cast<PDU_DATA_ITEM*>(0x1234);

struct Answer {
    T_PDU_ERROR status;
    PDU_DATA_ITEM* output;
};

Answer Ask(UNUM32 command, PDU_DATA_ITEM* input = nullptr, UNUM32 hMod = 0, UNUM32 hCLL = 0) {
    Answer answer{0, kUntouched};
    answer.status = Pdu().PDUIoCtl(hMod, hCLL, command, input, &answer.output);
    if (answer.output != kUntouched && answer.output != nullptr) KeepForGood(answer.output);
    return answer;
}

void ExpectValue(const Answer& answer, UNUM32 value) {
    EXPECT_EQ(answer.status, PDU_STATUS_NOERROR);
    ASSERT_NE(answer.output, nullptr);
    ASSERT_NE(answer.output, kUntouched);
    EXPECT_EQ(answer.output->ItemType, PDU_IT_IO_UNUM32);
    EXPECT_EQ(*static_cast<UNUM32*>(answer.output->pData), value);
}

void ExpectNotSupported(UNUM32 command) {
    const LogCapture log;
    const Answer answer = Ask(command);
    EXPECT_EQ(answer.status, PDU_ERR_ID_NOT_SUPPORTED) << command;
    EXPECT_EQ(answer.output, kUntouched) << command;
    EXPECT_TRUE(log.Has("[PDUIoCtl] Called"));
    EXPECT_TRUE(log.Has("[PDUIoCtl] PDU_ERR_ID_NOT_SUPPORTED " +
                        std::to_string(static_cast<SNUM32>(command))));
}

PDU_IO_VEHICLE_ID_REQUEST vehicle_request = {1, nullptr, 0, 100, 0, nullptr};
PDU_IO_ETH_SWITCH_STATE switch_state = {1, 8};
PDU_IO_ENTITY_ADDRESS_DATA entity_address = {0x1000, 2000};

}  // namespace

TEST_F(IoCtl, CommandsOutsideTheRangeAreNotSupported) {
    for (const UNUM32 command : {0u, 4999u, 5021u, 5022u, 5024u, 0xFFFFFFFFu}) {
        ExpectNotSupported(command);
    }
}

TEST_F(IoCtl, CommandsKnownByNameOnlyAreNotSupported) {
    for (const UNUM32 command :
         {5001u, 5002u, 5003u, 5004u, 5006u, 5007u, 5008u, 5012u, 5013u, 5014u, 5015u}) {
        ExpectNotSupported(command);
    }
}

TEST_F(IoCtl, CommandsWithoutEffectSucceedAndDoNotChangeTheOutput) {
    for (const UNUM32 command : {5000u, 5009u, 5010u, 5011u}) {
        const Answer answer = Ask(command);
        EXPECT_EQ(answer.status, PDU_STATUS_NOERROR) << command;
        EXPECT_EQ(answer.output, kUntouched) << command;
    }
    EXPECT_EQ(Pdu().PDUIoCtl(0, 0, 5000, nullptr, nullptr), PDU_STATUS_NOERROR);
}

TEST_F(IoCtl, BatteryVoltageIsTheSameOnEveryCallAndForAnyHandle) {
    ExpectValue(Ask(5005), 13800);
    ExpectValue(Ask(5005, nullptr, PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF), 13800);
    ExpectValue(Ask(5005, nullptr, 77, 88), 13800);
}

TEST_F(IoCtl, IgnitionIsAlwaysOn) { ExpectValue(Ask(5016), 1); }

TEST_F(IoCtl, VehicleIdRequestGivesNoOutput) {
    PDU_DATA_ITEM input = {PDU_IT_IO_VEHICLE_ID_REQUEST, &vehicle_request};
    const LogCapture log;
    const Answer answer = Ask(5017, &input);
    EXPECT_EQ(answer.status, PDU_STATUS_NOERROR);
    EXPECT_EQ(answer.output, nullptr);
    EXPECT_TRUE(log.Has("[PDUIoCtl] PDU_IOCTL_VEHICLE_ID_REQUEST"));
}

TEST_F(IoCtl, VehicleIdRequestTakesALongVinAndAddresses) {
    char vin[] = "WTVDEM0S1M0000001 and more";
    UNUM8 bytes[16] = {};
    PDU_IP_ADDR_INFO addresses[] = {{4, bytes}, {6, bytes}};
    PDU_IO_VEHICLE_ID_REQUEST request = {1, vin, 3, 500, 2, addresses};
    PDU_DATA_ITEM input = {PDU_IT_IO_VEHICLE_ID_REQUEST, &request};
    EXPECT_EQ(Ask(5017, &input).status, PDU_STATUS_NOERROR);
}

TEST_F(IoCtl, EthernetSwitchStateGivesNoOutput) {
    PDU_DATA_ITEM input = {PDU_IT_IO_ETH_SWITCH_STATE, &switch_state};
    const LogCapture log;
    const Answer answer = Ask(5018, &input);
    EXPECT_EQ(answer.status, PDU_STATUS_NOERROR);
    EXPECT_EQ(answer.output, nullptr);
    EXPECT_TRUE(log.Has("[PDUIoCtl] PDU_IOCTL_SET_ETH_SWITCH_STATE"));
}

TEST_F(IoCtl, EntityStatusIsFixed) {
    PDU_DATA_ITEM input = {PDU_IT_IO_ENTITY_ADDRESS, &entity_address};
    const LogCapture log;
    const Answer answer = Ask(5019, &input);
    ASSERT_EQ(answer.status, PDU_STATUS_NOERROR);
    EXPECT_EQ(answer.output->ItemType, PDU_IT_IO_ENTITY_STATUS);
    const auto& status = *static_cast<PDU_IO_ENTITY_STATUS_DATA*>(answer.output->pData);
    EXPECT_EQ(status.EntityType, 0u);
    EXPECT_EQ(status.TcpClientsMax, 1u);
    EXPECT_EQ(status.TcpClients, 0u);
    EXPECT_EQ(status.MaxDataSize, 0u);
    EXPECT_TRUE(log.Has("[PDUIoCtl] PDU_IOCTL_GET_ENTITY_STATUS"));
}

TEST_F(IoCtl, DiagnosticPowerModeTakesTheEntityAddressAsInput) {
    PDU_DATA_ITEM input = {PDU_IT_IO_ENTITY_ADDRESS, &entity_address};
    const LogCapture log;
    ExpectValue(Ask(5020, &input), 1);
    EXPECT_TRUE(log.Has("[PDUIoCtl] PDU_IOCTL_GET_DIAGNOSTIC_POWER_MODE"));
}

TEST_F(IoCtl, NullInputAndInputOfAnotherTypeAreRefused) {
    for (const UNUM32 command : {5017u, 5018u, 5019u, 5020u}) {
        PDU_DATA_ITEM wrong = {PDU_IT_IO_UNUM32, &switch_state};
        for (PDU_DATA_ITEM* input : {static_cast<PDU_DATA_ITEM*>(nullptr), &wrong}) {
            const LogCapture log;
            EXPECT_EQ(Ask(command, input).status, PDU_ERR_INVALID_PARAMETERS) << command;
            EXPECT_EQ(log.Lines().size(), 2u) << log.Text();  // called, and the command's name
        }
    }
}

TEST_F(IoCtl, DestroyItemAcceptsOutputItems) {
    const Answer answer = Ask(5005);
    ASSERT_EQ(answer.status, PDU_STATUS_NOERROR);
    EXPECT_EQ(Pdu().PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(answer.output)), PDU_STATUS_NOERROR);
}

FRESH_PROCESS_TEST(FreshLibrary, IoCtlsWorkBeforeConstruct) {
    ExpectValue(Ask(5005), 13800);
    EXPECT_EQ(Ask(5000).status, PDU_STATUS_NOERROR);
    EXPECT_EQ(Ask(5021).status, PDU_ERR_ID_NOT_SUPPORTED);
}
