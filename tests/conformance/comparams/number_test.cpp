#include <cstring>
#include <string>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/params.h"

using namespace conformance;

namespace {

using ComParams = ConstructedLibrary;

constexpr UNUM32 kCount = 228;

PDU_PARAM_ITEM* Get(UNUM32 id, UNUM32 hMod = 0, UNUM32 hCLL = 0) {
    PDU_PARAM_ITEM* item = nullptr;
    EXPECT_EQ(Pdu().PDUGetComParam(hMod, hCLL, id, &item), PDU_STATUS_NOERROR) << id;
    return item;
}

bool IsField(const PDU_PARAM_ITEM& item) { return item.ComParamDataType > PDU_PT_SNUM32; }

T_PDU_ERROR Set(PDU_PARAM_ITEM* item) { return Pdu().PDUSetComParam(0, 0, item); }

}  // namespace

TEST_F(ComParams, ItemsCarryTheirTypeAndTheRequestedId) {
    for (UNUM32 id = 1; id <= kCount; ++id) {
        const PDU_PARAM_ITEM* item = Get(id);
        ASSERT_NE(item, nullptr);
        EXPECT_EQ(item->ItemType, PDU_IT_PARAM);
        EXPECT_EQ(item->ComParamId, id);
        EXPECT_GE(item->ComParamDataType, PDU_PT_UNUM8);
        EXPECT_LE(item->ComParamDataType, PDU_PT_LONGFIELD);
        EXPECT_GE(item->ComParamClass, PDU_PC_TIMING);
        EXPECT_LE(item->ComParamClass, PDU_PC_TESTER_PRESENT);
        EXPECT_NE(item->pComParamData, nullptr);
    }
}

TEST_F(ComParams, IdsBelowAndAboveTheTableAreNotSupported) {
    for (const UNUM32 id : {0u, kCount + 1, 0xFFFFFFFFu}) {
        auto* const untouched = reinterpret_cast<PDU_PARAM_ITEM*>(0x1234);
        PDU_PARAM_ITEM* item = untouched;
        const LogCapture log;
        EXPECT_EQ(Pdu().PDUGetComParam(5, 6, id, &item), PDU_ERR_COMPARAM_NOT_SUPPORTED);
        EXPECT_EQ(item, untouched);
        EXPECT_EQ(log.LinesOf("PDUGetComParam"),
                  (std::vector<std::string>{
                      "[PDUGetComParam] (5, 6, " + std::to_string(id) + ", ...)",
                      "[PDUGetComParam] Returning PDU_ERR_COMPARAM_NOT_SUPPORTED",
                  }));
    }
}

TEST_F(ComParams, GetReturnsTheSamePointerOnEveryCallAndForAnyHandle) {
    for (UNUM32 id = 1; id <= kCount; ++id) {
        const PDU_PARAM_ITEM* item = Get(id);
        EXPECT_EQ(Get(id, 77, 88), item);
        EXPECT_EQ(Get(id, PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF), item);
    }
    const LogCapture log;
    Get(12, 1, 2);
    EXPECT_EQ(log.LinesOf("PDUGetComParam"), (std::vector<std::string>{
                                                 "[PDUGetComParam] (1, 2, 12, ...)",
                                                 "[PDUGetComParam] Returning PDU_STATUS_NOERROR",
                                             }));
    EXPECT_EQ(Pdu().PDUGetComParam(0, 0, 12, nullptr), PDU_STATUS_NOERROR);
}

TEST_F(ComParams, NewTableHasZeroForEveryNumber) {
    for (UNUM32 id = 1; id <= kCount; ++id) {
        const PDU_PARAM_ITEM* item = Get(id);
        if (IsField(*item)) continue;
        UNUM32 value = 1;
        std::memcpy(&value, item->pComParamData, sizeof value);
        EXPECT_EQ(value, 0u) << id;
    }
}

TEST_F(ComParams, SetValueIsSeenThroughEveryHandleAndLogged) {
    UNUM32 value = 0xFFFFFFF0;
    PDU_PARAM_ITEM item = {PDU_IT_PARAM, ParamId("CP_P2Max"), PDU_PT_UNUM32, PDU_PC_TIMING, &value};
    const LogCapture log;
    EXPECT_EQ(Pdu().PDUSetComParam(3, 4, &item), PDU_STATUS_NOERROR);
    EXPECT_EQ(log.LinesOf("PDUSetComParam"), (std::vector<std::string>{
                                                 "[PDUSetComParam] Called",
                                                 "[PDUSetComParam] CP_P2Max = 4294967280",
                                                 "[PDUSetComParam] Returning PDU_STATUS_NOERROR",
                                             }));
    EXPECT_EQ(GetNumber("CP_P2Max"), 0xFFFFFFF0);
}

TEST_F(ComParams, TypeInTheCallersItemIsIgnored) {
    UNUM32 value = 0x12345678;
    PDU_PARAM_ITEM item = {PDU_IT_PARAM, ParamId("CP_CanPhysReqId"), PDU_PT_UNUM8, 0, &value};
    EXPECT_EQ(Set(&item), PDU_STATUS_NOERROR);
    EXPECT_EQ(GetNumber("CP_CanPhysReqId"), 0x12345678u);
    EXPECT_EQ(GetParam("CP_CanPhysReqId")->ComParamDataType, PDU_PT_UNUM32);
}

TEST_F(ComParams, UnknownIdsCannotBeSet) {
    UNUM32 value = 1;
    for (const UNUM32 id : {0u, kCount + 1, 0xFFFFFFFFu}) {
        PDU_PARAM_ITEM item = {PDU_IT_PARAM, id, PDU_PT_UNUM32, 0, &value};
        const LogCapture log;
        EXPECT_EQ(Set(&item), PDU_ERR_INVALID_PARAMETERS);
        EXPECT_EQ(log.LinesOf("PDUSetComParam"),
                  (std::vector<std::string>{
                      "[PDUSetComParam] Called",
                      "[PDUSetComParam] Invalid ComParam, Returning PDU_ERR_INVALID_PARAMETERS",
                  }));
    }
}

TEST_F(ComParams, NullItemAndNullValueAreInvalid) {
    EXPECT_EQ(Set(nullptr), PDU_ERR_INVALID_PARAMETERS);
    PDU_PARAM_ITEM item = {PDU_IT_PARAM, ParamId("CP_P2Max"), PDU_PT_UNUM32, 0, nullptr};
    EXPECT_EQ(Set(&item), PDU_ERR_INVALID_PARAMETERS);
}

// Applications do this: get, write through the pointer, set with the same item, destroy.
TEST_F(ComParams, EveryNumberCanBeModifiedThroughTheReturnedItem) {
    const LogCapture log;
    for (UNUM32 id = 1; id <= kCount; ++id) {
        PDU_PARAM_ITEM* item = Get(id);
        if (IsField(*item)) continue;
        const UNUM32 value = id + 1000;
        std::memcpy(item->pComParamData, &value, sizeof value);
        EXPECT_EQ(Set(item), PDU_STATUS_NOERROR);
        EXPECT_EQ(Pdu().PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(item)), PDU_STATUS_NOERROR);
    }
    for (UNUM32 id = 1; id <= kCount; ++id) {
        const PDU_PARAM_ITEM* item = Get(id);
        if (IsField(*item)) continue;
        UNUM32 value = 0;
        std::memcpy(&value, item->pComParamData, sizeof value);
        EXPECT_EQ(value, id + 1000);
    }
    EXPECT_TRUE(log.Has("[PDUSetComParam] CP_CanPhysReqId = 1061"));
}

TEST_F(ComParams, ValueOfTheApplicationInTheLibrarysItemIsReadAndNotKept) {
    PDU_PARAM_ITEM* item = GetParam("CP_CanPhysReqId");
    void* const own = item->pComParamData;
    UNUM32 value = 0x7E1;
    item->pComParamData = &value;
    EXPECT_EQ(Set(item), PDU_STATUS_NOERROR);
    EXPECT_EQ(item->pComParamData, own);
    EXPECT_EQ(GetNumber("CP_CanPhysReqId"), 0x7E1u);
}

TEST_F(ComParams, DestroyItemOnAComParamItemDoesNothing) {
    SetNumber("CP_P2Max", 4711);
    PDU_PARAM_ITEM* item = GetParam("CP_P2Max");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Pdu().PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(item)), PDU_STATUS_NOERROR);
    }
    EXPECT_EQ(GetParam("CP_P2Max"), item);
    EXPECT_EQ(GetNumber("CP_P2Max"), 4711u);
}

TEST_F(ComParams, ValuesAreZeroAgainAfterDestruct) {
    for (const char* name : {"CP_P2Max", "CP_CanPhysReqId", "CP_DoIPLogicalEcuAddress"}) {
        SetNumber(name, 99);
    }
    const PDU_PARAM_ITEM* before = GetParam("CP_P2Max");
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(GetParam("CP_P2Max"), before);
    for (const char* name : {"CP_P2Max", "CP_CanPhysReqId", "CP_DoIPLogicalEcuAddress"}) {
        EXPECT_EQ(GetNumber(name), 0u) << name;
    }
}
