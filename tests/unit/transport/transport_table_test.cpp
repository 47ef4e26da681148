#include "transport/transport_table.h"

#include <gtest/gtest.h>

#include <string>

#include "support/config.h"
#include "unit/test_support.h"

namespace tarvik::test {
namespace {

class TransportTableTest : public testing::Test {
protected:
    void SetUp() override {
        TransportTable = {};
        config = {};
        RegisterTransports();
    }
    void TearDown() override { TransportTable = {}; }
};

struct ExpectedTransport {
    const char* name;
    std::uint32_t id;
    const char* interface_name;
    const char* connection_type;
    std::uint32_t mtu;
    std::uint32_t update_timeout_ms;
    std::uint32_t connect_timeout_ms;
};
constexpr ExpectedTransport kExpected[] = {
    {"Serial", 1, "USB", "USB", 4096, 200, 1000},
    {"Cloud", 0, "Network", "Cloud", 0, 500, 5000},
    {"BLE", 3, "Bluetooth", "BLE", 244, 2000, 3000},
    {"Dummy", 2, "USB", "USB", 0, 100, 500},
};

TEST_F(TransportTableTest, HoldsTheFourTransportsInOrderWithTheirData) {
    ASSERT_EQ(TransportTable.count, 4);
    for (std::int32_t i = 0; i < TransportTable.count; ++i) {
        const Transport& transport = *TransportTable.entries[i];
        const ExpectedTransport& expected = kExpected[i];
        EXPECT_STREQ(transport.name, expected.name);
        EXPECT_EQ(transport.id, expected.id) << expected.name;
        EXPECT_STREQ(transport.interface_name, expected.interface_name) << expected.name;
        EXPECT_STREQ(transport.connection_type, expected.connection_type) << expected.name;
        EXPECT_EQ(transport.module_type_id, 1u) << expected.name;
        EXPECT_EQ(transport.mtu, expected.mtu) << expected.name;
        EXPECT_EQ(transport.update_timeout_ms, expected.update_timeout_ms) << expected.name;
        EXPECT_EQ(transport.connect_timeout_ms, expected.connect_timeout_ms) << expected.name;
    }
}

TEST_F(TransportTableTest, OnlyCloudOffersAddressDeviceAndNoneOffersDisconnect) {
    for (std::int32_t i = 0; i < TransportTable.count; ++i) {
        const Transport& transport = *TransportTable.entries[i];
        EXPECT_EQ(transport.AddressDevice != nullptr, std::string(transport.name) == "Cloud");
        EXPECT_EQ(transport.Disconnect, nullptr) << transport.name;
    }
}

TEST_F(TransportTableTest, TransportIsFoundByItsId) {
    for (const ExpectedTransport& expected : kExpected) {
        const Transport* found = FindTransport(expected.id);
        ASSERT_NE(found, nullptr) << expected.name;
        EXPECT_STREQ(found->name, expected.name);
    }
    EXPECT_EQ(FindTransport(4), nullptr);
    EXPECT_EQ(FindTransport(0xFFFFFFFF), nullptr);
}

TEST_F(TransportTableTest, SixteenTransportsFitAndTheSeventeenthIsIgnored) {
    static constexpr Transport kOther = {"Other", 99,      "",      "",      1,
                                         0,       nullptr, nullptr, nullptr, nullptr,
                                         nullptr, nullptr, nullptr, 0,       0};
    while (TransportTable.count < kMaxTransports - 1)
        RegisterTransport(&kOther);
    RegisterTransport(&kDummyTransport);
    EXPECT_EQ(TransportTable.count, 16);
    EXPECT_EQ(TransportTable.entries[15], &kDummyTransport);
    RegisterTransport(&kOther);
    EXPECT_EQ(TransportTable.count, 16);
    EXPECT_EQ(TransportTable.entries[15], &kDummyTransport);
}

TEST_F(TransportTableTest, NothingStartsOrIsFoundWithEverySwitchOff) {
    LogCapture log;
    for (std::int32_t i = 0; i < TransportTable.count; ++i)
        TransportTable.entries[i]->Init();
    for (std::int32_t i = 0; i < TransportTable.count; ++i)
        TransportTable.entries[i]->Start();
    for (std::int32_t i = 0; i < TransportTable.count; ++i) {
        int reports = 0;
        const ReportDevice count = [](void* context, const DeviceReport&) {
            ++*static_cast<int*>(context);
        };
        EXPECT_FALSE(TransportTable.entries[i]->UpdateDevices(10, count, &reports));
        EXPECT_EQ(reports, 0);
    }
    EXPECT_FALSE(log.Mentions("Created Thread handle"));
    EXPECT_FALSE(log.Has("[DummyStart] Done"));
    EXPECT_FALSE(log.Has("[SerialStart] Done"));
    for (std::int32_t i = 0; i < TransportTable.count; ++i)
        TransportTable.entries[i]->Stop();
    for (std::int32_t i = 0; i < TransportTable.count; ++i)
        TransportTable.entries[i]->Deinit();
}

}  // namespace
}  // namespace tarvik::test
