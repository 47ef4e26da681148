// The names that this program knows of protocols, bus types, IOCTLs, ComParams, pin types and
// resources. The D-PDU API can look up a name but cannot list the known ones.

#ifndef TOOLS_DPDU_PARAMS_KNOWN_OBJECTS_H
#define TOOLS_DPDU_PARAMS_KNOWN_OBJECTS_H

#include <span>
#include <string>
#include <vector>

#include "dpdu_types.h"

namespace dpdu {

// An object type of PDUGetObjectId.
struct ObjectType {
    const char* name;     // on the command line
    const char* element;  // in module description files
    T_PDU_OBJT type;
};
std::span<const ObjectType> ObjectTypes();

// Short names from the standard that libraries may know, and this project's own.
std::vector<std::string> KnownNames(T_PDU_OBJT type);

}  // namespace dpdu

#endif  // TOOLS_DPDU_PARAMS_KNOWN_OBJECTS_H
