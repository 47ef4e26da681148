// Owns an item returned by the library.

#ifndef TOOLS_DPDU_PDU_ITEM_H
#define TOOLS_DPDU_PDU_ITEM_H

#include "pdu/functions.h"

namespace dpdu {

// Receives an item through Receive() and destroys it at the end of the scope.
template <typename Record>
class Item {
public:
    explicit Item(const pdu::Functions& functions) : functions_(functions) {}
    ~Item() {
        if (record_) functions_.DestroyItem(reinterpret_cast<PDU_ITEM*>(record_));
    }
    Item(const Item&) = delete;
    Item& operator=(const Item&) = delete;

    Record** Receive() { return &record_; }
    Record* Get() const { return record_; }
    Record* operator->() const { return record_; }
    explicit operator bool() const { return record_ != nullptr; }

private:
    const pdu::Functions& functions_;
    Record* record_ = nullptr;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_PDU_ITEM_H
