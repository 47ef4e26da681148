// The WebSocket client on WinHTTP: what it asks of the service, and what it waits for in the end.
#include <winsock2.h>
// The next two need it first.
#include <mstcpip.h>
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>

#include "transport/cloud/websocket_client.h"
#include "unit/cloud/adjusted_limits.h"
#include "unit/cloud/fake_winhttp.h"
#include "unit/faults/keep_loaded_fault.h"
#include "unit/test_support.h"

namespace {

std::atomic<HANDLE> watched_handle{nullptr};  // null once it is closed

BOOL WINAPI NoteClosing(HANDLE handle) {
    HANDLE watched = handle;
    watched_handle.compare_exchange_strong(watched, nullptr);
    static const auto system = reinterpret_cast<decltype(&NoteClosing)>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "CloseHandle")));
    return system(handle);
}

}  // namespace

// The linker takes it for the import.
extern "C" {
extern decltype(&NoteClosing) __imp_CloseHandle;
decltype(&NoteClosing) __imp_CloseHandle = NoteClosing;
}

namespace tarvik::test {
namespace {

constexpr DWORD kTcpKeepAlive = 152;
constexpr DWORD kFastFallback = 140;

class WinHttpClient : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(client_, nullptr); }

    bool Connect() {
        const WebSocketTarget target = {
            .server = "relay.test",
            .port = 80,
            .endpoint = "/",
            .secure = false,
            .check_certificate = true,
            .use_proxy = false,
            .proxy = "",
            .user_agent = "test",
        };
        return ConnectWebSocket(client_, target,
                                {[](void*, WebSocketStep, std::uint32_t) {}, nullptr});
    }
    void WaitAtMost(std::int32_t ms) { limits_->websocket_closing_ms = ms; }
    int KeptLoaded() const { return KeepLoadedCalls() - kept_before_; }
    int References() const { return LibraryReferences() - references_before_; }

    AdjustedLimits limits_;
    FakeWinHttp service_;
    WebSocketClient* client_ = CreateWebSocketClient();
    int kept_before_ = KeepLoadedCalls();
    int references_before_ = LibraryReferences();
};

TEST_F(WinHttpClient, ClosingWaitsUntilTheLastCallbackHasReturned) {
    WaitAtMost(10'000);
    ASSERT_TRUE(Connect());
    std::atomic<bool> returned{false};
    Thread service([&] {
        EXPECT_TRUE(service_.EventuallyClosesSession());
        service_.ReportClosings();
        SleepMs(50);  // the callback's thread stands still on its way out of the library
        returned = true;
        EXPECT_TRUE(service_.SetUnloadNotice());
    });
    CloseWebSocket(client_, nullptr);
    EXPECT_TRUE(returned);
    EXPECT_EQ(KeptLoaded(), 0);
}

TEST_F(WinHttpClient, LibraryStaysLoadedUntilALateNoticeAndNothingIsLeftThen) {
    WaitAtMost(20);
    ASSERT_TRUE(Connect());
    const HANDLE notice = service_.UnloadNotice();
    watched_handle = notice;
    Thread service([&] {
        EXPECT_TRUE(service_.EventuallyClosesSession());
        service_.ReportClosings();
    });
    CloseWebSocket(client_, nullptr);
    EXPECT_EQ(References(), 1);
    service.Join();
    EXPECT_EQ(watched_handle, notice) << "the event is closed, though the service may set it";
    EXPECT_TRUE(service_.SetUnloadNotice());
    EXPECT_TRUE(Eventually([&] { return References() == 0; }));
    EXPECT_EQ(watched_handle, nullptr) << "the event is not closed";
    EXPECT_EQ(KeptLoaded(), 0);
}

TEST_F(WinHttpClient, WithoutTheNoticeClosingWaitsForTheHandlesReports) {
    WaitAtMost(10'000);
    service_.RefuseOption(WINHTTP_OPTION_UNLOAD_NOTIFY_EVENT);
    ASSERT_TRUE(Connect());
    std::atomic<bool> reported{false};
    Thread service([&] {
        EXPECT_TRUE(service_.EventuallyClosesSession());
        SleepMs(50);
        reported = true;
        service_.ReportClosings();
    });
    CloseWebSocket(client_, nullptr);
    EXPECT_TRUE(reported);
    EXPECT_EQ(KeptLoaded(), 0);
}

TEST_F(WinHttpClient, WithoutTheNoticeLibraryStaysLoadedForAHandleThatDoesNotReport) {
    WaitAtMost(20);
    service_.RefuseOption(WINHTTP_OPTION_UNLOAD_NOTIFY_EVENT);
    ASSERT_TRUE(Connect());
    CloseWebSocket(client_, nullptr);
    EXPECT_EQ(KeptLoaded(), 1);
    service_.ReportClosings();  // the client has been kept for it
}

TEST_F(WinHttpClient, WithoutASessionClosingWaitsForNothing) {
    WaitAtMost(60'000);
    service_.RefuseSession();
    EXPECT_FALSE(Connect());
    CloseWebSocket(client_, nullptr);
    EXPECT_EQ(KeptLoaded(), 0);
}

TEST_F(WinHttpClient, AsksForProbesAndForBothAddressFamiliesAtOnce) {
    WaitAtMost(0);
    ASSERT_TRUE(Connect());
    tcp_keepalive probes{};
    ASSERT_EQ(service_.Option(kTcpKeepAlive).size(), sizeof probes);
    std::memcpy(&probes, service_.Option(kTcpKeepAlive).data(), sizeof probes);
    EXPECT_EQ(probes.onoff, 1u);
    EXPECT_EQ(probes.keepalivetime, 20'000u);
    EXPECT_EQ(probes.keepaliveinterval, 1'000u);
    EXPECT_EQ(service_.Option(kFastFallback), (std::vector<std::uint8_t>{1, 0, 0, 0}));
    CloseWebSocket(client_, nullptr);
    service_.ReportClosings();
}

TEST_F(WinHttpClient, ConnectsIfTheServiceHasNoneOfTheseOptions) {
    WaitAtMost(0);
    service_.RefuseOption(WINHTTP_OPTION_UNLOAD_NOTIFY_EVENT);
    service_.RefuseOption(kTcpKeepAlive);
    service_.RefuseOption(kFastFallback);
    EXPECT_TRUE(Connect());
    CloseWebSocket(client_, nullptr);
    service_.ReportClosings();
}

}  // namespace
}  // namespace tarvik::test
