// The value of a ComParam, copied from the library's records, and its text form.
//
//   numbers         1000 or 0x3E8 (signed types also -5)
//   byte fields     3E80
//   long fields     500000,250000
//   struct fields   one group per record, its fields in order: 1:0:50:1:244,2:0:50:1:244

#ifndef TOOLS_DPDU_PARAMS_PARAM_VALUE_H
#define TOOLS_DPDU_PARAMS_PARAM_VALUE_H

#include <array>
#include <string>
#include <vector>

#include "console/output.h"
#include "dpdu_types.h"
#include "text/hex.h"

namespace dpdu {

// A record of a struct field; all known types have this size.
using ParamRecord = std::array<UNUM8, 6>;

struct ParamValue {
    T_PDU_PT type = PDU_PT_UNUM32;
    UNUM32 number = 0;          // number types; negative values as two's complement
    Bytes bytes;                // byte field
    std::vector<UNUM32> words;  // long field
    T_PDU_CPST struct_type = PDU_CPST_SESSION_TIMING;
    std::vector<ParamRecord> records;  // struct field: the records' bytes
};

// Copies the value from an item.
ParamValue ReadParamValue(const PDU_PARAM_ITEM& item);

std::string ParamText(const ParamValue& value);
Json ParamJson(const ParamValue& value);

// Parses a value of the same type as `like`. Throws UsageError with the expected form.
ParamValue ParseParamValue(const std::string& text, const ParamValue& like);

// "PDU_PT_UNUM32", "PDU_PC_TIMING"; a number if unknown.
std::string ParamTypeText(T_PDU_PT type);
std::string ParamClassText(T_PDU_PC param_class);

// An item with the value; its records live as long as this object.
class ParamItemBuilder {
public:
    ParamItemBuilder(const PDU_PARAM_ITEM& like, ParamValue value);
    ParamItemBuilder(const ParamItemBuilder&) = delete;
    ParamItemBuilder& operator=(const ParamItemBuilder&) = delete;

    PDU_PARAM_ITEM* Get() { return &item_; }

private:
    void* DataRecord();

    ParamValue value_;
    PDU_PARAM_BYTEFIELD_DATA byte_field_{};
    PDU_PARAM_LONGFIELD_DATA long_field_{};
    PDU_PARAM_STRUCTFIELD_DATA struct_field_{};
    PDU_PARAM_ITEM item_{};
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_PARAMS_PARAM_VALUE_H
