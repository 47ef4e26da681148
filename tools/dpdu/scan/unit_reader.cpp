#include "scan/unit_reader.h"

#include <stdexcept>

#include "console/interruption.h"
#include "links/ecu_request.h"
#include "scan/module_watch.h"
#include "uds/services.h"

namespace dpdu {
namespace {

const Bytes kActiveSession = {0x22, 0xF1, 0x86};
const Bytes kDefaultSession = {0x10, 0x01};
const Bytes kCountTroubleCodes = {0x19, 0x01, 0xFF};
constexpr std::size_t kFixedRequests = 4;
constexpr int kMostSilences = 3;  // in a row, before the control unit is given up

class UnitReader {
public:
    UnitReader(const ConnectedModule& module, const ScanOptions& options, FoundUnit* unit)
        : unit_(unit),
          watch_(module),
          link_(module, options.link, {{{*unit->request_id, unit->response_id}}, std::nullopt}) {}

    // False: the control unit has become silent.
    bool Read(const ScanOptions& options) {
        // Before the request for the default session, which ends any other.
        ReadActiveSession();
        unit_->session = Ask(kDefaultSession);
        Ask(kTesterPresentRequest);
        if (const auto count = Ask(kCountTroubleCodes)) {
            unit_->trouble_code_count = count->trouble_code_count;
        }
        for (const IdentifierRange& range : options.identifiers) {
            for (std::uint32_t id = range.first; id <= range.last; ++id) {
                ReadIdentifier(static_cast<std::uint16_t>(id));
                if (silences_ >= kMostSilences) return false;
            }
        }
        return silences_ < kMostSilences;
    }

private:
    std::optional<Decoded> Ask(const Bytes& request) {
        if (!IsAllowedInScan(request)) throw std::logic_error("a scan only reads");
        ThrowIfInterrupted();
        if (silences_ >= kMostSilences) return std::nullopt;
        const Exchange exchange = link_.Request(request, ResponsesTo(request));
        if (exchange.code == ExitCode::kModuleLost && exchange.answers.empty()) {
            throw Failure(exchange.error, exchange.code);
        }
        if (exchange.answers.empty()) {
            if (++silences_ == 1) watch_.Look();
            return std::nullopt;
        }
        silences_ = 0;
        const Decoded decoded = Decode(request, exchange.answers.front().data);
        NoteService(request.front(), decoded);
        return decoded;
    }

    void NoteService(std::uint8_t service, const Decoded& decoded) {
        constexpr std::uint8_t kNotSupported = 0x11;
        constexpr std::uint8_t kNotInThisSession = 0x7F;
        const bool is_refused = decoded.negative && (decoded.negative->code == kNotSupported ||
                                                     decoded.negative->code == kNotInThisSession);
        const std::string number = HexNumber(service, 2);
        std::vector<std::string>& services = unit_->services;
        const auto place = std::lower_bound(services.begin(), services.end(), number);
        if (!is_refused && (place == services.end() || *place != number)) {
            services.insert(place, number);
        }
    }

    void ReadActiveSession() {
        constexpr std::uint8_t kSessionControl = 0x10;
        const std::optional<Decoded> decoded = Ask(kActiveSession);
        if (!decoded || decoded->negative || decoded->records.empty()) return;
        const Bytes& data = decoded->records.front().data;
        if (!data.empty()) unit_->active_session = SubFunctionName(kSessionControl, data.front());
    }

    void ReadIdentifier(std::uint16_t identifier) {
        const std::optional<Decoded> decoded =
            Ask({0x22, static_cast<std::uint8_t>(identifier >> 8),
                 static_cast<std::uint8_t>(identifier & 0xFF)});
        if (!decoded || decoded->negative || decoded->records.empty()) return;
        unit_->identifiers.push_back(decoded->records.front());
    }

    FoundUnit* unit_;
    ModuleWatch watch_;
    Link link_;
    int silences_ = 0;  // in a row
};

}  // namespace

void ReadUnit(const ConnectedModule& module, const ScanOptions& options, FoundUnit* unit) {
    try {
        if (UnitReader(module, options, unit).Read(options)) return;
        unit->problem = "does not answer any more";
    } catch (const Failure& failure) {
        if (failure.Code() == ExitCode::kModuleLost || failure.Code() == ExitCode::kInterrupted) {
            throw;
        }
        unit->problem = failure.what();
    }
}

std::size_t RequestsOfAUnit(const ScanOptions& options) {
    std::size_t requests = kFixedRequests;
    for (const IdentifierRange& range : options.identifiers)
        requests += static_cast<std::size_t>(range.last - range.first) + 1;
    return requests;
}

}  // namespace dpdu
