// PDUConstruct without memory for what it needs.

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>

#include "dpdu_api.h"
#include "platform/thread.h"
#include "unit/faults/files_fault.h"
#include "unit/faults/keep_loaded_fault.h"
#include "unit/faults/tracked_memory_fault.h"
#include "unit/test_support.h"

namespace tarvik::test {
namespace {

class FailedConstruct : public testing::Test {
protected:
    FailedConstruct() {
        DebugLogPath();  // the log is not opened in the folder of the test
        folders_.emplace();
        WriteFile(folders_->Library() / "config.json", R"({"enableCopTrace": false})");
    }

    struct Attempt {
        T_PDU_ERROR status;
        bool refused;
    };
    static Attempt ConstructWithMemoryFor(std::uint32_t requests) {
        const RefusedRequests refusing(requests + 1, UINT32_MAX - requests - 1);
        const T_PDU_ERROR status = PDUConstruct(nullptr, nullptr);
        return {status, refusing.Refused()};
    }

    std::optional<TestFolders> folders_;
};

// Its printing thread has started by then. An application that was refused unloads the library.
// (A trace that the configuration switches on stays as it is, and with it the library.)
TEST_F(FailedConstruct, DoesNotKeepTheLibraryLoaded) {
    int failures = 0;
    std::uint32_t requests = 0;
    for (;; ++requests) {
        const Attempt attempt = ConstructWithMemoryFor(requests);
        if (!attempt.refused) break;
        ASSERT_EQ(attempt.status, PDU_ERR_FCT_FAILED) << requests;
        ASSERT_EQ(LibraryReferences(), 0) << requests;
        ASSERT_FALSE(OsThreadsMayRun()) << requests;
        ++failures;
    }
    EXPECT_GT(failures, 0);
    EXPECT_EQ(LibraryReferences(), 1);  // of the construct that did not fail
    EXPECT_EQ(PDUDestruct(), PDU_STATUS_NOERROR);
    EXPECT_EQ(LibraryReferences(), 0);
}

}  // namespace
}  // namespace tarvik::test
