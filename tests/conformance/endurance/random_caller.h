#pragma once

// A thread of an application that calls the library's functions in random order, with handles that
// may be valid, stale or invalid.

#include <array>
#include <atomic>
#include <cstdint>
#include <random>
#include <vector>

#include "conformance/framework/library.h"
#include "conformance/framework/system.h"

namespace conformance {

inline constexpr std::size_t kFunctionCount = sizeof(Functions) / sizeof(PDUConstruct_Fn);
const char* FunctionName(std::size_t function);

struct Handles {
    UNUM32 hMod;
    UNUM32 hCLL;
};

class SharedHandles {
public:
    void Store(Handles handles) { both_.store(std::uint64_t{handles.hMod} << 32 | handles.hCLL); }
    Handles Load() const {
        const std::uint64_t both = both_.load();
        return {static_cast<UNUM32>(both >> 32), static_cast<UNUM32>(both & 0xFFFFFFFF)};
    }

private:
    std::atomic<std::uint64_t> both_{0};
};

// The most recently created links.
class LinkBoard {
public:
    static constexpr std::uint32_t kKept = 12;

    void Add(Handles link) { recent_[next_.fetch_add(1) % kKept].Store(link); }
    Handles Any(std::uint32_t number) const { return recent_[number].Load(); }

private:
    std::array<SharedHandles, kKept> recent_{};
    std::atomic<std::uint32_t> next_{0};
};

// Data shared by the callers.
struct CallerBoard {
    LinkBoard links;
    std::atomic<UNUM32> newest_cop{0};
    SharedHandles newest_cop_link;
    std::atomic<std::int32_t> live_links{0};
    std::atomic<std::uint64_t> next_destruct_ms{0};

    std::array<std::atomic<std::uint64_t>, kFunctionCount> calls{};
    std::array<std::atomic<std::uint64_t>, kFunctionCount> successes{};
    std::atomic<std::uint64_t> modules_found{0};
};

// What a caller is doing; the watchdog reads it.
struct CurrentCall {
    std::atomic<const char*> function{nullptr};  // null: not in the library
    std::atomic<std::uint64_t> since_ms{0};
};

class RandomCaller {
public:
    RandomCaller(CallerBoard* board, CurrentCall* current, std::uint32_t seed)
        : board_(board), current_(current), random_(seed) {}

    void RunUntil(std::uint64_t end_ms);

    // Destroys items received during a destruct, which is possible only after the next construct.
    static void GiveBackLeftovers();
    // The number of results that callers and callbacks have taken.
    static std::uint64_t ResultsTaken();

private:
    using Action = void (RandomCaller::*)();
    struct WeightedAction {
        std::uint32_t weight;
        Action run;
    };
    static const WeightedAction kActions[];
    Action ChooseAction();

    template <typename Function, typename... Arguments>
    auto Call(Function Functions::*member, Arguments... arguments) {
        const Functions& all = Pdu();
        const auto* first = reinterpret_cast<const Function*>(&all);  // they are all pointers
        const auto index = static_cast<std::size_t>(&(all.*member) - first);
        current_->since_ms.store(TickMs());
        current_->function.store(FunctionName(index));
        const auto status = (all.*member)(arguments...);
        current_->function.store(nullptr);
        board_->calls[index].fetch_add(1);
        if (status == PDU_STATUS_NOERROR) board_->successes[index].fetch_add(1);
        return status;
    }

    std::uint32_t Below(std::uint32_t limit) {
        return static_cast<std::uint32_t>(random_() % limit);
    }
    bool OneIn(std::uint32_t count) { return Below(count) == 0; }
    UNUM32 Module();
    UNUM32 UnknownLink();
    Handles AnyLink();
    UNUM32 Param();
    void GiveBack(PDU_ITEM* item);
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
    CurrentCall* current_;
    std::mt19937 random_;
    std::vector<PDU_ITEM*> items_;
};

}  // namespace conformance
