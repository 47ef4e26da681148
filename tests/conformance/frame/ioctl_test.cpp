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
    EXPECT_EQ(log.Lines(),
              (std::vector<std::string>{"[PDUIoCtl] Called",
                                        "[PDUIoCtl] PDU_ERR_ID_NOT_SUPPORTED " +
                                            std::to_string(static_cast<SNUM32>(command))}));
}

PDU_IO_VEHICLE_ID_REQUEST vehicle_request = {1, nullptr, 0, 100, 0, nullptr};
PDU_IO_ETH_SWITCH_STATE switch_state = {1, 8};
PDU_IO_ENTITY_ADDRESS_DATA entity_address = {0x1000, 2000};

}  // namespace

TEST_F(IoCtl, CommandsOutsideTheRangeAreNotSupported) {
    for (const UNUM32 command : {0u, 4999u, 5021u, 5022u, 5023u, 5024u, 0xFFFFFFFFu}) {
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
    for (const UNUM32 handle : {0u, 77u, 255u, 256u, PDU_HANDLE_UNDEF}) {
        ExpectValue(Ask(5005, nullptr, handle, handle), 13800);
    }
}

TEST_F(IoCtl, IgnitionIsAlwaysOnWhateverTheInput) {
    UNUM32 pin = 16;
    PDU_DATA_ITEM input = {PDU_IT_IO_UNUM32, &pin};
    ExpectValue(Ask(5016), 1);
    ExpectValue(Ask(5016, &input), 1);
}

TEST_F(IoCtl, VehicleIdRequestGivesNoOutput) {
    PDU_DATA_ITEM input = {PDU_IT_IO_VEHICLE_ID_REQUEST, &vehicle_request};
    const LogCapture log;
    const Answer answer = Ask(5017, &input);
    EXPECT_EQ(answer.status, PDU_STATUS_NOERROR);
    EXPECT_EQ(answer.output, nullptr);
    EXPECT_EQ(log.MissingOf({"[PDUIoCtl] PDU_IOCTL_VEHICLE_ID_REQUEST",
                             "[PDUIoCtl] Returning PDU_STATUS_NOERROR"}),
              "");
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

TEST_F(IoCtl, MissingAndForeignInputIsRefused) {
    struct Row {
        UNUM32 command;
        UNUM32 type;
        const char* name;
    };
    for (const Row& row : {Row{5017, PDU_IT_IO_VEHICLE_ID_REQUEST, "VEHICLE_ID_REQUEST"},
                           Row{5018, PDU_IT_IO_ETH_SWITCH_STATE, "SET_ETH_SWITCH_STATE"},
                           Row{5019, PDU_IT_IO_ENTITY_ADDRESS, "GET_ENTITY_STATUS"},
                           Row{5020, PDU_IT_IO_ENTITY_ADDRESS, "GET_DIAGNOSTIC_POWER_MODE"}}) {
        PDU_DATA_ITEM foreign = {PDU_IT_IO_UNUM32, &switch_state};
        PDU_DATA_ITEM without_data = {row.type, nullptr};
        for (PDU_DATA_ITEM* input :
             {static_cast<PDU_DATA_ITEM*>(nullptr), &foreign, &without_data}) {
            const LogCapture log;
            const Answer answer = Ask(row.command, input);
            EXPECT_EQ(answer.status, PDU_ERR_INVALID_PARAMETERS) << row.name;
            EXPECT_EQ(answer.output, kUntouched) << row.name;
            EXPECT_EQ(log.Lines(),
                      (std::vector<std::string>{"[PDUIoCtl] Called",
                                                std::string("[PDUIoCtl] PDU_IOCTL_") + row.name}));
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
