// What a report shows of traces, as chunks of tables. Keeps one chunk and the requests in
// execution.

#ifndef TOOLS_DPDU_REPORT_REPORT_DATA_H
#define TOOLS_DPDU_REPORT_REPORT_DATA_H

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "console/output.h"
#include "report/table.h"
#include "trace/reader.h"
#include "trace/requests.h"
#include "trace/sessions.h"

namespace dpdu::report {

// Its tables' columns one after the other, then the bytes that their rows refer to.
struct Chunk {
    std::vector<std::size_t> rows;  // by table
    std::string bytes;
};

class ReportData : public trace::RequestSink {
public:
    using ChunkHandler = std::function<void(const Chunk&)>;
    explicit ReportData(ChunkHandler handler);

    void BeginFile(const std::string& path);
    void Take(const trace::Record& record);
    void EndOfFile(const trace::ReadReport& report);
    // Called after the last file: hands on the last chunk.
    void Finish();

    // The tables and their columns, in the order in which chunks have them.
    Json Layout() const;
    // Files, sessions and names; after Finish().
    Json Facts(bool has_calendar_time) const;

    void OnRawFrame(const trace::Request& request, const trace::RawFrame& frame) override;
    void OnRequest(const trace::Request& request) override;

private:
    struct File {
        std::string path;
        trace::ReadReport report;
        trace::Sessions sessions;
    };
    // Where a payload is in the bytes of its chunk.
    struct Place {
        std::uint64_t at = 0;
        std::uint64_t recorded = 0;
        std::uint64_t length = 0;
    };
    enum TableIndex : std::size_t { kRequests, kSpans, kFrames, kPackets, kCallbacks, kTables };

    Table& At(TableIndex table) { return tables_[table]; }
    Place Keep(const trace::Payload& payload);
    void AddSpan(const trace::Exchange& exchange, bool is_again, std::uint32_t response_id,
                 const trace::Payload& answer);
    void AddSpans(const trace::Request& request);
    void AddPacket(const trace::Record& record);
    void HandOnIfLarge();
    void HandOn();

    ChunkHandler handler_;
    std::vector<Table> tables_;
    std::string payloads_;
    std::unordered_map<std::string, std::uint64_t> known_;  // the place of each payload
    std::uint64_t requests_ = 0;                            // in all chunks
    trace::RequestTracker tracker_;
    std::vector<File> files_;
    std::map<std::string, std::uint64_t> packet_types_;
    std::set<std::uint32_t> types_;   // of ComPrimitives
    std::set<std::uint32_t> errors_;  // of error items
};

// The document for a script element: nothing in it can end the element.
std::string ScriptText(const Json& document);

}  // namespace dpdu::report

#endif  // TOOLS_DPDU_REPORT_REPORT_DATA_H
