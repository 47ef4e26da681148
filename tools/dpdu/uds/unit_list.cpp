#include "uds/unit_list.h"

#include <fstream>
#include <sstream>

#include "console/failure.h"
#include "text/names.h"

namespace dpdu {
namespace {

constexpr std::uint32_t kMostInARange = 256;
constexpr std::uint32_t kResponseOffset = 8;

// ISO 15765-2 normal fixed addressing: target and source are the last two bytes.
constexpr std::uint32_t kFixedHead = 0x18DA0000;
constexpr std::uint32_t kTargetStep = 0x100;

bool IsFixed(std::uint32_t id) { return (id & 0xFFFF0000) == kFixedHead; }

[[noreturn]] void RefuseUnit(const std::string& text, const std::string& reason) {
    throw UsageError("'" + text + "' " + reason);
}

std::uint32_t ParseId(const std::string& text, const std::string& whole) {
    const std::optional<std::uint32_t> id = ParseCanId(text);
    if (!id) RefuseUnit(whole, "is not a list of control units such as 7E0:7E8,7E1 or 7E0-7E7");
    return *id;
}

EcuAddress WithUsualResponse(std::uint32_t request, const std::string& whole) {
    if (IsFixed(request)) {
        return {request, kFixedHead | (request & 0xFF) << 8 | (request >> 8 & 0xFF)};
    }
    if (request + kResponseOffset > kLargest11BitId) {
        RefuseUnit(whole, "needs a response identifier, as in 18DB33F1:18DAF110");
    }
    return {request, request + kResponseOffset};
}

void AddRange(const std::string& text, std::size_t dash, std::vector<NamedUnit>* units) {
    const std::uint32_t first = ParseId(text.substr(0, dash), text);
    const std::uint32_t last = ParseId(text.substr(dash + 1), text);
    const std::uint32_t step = IsFixed(first) ? kTargetStep : 1;
    if (last < first || (last - first) % step != 0 || (last - first) / step >= kMostInARange) {
        RefuseUnit(text, "is not a range from a first to a last control unit, at most 256");
    }
    for (std::uint32_t id = first; id <= last; id += step)
        units->push_back({WithUsualResponse(id, text), ""});
}

void AddUnits(const std::string& text, std::vector<NamedUnit>* units) {
    const std::size_t dash = text.find('-');
    if (dash != std::string::npos) return AddRange(text, dash, units);
    const std::size_t colon = text.find(':');
    const std::uint32_t request = ParseId(text.substr(0, colon), text);
    if (colon == std::string::npos) {
        units->push_back({WithUsualResponse(request, text), ""});
    } else {
        units->push_back({{request, ParseId(text.substr(colon + 1), text)}, ""});
    }
}

// The rest of the line, trimmed.
std::string RestOf(std::istringstream* line) {
    std::string rest;
    std::getline(*line >> std::ws, rest);
    while (!rest.empty() && (rest.back() == ' ' || rest.back() == '\t' || rest.back() == '\r'))
        rest.pop_back();
    return rest;
}

}  // namespace

std::vector<NamedUnit> ParseUnits(const std::string& text) {
    std::vector<NamedUnit> units;
    std::istringstream list(text);
    for (std::string part; std::getline(list, part, ',');)
        AddUnits(part, &units);
    if (units.empty()) AddUnits(text, &units);
    return units;
}

std::vector<NamedUnit> ReadUnits(std::istream* stream, const std::string& path) {
    std::vector<NamedUnit> units;
    int number = 0;
    for (std::string text; std::getline(*stream, text);) {
        ++number;
        std::istringstream line(text.substr(0, text.find('#')));
        std::string list;
        if (!(line >> list)) continue;
        const std::string name = RestOf(&line);
        try {
            for (NamedUnit& unit : ParseUnits(list)) {
                unit.name = name;
                units.push_back(std::move(unit));
            }
        } catch (const UsageError& error) {
            throw UsageError(path + ", line " + std::to_string(number) + ": " + error.what());
        }
    }
    return units;
}

std::vector<NamedUnit> ReadUnitFile(const std::string& path) {
    std::ifstream file(PathOf(path));
    if (!file) throw UsageError("cannot read the list of control units '" + path + "'");
    return ReadUnits(&file, path);
}

}  // namespace dpdu
