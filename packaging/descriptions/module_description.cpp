#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "api/ioctl_table.h"
#include "api/object_table.h"
#include "comparam/comparam_table.h"
#include "comparam/comparams.h"
#include "description_files.h"
#include "dpdu_types.h"
#include "transport/transport_table.h"
#include "versions.h"
#include "xml_writer.h"

namespace tarvik::descriptions {
namespace {

struct ConnectorPin {
    std::uint32_t number;  // of the OBD connector
    const ObjectName& type;
};
constexpr ConnectorPin kPins[] = {{6, kPinTypes[0]}, {14, kPinTypes[1]}};

// Error items give no more than their error event.
constexpr ObjectName kErrorCodes[] = {
    {"NO_FURTHER_INFORMATION", 0, "The error event says all that is known"}};

struct Constant {
    std::uint32_t value;
    const char* name;
};
#define TARVIK_CONSTANT(name) \
    Constant { name, #name }
constexpr Constant kDataTypes[] = {
    TARVIK_CONSTANT(PDU_PT_UNUM8),     TARVIK_CONSTANT(PDU_PT_SNUM8),
    TARVIK_CONSTANT(PDU_PT_UNUM16),    TARVIK_CONSTANT(PDU_PT_SNUM16),
    TARVIK_CONSTANT(PDU_PT_UNUM32),    TARVIK_CONSTANT(PDU_PT_SNUM32),
    TARVIK_CONSTANT(PDU_PT_BYTEFIELD), TARVIK_CONSTANT(PDU_PT_STRUCTFIELD),
    TARVIK_CONSTANT(PDU_PT_LONGFIELD)};
constexpr Constant kClasses[] = {
    TARVIK_CONSTANT(PDU_PC_TIMING),        TARVIK_CONSTANT(PDU_PC_INIT),
    TARVIK_CONSTANT(PDU_PC_COM),           TARVIK_CONSTANT(PDU_PC_ERRHDL),
    TARVIK_CONSTANT(PDU_PC_BUSTYPE),       TARVIK_CONSTANT(PDU_PC_UNIQUE_ID),
    TARVIK_CONSTANT(PDU_PC_TESTER_PRESENT)};
#undef TARVIK_CONSTANT

template <std::size_t N>
const char* NameIn(const Constant (&constants)[N], std::uint32_t value) {
    for (const Constant& constant : constants) {
        if (constant.value == value) return constant.name;
    }
    throw std::logic_error("a ComParam has a type or class without a name");
}

const char* NameOf(ComParamLayer layer) {
    switch (layer) {
        case ComParamLayer::kApplication:
            return "PDU_PL_APPLICATION";
        case ComParamLayer::kTransport:
            return "PDU_PL_TRANSPORT";
        case ComParamLayer::kPhysical:
            return "PDU_PL_PHYSICAL";
    }
    throw std::logic_error("a ComParam has an unknown layer");
}

// Labels inside the file.
std::string ComParamLabel(std::uint32_t id) { return "ID_CP_" + std::to_string(id); }
std::string IoCtlLabel(std::uint32_t id) { return "ID_IO_" + std::to_string(id); }
std::string PinTypeLabel(const ObjectName& type) { return "ID_PIN_" + std::string(type.name); }
std::string Label(std::string_view kind, const ObjectName& object) {
    return "ID_" + std::string(kind) + "_" + std::string(object.name);
}

// ---- values at the start ----------------------------------------------------------------------

template <typename Field>
std::string FieldText(const void* data) {
    Field field;
    std::memcpy(&field, data, sizeof field);
    std::string text = std::to_string(field.ParamMaxLen) + " " + std::to_string(field.ParamActLen);
    for (UNUM32 i = 0; i < field.ParamActLen; ++i)
        text += " " + std::to_string(field.pDataArray[i]);
    return text;
}

PDU_PARAM_STRUCTFIELD_DATA StructField(const void* data) {
    PDU_PARAM_STRUCTFIELD_DATA field;
    std::memcpy(&field, data, sizeof field);
    return field;
}

std::string EntryText(const PDU_PARAM_STRUCT_SESS_TIMING& entry) {
    std::string text;
    for (const UNUM32 value :
         {UNUM32{entry.session}, UNUM32{entry.P2Max_high}, UNUM32{entry.P2Max_low},
          UNUM32{entry.P2Star_high}, UNUM32{entry.P2Star_low}})
        text += " " + std::to_string(value);
    return text;
}

std::string EntryText(const PDU_PARAM_STRUCT_ACCESS_TIMING& entry) {
    std::string text;
    for (const UNUM8 value :
         {entry.P2Min, entry.P2Max, entry.P3Min, entry.P3Max, entry.P4Min, entry.TimingSet})
        text += " " + std::to_string(value);
    return text;
}

template <typename Entry>
std::string EntriesText(const PDU_PARAM_STRUCTFIELD_DATA& field) {
    std::string text;
    for (UNUM32 i = 0; i < field.ParamActEntries; ++i)
        text += EntryText(static_cast<const Entry*>(field.pStructArray)[i]);
    return text;
}

// As for the other fields, in the order of the record: type, capacity, entries in use and their
// members.
std::string StructFieldText(const void* data) {
    const PDU_PARAM_STRUCTFIELD_DATA field = StructField(data);
    return std::to_string(field.ComParamStructType) + " " + std::to_string(field.ParamMaxEntries) +
           " " + std::to_string(field.ParamActEntries) +
           (field.ComParamStructType == PDU_CPST_SESSION_TIMING
                ? EntriesText<PDU_PARAM_STRUCT_SESS_TIMING>(field)
                : EntriesText<PDU_PARAM_STRUCT_ACCESS_TIMING>(field));
}

template <typename Number>
std::string NumberText(const void* data) {
    Number number;
    std::memcpy(&number, data, sizeof number);
    return std::to_string(number);
}

std::string ValueText(const PDU_PARAM_ITEM& item) {
    switch (item.ComParamDataType) {
        case PDU_PT_UNUM8:
            return NumberText<UNUM8>(item.pComParamData);
        case PDU_PT_SNUM8:
            return NumberText<SNUM8>(item.pComParamData);
        case PDU_PT_UNUM16:
            return NumberText<UNUM16>(item.pComParamData);
        case PDU_PT_SNUM16:
            return NumberText<SNUM16>(item.pComParamData);
        case PDU_PT_SNUM32:
            return NumberText<SNUM32>(item.pComParamData);
        case PDU_PT_BYTEFIELD:
            return FieldText<PDU_PARAM_BYTEFIELD_DATA>(item.pComParamData);
        case PDU_PT_LONGFIELD:
            return FieldText<PDU_PARAM_LONGFIELD_DATA>(item.pComParamData);
        case PDU_PT_STRUCTFIELD:
            return StructFieldText(item.pComParamData);
        default:
            return NumberText<UNUM32>(item.pComParamData);
    }
}

struct Limits {
    std::int64_t least;
    std::int64_t most;
};

template <typename Number>
Limits LimitsOf() {
    return {std::numeric_limits<Number>::min(), std::numeric_limits<Number>::max()};
}

// The library checks no limits, so a number has those of its type, and a struct field those of its
// number of entries. Other fields have none.
std::optional<Limits> LimitsFor(const PDU_PARAM_ITEM& item) {
    switch (item.ComParamDataType) {
        case PDU_PT_UNUM8:
            return LimitsOf<UNUM8>();
        case PDU_PT_SNUM8:
            return LimitsOf<SNUM8>();
        case PDU_PT_UNUM16:
            return LimitsOf<UNUM16>();
        case PDU_PT_SNUM16:
            return LimitsOf<SNUM16>();
        case PDU_PT_UNUM32:
            return LimitsOf<UNUM32>();
        case PDU_PT_SNUM32:
            return LimitsOf<SNUM32>();
        case PDU_PT_STRUCTFIELD:
            return Limits{0, StructField(item.pComParamData).ParamMaxEntries};
        default:
            return std::nullopt;
    }
}

// ---- elements ---------------------------------------------------------------------------------

void WriteName(XmlWriter* xml, const ObjectName& object) {
    xml->Line("ID", std::to_string(object.id));
    xml->Line("SHORT_NAME", object.name);
    xml->Line("DESCRIPTION", object.description);
}

void WriteObject(XmlWriter* xml, std::string_view element, const std::string& label,
                 const ObjectName& object) {
    xml->Open(element, {{"EID", label}});
    WriteName(xml, object);
    xml->Close();
}

void WriteComParam(XmlWriter* xml, const ComParamDescription& row) {
    const PDU_PARAM_ITEM& item = *ComParamItem(row.id);
    xml->Open("COMPARAM", {{"EID", ComParamLabel(row.id)}});
    WriteName(xml, {row.name, row.id, row.description});
    xml->Line("DATA_TYPE", NameIn(kDataTypes, row.data_type));
    xml->Line("DEFAULT_VALUE", ValueText(item));
    xml->Line("CLASS", NameIn(kClasses, row.param_class));
    xml->Line("LAYER", NameOf(row.layer));
    if (const std::optional<Limits> limits = LimitsFor(item)) {
        xml->Line("MIN_VALUE", std::to_string(limits->least));
        xml->Line("MAX_VALUE", std::to_string(limits->most));
    }
    xml->Close();
}

// A bus type or protocol with the ComParams that it uses. The library has one set of ComParams for
// all links, so those of the bus belong to the bus type and all others to every protocol.
void WriteUserOfComParams(XmlWriter* xml, std::string_view element, const std::string& label,
                          const ObjectName& object, bool is_bus) {
    xml->Open(element, {{"EID", label}});
    WriteName(xml, object);
    for (const ComParamDescription& row : kComParamTable) {
        if ((row.param_class == PDU_PC_BUSTYPE) != is_bus) continue;
        xml->Open("COMPARAM_REF");
        xml->Line("DEFAULT_VALUE", ValueText(*ComParamItem(row.id)));
        xml->Empty("COMPARAM", {{"IDREF", ComParamLabel(row.id)}});
        xml->Close();
    }
    xml->Close();
}

void WriteProtocol(XmlWriter* xml, const ObjectName& protocol) {
    WriteUserOfComParams(xml, "PROTOCOL", Label("PROT", protocol), protocol, false);
}

// Clients keep protocols by their id: the later one of an id replaces the earlier. UDS is the last,
// because resources refer to it.
void WriteProtocols(XmlWriter* xml) {
    for (const ObjectName& protocol : kProtocols) {
        if (protocol.name != kProtocolUds.name) WriteProtocol(xml, protocol);
    }
    WriteProtocol(xml, kProtocolUds);
}

void WriteResource(XmlWriter* xml, const ObjectName& resource) {
    xml->Open("RESOURCE", {{"EID", Label("RSC", resource)}});
    WriteName(xml, resource);
    for (const ConnectorPin& pin : kPins) {
        xml->Open("PIN_ON_MODULE");
        xml->Line("PIN_ON_MODULE", std::to_string(pin.number));
        xml->Empty("PINTYPE", {{"IDREF", PinTypeLabel(pin.type)}});
        xml->Close();
    }
    xml->Empty("BUSTYPE", {{"IDREF", Label("BUS", kBusTypes[0])}});
    xml->Empty("PROTOCOL", {{"IDREF", Label("PROT", kProtocolUds)}});
    xml->Close();
}

void WriteModuleType(XmlWriter* xml, std::uint32_t id) {
    xml->Open("MODULETYPE");
    WriteName(xml, {"Brennix", id, "Brennix OBD dongle"});
    for (std::uint32_t command = kIoCtlReset; command < kIoCtlEnd; ++command)
        xml->Empty("IO_CTRL", {{"IDREF", IoCtlLabel(command)}});
    for (const ObjectName& resource : kResources)
        xml->Empty("RESOURCE", {{"IDREF", Label("RSC", resource)}});
    xml->Close();
}

// The one type of module that all transports report.
std::uint32_t ModuleType() {
    RegisterTransports();
    const std::uint32_t id = TransportTable.entries[0]->module_type_id;
    for (std::int32_t at = 1; at < TransportTable.count; ++at) {
        if (TransportTable.entries[at]->module_type_id != id) {
            throw std::logic_error("the transports have several types of modules");
        }
    }
    return id;
}

}  // namespace

// Elements of one kind stand together, as clients expect.
std::string ModuleDescription() {
    XmlWriter xml("MVCI_MODULE_DESCRIPTION", {{"FILE_VERSION", ProductVersion()},
                                              {"MVCI_PART2_STANDARD_VERSION", StandardVersion()}});
    xml.Line("DESCRIPTION", "Module description for the Brennix dongle");
    xml.Line("SUPPLIER_NAME", "Tarvik");
    for (const ObjectName& type : kPinTypes)
        WriteObject(&xml, "PINTYPE", PinTypeLabel(type), type);
    for (std::uint32_t command = kIoCtlReset; command < kIoCtlEnd; ++command)
        WriteObject(&xml, "IO_CTRL", IoCtlLabel(command), IoCtlName(command));
    for (const ComParamDescription& row : kComParamTable)
        WriteComParam(&xml, row);
    for (const ObjectName& bus : kBusTypes)
        WriteUserOfComParams(&xml, "BUSTYPE", Label("BUS", bus), bus, true);
    WriteProtocols(&xml);
    for (const ObjectName& resource : kResources)
        WriteResource(&xml, resource);
    WriteModuleType(&xml, ModuleType());
    for (const ObjectName& error : kErrorCodes) {
        xml.Open("ERROR_CODE");
        WriteName(&xml, error);
        xml.Close();
    }
    return std::move(xml).Text();
}

}  // namespace tarvik::descriptions
