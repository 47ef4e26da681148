#pragma once

#include <windows.h>

#include <string>

// The simulator's runtime classes in this process.
namespace tarvik::test {

// While it lives, the runtime finds the classes on the thread that created it.
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

// Makes the next call of `function`, or its operation, fail: "fail 0x80004005",
// "error 0x80004005", "status 2", "cancel", "null", "none", "never", "value 23": see the
// stand-in's rules.h.
void PlanFault(const std::string& function, const std::string& fault);

// The rules broken since the last report and the objects not released. Empty: none.
std::string TakeReport();

}  // namespace tarvik::test
