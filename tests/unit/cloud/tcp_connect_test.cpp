// Which of a name's addresses is connected, and when each is tried.
#include "transport/cloud/tcp_connect.h"

#include <gtest/gtest.h>

#include "transport/cloud/cloud_limits.h"
#include "unit/cloud/fake_tcp_system.h"

namespace tarvik::test {
namespace {

using Answer = FakeAddress::Answer;
using Times = std::vector<std::uint64_t>;
using Sockets = std::set<SystemSocket>;

constexpr std::uint64_t kNever = FakeAddress::kNever;
constexpr FakeAddress kBlackHole = {Answer::kAccept, kNever};
constexpr FakeAddress kAtOnce = {Answer::kAccept, 0};

std::uint64_t Stagger() { return static_cast<std::uint64_t>(GetCloudLimits().connect_stagger_ms); }

constexpr FakeAddress AcceptsAfter(std::uint64_t ms) { return {Answer::kAccept, ms}; }
constexpr FakeAddress RefusesAfter(std::uint64_t ms) { return {Answer::kRefuse, ms}; }

TEST(TcpConnect, AddressThatDoesNotAnswerDelaysTheNextByTheStaggerOnly) {
    FakeTcpSystem system({kBlackHole, AcceptsAfter(5)});
    EXPECT_EQ(system.Connect().socket, 1);
    EXPECT_EQ(system.Begun(), (Times{0, Stagger()}));
    EXPECT_EQ(system.NowMs(), Stagger() + 5);
}

TEST(TcpConnect, OnlyTheWinnersSocketStaysOpenAndItsPeerIsWatched) {
    FakeTcpSystem system({kBlackHole, kBlackHole, AcceptsAfter(5), kAtOnce});
    EXPECT_EQ(system.Connect().socket, 2);
    EXPECT_EQ(system.Open(), (Sockets{2}));
    EXPECT_EQ(system.Watched(), 2);
}

TEST(TcpConnect, NamesTheAddressThatWon) {
    FakeTcpSystem system({RefusesAfter(1), kAtOnce});
    const TcpConnection connected = system.Connect();
    ASSERT_NE(connected.address, nullptr);
    EXPECT_EQ(system.Next(*connected.address), nullptr);  // the last
}

TEST(TcpConnect, EarlierAddressMayStillWinAfterALaterOneWasTried) {
    const std::uint64_t late = Stagger() + 10;
    FakeTcpSystem system({AcceptsAfter(late), AcceptsAfter(late), kAtOnce});
    EXPECT_EQ(system.Connect().socket, 0);
    EXPECT_EQ(system.Begun(), (Times{0, Stagger(), kNever}));
    EXPECT_EQ(system.Open(), (Sockets{0}));
}

TEST(TcpConnect, AddressThatAnswersInTimeIsTheOnlyOneTried) {
    FakeTcpSystem system({AcceptsAfter(Stagger() - 1), kAtOnce});
    EXPECT_EQ(system.Connect().socket, 0);
    EXPECT_EQ(system.Begun(), (Times{0, kNever}));
}

TEST(TcpConnect, FailedAddressIsFollowedByTheNextAtOnce) {
    FakeTcpSystem system({RefusesAfter(0), {Answer::kNoSocket}, RefusesAfter(7), AcceptsAfter(1)});
    EXPECT_EQ(system.Connect().socket, 3);
    EXPECT_EQ(system.Begun(), (Times{0, 0, 0, 7}));
    EXPECT_EQ(system.Open(), (Sockets{3}));
}

TEST(TcpConnect, EarlierAddressThatFailsLetsTheNextBeginBeforeTheStagger) {
    FakeTcpSystem system({RefusesAfter(Stagger() + 3), kBlackHole, kAtOnce});
    EXPECT_EQ(system.Connect().socket, 2);
    EXPECT_EQ(system.Begun(), (Times{0, Stagger(), Stagger() + 3}));
    EXPECT_EQ(system.Open(), (Sockets{2}));
}

TEST(TcpConnect, WithoutAnAddressThatAcceptsItFailsOnceAllHave) {
    FakeTcpSystem system({RefusesAfter(500), {Answer::kNoSocket}, RefusesAfter(10)});
    const TcpConnection connected = system.Connect(60'000);
    EXPECT_EQ(connected.socket, kNoSocket);
    EXPECT_FALSE(connected.timed_out);
    EXPECT_EQ(system.NowMs(), 500u);
    EXPECT_TRUE(system.Open().empty());
    EXPECT_EQ(system.Watched(), kNoSocket);
}

TEST(TcpConnect, LimitEndsAllAttemptsTogether) {
    FakeTcpSystem system({kBlackHole, kBlackHole});
    const TcpConnection connected = system.Connect(60'005);
    EXPECT_EQ(connected.socket, kNoSocket);
    EXPECT_TRUE(connected.timed_out);
    EXPECT_EQ(system.NowMs(), 60'005u);
    EXPECT_TRUE(system.Open().empty());
}

TEST(TcpConnect, WithoutALimitTheSystemsOwnHolds) {
    FakeTcpSystem system({RefusesAfter(127'000), AcceptsAfter(600'000)});
    EXPECT_EQ(system.Connect(kNoConnectLimit).socket, 1);
    EXPECT_EQ(system.NowMs(), Stagger() + 600'000);
}

TEST(TcpConnect, AbortEndsAllAttemptsWithinOnePoll) {
    FakeTcpSystem system({kBlackHole, kBlackHole, kAtOnce});
    const std::uint64_t abort_at = Stagger() + 1;
    system.AbortAt(abort_at);
    const TcpConnection connected = system.Connect(60'000);
    EXPECT_EQ(connected.socket, kNoSocket);
    EXPECT_FALSE(connected.timed_out);
    EXPECT_LE(system.NowMs(),
              abort_at + static_cast<std::uint64_t>(GetCloudLimits().connect_poll_ms));
    EXPECT_EQ(system.Begun()[2], kNever);
    EXPECT_TRUE(system.Open().empty());
}

TEST(TcpConnect, AddressBeyondTheLargestNumberOfAttemptsWaitsForOneToFail) {
    std::vector<FakeAddress> list(kMaxConnectAttempts, kBlackHole);
    const std::uint64_t failure = Stagger() * kMaxConnectAttempts * 2;
    list[1] = RefusesAfter(failure);
    list.push_back(AcceptsAfter(1));
    FakeTcpSystem system(list);
    EXPECT_EQ(system.Connect().socket, static_cast<SystemSocket>(kMaxConnectAttempts));
    EXPECT_EQ(system.Begun().back(), Stagger() + failure);
    EXPECT_EQ(system.Open().size(), 1u);
}

}  // namespace
}  // namespace tarvik::test
