// Reading XML, and editing root files of other hands' style.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "console/failure.h"
#include "root/entry.h"
#include "root/root_edit.h"
#include "xml/document.h"

namespace dpdu {
namespace {

const root::Entry kOwn = {.short_name = "Own_1_2_3",
                          .description = "Ours & \"theirs\"",
                          .supplier = "Tarvik",
                          .library_uri = "file:///opt/own/library.so",
                          .module_description_uri = "file:///opt/own/mdf.xml",
                          .cable_description_uri = "file:///opt/own/cdf.xml"};

std::string ErrorOf(const std::string& text) {
    try {
        root::WithEntry(text, kOwn);
        return "";
    } catch (const xml::ParseError& error) {
        return error.what();
    }
}

// ---------------------------------------------------------------- elements and their bytes

TEST(XmlDocument, ElementsKnowTheirBytes) {
    const std::string text =
        "\xEF\xBB\xBF<?xml version='1.0'?>\r\n<a x='1'>\r\n <b/>t<c >&lt;</c >\r\n</a>\n";
    const xml::Document document = xml::Parse(text);
    const auto of = [&text](xml::Range range) {
        return text.substr(range.begin, range.end - range.begin);
    };
    EXPECT_TRUE(document.has_byte_order_mark);
    EXPECT_EQ(of(document.root.start_tag), "<a x='1'>");
    EXPECT_EQ(of(document.root.end_tag), "</a>");
    EXPECT_EQ(document.root.line, 2u);
    ASSERT_EQ(document.root.children.size(), 2u);
    EXPECT_EQ(of(document.root.children[0]->whole), "<b/>");
    EXPECT_TRUE(document.root.children[0]->end_tag.IsEmpty());
    EXPECT_EQ(of(document.root.children[1]->whole), "<c >&lt;</c >");
    EXPECT_EQ(document.root.ChildText("c"), "<");
    EXPECT_EQ(*document.root.FindAttribute("x"), "1");
    EXPECT_EQ(document.root.FindAttribute("y"), nullptr);
}

TEST(XmlDocument, DeepNestingIsRefused) {
    std::string text;
    for (int i = 0; i < 100'000; ++i)
        text += "<a>";
    EXPECT_THROW(xml::Parse(text), xml::ParseError);
}

// ---------------------------------------------------------------- addresses

TEST(RootEntry, AddressesAndPathsCorrespond) {
    EXPECT_EQ(root::UriOfPath("/opt/a b/x.so"), "file:///opt/a b/x.so");
    EXPECT_EQ(root::UriOfPath("C:\\Tarvik\\x.dll"), "file:///C:/Tarvik/x.dll");
    EXPECT_EQ(root::PathOfUri("file:///opt/a b/x.so"), "/opt/a b/x.so");
    EXPECT_EQ(root::PathOfUri("file:///C:/Tarvik/x.dll"), "C:/Tarvik/x.dll");
    EXPECT_EQ(root::PathOfUri("file://host/x.so"), "");
    EXPECT_EQ(root::PathOfUri("/opt/x.so"), "");
}

TEST(RootEntry, PathsThatNoAddressCanNameAreRefused) {
    for (const char* path :
         {"x.so", "C:x.dll", "\\\\host\\share\\x.dll", "/opt/../x.so", "/a/..", "/opt/50%/x.so",
          "/opt/a#b", "/opt/a?", "/opt/a\nb", "/opt/\x01", "/opt/\xE4", "/opt/a\\b"}) {
        EXPECT_THROW(root::UriOfPath(path), Failure) << path;
    }
    EXPECT_EQ(root::UriOfPath("/opt/a..b/x.so"), "file:///opt/a..b/x.so");
}

// ---------------------------------------------------------------- styles

constexpr char kVendorA[] = "<MVCI_PDU_API><SHORT_NAME>A</SHORT_NAME></MVCI_PDU_API>";

// Root files as others write them. Each has only entries of others.
const std::vector<std::string>& Styles() {
    static const std::string a = kVendorA;
    static const std::vector<std::string> styles = {
        root::EmptyRootFile(),
        "<MVCI_PDU_API_ROOT></MVCI_PDU_API_ROOT>",
        "<MVCI_PDU_API_ROOT/>",
        "<MVCI_PDU_API_ROOT />\n",
        "<?xml version=\"1.0\"?>\r\n<MVCI_PDU_API_ROOT MVCI_PART2_STANDARD_VERSION='2.2.2' />\r\n",
        "<MVCI_PDU_API_ROOT a=\"/\"/>",
        "<MVCI_PDU_API_ROOT\n\ta='1'\n\tb='2'\n/>\n",
        "<MVCI_PDU_API_ROOT>\n</MVCI_PDU_API_ROOT>",
        "<MVCI_PDU_API_ROOT>\n\n\n</MVCI_PDU_API_ROOT\n>\n\n",
        "<MVCI_PDU_API_ROOT> </MVCI_PDU_API_ROOT >",
        "<MVCI_PDU_API_ROOT>" + a + "</MVCI_PDU_API_ROOT>",
        "<MVCI_PDU_API_ROOT>" + a + a + "</MVCI_PDU_API_ROOT>",
        "<MVCI_PDU_API_ROOT>\n  " + a + "\n</MVCI_PDU_API_ROOT>\n",
        "<MVCI_PDU_API_ROOT>\r\n\t" + a + "\r\n</MVCI_PDU_API_ROOT>\r\n",
        "<MVCI_PDU_API_ROOT>\r\n\t<MVCI_PDU_API>\r\n\t\t<SHORT_NAME>A</SHORT_NAME>\r\n"
        "\t</MVCI_PDU_API>\r\n</MVCI_PDU_API_ROOT>",
        "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<MVCI_PDU_API_ROOT>\r\n    " +
            a + "\r\n</MVCI_PDU_API_ROOT>\r\n",
        "<!-- first --><MVCI_PDU_API_ROOT><!-- in --></MVCI_PDU_API_ROOT><!-- last -->",
        "<MVCI_PDU_API_ROOT>\n<!-- <MVCI_PDU_API> -->\n" + a +
            "<!-- behind -->\n</MVCI_PDU_API_ROOT>",
        "<?vendor x?>\n<MVCI_PDU_API_ROOT><?inside y?>" + a +
            "<?end z?></MVCI_PDU_API_ROOT>\n<?after?>",
        "<MVCI_PDU_API_ROOT>\n" + a + "\n\n\n" + a + "\n\n</MVCI_PDU_API_ROOT>",
        "<MVCI_PDU_API_ROOT>   " + a + "   </MVCI_PDU_API_ROOT>",
        "<!DOCTYPE MVCI_PDU_API_ROOT>\n<MVCI_PDU_API_ROOT>\n  " + a + "\n</MVCI_PDU_API_ROOT>",
        "<!DOCTYPE MVCI_PDU_API_ROOT [<!ENTITY v 'Vendor'>]>\n<MVCI_PDU_API_ROOT>\n"
        "  <MVCI_PDU_API><SHORT_NAME>&v;</SHORT_NAME></MVCI_PDU_API>\n</MVCI_PDU_API_ROOT>",
        "<MVCI_PDU_API_ROOT><MVCI_PDU_API><SHORT_NAME><![CDATA[A]]></SHORT_NAME></MVCI_PDU_API>"
        "</MVCI_PDU_API_ROOT>",
        "<MVCI_PDU_API_ROOT>text" + a + "text</MVCI_PDU_API_ROOT>",
        "<MVCI_PDU_API_ROOT><MVCI_PDU_API/></MVCI_PDU_API_ROOT>",
        "<MVCI_PDU_API_ROOT>\n  <OTHER/>\n  " + a + "\n  <OTHER>\n  </OTHER>\n</MVCI_PDU_API_ROOT>",
        "<MVCI_PDU_API_ROOT>\n  <MVCI_PDU_API>\n    <LIBRARY_FILE URI=\"file:///a\"/>\n"
        "    <SHORT_NAME>\n      A\n    </SHORT_NAME>\n  </MVCI_PDU_API>\n</MVCI_PDU_API_ROOT>",
        "<MVCI_PDU_API_ROOT xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\n\t" + a +
            "\n</MVCI_PDU_API_ROOT>",
        "<MVCI_PDU_API_ROOT>\n  <MVCI_PDU_API><SHORT_NAME>\xC3\x84\xF0\x9F\x98\x80</SHORT_NAME>"
        "</MVCI_PDU_API>\n</MVCI_PDU_API_ROOT>\n",
        "<MVCI_PDU_API_ROOT>\r" + a + "\r</MVCI_PDU_API_ROOT>\r",
        "<MVCI_PDU_API_ROOT>\n  <MVCI_PDU_API><SHORT_NAME>Own_1_2_3_4</SHORT_NAME></MVCI_PDU_API>\n"
        "</MVCI_PDU_API_ROOT>",
    };
    return styles;
}

TEST(RootText, RemovingWhatWasAddedRestoresEveryByte) {
    ASSERT_GE(Styles().size(), 30u);
    for (const std::string& text : Styles()) {
        const std::string added = root::WithEntry(text, kOwn);
        EXPECT_NE(added, text);
        EXPECT_EQ(root::WithoutEntry(added, kOwn.short_name), text) << added;
    }
}

TEST(RootText, AddedEntryIsReadBackBesideTheOthers) {
    for (const std::string& text : Styles()) {
        const std::vector<root::Entry> before = root::EntriesOf(xml::Parse(text));
        const std::vector<root::Entry> after =
            root::EntriesOf(xml::Parse(root::WithEntry(text, kOwn)));
        ASSERT_EQ(after.size(), before.size() + 1) << text;
        for (std::size_t i = 0; i < before.size(); ++i) {
            EXPECT_EQ(after[i].short_name, before[i].short_name);
            EXPECT_EQ(after[i].library_uri, before[i].library_uri);
        }
        EXPECT_EQ(after.back().short_name, kOwn.short_name);
        EXPECT_EQ(after.back().description, kOwn.description);
        EXPECT_EQ(after.back().supplier, kOwn.supplier);
        EXPECT_EQ(after.back().library_uri, kOwn.library_uri);
        EXPECT_EQ(after.back().module_description_uri, kOwn.module_description_uri);
        EXPECT_EQ(after.back().cable_description_uri, kOwn.cable_description_uri);
    }
}

// What was there is there still, in the same order: the new bytes are in one place, except where
// one tag has become two.
TEST(RootText, OtherBytesStayAsTheyAre) {
    for (const std::string& text : Styles()) {
        if (xml::Parse(text).root.end_tag.IsEmpty()) continue;
        const std::string added = root::WithEntry(text, kOwn);
        const auto differs = std::ranges::mismatch(text, added).in1;
        const auto same = static_cast<std::size_t>(differs - text.begin());
        const std::string rest = text.substr(same);
        EXPECT_TRUE(added.ends_with(rest)) << added;
    }
}

TEST(RootText, AddingTwiceChangesNothingMore) {
    for (const std::string& text : Styles()) {
        const std::string added = root::WithEntry(text, kOwn);
        EXPECT_EQ(root::WithEntry(added, kOwn), added);
    }
}

TEST(RootText, NewEntryIsWrittenLikeTheLastOne) {
    const std::string added = root::WithEntry(
        "<MVCI_PDU_API_ROOT>\r\n\t<MVCI_PDU_API>\r\n\t\t<SHORT_NAME>A</SHORT_NAME>\r\n"
        "\t</MVCI_PDU_API>\r\n</MVCI_PDU_API_ROOT>",
        kOwn);
    EXPECT_NE(added.find("\r\n\t<MVCI_PDU_API>\r\n\t\t<SHORT_NAME>Own_1_2_3</SHORT_NAME>\r\n"
                         "\t\t<DESCRIPTION>Ours &amp; &quot;theirs&quot;</DESCRIPTION>\r\n"),
              added.npos)
        << added;
    EXPECT_TRUE(added.ends_with("\r\n\t</MVCI_PDU_API>\r\n</MVCI_PDU_API_ROOT>"));
}

TEST(RootText, OlderEntryOfTheSameNameIsReplacedInItsPlace) {
    const std::string own = "<MVCI_PDU_API><SHORT_NAME> Own_1_2_3 </SHORT_NAME></MVCI_PDU_API>";
    const std::string b = "<MVCI_PDU_API><SHORT_NAME>B</SHORT_NAME></MVCI_PDU_API>";
    const std::string text = "<MVCI_PDU_API_ROOT>\n  " + own + "\n  " + b + "\n  " + own + "\n  " +
                             own + "\n</MVCI_PDU_API_ROOT>\n";
    const std::vector<root::Entry> entries =
        root::EntriesOf(xml::Parse(root::WithEntry(text, kOwn)));
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].short_name, kOwn.short_name);
    EXPECT_EQ(entries[0].library_uri, kOwn.library_uri);
    EXPECT_EQ(entries[1].short_name, "B");
    EXPECT_EQ(root::WithoutEntry(text, kOwn.short_name),
              "<MVCI_PDU_API_ROOT>\n  " + b + "\n</MVCI_PDU_API_ROOT>\n");
}

TEST(RootText, EntryWithBlanksAroundItsNameIsWrittenAgain) {
    const std::string added = root::WithEntry(root::EmptyRootFile(), kOwn);
    std::string blank = added;
    blank.insert(blank.find(kOwn.short_name), " ");
    EXPECT_EQ(root::WithEntry(blank, kOwn), added);
}

TEST(RootText, AddressThatTheDeclaredEncodingLacksIsRefused) {
    root::Entry entry = kOwn;
    entry.library_uri = "file:///opt/\xC3\xA9/library.so";
    EXPECT_THROW(
        root::WithEntry("<?xml version='1.0' encoding='US-ASCII'?><MVCI_PDU_API_ROOT/>", entry),
        xml::ParseError);
}

TEST(RootText, EntryThatAnotherVendorAddedLaterStaysWhenOursGoes) {
    for (const std::string& text : Styles()) {
        std::string both = root::WithEntry(text, kOwn);
        both.insert(xml::Parse(both).root.end_tag.begin, kVendorA);
        const std::string rest = root::WithoutEntry(both, kOwn.short_name);
        const std::size_t before = root::EntriesOf(xml::Parse(text)).size();
        const std::vector<root::Entry> entries = root::EntriesOf(xml::Parse(rest));
        ASSERT_EQ(entries.size(), before + 1) << rest;
        EXPECT_EQ(entries.back().short_name, "A");
        EXPECT_EQ(rest.find("was empty"), rest.npos);
    }
}

TEST(RootText, DamagedFilesAreRefusedWithTheirLine) {
    const struct {
        std::string text;
        const char* part;
    } rows[] = {
        {"", "line 1: no element found"},
        {"<MVCI_PDU_API_ROOT>\n<MVCI_PDU_API>", "line 2: no element found"},
        {"<MVCI_PDU_API_ROOT>\n\n</MVCI_PDU_API>", "line 3: mismatched tag"},
        {"<MVCI_PDU_API_ROOT/>\n<MVCI_PDU_API_ROOT/>", "line 2: junk after document element"},
        {"<MVCI_PDU_API_ROOT a='1' a='2'/>", "line 1: duplicate attribute"},
        {"<MVCI_PDU_API_ROOT>\xC3(</MVCI_PDU_API_ROOT>", "line 1: not well-formed"},
        {"<MVCI_PDU_API_ROOT>\xE4</MVCI_PDU_API_ROOT>", "line 1: not well-formed"},
        {"<MVCI_PDU_API_ROOT>\x01</MVCI_PDU_API_ROOT>", "line 1: not well-formed"},
        {"<MVCI_PDU_API_ROOT>&vendor;</MVCI_PDU_API_ROOT>", "line 1: undefined entity"},
        {std::string("\xFF\xFE<\0M\0", 6), "line 1: the file is in UTF-16, not in UTF-8"},
        {"<?xml version='1.0' encoding='ISO-8859-1'?><MVCI_PDU_API_ROOT/>",
         "line 1: the file is in ISO-8859-1, not in UTF-8"},
        {"<?xml version='1.0' "
         "encoding='us-ascii'?>\n<MVCI_PDU_API_ROOT>\xC3\xA9</MVCI_PDU_API_ROOT>",
         "line 1: the file is declared as ASCII, which it is not"},
        {"\n<MVCI_MODULE_DESCRIPTION/>",
         "line 2: the element is MVCI_MODULE_DESCRIPTION, not MVCI_PDU_API_ROOT"},
        {"<!DOCTYPE x [<!ENTITY e '<MVCI_PDU_API/>'>]><MVCI_PDU_API_ROOT>&e;</MVCI_PDU_API_ROOT>",
         "line 1: <MVCI_PDU_API> comes from an entity, which cannot be edited"},
        {"<MVCI_PDU_API_ROOT", "line 1: "},
    };
    for (const auto& row : rows) {
        const std::string error = ErrorOf(row.text);
        EXPECT_EQ(error.substr(0, std::string_view(row.part).size()), row.part) << row.text;
        EXPECT_EQ(error.find('\n'), error.npos);
        EXPECT_THROW(root::WithoutEntry(row.text, kOwn.short_name), xml::ParseError);
    }
}

}  // namespace
}  // namespace dpdu
