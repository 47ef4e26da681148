#include <algorithm>

#include "console/progress.h"
#include "links/ecu_request.h"
#include "scan/module_watch.h"
#include "scan/probe.h"

namespace dpdu {
namespace {

// Control units in one functional request: a library or dongle may not take many more.
constexpr std::size_t kMostTogether = 64;

bool IsLong(std::uint32_t id) { return id > kLargest11BitId; }

class LinkProbe {
public:
    LinkProbe(const ConnectedModule& module, const ScanOptions& options,
              std::vector<FoundUnit>* units)
        : module_(module), options_(options), units_(units), watch_(module) {
        link_options_ = options.link;
        link_options_.p2_ms = static_cast<std::uint32_t>(options.answer_time.count());
        for (const std::uint32_t id : options.request_ids) {
            const auto response = UsualResponseId(id, options.response_offset);
            if (response) ecus_.push_back({id, *response});
        }
    }

    void AskFunctionally() {
        for (const std::uint32_t functional_id : options_.functional_ids) {
            std::vector<EcuAddress> some;
            for (const EcuAddress& ecu : ecus_) {
                if (IsLong(ecu.request_id) != IsLong(functional_id)) continue;
                some.push_back(ecu);
                if (some.size() < kMostTogether) continue;
                AskSome(functional_id, some);
                some.clear();
            }
            if (!some.empty()) AskSome(functional_id, some);
        }
    }

    void AskPhysically() {
        ProgressBar bar("looking for control units", ecus_.size());
        for (const EcuAddress& ecu : ecus_) {
            watch_.Check();
            AskOne(ecu);
            bar.Advance(CanIdText(ecu.request_id));
        }
    }

private:
    void AskSome(std::uint32_t functional_id, const std::vector<EcuAddress>& ecus) {
        watch_.Check();
        for (const EcuReply& reply :
             AskTogether(module_, link_options_, ecus, functional_id, kTesterPresentRequest,
                         ResponsesTo(kTesterPresentRequest))) {
            if (reply.code == ExitCode::kModuleLost) throw Failure(reply.error, reply.code);
            if (reply.answers.empty() || reply.ecu.response_id == 0) continue;
            watch_.NoteSignOfLife();
            UnitWith(reply.ecu.response_id)->is_functional = true;
        }
    }

    void AskOne(const EcuAddress& ecu) {
        Link link(module_, link_options_, {{ecu}, std::nullopt});
        const Exchange exchange =
            link.Request(kTesterPresentRequest, ResponsesTo(kTesterPresentRequest));
        if (exchange.code == ExitCode::kModuleLost) throw Failure(exchange.error, exchange.code);
        if (exchange.answers.empty()) return;
        watch_.NoteSignOfLife();
        UnitWith(ecu.response_id)->request_id = ecu.request_id;
    }

    FoundUnit* UnitWith(std::uint32_t response_id) {
        const auto found = std::find_if(
            units_->begin(), units_->end(),
            [response_id](const FoundUnit& unit) { return unit.response_id == response_id; });
        if (found != units_->end()) return &*found;
        FoundUnit& unit = units_->emplace_back();
        unit.response_id = response_id;
        return &unit;
    }

    const ConnectedModule& module_;
    const ScanOptions& options_;
    std::vector<FoundUnit>* units_;
    ModuleWatch watch_;
    LinkOptions link_options_;
    std::vector<EcuAddress> ecus_;
};

}  // namespace

void ProbeWithLinks(const ConnectedModule& module, const ScanOptions& options,
                    std::vector<FoundUnit>* units) {
    LinkProbe probe(module, options, units);
    probe.AskFunctionally();
    probe.AskPhysically();
}

}  // namespace dpdu
