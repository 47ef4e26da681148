#include <algorithm>
#include <map>
#include <set>

#include "console/progress.h"
#include "scan/module_watch.h"
#include "scan/probe.h"
#include "uds/answers.h"

namespace dpdu {
namespace {

using Clock = std::chrono::steady_clock;

// How late an answer may come, compared to the usual time, where this computer or the bus is busy.
constexpr int kLateness = 3;

// ISO 15765-2: the length comes first. Control units may ignore frames of less than 8 bytes; the
// value is that which the standard recommends for padding.
CanFrame TesterPresentFrame(std::uint32_t id) {
    constexpr std::uint8_t kPadding = 0xCC;
    return {id,
            id > kLargest11BitId,
            {2, kTesterPresentRequest[0], kTesterPresentRequest[1], kPadding, kPadding, kPadding,
             kPadding, kPadding}};
}

// A single frame with the positive or a negative response.
bool IsAnswer(const CanFrame& frame) {
    const std::uint8_t service = kTesterPresentRequest.front();
    const Bytes& data = frame.data;
    if (data.size() < 3) return false;
    if (data[0] == 2) return data[1] == service + kPositiveOffset && data[2] == 0x00;
    return data[0] == 3 && data.size() >= 4 && data[1] == kNegativeResponseService &&
           data[2] == service;
}

class FrameProbe {
public:
    FrameProbe(const ConnectedModule& module, const ScanOptions& options,
               std::vector<FoundUnit>* units)
        : options_(options),
          units_(units),
          session_(module.GetSession()),
          watch_(module),
          link_(module, options.raw_link) {
        link_.StartListening();
    }

    void AskFunctionally() {
        heard_.clear();
        for (const std::uint32_t id : options_.functional_ids) {
            Send(id);
            ReceiveFor(options_.answer_time);
        }
        functional_.insert(heard_.begin(), heard_.end());
        Report();
    }

    void AskPhysically() {
        ProgressBar bar("looking for control units", options_.request_ids.size());
        for (const std::uint32_t id : options_.request_ids) {
            Send(id);
            ReceiveFor(options_.gap);
            bar.Advance(CanIdText(id));
            Report();
        }
        ReceiveFor(kLateness * options_.answer_time);
        Report();
    }

    // Finds the request identifiers, also of those who answer only now.
    void AskAlone() {
        for (std::size_t next = 0; next < units_->size();) {
            const std::size_t end = units_->size();
            ProgressBar bar("asking each alone", end - next);
            for (; next < end; ++next) {
                FoundUnit& unit = (*units_)[next];
                if (!FindRequestId(&unit, options_.answer_time)) {
                    FindRequestId(&unit, kLateness * options_.answer_time);
                }
                bar.Advance(CanIdText(unit.response_id));
            }
            Report();
        }
    }

private:
    struct Sent {
        std::uint32_t id;
        Clock::time_point time;
    };

    void Send(std::uint32_t id) {
        sent_.push_back({id, Clock::now()});
        link_.Send(TesterPresentFrame(id), options_.raw_primitive);
    }

    void Receive() {
        link_.TakeFrames([this](const CanFrame& frame, UNUM32) {
            watch_.NoteSignOfLife();
            if (!IsAnswer(frame)) return;
            answers_[frame.id].push_back(Clock::now());
            heard_.insert(frame.id);
        });
    }

    void ReceiveFor(std::chrono::milliseconds time) {
        const Clock::time_point end = Clock::now() + time;
        for (;;) {
            Receive();
            watch_.Check();
            const auto left = end - Clock::now();
            if (left <= Clock::duration::zero()) return;
            session_->PauseForEvent(std::chrono::ceil<std::chrono::milliseconds>(left));
        }
    }

    // Puts who has answered so far into the list.
    void Report() {
        for (const auto& [id, times] : answers_) {
            if (reported_.insert(id).second) units_->emplace_back().response_id = id;
        }
        for (FoundUnit& unit : *units_)
            unit.is_functional = functional_.contains(unit.response_id);
    }

    // Among those that were asked at most so long before an answer.
    bool FindRequestId(FoundUnit* unit, std::chrono::milliseconds limit) {
        for (const std::uint32_t candidate : CandidatesFor(unit->response_id, limit)) {
            if (IsTheirs(candidate, unit, limit) && unit->request_id) return true;
        }
        if (!shared_.contains(unit->response_id)) return false;
        unit->request_id = shared_[unit->response_id];
        return true;
    }

    // The usual request identifier first, then those that were asked before it answered, the latest
    // first.
    std::vector<std::uint32_t> CandidatesFor(std::uint32_t response_id,
                                             std::chrono::milliseconds limit) const {
        std::vector<std::uint32_t> candidates;
        const auto add = [&](std::uint32_t id) {
            const auto& functional = options_.functional_ids;
            const bool is_known =
                std::find(functional.begin(), functional.end(), id) != functional.end() ||
                std::find(candidates.begin(), candidates.end(), id) != candidates.end();
            if (!is_known) candidates.push_back(id);
        };
        for (const std::uint32_t id : UsualRequestIds(response_id))
            add(id);
        for (const Clock::time_point time : answers_.at(response_id)) {
            for (auto sent = sent_.rbegin(); sent != sent_.rend(); ++sent) {
                const bool is_before = sent->time <= time;
                if (is_before && time - sent->time <= limit) add(sent->id);
            }
        }
        return candidates;
    }

    std::vector<std::uint32_t> UsualRequestIds(std::uint32_t response_id) const {
        // Swapping target and source is its own inverse.
        if (response_id > kLargest11BitId) {
            const auto swapped = UsualResponseId(response_id, 0);
            return swapped ? std::vector<std::uint32_t>{*swapped} : std::vector<std::uint32_t>{};
        }
        if (response_id < options_.response_offset) return {};
        return {response_id - options_.response_offset};
    }

    // Asks the candidate and waits for this control unit. One that answers together with others
    // listens to an identifier that is shared. What came before is the late answer to another
    // request, perhaps; so only a second answer counts, unless everything is as usual.
    bool IsTheirs(std::uint32_t candidate, FoundUnit* unit, std::chrono::milliseconds limit) {
        const bool is_likely = IsLikely(candidate, unit->response_id);
        if (!is_likely) WaitForLateAnswers(limit);
        if (!Answers(candidate, unit->response_id, limit)) return false;
        bool is_shared = heard_.size() > 1;
        if (is_shared || !is_likely) {
            if (!Answers(candidate, unit->response_id, limit)) return false;
            is_shared = is_shared && heard_.size() > 1;
        }
        if (is_shared) {
            shared_.emplace(unit->response_id, candidate);
        } else {
            unit->request_id = candidate;
        }
        return true;
    }

    // Who else has answered is in heard_.
    bool Answers(std::uint32_t candidate, std::uint32_t response_id,
                 std::chrono::milliseconds limit) {
        heard_.clear();
        Send(candidate);
        const Clock::time_point end = Clock::now() + limit;
        while (!heard_.contains(response_id)) {
            if (Clock::now() >= end) return false;
            ReceiveFor(std::chrono::milliseconds(1));
        }
        ReceiveFor(options_.gap);
        return true;
    }

    // True if it is the usual identifier and was answered in time before.
    bool IsLikely(std::uint32_t candidate, std::uint32_t response_id) const {
        const std::vector<std::uint32_t> usual = UsualRequestIds(response_id);
        if (usual.empty() || usual.front() != candidate) return false;
        const std::vector<Clock::time_point>& times = answers_.at(response_id);
        return std::any_of(sent_.begin(), sent_.end(), [&](const Sent& sent) {
            return sent.id == candidate &&
                   std::any_of(times.begin(), times.end(), [&](Clock::time_point time) {
                       return sent.time <= time && time - sent.time <= options_.answer_time;
                   });
        });
    }

    void WaitForLateAnswers(std::chrono::milliseconds limit) {
        const auto left = sent_.back().time + limit - Clock::now();
        if (left > Clock::duration::zero())
            ReceiveFor(std::chrono::ceil<std::chrono::milliseconds>(left));
    }

    const ScanOptions& options_;
    std::vector<FoundUnit>* units_;
    Session* session_;
    ModuleWatch watch_;
    RawLink link_;
    std::vector<Sent> sent_;
    std::map<std::uint32_t, std::vector<Clock::time_point>> answers_;  // by response identifier
    std::set<std::uint32_t> reported_;
    std::set<std::uint32_t> functional_;             // have answered a functional request
    std::set<std::uint32_t> heard_;                  // since it was last cleared
    std::map<std::uint32_t, std::uint32_t> shared_;  // response to a shared request identifier
};

}  // namespace

void ProbeWithFrames(const ConnectedModule& module, const ScanOptions& options,
                     std::vector<FoundUnit>* units) {
    FrameProbe probe(module, options, units);
    // A library does not say when reception has begun, so the first answers may be missed.
    probe.AskFunctionally();
    probe.AskPhysically();
    probe.AskFunctionally();
    probe.AskAlone();
}

}  // namespace dpdu
