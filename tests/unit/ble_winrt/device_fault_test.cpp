// Failures of the system while a dongle is in use.

#include "unit/ble_winrt/fixture.h"

namespace tarvik::test {
namespace {

constexpr const char* kOperations[] = {
    "FromBluetoothAddressAsync",
    "GetGattServicesWithCacheModeAsync",
    "GetCharacteristicsWithCacheModeAsync",
    "WriteClientCharacteristicConfigurationDescriptorAsync",
    "WriteValueWithOptionAsync",
};
constexpr const char* kOtherFunctions[] = {
    "put_Completed",    "GetResults",
    "get_Status",       "get_Services",
    "get_Size",         "GetAt",
    "get_Uuid",         "get_Characteristics",
    "get_Session",      "add_ConnectionStatusChanged",
    "add_ValueChanged", "get_MaxPduSize",
};

class WinrtFault : public WinrtDongle {
protected:
    // Every kind of use of a dongle; then closes the device. Returns the error.
    std::string ErrorOfUse() {
        const std::string error = ErrorOf([&] {
            device = radio->Open(kDongleAddress);
            if (device == nullptr) throw BleError("no device");
            device->DiscoverServices();
            if (!device->SelectService(kServiceUuid)) throw BleError("no service");
            device->DiscoverCharacteristics();
            if (!device->SelectCharacteristic(kCharacteristicUuid)) throw BleError("no value");
            device->Subscribe(record);
            WriteIden();
        });
        device.reset();
        return error;
    }
};

TEST_F(WinrtFault, AnyFailedFunctionThrowsTheSystemsText) {
    const auto expect_thrown = [&](const char* function) {
        PlanFault(function, "fail 0x80070005");
        const std::string error = ErrorOfUse();
        EXPECT_NE(error.find("(0x80070005)"), std::string::npos) << function << ": " << error;
        EXPECT_EQ(TakeReport(), "") << function;
    };
    for (const char* function : kOperations)
        expect_thrown(function);
    for (const char* function : kOtherFunctions)
        expect_thrown(function);
    EXPECT_EQ(ErrorOfUse(), "");
}

TEST_F(WinrtFault, FailedOperationThrowsTheSystemsText) {
    for (const char* function : kOperations) {
        PlanFault(function, "error 0x800710DF");
        const std::string error = ErrorOfUse();
        EXPECT_NE(error.find("(0x800710DF)"), std::string::npos) << function << ": " << error;
        EXPECT_EQ(TakeReport(), "") << function;
    }
}

TEST_F(WinrtFault, CancelledOperationThrows) {
    for (const char* function : kOperations) {
        PlanFault(function, "cancel");
        EXPECT_EQ(ErrorOfUse(), "The system cancelled the operation") << function;
        EXPECT_EQ(TakeReport(), "") << function;
    }
}

TEST_F(WinrtFault, OperationThatNeverEndsIsGivenUpAfterItsLimit) {
    for (const char* function : kOperations) {
        const bool is_write = std::string(function) == "WriteValueWithOptionAsync";
        // Long enough for the operations that do end.
        WinrtLimits limits = LibraryWinrtLimits();
        (is_write ? limits.write_ms : limits.connect_ms) = is_write ? 50 : 1000;
        UseRadio(limits);
        PlanFault(function, "never");
        EXPECT_EQ(ErrorOfUse(), std::string("The system did not finish the operation within ") +
                                    (is_write ? "50 ms" : "1000 ms"))
            << function;
        EXPECT_EQ(TakeReport(), "") << function;
    }
    UseRadio(LibraryWinrtLimits());
    EXPECT_EQ(ErrorOfUse(), "");
}

TEST_F(WinrtFault, SlowDongleIsGivenUpAndItsLateConnectionEnds) {
    simulator.Command(R"(radio {"connect_ms": 5000})");
    WinrtLimits limits = LibraryWinrtLimits();
    limits.connect_ms = 100;
    UseRadio(limits);
    Open();
    EXPECT_NE(ErrorOf([&] { device->DiscoverServices(); }), "");
    device.reset();
    EXPECT_TRUE(Eventually([&] { return RadioSays("\"connected\":false"); }));
}

TEST_F(WinrtFault, CancelConnectingEndsTheWaitForASlowDongle) {
    simulator.Command(R"(radio {"connect_ms": 60000})");
    Open();
    conformance::Thread giver_up([&] { radio->CancelConnecting(); });
    EXPECT_EQ(ErrorOf([&] { device->DiscoverServices(); }), "The operation was given up");
    EXPECT_EQ(ErrorOf([&] { device->DiscoverServices(); }), "The operation was given up");
    device.reset();
    EXPECT_EQ(TakeReport(), "");
}

TEST_F(WinrtFault, DongleWithoutADeviceIsNotReachable) {
    PlanFault("FromBluetoothAddressAsync", "null");
    EXPECT_EQ(radio->Open(kDongleAddress), nullptr);
}

// Windows promises none of these.
TEST_F(WinrtFault, SuccessWithoutAnObjectIsAnError) {
    const auto expect_error = [&](const char* function, const char* fault) {
        PlanFault(function, fault);
        const std::string error = ErrorOfUse();
        EXPECT_NE(error.find("(0x80004003)"), std::string::npos) << function << ": " << error;
        EXPECT_EQ(TakeReport(), "") << function;
    };
    for (const char* function : kOperations)
        expect_error(function, "none");
    for (const char* function :
         {"GetGattServicesWithCacheModeAsync", "GetCharacteristicsWithCacheModeAsync",
          "get_Services", "get_Characteristics", "GetAt", "get_Session"}) {
        expect_error(function, "null");
    }
    EXPECT_EQ(ErrorOfUse(), "");
}

TEST_F(WinrtFault, NotificationWithoutAValueIsReported) {
    Connect();
    for (const char* function : {"get_CharacteristicValue", "Buffer"}) {
        const std::size_t before = record.Errors().size();
        PlanFault(function, "null");
        simulator.Command("notify 0102");
        ASSERT_TRUE(Eventually([&] { return record.Errors().size() > before; })) << function;
        EXPECT_NE(record.Errors().back().find("0x80004003"), std::string::npos) << function;
    }
    EXPECT_TRUE(record.Values().empty());
}

// The stand-in reports a connection that ends without an attempt to unsubscribe.
TEST_F(WinrtFault, FailedUnsubscribingDoesNotKeepTheConnection) {
    WinrtLimits limits = LibraryWinrtLimits();
    limits.close_ms = 50;
    UseRadio(limits);
    for (const char* fault : {"fail 0x80070005", "error 0x800710DF", "status 1", "none", "never"}) {
        Connect();
        PlanFault("WriteClientCharacteristicConfigurationDescriptorAsync", fault);
        device.reset();
        EXPECT_EQ(TakeReport(), "") << fault;
        EXPECT_TRUE(Eventually([&] { return RadioSays("\"connected\":false"); })) << fault;
    }
}

TEST_F(WinrtFault, UnreadableNotificationIsReported) {
    Connect();
    for (const char* function : {"get_CharacteristicValue", "get_Length", "Buffer"}) {
        const std::size_t before = record.Errors().size();
        PlanFault(function, "fail 0x8000000E");
        simulator.Command("notify 0102");
        ASSERT_TRUE(Eventually([&] { return record.Errors().size() > before; })) << function;
        EXPECT_NE(record.Errors().back().find("0x8000000E"), std::string::npos) << function;
    }
    simulator.Command("notify 0304");
    EXPECT_TRUE(Eventually([&] { return !record.Values().empty(); }));
}

TEST_F(WinrtFault, FailedWriteDoesNotAffectTheNext) {
    Connect();
    PlanFault("WriteValueWithOptionAsync", "error 0x800710DF");
    EXPECT_NE(ErrorOf([&] { WriteIden(); }), "");
    EXPECT_EQ(WriteIden(), BleStatus::kSuccess);
}

}  // namespace
}  // namespace tarvik::test
