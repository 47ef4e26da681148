// How the entries of the dongle's answer are assigned to the rows of the request.

#include <gtest/gtest.h>

#include "conformance/framework/log_file.h"
#include "conformance/functional/fleet.h"

namespace conformance {
namespace {

class ResponseRows : public FunctionalRequests {
protected:
    // One request, answered with only these entries.
    Outcome Answer(UnitsLink& link, const HandMadeAnswer& answer) {
        simulator.Command("record clear");
        simulator.Command(R"(next 1 {"lost": true})");
        const UNUM32 hCoP = link.StartReading();
        EXPECT_TRUE(simulator.WaitFor(1, "in CREQ"));
        simulator.Command(answer.Command(hCoP));
        return link.WaitFor(hCoP);
    }
};

TEST_F(ResponseRows, FollowTheTableWhateverItsOrder) {
    std::vector<UNUM32> units = FirstUnits(kUnits);
    std::reverse(units.begin(), units.end());
    UnitsLink link(hMod, units);
    std::vector<RowAnswer> expected;
    for (UNUM32 row = 0; row < kUnits; ++row)
        expected.push_back({row, kUnits - 1 - row});
    ExpectAnswers(link.ReadPartNumbers(), expected);
}

TEST_F(ResponseRows, AreReportedInTableOrderNotInAnswerOrder) {
    UnitsLink link(hMod, 20);
    const Outcome outcome = Answer(link, HandMadeAnswer()
                                             .Entry(19, PartNumberOf(19))
                                             .Entry(0, PartNumberOf(0))
                                             .Entry(7, PartNumberOf(7)));
    ExpectAnswers(outcome, {{0, 0}, {7, 7}, {19, 19}});
}

TEST_F(ResponseRows, UnknownOneIsLoggedAndSkipped) {
    for (const UNUM32 unknown : {20u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        UnitsLink link(hMod, 20);
        const LogCapture log;
        const Outcome outcome = Answer(link, HandMadeAnswer()
                                                 .Entry(4, PartNumberOf(4))
                                                 .Entry(unknown, PartNumberOf(5))
                                                 .Entry(6, PartNumberOf(6)));
        ExpectAnswers(outcome, {{4, 4}, {6, 6}});
        EXPECT_TRUE(log.Has("[CommRequestMulti] ERROR: response #1, ID: " +
                            std::to_string(unknown) + " doesn't match table"));
    }
}

TEST_F(ResponseRows, AnswerWithOnlyUnknownOnesGivesNoResult) {
    UnitsLink link(hMod, 2);
    ExpectAnswers(Answer(link, HandMadeAnswer().Entry(2, PartNumberOf(2))), {});
}

TEST_F(ResponseRows, OneThatAnswersTwiceReportsItsLastAnswer) {
    UnitsLink link(hMod, 20);
    const Outcome outcome = Answer(link, HandMadeAnswer()
                                             .Entry(3, PartNumberOf(60))
                                             .Entry(5, PartNumberOf(5))
                                             .Entry(3, PartNumberOf(3)));
    ExpectAnswers(outcome, {{3, 3}, {5, 5}});
}

TEST_F(ResponseRows, AnswerWithoutBytesGivesNoResult) {
    UnitsLink link(hMod, 2);
    const LogCapture log;
    ExpectAnswers(Answer(link, HandMadeAnswer().Entry(0, {}).Entry(1, PartNumberOf(1))), {{1, 1}});
    EXPECT_TRUE(log.HasLike("[CommThreadFunc:*]      #0 -> no data"));
}

TEST_F(ResponseRows, TableOfOneResponseIdentifierIsAMultiRequestOfOneRow) {
    UnitsLink link(hMod, {9, 9, 9});
    ExpectAnswers(link.ReadPartNumbers(), {{0, 9}});
    EXPECT_EQ(simulator.LastRequest()["form"], "multi");
    EXPECT_EQ(simulator.LastRequest()["entries"].size(), 1u);
}

// Deliberate: rows are identified by their position in the table, but the dongle counts the rows
// that it was sent. After an omitted row the two differ.
TEST_F(ResponseRows, AfterARepeatedResponseIdentifierAreMixedUp) {
    UnitsLink link(hMod, {0, 1, 1, 2, 3});
    const LogCapture log;
    // Sent: units 0, 1, 2 and 3 as positions 0, 1, 3 and 4; answered as 0, 1, 2 and 3.
    ExpectAnswers(link.ReadPartNumbers(), {{0, 0}, {1, 1}, {2, 3}});
    EXPECT_TRUE(log.Has("[CommRequestMulti] ERROR: response #2, ID: 2 doesn't match table"));
}

TEST_F(ResponseRows, MayBeThoseOfTwoControlUnits) {
    UnitsLink link(hMod, {63, 0});
    ExpectAnswers(link.ReadPartNumbers(), {{0, 63}, {1, 0}});
}

}  // namespace
}  // namespace conformance
