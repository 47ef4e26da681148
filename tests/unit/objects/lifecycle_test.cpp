#include "objects/lifecycle.h"

#include <atomic>
#include <optional>

#include "unit/test_support.h"

namespace tarvik::test {
namespace {

constexpr std::uint32_t kLongMs = 10'000;

// Another thread that is inside a call from here to End.
class CallElsewhere {
public:
    CallElsewhere()
        : thread_([this] {
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

}  // namespace
}  // namespace tarvik::test
