// What the double watches: rules that a program broke, objects that it has not released, and the
// faults that a test asked for.

#pragma once

#include <windows.h>

#include <optional>
#include <string>

namespace brennix {

// Remembers the violation and tells the radio.
void Violation(const std::string& what);

// Its life is that of an object of the class.
class Counted {
public:
    explicit Counted(const char* class_name);
    ~Counted();
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

private:
    const char* class_name_;
};

// What a function is to do instead of its work, once.
struct Fault {
    enum class Kind {
        kFail,    // returns `value`
        kError,   // its operation ends with the error `value`
        kStatus,  // its operation's result has the status `value`
        kCancel,  // its operation is cancelled
        kNull,    // its operation has a null result
        kNever,   // its operation does not end
    };
    Kind kind;
    HRESULT value;
};
std::optional<Fault> TakeFault(const char* function);
// "fail 0x80004005", "error 0x80004005", "status 2", "cancel", "null", "never". False: not
// understood.
bool PlanFault(const std::string& function, const std::string& fault);

// At the beginning of every function that a program calls: the thread must have entered the
// runtime. The error to return, if there is one planned.
HRESULT Enter(const char* function);

// One line each: violations since the last report, kinds of objects that live.
std::string TakeReport();

}  // namespace brennix
