#include "wine/bluetooth/rules.h"

#include <objbase.h>

#include <map>
#include <sstream>
#include <vector>

#include "wine/bluetooth/interfaces.h"
#include "wine/bluetooth/lock.h"
#include "wine/bluetooth/radio_client.h"

namespace brennix {

namespace {

struct State {
    Lock lock;
    std::vector<std::string> violations;
    std::map<std::string, int> alive;  // by class
    std::multimap<std::string, Fault>
        faults;  // by function, in the order in which they were planned
};

State& TheState() {
    static State* const state =
        new State;  // never deleted: threads may use it until the process ends
    return *state;
}

bool HasEnteredRuntime() {
    APTTYPE type{};
    APTTYPEQUALIFIER qualifier{};
    return SUCCEEDED(::CoGetApartmentType(&type, &qualifier)) &&
           qualifier != APTTYPEQUALIFIER_IMPLICIT_MTA;
}

}  // namespace

void Violation(const std::string& what) {
    {
        const std::lock_guard hold(TheState().lock);
        TheState().violations.push_back(what);
    }
    if (RadioClient* radio = RadioClient::Get()) radio->Send("violation " + what);
}

Counted::Counted(const char* class_name) : class_name_(class_name) {
    const std::lock_guard hold(TheState().lock);
    ++TheState().alive[class_name_];
}

Counted::~Counted() {
    const std::lock_guard hold(TheState().lock);
    --TheState().alive[class_name_];
}

std::optional<Fault> TakeFault(const char* function) {
    const std::lock_guard hold(TheState().lock);
    const auto found = TheState().faults.find(function);
    if (found == TheState().faults.end()) return std::nullopt;
    const Fault fault = found->second;
    TheState().faults.erase(found);
    return fault;
}

bool PlanFault(const std::string& function, const std::string& fault) {
    static const std::map<std::string, Fault::Kind> kinds = {
        {"fail", Fault::Kind::kFail},     {"error", Fault::Kind::kError},
        {"status", Fault::Kind::kStatus}, {"cancel", Fault::Kind::kCancel},
        {"null", Fault::Kind::kNull},     {"none", Fault::Kind::kNone},
        {"never", Fault::Kind::kNever},   {"value", Fault::Kind::kValue}};
    std::istringstream words(fault);
    std::string kind;
    std::string value = "0";
    words >> kind >> value;
    const auto found = kinds.find(kind);
    if (found == kinds.end()) return false;
    const auto number = static_cast<HRESULT>(std::stoul(value, nullptr, 0));
    const std::lock_guard hold(TheState().lock);
    TheState().faults.insert({function, {found->second, number}});
    return true;
}

HRESULT Enter(const char* function) {
    if (!HasEnteredRuntime()) {
        Violation(std::string(function) + " on a thread that has not entered the runtime");
    }
    const std::lock_guard hold(TheState().lock);
    const auto found = TheState().faults.find(function);
    if (found == TheState().faults.end() || found->second.kind != Fault::Kind::kFail) return S_OK;
    const HRESULT result = found->second.value;
    TheState().faults.erase(found);
    return result;
}

HRESULT NotOffered(const char* interface_name, const char* function) {
    Violation(std::string(interface_name) + "::" + function + " is not offered by the double");
    return E_NOTIMPL;
}

std::string TakeReport() {
    const std::lock_guard hold(TheState().lock);
    std::string report;
    for (const std::string& violation : TheState().violations)
        report += violation + "\n";
    TheState().violations.clear();
    for (const auto& [class_name, count] : TheState().alive) {
        if (count != 0) report += std::to_string(count) + " of " + class_name + " not released\n";
    }
    for (const auto& [function, fault] : TheState().faults) {
        report += "the fault of " + function + " has not been used\n";
    }
    TheState().faults.clear();
    return report;
}

}  // namespace brennix
