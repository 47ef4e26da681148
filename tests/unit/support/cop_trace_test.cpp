#include "support/cop_trace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
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
#include "unit/faults/event_fault.h"
#include "unit/faults/files_fault.h"
#include "unit/faults/heap_fault.h"
#include "unit/faults/thread_start_fault.h"
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

// The common start of a line, before the fields of the event.
std::string PrefixOf(const std::string& line, const std::string& event) {
    const std::string end = ",\"ev\":\"" + event + "\"";
    const std::size_t at = line.find(end);
    return at == std::string::npos ? "(no " + event + ")" : line.substr(0, at + end.size());
}

// The line expected of the event: with the common start that it has, and these fields.
std::string WithFields(const std::string& line, const std::string& event,
                       const std::string& fields) {
    return PrefixOf(line, event) + "," + fields + "}\n";
}

const std::string kCopFields = R"("hMod":1,"hCLL":22,"hCoP":333)";

struct Report {
    const char* event;
    std::function<void()> make;
    std::string fields;
};

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
    fs::path OnlyFile() const { return Files().size() == 1 ? Files()[0] : fs::path(); }
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
    template <typename Body>
    std::string Trace(Body report) {
        StartCopTrace();
        report();
        StopCopTrace();
        const std::string text = Content();
        fs::remove(OnlyFile());
        const std::size_t first = text.find('\n') + 1;
        const std::size_t last = text.rfind("{\"seq\":");
        return text.substr(first, last - first);
    }

    void ExpectFields(const Report& report) {
        const std::string line = Trace(report.make);
        EXPECT_EQ(line, WithFields(line, report.event, report.fields));
    }

    test::TestFolders folders_;
};

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
    EXPECT_EQ(OnlyFile().filename().string(),
              "dpdu_coptrace_" + std::to_string(pid) + "_" + std::to_string(session) + ".jsonl");
    EXPECT_EQ(std::sscanf(lines[1].c_str(), "{\"seq\":2,\"ts_us\":%llu", &ts_us), 1);
    FormatText(expected, sizeof expected,
               "{\"seq\":%ld,\"ts_us\":%llu,\"pid\":%lu,\"tid\":%lu,\"ev\":\"log_stop\"}\n", 2l,
               ts_us, pid, tid);
    EXPECT_EQ(lines[1], expected);
    EXPECT_EQ(debug.Text(), "[CopLog] Logging is ENABLED\n[CopLog] Creating trace file: " +
                                OnlyFile().string() + "\n");
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
    const fs::path first = OnlyFile();
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
    const std::string name = OnlyFile().filename().string();
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

TEST_F(CopTrace, RefusedEventsOrThreadSwitchTheTraceOff) {
    const MemoryUse before = LiveMemory();
    {
        const test::EventFault fault;
        StartCopTrace();
    }
    EXPECT_FALSE(CopTraceActive());
    EXPECT_TRUE(Files().empty());
    {
        const test::ThreadStartFault fault("Tarvik CopTraceFlusherThread", 11);
        StartCopTrace();
    }
    EXPECT_FALSE(CopTraceActive());
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
    StartCopTrace();
    EXPECT_TRUE(CopTraceActive());
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

TEST_F(CopTrace, EachEventHasItsFieldsInOrder) {
    const Report reports[] = {
        {"cop_start", [] { TraceCopStart(kCop, 0x8004, "\x22\xF1\x90", 3, 1, 0xFFFFFFFF); },
         kCopFields + R"(,"copType":32772,"tx_len":3,"tx_hex":"22f190","tx_hex_len":3,)"
                      R"("tx_trunc":false,"numSend":1,"numRecv":4294967295)"},
        {"cop_start", [] { TraceCopStart(kCop, 1, nullptr, 0, 0, 0); },
         kCopFields + R"(,"copType":1,"tx_len":0,"tx_hex":"","tx_hex_len":0,"tx_trunc":false,)"
                      R"("numSend":0,"numRecv":0)"},
        {"cop_sendrecv_meta",
         [] {
             TraceCopSendRecvMeta(kCop, {true, 1, 2, 3, 4, 5, 6, 7, 8});
         },
         kCopFields + R"(,"raw":true,"reqAddrMode":1,"canFuncReqId":2,"canFuncReqFormat":3,)"
                      R"("canPhysReqId":4,"canPhysReqFormat":5,"canRespUSDTId":6,)"
                      R"("canRespUSDTFormat":7,"rc78":8)"},
        {"cop_ecu_candidate", [] { TraceCopEcuCandidate(kCop, 3, 4, 0x7E0, 0x7E8); },
         kCopFields + R"(,"idx":3,"uniq":4,"canPhysReqId":2016,"canRespUSDTId":2024)"},
        {"cop_cancel_req", [] { TraceCopCancelReq(kCop); }, kCopFields},
        {"cop_cancel_result", [] { TraceCopCancelResult(kCop, true, 0x8011, false); },
         kCopFields + R"(,"found":true,"last_status":32785,"abort_set":false)"},
        {"cop_state", [] { TraceCopState(kCop, 1, 2, 5'000'000'000ull); },
         kCopFields + R"(,"from":1,"to":2,"dur_ms":5000000000)"},
        {"cop_error", [] { TraceCopError(kCop, 257); }, kCopFields + R"(,"err":257)"},
        {"cop_free", [] { TraceCopFree(kCop, 9); }, kCopFields + R"(,"final":9)"},
        {"cop_rx", [] { TraceCopRx(kCop, 5, 6, "\x62\x00\xff", 3); },
         kCopFields + R"(,"uniq":5,"acc":6,"rx_len":3,"rx_hex":"6200ff","rx_hex_len":3,)"
                      R"("rx_trunc":false)"},
        {"item_destroy", [] { TraceItemDestroy(0x1302, 12); }, R"("itemType":4866,"hCoP":12)"},
    };
    for (const Report& report : reports)
        ExpectFields(report);
}

TEST_F(CopTrace, RequestOf600BytesIsCutAt1023Characters) {
    const std::string request(600, '\x5a');
    const std::string line = Trace([&] { TraceCopStart(kCop, 1, request.data(), 600, 1, 1); });
    EXPECT_EQ(line.size(), 1'023u);
    std::string hex;
    for (int i = 0; i < 512; ++i)
        hex += "5a";
    EXPECT_EQ(line, WithFields(line, "cop_start",
                               kCopFields + R"(,"copType":1,"tx_len":600,"tx_hex":")" + hex +
                                   R"(","tx_hex_len":512,"tx_trunc":true)")
                        .substr(0, 1'023));
}

// A request whose hex text fits with everything after it.
TEST_F(CopTrace, RequestOf300BytesIsWhole) {
    const std::string request(300, '\x5a');
    const std::string line = Trace([&] { TraceCopStart(kCop, 1, request.data(), 300, 1, 1); });
    EXPECT_NE(line.find("\"tx_hex_len\":300,\"tx_trunc\":false,\"numSend\":1,\"numRecv\":1}\n"),
              std::string::npos);
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
    EXPECT_EQ(
        line,
        WithFields(line, "cop_expected_responses",
                   kCopFields + R"(,"count":2,"items":[{"acc":7,"type":0,"pat":"62f1","patLen":2,)"
                                R"("patTr":false,"mask":"fffe","maskLen":2,"maskTr":false,)"
                                R"("uniq":"01000000ddccbbaa","uniqLen":8,"uniqTr":false},)"
                                R"({"acc":8,"type":1,"pat":"","patLen":0,"patTr":false,"mask":"",)"
                                R"("maskLen":0,"maskTr":false,"uniq":"","uniqLen":0,)"
                                R"("uniqTr":false}],"trunc":false)"));
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

TEST_F(CopTrace, NotifyBeginAndEnd) {
    std::uint64_t t0_us = 0;
    const std::vector<std::string> lines = SplitLines(Trace([&] {
        t0_us = TraceNotifyBegin(kCop, 0x1300, 2);
        TraceNotifyEnd(kCop, 0x1300, 2, t0_us);
    }));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_GT(t0_us, 0u);
    const std::string begin =
        kCopFields + R"(,"itemType":4864,"evtType":2,"t0_us":)" + std::to_string(t0_us);
    EXPECT_EQ(lines[0], WithFields(lines[0], "notify_begin", begin));
    const std::size_t at = lines[1].find("\"t1_us\":");
    ASSERT_NE(at, std::string::npos);
    const unsigned long long t1_us = std::stoull(lines[1].substr(at + 8));
    EXPECT_GE(t1_us, t0_us);
    EXPECT_EQ(lines[1], WithFields(lines[1], "notify_end",
                                   begin + R"(,"t1_us":)" + std::to_string(t1_us) +
                                       R"(,"dur_us":)" + std::to_string(t1_us - t0_us)));
}

TEST_F(CopTrace, NotifyEndWithoutItsBeginIsNotWritten) {
    const std::uint64_t t0_us = TraceNotifyBegin(kCop, 0x1300, 2);  // not switched on yet
    EXPECT_EQ(t0_us, 0u);
    EXPECT_EQ(Trace([&] { TraceNotifyEnd(kCop, 0x1300, 2, t0_us); }), "");
}

TEST_F(CopTrace, ReportsOfPacketsAreAlsoDebuggerOutput) {
    const std::pair<const char*, Report> rows[] = {
        {"COMM_REQ sent",
         {"comm_req_sent",
          [] {
              TraceCommReqSent({9, "\x10\x03", 2, 0x7DF, 0x7E0, 0x7E8, 50, 1});
          },
          R"("req_id":9,"tx_len":2,"tx_hex":"1003","tx_hex_len":2,"tx_trunc":false,)"
          R"("can_id_tx_func":2015,"can_id_tx_phys":2016,"can_id_rx":2024,"timeout":50,)"
          R"("transport":1)"}},
        {"COMM_RES received",
         {"comm_res_received", [] { TraceCommResReceived(9, 40, "\x50\x03", 2); },
          R"("req_id":9,"wait_time":40,"rx_len":2,"rx_hex":"5003","rx_hex_len":2,)"
          R"("rx_trunc":false)"}},
        {"BUSY received",
         {"busy_received", [] { TraceBusyReceived(9, "bus is off", 10); },
          R"("req_id":9,"reason":"bus is off","reason_len":10)"}},
    };
    for (const auto& [debug_text, report] : rows) {
        const DebugOutputCapture debug;
        ExpectFields(report);
        EXPECT_NE(debug.Text().find("[CopLog] " + std::string(debug_text) + "\n"),
                  std::string::npos)
            << debug_text;
    }
}

TEST_F(CopTrace, BusyReasonIsNullWithoutTextAndOtherwiseEscapedAndCutAt510Characters) {
    const std::string reason(600, 'r');
    const Report reports[] = {
        {"busy_received", [] { TraceBusyReceived(9, "", 0); },
         R"("req_id":9,"reason":null,"reason_len":0)"},
        {"busy_received", [] { TraceBusyReceived(9, "a \"b\"\nc", 7); },
         R"("req_id":9,"reason":"a \"b\"\nc","reason_len":7)"},
        {"busy_received", [&] { TraceBusyReceived(9, reason.data(), 600); },
         R"("req_id":9,"reason":")" + reason.substr(0, 510) + R"(","reason_len":600)"},
    };
    for (const Report& report : reports)
        ExpectFields(report);
}

TEST_F(CopTrace, CloudPacketShowsItsTypeInWireOrderWithDotsForWhatIsNotPrintable) {
    const Report reports[] = {
        {"cloud_pkt", [] { TraceCloudPkt("tx", "plain", "QERC\x08\0\0\0", 8); },
         R"("dir":"tx","stage":"plain","type":1129465169,"type_str":"QERC","len":8,)"
         R"("hex":"5145524308000000","hex_len":8,"trunc":false)"},
        {"cloud_pkt", [] { TraceCloudPkt("rx", nullptr, "\x01\"\\\xff", 4); },
         R"("dir":"rx","stage":"?","type":4284228097,"type_str":"....","len":4,)"
         R"("hex":"01225cff","hex_len":4,"trunc":false)"},
        {"cloud_pkt", [] { TraceCloudPkt("rx", "wire", "AB", 2); },
         R"("dir":"rx","stage":"wire","type":16961,"type_str":"AB..","len":2,"hex":"4142",)"
         R"("hex_len":2,"trunc":false)"},
    };
    for (const Report& report : reports)
        ExpectFields(report);
}

TEST_F(CopTrace, CloudPacketOf512BytesFitsItsLine) {
    const std::string packet(600, 'Q');
    const std::string line = Trace([&] { TraceCloudPkt("tx", "wire", packet.data(), 600); });
    EXPECT_TRUE(line.ends_with("51\",\"hex_len\":512,\"trunc\":true}\n"));
    EXPECT_LT(line.size(), 1'400u);
}

TEST_F(CopTrace, CloudPacketWithMetaOnlyHasNoBytes) {
    SetVariable("DPDU_COPTRACE_CLOUD_PKTS_META_ONLY", "yes");
    ExpectFields({"cloud_pkt", [] { TraceCloudPkt("tx", "wire", "QERC\x08\0\0\0", 8); },
                  R"("dir":"tx","stage":"wire","type":1129465169,"type_str":"QERC","len":8,)"
                  R"("hex":"","hex_len":0,"trunc":false)"});
}

TEST_F(CopTrace, Telemetry) {
    const std::string json = "{\"v\":1}";
    const TraceTelemetry report = {
        15, 1,  -2, 3,  4,   5,           6,
        7,  -1, 9,  10, -11, json.data(), static_cast<std::uint32_t>(json.size())};
    ExpectFields({"telemetry", [&] { TraceTelemetryReport(report); },
                  R"("pkt_len":15,"v":1,"u":-2,"rt":3,"rhz":4,"tasks":5,"q":{"cr":6,"ct":7,)"
                  R"("can":-1},"i":{"si":9,"mx":10,"ru":-11},"tele_json_len":7,)"
                  R"("tele_json_trunc":false,"tele_json":"{\"v\":1}")"});
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
