#include "conformance/framework/fixtures.h"
#include "conformance/framework/log_file.h"

using namespace conformance;

namespace {

using Stubs = ConstructedLibrary;

void ExpectStubsSucceedAndWriteNothing() {
    UNUM32 error = 0xAA;
    UNUM32 hCoP = 0xBB;
    UNUM32 timestamp = 0xCC;
    UNUM32 extra = 0xDD;
    EXPECT_EQ(Pdu().PDUGetLastError(5, 6, &error, &hCoP, &timestamp, &extra), PDU_STATUS_NOERROR);
    EXPECT_EQ(error, 0xAAu);
    EXPECT_EQ(hCoP, 0xBBu);
    EXPECT_EQ(timestamp, 0xCCu);
    EXPECT_EQ(extra, 0xDDu);

    PDU_RSC_STATUS_DATA status = {5, 2001, 0xEE};
    PDU_RSC_STATUS_ITEM item = {PDU_IT_RSC_STATUS, 1, &status};
    EXPECT_EQ(Pdu().PDUGetResourceStatus(&item), PDU_STATUS_NOERROR);
    EXPECT_EQ(status.ResourceStatus, 0xEEu);

    auto* const untouched = reinterpret_cast<PDU_RSC_CONFLICT_ITEM*>(0x1234);
    PDU_RSC_CONFLICT_ITEM* conflicts = untouched;
    EXPECT_EQ(Pdu().PDUGetConflictingResources(2001, nullptr, &conflicts), PDU_STATUS_NOERROR);
    EXPECT_EQ(conflicts, untouched);

    EXPECT_EQ(Pdu().PDULockResource(5, 6, 0x3), PDU_STATUS_NOERROR);
    EXPECT_EQ(Pdu().PDUUnlockResource(5, 6, 0x3), PDU_STATUS_NOERROR);
}

}  // namespace

TEST_F(Stubs, SucceedForAnyHandleAndWriteNothing) { ExpectStubsSucceedAndWriteNothing(); }

TEST_F(Stubs, SucceedBeforeConstructAndAfterDestruct) {
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    ExpectStubsSucceedAndWriteNothing();
}

TEST_F(Stubs, AcceptNullPointers) {
    EXPECT_EQ(Pdu().PDUGetLastError(0, 0, nullptr, nullptr, nullptr, nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(Pdu().PDUGetResourceStatus(nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(Pdu().PDUGetConflictingResources(0, nullptr, nullptr), PDU_STATUS_NOERROR);
}

TEST_F(Stubs, LogTheirArguments) {
    const LogCapture log;
    ExpectStubsSucceedAndWriteNothing();
    EXPECT_TRUE(log.Has("[PDUGetLastError] Called (hMod=5, hCLL=6)"));
    EXPECT_TRUE(log.Has("[PDUGetResourceStatus] Called"));
    EXPECT_TRUE(log.Has("[PDUGetConflictingResources] Called (resourceId=2001)"));
    EXPECT_TRUE(log.Has("[PDULockResource] Called (hMod=5, hCLL=6, LockMask=0x3)"));
    EXPECT_TRUE(log.Has("[PDUUnlockResource] Called (hMod=5, hCLL=6, LockMask=0x3)"));
}
