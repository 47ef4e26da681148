// Reading and setting the ComParams of a link by name.

#ifndef TOOLS_DPDU_PARAMS_COM_PARAMS_H
#define TOOLS_DPDU_PARAMS_COM_PARAMS_H

#include <optional>
#include <string>

#include "params/param_value.h"
#include "pdu/link_handles.h"
#include "pdu/session.h"

namespace dpdu {

struct ComParam {
    UNUM32 id = PDU_ID_UNDEF;
    T_PDU_PC param_class = PDU_PC_COM;
    ParamValue value;
};

// nullopt if the library does not know the name or does not offer it on this link.
std::optional<ComParam> FindComParam(const Session& session, const LinkHandles& link,
                                     const std::string& name);

// As above, but throws Failure for an unknown name.
ComParam GetComParam(const Session& session, const LinkHandles& link, const std::string& name);

// Sets a ComParam to a value given as text. Throws Failure if the name is unknown or the library
// refuses, UsageError if the text does not fit the ComParam's type.
void SetComParam(const Session& session, const LinkHandles& link, const std::string& name,
                 const std::string& text);

// Sets a ComParam that not every library has. True if this library accepted the value.
bool TrySetComParam(const Session& session, const LinkHandles& link, const std::string& name,
                    const std::string& text);

}  // namespace dpdu

#endif  // TOOLS_DPDU_PARAMS_COM_PARAMS_H
