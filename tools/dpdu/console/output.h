// The program's results on standard output, as text or as one JSON document.

#ifndef TOOLS_DPDU_CONSOLE_OUTPUT_H
#define TOOLS_DPDU_CONSOLE_OUTPUT_H

#include <cstdio>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "console/terminal.h"

namespace dpdu {

using Json = nlohmann::ordered_json;
using Row = std::vector<std::string>;

class Output {
public:
    // The caller keeps the stream. Live: a terminal on which lines can be overwritten.
    Output(std::FILE* stream, bool as_json, bool is_live = false)
        : stream_(stream), as_json_(as_json), is_live_(is_live) {}

    bool AsJson() const { return as_json_; }
    // Width of the terminal; 100 if the stream is not a terminal.
    std::size_t Columns() const;
    // Height of the terminal; 24 if the stream is not a terminal.
    std::size_t Lines() const;
    bool IsLive() const { return is_live_; }
    bool IsTerminal() const { return dpdu::IsTerminal(stream_); }
    // What follows is not text: its bytes stay as they are on every system.
    void BeginBinary() { UseBinaryMode(stream_); }

    // This and what follows throws ReaderGone if the stream is a pipe that nobody reads any more.
    void Line(const std::string& text);
    // Like Line, without a line end.
    void Text(const std::string& text);
    // Left-aligned columns, two spaces apart.
    void Table(const std::vector<Row>& rows);
    // Lines that replace those of the last call. No more than fit: less than the terminal has.
    // Needs IsLive().
    void LiveLines(const std::vector<std::string>& lines);
    // Removes them.
    void EndLiveLines();
    void Document(const Json& document);
    // One document on one line, for commands that report continuously.
    void JsonLine(const Json& document);

    // Writes out everything buffered. Throws Failure if that or an earlier write fails.
    void Flush();

private:
    void NoteError();

    std::FILE* stream_;
    bool as_json_;
    bool is_live_;
    int error_ = 0;               // errno of the first failed write
    std::size_t live_lines_ = 0;  // that are shown
    TerminalSize live_size_;      // of the terminal when they were
};

// The lines of a table.
std::vector<std::string> TableLines(const std::vector<Row>& rows);

// Prints "dpdu: ..." on standard error, always as one line.
void ErrorLine(const std::string& text);

// The text without line ends and other control characters.
std::string OnOneLine(const std::string& text);

}  // namespace dpdu

#endif  // TOOLS_DPDU_CONSOLE_OUTPUT_H
