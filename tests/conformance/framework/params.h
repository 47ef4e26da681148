#pragma once

// ComParams and unique response tables, built like an application builds them.

#include <cstdint>
#include <deque>
#include <initializer_list>
#include <string>
#include <vector>

#include "dpdu_types.h"

namespace conformance {

// The library's id of a ComParam; fails the test if there is none.
UNUM32 ParamId(const std::string& name);

UNUM32 GetNumber(const std::string& name);              // of a UNUM32 ComParam
void SetNumber(const std::string& name, UNUM32 value);  // as above; fails the test on an error
PDU_PARAM_ITEM* GetParam(const std::string& name);      // the library's own item; null on an error
void SetBytes(const std::string& name, std::vector<UNUM8> bytes);

struct NumberValue {
    std::string name;
    UNUM32 value;
};

// A unique response table and everything it points to.
class UniqueTable {
public:
    UniqueTable() = default;
    UniqueTable(const UniqueTable&) = delete;
    UniqueTable& operator=(const UniqueTable&) = delete;

    // Adds an entry with UNUM32 ComParams.
    UniqueTable& Entry(UNUM32 identifier, std::initializer_list<NumberValue> values);
    // Adds the usual entry of a control unit on CAN.
    UniqueTable& ControlUnit(UNUM32 identifier, UNUM32 request_id, UNUM32 response_id);
    // Adds a ComParam of any type to the last entry. The caller keeps `data`.
    UniqueTable& With(const std::string& name, UNUM32 type, void* data);

    PDU_UNIQUE_RESP_ID_TABLE_ITEM* Item();

private:
    struct EntryData {
        UNUM32 identifier;
        std::deque<UNUM32> numbers;
        std::vector<PDU_PARAM_ITEM> params;
    };
    std::deque<EntryData> entries_;
    std::vector<PDU_ECU_UNIQUE_RESP_DATA> records_;
    PDU_UNIQUE_RESP_ID_TABLE_ITEM item_{};
};

// The UNUM32 value of a ComParam in a table; fails the test if the entry does not have it.
UNUM32 TableValue(const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table, UNUM32 entry,
                  const std::string& name);

}  // namespace conformance
