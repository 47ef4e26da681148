#pragma once

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
};
// Waits until all calls that other threads have begun before are over; false: time ran out. One
// thread at a time.
bool WaitForOtherApiCalls(std::uint32_t timeout_ms);

}  // namespace tarvik
