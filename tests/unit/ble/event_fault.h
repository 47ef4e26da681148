#pragma once

namespace tarvik::test {

// While this object lives, the system refuses to create events.
class EventFault {
public:
    EventFault();
    ~EventFault();
    EventFault(const EventFault&) = delete;
    EventFault& operator=(const EventFault&) = delete;
};

}  // namespace tarvik::test
