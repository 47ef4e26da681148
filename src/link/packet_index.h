#pragma once

#include <cstdint>

#include "link/packet.h"

// Finds the oldest packet of a queue by type, by answered request or by tag. Everything here is
// guarded by the queue's lock.
namespace tarvik {

// Every node has up to three keys. Their upper halves keep them apart: 0 for a type, 1 for a tag,
// the type code of CRES or BUSY for an answer.
constexpr std::uint64_t TypeKey(std::uint32_t type) { return type; }
constexpr std::uint64_t TagKey(std::uint32_t tag) { return std::uint64_t{1} << 32 | tag; }
constexpr std::uint64_t AnswerKey(std::uint32_t type, std::uint32_t id) {
    return std::uint64_t{type} << 32 | id;
}

struct PacketNode;

// A node's place among the nodes with the same key, oldest first. The hash table points to the
// oldest of each group.
struct PacketEntry {
    std::uint64_t key;
    PacketNode* node;
    PacketEntry* older;
    PacketEntry* newer;
    PacketEntry* newest;       // valid in a group's oldest entry
    PacketEntry* next_oldest;  // valid in a group's oldest entry: the next group in this bucket
};

struct PacketNode {
    Packet* packet;  // owned by the queue
    PacketNode* older;
    PacketNode* newer;
    std::uint32_t entry_count;
    PacketEntry entries[3];
};

// Allocates nothing per packet: entries are part of their nodes, and nodes are reused.
struct PacketIndex {
public:
    static PacketIndex* Create();  // null when memory is out
    static void Destroy(PacketIndex* index);

    PacketNode* TakeNode();  // zeroed; null when memory is out
    void ReturnNode(PacketNode* node);

    // Adds `node` as the newest under its packet's keys.
    void Add(PacketNode* node, std::uint32_t tag);
    void Remove(PacketNode* node);
    PacketNode* Oldest(std::uint64_t key) const;
    std::uint64_t LongestChain() const;  // that a look-up may have to walk; for tests

private:
    void Enter(PacketNode* node, std::uint64_t key);
    void Leave(PacketEntry* entry);
    PacketEntry** Place(std::uint64_t key) const;
    void GrowIfCrowded();

    PacketEntry** buckets_;
    std::uint64_t bucket_count_;  // a power of two
    std::uint64_t group_count_;
    std::uint64_t factor_;  // of the hash
    PacketNode* spare_;     // linked by `newer`
    std::uint32_t spare_count_;
};

}  // namespace tarvik
