// What the doctor says of a dongle's answer.
#include <gtest/gtest.h>

#include "doctor/dongle_answer.h"

namespace dpdu {
namespace {

TEST(DongleAnswer, PortThatCannotBeOpenedIsNoted) {
    EXPECT_EQ(AskDongle("there-is-no-such-port"), DongleAnswer::kNotOpened);
    const Finding finding = AnswerFinding("COM5", DongleAnswer::kNotOpened, "");
    EXPECT_EQ(finding.verdict, Verdict::kNote);
    EXPECT_EQ(finding.text, "the port of the dongle on COM5 is in use");
}

}  // namespace
}  // namespace dpdu
