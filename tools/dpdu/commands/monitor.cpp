#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "commands/commands.h"
#include "commands/event_text.h"
#include "commands/lookout.h"
#include "commands/relay_lines.h"
#include "commands/watch.h"
#include "console/failure.h"
#include "console/progress.h"
#include "console/terminal.h"
#include "links/ecu_request.h"
#include "pdu/functions.h"
#include "pdu/link_handles.h"
#include "pdu/status_text.h"

namespace dpdu {
namespace {

using Clock = Deadline::Clock;

constexpr std::chrono::milliseconds kTimeBetweenSearches{300};
constexpr std::chrono::milliseconds kTimeBetweenLooks{200};
constexpr std::chrono::milliseconds kTimeBetweenLists{5000};

// A periodic action; due at once the first time.
class Timer {
public:
    explicit Timer(std::chrono::milliseconds period) : period_(period) {}

    bool IsDue() {
        const Clock::time_point now = Clock::now();
        if (now < next_) return false;
        next_ = now + period_;
        return true;
    }

private:
    std::chrono::milliseconds period_;
    Clock::time_point next_{};
};

// Prints events and checks for the end of the command.
class Journal {
public:
    Journal(const MonitorOptions& options, bool is_verbose, Output* output)
        : output_(output),
          most_(options.count),
          deadline_(options.limit),
          relay_lines_(is_verbose) {}

    // Also reports what has become of the relay.
    bool GoesOn() {
        for (const std::string& news : relay_lines_.Take())
            Note("relay", "relay", news);
        return MayGoOn();
    }
    void Add(const Event& event) {
        if (!MayGoOn()) return;
        ++count_;
        const WallTime now = std::chrono::system_clock::now();
        if (output_->AsJson()) {
            output_->JsonLine(EventJson(event, now));
        } else {
            output_->Line(EventLine(event, now));
        }
        output_->Flush();
    }

    void Note(const std::string& source, const std::string& kind, const std::string& text) {
        Event event;
        event.source = source;
        event.kind = kind;
        event.text = text;
        Add(event);
    }

private:
    bool MayGoOn() const {
        return !WasInterrupted() && !deadline_.IsOver() && (most_ == 0 || count_ < most_);
    }

    Output* output_;
    std::uint64_t most_;
    Deadline deadline_;
    RelayLines relay_lines_;
    std::uint64_t count_ = 0;
};

std::string ModuleSource(UNUM32 handle) { return "module " + std::to_string(handle); }

// Reports new modules and changed module states.
class ModuleChanges {
public:
    explicit ModuleChanges(Journal* journal) : journal_(journal) {}

    void Look(const std::vector<ModuleInfo>& modules) {
        for (const ModuleInfo& module : modules) {
            const auto known = states_.find(module.handle);
            if (known != states_.end() && known->second == module.state) continue;
            states_[module.handle] = module.state;
            journal_->Note(ModuleSource(module.handle), "module",
                           StateText(module.state) + "  " + module.vendor_name);
        }
    }

private:
    Journal* journal_;
    std::map<UNUM32, T_PDU_STATUS> states_;
};

// One use of the library, from its construction until the module is gone or the command ends.
class Observation {
public:
    Observation(const CommonOptions& common, const MonitorOptions& options,
                const pdu::Functions& functions, Journal* journal)
        : common_(common),
          options_(options),
          journal_(journal),
          session_(functions, common.option_string),
          changes_(journal) {}

    void Run() {
        const std::optional<UNUM32> module = FindModule();
        if (!module) return;
        try {
            Observe(*module);
        } catch (const Failure& failure) {
            // A failure because the dongle was just unplugged is reported as an event.
            if (!IsModuleGone(&session_, *module)) throw;
            journal_->Note("monitor", "error", std::string("error: ") + failure.what());
        }
    }

private:
    std::optional<UNUM32> FindModule() {
        const Progress progress("waiting for a module");
        Timer search(kTimeBetweenSearches);
        while (journal_->GoesOn()) {
            if (search.IsDue()) {
                const std::vector<ModuleInfo> modules = ListModules(&session_);
                changes_.Look(modules);
                const auto found = std::find_if(modules.begin(), modules.end(), [this](auto& info) {
                    return info.state != PDU_MODST_NOT_AVAIL && ModuleMatches(info, common_.module);
                });
                if (found != modules.end()) return found->handle;
            }
            TakeEvents(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, "system");
            session_.PauseForEvent();
        }
        return std::nullopt;
    }

    void Observe(UNUM32 handle) {
        const ConnectedModule module(&session_, handle);
        changes_.Look(ListModules(&session_));
        Link link(module, options_.link, {{options_.ecu}, std::nullopt});
        Timer request(options_.period);
        Timer look(kTimeBetweenLooks);  // of libraries that notice without a search
        Lookout lookout(module, kTimeBetweenLists);
        while (journal_->GoesOn()) {
            TakeAllEvents(link.Handles());
            if (std::exchange(has_received_, false)) lookout.NoteSignOfLife();
            if (std::exchange(has_error_, false)) lookout.NoteError();
            if (!options_.request.empty() && !running_) StartNext(&link, &request);
            if (const auto modules = lookout.TakeModules()) changes_.Look(*modules);
            const bool is_gone = look.IsDue() && IsModuleGone(&session_, handle);
            if (is_gone || lookout.IsGone()) {
                journal_->Note(ModuleSource(handle), "module", "the module is gone");
                TakeAllEvents(link.Handles());
                return;
            }
            session_.PauseForEvent();
        }
    }

    // Starts communication first, then one request after the other.
    void StartNext(Link* link, Timer* request) {
        if (!has_begun_) {
            has_begun_ = true;
            running_ = link->BeginCommunication();
        } else if (request->IsDue()) {
            running_ = StartComPrimitive(
                session_, link->Handles(),
                link->RequestPrimitive(options_.request, ResponsesTo(options_.request)));
            journal_->Note("request " + std::to_string(*running_), "monitor",
                           "sent " + HexText(options_.request, " ") + "  " +
                               DescribeRequest(options_.request));
        }
    }

    void TakeAllEvents(const LinkHandles& link) {
        TakeEvents(link.module, link.link, "link " + std::to_string(link.link));
        TakeEvents(link.module, PDU_HANDLE_UNDEF, ModuleSource(link.module));
        TakeEvents(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, "system");
    }

    void TakeEvents(UNUM32 module, UNUM32 link, const std::string& source) {
        session_.DrainQueue(module, link, [&](const PDU_EVENT_ITEM& item) {
            journal_->Add(ReadEvent(item, source, options_.request));
            has_received_ = has_received_ || item.ItemType == PDU_IT_RESULT;
            has_error_ = has_error_ || item.ItemType == PDU_IT_ERROR;
            const bool is_status = item.ItemType == PDU_IT_STATUS && item.pData;
            if (is_status && running_ && item.hCop == *running_ &&
                IsFinalState(*static_cast<const PDU_STATUS_DATA*>(item.pData))) {
                running_.reset();
            }
        });
    }

    const CommonOptions& common_;
    const MonitorOptions& options_;
    Journal* journal_;
    Session session_;
    ModuleChanges changes_;
    bool has_begun_ = false;
    bool has_received_ = false;      // since the lookout was told
    bool has_error_ = false;         // likewise
    std::optional<UNUM32> running_;  // the ComPrimitive in execution
};

}  // namespace

// An unplugged dongle can come back only after a new construction of the library, so each
// observation starts with one.
ExitCode RunMonitor(const CommonOptions& common, const MonitorOptions& options, Output* output) {
    Journal journal(options, common.is_verbose, output);  // before the library is loaded
    const pdu::Functions functions = common.LoadFunctions();
    for (bool is_first = true; journal.GoesOn(); is_first = false) {
        if (!is_first) journal.Note("monitor", "monitor", "starting the library again");
        Observation(common, options, functions, &journal).Run();
    }
    return ExitCode::kOk;
}

}  // namespace dpdu
