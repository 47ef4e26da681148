// The program's answers on standard output, as text or as one JSON document.

#ifndef TOOLS_DPDU_OUTPUT_H
#define TOOLS_DPDU_OUTPUT_H

#include <cstdio>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace dpdu {

using Json = nlohmann::ordered_json;
using Row = std::vector<std::string>;

class Output {
public:
    // The stream stays the caller's.
    Output(std::FILE* stream, bool as_json) : stream_(stream), as_json_(as_json) {}

    bool AsJson() const { return as_json_; }
    // Of the terminal that is written to; 100 when it is none.
    std::size_t Columns() const;

    void Line(const std::string& text);
    // The same without a line end.
    void Text(const std::string& text);
    // Left-aligned columns, two blanks apart.
    void Table(const std::vector<Row>& rows);
    void Document(const Json& document);

    // Throws Failure when something could not be written.
    void Finish();

private:
    std::FILE* stream_;
    bool as_json_;
};

// "dpdu: ..." on standard error, whatever the text holds on one line.
void ErrorLine(const std::string& text);

// The same text without line ends and other control characters.
std::string OnOneLine(const std::string& text);

}  // namespace dpdu

#endif  // TOOLS_DPDU_OUTPUT_H
