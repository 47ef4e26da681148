#pragma once

#include <cstdint>

#include "dpdu_types.h"
#include "support/counted.h"

namespace tarvik {

// A link's unique response table: immutable once made and shared by reference, so that the worker
// uses it for a request without a copy while the application installs another.
class UniqueRespTable : public Counted {
public:
    // Takes the item over. Empty: item null, or memory is out (the item is released then).
    static Ref<UniqueRespTable> Adopt(PDU_UNIQUE_RESP_ID_TABLE_ITEM* item);
    explicit UniqueRespTable(PDU_UNIQUE_RESP_ID_TABLE_ITEM* item) : item_(item) {}  // for Adopt
    ~UniqueRespTable();

    const PDU_UNIQUE_RESP_ID_TABLE_ITEM& Item() const { return *item_; }

private:
    PDU_UNIQUE_RESP_ID_TABLE_ITEM* item_;
};

// One entry, PDU_ID_UNDEF, with a snapshot of every ComParam of class PDU_PC_UNIQUE_ID.
// Null: memory is out.
PDU_UNIQUE_RESP_ID_TABLE_ITEM* CreatePduUniqueResponseTable();
// A deep copy for PDUDestroyItem / FreePduItem; null for null, or when memory is out.
PDU_UNIQUE_RESP_ID_TABLE_ITEM* DuplicatePduUniqueResponseTable(
    const PDU_UNIQUE_RESP_ID_TABLE_ITEM* table);
// While it lives, its owner uses a table that it does not copy: it logs what copying and releasing
// the copy would log.
class LoggedTableCopy {
public:
    explicit LoggedTableCopy(const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table);
    ~LoggedTableCopy();
    LoggedTableCopy(const LoggedTableCopy&) = delete;
    LoggedTableCopy& operator=(const LoggedTableCopy&) = delete;

private:
    const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table_;
};
// Writes the application's table to the log, line by line.
void DumpRespIdTable(const PDU_UNIQUE_RESP_ID_TABLE_ITEM* table);

// Replaces `*value` with the entry's own number for this ComParam, if the entry has that item.
void OverrideFromEntry(const PDU_ECU_UNIQUE_RESP_DATA& entry, std::uint32_t comparam_id,
                       std::uint32_t* value);

}  // namespace tarvik
