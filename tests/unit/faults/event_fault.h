#pragma once

namespace tarvik::test {

// While this object lives, creating an event fails.
class EventFault {
public:
    EventFault();
    ~EventFault();
    EventFault(const EventFault&) = delete;
    EventFault& operator=(const EventFault&) = delete;
};

}  // namespace tarvik::test
