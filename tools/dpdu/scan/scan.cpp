#include "scan/scan.h"

#include <algorithm>

#include "console/progress.h"
#include "pdu/own_library.h"
#include "scan/probe.h"
#include "scan/unit_reader.h"

namespace dpdu {
namespace {

// Which ComPrimitive sends a raw frame is known of this project's library only.
ScanMethod Chosen(const ConnectedModule& module, const ScanOptions& options) {
    if (options.method != ScanMethod::kAutomatic) return options.method;
    return IsOwnLibrary(module) ? ScanMethod::kRaw : ScanMethod::kLinks;
}

void Probe(const ConnectedModule& module, const ScanOptions& options, ScanResult* result) {
    if (result->method == ScanMethod::kRaw) {
        ProbeWithFrames(module, options, &result->units);
    } else {
        ProbeWithLinks(module, options, &result->units);
    }
}

void ReadUnits(const ConnectedModule& module, const ScanOptions& options, ScanResult* result) {
    ProgressBar bar("reading control units", result->units.size());
    for (FoundUnit& unit : result->units) {
        if (unit.request_id) ReadUnit(module, options, &unit);
        bar.Advance(CanIdText(unit.response_id));
    }
}

}  // namespace

ScanResult Scan(const ConnectedModule& module, const ScanOptions& options) {
    ScanResult result;
    result.method = Chosen(module, options);
    const auto by_response_id = [](const FoundUnit& one, const FoundUnit& other) {
        return one.response_id < other.response_id;
    };
    try {
        Probe(module, options, &result);
        std::sort(result.units.begin(), result.units.end(), by_response_id);
        ReadUnits(module, options, &result);
    } catch (const Failure& failure) {
        result.end = failure.what();
        result.code = failure.Code();
        std::sort(result.units.begin(), result.units.end(), by_response_id);
    }
    return result;
}

}  // namespace dpdu
