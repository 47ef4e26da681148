#include "script/script_links.h"

#include "console/interruption.h"

namespace dpdu::script {
namespace {

// Of the physical links; no CAN identifier is as large.
constexpr std::uint32_t kPhysical = 0xFFFFFFFF;
// On a busy bus, some seconds.
constexpr std::size_t kMostFrames = 10'000;
// The library's thread that receives begins within a millisecond, if the machine is not busy.
constexpr std::chrono::milliseconds kReceptionStart{1000};

}  // namespace

ScriptLinks::ScriptLinks(const ConnectedModule& module, const LinkOptions& options,
                         const LinkOptions& raw, T_PDU_COPT raw_primitive)
    : module_(module), options_(options), raw_options_(raw), raw_primitive_(raw_primitive) {}

Link& ScriptLinks::To(const LinkTargets& targets) {
    Key key{targets.functional_id.value_or(kPhysical), {}};
    for (const EcuAddress& ecu : targets.ecus)
        key.second.emplace_back(ecu.request_id, ecu.response_id);
    std::unique_ptr<Link>& link = links_[key];
    if (!link) link = std::make_unique<Link>(module_, options_, targets);
    return *link;
}

void ScriptLinks::SetLimit(std::chrono::milliseconds limit) {
    options_.limit = limit;
    for (const auto& [key, link] : links_) {
        if (link) link->SetLimit(limit);
    }
}

void ScriptLinks::SetParam(const std::string& name, const std::string& value) {
    links_.clear();
    std::erase_if(options_.params, [&name](const auto& param) { return param.first == name; });
    options_.params.emplace_back(name, value);
}

void ScriptLinks::SetTesterPresent(std::optional<std::chrono::milliseconds> period) {
    links_.clear();
    options_.tester_present_ms.reset();
    if (period) options_.tester_present_ms = static_cast<std::uint32_t>(period->count());
}

void ScriptLinks::OpenRaw() {
    if (raw_) return;
    auto link = std::make_unique<RawLink>(module_, raw_options_);
    link->StartListening();
    raw_ = std::move(link);
    AwaitReception();
}

// Libraries do not report when reception has begun. A frame shows it; on a silent bus only time
// can.
void ScriptLinks::AwaitReception() {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + kReceptionStart;
    for (KeepFrames(); frames_.empty() && Clock::now() < end; KeepFrames()) {
        ThrowIfInterrupted();
        GetSession()->PauseForEvent(
            std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()));
    }
}

void ScriptLinks::SendFrame(const CanFrame& frame) {
    OpenRaw();
    KeepFrames();
    frames_.clear();
    raw_->Send(frame, raw_primitive_);
    has_sent_ = true;
}

void ScriptLinks::KeepFrames() {
    if (!raw_) return;
    raw_->TakeFrames([this](const CanFrame& frame, UNUM32) {
        if (frames_.size() == kMostFrames) frames_.pop_front();
        frames_.push_back(frame);
    });
}

std::optional<CanFrame> ScriptLinks::NextFrame() {
    OpenRaw();
    if (frames_.empty()) KeepFrames();
    if (frames_.empty()) return std::nullopt;
    CanFrame frame = std::move(frames_.front());
    frames_.pop_front();
    return frame;
}

void ScriptLinks::FinishSending() {
    if (has_sent_) raw_->FinishSending();
    has_sent_ = false;
}

void ScriptLinks::RequireModule() const {
    ListModules(GetSession());
    if (IsModuleGone(GetSession(), module_.Handle())) {
        throw Failure(kModuleGone, ExitCode::kModuleLost);
    }
}

}  // namespace dpdu::script
