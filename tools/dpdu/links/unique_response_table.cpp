#include "links/unique_response_table.h"

#include <array>
#include <deque>

#include "pdu/status_text.h"

namespace dpdu {
namespace {

constexpr UNUM32 kFlowControl = 0x1;
constexpr UNUM32 k29Bits = 0x2;
constexpr UNUM32 kSegmented = 0x4;

struct NamedValue {
    const char* name;
    UNUM32 value;
};

std::array<NamedValue, 4> AddressValues(const EcuAddress& ecu) {
    return {{{"CP_CanPhysReqId", ecu.request_id},
             {"CP_CanPhysReqFormat", CanFormat(ecu.request_id)},
             {"CP_CanRespUSDTId", ecu.response_id},
             {"CP_CanRespUSDTFormat", CanFormat(ecu.response_id)}}};
}

// A table whose entries are copies of the link's first entry with other addresses. The copied
// values remain in the library's item.
class TableBuilder {
public:
    TableBuilder(const Session& session, const PDU_UNIQUE_RESP_ID_TABLE_ITEM* own_table)
        : session_(session) {
        if (!own_table || own_table->NumEntries == 0 || !own_table->pUniqueData) return;
        const PDU_ECU_UNIQUE_RESP_DATA& first = own_table->pUniqueData[0];
        if (first.pParams) template_.assign(first.pParams, first.pParams + first.NumParamItems);
    }

    void Add(const EcuAddress& ecu) {
        std::vector<PDU_PARAM_ITEM>& params = params_.emplace_back(template_);
        for (const NamedValue& address : AddressValues(ecu))
            Put(address, &params);
        entries_.push_back({static_cast<UNUM32>(entries_.size()),
                            static_cast<UNUM32>(params.size()), params.data()});
    }

    PDU_UNIQUE_RESP_ID_TABLE_ITEM Table() {
        return {PDU_IT_UNIQUE_RESP_ID_TABLE, static_cast<UNUM32>(entries_.size()), entries_.data()};
    }

private:
    void Put(const NamedValue& address, std::vector<PDU_PARAM_ITEM>* params) {
        const UNUM32 id = session_.RequireObject(PDU_OBJT_COMPARAM, address.name);
        void* value = &values_.emplace_back(address.value);
        for (PDU_PARAM_ITEM& param : *params) {
            if (param.ComParamId != id) continue;
            param.pComParamData = value;  // narrower types read the low bytes
            return;
        }
        params->push_back({PDU_IT_PARAM, id, PDU_PT_UNUM32, PDU_PC_UNIQUE_ID, value});
    }

    const Session& session_;
    std::vector<PDU_PARAM_ITEM> template_;
    std::deque<UNUM32> values_;  // a deque does not move its elements
    std::deque<std::vector<PDU_PARAM_ITEM>> params_;
    std::vector<PDU_ECU_UNIQUE_RESP_DATA> entries_;
};

}  // namespace

UNUM32 CanFormat(UNUM32 can_id) {
    return kSegmented | kFlowControl | (can_id > kLargest11BitId ? k29Bits : 0);
}

void SetUniqueResponseTable(const Session& session, const LinkHandles& link,
                            const std::vector<EcuAddress>& ecus) {
    pdu::Item<PDU_UNIQUE_RESP_ID_TABLE_ITEM> own_table(session.Functions());
    Check(session.Functions().GetUniqueRespIdTable(link.module, link.link, own_table.Out()),
          "PDUGetUniqueRespIdTable");
    TableBuilder builder(session, own_table.Get());
    for (const EcuAddress& ecu : ecus)
        builder.Add(ecu);
    PDU_UNIQUE_RESP_ID_TABLE_ITEM table = builder.Table();
    Check(session.Functions().SetUniqueRespIdTable(link.module, link.link, &table),
          "PDUSetUniqueRespIdTable");
}

}  // namespace dpdu
