#pragma once

#include <string>

namespace tarvik::test {

// What the library sends to the debugger while this object lives.
class DebugOutputCapture {
public:
    DebugOutputCapture();
    ~DebugOutputCapture();
    DebugOutputCapture(const DebugOutputCapture&) = delete;
    DebugOutputCapture& operator=(const DebugOutputCapture&) = delete;
    std::string Text() const;
};

}  // namespace tarvik::test
