#pragma once

// ComParam items and response tables as an application makes them: every buffer is a block of its
// own, exactly as large as the lengths say, so that a byte read beyond it is seen.

#include <cstring>
#include <deque>
#include <vector>

#include "comparam/comparam_table.h"
#include "dpdu_types.h"
#include "fuzz/fuzz_input.h"

namespace tarvik::fuzz {

class MadeParams {
public:
    explicit MadeParams(Input& input) : input_(input) {}
    MadeParams(const MadeParams&) = delete;
    MadeParams& operator=(const MadeParams&) = delete;

    // Of the ComParam's own type, as PDUSetComParam reads it, whatever type the item names.
    PDU_PARAM_ITEM ForComParam() {
        const std::uint32_t id = input_.Below(kComParamCount + 2);
        const bool known = id >= 1 && id <= kComParamCount;
        const std::uint32_t type = known ? DescribeComParam(id).data_type : PDU_PT_UNUM32;
        PDU_PARAM_ITEM item = Item(id, type);
        if (input_.Below(8) == 0) item.ComParamDataType = input_.OneOf(kTypes);
        return item;
    }
    // Of the type that the item names, as response tables are read.
    PDU_PARAM_ITEM ForTable() {
        static constexpr std::uint32_t kIds[] = {kCpCanPhysReqId, kCpCanRespUSDTId};
        const std::uint32_t id =
            input_.Flag() ? input_.OneOf(kIds) : input_.Below(kComParamCount + 2);
        return Item(id, input_.Flag() ? PDU_PT_UNUM32 : input_.OneOf(kTypes));
    }
    PDU_UNIQUE_RESP_ID_TABLE_ITEM Table() {
        std::vector<PDU_ECU_UNIQUE_RESP_DATA>& entries = entries_.emplace_back();
        for (std::uint32_t left = input_.Below(5); left > 0; --left) {
            std::vector<PDU_PARAM_ITEM>& items = items_.emplace_back();
            for (std::uint32_t params = input_.Below(4); params > 0; --params)
                items.push_back(ForTable());
            entries.push_back({input_.U32(), static_cast<UNUM32>(items.size()), items.data()});
        }
        return {PDU_IT_UNIQUE_RESP_ID_TABLE, static_cast<UNUM32>(entries.size()), entries.data()};
    }

private:
    static constexpr std::uint32_t kTypes[] = {
        PDU_PT_UNUM8,  PDU_PT_SNUM8,     PDU_PT_UNUM16,      PDU_PT_SNUM16,    PDU_PT_UNUM32,
        PDU_PT_SNUM32, PDU_PT_BYTEFIELD, PDU_PT_STRUCTFIELD, PDU_PT_LONGFIELD, 0};

    PDU_PARAM_ITEM Item(std::uint32_t id, std::uint32_t type) {
        return {PDU_IT_PARAM, id, type, input_.Below(8), Value(type)};
    }
    void* Block(Bytes bytes) { return blocks_.emplace_back(std::move(bytes)).data(); }
    template <typename Record>
    void* RecordBlock(const Record& record) {
        Bytes bytes(sizeof record);
        std::memcpy(bytes.data(), &record, sizeof record);
        return Block(std::move(bytes));
    }
    // In use, and room: as a rule the one fits into the other.
    struct Lengths {
        UNUM32 room, used;
    };
    Lengths ChooseLengths() {
        const UNUM32 used = input_.Below(40);
        return {used + input_.Below(3), used};
    }
    void* Value(std::uint32_t type) {
        switch (type) {
            case PDU_PT_UNUM8:
            case PDU_PT_SNUM8:
                return Block(input_.Take(1));
            case PDU_PT_UNUM16:
            case PDU_PT_SNUM16:
                return Block(input_.Take(2));
            case PDU_PT_BYTEFIELD: {
                const Lengths at = ChooseLengths();
                auto* bytes = static_cast<UNUM8*>(Block(input_.Take(at.room)));
                return RecordBlock(PDU_PARAM_BYTEFIELD_DATA{at.room, at.used, bytes});
            }
            case PDU_PT_LONGFIELD: {
                const Lengths at = ChooseLengths();
                auto* words = static_cast<UNUM32*>(Block(input_.Take(std::size_t{4} * at.room)));
                return RecordBlock(PDU_PARAM_LONGFIELD_DATA{at.room, at.used, words});
            }
            case PDU_PT_STRUCTFIELD: {
                const Lengths at = ChooseLengths();
                void* records = Block(input_.Take(std::size_t{6} * at.room));
                return RecordBlock(
                    PDU_PARAM_STRUCTFIELD_DATA{input_.Below(4), at.room, at.used, records});
            }
            default:
                return Block(input_.Take(4));
        }
    }

    Input& input_;
    std::deque<Bytes> blocks_;
    std::deque<std::vector<PDU_PARAM_ITEM>> items_;
    std::deque<std::vector<PDU_ECU_UNIQUE_RESP_DATA>> entries_;
};

}  // namespace tarvik::fuzz
