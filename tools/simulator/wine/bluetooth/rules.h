// What the stand-in keeps track of: rules that a program broke, objects that it has not released,
// and faults planned by tests.

#pragma once

#include <windows.h>

#include <optional>
#include <string>

namespace brennix {

// Stores the violation and reports it to the radio.
void Violation(const std::string& what);

// Counts an object of the class as long as this exists.
class Counted {
public:
    explicit Counted(const char* class_name);
    ~Counted();
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

private:
    const char* class_name_;
};

// What a function does instead of its work, once.
struct Fault {
    enum class Kind {
        kFail,    // returns `value`
        kError,   // its operation ends with the error `value`
        kStatus,  // its operation's result has the status `value`
        kCancel,  // its operation is cancelled
        kNull,    // it, or its operation, succeeds with a null result
        kNone,    // returns success without an operation
        kNever,   // its operation does not end
        kValue,   // returns the number `value`
    };
    Kind kind;
    HRESULT value;
};
std::optional<Fault> TakeFault(const char* function);
// Parses "fail 0x80004005", "error 0x80004005", "status 2", "cancel", "null", "none", "never",
// "value 23". False: invalid.
bool PlanFault(const std::string& function, const std::string& fault);

// True: the function must succeed with a null result, which it has been given.
template <typename Result>
bool ReturnsNull(const char* function, Result** place) {
    const std::optional<Fault> fault = TakeFault(function);
    if (fault) *place = nullptr;
    return fault.has_value();
}

// Called first in every function that programs call: the thread must have entered the runtime.
// Returns the planned error, if any.
HRESULT Enter(const char* function);

// One line each: violations since the last report, kinds of objects that exist.
std::string TakeReport();

}  // namespace brennix
