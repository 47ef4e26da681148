// The transport's threads: how they start and end, and what is logged.
#include "unit/cloud/cloud_fixture.h"
#include "unit/faults/thread_start_fault.h"

namespace tarvik::test {
namespace {

constexpr std::int32_t kNoThreads = 11;

class CloudThreads : public BothCarriers {
protected:
    static std::string NameFor(const char* thread) {
        return GetParam() ? std::string("WebSocket") + thread : thread;
    }
    static std::string SystemNameFor(const char* thread) {
        return std::string(GetParam() ? "Tarvik WebSocket" : "Tarvik Cloud") + thread;
    }
    // "… 0x<handle>…", whatever the handle.
    bool LogsHandle(const std::string& before, const std::string& after) {
        for (const std::string& line : log_.Lines()) {
            if (line.starts_with(before + "0x") && line.ends_with(after)) return true;
        }
        return false;
    }
    static void SendSomething() {
        const std::uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
        EXPECT_TRUE(kCloudTransport.AddressDevice(mac));
    }
};

INSTANTIATE_TEST_SUITE_P(Carrier, CloudThreads, testing::Bool(),
                         [](const auto& suite) { return suite.param ? "WebSocket" : "Tcp"; });

TEST_P(CloudThreads, InitAndDeinitLogTheirLocks) {
    kCloudTransport.Deinit();
    for (const char* lock :
         {"CRITICAL_SECTION for CloudQueues at ", "CRITICAL_SECTION statsLock at ",
          "CRITICAL_SECTION sessionLock at "}) {
        EXPECT_TRUE(LogsHandle(std::string("[CloudDeinit] Deleted ") + lock, "")) << lock;
    }
    const std::size_t lines = log_.Lines().size();
    kCloudTransport.Deinit();
    EXPECT_EQ(log_.Lines().size(), lines);
    kCloudTransport.Init();
    for (const char* lock :
         {"CRITICAL_SECTION for CloudQueues at ", "CRITICAL_SECTION statsLock at ",
          "CRITICAL_SECTION sessionLock at "}) {
        EXPECT_TRUE(LogsHandle(std::string("[CloudInit] Initialized ") + lock, "")) << lock;
    }
}

TEST_P(CloudThreads, LogsTheirStartAndEnd) {
    ASSERT_TRUE(Connect());
    const std::string created = std::string(GetParam() ? "[WebsocketConnect]" : "[NativeConnect]") +
                                " Created Thread handle ";
    const std::string rx = NameFor("RxThreadFunc");
    const std::string tx = NameFor("TxThreadFunc");
    EXPECT_TRUE(LogsHandle(created, " (" + rx + ")"));
    EXPECT_TRUE(LogsHandle(created, " (" + tx + ")"));
    cloud->connectRequested = false;  // a stop might wake them before the state is kDisconnecting
    ASSERT_TRUE(Reaches(ConnState::kIdle));
    kCloudTransport.Stop();
    EXPECT_TRUE(log_.Has("[" + rx + "] not online anymore. exiting."));
    EXPECT_TRUE(log_.Has("[" + tx + "] not online anymore. exiting."));
    const std::string closing = "[ConnectionThread] Closing Thread handle ";
    EXPECT_TRUE(LogsHandle(closing, " (CloudTxThread)"));
    EXPECT_TRUE(LogsHandle(closing, " (CloudRxThread)"));
    EXPECT_TRUE(LogsHandle("[CloudStop] Closing Thread handle ", " (CloudConnectThread)"));
}

TEST_P(CloudThreads, LogsThatTheConnectionThreadCannotBeStarted) {
    {
        const ThreadStartFault fault("Tarvik CloudConnectThread", kNoThreads);
        kCloudTransport.Start();
    }
    EXPECT_TRUE(log_.Has("[Cloud] Failed to start connect thread"));
    EXPECT_FALSE(cloud->running);
    EXPECT_TRUE(Connect());
}

TEST_P(CloudThreads, AttemptFailsIfACarrierThreadCannotBeStarted) {
    for (const char* thread : {"RX", "TX"}) {
        const std::string name = SystemNameFor(thread[0] == 'R' ? "RxThread" : "TxThread");
        const ThreadStartFault fault(name.c_str(), kNoThreads);
        kCloudTransport.Start();
        const std::string text = std::string("Failed to create ") + thread + " thread";
        EXPECT_TRUE(Logs(GetParam() ? text + ": 11" : "[Cloud] " + text));
        EXPECT_TRUE(Logs("[Cloud] Connect failed, retry"));
        kCloudTransport.Stop();
        EXPECT_EQ(network_.OpenLinks(), 0u);
    }
    EXPECT_TRUE(Connect());
}

TEST_P(CloudThreads, ConnectingEndsWhenNoLongerRequested) {
    ASSERT_TRUE(Connect());
    cloud->connectRequested = false;
    ASSERT_TRUE(Reaches(ConnState::kIdle));
    cloud->connState = ConnState::kConnecting;  // its state for one pause before it connects
    EXPECT_TRUE(Logs("[Cloud] Cancel connect"));
    EXPECT_TRUE(Reaches(ConnState::kIdle));
}

TEST_P(CloudThreads, ReconnectionWaitsForTheTransmitThread) {
    ASSERT_TRUE(Connect());
    ASSERT_TRUE(network_.EventuallySends(kTypeLogn));
    network_.HoldSending(true);
    SendSomething();
    EXPECT_TRUE(log_.Has("[Cloud] CloudAddressDevice"));
    ASSERT_TRUE(network_.EventuallyHolds());
    network_.HangUp();
    EXPECT_TRUE(Logs("[Cloud] RxThread exited. Reconnecting."));
    EXPECT_TRUE(Logs("[Cloud] Waiting for CloudTxThread to exit", 2));
    EXPECT_EQ(network_.Connections(), 1u);
    network_.HoldSending(false);
    EXPECT_TRUE(Logs("[Cloud] Threads exited. Done."));
    EXPECT_TRUE(Eventually([&] { return network_.Connections() == 2; }));
}

TEST_P(CloudThreads, ReconnectionWaitsForTheReceiveThread) {
    ASSERT_TRUE(Connect());
    ASSERT_TRUE(network_.EventuallySends(kTypeLogn));
    network_.HoldReading(true);
    network_.Deliver(Login("\x01\x02\x03\x04\x05\x06", "held"));
    ASSERT_TRUE(network_.EventuallyHolds());
    network_.FailSending();
    SendSomething();
    EXPECT_TRUE(Logs("[Cloud] TxThread exited. Reconnecting."));
    EXPECT_TRUE(Logs("[Cloud] Waiting for CloudRxThread to exit", 2));
    EXPECT_EQ(network_.Connections(), 1u);
    network_.HoldReading(false);
    EXPECT_TRUE(Logs("[Cloud] Threads exited. Done."));
    EXPECT_EQ(log_.Has("[WebSocketReceiveFull] Stopping state detected"), GetParam());
    EXPECT_TRUE(Eventually([&] { return network_.Connections() == 2; }));
}

}  // namespace
}  // namespace tarvik::test
