#include "check/module_description.h"

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <set>
#include <sstream>

#include "check/description_file.h"
#include "check/group.h"
#include "params/known_objects.h"

namespace dpdu::check {
namespace {

using xml::Element;

constexpr char kLabel[] = "EID";
constexpr char kReference[] = "IDREF";

// Direct children; some applications refuse any other.
constexpr std::array<std::string_view, 10> kDirectChildren = {
    "DESCRIPTION", "SUPPLIER_NAME", "PINTYPE",  "IO_CTRL",    "COMPARAM",
    "BUSTYPE",     "PROTOCOL",      "RESOURCE", "MODULETYPE", "ERROR_CODE"};
constexpr std::array<std::string_view, 3> kLayers = {"PDU_PL_APPLICATION", "PDU_PL_TRANSPORT",
                                                     "PDU_PL_PHYSICAL"};

struct DataType {
    const char* name;
    T_PDU_PT type;
    std::int64_t least;  // of a number, or of each value of a field
    std::int64_t most;
    bool is_field;
};
template <typename Number>
constexpr DataType NumberType(const char* name, T_PDU_PT type) {
    return {name, type, std::numeric_limits<Number>::min(), std::numeric_limits<Number>::max(),
            false};
}
constexpr std::int64_t kLargest = std::numeric_limits<UNUM32>::max();
constexpr DataType kDataTypes[] = {
    NumberType<UNUM8>("PDU_PT_UNUM8", PDU_PT_UNUM8),
    NumberType<SNUM8>("PDU_PT_SNUM8", PDU_PT_SNUM8),
    NumberType<UNUM16>("PDU_PT_UNUM16", PDU_PT_UNUM16),
    NumberType<SNUM16>("PDU_PT_SNUM16", PDU_PT_SNUM16),
    NumberType<UNUM32>("PDU_PT_UNUM32", PDU_PT_UNUM32),
    NumberType<SNUM32>("PDU_PT_SNUM32", PDU_PT_SNUM32),
    {"PDU_PT_BYTEFIELD", PDU_PT_BYTEFIELD, 0, 255, true},
    {"PDU_PT_LONGFIELD", PDU_PT_LONGFIELD, 0, kLargest, true},
    {"PDU_PT_STRUCTFIELD", PDU_PT_STRUCTFIELD, 0, kLargest, true},
};

struct ClassName {
    const char* name;
    T_PDU_PC param_class;
};
constexpr ClassName kClassNames[] = {
    {"PDU_PC_TIMING", PDU_PC_TIMING},
    {"PDU_PC_INIT", PDU_PC_INIT},
    {"PDU_PC_COM", PDU_PC_COM},
    {"PDU_PC_ERRHDL", PDU_PC_ERRHDL},
    {"PDU_PC_BUSTYPE", PDU_PC_BUSTYPE},
    {"PDU_PC_UNIQUE_ID", PDU_PC_UNIQUE_ID},
    {"PDU_PC_TESTER_PRESENT", PDU_PC_TESTER_PRESENT},
};

template <typename Rows>
auto FindName(const Rows& rows, const std::string& name) -> decltype(&rows[0]) {
    const auto found =
        std::ranges::find_if(rows, [&name](const auto& row) { return name == row.name; });
    return found == std::end(rows) ? nullptr : &*found;
}

const ObjectType* TypeOf(const Element& element) {
    for (const ObjectType& type : ObjectTypes()) {
        if (element.name == type.element) return &type;
    }
    return nullptr;
}

bool HasIdAndName(const Element& element) {
    return TypeOf(element) != nullptr || element.name == "MODULETYPE" ||
           element.name == "ERROR_CODE";
}

bool IsLetterOf(char byte) {
    return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || byte == '_' ||
           static_cast<unsigned char>(byte) >= 0x80;
}

// Legal as an XML name without a prefix.
bool IsLabel(const std::string& text) {
    return !text.empty() && IsLetterOf(text[0]) && std::ranges::all_of(text, [](char byte) {
        return IsLetterOf(byte) || (byte >= '0' && byte <= '9') || byte == '-' || byte == '.';
    });
}

std::vector<std::string> Words(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

// ---------------------------------------------------------------- elements

class Elements {
public:
    Elements(const Element& root, Findings* findings)
        : root_(root), group_("module description", findings) {}

    ModuleDescription Check() {
        if (root_.FindAttribute("FILE_VERSION") == nullptr) {
            group_.Wrong(root_.name + " has no attribute FILE_VERSION",
                         "write the version of the file there, such as 1.0.0");
        }
        description_.standard_version = StandardVersionOf(root_, &group_);
        CheckDirectChildren();
        CheckOrder(root_);
        for (const auto& child : root_.children) {
            if (HasIdAndName(*child)) TakeObject(*child);
        }
        CheckNames();
        CheckIds();
        group_.Held(std::to_string(description_.objects.size()) + " objects of known kinds");
        return std::move(description_);
    }

private:
    void CheckDirectChildren() {
        for (const auto& child : root_.children) {
            if (std::ranges::find(kDirectChildren, child->name) != kDirectChildren.end()) continue;
            group_.Wrong("line " + std::to_string(child->line) + ": " + child->name +
                             " is none of the ten kinds of elements",
                         "remove it: some applications then refuse the file");
        }
        OneText(root_, "DESCRIPTION", &group_);
        OneText(root_, "SUPPLIER_NAME", &group_);
    }

    // Children of one kind stand next to each other.
    void CheckOrder(const Element& parent) {
        std::set<std::string> seen;
        std::string last;
        for (const auto& child : parent.children) {
            if (child->name != last && !seen.insert(child->name).second) {
                group_.Wrong("line " + std::to_string(child->line) + ": " + child->name +
                                 " is not next to the others of its kind",
                             "move it there: some applications refuse the file");
            }
            last = child->name;
            CheckOrder(*child);
        }
    }

    void TakeObject(const Element& element) {
        const std::optional<std::uint32_t> id = OneNumber(element, "ID", &group_);
        const std::optional<std::string> name = OneText(element, "SHORT_NAME", &group_);
        OneText(element, "DESCRIPTION", &group_);
        if (name && element.FindChild("SHORT_NAME")->text != *name) {
            group_.Wrong(PlaceOf(element) + ": SHORT_NAME has blanks or line ends around the name",
                         "remove them: some applications compare the text as it is");
        }
        if (id && element.name == "MODULETYPE") description_.module_types.push_back(*id);
        const ObjectType* type = TypeOf(element);
        if (type == nullptr || !id || !name) return;
        description_.objects.push_back({PlaceOf(element), {type->type, *name}, *id, {}});
        elements_.push_back(&element);
    }

    void CheckNames() {
        std::set<ObjectKey> seen;
        for (const DescribedObject& object : description_.objects) {
            if (seen.insert(object.key).second) continue;
            group_.Wrong(object.place + " is there a second time", "keep one");
        }
    }

    // Some applications keep objects by their id, so that the last one of an id replaces the
    // others, and drop a resource that refers to one of those.
    void CheckIds() {
        std::map<std::pair<T_PDU_OBJT, std::uint32_t>, std::size_t> last;
        for (std::size_t i = 0; i < description_.objects.size(); ++i) {
            const DescribedObject& object = description_.objects[i];
            const auto [found, is_new] = last.insert({{object.key.first, object.id}, i});
            if (is_new) continue;
            ReportShared(description_.objects[found->second], *elements_[found->second], object);
            found->second = i;
        }
    }
    void ReportShared(const DescribedObject& replaced, const Element& element,
                      const DescribedObject& by) {
        if (replaced.key == by.key) return;
        const std::string text =
            by.place + " has the same ID " + std::to_string(by.id) + " as " + replaced.key.second;
        if (IsUsedByResource(element)) {
            group_.Wrong(text + ", which a RESOURCE refers to",
                         "put " + replaced.key.second +
                             " after it: some applications keep only "
                             "the last one of an ID, and then drop the resource");
        } else {
            group_.Note(text, "some applications see only the last one of an ID");
        }
    }
    bool IsUsedByResource(const Element& element) const {
        const std::string* label = element.FindAttribute(kLabel);
        if (label == nullptr) return false;
        for (const Element* resource : root_.ChildrenNamed("RESOURCE")) {
            for (const Element* user : resource->ChildrenNamed(element.name)) {
                const std::string* reference = user->FindAttribute(kReference);
                if (reference != nullptr && *reference == *label) return true;
            }
        }
        return false;
    }

    const Element& root_;
    Group group_;
    ModuleDescription description_;
    std::vector<const Element*> elements_;  // of the objects
};

// ---------------------------------------------------------------- references

class References {
public:
    References(const Element& root, Findings* findings)
        : root_(root), group_("references", findings) {}

    // The ComParams by their labels, for their types.
    std::map<std::string, const Element*> Check() {
        for (const auto& child : root_.children) {
            if (TypeOf(*child) != nullptr) TakeLabel(*child);
        }
        for (const auto& child : root_.children)
            CheckUses(*child);
        group_.Held(std::to_string(labels_.size()) + " labels, " + std::to_string(uses_) +
                    " references to them");
        std::erase_if(labels_, [](const auto& row) { return row.second->name != "COMPARAM"; });
        return std::move(labels_);
    }

    // Of the resources with one bus type and one protocol.
    std::vector<LinkNames> Links() const {
        std::vector<LinkNames> links;
        for (const Element* resource : root_.ChildrenNamed("RESOURCE")) {
            const std::string bus = NameOfUsed(*resource, "BUSTYPE");
            const std::string protocol = NameOfUsed(*resource, "PROTOCOL");
            if (!bus.empty() && !protocol.empty()) links.push_back({bus, protocol});
        }
        return links;
    }

private:
    void TakeLabel(const Element& element) {
        const std::string* label = element.FindAttribute(kLabel);
        if (label == nullptr) {
            group_.Wrong(PlaceOf(element) + " has no attribute EID", "add a label");
        } else if (!IsLabel(*label)) {
            group_.Wrong(PlaceOf(element) + ": EID '" + *label + "' is no legal label",
                         "begin with a letter or '_', and go on with letters, digits, '_', '-', "
                         "'.'");
        } else if (!labels_.insert({*label, &element}).second) {
            group_.Wrong(PlaceOf(element) + ": EID '" + *label + "' is there a second time",
                         "make labels unique in the whole file");
        }
    }

    void CheckUses(const Element& element) {
        if (element.name == "BUSTYPE" || element.name == "PROTOCOL") {
            for (const Element* reference : element.ChildrenNamed("COMPARAM_REF"))
                CheckOne(*reference, "COMPARAM", PlaceOf(element));
        } else if (element.name == "RESOURCE") {
            CheckOne(element, "BUSTYPE", PlaceOf(element));
            CheckOne(element, "PROTOCOL", PlaceOf(element));
            for (const Element* pin : element.ChildrenNamed("PIN_ON_MODULE")) {
                OneNumber(*pin, "PIN_ON_MODULE", &group_);
                CheckOne(*pin, "PINTYPE", PlaceOf(element));
            }
        } else if (element.name == "MODULETYPE") {
            CheckEach(element, "IO_CTRL");
            CheckEach(element, "RESOURCE");
        }
    }
    void CheckOne(const Element& parent, const char* kind, const std::string& place) {
        const auto users = parent.ChildrenNamed(kind);
        if (users.size() == 1) return CheckUse(*users.front());
        group_.Wrong(place + ": " + parent.name + " in line " + std::to_string(parent.line) +
                         " has " + std::to_string(users.size()) + " of " + kind,
                     "write one");
    }
    void CheckEach(const Element& parent, const char* kind) {
        for (const Element* user : parent.ChildrenNamed(kind))
            CheckUse(*user);
    }
    void CheckUse(const Element& user) {
        ++uses_;
        const std::string place = "line " + std::to_string(user.line) + ": " + user.name;
        const std::string* reference = user.FindAttribute(kReference);
        if (reference == nullptr) {
            group_.Wrong(place + " has no attribute IDREF", "write the EID of a " + user.name);
            return;
        }
        const auto found = labels_.find(*reference);
        if (found == labels_.end()) {
            group_.Wrong(place + ": IDREF '" + *reference + "' is no EID of the file",
                         "write the EID of a " + user.name);
        } else if (found->second->name != user.name) {
            group_.Wrong(
                place + ": IDREF '" + *reference + "' is the EID of a " + found->second->name,
                "write the EID of a " + user.name);
        }
    }

    std::string NameOfUsed(const Element& resource, const char* kind) const {
        const Element* user = resource.FindChild(kind);
        const std::string* reference = user == nullptr ? nullptr : user->FindAttribute(kReference);
        if (reference == nullptr) return "";
        for (const Element* used : root_.ChildrenNamed(kind)) {
            const std::string* label = used->FindAttribute(kLabel);
            if (label != nullptr && *label == *reference) return used->ChildText("SHORT_NAME");
        }
        return "";
    }

    const Element& root_;
    Group group_;
    std::map<std::string, const Element*> labels_;
    std::size_t uses_ = 0;
};

// ---------------------------------------------------------------- types and values of ComParams

class Values {
public:
    explicit Values(Findings* findings) : group_("values", findings) {}

    ComParamKind CheckComParam(const Element& param) {
        ++count_;
        ComParamKind kind;
        const DataType* type = TypeOfParam(param, &group_);
        if (type != nullptr) {
            kind.type = type->type;
            CheckNumbers(param, *type, PlaceOf(param));
        }
        if (const auto name = OneText(param, "CLASS", &group_)) {
            const ClassName* row = FindName(kClassNames, *name);
            if (row != nullptr) kind.param_class = row->param_class;
            if (row == nullptr) RefuseName(param, "CLASS", *name, "PDU_PC_TIMING");
        }
        const auto layer = OneText(param, "LAYER", &group_);
        if (layer && std::ranges::find(kLayers, *layer) == kLayers.end()) {
            RefuseName(param, "LAYER", *layer, "PDU_PL_APPLICATION");
        }
        return kind;
    }

    // Of a bus type or protocol; `param` is what it refers to.
    void CheckReference(const Element& reference, const Element& param) {
        const std::string name = param.ChildText("DATA_TYPE");
        const DataType* type = FindName(kDataTypes, name);
        if (type == nullptr) return;  // reported for the ComParam itself
        CheckNumbers(reference, *type, PlaceOf(reference) + " of " + param.ChildText("SHORT_NAME"));
    }

    void Finish() {
        group_.Held("types, classes, layers and numbers of " + std::to_string(count_) +
                    " ComParams");
    }

private:
    const DataType* TypeOfParam(const Element& param, Group* group) {
        const auto name = OneText(param, "DATA_TYPE", group);
        if (!name) return nullptr;
        const DataType* type = FindName(kDataTypes, *name);
        if (type == nullptr) RefuseName(param, "DATA_TYPE", *name, "PDU_PT_UNUM32");
        return type;
    }
    void RefuseName(const Element& param, const std::string& what, const std::string& name,
                    const std::string& example) {
        group_.Wrong(PlaceOf(param) + ": " + what + " '" + name + "' is unknown",
                     "write the full name, such as " + example +
                         ": some applications leave the ComParam out");
    }

    void CheckNumbers(const Element& element, const DataType& type, const std::string& place) {
        const auto initial = OneText(element, "DEFAULT_VALUE", &group_);
        const auto least = Limit(element, "MIN_VALUE", place);
        const auto most = Limit(element, "MAX_VALUE", place);
        const bool is_exchanged = least && most && *least > *most;
        if (is_exchanged) {
            group_.Wrong(place + ": MIN_VALUE is larger than MAX_VALUE", "exchange them");
        }
        if (!initial) return;
        if (type.is_field) return CheckField(*initial, type, element, place);
        const auto number = NumberIn(*initial, element, "DEFAULT_VALUE", &group_);
        if (!number) return;
        if (*number < type.least || *number > type.most) {
            group_.Wrong(place + ": DEFAULT_VALUE " + *initial + " does not fit into " + type.name,
                         "write a smaller number, or another DATA_TYPE");
        } else if (!is_exchanged && ((least && *number < *least) || (most && *number > *most))) {
            group_.Note(place + ": DEFAULT_VALUE " + *initial + " is outside of its limits");
        }
    }

    std::optional<std::int64_t> Limit(const Element& element, const char* name,
                                      const std::string& place) {
        const auto limits = element.ChildrenNamed(name);
        if (limits.empty()) return std::nullopt;
        if (limits.size() > 1) {
            group_.Wrong(place + " has " + name + " " + std::to_string(limits.size()) + " times",
                         "keep one");
            return std::nullopt;
        }
        return NumberIn(element.ChildText(name), element, name, &group_);
    }

    // Capacity, count in use, values. The form of a struct field is not known.
    void CheckField(const std::string& text, const DataType& type, const Element& element,
                    const std::string& place) {
        std::vector<std::int64_t> numbers;
        for (const std::string& word : Words(text)) {
            const auto number = NumberIn(word, element, "a value of DEFAULT_VALUE", &group_);
            if (!number) return;
            numbers.push_back(*number);
        }
        if (type.type == PDU_PT_STRUCTFIELD) return;
        const bool has_counts = numbers.size() >= 2 && numbers[0] >= numbers[1] &&
                                numbers[1] == static_cast<std::int64_t>(numbers.size()) - 2;
        if (!has_counts) {
            group_.Wrong(place + ": DEFAULT_VALUE '" + text + "' is no field",
                         "write its capacity, the count in use and as many values, such as 12 1 0");
            return;
        }
        const bool fits = std::all_of(numbers.begin() + 2, numbers.end(), [&type](auto number) {
            return number >= type.least && number <= type.most;
        });
        if (fits) return;
        group_.Wrong(
            place + ": DEFAULT_VALUE '" + text + "' has values that do not fit into " + type.name,
            "write values from 0 to " + std::to_string(type.most));
    }

    Group group_;
    std::size_t count_ = 0;
};

void CheckValues(const Element& root, const std::map<std::string, const Element*>& params,
                 ModuleDescription* description, Findings* findings) {
    Values values(findings);
    std::map<std::string, ComParamKind> kinds;
    for (const Element* param : root.ChildrenNamed("COMPARAM"))
        kinds[PlaceOf(*param)] = values.CheckComParam(*param);
    for (DescribedObject& object : description->objects) {
        const auto found = kinds.find(object.place);
        if (found != kinds.end()) object.kind = found->second;
    }
    for (const char* user : {"BUSTYPE", "PROTOCOL"}) {
        for (const Element* element : root.ChildrenNamed(user)) {
            for (const Element* reference : element->ChildrenNamed("COMPARAM_REF")) {
                const Element* used = reference->FindChild("COMPARAM");
                const std::string* label =
                    used == nullptr ? nullptr : used->FindAttribute(kReference);
                const auto param = label == nullptr ? params.end() : params.find(*label);
                if (param != params.end()) values.CheckReference(*reference, *param->second);
            }
        }
    }
    values.Finish();
}

}  // namespace

std::optional<ModuleDescription> CheckModuleDescription(const std::string& path,
                                                        Findings* findings) {
    std::optional<xml::Document> document;
    {
        Group group("module description", findings);
        document = ReadDescription(path, "MVCI_MODULE_DESCRIPTION", &group);
    }
    if (!document) return std::nullopt;
    ModuleDescription description = Elements(document->root, findings).Check();
    References references(document->root, findings);
    const std::map<std::string, const Element*> params = references.Check();
    description.links = references.Links();
    CheckValues(document->root, params, &description, findings);
    return description;
}

}  // namespace dpdu::check
