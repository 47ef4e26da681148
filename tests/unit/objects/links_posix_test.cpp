#include "support/memory.h"
#include "unit/faults/system_call_fault.h"
#include "unit/objects/fake_modules.h"

namespace tarvik::test {
namespace {

class LinksWithoutMutexes : public FakeModules {
protected:
    static T_PDU_ERROR CreateWithMutexes(int allowed) {
        const NoMemory none(allowed);
        std::uint32_t hCLL = PDU_HANDLE_UNDEF;
        return PDUCreateComLogicalLink(0, nullptr, 2001, nullptr, &hCLL, nullptr);
    }
};

// A link has two.
TEST_F(LinksWithoutMutexes, AreNotCreated) {
    ASSERT_EQ(Scan(), Handles{0});
    const std::uint64_t before = LiveMemory().blocks;
    EXPECT_EQ(CreateWithMutexes(0), PDU_ERR_FCT_FAILED);
    EXPECT_EQ(CreateWithMutexes(1), PDU_ERR_FCT_FAILED);
    EXPECT_EQ(LiveMemory().blocks, before + 1);  // the array of handles
    std::uint32_t hCLL = PDU_HANDLE_UNDEF;
    EXPECT_EQ(PDUCreateComLogicalLink(0, nullptr, 2001, nullptr, &hCLL, nullptr),
              PDU_STATUS_NOERROR);
}

}  // namespace
}  // namespace tarvik::test
