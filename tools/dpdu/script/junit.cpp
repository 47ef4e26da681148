#include "script/junit.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "console/failure.h"
#include "console/terminal.h"
#include "text/hex.h"
#include "text/names.h"
#include "xml/document.h"

namespace dpdu::script {
namespace {

using Outcome = TestCase::Outcome;

std::string SecondsText(double seconds) {
    char text[40];
    std::snprintf(text, sizeof text, "%.3f", seconds);
    return text;
}

std::string Attribute(const char* name, const std::string& value) {
    return std::string(" ") + name + "=\"" + XmlText(value, XmlPlace::kAttribute) + "\"";
}

std::size_t Count(const TestSuite& suite, Outcome outcome) {
    return static_cast<std::size_t>(
        std::count_if(suite.cases.begin(), suite.cases.end(),
                      [outcome](const TestCase& one) { return one.outcome == outcome; }));
}

std::string Totals(const TestSuite& suite) {
    return Attribute("tests", std::to_string(suite.cases.size())) +
           Attribute("failures", std::to_string(Count(suite, Outcome::kFailed))) +
           Attribute("errors", std::to_string(Count(suite, Outcome::kBroken))) +
           Attribute("skipped", std::to_string(Count(suite, Outcome::kNotRun))) +
           Attribute("time", SecondsText(suite.seconds));
}

std::string OutcomeText(const TestCase& one) {
    const std::string rest =
        Attribute("message", one.message) + ">" + XmlText(one.details, XmlPlace::kContent) + "</";
    switch (one.outcome) {
        case Outcome::kNotRun:
            return "      <skipped/>\n";
        case Outcome::kFailed:
            return "      <failure" + rest + "failure>\n";
        case Outcome::kBroken:
            return "      <error" + rest + "error>\n";
        case Outcome::kPassed:
            break;
    }
    return "";
}

std::string CaseText(const TestSuite& suite, const TestCase& one) {
    std::string text = "    <testcase" + Attribute("classname", suite.name) +
                       Attribute("name", one.name) + Attribute("time", SecondsText(one.seconds)) +
                       ">\n" + OutcomeText(one);
    if (!one.output.empty())
        text += "      <system-out>" + XmlText(one.output, XmlPlace::kContent) + "</system-out>\n";
    return text + "    </testcase>\n";
}

// The length of the UTF-8 character at the beginning, and its number; zero: there is none.
std::size_t DecodeCharacter(std::string_view text, char32_t* character) {
    static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const auto first = static_cast<unsigned char>(text.front());
    const std::size_t length = first < 0x80             ? 1
                               : (first & 0xE0) == 0xC0 ? 2
                               : (first & 0xF0) == 0xE0 ? 3
                               : (first & 0xF8) == 0xF0 ? 4
                                                        : 0;
    if (length == 0 || text.size() < length) return 0;
    *character = length == 1 ? first : first & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xC0) != 0x80) return 0;
        *character = *character << 6 | (byte & 0x3F);
    }
    return *character >= kSmallest[length] ? length : 0;
}

bool IsInXml(char32_t character) {
    return character == '\t' || character == '\n' || character == '\r' ||
           (character >= 0x20 && character < 0xD800) ||
           (character >= 0xE000 && character < 0xFFFE) ||
           (character >= 0x10000 && character < 0x110000);
}

// Readers turn line ends into line feeds, and in attributes into blanks.
bool IsLostByReaders(char32_t character, XmlPlace place) {
    if (character == '\r') return true;
    return place == XmlPlace::kAttribute && (character == '\n' || character == '\t');
}

}  // namespace

std::string XmlText(std::string_view text, XmlPlace place) {
    std::string result;
    while (!text.empty()) {
        char32_t character = 0;
        const std::size_t decoded = DecodeCharacter(text, &character);
        const std::size_t length = std::max<std::size_t>(decoded, 1);
        const std::string_view bytes = text.substr(0, length);
        if (decoded == 0 || !IsInXml(character)) {
            for (const char byte : bytes)
                result += "\\x" + HexNumber(static_cast<unsigned char>(byte), 2);
        } else if (IsLostByReaders(character, place)) {
            result += "&#" + std::to_string(static_cast<unsigned>(character)) + ";";
        } else {
            result += xml::Escaped(bytes);
        }
        text.remove_prefix(length);
    }
    return result;
}

std::string JUnitText(const TestSuite& suite) {
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites" + Totals(suite) +
                       ">\n  <testsuite" + Attribute("name", suite.name) + Totals(suite) +
                       Attribute("timestamp", suite.started) + ">\n";
    for (const TestCase& one : suite.cases)
        text += CaseText(suite, one);
    return text + "  </testsuite>\n</testsuites>\n";
}

ReplacedFile::ReplacedFile(std::string path)
    : path_(std::move(path)), temporary_(path_ + "." + std::to_string(OwnProcessId()) + ".tmp") {
    std::error_code ignored;  // what is not there is no folder
    if (std::filesystem::is_directory(PathOf(path_), ignored)) {
        throw Failure("'" + path_ + "' is a folder");
    }
    std::FILE* file = OpenFile(temporary_, "wb");
    if (!file) throw Failure("'" + path_ + "' cannot be written");
    std::fclose(file);
}

ReplacedFile::~ReplacedFile() {
    std::error_code ignored;  // after Write there is none
    std::filesystem::remove(PathOf(temporary_), ignored);
}

void ReplacedFile::Write(const std::string& text) {
    std::FILE* file = OpenFile(temporary_, "wb");
    bool is_written = file && std::fwrite(text.data(), 1, text.size(), file) == text.size();
    if (file) is_written = std::fclose(file) == 0 && is_written;
    std::error_code error;
    if (is_written) std::filesystem::rename(PathOf(temporary_), PathOf(path_), error);
    if (!is_written || error) throw Failure("'" + path_ + "' could not be written");
}

}  // namespace dpdu::script
