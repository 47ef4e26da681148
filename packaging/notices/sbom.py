#!/usr/bin/env python3
"""sbom.py linux|windows SOURCES VERSION DATE FILE: writes the software bill of materials, in SPDX 2.3.

DATE is in seconds since 1970. The same components, version and date give the same bytes.
"""
import hashlib, json, re, sys
from datetime import datetime, timezone
from pathlib import Path
from urllib.parse import quote

from components import SOURCE, architecture, of, version

SYSTEM, SOURCES, VERSION, DATE, TARGET = \
    sys.argv[1], Path(sys.argv[2]), sys.argv[3], int(sys.argv[4]), Path(sys.argv[5])
OURS = "SPDXRef-tarvik-dpdu"
RELATIONSHIPS = {"linked": "STATIC_LINK", "headers": "CONTAINS", "shared": "DYNAMIC_LINK"}


def purl(component, exact):
    """With the version of what is inside; of what is loaded, the user's system decides."""
    at = "@" + quote(exact, safe="") if exact else ""
    return f"pkg:deb/debian/{quote(component.package, safe='')}{at}" \
           f"?arch={architecture(component)}&distro=bookworm"


def package(component):
    is_inside = component.way in ("linked", "headers")
    exact = version(component, SOURCES) if is_inside else ""
    entry = {
        "SPDXID": identifier(component),
        "name": component.name,
        "downloadLocation": f"https://packages.debian.org/bookworm/{quote(component.package)}"
                            if component.origin != SOURCE else
                            f"https://packages.debian.org/source/bookworm/{quote(component.package)}",
        "filesAnalyzed": False,
        "supplier": "Organization: Debian",
        "licenseConcluded": "NOASSERTION",
        "licenseDeclared": component.licence,
        "copyrightText": "NOASSERTION",
        "comment": "; ".join(filter(None, [f"used by: {component.users}", component.remark])),
        "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                          "referenceLocator": purl(component, exact)}],
    }
    if exact:
        entry["versionInfo"] = exact
    return entry


def identifier(component):
    return "SPDXRef-" + re.sub("[^A-Za-z0-9.]+", "-", component.package).strip("-")


def relationship(component):
    if component.way == "optional":
        return {"spdxElementId": identifier(component), "relationshipType": "OPTIONAL_DEPENDENCY_OF",
                "relatedSpdxElement": OURS}
    return {"spdxElementId": OURS, "relationshipType": RELATIONSHIPS[component.way],
            "relatedSpdxElement": identifier(component)}


components = of(SYSTEM)
ours = {
    "SPDXID": OURS,
    "name": "tarvik-dpdu",
    "versionInfo": VERSION,
    "downloadLocation": "NOASSERTION",
    "filesAnalyzed": False,
    "supplier": "Organization: Tarvik",
    "licenseConcluded": "NOASSERTION",
    "licenseDeclared": "NOASSERTION",
    "copyrightText": "NOASSERTION",
    "primaryPackagePurpose": "LIBRARY",
}
document = {
    "spdxVersion": "SPDX-2.3",
    "dataLicense": "CC0-1.0",
    "SPDXID": "SPDXRef-DOCUMENT",
    "name": f"tarvik-dpdu-{VERSION}-{SYSTEM}",
    "creationInfo": {
        "created": datetime.fromtimestamp(DATE, timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ"),
        "creators": ["Organization: Tarvik", "Tool: tarvik-dpdu-sbom"],
    },
    "packages": [ours] + [package(component) for component in components],
    "relationships": [{"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES",
                       "relatedSpdxElement": OURS}] +
                     [relationship(component) for component in components],
}
# Unique for this content, as the standard asks, and the same for the same content.
digest = hashlib.sha256(json.dumps(document, sort_keys=True).encode()).hexdigest()
document["documentNamespace"] = f"urn:tarvik:spdx:{document['name']}-{digest}"
TARGET.parent.mkdir(parents=True, exist_ok=True)
TARGET.write_text(json.dumps(document, indent=2) + "\n", "utf-8")
