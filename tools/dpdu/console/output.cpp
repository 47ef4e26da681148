#include "console/output.h"

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>

#include "console/failure.h"
#include "console/terminal.h"

namespace dpdu {

std::size_t Output::Columns() const {
    constexpr int kWithoutTerminal = 100;
    const int columns = SizeOfTerminal(stream_).columns;
    return static_cast<std::size_t>(columns > 0 ? columns : kWithoutTerminal);
}

std::size_t Output::Lines() const {
    constexpr int kWithoutTerminal = 24;
    const int lines = SizeOfTerminal(stream_).lines;
    return static_cast<std::size_t>(lines > 0 ? lines : kWithoutTerminal);
}

void Output::Line(const std::string& text) { Text(text + "\n"); }

void Output::Text(const std::string& text) {
    WriteText(stream_, text);
    if (std::ferror(stream_)) NoteError();
}

// A later write may fail in another way, or succeed.
void Output::NoteError() {
    if (error_ == 0) error_ = errno;
    if (MeansReaderGone(error_)) throw ReaderGone();
}

void Output::Table(const std::vector<Row>& rows) {
    for (const std::string& line : TableLines(rows))
        Line(line);
}

void Output::LiveLines(const std::vector<std::string>& lines) {
    constexpr char kClearToLineEnd[] = "\x1b[K";
    constexpr char kClearBelow[] = "\x1b[J";
    EndLiveLines();
    std::string text;
    // Erased first: behind a full line, some terminals are still on its last character.
    for (const std::string& line : lines)
        text += kClearToLineEnd + line + "\n";
    Text(text + kClearBelow);
    live_lines_ = lines.size();
    live_size_ = SizeOfTerminal(stream_);
}

// The next lines overwrite what is there, which flickers less than to erase it first. A terminal
// that has another size now may have broken the lines anew: nobody knows where they begin.
void Output::EndLiveLines() {
    if (live_lines_ == 0) return;
    Text(SizeOfTerminal(stream_) == live_size_ ? "\x1b[" + std::to_string(live_lines_) + "A"
                                               : "\x1b[2J\x1b[H");
    live_lines_ = 0;
}

void Output::Document(const Json& document) {
    // Texts from a module may contain any byte; JSON must be valid UTF-8.
    Line(document.dump(2, ' ', false, Json::error_handler_t::replace));
}

void Output::JsonLine(const Json& document) {
    Line(document.dump(-1, ' ', false, Json::error_handler_t::replace));
}

void Output::Flush() {
    if (std::fflush(stream_) != 0 || std::ferror(stream_)) {
        NoteError();
        throw Failure("the answer could not be written to standard output");
    }
}

std::vector<std::string> TableLines(const std::vector<Row>& rows) {
    std::vector<std::size_t> widths;
    for (const Row& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    }
    std::vector<std::string> lines;
    for (const Row& row : rows) {
        std::string& line = lines.emplace_back();
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) line.append(widths[i] - row[i].size() + 2, ' ');
        }
    }
    return lines;
}

void ErrorLine(const std::string& text) { WriteText(stderr, "dpdu: " + OnOneLine(text) + "\n"); }

std::string OnOneLine(const std::string& text) {
    std::string line;
    for (const char character : text) {
        const bool is_control = static_cast<unsigned char>(character) < ' ';
        if (!is_control) {
            line += character;
        } else if (!line.empty() && line.back() != ' ') {
            line += ' ';
        }
    }
    while (!line.empty() && line.back() == ' ')
        line.pop_back();
    return line;
}

}  // namespace dpdu
