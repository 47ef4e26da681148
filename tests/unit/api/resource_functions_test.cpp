#include <gtest/gtest.h>

#include "dpdu_api.h"
#include "objects/items.h"
#include "support/memory.h"
#include "unit/faults/heap_fault.h"

namespace tarvik::test {
namespace {

PDU_RSC_ID_ITEM untouched_list;

TEST(ResourceIds, ListThatCannotBeAllocatedFailsTheCallAndIsNotWritten) {
    const MemoryUse before = LiveMemory();
    bool refused = true;
    for (std::uint32_t allowed = 0; refused; ++allowed) {
        PDU_RSC_ID_ITEM* list = &untouched_list;
        T_PDU_ERROR status = PDU_STATUS_NOERROR;
        {
            const FailingHeap heap(allowed, 1);
            status = PDUGetResourceIds(0, nullptr, &list);
            refused = heap.Refused();
        }
        EXPECT_EQ(status, refused ? PDU_ERR_FCT_FAILED : PDU_STATUS_NOERROR) << allowed;
        EXPECT_EQ(list == &untouched_list, refused) << allowed;
        if (!refused) FreePduItem(reinterpret_cast<PDU_ITEM*>(list));
        EXPECT_TRUE(LiveMemory() == before) << allowed;
    }
}

TEST(ResourceIds, MissingPointerIsRefused) {
    EXPECT_EQ(PDUGetResourceIds(0, nullptr, nullptr), PDU_ERR_INVALID_PARAMETERS);
}

}  // namespace
}  // namespace tarvik::test
