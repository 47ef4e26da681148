#include "support/cop_trace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "platform/process.h"
#include "platform/thread.h"
#include "platform/tick.h"
#include "support/log.h"
#include "support/memory.h"
#include "unit/faults/debug_output_fault.h"
#include "unit/faults/files_fault.h"
#include "unit/faults/heap_fault.h"
#include "unit/test_support.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using test::DebugOutputCapture;
using test::Eventually;
using test::SetVariable;

constexpr const char* kSwitches[] = {"DPDU_COPTRACE_DISABLE", "DPDU_COPTRACE_DISABLE_CLOUD_PKTS",
                                     "DPDU_COPTRACE_CLOUD_PKTS_META_ONLY"};
constexpr TraceCop kCop = {1, 22, 333};

// Each test has its own folder for files; at most one session runs.
class CopTrace : public testing::Test {
protected:
    ~CopTrace() override {
        StopCopTrace();
        for (const char* name : kSwitches)
            SetVariable(name, nullptr);
    }

    std::vector<fs::path> Files() const {
        std::vector<fs::path> files;
        for (const auto& entry : fs::directory_iterator(folders_.Temp())) {
            files.push_back(entry.path());
        }
        std::sort(files.begin(), files.end());
        return files;
    }
    std::string OnlyFile() const { return Files().size() == 1 ? Files()[0].string() : ""; }
    std::string Content() const { return test::ReadFile(OnlyFile()); }

    static std::vector<std::string> SplitLines(const std::string& text) {
        std::vector<std::string> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line + "\n");
        return lines;
    }
    std::vector<std::string> StopAndRead() {
        StopCopTrace();
        return SplitLines(Content());
    }

    // Runs a session in which `report` is called and returns the session's lines, without log_start
    // and log_stop, in one text.
    template <typename Report>
    std::string Trace(Report report) {
        StartCopTrace();
        report();
        StopCopTrace();
        const std::string text = Content();
        fs::remove(OnlyFile());
        const std::size_t first = text.find('\n') + 1;
        const std::size_t last = text.rfind("{\"seq\":");
        return text.substr(first, last - first);
    }

    test::TestFolders folders_;
};

// The common start of a line, before the fields of the event.
std::string PrefixOf(const std::string& line, const std::string& event) {
    const std::string end = ",\"ev\":\"" + event + "\"";
    const std::size_t at = line.find(end);
    return at == std::string::npos ? "(no " + event + ")" : line.substr(0, at + end.size());
}

// What printf would have made of the event, in a buffer of `size`.
template <typename... Fields>
std::string Printed(std::size_t size, const char* format, const std::string& prefix,
                    Fields... fields) {
    std::vector<char> buffer(size);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::snprintf(buffer.data(), size, format, prefix.c_str(), fields...);
#pragma GCC diagnostic pop
    return buffer.data();
}

#define EXPECT_EVENT(line, event, format, ...)                                               \
    do {                                                                                     \
        const std::string found = (line);                                                    \
        EXPECT_EQ(found,                                                                     \
                  Printed(1024, format, PrefixOf(found, event) __VA_OPT__(, ) __VA_ARGS__)); \
    } while (false)

// --- start and stop ---

TEST_F(CopTrace, StartsAFileWhoseFirstLineIsLogStartAndWhoseLastIsLogStop) {
    const DebugOutputCapture debug;
    StartCopTrace();
    EXPECT_TRUE(CopTraceActive());
    const std::vector<std::string> lines = StopAndRead();
    EXPECT_FALSE(CopTraceActive());
    ASSERT_EQ(lines.size(), 2u);
    unsigned long long ts_us = 0;
    unsigned long pid = 0;
    unsigned long tid = 0;
    unsigned flush_ms = 0;
    long session = 0;
    EXPECT_EQ(std::sscanf(lines[0].c_str(),
                          "{\"seq\":1,\"ts_us\":%llu,\"pid\":%lu,\"tid\":%lu,\"ev\":\"log_start\","
                          "\"flush_ms\":%u,\"session\":%ld}\n",
                          &ts_us, &pid, &tid, &flush_ms, &session),
              5);
    char expected[512];
    FormatText(expected, sizeof expected,
               "{\"seq\":%ld,\"ts_us\":%llu,\"pid\":%lu,\"tid\":%lu,\"ev\":\"log_start\","
               "\"flush_ms\":%u,\"session\":%ld}\n",
               1l, ts_us, static_cast<unsigned long>(OsProcessId()),
               static_cast<unsigned long>(OsCurrentThreadId()), 500u, session);
    EXPECT_EQ(lines[0], expected);
    EXPECT_EQ(fs::path(OnlyFile()).filename().string(),
              "dpdu_coptrace_" + std::to_string(pid) + "_" + std::to_string(session) + ".jsonl");
    EXPECT_EQ(std::sscanf(lines[1].c_str(), "{\"seq\":2,\"ts_us\":%llu", &ts_us), 1);
    FormatText(expected, sizeof expected,
               "{\"seq\":%ld,\"ts_us\":%llu,\"pid\":%lu,\"tid\":%lu,\"ev\":\"log_stop\"}\n", 2l,
               ts_us, pid, tid);
    EXPECT_EQ(lines[1], expected);
    EXPECT_EQ(debug.Text(),
              "[CopLog] Logging is ENABLED\n[CopLog] Creating trace file: " + OnlyFile() + "\n");
}

TEST_F(CopTrace, SecondStartOfARunningTraceDoesNothing) {
    StartCopTrace();
    StartCopTrace();
    EXPECT_EQ(StopAndRead().size(), 2u);
}

TEST_F(CopTrace, StartAfterAStopIsANewSessionWithItsOwnFileAndSequenceFromOne) {
    StartCopTrace();
    TraceCopCancelReq(kCop);
    StopCopTrace();
    const std::string first = OnlyFile();
    StartCopTrace();
    TraceCopCancelReq(kCop);
    StopCopTrace();
    ASSERT_EQ(Files().size(), 2u);
    for (const fs::path& file : Files()) {
        const std::vector<std::string> lines = SplitLines(test::ReadFile(file));
        ASSERT_EQ(lines.size(), 3u);
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(lines[i].find("{\"seq\":" + std::to_string(i + 1) + ","), 0u);
        }
    }
}

TEST_F(CopTrace, StopWithoutAStartDoesNothing) {
    StopCopTrace();
    EXPECT_TRUE(Files().empty());
}

TEST_F(CopTrace, LeftoverFileOfTheSameNameRaisesTheSessionNumber) {
    StartCopTrace();
    StopCopTrace();
    const std::string name = fs::path(OnlyFile()).filename().string();
    const std::size_t underscore = name.rfind('_') + 1;
    const int session = std::stoi(name.substr(underscore));
    const auto path_of = [&](int number) {
        return folders_.Temp() / (name.substr(0, underscore) + std::to_string(number) + ".jsonl");
    };
    test::WriteFile(path_of(session + 1), "left over");
    StartCopTrace();
    StopCopTrace();
    EXPECT_EQ(test::ReadFile(path_of(session + 1)), "left over");
    EXPECT_NE(
        test::ReadFile(path_of(session + 2)).find("\"session\":" + std::to_string(session + 2)),
        std::string::npos);
}

TEST_F(CopTrace, UnwritableFolderSwitchesTheTraceOff) {
    const std::string missing = (folders_.Temp() / "no" / "").string();
    test::ReportTempPath(missing, static_cast<std::uint32_t>(missing.size()));
    const MemoryUse before = LiveMemory();
    StartCopTrace();
    EXPECT_FALSE(CopTraceActive());
    TraceCopCancelReq(kCop);
    StopCopTrace();
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
}

TEST_F(CopTrace, EveryReportDoesNothingWhileTheTraceIsOff) {
    const DebugOutputCapture debug;
    TraceCopStart(kCop, 1, "x", 1, 1, 1);
    EXPECT_EQ(TraceNotifyBegin(kCop, 1, 2), 0u);
    TraceCommReqSent({});
    TraceCommResReceived(1, 2, "x", 1);
    TraceBusyReceived(1, "x", 1);
    TraceCloudPkt("rx", "wire", "CREQ", 4);
    EXPECT_TRUE(Files().empty());
    EXPECT_EQ(debug.Text(), "");
}

TEST_F(CopTrace, StopReturnsAllMemory) {
    const MemoryUse before = LiveMemory();
    StartCopTrace();
    for (int i = 0; i < 1'000; ++i)
        TraceCopCancelReq(kCop);
    StopCopTrace();
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
    EXPECT_EQ(LiveMemory().bytes, before.bytes);
}

// --- environment ---

TEST_F(CopTrace, DisableSwitchCreatesNoFile) {
    for (const char* value : {"1", "123456789012345", "true", "TRUE", "yes", "Yes"}) {
        SetVariable("DPDU_COPTRACE_DISABLE", value);
        const DebugOutputCapture debug;
        StartCopTrace();
        EXPECT_FALSE(CopTraceActive()) << value;
        EXPECT_EQ(debug.Text(), "[CopLog] Logging is DISABLED via DPDU_COPTRACE_DISABLE\n");
    }
    EXPECT_TRUE(Files().empty());
}

TEST_F(CopTrace, OtherValuesOfTheDisableSwitchDoNotCount) {
    for (const char* value : {"0", "no", "truest", "yes!", " 1", "1234567890123456"}) {
        SetVariable("DPDU_COPTRACE_DISABLE", value);
        StartCopTrace();
        EXPECT_TRUE(CopTraceActive()) << value;
        StopCopTrace();
    }
}

TEST_F(CopTrace, CloudPacketsCanBeSwitchedOff) {
    SetVariable("DPDU_COPTRACE_DISABLE_CLOUD_PKTS", "1");
    EXPECT_EQ(Trace([] { TraceCloudPkt("rx", "wire", "QERC----", 8); }), "");
}

TEST_F(CopTrace, SwitchesAreReadOncePerStart) {
    const std::string text = Trace([] {
        SetVariable("DPDU_COPTRACE_DISABLE_CLOUD_PKTS", "1");
        TraceCloudPkt("rx", "wire", "QERC----", 8);
    });
    EXPECT_NE(text.find("cloud_pkt"), std::string::npos);
    EXPECT_EQ(Trace([] { TraceCloudPkt("rx", "wire", "QERC----", 8); }), "");
}

// --- events ---

TEST_F(CopTrace, CommonStartNamesSequenceTimesProcessThreadAndEvent) {
    const std::uint64_t before_us = PerformanceCounter() / (PerformanceFrequency() / 1'000'000u);
    test::FakeTick tick(123'456);
    const std::string line = Trace([] { TraceCopCancelReq(kCop); });
    const std::uint64_t after_us = PerformanceCounter() / (PerformanceFrequency() / 1'000'000u);
    long seq = 0;
    unsigned long long ts_us = 0;
    ASSERT_EQ(std::sscanf(line.c_str(), "{\"seq\":%ld,\"ts_us\":%llu", &seq, &ts_us), 2);
    EXPECT_EQ(seq, 2);
    EXPECT_TRUE(before_us <= ts_us && ts_us <= after_us);
    char expected[256];
    FormatText(expected, sizeof expected,
               "{\"seq\":%ld,\"ts_us\":%llu,\"tick_ms\":%llu,\"pid\":%lu,\"tid\":%lu,\"ev\":\"%s\"",
               seq, ts_us, 123'456ull, static_cast<unsigned long>(OsProcessId()),
               static_cast<unsigned long>(OsCurrentThreadId()), "cop_cancel_req");
    EXPECT_EQ(PrefixOf(line, "cop_cancel_req"), expected);
}

TEST_F(CopTrace, CopStart) {
    EXPECT_EVENT(
        Trace([] { TraceCopStart(kCop, 0x8004, "\x22\xF1\x90", 3, 1, 0xFFFFFFFF); }), "cop_start",
        "%s,\"hMod\":%u,\"hCLL\":%u,\"hCoP\":%u,\"copType\":%u,\"tx_len\":%u,\"tx_hex\":\"%s\","
        "\"tx_hex_len\":%u,\"tx_trunc\":%s,\"numSend\":%u,\"numRecv\":%u}\n",
        1u, 22u, 333u, 0x8004u, 3u, "22f190", 3u, "false", 1u, 0xFFFFFFFFu);
    EXPECT_EVENT(
        Trace([] { TraceCopStart(kCop, 1, nullptr, 0, 0, 0); }), "cop_start",
        "%s,\"hMod\":%u,\"hCLL\":%u,\"hCoP\":%u,\"copType\":%u,\"tx_len\":%u,\"tx_hex\":\"%s\","
        "\"tx_hex_len\":%u,\"tx_trunc\":%s,\"numSend\":%u,\"numRecv\":%u}\n",
        1u, 22u, 333u, 1u, 0u, "", 0u, "false", 0u, 0u);
}

TEST_F(CopTrace, RequestOf600BytesIsCutAt1023Characters) {
    const std::string request(600, '\x5a');
    const std::string line = Trace([&] { TraceCopStart(kCop, 1, request.data(), 600, 1, 1); });
    EXPECT_EQ(line.size(), 1'023u);
    std::string hex;
    for (int i = 0; i < 512; ++i)
        hex += "5a";
    const std::string prefix = PrefixOf(line, "cop_start");
    EXPECT_EQ(line, Printed(1024,
                            "%s,\"hMod\":%u,\"hCLL\":%u,\"hCoP\":%u,\"copType\":%u,\"tx_len\":%u,"
                            "\"tx_hex\":\"%s\",\"tx_hex_len\":%u,\"tx_trunc\":%s}\n",
                            prefix, 1u, 22u, 333u, 1u, 600u, hex.c_str(), 512u, "true"));
}

// A request whose hex text fits with everything after it.
TEST_F(CopTrace, RequestOf300BytesIsWhole) {
    const std::string request(300, '\x5a');
    const std::string line = Trace([&] { TraceCopStart(kCop, 1, request.data(), 300, 1, 1); });
    EXPECT_NE(line.find("\"tx_hex_len\":300,\"tx_trunc\":false,\"numSend\":1,\"numRecv\":1}\n"),
              std::string::npos);
}

TEST_F(CopTrace, CopSendRecvMeta) {
    EXPECT_EVENT(
        Trace([] {
            TraceCopSendRecvMeta(kCop, {true, 1, 2, 3, 4, 5, 6, 7, 8});
        }),
        "cop_sendrecv_meta",
        "%s,\"hMod\":%u,\"hCLL\":%u,\"hCoP\":%u,\"raw\":%s,\"reqAddrMode\":%u,"
        "\"canFuncReqId\":%u,\"canFuncReqFormat\":%u,\"canPhysReqId\":%u,\"canPhysReqFormat\":%u,"
        "\"canRespUSDTId\":%u,\"canRespUSDTFormat\":%u,\"rc78\":%u}\n",
        1u, 22u, 333u, "true", 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u);
}

struct Expected {
    std::vector<TraceExpectedResponse> items;
    static TraceExpectedResponse Item(const void* context, std::uint32_t index) {
        return static_cast<const Expected*>(context)->items[index];
    }
    void Report() const {
        TraceCopExpectedResponses(kCop, static_cast<std::uint32_t>(items.size()), &Item, this);
    }
};

TEST_F(CopTrace, CopExpectedResponses) {
    const std::uint32_t ids[] = {1, 0xAABBCCDD};
    const Expected expected{
        {{7, 0, "\x62\xF1", "\xFF\xFE", 2, ids, 2}, {8, 1, nullptr, nullptr, 0, nullptr, 0}}};
    const std::string line = Trace([&] { expected.Report(); });
    const std::string prefix = PrefixOf(line, "cop_expected_responses");
    const char* item =
        "%s{\"acc\":%u,\"type\":%u,\"pat\":\"%s\",\"patLen\":%u,\"patTr\":%s,\"mask\":\"%s\","
        "\"maskLen\":%u,\"maskTr\":%s,\"uniq\":\"%s\",\"uniqLen\":%u,\"uniqTr\":%s}";
    EXPECT_EQ(line, Printed(8192, "%s,\"hMod\":%u,\"hCLL\":%u,\"hCoP\":%u,\"count\":%u,\"items\":[",
                            prefix, 1u, 22u, 333u, 2u) +
                        Printed(8192, item, "", 7u, 0u, "62f1", 2u, "false", "fffe", 2u, "false",
                                "01000000ddccbbaa", 8u, "false") +
                        Printed(8192, item, ",", 8u, 1u, "", 0u, "false", "", 0u, "false", "", 0u,
                                "false") +
                        Printed(8192, "%s],\"trunc\":%s}\n", "", "false"));
}

TEST_F(CopTrace, NoExpectedResponsesAreAnEmptyArray) {
    const std::string line = Trace([] { Expected().Report(); });
    EXPECT_NE(line.find("\"count\":0,\"items\":[],\"trunc\":false}\n"), std::string::npos);
}

TEST_F(CopTrace, ExpectedResponsesThatDoNotFitAreLeftOutWholeAndTheLineSaysSo) {
    const std::string bytes(600, '\x11');
    Expected expected;
    expected.items.assign(5, {1, 0, bytes.data(), bytes.data(), 600, nullptr, 0});
    const std::string line = Trace([&] { expected.Report(); });
    EXPECT_LT(line.size(), 8'192u);
    EXPECT_NE(line.find("\"count\":5,"), std::string::npos);
    EXPECT_TRUE(line.ends_with("\"uniqTr\":false}],\"trunc\":true}\n"));
    EXPECT_NE(line.find("\"patLen\":512,\"patTr\":true"), std::string::npos);
    std::size_t items = 0;
    for (std::size_t at = line.find("{\"acc\""); at != std::string::npos; ++items) {
        at = line.find("{\"acc\"", at + 1);
    }
    EXPECT_EQ(items, 3u);
}

TEST_F(CopTrace, CopEcuCandidate) {
    EXPECT_EVENT(Trace([] { TraceCopEcuCandidate(kCop, 3, 4, 0x7E0, 0x7E8); }), "cop_ecu_candidate",
                 "%s,\"hMod\":%u,\"hCLL\":%u,\"hCoP\":%u,\"idx\":%u,\"uniq\":%u,"
                 "\"canPhysReqId\":%u,\"canRespUSDTId\":%u}\n",
                 1u, 22u, 333u, 3u, 4u, 0x7E0u, 0x7E8u);
}

TEST_F(CopTrace, CopCancelRequestAndResult) {
    EXPECT_EVENT(Trace([] { TraceCopCancelReq(kCop); }), "cop_cancel_req",
                 "%s,\"hMod\":%u,\"hCLL\":%u,\"hCoP\":%u}\n", 1u, 22u, 333u);
    EXPECT_EVENT(Trace([] { TraceCopCancelResult(kCop, true, 0x8011, false); }),
                 "cop_cancel_result",
                 "%s,\"hMod\":%u,\"hCLL\":%u,\"hCoP\":%u,\"found\":%s,\"last_status\":%u,"
                 "\"abort_set\":%s}\n",
                 1u, 22u, 333u, "true", 0x8011u, "false");
}

TEST_F(CopTrace, CopStateErrorAndFree) {
    EXPECT_EVENT(Trace([] { TraceCopState(kCop, 1, 2, 5'000'000'000ull); }), "cop_state",
                 "%s,\"hMod\":%u,\"hCLL\":%u,\"hCoP\":%u,\"from\":%u,\"to\":%u,\"dur_ms\":%llu}\n",
                 1u, 22u, 333u, 1u, 2u, 5'000'000'000ull);
    EXPECT_EVENT(Trace([] { TraceCopError(kCop, 257); }), "cop_error",
                 "%s,\"hMod\":%u,\"hCLL\":%u,\"hCoP\":%u,\"err\":%u}\n", 1u, 22u, 333u, 257u);
    EXPECT_EVENT(Trace([] { TraceCopFree(kCop, 9); }), "cop_free",
                 "%s,\"hMod\":%u,\"hCLL\":%u,\"hCoP\":%u,\"final\":%u}\n", 1u, 22u, 333u, 9u);
}

TEST_F(CopTrace, CopRx) {
    EXPECT_EVENT(Trace([] { TraceCopRx(kCop, 5, 6, "\x62\x00\xff", 3); }), "cop_rx",
                 "%s,\"hMod\":%u,\"hCLL\":%u,\"hCoP\":%u,\"uniq\":%u,\"acc\":%u,\"rx_len\":%u,"
                 "\"rx_hex\":\"%s\",\"rx_hex_len\":%u,\"rx_trunc\":%s}\n",
                 1u, 22u, 333u, 5u, 6u, 3u, "6200ff", 3u, "false");
}

TEST_F(CopTrace, NotifyBeginAndEnd) {
    std::uint64_t t0_us = 0;
    const std::vector<std::string> lines = SplitLines(Trace([&] {
        t0_us = TraceNotifyBegin(kCop, 0x1300, 2);
        TraceNotifyEnd(kCop, 0x1300, 2, t0_us);
    }));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_GT(t0_us, 0u);
    EXPECT_EVENT(lines[0], "notify_begin",
                 "%s,\"hMod\":%u,\"hCLL\":%u,\"hCoP\":%u,\"itemType\":%u,\"evtType\":%u,"
                 "\"t0_us\":%llu}\n",
                 1u, 22u, 333u, 0x1300u, 2u, static_cast<unsigned long long>(t0_us));
    const std::size_t at = lines[1].find("\"t1_us\":");
    ASSERT_NE(at, std::string::npos);
    const unsigned long long t1_us = std::stoull(lines[1].substr(at + 8));
    EXPECT_GE(t1_us, t0_us);
    EXPECT_EVENT(lines[1], "notify_end",
                 "%s,\"hMod\":%u,\"hCLL\":%u,\"hCoP\":%u,\"itemType\":%u,\"evtType\":%u,"
                 "\"t0_us\":%llu,\"t1_us\":%llu,\"dur_us\":%llu}\n",
                 1u, 22u, 333u, 0x1300u, 2u, static_cast<unsigned long long>(t0_us), t1_us,
                 t1_us - static_cast<unsigned long long>(t0_us));
}

TEST_F(CopTrace, NotifyEndWithoutItsBeginIsNotWritten) {
    const std::uint64_t t0_us = TraceNotifyBegin(kCop, 0x1300, 2);  // not switched on yet
    EXPECT_EQ(t0_us, 0u);
    EXPECT_EQ(Trace([&] { TraceNotifyEnd(kCop, 0x1300, 2, t0_us); }), "");
}

TEST_F(CopTrace, ItemDestroy) {
    EXPECT_EVENT(Trace([] { TraceItemDestroy(0x1302, 12); }), "item_destroy",
                 "%s,\"itemType\":%u,\"hCoP\":%u}\n", 0x1302u, 12u);
}

TEST_F(CopTrace, CommReqSentIsAlsoDebuggerOutput) {
    const DebugOutputCapture debug;
    EXPECT_EVENT(
        Trace([] {
            TraceCommReqSent({9, "\x10\x03", 2, 0x7DF, 0x7E0, 0x7E8, 50, 1});
        }),
        "comm_req_sent",
        "%s,\"req_id\":%u,\"tx_len\":%u,\"tx_hex\":\"%s\",\"tx_hex_len\":%u,\"tx_trunc\":%s,"
        "\"can_id_tx_func\":%u,\"can_id_tx_phys\":%u,\"can_id_rx\":%u,\"timeout\":%u,"
        "\"transport\":%u}\n",
        9u, 2u, "1003", 2u, "false", 0x7DFu, 0x7E0u, 0x7E8u, 50u, 1u);
    EXPECT_NE(debug.Text().find("[CopLog] COMM_REQ sent\n"), std::string::npos);
}

TEST_F(CopTrace, CommResReceivedIsAlsoDebuggerOutput) {
    const DebugOutputCapture debug;
    EXPECT_EVENT(Trace([] { TraceCommResReceived(9, 40, "\x50\x03", 2); }), "comm_res_received",
                 "%s,\"req_id\":%u,\"wait_time\":%u,\"rx_len\":%u,\"rx_hex\":\"%s\","
                 "\"rx_hex_len\":%u,\"rx_trunc\":%s}\n",
                 9u, 40u, 2u, "5003", 2u, "false");
    EXPECT_NE(debug.Text().find("[CopLog] COMM_RES received\n"), std::string::npos);
}

TEST_F(CopTrace, BusyReceivedIsAlsoDebuggerOutput) {
    const DebugOutputCapture debug;
    EXPECT_EVENT(Trace([] { TraceBusyReceived(9, "bus is off", 10); }), "busy_received",
                 "%s,\"req_id\":%u,\"reason\":\"%s\",\"reason_len\":%u}\n", 9u, "bus is off", 10u);
    EXPECT_NE(debug.Text().find("[CopLog] BUSY received\n"), std::string::npos);
}

TEST_F(CopTrace, BusyWithoutTextHasANullReason) {
    EXPECT_EVENT(Trace([] { TraceBusyReceived(9, "", 0); }), "busy_received",
                 "%s,\"req_id\":%u,\"reason\":null,\"reason_len\":0}\n", 9u);
}

TEST_F(CopTrace, BusyReasonWithAQuoteAndALineFeedIsEscaped) {
    EXPECT_EVENT(Trace([] { TraceBusyReceived(9, "a \"b\"\nc", 7); }), "busy_received",
                 "%s,\"req_id\":%u,\"reason\":\"%s\",\"reason_len\":%u}\n", 9u, "a \\\"b\\\"\\nc",
                 7u);
}

TEST_F(CopTrace, BusyReasonIsCutAt510Characters) {
    const std::string reason(600, 'r');
    EXPECT_EVENT(Trace([&] { TraceBusyReceived(9, reason.data(), 600); }), "busy_received",
                 "%s,\"req_id\":%u,\"reason\":\"%s\",\"reason_len\":%u}\n", 9u,
                 reason.substr(0, 510).c_str(), 600u);
}

constexpr char kCloudFormat[] =
    "%s,\"dir\":\"%s\",\"stage\":\"%s\",\"type\":%u,\"type_str\":\"%s\",\"len\":%u,\"hex\":\"%s\","
    "\"hex_len\":%u,\"trunc\":%s}\n";

TEST_F(CopTrace, CloudPacketShowsItsTypeInWireOrder) {
    EXPECT_EVENT(Trace([] { TraceCloudPkt("tx", "plain", "QERC\x08\0\0\0", 8); }), "cloud_pkt",
                 kCloudFormat, "tx", "plain", 0x43524551u, "QERC", 8u, "5145524308000000", 8u,
                 "false");
}

TEST_F(CopTrace, CloudPacketWithoutAStageOrAPrintableType) {
    EXPECT_EVENT(Trace([] { TraceCloudPkt("rx", nullptr, "\x01\"\\\xff", 4); }), "cloud_pkt",
                 kCloudFormat, "rx", "?", 0xFF5C2201u, "....", 4u, "01225cff", 4u, "false");
    EXPECT_EVENT(Trace([] { TraceCloudPkt("rx", "wire", "AB", 2); }), "cloud_pkt", kCloudFormat,
                 "rx", "wire", 0x4241u, "AB..", 2u, "4142", 2u, "false");
}

TEST_F(CopTrace, CloudPacketOf512BytesFitsItsLine) {
    const std::string packet(600, 'Q');
    const std::string line = Trace([&] { TraceCloudPkt("tx", "wire", packet.data(), 600); });
    EXPECT_TRUE(line.ends_with("51\",\"hex_len\":512,\"trunc\":true}\n"));
    EXPECT_LT(line.size(), 1'400u);
}

TEST_F(CopTrace, CloudPacketWithMetaOnlyHasNoBytes) {
    SetVariable("DPDU_COPTRACE_CLOUD_PKTS_META_ONLY", "yes");
    EXPECT_EVENT(Trace([] { TraceCloudPkt("tx", "wire", "QERC\x08\0\0\0", 8); }), "cloud_pkt",
                 kCloudFormat, "tx", "wire", 0x43524551u, "QERC", 8u, "", 0u, "false");
}

TEST_F(CopTrace, Telemetry) {
    const std::string json = "{\"v\":1}";
    const TraceTelemetry report = {
        15, 1,  -2, 3,  4,   5,           6,
        7,  -1, 9,  10, -11, json.data(), static_cast<std::uint32_t>(json.size())};
    const std::string line = Trace([&] { TraceTelemetryReport(report); });
    EXPECT_EQ(
        line,
        Printed(8192,
                "%s,\"pkt_len\":%u,\"v\":%lld,\"u\":%lld,\"rt\":%lld,\"rhz\":%lld,"
                "\"tasks\":%u,\"q\":{\"cr\":%lld,\"ct\":%lld,\"can\":%lld},\"i\":{\"si\":%lld,"
                "\"mx\":%lld,\"ru\":%lld},\"tele_json_len\":%u,\"tele_json_trunc\":%s,"
                "\"tele_json\":\"%s\"}\n",
                PrefixOf(line, "telemetry"), 15u, 1ll, -2ll, 3ll, 4ll, 5u, 6ll, 7ll, -1ll, 9ll,
                10ll, -11ll, 7u, "false", "{\\\"v\\\":1}"));
}

TEST_F(CopTrace, LongTelemetryTextIsCutAndTheLineSaysSo) {
    for (const std::uint32_t length : {4096u, 4097u}) {
        const std::string json(length, 'j');
        TraceTelemetry report{};
        report.json = json.data();
        report.json_len = length;
        const std::string line = Trace([&] { TraceTelemetryReport(report); });
        const char* cut = length > 4096 ? "true" : "false";
        EXPECT_TRUE(line.ends_with("\"tele_json_len\":" + std::to_string(length) +
                                   ",\"tele_json_trunc\":" + cut + ",\"tele_json\":\"" +
                                   std::string(4096, 'j') + "\"}\n"));
    }
}

// --- buffers and flusher ---

TEST_F(CopTrace, LinesReachTheFileWhileTheTraceRuns) {
    StartCopTrace();
    TraceItemDestroy(1, 41);
    EXPECT_TRUE(Eventually([&] { return Content().find("\"hCoP\":41}") != std::string::npos; }));
    TraceItemDestroy(1, 42);
    EXPECT_TRUE(Eventually([&] { return Content().find("\"hCoP\":42}") != std::string::npos; }));
}

std::uint64_t SequenceOf(const std::string& line) { return std::stoull(line.substr(7)); }

TEST_F(CopTrace, LinesOfManyThreadsAreWholeAndTheirSequenceUnique) {
    StartCopTrace();
    constexpr int kThreads = 4;
    constexpr int kLines = 3'000;
    {
        std::vector<std::unique_ptr<test::Thread>> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.push_back(std::make_unique<test::Thread>([] {
                for (int i = 0; i < kLines; ++i)
                    TraceCopRx(kCop, 1, 2, "0123456789", 10);
            }));
        }
    }
    const std::vector<std::string> lines = StopAndRead();
    ASSERT_EQ(lines.size(), std::size_t{kThreads} * kLines + 2);
    std::set<std::uint64_t> sequence;
    for (const std::string& line : lines) {
        ASSERT_TRUE(line.ends_with("}\n")) << line;
        sequence.insert(SequenceOf(line));
    }
    EXPECT_EQ(sequence.size(), lines.size());
    EXPECT_EQ(*sequence.rbegin(), lines.size());
    EXPECT_NE(lines.back().find("log_stop"), std::string::npos);
}

TEST_F(CopTrace, ReportsThatRaceWithStopsAndStartsAreHarmless) {
    // All that the two report in a session fits into a buffer, with room for log_stop: the disk may
    // delay the flusher, and the thread that stops the session may also have to wait.
    constexpr int kMostReports = 5'000;
    std::atomic<bool> done{false};
    {
        const auto report = [&] {
            for (int left = kMostReports; !done;) {
                if (!CopTraceActive()) left = kMostReports;
                if (left == 0) {
                    std::this_thread::yield();
                    continue;
                }
                --left;
                TraceCopRx(kCop, 1, 2, "0123456789", 10);
                TraceCloudPkt("rx", "wire", "QERC", 4);
            }
        };
        test::Thread first(report);
        test::Thread second(report);
        for (int i = 0; i < 20; ++i) {
            StartCopTrace();
            TraceCopCancelReq(kCop);
            StopCopTrace();
        }
        done = true;
    }
    ASSERT_EQ(Files().size(), 20u);
    for (const fs::path& file : Files()) {
        const std::vector<std::string> lines = SplitLines(test::ReadFile(file));
        EXPECT_NE(lines.front().find("\"ev\":\"log_start\""), std::string::npos);
        EXPECT_NE(lines.back().find("\"ev\":\"log_stop\""), std::string::npos);
    }
}

TEST_F(CopTrace, LineIsDroppedWhenMemoryIsOutAndTheTraceContinues) {
    StartCopTrace();
    EXPECT_TRUE(Eventually([&] { return !Content().empty(); }));
    // Both buffers exist once each has taken a line.
    for (int i = 0; i < 2; ++i) {
        TraceItemDestroy(1, static_cast<std::uint32_t>(i));
        const std::string end = "\"hCoP\":" + std::to_string(i) + "}";
        EXPECT_TRUE(Eventually([&] { return Content().find(end) != std::string::npos; }));
    }
    const std::string large(400, 'x');
    {
        const test::FailingHeap heap;
        for (int i = 0; i < 2'000; ++i)
            TraceCopRx(kCop, 1, 2, large.data(), 400);
    }
    TraceItemDestroy(1, 99);
    const std::vector<std::string> lines = StopAndRead();
    EXPECT_NE(lines.back().find("log_stop"), std::string::npos);
    for (const std::string& line : lines)
        EXPECT_TRUE(line.ends_with("}\n"));
}

}  // namespace
}  // namespace tarvik
