// The simulated Linux Bluetooth service behaves like the real one, and reports what its clients do
// wrong.
#include <algorithm>
#include <optional>

#include "bluez/client.h"
#include "conformance/framework/waiting.h"

namespace brennix::test {
namespace {

const Bytes kIdentify = {'N', 'E', 'D', 'I', 8, 0, 0, 0};

class BluezService : public testing::Test {
protected:
    void SetUp() override {
        service_.Command("start");
        radio_.Reset();
        client_.emplace();
    }
    void TearDown() override {
        client_.reset();
        service_.Command("start");
        EXPECT_TRUE(conformance::Eventually([&] { return service_.Command("clients") == "0"; }));
    }

    // Waits for a violation, clears the list and returns the text.
    std::string TakeViolation() {
        std::string text;
        conformance::Eventually([&] {
            text = radio_.Command("violations");
            return text != "0";
        });
        radio_.Command("violations clear");
        return text.size() > 2 ? text.substr(2) : "";
    }
    void ExpectNoViolation() { EXPECT_EQ(radio_.Command("violations"), "0"); }
    void LeaveProperly() {
        EXPECT_EQ(client_->Characteristic("StopNotify"), "");
        EXPECT_EQ(client_->Device("Disconnect"), "");
    }

    conformance::Simulator radio_;
    Service service_;
    std::optional<Client> client_;
};

TEST_F(BluezService, ShowsSignalStrengthOnlyWhileDiscovering) {
    ASSERT_EQ(client_->Discover(), "");
    const auto is_there = [](const sdbus::Variant* found) { return found != nullptr; };
    ASSERT_TRUE(client_->Await(kDevice, "RSSI", is_there));
    ASSERT_TRUE(client_->Await(kDevice, "Name", is_there));
    EXPECT_EQ(client_->ManagedObjects()[sdbus::ObjectPath(kDevice)]["org.bluez.Device1"]["Name"]
                  .get<std::string>(),
              "Brennix");
    ASSERT_EQ(client_->Adapter("StopDiscovery"), "");
    EXPECT_TRUE(client_->Await(kDevice, "RSSI",
                               [](const sdbus::Variant* found) { return found == nullptr; }));
    ExpectNoViolation();
}

TEST_F(BluezService, RefusesDiscoveryOutOfOrder) {
    EXPECT_EQ(client_->Adapter("StopDiscovery"), "org.bluez.Error.Failed");
    EXPECT_EQ(client_->Discover(), "");
    EXPECT_EQ(client_->Adapter("StartDiscovery"), "org.bluez.Error.InProgress");
    EXPECT_EQ(client_->Adapter("StopDiscovery"), "");
    ExpectNoViolation();
}

TEST_F(BluezService, AdapterIsNotReadyWhenOffAndNoObjectWhenAbsent) {
    radio_.Command("adapter off");
    ASSERT_TRUE(client_->Await(kAdapter, "Powered", [](const sdbus::Variant* found) {
        return found != nullptr && !found->get<bool>();
    }));
    EXPECT_EQ(client_->Discover(), "org.bluez.Error.NotReady");
    radio_.Command("adapter absent");
    EXPECT_TRUE(conformance::Eventually([&] { return client_->ManagedObjects().empty(); }));
    ExpectNoViolation();
}

TEST_F(BluezService, CarriesPacketsInBothDirections) {
    client_->ConnectDongle();
    ASSERT_EQ(client_->Characteristic("StartNotify"), "");
    ASSERT_EQ(client_->Write(kIdentify), "");
    EXPECT_TRUE(
        client_->Await(client_->CharacteristicPath(), "Value", [](const sdbus::Variant* found) {
            if (found == nullptr) return false;
            const auto value = found->get<Bytes>();
            return value.size() == 192 && value[0] == 'N' && value[3] == 'L';
        }));
    LeaveProperly();
    ExpectNoViolation();
}

TEST_F(BluezService, SignalsEachOfSeveralEqualNotifications) {
    client_->ConnectDongle();
    ASSERT_EQ(client_->Characteristic("StartNotify"), "");
    for (int i = 0; i < 3; ++i)
        radio_.Command("notify 010203");
    EXPECT_TRUE(conformance::Eventually([&] {
        return client_->Signalled("Value", {1, 2, 3}) == 3;
    }));
    LeaveProperly();
}

TEST_F(BluezService, RefusesAWriteThatDoesNotFitTheMtu) {
    radio_.Command(R"(radio {"mtu": 23})");
    client_->ConnectDongle();
    EXPECT_EQ(client_->Write(Bytes(21)), "org.bluez.Error.Failed");
    EXPECT_EQ(client_->Device("Disconnect"), "");
    ExpectNoViolation();
}

TEST_F(BluezService, LossEndsTheLinkAndTheNextConnectionRenewsTheSubscription) {
    client_->ConnectDongle();
    ASSERT_EQ(client_->Characteristic("StartNotify"), "");
    radio_.Command("lose");
    ASSERT_TRUE(client_->AwaitFlag("Connected", false));
    EXPECT_EQ(client_->Write(kIdentify), "org.bluez.Error.Failed");
    ASSERT_EQ(client_->Device("Connect"), "");
    ASSERT_TRUE(client_->AwaitFlag("ServicesResolved", true));
    ASSERT_TRUE(client_->Await(client_->CharacteristicPath(), "Notifying",
                               [](const sdbus::Variant* found) { return found->get<bool>(); }));
    EXPECT_EQ(client_->Characteristic("StartNotify"), "");
    LeaveProperly();
    ExpectNoViolation();
}

TEST_F(BluezService, RefusedConnectionReturnsAborted) {
    radio_.Command(R"(radio {"refuse": "no", "refuse_count": 1})");
    ASSERT_TRUE(client_->SeesDongle());
    ASSERT_EQ(client_->Adapter("StopDiscovery"), "");
    EXPECT_EQ(client_->Device("Connect"), "org.bluez.Error.Failed");
    EXPECT_EQ(client_->ErrorText(), "le-connection-abort-by-local");
    EXPECT_EQ(client_->Device("Connect"), "");
    EXPECT_EQ(client_->Device("Disconnect"), "");
}

TEST_F(BluezService, StopsAndStartsAgain) {
    service_.Command("stop");
    EXPECT_EQ(client_->Discover(), "org.freedesktop.DBus.Error.ServiceUnknown");
    service_.Command("start");
    EXPECT_EQ(client_->Discover(), "");
    EXPECT_EQ(client_->Adapter("StopDiscovery"), "");
}

TEST_F(BluezService, PlannedErrorOccursAsOftenAsPlanned) {
    service_.Command("fail 1 StartDiscovery org.freedesktop.DBus.Error.AccessDenied not allowed");
    EXPECT_EQ(client_->Discover(), "org.freedesktop.DBus.Error.AccessDenied");
    EXPECT_EQ(client_->ErrorText(), "not allowed");
    EXPECT_EQ(client_->Discover(), "");
    EXPECT_EQ(client_->Adapter("StopDiscovery"), "");
}

TEST_F(BluezService, ReportsDiscoveryWithoutAFilter) {
    EXPECT_EQ(client_->Adapter("StartDiscovery"), "");
    EXPECT_EQ(TakeViolation(), "bluez: StartDiscovery without a filter for Bluetooth LE");
    EXPECT_EQ(client_->Adapter("StopDiscovery"), "");
}

TEST_F(BluezService, ReportsConnectWhileDiscovering) {
    ASSERT_TRUE(client_->SeesDongle());
    EXPECT_EQ(client_->Device("Connect"), "");
    EXPECT_EQ(TakeViolation(), "bluez: Connect while discovering");
    EXPECT_EQ(client_->Adapter("StopDiscovery"), "");
    EXPECT_EQ(client_->Device("Disconnect"), "");
}

TEST_F(BluezService, ReportsAWriteThatAsksForAResponse) {
    client_->ConnectDongle();
    EXPECT_EQ(client_->Write(kIdentify, "request"), "");
    EXPECT_EQ(TakeViolation(), "bluez: WriteValue that asks for a response");
    EXPECT_EQ(client_->Device("Disconnect"), "");
}

TEST_F(BluezService, ReportsUseAfterDisconnect) {
    client_->ConnectDongle();
    ASSERT_EQ(client_->Device("Disconnect"), "");
    EXPECT_EQ(client_->Write(kIdentify), "org.bluez.Error.Failed");
    EXPECT_EQ(TakeViolation(), "bluez: WriteValue after Disconnect");
}

TEST_F(BluezService, ReportsDisconnectWithoutStopNotify) {
    client_->ConnectDongle();
    ASSERT_EQ(client_->Characteristic("StartNotify"), "");
    EXPECT_EQ(client_->Device("Disconnect"), "");
    EXPECT_EQ(TakeViolation(), "bluez: Disconnect without StopNotify");
}

TEST_F(BluezService, ReportsAClientThatLeavesConnectedOrDiscovering) {
    client_->ConnectDongle();
    client_.reset();
    EXPECT_EQ(TakeViolation(), "bluez: left the bus with 02:42:52:4E:58:01 connected");
    client_.emplace();
    ASSERT_EQ(client_->Discover(), "");
    client_.reset();
    EXPECT_EQ(TakeViolation(), "bluez: left the bus while discovering");
}

}  // namespace
}  // namespace brennix::test
