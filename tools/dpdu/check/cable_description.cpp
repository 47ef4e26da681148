#include "check/cable_description.h"

#include <set>

#include "check/description_file.h"

namespace dpdu::check {
namespace {

// The id, if it has one.
std::optional<std::uint32_t> CheckCable(const xml::Element& cable, Group* group) {
    OneText(cable, "DESCRIPTION", group);
    const auto identifications = cable.ChildrenNamed("CABLE_IDENTIFICATION");
    if (identifications.size() == 1) return OneNumber(*identifications.front(), "CABLE_ID", group);
    group->Wrong(PlaceOf(cable) + " has CABLE_IDENTIFICATION " +
                     std::to_string(identifications.size()) + " times",
                 "write one, with the CABLE_ID");
    return std::nullopt;
}

}  // namespace

void CheckCableDescription(const std::string& path, Findings* findings) {
    Group group("cable description", findings);
    const std::optional<xml::Document> document =
        ReadDescription(path, "MVCI_CABLE_DESCRIPTION", &group);
    if (!document) return;
    const auto cables = document->root.ChildrenNamed("CABLE");
    if (cables.empty()) group.Note("it describes no cable");
    std::set<std::uint32_t> ids;
    for (const xml::Element* cable : cables) {
        const std::optional<std::uint32_t> id = CheckCable(*cable, &group);
        if (!id || ids.insert(*id).second) continue;
        group.Wrong(
            PlaceOf(*cable) + ": CABLE_ID " + std::to_string(*id) + " is there a second time",
            "give each cable an id of its own");
    }
    group.Held(std::to_string(cables.size()) + (cables.size() == 1 ? " cable" : " cables"));
}

}  // namespace dpdu::check
