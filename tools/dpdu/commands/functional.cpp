#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>

#include "commands/commands.h"
#include "commands/module_session.h"
#include "links/ecu_request.h"
#include "uds/decoding.h"

namespace dpdu {
namespace {

std::vector<EcuAddress> Addresses(const std::vector<NamedUnit>& units) {
    std::vector<EcuAddress> addresses;
    addresses.reserve(units.size());
    for (const NamedUnit& unit : units)
        addresses.push_back(unit.address);
    return addresses;
}

// Replies are in the order of the units, followed by those of unknown senders.
std::string NameOf(const std::vector<NamedUnit>& units, std::size_t position) {
    return position < units.size() ? units[position].name : "";
}

std::string AddressOf(const std::vector<NamedUnit>& units, std::size_t position) {
    return position < units.size() ? EcuAddressText(units[position].address) : "unknown";
}

std::string TimeText(const std::optional<UNUM32>& after_us) {
    if (!after_us) return "-";
    char text[40];
    std::snprintf(text, sizeof text, "%.1f ms", static_cast<double>(*after_us) / 1000);
    return text;
}

// What the times of the table are.
enum class TimeSource {
    kLibrary,  // the library's time stamps of the functional request's answers
    kAlone,    // of a second, physical request to each control unit
    kNone,     // the library delivers all answers at once
};

struct FunctionalResult {
    std::vector<EcuReply> replies;
    TimeSource times = TimeSource::kLibrary;
    std::optional<UNUM32> all_after_us;           // if the library delivers all answers at once
    std::vector<std::optional<UNUM32>> alone_us;  // by reply, if asked alone

    std::optional<UNUM32> TimeOf(std::size_t reply, const Answer& answer) const {
        if (times != TimeSource::kAlone) return answer.after_us;
        return reply < alone_us.size() ? alone_us[reply] : std::nullopt;
    }
};

FunctionalResult Ask(const ConnectedModule& module, const FunctionalOptions& options) {
    const std::vector<ExpectedResponse> expected = ResponsesTo(options.request);
    FunctionalResult result;
    result.replies = AskTogether(module, options.link, Addresses(options.units),
                                 options.functional_id, options.request, expected);
    for (const EcuReply& reply : result.replies) {
        if (!reply.all_after_us) continue;
        result.times = TimeSource::kNone;
        result.all_after_us = reply.all_after_us;
    }
    if (!options.asks_each) return result;
    result.times = TimeSource::kAlone;
    result.alone_us.resize(options.units.size());
    for (std::size_t i = 0; i < options.units.size(); ++i) {
        if (result.replies[i].answers.empty()) continue;
        const std::vector<EcuReply> alone =
            AskEach(module, options.link, {options.units[i].address}, options.request, expected);
        if (!alone.front().answers.empty()) {
            result.alone_us[i] = alone.front().answers.front().after_us;
        }
    }
    return result;
}

// Says what the times are unless they are what they seem.
void PrintFootnote(const FunctionalResult& result) {
    if (result.times == TimeSource::kNone) {
        ErrorLine(
            "TIME is not measurable with this library: it delivers all answers at once, here "
            "after " +
            TimeText(result.all_after_us) + "; --each-time also asks each control unit alone");
    } else if (result.times == TimeSource::kAlone) {
        ErrorLine("TIME ALONE is that of a second request, to one control unit after the other");
    }
}

void Print(const FunctionalOptions& options, const FunctionalResult& result, Output* output) {
    const std::vector<EcuReply>& replies = result.replies;
    const std::vector<NamedUnit>& units = options.units;
    std::vector<Row> rows = {{"UNIT", "NAME",
                              result.times == TimeSource::kAlone ? "TIME ALONE" : "TIME", "ANSWER",
                              "MEANING"}};
    for (std::size_t i = 0; i < replies.size(); ++i) {
        const std::string address = AddressOf(units, i);
        const std::string name = NameOf(units, i);
        if (replies[i].answers.empty()) rows.push_back({address, name, "-", replies[i].error});
        for (const Answer& answer : replies[i].answers) {
            rows.push_back({address, name, TimeText(result.TimeOf(i, answer)),
                            HexText(answer.data, " "),
                            DescribeAnswer(options.request, answer.data)});
        }
    }
    const auto has_name = [](const NamedUnit& unit) { return !unit.name.empty(); };
    if (std::none_of(units.begin(), units.end(), has_name)) {
        for (Row& row : rows)
            row.erase(row.begin() + 1);
    }
    output->Table(rows);
    PrintFootnote(result);
}

const char* SourceName(TimeSource source) {
    switch (source) {
        case TimeSource::kLibrary:
            return "library";
        case TimeSource::kAlone:
            return "alone";
        case TimeSource::kNone:
            return "none";
    }
    return "";
}

Json ResultJson(const FunctionalOptions& options, const FunctionalResult& result) {
    Json list = Json::array();
    for (std::size_t i = 0; i < result.replies.size(); ++i) {
        Json reply = ReplyJson(result.replies[i], options.request);
        if (i < result.alone_us.size() && result.alone_us[i]) {
            reply["aloneAfterUs"] = *result.alone_us[i];
        }
        const std::string name = NameOf(options.units, i);
        if (!name.empty()) reply["name"] = name;
        list.push_back(reply);
    }
    Json document = {{"request", HexText(options.request)},
                     {"decodedRequest", DecodedJson(DecodeRequest(options.request))},
                     {"functionalId", CanIdText(options.functional_id)},
                     {"times", SourceName(result.times)},
                     {"controlUnits", list}};
    if (result.all_after_us) document["allAnswersAfterUs"] = *result.all_after_us;
    return document;
}

}  // namespace

ExitCode RunFunctional(const CommonOptions& common, const FunctionalOptions& options,
                       Output* output) {
    const ModuleSession module(common);
    const FunctionalResult result = Ask(module.Module(), options);
    if (output->AsJson()) {
        output->Document(ResultJson(options, result));
    } else {
        Print(options, result, output);
    }
    const std::vector<ExitCode> outcomes = Outcomes(result.replies);
    const auto good = std::count(outcomes.begin(), outcomes.end(), ExitCode::kOk);
    if (options.one_is_enough && good > 0) return ExitCode::kOk;
    return ReportFailures(outcomes);
}

}  // namespace dpdu
