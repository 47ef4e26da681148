#include "conformance/framework/params.h"

#include <gtest/gtest.h>

#include <cstring>

#include "conformance/framework/library.h"

namespace conformance {

UNUM32 ParamId(const std::string& name) {
    std::string text = name;
    UNUM32 id = 0;
    EXPECT_EQ(Pdu().PDUGetObjectId(PDU_OBJT_COMPARAM, text.data(), &id), PDU_STATUS_NOERROR)
        << name;
    return id;
}

PDU_PARAM_ITEM* GetParam(const std::string& name) {
    PDU_PARAM_ITEM* item = nullptr;
    EXPECT_EQ(Pdu().PDUGetComParam(0, 0, ParamId(name), &item), PDU_STATUS_NOERROR) << name;
    return item;
}

UNUM32 GetNumber(const std::string& name) {
    const PDU_PARAM_ITEM* item = GetParam(name);
    UNUM32 value = 0;
    if (item != nullptr) std::memcpy(&value, item->pComParamData, sizeof value);
    return value;
}

void SetNumber(const std::string& name, UNUM32 value) {
    PDU_PARAM_ITEM item = {PDU_IT_PARAM, ParamId(name), PDU_PT_UNUM32, 0, &value};
    EXPECT_EQ(Pdu().PDUSetComParam(0, 0, &item), PDU_STATUS_NOERROR) << name;
}

void SetBytes(const std::string& name, std::vector<UNUM8> bytes) {
    const auto length = static_cast<UNUM32>(bytes.size());
    PDU_PARAM_BYTEFIELD_DATA field = {length, length, bytes.data()};
    PDU_PARAM_ITEM item = {PDU_IT_PARAM, ParamId(name), PDU_PT_BYTEFIELD, 0, &field};
    EXPECT_EQ(Pdu().PDUSetComParam(0, 0, &item), PDU_STATUS_NOERROR) << name;
}

UniqueTable& UniqueTable::Entry(UNUM32 identifier, std::initializer_list<NumberValue> values) {
    EntryData& entry = entries_.emplace_back();
    entry.identifier = identifier;
    for (const NumberValue& value : values) {
        UNUM32& number = entry.numbers.emplace_back(value.value);
        With(value.name, PDU_PT_UNUM32, &number);
    }
    return *this;
}

UniqueTable& UniqueTable::ControlUnit(UNUM32 identifier, UNUM32 request_id, UNUM32 response_id) {
    return Entry(identifier, {{"CP_CanPhysReqId", request_id}, {"CP_CanRespUSDTId", response_id}});
}

UniqueTable& UniqueTable::With(const std::string& name, UNUM32 type, void* data) {
    entries_.back().params.push_back({PDU_IT_PARAM, ParamId(name), type, PDU_PC_UNIQUE_ID, data});
    return *this;
}

PDU_UNIQUE_RESP_ID_TABLE_ITEM* UniqueTable::Item() {
    records_.clear();
    for (EntryData& entry : entries_) {
        records_.push_back(
            {entry.identifier, static_cast<UNUM32>(entry.params.size()), entry.params.data()});
    }
    item_ = {PDU_IT_UNIQUE_RESP_ID_TABLE, static_cast<UNUM32>(records_.size()), records_.data()};
    return &item_;
}

UNUM32 TableValue(const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table, UNUM32 entry,
                  const std::string& name) {
    const UNUM32 id = ParamId(name);
    if (entry >= table.NumEntries) {
        ADD_FAILURE() << "no entry " << entry;
        return 0;
    }
    const PDU_ECU_UNIQUE_RESP_DATA& data = table.pUniqueData[entry];
    for (UNUM32 i = 0; i < data.NumParamItems; ++i) {
        if (data.pParams[i].ComParamId != id) continue;
        UNUM32 value = 0;
        std::memcpy(&value, data.pParams[i].pComParamData, sizeof value);
        return value;
    }
    ADD_FAILURE() << "entry " << entry << " has no " << name;
    return 0;
}

}  // namespace conformance
