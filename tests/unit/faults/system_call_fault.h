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
