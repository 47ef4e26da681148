#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>

// Building blocks of the floors: a block of a packet's size, and the simplest way to pass it from
// one thread to another.
namespace tarvik::bench {

inline constexpr std::size_t kBlockBytes = 40;

struct Block {
    Block* next;
    std::uint32_t size;
    std::uint32_t id;  // which of the requesting threads it belongs to
    std::uint8_t bytes[kBlockBytes];
};

class Channel {
public:
    void Put(Block* block) {
        block->next = nullptr;
        {
            const std::lock_guard hold(lock_);
            (tail_ != nullptr ? tail_->next : head_) = block;
            tail_ = block;
        }
        changed_.notify_one();
    }

    // Null if the channel has been closed.
    Block* Take() {
        std::unique_lock hold(lock_);
        changed_.wait(hold, [this] { return head_ != nullptr || closed_; });
        Block* block = head_;
        if (block == nullptr) return nullptr;
        head_ = block->next;
        if (head_ == nullptr) tail_ = nullptr;
        return block;
    }

    void Close() {
        {
            const std::lock_guard hold(lock_);
            closed_ = true;
        }
        changed_.notify_all();
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    Block* head_ = nullptr;
    Block* tail_ = nullptr;
    bool closed_ = false;
};

// Limits the number of threads between Enter and Leave.
class Gate {
public:
    explicit Gate(int places) : places_(places) {}

    void Enter() {
        std::unique_lock hold(lock_);
        changed_.wait(hold, [this] { return places_ > 0; });
        --places_;
    }

    void Leave() {
        {
            const std::lock_guard hold(lock_);
            ++places_;
        }
        changed_.notify_one();
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    int places_;
};

}  // namespace tarvik::bench
