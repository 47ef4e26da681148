#include "description_files.h"
#include "versions.h"
#include "xml_writer.h"

namespace tarvik::descriptions {

std::string CableDescription() {
    XmlWriter xml("MVCI_CABLE_DESCRIPTION", {{"FILE_VERSION", ProductVersion()},
                                             {"MVCI_PART2_STANDARD_VERSION", StandardVersion()}});
    xml.Line("DESCRIPTION", "Cable description for the Brennix dongle");
    xml.Line("SUPPLIER_NAME", "Tarvik");
    xml.Open("CABLE");
    xml.Line("SHORT_NAME", "Brennix_OBD");
    xml.Line("DESCRIPTION", "Plugs into the OBD connector, without a cable");
    xml.Open("CABLE_IDENTIFICATION");
    xml.Line("CABLE_ID", "1");
    xml.Close();
    xml.Close();
    return std::move(xml).Text();
}

}  // namespace tarvik::descriptions
