#pragma once

// The simulator's runtime classes in this process.

#include <windows.h>

#include <string>

namespace tarvik::test {

// On the thread that makes it, and until it goes, the runtime finds the classes.
class RuntimeClasses {
public:
    RuntimeClasses();
    ~RuntimeClasses();
    RuntimeClasses(const RuntimeClasses&) = delete;
    RuntimeClasses& operator=(const RuntimeClasses&) = delete;

private:
    HANDLE context_;
    ULONG_PTR cookie_ = 0;
};

// The next call of `function` fails, or its operation: "fail 0x80004005", "error 0x80004005",
// "status 2", "cancel", "null", "never".
void PlanFault(const std::string& function, const std::string& fault);

// What was done wrong since the last report and what is not released; empty: all is well.
std::string TakeReport();

}  // namespace tarvik::test
