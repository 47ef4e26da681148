#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

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

std::string TimeText(const Answer& answer) {
    if (!answer.after_us) return "-";
    char text[40];
    std::snprintf(text, sizeof text, "%.1f ms", static_cast<double>(*answer.after_us) / 1000);
    return text;
}

void Print(const FunctionalOptions& options, const std::vector<EcuReply>& replies, Output* output) {
    const std::vector<NamedUnit>& units = options.units;
    std::vector<Row> rows = {{"UNIT", "NAME", "TIME", "ANSWER", "MEANING"}};
    for (std::size_t i = 0; i < replies.size(); ++i) {
        const std::string address = AddressOf(units, i);
        const std::string name = NameOf(units, i);
        if (replies[i].answers.empty()) rows.push_back({address, name, "-", replies[i].error});
        for (const Answer& answer : replies[i].answers) {
            rows.push_back({address, name, TimeText(answer), HexText(answer.data, " "),
                            DescribeAnswer(options.request, answer.data)});
        }
    }
    const auto has_name = [](const NamedUnit& unit) { return !unit.name.empty(); };
    if (std::none_of(units.begin(), units.end(), has_name)) {
        for (Row& row : rows)
            row.erase(row.begin() + 1);
    }
    output->Table(rows);
}

Json ResultJson(const FunctionalOptions& options, const std::vector<EcuReply>& replies) {
    Json list = Json::array();
    for (std::size_t i = 0; i < replies.size(); ++i) {
        Json reply = ReplyJson(replies[i], options.request);
        const std::string name = NameOf(options.units, i);
        if (!name.empty()) reply["name"] = name;
        list.push_back(reply);
    }
    return {{"request", HexText(options.request)},
            {"decodedRequest", DecodedJson(DecodeRequest(options.request))},
            {"functionalId", CanIdText(options.functional_id)},
            {"controlUnits", list}};
}

}  // namespace

ExitCode RunFunctional(const CommonOptions& common, const FunctionalOptions& options,
                       Output* output) {
    const ModuleSession module(common);
    const std::vector<EcuReply> replies =
        AskTogether(module.Module(), options.link, Addresses(options.units), options.functional_id,
                    options.request, ResponsesTo(options.request));
    if (output->AsJson()) {
        output->Document(ResultJson(options, replies));
    } else {
        Print(options, replies, output);
    }
    const std::vector<ExitCode> outcomes = Outcomes(replies);
    const auto good = std::count(outcomes.begin(), outcomes.end(), ExitCode::kOk);
    if (options.one_is_enough && good > 0) return ExitCode::kOk;
    return ReportFailures(outcomes);
}

}  // namespace dpdu
