#pragma once

// A thread of an application that calls the library's functions in no order at all, on handles that
// may be valid, stale or nonsense.

#include <atomic>
#include <cstdint>
#include <random>
#include <vector>

#include "conformance/framework/library.h"

namespace conformance {

// What the callers know of one another.
struct CallerBoard {
    std::atomic<UNUM32> newest_link{0};
    std::atomic<UNUM32> newest_cop{0};
    std::atomic<std::int32_t> live_links{0};
    std::atomic<std::uint64_t> next_destruct_ms{0};

    // Calls that answered PDU_STATUS_NOERROR.
    std::atomic<std::uint64_t> constructs{0};
    std::atomic<std::uint64_t> destructs{0};
    std::atomic<std::uint64_t> scans{0};
    std::atomic<std::uint64_t> links{0};
    std::atomic<std::uint64_t> com_primitives{0};
    std::atomic<std::uint64_t> calls{0};  // of all functions, with any answer
};

class RandomCaller {
public:
    RandomCaller(CallerBoard* board, std::uint32_t seed) : board_(board), random_(seed) {}

    void RunUntil(std::uint64_t end_ms);

    // Items that came while the library was being destructed can only be given back to the next
    // one.
    static void GiveBackLeftovers();
    // Answers to requests that any caller or callback has taken.
    static std::uint64_t ResultsTaken();

private:
    using Action = void (RandomCaller::*)();
    struct WeightedAction {
        std::uint32_t weight;
        Action run;
    };
    static const WeightedAction kActions[];
    Action ChooseAction();

    std::uint32_t Below(std::uint32_t limit) {
        return static_cast<std::uint32_t>(random_() % limit);
    }
    bool OneIn(std::uint32_t count) { return Below(count) == 0; }
    UNUM32 Module();
    UNUM32 Link();
    UNUM32 Param();
    void KeepOrGiveBack(PDU_ITEM* item);

    void Construct();
    void Destruct();
    void Scan();
    void ModuleConnect();
    void ModuleDisconnect();
    void CreateLink();
    void DestroyLink();
    void Connect();
    void Disconnect();
    void Start();
    void Cancel();
    void TakeEvent();
    void DestroyItem();
    void RegisterCallback();
    void GetParam();
    void SetNumberParam();
    void SetBytesParam();
    void GetTable();
    void SetTable();
    void GetStatus();
    void GetVersion();
    void GetTimestamp();
    void GetResources();
    void GetObject();
    void IoCtl();
    void CallStubs();

    CallerBoard* board_;
    std::mt19937 random_;
    std::vector<PDU_ITEM*> items_;
};

}  // namespace conformance
