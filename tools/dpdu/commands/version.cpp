#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/module_session.h"
#include "pdu/own_library.h"
#include "pdu/status_text.h"

namespace dpdu {
namespace {

UNUM32 ByteOf(UNUM32 packed, int position) { return (packed >> (8 * position)) & 0xFF; }

// One number per byte: major, minor, revision, 0.
std::string VersionText(UNUM32 packed) {
    return std::to_string(ByteOf(packed, 3)) + "." + std::to_string(ByteOf(packed, 2)) + "." +
           std::to_string(ByteOf(packed, 1));
}

// One number per byte: years since 1970, month, day, 0. Empty if there is no date.
std::string DateText(UNUM32 packed) {
    if (packed == 0) return "";
    char text[32];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u", 1970 + ByteOf(packed, 3), ByteOf(packed, 2),
                  ByteOf(packed, 1));
    return text;
}

template <std::size_t kSize>
std::string FieldText(const CHAR8 (&field)[kSize]) {
    std::size_t length = 0;
    while (length < kSize && field[length] != '\0')
        ++length;
    return std::string(field, length);
}

struct Component {
    const char* key;    // in JSON
    const char* title;  // in the table
    std::string name;
    UNUM32 version;
    UNUM32 date;
};

std::vector<Component> Components(const PDU_VERSION_DATA& data) {
    return {
        {"library", "Library", FieldText(data.PDUApiSwName), data.PDUApiSwVersion,
         data.PDUApiSwDate},
        {"hardware", "Hardware", FieldText(data.HwName), data.HwVersion, data.HwDate},
        {"firmware", "Firmware", FieldText(data.FwName), data.FwVersion, data.FwDate},
    };
}

Json VersionJson(const ModuleInfo& module, const PDU_VERSION_DATA& data) {
    Json document = {{"module", module.vendor_name},
                     {"vendor", FieldText(data.VendorName)},
                     {"iso22900Part1", VersionText(data.MVCI_Part1StandardVersion)},
                     {"iso22900Part2", VersionText(data.MVCI_Part2StandardVersion)},
                     {"hardwareSerialNumber", data.HwSerialNumber},
                     {"hardwareInterface", data.HwInterface}};
    for (const Component& component : Components(data)) {
        document[component.key] = {{"name", component.name},
                                   {"version", VersionText(component.version)},
                                   {"date", DateText(component.date)}};
    }
    return document;
}

// This project's library reports the same for every dongle, except what the dongle's login has.
constexpr char kConstant[] = "(constant of the library)";

std::vector<Row> VersionRows(const PDU_VERSION_DATA& data, const ModuleInfo& module, bool is_own) {
    std::vector<Row> rows;
    for (const Component& component : Components(data)) {
        rows.push_back({component.title, component.name, VersionText(component.version),
                        DateText(component.date)});
        if (is_own && component.title != std::string("Library"))
            rows.back().emplace_back(kConstant);
    }
    rows.push_back({"Vendor", FieldText(data.VendorName)});
    rows.push_back({"Serial number", std::to_string(data.HwSerialNumber)});
    if (is_own) {
        rows.back().emplace_back(kConstant);
        rows.push_back({"Dongle", module.name + ", serial number " + module.serial_number +
                                      " (reported by the dongle); its firmware is not passed on"});
    }
    rows.push_back({"ISO 22900-1", VersionText(data.MVCI_Part1StandardVersion)});
    rows.push_back({"ISO 22900-2", VersionText(data.MVCI_Part2StandardVersion)});
    return rows;
}

}  // namespace

ExitCode RunVersion(const CommonOptions& common, Output* output) {
    ModuleSession module(common);
    PDU_VERSION_DATA data = {};
    Check(module.GetSession()->Functions().GetVersion(module.Module().Handle(), &data),
          "PDUGetVersion");
    const bool is_own = IsOwnLibrary(module.Module());
    if (output->AsJson()) {
        Json document = VersionJson(module.Info(), data);
        if (is_own) {
            document["constantsOfTheLibrary"] = {"hardware", "firmware", "hardwareSerialNumber"};
            document["dongle"] = {{"name", module.Info().name},
                                  {"serialNumber", module.Info().serial_number},
                                  {"firmware", nullptr}};
        }
        output->Document(document);
    } else {
        output->Table(VersionRows(data, module.Info(), is_own));
    }
    return ExitCode::kOk;
}

}  // namespace dpdu
