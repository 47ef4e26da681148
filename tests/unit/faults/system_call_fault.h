#pragma once

#include <string>

// Functions of the C library that fail; Linux only. The linker redirects the calls of the library,
// and of the test program itself, so make no assertions while one fails.
namespace tarvik::test {

// While it lives, and there is one at a time, this function fails when the calling thread calls it.
// system_call_fault.cpp lists those that can.
class SystemCallFault {
public:
    static constexpr int kAlways = 1'000'000;
    // As `error`: the function transfers one byte instead of all.
    static constexpr int kOneByte = -1;

    // The first `allowed` calls succeed, then `failures` fail.
    SystemCallFault(const char* function, int error, int failures = kAlways, int allowed = 0);
    ~SystemCallFault();
    SystemCallFault(const SystemCallFault&) = delete;
    SystemCallFault& operator=(const SystemCallFault&) = delete;

    int Calls() const;  // how many there were, those after the failures included
};

// While it lives, and there is one at a time, operator new returns null where it does not throw,
// once the calling thread has got memory `allowed` times.
class NoMemory {
public:
    explicit NoMemory(int allowed = 0);
    ~NoMemory();
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;
};

// While it lives, and there is one at a time, poll reports to the calling thread at once that it
// need not wait: somebody else takes the room, or the bytes, before the thread does.
class PollReportsAll {
public:
    PollReportsAll();
    ~PollReportsAll();
    PollReportsAll(const PollReportsAll&) = delete;
    PollReportsAll& operator=(const PollReportsAll&) = delete;
};

// While it lives, and there is one at a time, it notes the first function that the calling thread
// opens a descriptor with, or may do so, while one of the numbers 0 to 2 is free.
class LowDescriptorWatch {
public:
    LowDescriptorWatch();
    ~LowDescriptorWatch();
    LowDescriptorWatch(const LowDescriptorWatch&) = delete;
    LowDescriptorWatch& operator=(const LowDescriptorWatch&) = delete;

    std::string Culprit() const;  // empty: none
};

// What the system's log gets from its construction on. One at a time.
class FakeLogDaemon {
public:
    FakeLogDaemon();

    int Priority() const;      // of the last message; -1: none
    std::string Text() const;  // of the last message
};

// The descriptor that is opened next: the same as before where none was lost.
int NextDescriptor();

}  // namespace tarvik::test
