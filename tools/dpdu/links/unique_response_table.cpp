#include "links/unique_response_table.h"

#include "console/failure.h"
#include "dpdu.hpp"
#include "pdu/status_text.h"

namespace dpdu {

void SetUniqueResponseTable(const Session& session, const LinkHandles& link,
                            const std::vector<EcuAddress>& ecus) {
    std::vector<pdu::Unit> units;
    for (const EcuAddress& ecu : ecus)
        units.push_back({ecu.request_id, ecu.response_id});
    try {
        pdu::SetUnits(session.Functions(), link.module, link.link, units);
    } catch (const pdu::Error& error) {
        Check(error.Why().status, error.Why().function);
        throw Failure(error.what());  // an unknown name
    }
}

}  // namespace dpdu
