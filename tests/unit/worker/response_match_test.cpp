#include "worker/response_match.h"

#include <gtest/gtest.h>

#include <vector>

namespace tarvik {
namespace {

bool Matches(std::vector<UNUM8> mask, std::vector<UNUM8> pattern, std::vector<UNUM8> response,
             UNUM32 type = 0) {
    PDU_EXP_RESP_DATA expected{};
    expected.ResponseType = type;
    expected.NumMaskPatternBytes = static_cast<UNUM32>(mask.size());
    expected.pMaskData = mask.data();
    expected.pPatternData = pattern.data();
    return MatchesExpectedResponse(expected, {response.data(), response.size()});
}

TEST(ResponseMatch, PatternByteMatchesItself) { EXPECT_TRUE(Matches({0xFF}, {0x62}, {0x62})); }

TEST(ResponseMatch, ResponseByteOfZeroMatchesAnything) {
    EXPECT_TRUE(Matches({0xFF}, {0x62}, {0x00}));
}

TEST(ResponseMatch, ResponseByteMasksBothSides) {
    EXPECT_TRUE(Matches({0xFF}, {0x7F}, {0x62}));
    EXPECT_FALSE(Matches({0xFF}, {0x62}, {0x7F}));
    EXPECT_FALSE(Matches({0x0F}, {0x62}, {0x62}));  // the mask does not apply to the pattern
}

TEST(ResponseMatch, BytesThatTheResponseDoesNotHaveMatch) {
    EXPECT_TRUE(Matches({0xFF, 0xFF, 0xFF}, {0x62, 0xF1, 0x90}, {0x62}));
    EXPECT_TRUE(Matches({0xFF}, {0x62}, {}));
}

TEST(ResponseMatch, LongerResponseIsNotCompared) {
    EXPECT_TRUE(Matches({0xFF}, {0x62}, {0x62, 0xF1, 0x90, 0x01}));
}

TEST(ResponseMatch, WithoutMaskOnlyThePositiveTypeMatches) {
    EXPECT_TRUE(Matches({}, {}, {0x7F}, 0));
    EXPECT_FALSE(Matches({}, {}, {0x62}, 1));
}

}  // namespace
}  // namespace tarvik
