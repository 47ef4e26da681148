#include "support/counted.h"

#include <gtest/gtest.h>

#include <utility>

#include "support/memory.h"

namespace tarvik {
namespace {

struct Probe : Counted {
    explicit Probe(int* ends) : ends_(ends) {}
    ~Probe() { ++*ends_; }

private:
    int* ends_;
};

TEST(Counted, ObjectEndsWithItsLastReference) {
    const std::uint64_t blocks = LiveMemory().blocks;
    int ends = 0;
    {
        Ref<Probe> first = MakeCounted<Probe>(&ends);
        ASSERT_TRUE(first);
        EXPECT_TRUE(first->IsOnlyReference());
        const Ref<Probe> second = first;
        EXPECT_FALSE(first->IsOnlyReference());
        first.Reset();
        EXPECT_EQ(ends, 0);
        EXPECT_TRUE(second->IsOnlyReference());
    }
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(LiveMemory().blocks, blocks);
}

TEST(Counted, AssigningReleasesWhatTheReferenceHeld) {
    int first_ends = 0;
    int second_ends = 0;
    Ref<Probe> reference = MakeCounted<Probe>(&first_ends);
    reference = MakeCounted<Probe>(&second_ends);
    EXPECT_EQ(first_ends, 1);
    reference = Ref<Probe>();
    EXPECT_EQ(second_ends, 1);
}

TEST(Counted, AssigningAReferenceToItselfKeepsTheObject) {
    int ends = 0;
    Ref<Probe> reference = MakeCounted<Probe>(&ends);
    const Ref<Probe>& same = reference;
    reference = same;
    EXPECT_EQ(ends, 0);
    EXPECT_TRUE(reference->IsOnlyReference());
}

TEST(Counted, DetachedReferenceIsTakenOverByAdopt) {
    int ends = 0;
    Ref<Probe> reference = MakeCounted<Probe>(&ends);
    Probe* raw = reference.Detach();
    EXPECT_FALSE(reference);
    EXPECT_EQ(ends, 0);
    reference = Ref<Probe>::Adopt(raw);
    EXPECT_TRUE(reference->IsOnlyReference());
}

TEST(Counted, ShareAddsAReferenceUnlessNull) {
    int ends = 0;
    const Ref<Probe> owner = MakeCounted<Probe>(&ends);
    {
        const Ref<Probe> shared = Ref<Probe>::Share(owner.Get());
        EXPECT_EQ(shared.Get(), owner.Get());
        EXPECT_FALSE(owner->IsOnlyReference());
    }
    EXPECT_TRUE(owner->IsOnlyReference());
    EXPECT_FALSE(Ref<Probe>::Share(nullptr));
}

}  // namespace
}  // namespace tarvik
