#include "params/param_value.h"

#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "console/failure.h"
#include "text/split.h"

namespace dpdu {
namespace {

struct NumberType {
    T_PDU_PT type;
    const char* name;
    unsigned size;  // bytes
    bool is_signed;
};

constexpr NumberType kNumberTypes[] = {
    {PDU_PT_UNUM8, "PDU_PT_UNUM8", 1, false},   {PDU_PT_SNUM8, "PDU_PT_SNUM8", 1, true},
    {PDU_PT_UNUM16, "PDU_PT_UNUM16", 2, false}, {PDU_PT_SNUM16, "PDU_PT_SNUM16", 2, true},
    {PDU_PT_UNUM32, "PDU_PT_UNUM32", 4, false}, {PDU_PT_SNUM32, "PDU_PT_SNUM32", 4, true},
};

constexpr const char* kClassNames[] = {"PDU_PC_TIMING",        "PDU_PC_INIT",    "PDU_PC_COM",
                                       "PDU_PC_ERRHDL",        "PDU_PC_BUSTYPE", "PDU_PC_UNIQUE_ID",
                                       "PDU_PC_TESTER_PRESENT"};

const NumberType* FindNumberType(T_PDU_PT type) {
    for (const NumberType& row : kNumberTypes) {
        if (row.type == type) return &row;
    }
    return nullptr;
}

// Extends the sign of a narrow type to 32 bits.
UNUM32 SignExtended(UNUM32 value, unsigned size) {
    const unsigned unused = 32 - 8 * size;
    return static_cast<UNUM32>(static_cast<SNUM32>(value << unused) >> unused);
}

UNUM32 ReadNumber(const NumberType& type, const void* data) {
    UNUM32 value = 0;
    std::memcpy(&value, data, type.size);  // little-endian, like every x86-64 system
    return type.is_signed ? SignExtended(value, type.size) : value;
}

// The fields of a record as numbers, in order.
std::vector<UNUM32> RecordFields(T_PDU_CPST type, const ParamRecord& record) {
    if (type != PDU_CPST_SESSION_TIMING) return {record.begin(), record.end()};
    const UNUM32 session = record[0] | static_cast<UNUM32>(record[1]) << 8;
    return {session, record[2], record[3], record[4], record[5]};
}

ParamRecord RecordFromFields(T_PDU_CPST type, const std::vector<UNUM32>& fields) {
    ParamRecord record{};
    std::size_t at = 0;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        record[at++] = static_cast<UNUM8>(fields[i]);
        if (i == 0 && type == PDU_CPST_SESSION_TIMING) {
            record[at++] = static_cast<UNUM8>(fields[i] >> 8);
        }
    }
    return record;
}

bool HasKnownRecords(const ParamValue& value) {
    return value.struct_type == PDU_CPST_SESSION_TIMING ||
           value.struct_type == PDU_CPST_ACCESS_TIMING;
}

template <typename Numbers>
std::string Joined(const Numbers& numbers, const char* separator) {
    std::string text;
    for (const UNUM32 number : numbers) {
        text += (text.empty() ? "" : separator) + std::to_string(number);
    }
    return text;
}

[[noreturn]] void Refuse(const std::string& text, const std::string& expected) {
    throw UsageError("'" + text + "' is not a value of this ComParam, which takes " + expected);
}

UNUM32 ParseWithin(const std::string& text, UNUM32 maximum, const std::string& whole,
                   const std::string& expected) {
    const std::optional<UNUM32> number = ParseNumber(text);
    if (!number || *number > maximum) Refuse(whole, expected);
    return *number;
}

UNUM32 ParseTypedNumber(const std::string& text, const NumberType& type) {
    const unsigned bits = 8 * type.size;
    const std::string expected = std::string(type.is_signed ? "a signed" : "an unsigned") +
                                 " number of " + std::to_string(bits) + " bits";
    const UNUM32 maximum = std::numeric_limits<UNUM32>::max() >> (32 - bits);
    if (!type.is_signed) return ParseWithin(text, maximum, text, expected);

    const bool is_negative = !text.empty() && text[0] == '-';
    const UNUM32 largest = (maximum >> 1) + (is_negative ? 1 : 0);
    const UNUM32 size = ParseWithin(is_negative ? text.substr(1) : text, largest, text, expected);
    return is_negative ? 0U - size : size;
}

std::vector<UNUM32> ParseWords(const std::string& text) {
    std::vector<UNUM32> words;
    if (text.empty()) return words;
    for (const std::string& part : Split(text, ',')) {
        words.push_back(ParseWithin(part, std::numeric_limits<UNUM32>::max(), text,
                                    "numbers separated by commas"));
    }
    return words;
}

std::vector<ParamRecord> ParseRecords(const std::string& text, T_PDU_CPST type) {
    const bool is_session = type == PDU_CPST_SESSION_TIMING;
    const std::string expected =
        is_session ? "groups SESSION:P2MAX_HIGH:P2MAX_LOW:P2STAR_HIGH:P2STAR_LOW, comma between"
                   : "groups P2MIN:P2MAX:P3MIN:P3MAX:P4MIN:TIMINGSET, comma between";
    std::vector<ParamRecord> records;
    if (text.empty()) return records;
    for (const std::string& group : Split(text, ',')) {
        const std::vector<std::string> parts = Split(group, ':');
        if (parts.size() != (is_session ? 5U : 6U)) Refuse(text, expected);
        std::vector<UNUM32> fields;
        for (const std::string& part : parts) {
            const bool is_session_number = is_session && fields.empty();
            fields.push_back(ParseWithin(part, is_session_number ? 0xFFFF : 0xFF, text, expected));
        }
        records.push_back(RecordFromFields(type, fields));
    }
    return records;
}

void ReadStructField(const PDU_PARAM_STRUCTFIELD_DATA& field, ParamValue* value) {
    value->struct_type = field.ComParamStructType;
    if (!HasKnownRecords(*value) || !field.pStructArray) return;
    value->records.resize(field.ParamActEntries);
    for (std::size_t i = 0; i < value->records.size(); ++i) {
        ParamRecord& record = value->records[i];
        std::memcpy(record.data(),
                    static_cast<const UNUM8*>(field.pStructArray) + i * record.size(),
                    record.size());
    }
}

}  // namespace

ParamValue ReadParamValue(const PDU_PARAM_ITEM& item) {
    ParamValue value;
    value.type = item.ComParamDataType;
    if (!item.pComParamData) return value;
    if (const NumberType* number = FindNumberType(item.ComParamDataType)) {
        value.number = ReadNumber(*number, item.pComParamData);
    } else if (item.ComParamDataType == PDU_PT_BYTEFIELD) {
        const auto* field = static_cast<const PDU_PARAM_BYTEFIELD_DATA*>(item.pComParamData);
        if (field->pDataArray) {
            value.bytes.assign(field->pDataArray, field->pDataArray + field->ParamActLen);
        }
    } else if (item.ComParamDataType == PDU_PT_LONGFIELD) {
        const auto* field = static_cast<const PDU_PARAM_LONGFIELD_DATA*>(item.pComParamData);
        if (field->pDataArray) {
            value.words.assign(field->pDataArray, field->pDataArray + field->ParamActLen);
        }
    } else if (item.ComParamDataType == PDU_PT_STRUCTFIELD) {
        ReadStructField(*static_cast<const PDU_PARAM_STRUCTFIELD_DATA*>(item.pComParamData),
                        &value);
    }
    return value;
}

std::string ParamText(const ParamValue& value) {
    if (const NumberType* number = FindNumberType(value.type)) {
        return number->is_signed ? std::to_string(static_cast<SNUM32>(value.number))
                                 : std::to_string(value.number);
    }
    if (value.type == PDU_PT_BYTEFIELD) return HexText(value.bytes);
    if (value.type == PDU_PT_LONGFIELD) return Joined(value.words, ",");
    std::string text;
    for (const auto& record : value.records) {
        text += (text.empty() ? "" : ",") + Joined(RecordFields(value.struct_type, record), ":");
    }
    return text;
}

Json ParamJson(const ParamValue& value) {
    if (const NumberType* number = FindNumberType(value.type)) {
        return number->is_signed ? Json(static_cast<SNUM32>(value.number)) : Json(value.number);
    }
    if (value.type == PDU_PT_BYTEFIELD) return HexText(value.bytes);
    if (value.type == PDU_PT_LONGFIELD) return value.words;
    Json records = Json::array();
    for (const auto& record : value.records) {
        records.push_back(RecordFields(value.struct_type, record));
    }
    return records;
}

ParamValue ParseParamValue(const std::string& text, const ParamValue& like) {
    ParamValue value;
    value.type = like.type;
    value.struct_type = like.struct_type;
    if (const NumberType* number = FindNumberType(like.type)) {
        value.number = ParseTypedNumber(text, *number);
    } else if (like.type == PDU_PT_BYTEFIELD) {
        const std::optional<Bytes> bytes = ParseHex(text);
        if (!bytes) Refuse(text, "bytes as hexadecimal digits");
        value.bytes = *bytes;
    } else if (like.type == PDU_PT_LONGFIELD) {
        value.words = ParseWords(text);
    } else if (like.type == PDU_PT_STRUCTFIELD && HasKnownRecords(like)) {
        value.records = ParseRecords(text, like.struct_type);
    } else {
        Refuse(text, "a type that this program does not know");
    }
    return value;
}

std::string ParamTypeText(T_PDU_PT type) {
    if (const NumberType* number = FindNumberType(type)) return number->name;
    if (type == PDU_PT_BYTEFIELD) return "PDU_PT_BYTEFIELD";
    if (type == PDU_PT_STRUCTFIELD) return "PDU_PT_STRUCTFIELD";
    if (type == PDU_PT_LONGFIELD) return "PDU_PT_LONGFIELD";
    return "0x" + HexNumber(type, 3);
}

std::string ParamClassText(T_PDU_PC param_class) {
    const bool is_known = param_class >= 1 && param_class <= std::size(kClassNames);
    return is_known ? kClassNames[param_class - 1] : std::to_string(param_class);
}

ParamItemBuilder::ParamItemBuilder(const PDU_PARAM_ITEM& like, ParamValue value)
    : value_(std::move(value)) {
    item_ = {PDU_IT_PARAM, like.ComParamId, value_.type, like.ComParamClass, DataRecord()};
}

void* ParamItemBuilder::DataRecord() {
    if (value_.type == PDU_PT_BYTEFIELD) {
        const auto count = static_cast<UNUM32>(value_.bytes.size());
        byte_field_ = {count, count, value_.bytes.data()};
        return &byte_field_;
    }
    if (value_.type == PDU_PT_LONGFIELD) {
        const auto count = static_cast<UNUM32>(value_.words.size());
        long_field_ = {count, count, value_.words.data()};
        return &long_field_;
    }
    if (value_.type == PDU_PT_STRUCTFIELD) {
        const auto count = static_cast<UNUM32>(value_.records.size());
        struct_field_ = {value_.struct_type, count, count, value_.records.data()};
        return &struct_field_;
    }
    return &value_.number;
}

}  // namespace dpdu
