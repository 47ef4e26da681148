// The C++ binding without a dongle.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <dpdu.hpp>
#include <fstream>
#include <new>
#include <thread>

// Counts what this program allocates while it is asked to.
namespace {
thread_local bool is_counting = false;
thread_local std::size_t allocations = 0;
}  // namespace

void* operator new(std::size_t size) {
    if (is_counting) ++allocations;
    if (void* const block = std::malloc(size > 0 ? size : 1)) return block;
    throw std::bad_alloc();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }

namespace {

using namespace std::chrono_literals;
using pdu::ErrorKind;

void SetVariable(const char* name, const std::string& value) {
#ifdef _WIN32
    _putenv_s(name, value.c_str());
#else
    setenv(name, value.c_str(), 1);
#endif
}

template <typename Function>
std::optional<ErrorKind> KindOfError(Function&& function) {
    try {
        function();
    } catch (const pdu::Error& error) {
        return error.Kind();
    }
    return std::nullopt;
}

// ---------------------------------------------------------------- another vendor's library

class OtherVendor : public testing::Test {
protected:
    void SetUp() override {
        SetVariable("FAKE_DPDU_REPORT", report_);
        std::remove(report_.c_str());
        UseScenario("");
    }
    // Everything has been released, in whatever order.
    void TearDown() override {
        UseScenario("");
        const std::vector<std::string> lines = Report();
        if (lines.empty()) return;  // the library was not constructed
        EXPECT_EQ(lines.back(), "destruct items=0 links=0 modules=0");
        for (const std::string& line : lines)
            EXPECT_NE(line.compare(0, 9, "violation"), 0) << line;
        std::remove(report_.c_str());
    }

    static void UseScenario(const std::string& name) { SetVariable("FAKE_DPDU_SCENARIO", name); }
    static pdu::Library Load() { return pdu::Library::At(FAKE_LIBRARY); }
    static pdu::Link Open(const pdu::Unit& unit = {}) { return Load().Connect().Open(unit); }

    std::vector<std::string> Report() const {
        std::vector<std::string> lines;
        std::ifstream file(report_);
        for (std::string line; std::getline(file, line);)
            lines.push_back(line);
        return lines;
    }
    bool Reported(const std::string& line) const {
        const std::vector<std::string> lines = Report();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }

private:
    const std::string report_ = testing::TempDir() + "binding_test_report";
};

TEST_F(OtherVendor, VinIsRead) {
    EXPECT_EQ(Open().Request({0x22, 0xF1, 0x90}).Positive().From(3).Text(), "TESTV1N0000000001");
}

TEST_F(OtherVendor, LibraryIsDestructedWhenTheLastOfItsObjectsGoes) {
    pdu::Response vin;
    {
        pdu::Link link = Open();  // library and module are gone already
        vin = link.Request({0x22, 0xF1, 0x90});
    }
    EXPECT_FALSE(Reported("destruct items=0 links=0 modules=0"));
    EXPECT_EQ(vin.From(3).Text(), "TESTV1N0000000001");
    vin = pdu::Response();
    EXPECT_TRUE(Reported("destruct items=0 links=0 modules=0"));
}

TEST_F(OtherVendor, NegativeResponseIsAnAnswerUntilAPositiveOneIsAskedFor) {
    pdu::Link link = Open({0x7E2, 0x7EA});
    const pdu::Response response = link.Request({0x22, 0xF1, 0x90});
    EXPECT_TRUE(response.IsNegative());
    EXPECT_EQ(response.NegativeCode(), 0x31);
    try {
        response.Positive();
        FAIL();
    } catch (const pdu::Error& error) {
        EXPECT_EQ(error.Kind(), ErrorKind::kNegativeResponse);
        EXPECT_EQ(error.Why().service, 0x22);
        EXPECT_STREQ(error.what(), "negative response 0x31 to service 0x22");
    }
}

TEST_F(OtherVendor, SilentControlUnitIsNoAnswerInBothForms) {
    pdu::Link link = Open({0x7E3, 0x7EB});
    EXPECT_EQ(KindOfError([&] { link.Request({0x22, 0xF1, 0x90}); }), ErrorKind::kNoAnswer);
    const pdu::Result<pdu::Response> result = link.TryRequest({0x22, 0xF1, 0x90});
    ASSERT_FALSE(result);
    EXPECT_EQ(result.Why().kind, ErrorKind::kNoAnswer);
    EXPECT_EQ(result.Why().event, PDU_ERR_EVT_RX_TIMEOUT);
}

TEST_F(OtherVendor, RequestThatNeverEndsIsCancelledAfterItsLimit) {
    pdu::Link link = Open({0x7E5, 0x7ED});
    EXPECT_EQ(KindOfError([&] { link.Request({0x22, 0xF1, 0x90}, 50ms); }), ErrorKind::kNoAnswer);
    EXPECT_TRUE(Reported("cancelled"));
}

TEST_F(OtherVendor, ModuleThatIsPulledOutIsLostAndNotASilentControlUnit) {
    UseScenario("lost-module");
    pdu::Link link = Open();
    EXPECT_EQ(KindOfError([&] { link.Request({0x22, 0xF1, 0x90}); }), ErrorKind::kModuleLost);
}

TEST_F(OtherVendor, FunctionalRequestGivesTheAnswersOfAllControlUnits) {
    pdu::LinkOptions options;
    options.functional_id = 0x7DF;
    pdu::Link link = Load().Connect().Open(
        std::vector<pdu::Unit>{{0x7E0, 0x7E8}, {0x7E3, 0x7EB}, {0x7E1, 0x7E9}}, options);
    const std::vector<pdu::Response> responses = link.RequestAll({0x3E, 0x00});
    ASSERT_EQ(responses.size(), 2u);
    EXPECT_EQ(responses[0].Unit(), 0u);
    EXPECT_EQ(responses[1].Unit(), 2u);
    EXPECT_EQ(responses[1].Time() - responses[0].Time(), 1ms);
}

TEST_F(OtherVendor, ComParamsOfEveryTypeAreReadAndSet) {
    pdu::Link link = Open();
    EXPECT_EQ(link.GetComParam("CP_T1Max").number, -3);
    link.SetComParam("CP_T1Max", -300);
    EXPECT_EQ(link.GetComParam("CP_T1Max").number, -300);
    pdu::ComParam message = link.GetComParam("CP_TesterPresentMessage");
    message.bytes = {0x3E, 0x80};
    link.SetComParam("CP_TesterPresentMessage", message);
    EXPECT_EQ(link.GetComParam("CP_TesterPresentMessage").bytes, message.bytes);
    pdu::ComParam rates = link.GetComParam("CP_CanBaudrateRecord");
    EXPECT_EQ(rates.words, (std::vector<UNUM32>{500000, 250000}));
    rates.words = {1, 2, 3};
    link.SetComParam("CP_CanBaudrateRecord", rates);
    EXPECT_EQ(link.GetComParam("CP_CanBaudrateRecord").words, rates.words);
    pdu::ComParam timing = link.GetComParam("CP_SessionTimingOverride");
    EXPECT_EQ(timing.struct_type, PDU_CPST_SESSION_TIMING);
    EXPECT_EQ(timing.bytes, (std::vector<UNUM8>{0x01, 0x03, 0, 50, 1, 244}));
    timing.bytes.insert(timing.bytes.end(), {2, 0, 0, 25, 0, 100});
    link.SetComParam("CP_SessionTimingOverride", timing);
    EXPECT_EQ(link.GetComParam("CP_SessionTimingOverride").bytes, timing.bytes);
}

TEST_F(OtherVendor, ValueThatDoesNotFitItsComParamIsRefusedBeforeTheLibrarySeesIt) {
    pdu::Link link = Open();
    for (const std::int64_t value : {-32769, 32768})
        EXPECT_EQ(KindOfError([&] { link.SetComParam("CP_T1Max", value); }), ErrorKind::kBadValue);
    for (const std::int64_t value : {std::int64_t{-1}, std::int64_t{0x100000000}})
        EXPECT_EQ(KindOfError([&] { link.SetComParam("CP_P2Max", value); }), ErrorKind::kBadValue);
    EXPECT_EQ(KindOfError([&] { link.SetComParam("CP_TesterPresentMessage", 1); }),
              ErrorKind::kBadValue);
    EXPECT_EQ(KindOfError([&] { link.SetComParam("CP_Unheard", 1); }), ErrorKind::kUnknownName);
    link.SetComParam("CP_T1Max", -32768);
    link.SetComParam("CP_P2Max", 0xFFFFFFFF);
}

TEST_F(OtherVendor, RefusalNamesFunctionAndStatus) {
    UseScenario("refuses-link");
    const pdu::Module module = Load().Connect();
    try {
        module.Open({0x7E0, 0x7E8});
        FAIL();
    } catch (const pdu::Error& error) {
        EXPECT_EQ(error.Kind(), ErrorKind::kRefused);
        EXPECT_EQ(error.Why().status, PDU_ERR_RESOURCE_BUSY);
        EXPECT_STREQ(error.what(),
                     "PDUCreateComLogicalLink failed with PDU_ERR_RESOURCE_BUSY (0x30)");
    }
    const auto result = pdu::Try([&] { return module.Open({0x7E0, 0x7E8}); });
    ASSERT_FALSE(result);
    EXPECT_EQ(result.Why().status, PDU_ERR_RESOURCE_BUSY);
}

TEST_F(OtherVendor, RawFramesAreSentAndReceivedWithTheirTimes) {
    pdu::RawLink link = Load().Connect().OpenRaw();
    link.Send(0x123, {0xDE, 0xAD});
    link.Send(0x18DA10F1, {});
    link.Flush();
    EXPECT_TRUE(Reported("frame 00000123 short DEAD"));
    EXPECT_TRUE(Reported("frame 18DA10F1 long "));
    std::vector<pdu::CanFrame> frames;
    while (frames.size() < 5) {
        const std::optional<pdu::CanFrame> frame = link.Receive(20s);
        ASSERT_TRUE(frame);
        frames.push_back(*frame);
    }
    EXPECT_EQ(frames[0].id, 0xC0u);
    EXPECT_EQ(frames[0].Bytes().Copy(), (std::vector<UNUM8>{0x0C, 0x80}));
    EXPECT_FALSE(frames[0].is_29_bit);
    EXPECT_TRUE(frames[3].is_29_bit);
    EXPECT_EQ(frames[3].size, 0);
    EXPECT_EQ(frames[4].id, 0x123u);
    EXPECT_TRUE(frames[4].is_29_bit);
    // The library's stamps wrap between the second and the third.
    EXPECT_EQ(frames[1].time - frames[0].time, pdu::Microseconds(0xFFF));
    EXPECT_EQ(frames[2].time - frames[1].time, 1us);
    EXPECT_EQ(frames[4].time - frames[2].time, pdu::Microseconds(0x2000));
    EXPECT_EQ(KindOfError([&] {
                  link.Send(0x123, {1, 2, 3, 4, 5, 6, 7, 8, 9});
              }),
              ErrorKind::kBadValue);
}

TEST_F(OtherVendor, IoControlReturnsItsNumber) {
    const pdu::Module module = Load().Connect();
    EXPECT_EQ(module.IoControl("PDU_IOCTL_READ_VBATT"), 12034u);
    EXPECT_EQ(module.IoControl("PDU_IOCTL_RESET"), std::nullopt);
    EXPECT_EQ(KindOfError([&] { module.IoControl("PDU_IOCTL_UNHEARD"); }), ErrorKind::kUnknownName);
}

TEST_F(OtherVendor, ModulesAreChosenByAnyPartOfTheirTexts) {
    UseScenario("two-modules");
    const pdu::Library library = Load();
    EXPECT_EQ(library.Modules().size(), 2u);
    EXPECT_EQ(library.Connect("WLAN").Handle(), 6u);
    EXPECT_EQ(KindOfError([&] { library.Connect(); }), ErrorKind::kNoModule);
    EXPECT_EQ(KindOfError([&] { library.Connect("nowhere", 0ms); }), ErrorKind::kNoModule);
}

TEST_F(OtherVendor, LateModuleIsAwaited) {
    UseScenario("late-module");
    EXPECT_EQ(Load().Connect("", 20s).Handle(), 5u);
}

TEST_F(OtherVendor, LateModuleIsAwaitedForEver) {
    UseScenario("late-module");
    EXPECT_EQ(Load().Connect("", pdu::Milliseconds::max()).Handle(), 5u);
}

// Libraries call back after they have put an item into the queue, so a request may end before.
bool BecomesPositive(const std::atomic<int>& count) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (count == 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(1ms);
    return count > 0;
}

TEST_F(OtherVendor, HandlerOfALinkIsCalledAndCanBeReplaced) {
    std::atomic<int> first{0};
    std::atomic<int> second{0};
    pdu::Link link = Open();
    link.OnEvent([&](T_PDU_EVT_DATA type) { first += type == PDU_EVT_DATA_AVAILABLE ? 1 : 0; });
    link.Request({0x22, 0xF1, 0x90});
    EXPECT_TRUE(BecomesPositive(first));
    link.OnEvent([&](T_PDU_EVT_DATA) { ++second; });
    const int first_before = first;
    link.Request({0x22, 0xF1, 0x90});
    EXPECT_TRUE(BecomesPositive(second));
    EXPECT_EQ(first, first_before);
    link.OnEvent(nullptr);
}

TEST_F(OtherVendor, HandlerMayOwnALinkThatGoesWithIt) {
    const pdu::Module module = Load().Connect();
    pdu::Link link = module.Open({0x7E0, 0x7E8});
    const auto owned = [&module] {
        return
            [other = std::make_shared<pdu::Link>(module.Open({0x7E1, 0x7E9}))](T_PDU_EVT_DATA) {};
    };
    link.OnEvent(owned());
    link.OnEvent(owned());
    link.OnEvent(nullptr);
    EXPECT_TRUE(link.Request({0x3E, 0x00}));
}

TEST_F(OtherVendor, LinksAreUsedOnSeveralThreads) {
    const pdu::Module module = Load().Connect();
    std::vector<std::thread> threads;
    std::atomic<int> answers{0};
    for (const UNUM32 id : {0x7E0U, 0x7E1U, 0x7E2U}) {
        threads.emplace_back([&module, &answers, id] {
            pdu::Link link = module.Open({id, id + 8});
            for (int i = 0; i < 20; ++i)
                answers += link.TryRequest({0x22, 0xF1, 0x90}) ? 1 : 0;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(answers, 60);
}

TEST_F(OtherVendor, MovedLinkTakesOverAndTheAssignedOneEnds) {
    const pdu::Module module = Load().Connect();
    pdu::Link link = module.Open({0x7E0, 0x7E8});
    link.Request({0x3E, 0x00});
    pdu::Link other = module.Open({0x7E2, 0x7EA});
    link = std::move(other);
    EXPECT_TRUE(link.Request({0x22, 0xF1, 0x90}).IsNegative());
    pdu::Link third(std::move(link));
    EXPECT_TRUE(third.Request({0x22, 0xF1, 0x90}).IsNegative());
}

TEST_F(OtherVendor, MissingAndIncompleteLibrariesSayWhatIsWrong) {
    EXPECT_EQ(KindOfError([] { pdu::Library::At("/nowhere/to_be_found"); }), ErrorKind::kNoLibrary);
    const pdu::LibraryFile missing("/nowhere/to_be_found");
    EXPECT_FALSE(missing);
    EXPECT_FALSE(missing.Reason().empty());
    EXPECT_EQ(missing.Reason().find("to_be_found"), std::string::npos) << missing.Reason();
    const pdu::LibraryFile incomplete(INCOMPLETE_LIBRARY);
    EXPECT_TRUE(incomplete);
    EXPECT_EQ(incomplete.Missing().size(), 27u);
    EXPECT_EQ(incomplete.Missing().front(), "PDUIoCtl");
    EXPECT_EQ(incomplete.F().IoCtl, nullptr);
    EXPECT_NE(incomplete.F().Construct, nullptr);
    try {
        pdu::Library::At(INCOMPLETE_LIBRARY);
        FAIL();
    } catch (const pdu::Error& error) {
        EXPECT_NE(std::string(error.what()).find("has no function PDUIoCtl"), std::string::npos);
    }
}

TEST_F(OtherVendor, RefusedConstructIsAnErrorAndNothingIsDestructed) {
    UseScenario("refuses-construct");
    EXPECT_EQ(KindOfError([] { Load(); }), ErrorKind::kRefused);
    EXPECT_FALSE(Reported("destruct items=0 links=0 modules=0"));
    std::ofstream(testing::TempDir() + "binding_test_report").close();
}

// ---------------------------------------------------------------- the root file

class RootFile {
public:
    explicit RootFile(const std::string& text) { std::ofstream(path_, std::ios::binary) << text; }
    ~RootFile() { std::remove(path_.c_str()); }
    RootFile(const RootFile&) = delete;
    RootFile& operator=(const RootFile&) = delete;
    const std::string& Path() const { return path_; }

private:
    const std::string path_ = testing::TempDir() + "binding_test_root.xml";
};

TEST(InstalledLibraries, AreReadWithTheirNamesAndPaths) {
    const RootFile file(
        "<?xml version=\"1.0\"?>\r\n<!-- <MVCI_PDU_API><SHORT_NAME>no</SHORT_NAME> -->\r\n"
        "<MVCI_PDU_API_ROOT>\r\n"
        "  <MVCI_PDU_API>\n    <SHORT_NAME> Other_1_0 </SHORT_NAME>\n"
        "    <SUPPLIER_NAME>A &amp; B</SUPPLIER_NAME>\n"
        "    <LIBRARY_FILE URI='file:///C:/a b/x&amp;y.dll'/>\n  </MVCI_PDU_API>\n"
        "<MVCI_PDU_API a=\"b\"><LIBRARY_FILE  URI = \"file:///opt/lib.so\" />"
        "<SHORT_NAME>Two</SHORT_NAME></MVCI_PDU_API>"
        "<MVCI_PDU_API><SHORT_NAME>Three</SHORT_NAME><LIBRARY_FILE URI=\"http://x/y\"/>"
        "</MVCI_PDU_API></MVCI_PDU_API_ROOT>");
    const std::vector<pdu::InstalledLibrary> libraries = pdu::InstalledLibraries(file.Path());
    ASSERT_EQ(libraries.size(), 3u);
    EXPECT_EQ(libraries[0].name, "Other_1_0");
    EXPECT_EQ(libraries[0].supplier, "A & B");
    EXPECT_EQ(libraries[0].path, "C:/a b/x&y.dll");
    EXPECT_EQ(libraries[1].name, "Two");
    EXPECT_EQ(libraries[1].path, "/opt/lib.so");
    EXPECT_EQ(libraries[2].path, "");
}

TEST(InstalledLibraries, DamagedFilesAreReadAsFarAsTheyGo) {
    for (const char* text :
         {"", "<", "<MVCI_PDU_API", "<MVCI_PDU_API>", "<!--", "<MVCI_PDU_API_ROOT>",
          "<MVCI_PDU_API><SHORT_NAME>", "<MVCI_PDU_API><LIBRARY_FILE URI=\"",
          "<MVCI_PDU_API><LIBRARY_FILE URI", "<MVCI_PDU_API><LIBRARY_FILE"}) {
        const RootFile file(text);
        for (const pdu::InstalledLibrary& library : pdu::InstalledLibraries(file.Path())) {
            EXPECT_EQ(library.name, "") << text;
            EXPECT_EQ(library.path, "") << text;
        }
    }
    EXPECT_TRUE(pdu::InstalledLibraries("/nowhere/to_be_found.xml").empty());
}

TEST(InstalledLibraries, UnknownNameListsThoseThatAreThere) {
    const RootFile file("<MVCI_PDU_API><SHORT_NAME>One</SHORT_NAME></MVCI_PDU_API>");
    try {
        pdu::Library::Named("Other", "", file.Path());
        FAIL();
    } catch (const pdu::Error& error) {
        EXPECT_EQ(error.Kind(), ErrorKind::kNoLibrary);
        EXPECT_STREQ(error.what(), "no library is installed as 'Other'; there are: One");
    }
}

TEST_F(OtherVendor, IsLoadedByItsNameInTheRootFile) {
    std::string path = FAKE_LIBRARY;
    std::replace(path.begin(), path.end(), '\\', '/');
    const bool has_drive = path.size() > 1 && path[1] == ':';
    const RootFile file("<MVCI_PDU_API><SHORT_NAME>Fake</SHORT_NAME><LIBRARY_FILE URI=\"file://" +
                        (has_drive ? "/" + path : path) + "\"/></MVCI_PDU_API>");
    EXPECT_EQ(pdu::Library::Named("Fake", "", file.Path()).Connect().Handle(), 5u);
}

// ---------------------------------------------------------------- time stamps

TEST(StampClock, GoesOnWhenTheStampsWrap) {
    pdu::StampClock clock;
    const pdu::StampClock::HostClock::time_point start{};
    EXPECT_EQ(clock.Extend(0xFFFFFF00, start), pdu::Microseconds(0xFFFFFF00));
    EXPECT_EQ(clock.Extend(0x00000100, start + 1ms), pdu::Microseconds(0x100000100));
    EXPECT_EQ(clock.Extend(0xFFFFFFF0, start + 2ms), pdu::Microseconds(0xFFFFFFF0)) << "a late one";
}

TEST(StampClock, CountsWrapsThatNobodySaw) {
    pdu::StampClock clock;
    const pdu::StampClock::HostClock::time_point start{};
    EXPECT_EQ(clock.Extend(1000, start), 1000us);
    constexpr std::int64_t kTenHours = 36'000'000'000;
    EXPECT_EQ(clock.Extend(static_cast<UNUM32>(kTenHours + 1500), start + 10h),
              pdu::Microseconds(kTenHours + 1500));
}

// ---------------------------------------------------------------- functions of the test

// A library that answers each request at once and allocates nothing.
struct Played {
    static constexpr int kItems = 4;
    UNUM8 answer[6] = {0x62, 0xF1, 0x90, 0x41, 0x42, 0x43};
    PDU_STATUS_DATA finished = PDU_COPST_FINISHED;
    PDU_ERROR_DATA error = {PDU_ERR_EVT_TX_ERROR, 0};
    PDU_RESULT_DATA result = {};
    PDU_EVENT_ITEM items[kItems] = {};
    int next = 0;
    int count = 0;
    UNUM32 stamp = 7;
    int cancelled = 0;
    int taken = 0;  // items that were not destroyed

    // What a ComPrimitive leads to.
    bool is_silent = false;   // a request has no answer but `error`
    bool is_refused = false;  // other ComPrimitives end with `error`, too
    bool is_endless = false;  // it does not end
    bool is_busy = false;     // an answer to another arrives first
    bool is_raw = false;      // one that sends a frame is followed by `result`
    T_PDU_ERROR start_status = PDU_STATUS_NOERROR;
    T_PDU_STATUS module_state = PDU_MODST_AVAIL;

    // The latest ComPrimitive.
    T_PDU_COPT type = 0;
    const PDU_COP_CTRL_DATA* control = nullptr;

    T_PDU_PT param_type = PDU_PT_UNUM32;
    PDU_PARAM_STRUCTFIELD_DATA records = {};
    int params_set = 0;
    std::atomic<int> params_out{0};  // items of ComParams that were not given back
    std::atomic<int> most_params_out{0};

    std::atomic<int> connected{0};
    std::atomic<int> most_connected{0};

    void Add(T_PDU_IT item, UNUM32 cop, void* data) {
        items[count++] = {item, cop, nullptr, stamp, data};
    }
};

void Raise(std::atomic<int>* number, std::atomic<int>* most) {
    const int now = ++*number;
    int before = *most;
    while (before < now && !most->compare_exchange_weak(before, now)) {
    }
}
std::unique_ptr<Played> played;

pdu::Functions PlayedFunctions() {
    pdu::Functions f;
    f.Construct = [](CHAR8*, void*) -> T_PDU_ERROR { return PDU_STATUS_NOERROR; };
    f.Destruct = []() -> T_PDU_ERROR { return PDU_STATUS_NOERROR; };
    f.RegisterEventCallback = [](UNUM32, UNUM32, CALLBACKFNC) -> T_PDU_ERROR { return 0; };
    f.GetObjectId = [](T_PDU_OBJT, CHAR8*, UNUM32* id) -> T_PDU_ERROR {
        *id = 1;
        return PDU_STATUS_NOERROR;
    };
    f.GetModuleIds = [](PDU_MODULE_ITEM** list) -> T_PDU_ERROR {
        static PDU_MODULE_DATA data = {1, 0, nullptr, nullptr, PDU_MODST_AVAIL};
        static PDU_MODULE_ITEM item = {PDU_IT_MODULE_ID, 1, &data};
        *list = &item;
        return PDU_STATUS_NOERROR;
    };
    f.GetStatus = [](UNUM32, UNUM32, UNUM32, T_PDU_STATUS* state, UNUM32*, UNUM32*) -> T_PDU_ERROR {
        *state = played->module_state;
        return PDU_STATUS_NOERROR;
    };
    f.ModuleConnect = [](UNUM32) -> T_PDU_ERROR {
        Raise(&played->connected, &played->most_connected);
        return PDU_STATUS_NOERROR;
    };
    f.ModuleDisconnect = [](UNUM32) -> T_PDU_ERROR {
        --played->connected;
        return PDU_STATUS_NOERROR;
    };
    f.CreateComLogicalLink = [](UNUM32, PDU_RSC_DATA*, UNUM32, void*, UNUM32* link,
                                PDU_FLAG_DATA*) -> T_PDU_ERROR {
        *link = 3;
        return PDU_STATUS_NOERROR;
    };
    f.DestroyComLogicalLink = [](UNUM32, UNUM32) -> T_PDU_ERROR { return 0; };
    f.Connect = [](UNUM32, UNUM32) -> T_PDU_ERROR { return 0; };
    f.Disconnect = [](UNUM32, UNUM32) -> T_PDU_ERROR { return 0; };
    f.GetComParam = [](UNUM32, UNUM32, UNUM32 id, PDU_PARAM_ITEM** item) -> T_PDU_ERROR {
        static UNUM32 number = 0;
        static PDU_PARAM_ITEM param;
        Raise(&played->params_out, &played->most_params_out);
        const bool is_struct = played->param_type == PDU_PT_STRUCTFIELD;
        param = {PDU_IT_PARAM, id, played->param_type, PDU_PC_TIMING, &number};
        if (is_struct) param.pComParamData = &played->records;
        *item = &param;
        std::this_thread::yield();
        return PDU_STATUS_NOERROR;
    };
    f.SetComParam = [](UNUM32, UNUM32, PDU_PARAM_ITEM*) -> T_PDU_ERROR {
        ++played->params_set;
        return PDU_STATUS_NOERROR;
    };
    f.GetUniqueRespIdTable = [](UNUM32, UNUM32, PDU_UNIQUE_RESP_ID_TABLE_ITEM**) -> T_PDU_ERROR {
        return PDU_STATUS_NOERROR;
    };
    f.SetUniqueRespIdTable = [](UNUM32, UNUM32, PDU_UNIQUE_RESP_ID_TABLE_ITEM*) -> T_PDU_ERROR {
        return PDU_STATUS_NOERROR;
    };
    f.StartComPrimitive = [](UNUM32, UNUM32, T_PDU_COPT type, UNUM32 size, UNUM8*,
                             PDU_COP_CTRL_DATA* control, void*, UNUM32* cop) -> T_PDU_ERROR {
        if (played->start_status != PDU_STATUS_NOERROR) return played->start_status;
        *cop = 9;
        played->type = type;
        played->control = control;
        played->count = played->next = 0;
        const bool is_request = type == PDU_COPT_SENDRECV && !played->is_raw;
        played->result.NumDataBytes = sizeof played->answer;
        played->result.pDataBytes = played->answer;
        if (played->is_busy) played->Add(PDU_IT_RESULT, 5, &played->result);
        if (played->is_refused || (is_request && played->is_silent)) {
            played->Add(PDU_IT_ERROR, 9, &played->error);
        } else if (is_request || (played->is_raw && size > 0)) {
            played->Add(PDU_IT_RESULT, 9, &played->result);
        }
        if (!played->is_endless) played->Add(PDU_IT_STATUS, 9, &played->finished);
        return PDU_STATUS_NOERROR;
    };
    f.CancelComPrimitive = [](UNUM32, UNUM32, UNUM32) -> T_PDU_ERROR {
        ++played->cancelled;
        return PDU_STATUS_NOERROR;
    };
    f.GetEventItem = [](UNUM32, UNUM32 link, PDU_EVENT_ITEM** item) -> T_PDU_ERROR {
        if (link != 3 || played->next >= played->count) return PDU_ERR_EVENT_QUEUE_EMPTY;
        *item = &played->items[played->next++];
        ++played->taken;
        return PDU_STATUS_NOERROR;
    };
    f.DestroyItem = [](PDU_ITEM* item) -> T_PDU_ERROR {
        if (item->ItemType == PDU_IT_PARAM) {
            --played->params_out;
        } else if (item->ItemType != PDU_IT_MODULE_ID) {
            --played->taken;
        }
        return PDU_STATUS_NOERROR;
    };
    return f;
}

class PlayedLibrary : public testing::Test {
protected:
    void SetUp() override { played = std::make_unique<Played>(); }
    void TearDown() override {
        EXPECT_EQ(played->taken, 0) << "items that were not destroyed";
        EXPECT_EQ(played->params_out, 0);
        EXPECT_EQ(played->connected, 0);
    }
    static pdu::Module Connect() { return pdu::Library::With(PlayedFunctions()).Connect(); }
    static pdu::Link Open() { return Connect().Open({0x7E0, 0x7E8}); }
    static pdu::RawLink OpenRaw(const pdu::RawOptions& options = {}) {
        played->is_raw = true;
        return Connect().OpenRaw(options);
    }
};

TEST_F(PlayedLibrary, RequestsAfterTheFirstAllocateNothing) {
    pdu::Link link = Open();
    link.Request({0x22, 0xF1, 0x90});
    allocations = 0;
    is_counting = true;
    bool all_answered = true;
    for (int i = 0; i < 100; ++i)
        all_answered = all_answered && link.TryRequest({0x22, 0xF1, 0x90}).operator bool();
    is_counting = false;
    EXPECT_TRUE(all_answered);
    EXPECT_EQ(allocations, 0u);
}

TEST_F(PlayedLibrary, SuppressedPositiveResponseIsAnEmptyOne) {
    pdu::Link link = Open();
    played->is_silent = true;
    EXPECT_FALSE(link.Request({0x3E, 0x80}));
    EXPECT_EQ(KindOfError([&] { link.Request({0x3E, 0x00}); }), ErrorKind::kNoAnswer);
    // The second byte of these is no sub-function.
    EXPECT_EQ(KindOfError([&] { link.Request({0x22, 0xF1, 0x90}); }), ErrorKind::kNoAnswer);
}

TEST_F(PlayedLibrary, RawFramesAndFailuresAllocateNothing) {
    pdu::RawLink raw = OpenRaw();
    raw.StartReceiving();
    allocations = 0;
    is_counting = true;
    bool all_received = true;
    for (int i = 0; i < 100; ++i)
        all_received = all_received && !raw.TrySend(0x123, {1, 2}) && raw.Receive(0ms).has_value();
    is_counting = false;
    EXPECT_TRUE(all_received);
    EXPECT_EQ(allocations, 0u);

    played->is_raw = false;
    pdu::Link link = Open();
    link.Request({0x22, 0xF1, 0x90});
    played->is_silent = true;
    is_counting = true;
    bool has_failed = true;
    for (int i = 0; i < 100; ++i)
        has_failed = has_failed && !link.TryRequest({0x22, 0xF1, 0x90});
    is_counting = false;
    EXPECT_TRUE(has_failed);
    EXPECT_EQ(allocations, 0u);
}

TEST_F(PlayedLibrary, SuppressedPositiveResponseNeedsARequestThatWasExecuted) {
    pdu::Link link = Open();
    played->is_silent = true;
    for (const T_PDU_ERR_EVT silence : {PDU_ERR_EVT_TX_ERROR, PDU_ERR_EVT_RX_TIMEOUT}) {
        played->error.ErrorCodeId = silence;
        EXPECT_FALSE(link.Request({0x3E, 0x80})) << silence;
    }
    for (const T_PDU_ERR_EVT fault : {PDU_ERR_EVT_PROT_ERR, PDU_ERR_EVT_RX_ERROR,
                                      PDU_ERR_EVT_RSC_LOCKED, PDU_ERR_EVT_VCI_HARDWARE_FAULT}) {
        played->error.ErrorCodeId = fault;
        const pdu::Result<pdu::Response> result = link.TryRequest({0x3E, 0x80});
        ASSERT_FALSE(result) << fault;
        EXPECT_EQ(result.Why().kind, ErrorKind::kNotExecuted);
        EXPECT_EQ(result.Why().event, fault);
    }
    played->error.ErrorCodeId = PDU_ERR_EVT_LOST_COMM_TO_VCI;
    EXPECT_EQ(KindOfError([&] { link.Request({0x3E, 0x80}); }), ErrorKind::kModuleLost);
}

TEST_F(PlayedLibrary, CommunicationThatDoesNotStartIsAnErrorAndIsStartedAgain) {
    pdu::Link link = Open();
    played->is_refused = true;
    played->error.ErrorCodeId = PDU_ERR_EVT_INIT_ERROR;
    try {
        link.Request({0x22, 0xF1, 0x90});
        FAIL();
    } catch (const pdu::Error& error) {
        EXPECT_EQ(error.Kind(), ErrorKind::kNotExecuted);
        EXPECT_STREQ(error.what(), "not executed (error event 0x108)");
    }
    EXPECT_EQ(played->type, T_PDU_COPT{PDU_COPT_STARTCOMM});
    EXPECT_EQ(KindOfError([&] { link.SetComParam("CP_P2Max", 1); }), ErrorKind::kNotExecuted);
    played->is_refused = false;
    EXPECT_TRUE(link.Request({0x22, 0xF1, 0x90}));
}

TEST_F(PlayedLibrary, ComParamThatIsSetBeforeTheFirstRequestIsUsed) {
    pdu::Link link = Open();
    link.SetComParam("CP_P2Max", 1000);
    EXPECT_EQ(played->type, T_PDU_COPT{PDU_COPT_UPDATEPARAM});
}

TEST_F(PlayedLibrary, RecordsOfAnUnknownTypeAreNotSetBack) {
    pdu::Link link = Open();
    played->param_type = PDU_PT_STRUCTFIELD;
    played->records.ComParamStructType = 0x99;
    const pdu::ComParam param = link.GetComParam("CP_SessionTimingOverride");
    const int before = played->params_set;
    EXPECT_EQ(KindOfError([&] { link.SetComParam("CP_SessionTimingOverride", param); }),
              ErrorKind::kBadValue);
    EXPECT_EQ(played->params_set, before);
}

TEST_F(PlayedLibrary, ComParamsAreReadByOneThreadAtATime) {
    const pdu::Module module = Connect();
    const pdu::Link links[] = {module.Open({0x7E0, 0x7E8}), module.Open({0x7E1, 0x7E9})};
    std::vector<std::thread> threads;
    for (const pdu::Link& link : links) {
        threads.emplace_back([&link] {
            for (int i = 0; i < 2000; ++i)
                link.GetComParam("CP_P2Max");
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(played->most_params_out, 1);
}

TEST_F(PlayedLibrary, RequestDoesNotChangeWhatAnEarlierOneExpects) {
    pdu::Link link = Open();
    link.Request({0x3E, 0x00});
    played->is_endless = true;
    link.Send({0x10, 0x03});
    const PDU_COP_CTRL_DATA* const sent = played->control;
    played->is_endless = false;
    EXPECT_TRUE(link.Request({0x22, 0xF1, 0x90}));
    EXPECT_NE(played->control, sent);
    EXPECT_EQ(sent->pExpectedResponseArray[0].pPatternData[0], 0x50);
    EXPECT_EQ(sent->pExpectedResponseArray[1].pPatternData[1], 0x10);
}

TEST_F(PlayedLibrary, FramesAreReceivedAsLongAsTheLibraryNeedsToBeTold) {
    pdu::RawLink link = OpenRaw();
    link.StartReceiving();
    const PDU_COP_CTRL_DATA* const control = played->control;
    link.Send(0x123, {1});
    EXPECT_EQ(control->NumReceiveCycles, -1);
    EXPECT_EQ(control->NumPossibleExpectedResponses, 1u);
    EXPECT_EQ(control->pExpectedResponseArray[0].NumMaskPatternBytes, 0u);
}

TEST_F(PlayedLibrary, FlushKeepsTheFramesThatArriveMeanwhile) {
    pdu::RawLink link = OpenRaw();
    link.StartReceiving();
    link.Send(0x123, {1});
    played->is_busy = true;
    link.Flush();
    EXPECT_EQ(played->type, T_PDU_COPT{PDU_COPT_UPDATEPARAM});
    const std::optional<pdu::CanFrame> frame = link.Receive(0ms);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->Bytes().Copy(), (std::vector<UNUM8>{0x42, 0x43}));
    EXPECT_FALSE(link.Receive(0ms));
}

TEST_F(PlayedLibrary, FlushThatEndsWithAnErrorIsNone) {
    pdu::RawLink link = OpenRaw();
    link.Send(0x123, {1});
    played->is_refused = true;
    EXPECT_EQ(KindOfError([&] { link.Flush(); }), ErrorKind::kNotExecuted);
    played->error.ErrorCodeId = PDU_ERR_EVT_LOST_COMM_TO_VCI;
    EXPECT_EQ(KindOfError([&] { link.Flush(); }), ErrorKind::kModuleLost);
}

TEST_F(PlayedLibrary, FramesAreSentWithTheComPrimitiveThatTheLibraryWants) {
    pdu::RawLink usual = OpenRaw();
    usual.Send(0x123, {1});
    EXPECT_EQ(played->type, T_PDU_COPT{PDU_COPT_STARTCOMM});
    pdu::RawOptions options;
    options.send_with = PDU_COPT_SENDRECV;
    pdu::RawLink other = OpenRaw(options);
    other.Send(0x18DA10F1, {1});
    EXPECT_EQ(played->type, T_PDU_COPT{PDU_COPT_SENDRECV});
    EXPECT_EQ(played->control->NumSendCycles, 1);
    EXPECT_EQ(played->control->NumReceiveCycles, 0);
    EXPECT_EQ(played->control->TxFlag.pFlagData[2], PDU_TX_FLAG2_CAN_29BIT_ID);
}

TEST_F(PlayedLibrary, CallsForAModuleThatIsGoneSayThatItIsLost) {
    pdu::Link link = Open();
    link.Request({0x3E, 0x00});
    for (const T_PDU_ERROR status : {PDU_ERR_COMM_PC_TO_VCI_FAILED, PDU_ERR_MODULE_NOT_CONNECTED}) {
        played->start_status = status;
        EXPECT_EQ(KindOfError([&] { link.Request({0x3E, 0x00}); }), ErrorKind::kModuleLost);
    }
    for (const T_PDU_ERROR status : {PDU_ERR_INVALID_HANDLE, PDU_ERR_CLL_NOT_CONNECTED}) {
        played->start_status = status;
        played->module_state = PDU_MODST_AVAIL;
        EXPECT_EQ(KindOfError([&] { link.Request({0x3E, 0x00}); }), ErrorKind::kRefused);
        played->module_state = PDU_MODST_NOT_AVAIL;
        EXPECT_EQ(KindOfError([&] { link.Request({0x3E, 0x00}); }), ErrorKind::kModuleLost);
    }
}

TEST_F(PlayedLibrary, ModuleIsConnectedOnceHoweverManyThreadsWantIt) {
    const pdu::Library library = pdu::Library::With(PlayedFunctions());
    const pdu::ModuleInfo info = library.Modules().front();
    {
        const pdu::Module first = library.Connect(info);
        const pdu::Module second = library.Connect(info);
        EXPECT_EQ(first.Handle(), second.Handle());
    }
    EXPECT_EQ(played->connected, 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&library, &info] {
            for (int round = 0; round < 500; ++round)
                library.Connect(info);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(played->most_connected, 1);
}

TEST_F(PlayedLibrary, TimeIsThatOfTheMomentAtWhichAnAnswerWasTaken) {
    pdu::Link link = Open();
    played->stamp = 0xFFFFFFF0;
    const pdu::Response before = link.Request({0x22, 0xF1, 0x90});
    played->stamp = 0x10;
    const pdu::Response after = link.Request({0x22, 0xF1, 0x90});
    EXPECT_EQ(after.Time(), pdu::Microseconds(0x100000010));  // asked first
    EXPECT_EQ(before.Time(), pdu::Microseconds(0xFFFFFFF0));
    EXPECT_EQ(pdu::Response().Time(), 0us);
    EXPECT_EQ(pdu::Event().Time(), 0us);
    EXPECT_EQ(pdu::Event().ComPrimitive(), UNUM32{PDU_HANDLE_UNDEF});
}

TEST_F(PlayedLibrary, TryTakesFunctionsWithoutAResult) {
    pdu::Link link = Open();
    const pdu::Result<void> done = pdu::Try([&] { link.Send({0x3E, 0x80}); });
    EXPECT_TRUE(done);
    pdu::Result<void> failed = pdu::Try([&] { link.Send({}); });
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.Why().kind, ErrorKind::kBadValue);
    EXPECT_EQ(KindOfError([&] { std::move(failed).Take(); }), ErrorKind::kBadValue);
}

TEST_F(PlayedLibrary, ExceptionOfTheHandlerCancelsTheRequestAndPassesOn) {
    pdu::Link link = Open();
    const auto fail = [](const pdu::Response&) { throw std::runtime_error("no"); };
    EXPECT_THROW(link.TryRequestEach({0x22, 0xF1, 0x90}, fail), std::runtime_error);
    EXPECT_EQ(played->cancelled, 1);
    EXPECT_TRUE(link.Request({0x22, 0xF1, 0x90}));
}

TEST_F(PlayedLibrary, EmptyRequestIsRefused) {
    pdu::Link link = Open();
    EXPECT_EQ(KindOfError([&] { link.Request({}); }), ErrorKind::kBadValue);
    EXPECT_EQ(KindOfError([&] { link.Send({}); }), ErrorKind::kBadValue);
}

TEST(ByteView, IsMadeFromAnyContainerOfBytes) {
    const std::vector<UNUM8> vector = {1, 2, 3};
    const std::array<UNUM8, 2> array = {4, 5};
    EXPECT_EQ(pdu::ByteView(vector).From(1).Copy(), (std::vector<UNUM8>{2, 3}));
    EXPECT_EQ(pdu::ByteView(array).size(), 2u);
    EXPECT_TRUE(pdu::ByteView(vector).From(3).empty());
    EXPECT_TRUE(pdu::ByteView(vector).From(4).empty());
}

}  // namespace
