#pragma once

#include <atomic>
#include <cstdint>

namespace tarvik {

enum class Lifecycle : std::uint8_t { kNotConstructed, kConstructing, kConstructed, kDestructing };

Lifecycle LibraryState();
bool IsConstructed();  // between the end of PDUConstruct and the end of PDUDestruct
// False: the library was not in state `from`. One thread at a time gets through.
bool ChangeLibraryState(Lifecycle from, Lifecycle to);

// The pAPITag of PDUConstruct.
void* ApiTag();
void SetApiTag(void* tag);

// The API calls that a thread of the library is inside, from callbacks of the application. Other
// threads can see them, so that calls of a thread that was ended or given up are not waited for.
class ThreadCalls {
public:
    // Called by any thread. From now on WaitForOtherApiCalls ignores the thread.
    void GiveUp();

private:
    friend class ApiCall;
    friend class CountThreadCalls;
    friend std::int32_t OwnCalls(std::uint32_t of_generation);
    std::atomic<std::intptr_t> own_{0};
};

// On a thread of the library, around its callbacks: counts its API calls in `record`.
class CountThreadCalls {
public:
    explicit CountThreadCalls(ThreadCalls* record);
    ~CountThreadCalls();  // what the application calls at the thread's end counts as any thread's
    CountThreadCalls(const CountThreadCalls&) = delete;
    CountThreadCalls& operator=(const CountThreadCalls&) = delete;
};

// Counts an API call that uses the library's objects. PDUDestruct releases what calls of other
// threads use only after they have ended.
class ApiCall {
public:
    ApiCall();
    ~ApiCall();
    ApiCall(const ApiCall&) = delete;
    ApiCall& operator=(const ApiCall&) = delete;

private:
    const std::uint32_t generation_;
    ThreadCalls* const thread_;  // null on a thread of the application
};
// Waits until all calls that other threads have begun before are over; false: time ran out. One
// thread at a time.
bool WaitForOtherApiCalls(std::uint32_t timeout_ms);

}  // namespace tarvik
