// A trace file, read and shown in all ways that the client has. Pieces of any size must give the
// same lines.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "trace/exporter.h"
#include "trace/reader.h"
#include "trace/summary.h"
#include "trace/timeline.h"

using namespace dpdu;
using namespace dpdu::trace;

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

std::FILE* Nowhere() {
    static std::FILE* const stream = std::fopen("/dev/null", "w");
    Require(stream != nullptr);
    return stream;
}

ReadReport Read(std::string_view text, std::size_t piece, const LineReader::Handler& handler) {
    LineReader reader(handler);
    for (; !text.empty(); text.remove_prefix(std::min(piece, text.size())))
        reader.Feed(text.substr(0, piece));
    reader.Finish();
    return reader.Report();
}

void Summarise(std::string_view text, bool as_json) {
    Summary summary(3);
    summary.EndOfFile(Read(text, text.size(), [&](const Record& record) { summary.Take(record); }));
    Output output(Nowhere(), as_json);
    summary.Print(&output);
}

void Draw(std::string_view text, bool is_waterfall) {
    Output output(Nowhere(), false);
    Timeline timeline({}, {80, is_waterfall}, &output);
    for (int pass = 0; pass < 2; ++pass) {
        Read(text, text.size(), [&](const Record& record) { timeline.Take(record); });
        timeline.EndOfFile();
        if (pass == 0) timeline.StartShowing();
    }
}

void Export(std::string_view text, std::unique_ptr<Exporter> (*make)(Output*)) {
    Output output(Nowhere(), false);
    const auto exporter = make(&output);
    Read(text, text.size(), [&](const Record& record) { exporter->Take(record); });
    exporter->EndOfFile();
    exporter->Finish();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::uint64_t records = 0;
    const auto count = [&](const Record&) { ++records; };
    const ReadReport whole = Read(text, size, count);
    Require(records == whole.records);
    const ReadReport pieces = Read(text, 7, count);
    Require(records == 2 * whole.records);
    Require(pieces.cut == whole.cut && pieces.damaged.count == whole.damaged.count);
    Require(pieces.unknown.first == whole.unknown.first);

    Summarise(text, false);
    Summarise(text, true);
    Draw(text, false);
    Draw(text, true);
    Export(text, MakeCandumpExporter);
    Export(text, MakeAscExporter);
    Export(text, MakeChromeExporter);
    return 0;
}
