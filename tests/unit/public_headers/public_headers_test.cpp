// The public headers as a C++20 program sees them, and what a C program makes of them.

#include <gtest/gtest.h>

#include <type_traits>

#include "dpdu_api.h"
#include "dpdu_types.h"
#include "fact.h"

namespace {

constexpr Fact kFactsInCpp[] = {
#define PDU_VALUE(name, value) {#name, name, value},
#define PDU_SIZE(type, bytes) {"sizeof(" #type ")", sizeof(type), bytes},
#define PDU_OFFSET(type, field, bytes) \
    {"offsetof(" #type ", " #field ")", offsetof(type, field), bytes},
#include "iso22900_2_facts.inc"
#undef PDU_VALUE
#undef PDU_SIZE
#undef PDU_OFFSET
};

// Every constant has the width and the signedness of the enumerations, so that it compares with
// them and prints with %u without a conversion.
#define PDU_VALUE(name, value) static_assert(std::is_same_v<decltype(name), UNUM32>);
#define PDU_SIZE(type, bytes) static_assert(std::is_standard_layout_v<type>);
#define PDU_OFFSET(type, field, bytes)
#include "iso22900_2_facts.inc"
#undef PDU_VALUE
#undef PDU_SIZE
#undef PDU_OFFSET

static_assert(std::is_same_v<T_PDU_ERROR, UNUM32> && std::is_same_v<T_PDU_IT, UNUM32> &&
              std::is_same_v<PDU_STATUS_DATA, UNUM32>);
static_assert(std::is_same_v<CALLBACKFNC, void (*)(UNUM32, UNUM32, UNUM32, void*, void*)>);

// A function pointer type is the type of the function's address, for all 29.
#define EXPECT_POINTER_TYPE(function) \
    static_assert(std::is_same_v<function##_Fn, decltype(&(function))>)
EXPECT_POINTER_TYPE(PDUConstruct);
EXPECT_POINTER_TYPE(PDUDestruct);
EXPECT_POINTER_TYPE(PDUIoCtl);
EXPECT_POINTER_TYPE(PDUGetVersion);
EXPECT_POINTER_TYPE(PDUGetStatus);
EXPECT_POINTER_TYPE(PDUGetLastError);
EXPECT_POINTER_TYPE(PDUGetResourceStatus);
EXPECT_POINTER_TYPE(PDUCreateComLogicalLink);
EXPECT_POINTER_TYPE(PDUDestroyComLogicalLink);
EXPECT_POINTER_TYPE(PDUConnect);
EXPECT_POINTER_TYPE(PDUDisconnect);
EXPECT_POINTER_TYPE(PDULockResource);
EXPECT_POINTER_TYPE(PDUUnlockResource);
EXPECT_POINTER_TYPE(PDUGetComParam);
EXPECT_POINTER_TYPE(PDUSetComParam);
EXPECT_POINTER_TYPE(PDUStartComPrimitive);
EXPECT_POINTER_TYPE(PDUCancelComPrimitive);
EXPECT_POINTER_TYPE(PDUGetEventItem);
EXPECT_POINTER_TYPE(PDUDestroyItem);
EXPECT_POINTER_TYPE(PDURegisterEventCallback);
EXPECT_POINTER_TYPE(PDUGetObjectId);
EXPECT_POINTER_TYPE(PDUGetModuleIds);
EXPECT_POINTER_TYPE(PDUGetResourceIds);
EXPECT_POINTER_TYPE(PDUGetConflictingResources);
EXPECT_POINTER_TYPE(PDUGetUniqueRespIdTable);
EXPECT_POINTER_TYPE(PDUSetUniqueRespIdTable);
EXPECT_POINTER_TYPE(PDUModuleConnect);
EXPECT_POINTER_TYPE(PDUModuleDisconnect);
EXPECT_POINTER_TYPE(PDUGetTimestamp);

// 140 values and 28 flag bits, 43 records with 157 fields.
constexpr int kFactCount = 140 + 28 + 43 + 157;

TEST(PublicHeaders, ConstantsAndLayoutsInCppAreThoseOfTheStandard) {
    EXPECT_EQ(std::size(kFactsInCpp), static_cast<std::size_t>(kFactCount));
    for (const Fact& fact : kFactsInCpp)
        EXPECT_EQ(fact.actual, fact.expected) << fact.text;
}

TEST(PublicHeaders, ConstantsAndLayoutsInCAreThoseOfTheStandard) {
    int count = 0;
    const Fact* facts = FactsInC(&count);
    EXPECT_EQ(count, kFactCount);
    for (int i = 0; i < count; ++i)
        EXPECT_EQ(facts[i].actual, facts[i].expected) << facts[i].text;
}

TEST(PublicHeaders, ThereIsAFunctionPointerTypeForEachOfThe29Functions) {
    EXPECT_EQ(FunctionPointersInC(), 29);
}

}  // namespace
