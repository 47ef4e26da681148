// dpdu trace timeline as seen by its user, and unit tests of the bars.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "client_run.h"
#include "dpdu_types.h"
#include "trace/timeline.h"
#include "trace_files.h"

namespace {

using dpdu::trace::BarText;
using dpdu::trace::Exchange;
using dpdu::trace::ExchangeResult;
using dpdu::trace::Request;

ClientResult Timeline(const std::vector<std::string>& arguments) {
    return RunTrace("timeline", arguments);
}

std::size_t Rows(const std::string& text) {
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    EXPECT_GE(lines, 4u) << text;
    return lines - 4;  // legend, blank line, session and header
}

TEST(TraceTimeline, HasARowWithABarForEachRequest) {
    ExpectOutput(
        Timeline({TracePath("three_units")}),
        R"(. queued   - sending   = waiting   # answer   c callback   x time-out   + goes on

Process 8106, session 1; a column is 0.103 ms
      AT S  LINK     COP          MS  END     REQUEST
  0.200288  0:0        1       0.814  ok      STARTCOMM           ........
  0.201166  0:0        2       0.271  ok      22 F1 90            ===
  0.201451  0:0        3       0.006  ok      STOPCOMM            .
  0.201648  0:1        4       0.991  ok      STARTCOMM           ..........
  0.202697  0:1        5       0.197  ok      22 F1 90            ==
  0.202901  0:1        6       0.006  ok      STOPCOMM            .
  0.203130  0:2        7       3.498  ok      STARTCOMM           ..................................
  0.206700  0:2        8       0.193  ok      22 F1 90            ==
  0.206907  0:2        9       0.023  ok      STOPCOMM            .
)");
}

TEST(TraceTimeline, WaterfallPlacesBarsAtTheirRequestsTimes) {
    const ClientResult result =
        Timeline({TracePath("three_units"), "--waterfall", "--columns", "96", "--link", "1"});
    EXPECT_EQ(result.output,
              R"(. queued   - sending   = waiting   # answer   c callback   x time-out   + goes on

Process 8106, session 1; a column is 0.042 ms
      AT S  LINK     COP          MS  END     REQUEST
  0.201648  0:1        4       0.991  ok      STARTCOMM           ........................
  0.202697  0:1        5       0.197  ok      22 F1 90                                    .-===c
  0.202901  0:1        6       0.006  ok      STOPCOMM                                         .
)");
}

TEST(TraceTimeline, RowsHaveTheRequestedWidth) {
    for (const std::size_t width : {90u, 200u}) {
        const ClientResult result =
            Timeline({TracePath("silent"), "--errors", "--columns", std::to_string(width)});
        EXPECT_EQ(Rows(result.output), 1u);
        const std::string row = result.output.substr(result.output.find("22 F1 90"));
        EXPECT_EQ(row.find('x'), row.size() - 2) << row;
        const std::string all = result.output.substr(0, result.output.size() - 1);
        const std::size_t length = all.size() - all.rfind('\n') - 1;
        EXPECT_LE(length, width);
        EXPECT_GE(length, width - 1);
    }
}

TEST(TraceTimeline, LinkIsSelectedWithOrWithoutItsModule) {
    EXPECT_EQ(Rows(Timeline({TracePath("three_units"), "--link", "2"}).output), 3u);
    EXPECT_EQ(Rows(Timeline({TracePath("three_units"), "--link", "0:2"}).output), 3u);
    const ClientResult none = Timeline({TracePath("three_units"), "--link", "1:2"});
    ExpectFailure(none, "no request like that in the trace");
    EXPECT_EQ(none.output, "");
    for (const char* text : {"x", "", ":", "1:", ":1", "0:1:2"})
        EXPECT_EQ(Timeline({TracePath("silent"), "--link", text}).exit_code, 2) << text;
}

TEST(TraceTimeline, RangeSelectsEveryRequestThatOverlapsIt) {
    const std::string path = TracePath("three_units");
    EXPECT_EQ(Rows(Timeline({path, "--from", "0.2030"}).output), 3u);
    EXPECT_EQ(Rows(Timeline({path, "--to", "0.2011"}).output), 1u);
    // The fifth lasts from 0.202697 to 0.202894.
    EXPECT_EQ(Rows(Timeline({path, "--from", "0.202800", "--to", "0.202810"}).output), 1u);
    EXPECT_EQ(Timeline({path, "--from", "-1"}).exit_code, 2);
}

TEST(TraceTimeline, ErrorsSelectsRequestsWithProblems) {
    EXPECT_EQ(Rows(Timeline({TracePath("negative"), "--errors"}).output), 1u);
    EXPECT_TRUE(Contains(Timeline({TracePath("negative"), "--errors"}).output, "NRC 31  22 FF FF"));
    EXPECT_EQ(Timeline({TracePath("functional"), "--errors"}).exit_code, 1);

    const TemporaryTrace trace(StartLine(1, 1000, 1, "3e00") + SentLine(2, 1100, 1) +
                               StateLine(3, 1400, 1, kCancelled) + FreeLine(4, 1500, 1) +
                               StartLine(5, 2000, 2, "3e01"));
    const std::string output = Timeline({trace.Path(), "--errors"}).output;
    EXPECT_TRUE(Contains(output, "cancel  3E 00")) << output;
    EXPECT_TRUE(Contains(output, "open    3E 01")) << output;
    EXPECT_TRUE(Contains(output, "Process 7, session unknown;")) << output;
}

TEST(TraceTimeline, RawFramesAreNamedByIdentifierAndData) {
    const ClientResult result = Timeline({TracePath("raw_send")});
    EXPECT_EQ(Rows(result.output), 4u);
    EXPECT_TRUE(Contains(result.output, "0.062  raw     123#DEADBEEF        ...")) << result.output;
}

TEST(TraceTimeline, SeveralFilesFollowEachOtherWithTheSameScale) {
    const std::string output =
        Timeline({TracePath("negative"), TracePath("silent"), "--errors"}).output;
    EXPECT_TRUE(Contains(output, "Process 8150, session 1; a column is 16.211 ms")) << output;
    EXPECT_TRUE(Contains(output, "Process 8166, session 1; a column is 16.211 ms"));
}

TEST(TraceTimeline, DamagedLinesAreReportedOnce) {
    const TemporaryTrace trace("rubbish\n" + TraceText("silent"));
    EXPECT_EQ(Timeline({trace.Path()}).error,
              "dpdu: '" + trace.Path() + "': 1 damaged line (first: line 1) passed over\n");
}

// ---------------------------------------------------------------------------------------------

// Queued for 20 us, sent after another 10, answered 50 later, finished after another 20.
Request Answered() {
    Request request;
    request.type = PDU_COPT_SENDRECV;
    request.queued_us = 1000;
    request.started_us = 1020;
    Exchange exchange;
    exchange.sent_us = 1030;
    exchange.answered_us = 1080;
    exchange.result = ExchangeResult::kAnswered;
    request.exchanges = {exchange};
    request.finished_us = 1100;
    request.state = PDU_COPST_FINISHED;
    return request;
}

TEST(TraceBar, ShowsThePartsOfARequestToScale) {
    EXPECT_EQ(BarText(Answered(), {1000, 10, 20}), "..-=====##");
    EXPECT_EQ(BarText(Answered(), {1000, 5, 30}), "....--==========####");
    EXPECT_EQ(BarText(Answered(), {900, 10, 30}), std::string(10, ' ') + "..-=====##");
}

TEST(TraceBar, ColumnShowsThePartThatTookMostOfItsTime) {
    EXPECT_EQ(BarText(Answered(), {1000, 50, 20}), "==");
    EXPECT_EQ(BarText(Answered(), {1000, 40, 20}), ".=#");
    EXPECT_EQ(BarText(Answered(), {1000, 1000, 20}), "=");
}

TEST(TraceBar, CallbackCoversThePartThatItInterrupts) {
    Request request = Answered();
    request.callbacks = {{1085, 10}};
    EXPECT_EQ(BarText(request, {1000, 5, 30}), "....--==========#cc#");
}

TEST(TraceBar, AttemptWithoutAnswerEndsWithACross) {
    Request request = Answered();
    request.exchanges[0].result = ExchangeResult::kSilent;
    EXPECT_EQ(BarText(request, {1000, 10, 20}), "..-=====x#");
}

TEST(TraceBar, SecondAttemptShowsWaitingAgain) {
    Request request = Answered();
    request.exchanges.insert(request.exchanges.begin(), request.exchanges[0]);
    request.exchanges[0].answered_us = 0;
    request.exchanges[0].result = ExchangeResult::kOpen;
    request.exchanges[1].sent_us = 1060;
    EXPECT_EQ(BarText(request, {1000, 10, 20}), "..-=====##");
    request.exchanges[0].answered_us = 1040;
    EXPECT_EQ(BarText(request, {1000, 10, 20}), "..-=##==##");
}

TEST(TraceBar, TooLongBarIsMarkedAsContinued) {
    EXPECT_EQ(BarText(Answered(), {1000, 10, 9}), "..-=====+");
    EXPECT_EQ(BarText(Answered(), {1000, 10, 10}), "..-=====##");
}

TEST(TraceBar, ShortestRequestIsVisible) {
    Request request;
    request.queued_us = 1000;
    request.last_us = 1000;
    EXPECT_EQ(BarText(request, {1000, 10, 20}), ".");
}

}  // namespace
