#include "support/trace_line.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

#include "support/log.h"

namespace tarvik {
namespace {

std::string TextOf(const TraceWriter& line) { return {line.Data(), line.Length()}; }

TEST(TraceWriter, NumbersAreThoseOfPrintf) {
    for (const unsigned long long value :
         {0ull, 9ull, 10ull, 4294967295ull, 18446744073709551615ull}) {
        char text[64];
        TraceWriter line(text, sizeof text);
        line.Number("n=", value);
        char expected[64];
        FormatText(expected, sizeof expected, "n=%llu", value);
        EXPECT_EQ(TextOf(line), expected);
    }
    for (const long long value : {0ll, -1ll, 42ll, std::numeric_limits<long long>::min(),
                                  std::numeric_limits<long long>::max()}) {
        char text[64];
        TraceWriter line(text, sizeof text);
        line.Signed("n=", value);
        char expected[64];
        FormatText(expected, sizeof expected, "n=%lld", value);
        EXPECT_EQ(TextOf(line), expected);
    }
}

TEST(TraceWriter, EveryByteHasItsTwoLowerCaseDigits) {
    unsigned char bytes[256];
    std::string expected = "h=";
    for (unsigned i = 0; i < 256; ++i) {
        bytes[i] = static_cast<unsigned char>(i);
        char digits[3];
        FormatText(digits, sizeof digits, "%02x", i);
        expected += digits;
    }
    char text[1024];
    TraceWriter line(text, sizeof text);
    line.Hex("h=", bytes, sizeof bytes);
    EXPECT_EQ(TextOf(line), expected);
}

TEST(TraceWriter, HexStopsAfter512Bytes) {
    const std::string bytes(513, '\x11');
    char text[2048];
    TraceWriter line(text, sizeof text);
    line.Hex("", bytes.data(), bytes.size());
    EXPECT_EQ(TextOf(line), std::string(1024, '1'));
    EXPECT_EQ(TraceWriter::HexBytes(511), 511u);
    EXPECT_EQ(TraceWriter::HexBytes(512), 512u);
    EXPECT_EQ(TraceWriter::HexBytes(513), 512u);
    EXPECT_FALSE(TraceWriter::HexCut(512));
    EXPECT_TRUE(TraceWriter::HexCut(513));
}

TEST(TraceWriter, CutsWherePrintfWould) {
    for (std::size_t size = 1; size < 40; ++size) {
        char text[64];
        TraceWriter line(text, size);
        line.Text("key").Number(":", 1234567890u).Flag(",", true).Hex(",", "\xab\xcd", 2).Text("}");
        char expected[64];
        std::snprintf(expected, size, "key:%u,%s,%s}", 1234567890u, "true", "abcd");
        EXPECT_EQ(TextOf(line), expected);
        EXPECT_EQ(line.WasCut(), size < 26u) << size;
    }
}

TEST(TraceWriter, RollBackForgetsTheCut) {
    char text[8];
    TraceWriter line(text, sizeof text);
    line.Text("abc").Text("defghi");
    EXPECT_TRUE(line.WasCut());
    line.RollBack(3);
    EXPECT_FALSE(line.WasCut());
    EXPECT_EQ(TextOf(line), "abc");
}

TEST(TraceWriter, ReservedRoomIsThereForTheEnd) {
    char text[8];
    TraceWriter line(text, sizeof text);
    line.Reserve(2);
    line.Text("abcdefgh");
    EXPECT_EQ(TextOf(line), "abcde");
    line.Release(2);
    line.Text("]}");
    EXPECT_EQ(TextOf(line), "abcde]}");
}

std::string Escaped(const std::string& from, std::size_t max_output, bool* whole) {
    char text[2048];
    TraceWriter line(text, sizeof text);
    *whole = line.Escaped("", from.data(), from.size(), max_output);
    return TextOf(line);
}

TEST(TraceWriter, EscapesWhatJsonNeedsAndLeavesOutWhatDoesNotPrint) {
    bool whole = false;
    EXPECT_EQ(Escaped(std::string("a\"b\\c\td\ne\rf\x01\x7f\x80\0g ~", 19), 100, &whole),
              R"(a\"b\\c\td\ne\rfg ~)");
    EXPECT_TRUE(whole);
}

TEST(TraceWriter, EscapeIsNeverSplitAtTheLimit) {
    bool whole = false;
    EXPECT_EQ(Escaped("abc\n", 5, &whole), "abc\\n");
    EXPECT_TRUE(whole);
    EXPECT_EQ(Escaped("abc\n", 4, &whole), "abc");
    EXPECT_FALSE(whole);
    EXPECT_EQ(Escaped("abcd", 4, &whole), "abcd");
    EXPECT_TRUE(whole);
}

}  // namespace
}  // namespace tarvik
