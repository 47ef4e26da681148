// Items of every kind, destroyed in random order.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/rounds.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

class ItemsInAnyOrder : public SerialDongle {
protected:
    template <typename Item>
    void Keep(Item* item) {
        ASSERT_NE(item, nullptr);
        items_.push_back(reinterpret_cast<PDU_ITEM*>(item));
    }

    // Results, error and status items of a request, and the link's own status items.
    void KeepEventsOf(Link& link, UNUM32 hCoP) {
        Outcome outcome;
        ASSERT_TRUE(Eventually([&] {
            while (auto event = NextEvent(link.hMod(), link.hCLL())) {
                if (event->hCop == hCoP) outcome.Add(*event);
                Keep(event.release());
            }
            return outcome.IsFinal();
        }));
    }
    void KeepEvents() {
        Link link(hMod);
        link.Address(kEngineRequest, kEngineResponse);
        link.Connect();
        ControlData matching(PositiveRead());
        ControlData unmatched(std::vector<Expected>{});
        KeepEventsOf(link, link.Start(PDU_COPT_SENDRECV, ReadVin(), matching.Data()));
        KeepEventsOf(link, link.Start(PDU_COPT_SENDRECV, ReadVin(), unmatched.Data()));
        KeepEventsOf(link, link.Start(PDU_COPT_UPDATEPARAM));
        CarLink all(hMod);
        KeepEventsOf(all, all.Start(PDU_COPT_SENDRECV, ReadVin(), matching.Data()));
    }

    void KeepTables() {
        Link link(hMod);
        UNUM8 name[] = {'E', 'C', 'U'};
        PDU_PARAM_BYTEFIELD_DATA field = {sizeof name, sizeof name, name};
        UniqueTable table;
        table.ControlUnit(1, kEngineRequest, kEngineResponse)
            .With("CP_ECULayerShortName", PDU_PT_BYTEFIELD, &field)
            .ControlUnit(2, kGearboxRequest, kGearboxResponse);
        EXPECT_EQ(Pdu().PDUSetUniqueRespIdTable(hMod, link.hCLL(), table.Item()),
                  PDU_STATUS_NOERROR);
        Keep(GetUniqueTable(hMod, link.hCLL()).release());
        UniqueTable empty;
        EXPECT_EQ(Pdu().PDUSetUniqueRespIdTable(hMod, link.hCLL(), empty.Item()),
                  PDU_STATUS_NOERROR);
        Keep(GetUniqueTable(hMod, link.hCLL()).release());
    }

    void KeepLists() {
        Keep(GetModuleIds().release());
        PDU_RSC_DATA resource = CanResource();
        for (const UNUM32 bus_type : {resource.BusTypeId, UNUM32{1}}) {
            resource.BusTypeId = bus_type;
            PDU_RSC_ID_ITEM* resources = nullptr;
            EXPECT_EQ(Pdu().PDUGetResourceIds(hMod, &resource, &resources), PDU_STATUS_NOERROR);
            Keep(resources);
        }
    }

    // Items that the library keeps, or that stay allocated, whatever an application does.
    void KeepOthers() {
        Keep(GetParam("CP_P2Max"));
        Keep(GetParam("CP_TesterPresentMessage"));
        PDU_IO_ENTITY_ADDRESS_DATA address = {0x1000, 2000};
        PDU_DATA_ITEM input = {PDU_IT_IO_ENTITY_ADDRESS, &address};
        for (const char* name : {"PDU_IOCTL_READ_VBATT", "PDU_IOCTL_GET_ENTITY_STATUS"}) {
            std::string text = name;
            UNUM32 command = 0;
            EXPECT_EQ(Pdu().PDUGetObjectId(PDU_OBJT_IO_CTRL, text.data(), &command),
                      PDU_STATUS_NOERROR)
                << name;
            PDU_DATA_ITEM* output = nullptr;
            EXPECT_EQ(Pdu().PDUIoCtl(hMod, PDU_HANDLE_UNDEF, command, &input, &output),
                      PDU_STATUS_NOERROR);
            Keep(KeepForGood(output));
        }
        items_.push_back(nullptr);
    }

    std::vector<PDU_ITEM*> items_;
};

TEST_F(ItemsInAnyOrder, AreAllReleased) {
    const LogCapture log;
    StdoutCapture console;
    SetNumber("CP_P2Max", 1'000'000);
    for (std::uint32_t shuffle = 0; shuffle < kItemShuffles; ++shuffle) {
        for (int i = 0; i < 3; ++i) {
            KeepEvents();
            KeepTables();
            KeepLists();
            KeepOthers();
        }
        std::mt19937 random(shuffle);
        std::shuffle(items_.begin(), items_.end(), random);
        for (PDU_ITEM* item : items_)
            EXPECT_EQ(Pdu().PDUDestroyItem(item), PDU_STATUS_NOERROR);
        items_.clear();
    }
    EXPECT_EQ(log.CountLike("*ERROR - cannot free"), 0u);
    EngineLink link(hMod);
    EXPECT_EQ(link.Request(ReadVin(), PositiveRead()).results.size(), 1u);
}

}  // namespace
}  // namespace conformance
