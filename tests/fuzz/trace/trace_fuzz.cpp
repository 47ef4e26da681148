// A trace file, read and shown in all ways that the client has. Pieces of any size must give the
// same lines.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

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

void Summarise(const std::vector<Record>& records, const ReadReport& report, bool as_json) {
    Summary summary(3);
    for (const Record& record : records)
        summary.Take(record);
    summary.EndOfFile(report);
    Output output(Nowhere(), as_json);
    summary.Print(&output);
}

void Draw(const std::vector<Record>& records, bool is_waterfall) {
    Output output(Nowhere(), false);
    Timeline timeline({}, {80, is_waterfall}, &output);
    for (int pass = 0; pass < 2; ++pass) {
        for (const Record& record : records)
            timeline.Take(record);
        timeline.EndOfFile();
        if (pass == 0) timeline.StartShowing();
    }
}

void Export(const std::vector<Record>& records, std::unique_ptr<Exporter> (*make)(Output*)) {
    Output output(Nowhere(), false);
    const auto exporter = make(&output);
    for (const Record& record : records)
        exporter->Take(record);
    exporter->EndOfFile();
    exporter->Finish();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::vector<Record> records;
    const ReadReport whole =
        Read(text, size, [&](const Record& record) { records.push_back(record); });
    Require(records.size() == whole.records);
    const ReadReport pieces = Read(text, 7, [](const Record&) {});
    Require(pieces.records == whole.records && pieces.cut == whole.cut);
    Require(pieces.damaged.count == whole.damaged.count);
    Require(pieces.unknown.first == whole.unknown.first);

    Summarise(records, whole, false);
    Summarise(records, whole, true);
    Draw(records, false);
    Draw(records, true);
    Export(records, MakeCandumpExporter);
    Export(records, MakeAscExporter);
    Export(records, MakeChromeExporter);
    return 0;
}
