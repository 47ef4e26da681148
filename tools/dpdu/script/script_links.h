// The links of a script, on one module. Each is opened at its first use and kept for later steps.

#ifndef TOOLS_DPDU_SCRIPT_SCRIPT_LINKS_H
#define TOOLS_DPDU_SCRIPT_SCRIPT_LINKS_H

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "links/link.h"
#include "raw/raw_link.h"

namespace dpdu::script {

class ScriptLinks {
public:
    ScriptLinks(const ConnectedModule& module, const LinkOptions& options, const LinkOptions& raw,
                T_PDU_COPT raw_primitive);
    ScriptLinks(const ScriptLinks&) = delete;
    ScriptLinks& operator=(const ScriptLinks&) = delete;

    // All of these throw Failure.
    Link& To(const LinkTargets& targets);
    void SetLimit(std::chrono::milliseconds limit);
    // These close the links, since libraries read such settings when a link is opened.
    void SetParam(const std::string& name, const std::string& value);
    void SetTesterPresent(std::optional<std::chrono::milliseconds> period);

    // Drops the frames received before. The first raw step opens the link.
    void SendFrame(const CanFrame& frame);
    // Takes the next received frame; nullopt: there is none yet.
    std::optional<CanFrame> NextFrame();
    // Takes frames from the library, so that they do not pile up there.
    void KeepFrames();
    // Waits until the library has processed the frames to send.
    void FinishSending();

    Session* GetSession() const { return module_.GetSession(); }
    // Asks the library, which takes some time. Throws Failure if the module is gone.
    void RequireModule() const;

private:
    using Key = std::pair<std::uint32_t, std::vector<std::pair<std::uint32_t, std::uint32_t>>>;

    void OpenRaw();
    void AwaitReception();

    const ConnectedModule& module_;
    LinkOptions options_;
    LinkOptions raw_options_;
    T_PDU_COPT raw_primitive_;
    std::map<Key, std::unique_ptr<Link>> links_;
    std::unique_ptr<RawLink> raw_;
    std::deque<CanFrame> frames_;  // received, not looked at yet
    bool has_sent_ = false;
};

}  // namespace dpdu::script

#endif  // TOOLS_DPDU_SCRIPT_SCRIPT_LINKS_H
