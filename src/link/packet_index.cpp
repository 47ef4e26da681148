#include "link/packet_index.h"

#include <algorithm>

#include "platform/random.h"

namespace tarvik {
namespace {

constexpr std::uint64_t kFirstBucketCount = 64;
constexpr std::uint32_t kSpareNodes = 64;

PacketEntry** AllocateBuckets(std::uint64_t count) {
    return static_cast<PacketEntry**>(AllocateArray(count, sizeof(void*)));
}

// Ids count up, so those in use are close together. Keeping neighbours in neighbouring buckets
// keeps a request's buckets in the processor's cache, however many packets there are. The
// multiplication spreads everything above the lowest bits. Its factor is the process's secret: who
// sends packets cannot choose ids that all have the same bucket.
// (Made at load: the compiler's guard of a local static takes handles, which would leak at unload.)
const std::uint64_t secret_factor = OsRandomNumber() | 1;  // odd, so that no bit gets lost

std::uint64_t BucketOf(std::uint64_t key, std::uint64_t bucket_count, std::uint64_t factor) {
    const std::uint64_t spread = (key >> 10) * factor >> 32;
    return (spread + key) & (bucket_count - 1);
}

}  // namespace

PacketIndex* PacketIndex::Create() {
    Tracked<PacketEntry*> buckets(AllocateBuckets(kFirstBucketCount));
    if (buckets == nullptr) return nullptr;
    PacketIndex* index = AllocateRecord<PacketIndex>().release();
    if (index == nullptr) return nullptr;
    index->buckets_ = buckets.release();
    index->bucket_count_ = kFirstBucketCount;
    index->factor_ = secret_factor;
    // Allocated in advance, so that memory use stays the same however long the queue becomes.
    while (index->spare_count_ < kSpareNodes) {
        PacketNode* node = AllocateRecord<PacketNode>().release();
        if (node == nullptr) break;
        index->ReturnNode(node);
    }
    return index;
}

void PacketIndex::Destroy(PacketIndex* index) {
    if (index == nullptr) return;
    while (index->spare_ != nullptr) {
        PacketNode* next = index->spare_->newer;
        FreeMem(index->spare_);
        index->spare_ = next;
    }
    FreeMem(index->buckets_);
    FreeMem(index);
}

PacketNode* PacketIndex::TakeNode() {
    if (spare_ == nullptr) return AllocateRecord<PacketNode>().release();
    PacketNode* node = spare_;
    spare_ = node->newer;
    --spare_count_;
    *node = {};
    return node;
}

void PacketIndex::ReturnNode(PacketNode* node) {
    if (spare_count_ >= kSpareNodes) {
        FreeMem(node);
        return;
    }
    node->newer = spare_;
    spare_ = node;
    ++spare_count_;
}

void PacketIndex::Add(PacketNode* node, std::uint32_t tag) {
    const Packet& packet = *node->packet;
    Enter(node, TypeKey(packet.type));
    Enter(node, TagKey(tag));
    std::uint32_t id = 0;
    if (AnsweredRequest(packet, &id)) Enter(node, AnswerKey(packet.type, id));
    GrowIfCrowded();
}

void PacketIndex::Remove(PacketNode* node) {
    for (std::uint32_t i = 0; i < node->entry_count; ++i)
        Leave(&node->entries[i]);
    node->entry_count = 0;
}

PacketNode* PacketIndex::Oldest(std::uint64_t key) const {
    const PacketEntry* oldest = *Place(key);
    return oldest == nullptr ? nullptr : oldest->node;
}

std::uint64_t PacketIndex::LongestChain() const {
    std::uint64_t longest = 0;
    for (std::uint64_t i = 0; i < bucket_count_; ++i) {
        std::uint64_t length = 0;
        for (const PacketEntry* entry = buckets_[i]; entry != nullptr; entry = entry->next_oldest)
            ++length;
        longest = std::max(longest, length);
    }
    return longest;
}

void PacketIndex::Enter(PacketNode* node, std::uint64_t key) {
    PacketEntry* entry = &node->entries[node->entry_count++];
    *entry = {.key = key,
              .node = node,
              .older = nullptr,
              .newer = nullptr,
              .newest = entry,
              .next_oldest = nullptr};
    PacketEntry** place = Place(key);
    PacketEntry* oldest = *place;
    if (oldest == nullptr) {
        *place = entry;
        ++group_count_;
        return;
    }
    entry->older = oldest->newest;
    oldest->newest->newer = entry;
    oldest->newest = entry;
}

void PacketIndex::Leave(PacketEntry* entry) {
    PacketEntry* older = entry->older;
    PacketEntry* newer = entry->newer;
    if (newer != nullptr) newer->older = older;
    if (older != nullptr) {
        older->newer = newer;
        if (newer == nullptr) (*Place(entry->key))->newest = older;
        return;
    }
    PacketEntry** place = Place(entry->key);
    if (newer == nullptr) {
        *place = entry->next_oldest;
        --group_count_;
        return;
    }
    newer->newest = entry->newest;
    newer->next_oldest = entry->next_oldest;
    *place = newer;
}

// The pointer to the key's group, or the null pointer to replace when the group is added.
PacketEntry** PacketIndex::Place(std::uint64_t key) const {
    PacketEntry** place = &buckets_[BucketOf(key, bucket_count_, factor_)];
    while (*place != nullptr && (*place)->key != key)
        place = &(*place)->next_oldest;
    return place;
}

// At least half of the buckets stay empty, so that most look-ups read only their bucket. If memory
// is out, the old buckets stay in use; look-ups are only slower.
void PacketIndex::GrowIfCrowded() {
    if (group_count_ <= bucket_count_ / 2) return;
    const std::uint64_t more = bucket_count_ * 2;
    PacketEntry** buckets = AllocateBuckets(more);
    if (buckets == nullptr) return;
    for (std::uint64_t i = 0; i < bucket_count_; ++i) {
        while (buckets_[i] != nullptr) {
            PacketEntry* moved = buckets_[i];
            buckets_[i] = moved->next_oldest;
            PacketEntry** place = &buckets[BucketOf(moved->key, more, factor_)];
            moved->next_oldest = *place;
            *place = moved;
        }
    }
    FreeMem(buckets_);
    buckets_ = buckets;
    bucket_count_ = more;
}

}  // namespace tarvik
