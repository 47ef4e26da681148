#include "objects/lifecycle.h"

#include <atomic>
#include <optional>

#include "unit/test_support.h"

namespace tarvik::test {
namespace {

constexpr std::uint32_t kLongMs = 10'000;

// Another thread that is inside a call from here to End. It is one of the library if it has a
// record.
class CallElsewhere {
public:
    explicit CallElsewhere(ThreadCalls* record = nullptr)
        : thread_([this, record] {
              std::optional<CountThreadCalls> of_library;
              if (record != nullptr) of_library.emplace(record);
              {
                  const ApiCall call;
                  inside_ = true;
                  Eventually([this] { return over_.load(); });
              }
              ended_ = true;
              Eventually([this] { return gone_.load(); });
          }) {
        EXPECT_TRUE(Eventually([this] { return inside_.load(); }));
    }
    ~CallElsewhere() {
        End();
        gone_ = true;
    }
    CallElsewhere(const CallElsewhere&) = delete;
    CallElsewhere& operator=(const CallElsewhere&) = delete;

    void End() {
        over_ = true;
        EXPECT_TRUE(Eventually([this] { return ended_.load(); }));
    }

private:
    std::atomic<bool> inside_{false}, over_{false}, ended_{false}, gone_{false};
    Thread thread_;
};

// Each wait opens another of two generations of calls, so every case is repeated.
constexpr int kGenerations = 4;

TEST(ApiCalls, WithoutAnyNothingIsWaitedFor) {
    for (int i = 0; i < kGenerations; ++i)
        EXPECT_TRUE(WaitForOtherApiCalls(0));
}

TEST(ApiCalls, OwnCallsAreNotWaitedFor) {
    for (int i = 0; i < kGenerations; ++i) {
        const ApiCall outer;
        const ApiCall inner;
        EXPECT_TRUE(WaitForOtherApiCalls(0));
        const ApiCall later;
        EXPECT_TRUE(WaitForOtherApiCalls(0));
    }
}

TEST(ApiCalls, CallOfAnotherThreadIsWaitedForUntilTimeRunsOut) {
    for (int i = 0; i < kGenerations; ++i) {
        const CallElsewhere call;
        EXPECT_FALSE(WaitForOtherApiCalls(0));
    }
    EXPECT_TRUE(WaitForOtherApiCalls(0));
    EXPECT_TRUE(WaitForOtherApiCalls(0));
}

TEST(ApiCalls, OwnCallsDoNotHideOneOfAnotherThread) {
    for (int i = 0; i < kGenerations; ++i) {
        const ApiCall own;
        const CallElsewhere call;
        EXPECT_FALSE(WaitForOtherApiCalls(0));
    }
}

TEST(ApiCalls, OwnCallsThatBeganLaterDoNotHideOneOfAnotherThread) {
    for (int i = 0; i < kGenerations; ++i) {
        const CallElsewhere call;
        EXPECT_FALSE(WaitForOtherApiCalls(0));
        const ApiCall own;
        EXPECT_TRUE(WaitForOtherApiCalls(0));   // for those that began since
        EXPECT_FALSE(WaitForOtherApiCalls(0));  // for the first again
    }
}

TEST(ApiCalls, WaitEndsWithTheLastCall) {
    for (int i = 0; i < kGenerations; ++i) {
        std::optional<CallElsewhere> first(std::in_place);
        std::optional<CallElsewhere> second(std::in_place);
        std::atomic<bool> waiting{false};
        Thread ending([&] {
            Eventually([&] { return waiting.load(); });
            first->End();
            second->End();
        });
        waiting = true;
        EXPECT_TRUE(WaitForOtherApiCalls(kLongMs));
    }
}

TEST(ApiCalls, CallOfAThreadThatIsGivenUpIsNotWaitedFor) {
    for (int i = 0; i < kGenerations; ++i) {
        ThreadCalls record;
        CallElsewhere call(&record);
        EXPECT_FALSE(WaitForOtherApiCalls(0));
        record.GiveUp();
        EXPECT_TRUE(WaitForOtherApiCalls(0));
        EXPECT_TRUE(WaitForOtherApiCalls(0));
        record.GiveUp();
        EXPECT_TRUE(WaitForOtherApiCalls(0));
        call.End();
        const CallElsewhere other;
        EXPECT_FALSE(WaitForOtherApiCalls(0)) << "the first was taken out once";
    }
}

TEST(ApiCalls, CallThatAThreadBeginsAfterItWasGivenUpDoesNotCount) {
    for (int i = 0; i < kGenerations; ++i) {
        ThreadCalls record;
        record.GiveUp();
        CallElsewhere call(&record);
        for (int wait = 0; wait < 2; ++wait)
            EXPECT_TRUE(WaitForOtherApiCalls(0));
        call.End();
        const CallElsewhere other;
        EXPECT_FALSE(WaitForOtherApiCalls(0));
    }
}

TEST(ApiCalls, OwnCallsOfALibraryThreadAreNotWaitedFor) {
    ThreadCalls record;
    const Thread library([&] {
        const CountThreadCalls count(&record);
        for (int i = 0; i < kGenerations; ++i) {
            const ApiCall outer;
            EXPECT_TRUE(WaitForOtherApiCalls(0));
            const ApiCall inner;
            EXPECT_TRUE(WaitForOtherApiCalls(0));
        }
    });
}

TEST(LibraryLifecycle, IsConstructedUntilItsDestructionHasEnded) {
    struct Step {
        Lifecycle state;
        bool constructed;
    };
    constexpr Step kSteps[] = {{Lifecycle::kConstructing, false},
                               {Lifecycle::kConstructed, true},
                               {Lifecycle::kDestructing, true},
                               {Lifecycle::kNotConstructed, false}};
    Lifecycle now = Lifecycle::kNotConstructed;
    for (const Step& step : kSteps) {
        EXPECT_FALSE(ChangeLibraryState(step.state, now)) << "it is not in this state";
        ASSERT_TRUE(ChangeLibraryState(now, step.state));
        now = step.state;
        EXPECT_EQ(LibraryState(), now);
        EXPECT_EQ(IsConstructed(), step.constructed);
    }
}

}  // namespace
}  // namespace tarvik::test
