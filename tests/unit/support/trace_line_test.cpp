#include "support/trace_line.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

#include "support/log.h"

namespace tarvik {
namespace {

std::string TextOf(const TraceWriter& line) { return {line.Data(), line.Length()}; }

TEST(TraceWriter, NumbersMatchPrintf) {
    for (const unsigned long long value :
         {0ull, 9ull, 10ull, 4294967295ull, 18446744073709551615ull}) {
        char text[64];
        TraceWriter line(text, sizeof text);
        line.Number<"n">(value);
        char expected[64];
        FormatText(expected, sizeof expected, "\"n\":%llu", value);
        EXPECT_EQ(TextOf(line), expected);
    }
    for (const long long value : {0ll, -1ll, 42ll, std::numeric_limits<long long>::min(),
                                  std::numeric_limits<long long>::max()}) {
        char text[64];
        TraceWriter line(text, sizeof text);
        line.Signed<"n">(value);
        char expected[64];
        FormatText(expected, sizeof expected, "\"n\":%lld", value);
        EXPECT_EQ(TextOf(line), expected);
    }
}

TEST(TraceWriter, EveryByteHasItsTwoLowerCaseDigits) {
    unsigned char bytes[256];
    std::string expected;
    for (unsigned i = 0; i < 256; ++i) {
        bytes[i] = static_cast<unsigned char>(i);
        char digits[3];
        FormatText(digits, sizeof digits, "%02x", i);
        expected += digits;
    }
    char text[1024];
    TraceWriter line(text, sizeof text);
    line.Digits(bytes, sizeof bytes);
    EXPECT_EQ(TextOf(line), expected);
}

TEST(TraceWriter, HexStopsAfter512Bytes) {
    const std::string bytes(513, '\x11');
    char text[2048];
    TraceWriter line(text, sizeof text);
    line.Digits(bytes.data(), bytes.size());
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
        line.BeginObject().Number<"n">(1234567890u).Flag<"f">(true).Text(",");
        line.Digits("\xab\xcd", 2).EndObject();
        char expected[64];
        std::snprintf(expected, size, "{\"n\":%u,\"f\":%s,%s}", 1234567890u, "true", "abcd");
        EXPECT_EQ(TextOf(line), expected);
        EXPECT_EQ(line.WasCut(), size < 31u) << size;
    }
}

TEST(TraceWriter, FirstFieldOfAnObjectHasNoComma) {
    char text[128];
    TraceWriter line(text, sizeof text);
    line.BeginObject().Number<"a">(1).BeginObject<"b">().Signed<"c">(-2).Flag<"d">(false);
    line.EndObject().Null<"e">().String<"f">("g").EndObject();
    EXPECT_EQ(TextOf(line), R"({"a":1,"b":{"c":-2,"d":false},"e":null,"f":"g"})");
}

TEST(TraceWriter, ElementsOfAnArrayAreSeparatedByCommas) {
    char text[128];
    TraceWriter line(text, sizeof text);
    line.BeginObject().BeginArray<"empty">().EndArray().BeginArray<"two">();
    line.BeginObject().Number<"a">(1).EndObject().BeginObject().EndObject().EndArray().EndObject();
    EXPECT_EQ(TextOf(line), R"({"empty":[],"two":[{"a":1},{}]})");
}

TEST(TraceWriter, BytesAreFollowedByTheirCountAndWhetherTheyWereCut) {
    const std::string bytes(513, '\x11');
    char text[2048];
    TraceWriter line(text, sizeof text);
    line.Bytes<"h", "n", "cut">(bytes.data(), 2).Bytes<"h", "n", "cut">(bytes.data(), 513);
    EXPECT_EQ(TextOf(line), R"("h":"1111","n":2,"cut":false,"h":")" + std::string(1024, '1') +
                                R"(","n":512,"cut":true)");
}

TEST(TraceWriter, EscapedStringIsQuoted) {
    char text[64];
    TraceWriter line(text, sizeof text);
    line.EscapedString<"t">("a\"b", 3, 100);
    EXPECT_EQ(TextOf(line), R"("t":"a\"b")");
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

TEST(TraceWriter, ReservedRoomRemainsForTheEnd) {
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
    *whole = line.Escaped(from.data(), from.size(), max_output);
    return TextOf(line);
}

TEST(TraceWriter, EscapesWhatJsonNeedsAndLeavesOutWhatDoesNotPrint) {
    bool whole = false;
    EXPECT_EQ(Escaped(std::string("a\"b\\c\td\ne\rf\x01\x7f\x80\0g ~\0", 19), 100, &whole),
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
