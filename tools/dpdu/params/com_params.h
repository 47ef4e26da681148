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

// Nothing when the library does not know the name or does not offer it on this link.
std::optional<ComParam> FindComParam(const Session& session, const LinkHandles& link,
                                     const std::string& name);

// The same, but an unknown name throws Failure.
ComParam GetComParam(const Session& session, const LinkHandles& link, const std::string& name);

// Sets a ComParam from the text of its value. Throws Failure for an unknown name or when the
// library refuses, UsageError when the text does not fit the ComParam's type.
void SetComParam(const Session& session, const LinkHandles& link, const std::string& name,
                 const std::string& text);

// Sets a ComParam that not every library has; says whether this one took the value.
bool TrySetComParam(const Session& session, const LinkHandles& link, const std::string& name,
                    const std::string& text);

}  // namespace dpdu

#endif  // TOOLS_DPDU_PARAMS_COM_PARAMS_H
