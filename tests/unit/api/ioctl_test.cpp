#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "api/ioctl_doip_request.h"
#include "dpdu_api.h"
#include "link/wire.h"
#include "objects/items.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "support/memory.h"
#include "unit/faults/heap_fault.h"
#include "unit/test_support.h"
#include "unit/test_system.h"

namespace tarvik::test {
namespace {

// What an application has in its pointer before the call.
PDU_DATA_ITEM untouched_item;
PDU_DATA_ITEM* const kUntouched = &untouched_item;

T_PDU_ERROR Call(UNUM32 id, PDU_DATA_ITEM* input, PDU_DATA_ITEM** output) {
    return PDUIoCtl(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, id, input, output);
}

// An output item; the release table leaves it alone, so that the test frees its one block.
struct Output {
    PDU_DATA_ITEM* item = kUntouched;
    ~Output() {
        if (item != kUntouched) FreeMem(item);
    }
};

UNUM32 ValueOf(const PDU_DATA_ITEM* item) { return *static_cast<const UNUM32*>(item->pData); }

TEST(IoCtl, WithoutAnOutputNothingStaysAllocated) {
    PDU_IP_ADDR_INFO addresses[2] = {};
    PDU_IO_VEHICLE_ID_REQUEST vehicle = {};
    vehicle.NumDestinationAddresses = 2;
    vehicle.pDestinationAddresses = addresses;
    PDU_IO_ETH_SWITCH_STATE state = {1, 8};
    PDU_IO_ENTITY_ADDRESS_DATA address = {0x1010, 2000};
    PDU_DATA_ITEM inputs[] = {{PDU_IT_IO_VEHICLE_ID_REQUEST, &vehicle},
                              {PDU_IT_IO_ETH_SWITCH_STATE, &state},
                              {PDU_IT_IO_ENTITY_ADDRESS, &address},
                              {PDU_IT_IO_ENTITY_ADDRESS, &address}};
    const MemoryUse before = LiveMemory();
    EXPECT_EQ(Call(5005, nullptr, nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(Call(5016, nullptr, nullptr), PDU_STATUS_NOERROR);
    for (UNUM32 i = 0; i < 4; ++i) {
        EXPECT_EQ(Call(5017 + i, &inputs[i], nullptr), PDU_STATUS_NOERROR) << 5017 + i;
    }
    PDU_DATA_ITEM* output = kUntouched;
    EXPECT_EQ(Call(5017, &inputs[0], &output), PDU_STATUS_NOERROR);
    EXPECT_EQ(output, nullptr);
    EXPECT_TRUE(LiveMemory() == before);
}

TEST(IoCtl, DestroyingAnOutputItemReleasesNothing) {
    Output output;
    ASSERT_EQ(Call(5005, nullptr, &output.item), PDU_STATUS_NOERROR);
    const MemoryUse before = LiveMemory();
    FreePduItem(reinterpret_cast<PDU_ITEM*>(output.item));
    EXPECT_TRUE(LiveMemory() == before);
    EXPECT_EQ(ValueOf(output.item), 13800u);
}

TEST(IoCtl, OutputThatCannotBeAllocatedIsNull) {
    PDU_IO_ENTITY_ADDRESS_DATA address = {0x1010, 2000};
    PDU_DATA_ITEM input = {PDU_IT_IO_ENTITY_ADDRESS, &address};
    for (const UNUM32 id : {5019u, 5020u}) {
        PDU_DATA_ITEM* output = kUntouched;
        T_PDU_ERROR status = PDU_ERR_FCT_FAILED;
        {
            const FailingHeap heap;
            status = Call(id, &input, &output);
        }
        EXPECT_EQ(status, PDU_STATUS_NOERROR);
        EXPECT_EQ(output, nullptr);
    }
}

void ReadVbattWithoutMemory(void*) {
    const FailingHeap heap;
    PDU_DATA_ITEM* output = nullptr;
    Call(5005, nullptr, &output);
}

constexpr char kHeldMessage[] = "Allocation (4096) failed - BUG!\n";

// The message follows the refusal. On a console that the process opened it cannot be seen.
bool MessageIsPrinted() {
    if (PrintedOnConsole(kHeldMessage).empty()) return true;
    return Eventually([] { return std::ftell(stdout) > 0; });
}

// 0: the call was refused memory, printed its message and did not return.
int ReadWithoutMemoryOnAThread() {
    OsThread* thread = OsThreadStart(ReadVbattWithoutMemory, nullptr, "reader");
    const bool refused = Eventually([] { return FailingHeap::Refusals() > 0; });
    const bool printed = MessageIsPrinted();
    const bool ended = OsThreadJoin(thread, 1000);
    std::fflush(stdout);
    OsExitProcess(refused && printed && !ended ? 0 : 1);  // the thread is still running
}
const ChildBody read_without_memory("read-without-memory", ReadWithoutMemoryOnAThread);

TEST(IoCtl, ReadingWithoutMemoryPrintsAMessageAndNeverReturns) {
    const ChildResult child = RunChild("read-without-memory");
    EXPECT_EQ(child.exit_code, 0);
    // A console that the child opened, where there can be one, cannot be read here.
    if (child.output == kHeldMessage) return;
    EXPECT_EQ(child.output, PrintedOnConsole(kHeldMessage));
}

// 0: the process had a console of its own, 2: there can be none.
int ReadWithoutMemoryBesideAConsole() {
    const bool has_console = MakeConsole();
    OsThreadStart(ReadVbattWithoutMemory, nullptr, "reader");
    const bool refused = Eventually([] { return FailingHeap::Refusals() > 0; });
    const bool printed = Eventually([] { return OutputIsOnConsole() || std::ftell(stdout) > 0; });
    std::fflush(stdout);
    OsExitProcess(!refused || !printed ? 1 : has_console ? 0 : 2);
}
const ChildBody read_beside_a_console("read-beside-a-console", ReadWithoutMemoryBesideAConsole);

TEST(IoCtl, MessageOfLackingMemoryGoesToTheConsoleNotToARedirectedOutput) {
    const ChildResult child = RunChild("read-beside-a-console");
    EXPECT_EQ(child.output, child.exit_code == 0 ? "" : kHeldMessage);
    EXPECT_NE(child.exit_code, 1);
}

// ---- The request records -----------------------------------------------------------------------

std::vector<std::uint8_t> BytesOf(const DoipRequest& request) {
    if (request.bytes == nullptr) return {};
    return {request.bytes.get(), request.bytes.get() + request.length};
}

TEST(DoipRequestRecord, ValueRequestsAre20Bytes) {
    const std::vector<std::uint8_t> expected = {
        'P', 'I', 'O', 'D', 20, 0, 0, 0, 5, 0, 0, 0, 0x10, 0x20, 0, 0, 0xD0, 0x07, 0, 0,
    };
    EXPECT_EQ(BytesOf(BuildValueRequest(DoipRequestKind::kEntityStatus, 0x2010, 2000)), expected);
}

TEST(DoipRequestRecord, KindsAreFourFiveAndSix) {
    const auto kind_of = [](DoipRequestKind kind) {
        return LoadU32(BuildValueRequest(kind, 0, 0).bytes.get() + 8);
    };
    EXPECT_EQ(kind_of(DoipRequestKind::kEthSwitchState), 4u);
    EXPECT_EQ(kind_of(DoipRequestKind::kEntityStatus), 5u);
    EXPECT_EQ(kind_of(DoipRequestKind::kDiagnosticPowerMode), 6u);
}

PDU_IO_VEHICLE_ID_REQUEST VehicleIdRequest(std::string* vin) {
    PDU_IO_VEHICLE_ID_REQUEST input = {};
    input.PreselectionMode = 1;
    input.PreselectionValue = vin == nullptr ? nullptr : vin->data();
    input.CombinationMode = 2;
    input.VehicleDiscoveryTime = 3000;
    return input;
}

TEST(DoipRequestRecord, VinFillsItsFieldUpTo17Characters) {
    std::string whole = "TESTVIN0123456789";
    std::string longer = "TESTVIN0123456789XYZ";
    std::string shorter = "AB";
    const struct {
        std::string* vin;
        std::string field;
    } kRows[] = {{&whole, whole}, {&longer, whole}, {&shorter, shorter}, {nullptr, ""}};
    for (auto [vin, field] : kRows) {
        std::vector<std::uint8_t> expected = {'P', 'I', 'O', 'D', 48, 0, 0, 0,
                                              3,   0,   0,   0,   1,  0, 0, 0};
        field.resize(20);
        expected.insert(expected.end(), field.begin(), field.end());
        const std::vector<std::uint8_t> rest = {2, 0, 0, 0, 0xB8, 0x0B, 0, 0, 0, 0, 0, 0};
        expected.insert(expected.end(), rest.begin(), rest.end());
        EXPECT_EQ(BytesOf(BuildVehicleIdRequest(VehicleIdRequest(vin))), expected)
            << (vin == nullptr ? "null" : *vin);
    }
}

TEST(DoipRequestRecord, AddressesAreCopiedFromTheInputUnchanged) {
    UNUM8 address[4] = {127, 0, 0, 1};
    PDU_IP_ADDR_INFO addresses[2] = {{4, address}, {6, nullptr}};
    std::string vin;
    PDU_IO_VEHICLE_ID_REQUEST input = VehicleIdRequest(&vin);
    input.NumDestinationAddresses = 2;
    input.pDestinationAddresses = addresses;

    const auto bytes = BytesOf(BuildVehicleIdRequest(input));
    ASSERT_EQ(bytes.size(), 80u);
    EXPECT_EQ(LoadU32(bytes.data() + 4), 80u);
    EXPECT_EQ(LoadU32(bytes.data() + 44), 2u);
    PDU_IP_ADDR_INFO copies[2];
    std::memcpy(copies, bytes.data() + 48, sizeof copies);
    EXPECT_EQ(copies[0].IpVersion, 4u);
    EXPECT_EQ(copies[0].pAddress, address);
    EXPECT_EQ(copies[1].IpVersion, 6u);
    EXPECT_EQ(copies[1].pAddress, nullptr);
}

TEST(DoipRequestRecord, MissingAddressArrayCopiesNoEntries) {
    std::string vin;
    PDU_IO_VEHICLE_ID_REQUEST input = VehicleIdRequest(&vin);
    input.NumDestinationAddresses = 0xFFFFFFFFu;
    const auto bytes = BytesOf(BuildVehicleIdRequest(input));
    ASSERT_EQ(bytes.size(), 48u);
    EXPECT_EQ(LoadU32(bytes.data() + 4), 48u);
    EXPECT_EQ(LoadU32(bytes.data() + 44), 0xFFFFFFFFu);
}

TEST(DoipRequestRecord, RecordLongerThan32BitsIsNotBuilt) {
    PDU_IP_ADDR_INFO address = {};
    std::string vin;
    PDU_IO_VEHICLE_ID_REQUEST input = VehicleIdRequest(&vin);
    input.NumDestinationAddresses = 0x10000000u;  // 4 GiB of entries; none may be read
    input.pDestinationAddresses = &address;
    EXPECT_EQ(BuildVehicleIdRequest(input).bytes, nullptr);
}

TEST(DoipRequestRecord, RecordIsNotBuiltWithoutMemory) {
    const FailingHeap heap;
    const DoipRequest request = BuildValueRequest(DoipRequestKind::kEntityStatus, 1, 2);
    EXPECT_EQ(request.bytes, nullptr);
}

}  // namespace
}  // namespace tarvik::test
