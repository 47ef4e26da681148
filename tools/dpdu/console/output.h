// The program's answers on standard output, as text or as one JSON document.

#ifndef TOOLS_DPDU_CONSOLE_OUTPUT_H
#define TOOLS_DPDU_CONSOLE_OUTPUT_H

#include <cstdio>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace dpdu {

using Json = nlohmann::ordered_json;
using Row = std::vector<std::string>;

class Output {
public:
    // The stream stays the caller's. A live one is a terminal on which lines can be written anew.
    Output(std::FILE* stream, bool as_json, bool is_live = false)
        : stream_(stream), as_json_(as_json), is_live_(is_live) {}

    bool AsJson() const { return as_json_; }
    // Of the terminal that is written to; 100 when it is none.
    std::size_t Columns() const;
    bool IsLive() const { return is_live_; }

    void Line(const std::string& text);
    // The same without a line end.
    void Text(const std::string& text);
    // Left-aligned columns, two blanks apart.
    void Table(const std::vector<Row>& rows);
    // Like Table, in the place of the last live table. Needs IsLive().
    void LiveTable(const std::vector<Row>& rows);
    void Document(const Json& document);
    // A document on a line of its own, for commands that report as they go.
    void JsonLine(const Json& document);

    // Hands everything over to whoever reads. Throws Failure when that was not possible.
    void Flush();

private:
    std::FILE* stream_;
    bool as_json_;
    bool is_live_;
    std::size_t live_lines_ = 0;  // of the table that the next one replaces
};

// The lines of a table.
std::vector<std::string> TableLines(const std::vector<Row>& rows);

// "dpdu: ..." on standard error, whatever the text holds on one line.
void ErrorLine(const std::string& text);

// The same text without line ends and other control characters.
std::string OnOneLine(const std::string& text);

}  // namespace dpdu

#endif  // TOOLS_DPDU_CONSOLE_OUTPUT_H
