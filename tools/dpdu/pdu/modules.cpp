#include "pdu/modules.h"

#include <algorithm>
#include <cctype>

#include "console/failure.h"
#include "console/progress.h"
#include "pdu/functions.h"
#include "pdu/status_text.h"

namespace dpdu {
namespace {

using Clock = std::chrono::steady_clock;

std::string TextOrEmpty(const CHAR8* text) { return text ? text : ""; }

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char character) {
        return static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    });
    return text;
}

// Returns the known state if the library does not answer.
T_PDU_STATUS StateOf(Session* session, UNUM32 handle, T_PDU_STATUS known) {
    T_PDU_STATUS state = known;
    UNUM32 timestamp = 0;
    UNUM32 extra_info = 0;
    session->Functions().GetStatus(handle, PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, &state, &timestamp,
                                   &extra_info);
    return state;
}

ModuleInfo Describe(Session* session, const PDU_MODULE_DATA& data) {
    ModuleInfo module;
    module.handle = data.hMod;
    module.type = data.ModuleTypeId;
    // The list contains a state too, but not every library keeps it up to date.
    module.state = StateOf(session, data.hMod, data.ModuleStatus);
    module.vendor_name = TextOrEmpty(data.pVendorModuleName);
    module.additional_info = TextOrEmpty(data.pVendorAdditionalInfo);
    module.name = VendorValue(module.vendor_name, "ModuleName");
    module.serial_number = VendorValue(module.vendor_name, "SerialNumber");
    module.connection = VendorValue(module.vendor_name, "ConnectionType");
    return module;
}

bool IsGone(const ModuleInfo& module) { return module.state == PDU_MODST_NOT_AVAIL; }

}  // namespace

std::string VendorValue(const std::string& series, const std::string& key) {
    const std::string head = key + "='";
    std::size_t at = series.find(head);
    // A key may also be the end of a longer key.
    while (at != std::string::npos && at > 0 && series[at - 1] != ' ') {
        at = series.find(head, at + 1);
    }
    if (at == std::string::npos) return "";
    const std::size_t begin = at + head.size();
    const std::size_t end = series.find('\'', begin);
    return end == std::string::npos ? "" : series.substr(begin, end - begin);
}

std::vector<ModuleInfo> ListModules(Session* session) {
    pdu::Item<PDU_MODULE_ITEM> list(session->Functions());
    Check(session->Functions().GetModuleIds(list.Out()), "PDUGetModuleIds");
    std::vector<ModuleInfo> modules;
    if (!list || !list->pModuleData) return modules;
    for (UNUM32 i = 0; i < list->NumEntries; ++i) {
        modules.push_back(Describe(session, list->pModuleData[i]));
    }
    return modules;
}

bool IsModuleGone(Session* session, UNUM32 handle) {
    return StateOf(session, handle, PDU_MODST_READY) == PDU_MODST_NOT_AVAIL;
}

bool ModuleMatches(const ModuleInfo& module, const std::string& wanted) {
    const std::string texts = LowerCase(module.vendor_name + "\n" + module.additional_info);
    return texts.find(LowerCase(wanted)) != std::string::npos;
}

std::vector<ModuleInfo> WaitForModules(Session* session, const std::string& wanted,
                                       std::chrono::milliseconds limit) {
    const Progress progress("looking for a module");
    const Clock::time_point deadline = Clock::now() + limit;
    for (;;) {
        std::vector<ModuleInfo> modules = ListModules(session);
        session->DiscardQueue(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF);
        std::erase_if(modules, [&wanted](const ModuleInfo& module) {
            return IsGone(module) || !ModuleMatches(module, wanted);
        });
        if (!modules.empty() || Clock::now() >= deadline) return modules;
        session->WaitForEvent();
    }
}

ModuleInfo ChooseModule(Session* session, const std::string& wanted,
                        std::chrono::milliseconds limit) {
    const std::vector<ModuleInfo> modules = WaitForModules(session, wanted, limit);
    if (modules.empty()) {
        throw Failure(wanted.empty() ? "no module found; is the dongle connected and its transport "
                                       "switched on in the library's configuration?"
                                     : "no module found that matches '" + wanted +
                                           "'; 'dpdu modules' lists what there is",
                      ExitCode::kNoModule);
    }
    if (modules.size() == 1) return modules.front();

    std::string names;
    for (const ModuleInfo& module : modules) {
        names += (names.empty() ? "" : "; ") +
                 (module.serial_number.empty() ? module.vendor_name
                                               : module.serial_number + " " + module.connection);
    }
    throw Failure(
        std::to_string(modules.size()) + " modules found, choose one with --module TEXT: " + names,
        ExitCode::kUsage);
}

ConnectedModule::ConnectedModule(Session* session, UNUM32 handle)
    : session_(session), handle_(handle) {
    const pdu::Functions& functions = session_->Functions();
    Check(functions.ModuleConnect(handle_), "PDUModuleConnect");
    functions.RegisterEventCallback(handle_, PDU_HANDLE_UNDEF, Session::Callback());
}

ConnectedModule::~ConnectedModule() {
    const pdu::Functions& functions = session_->Functions();
    functions.RegisterEventCallback(handle_, PDU_HANDLE_UNDEF, nullptr);
    session_->DiscardQueue(handle_, PDU_HANDLE_UNDEF);
    functions.ModuleDisconnect(handle_);
}

}  // namespace dpdu
