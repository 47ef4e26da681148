#include "worker/can_formats.h"

#include <gtest/gtest.h>

namespace tarvik::test {
namespace {

TEST(CanFormats, AreNamedByTheirBits) {
    constexpr const char* kNames[] = {"11-bit, unsegmented, w/o FC",
                                      "11-bit, unsegmented, w/ FC",
                                      "29-bit, unsegmented, w/o FC",
                                      "29-bit, unsegmented, w/ FC",
                                      "11-bit, segmented, w/o FC",
                                      "11-bit, segmented, w/ FC",
                                      "29-bit, segmented, w/o FC",
                                      "29-bit, segmented, w/ FC",
                                      "extended, 11-bit, unsegmented, w/o FC",
                                      "extended, 11-bit, unsegmented, w/ FC",
                                      "extended, 29-bit, unsegmented, w/o FC",
                                      "extended, 29-bit, unsegmented, w/ FC",
                                      "extended, 11-bit, segmented, w/o FC",
                                      "extended, 11-bit, segmented, w/ FC",
                                      "extended, 29-bit, segmented, w/o FC",
                                      "extended, 29-bit, segmented, w/ FC"};
    for (std::uint32_t format = 0; format < 16; ++format) {
        EXPECT_STREQ(CanFormatName(format), kNames[format]);
    }
}

TEST(CanFormats, UnknownOnesAreNotLookedUp) {
    EXPECT_NE(CanFormatName(16), nullptr);
    EXPECT_NE(CanFormatName(0xFFFFFFFF), nullptr);
}

}  // namespace
}  // namespace tarvik::test
