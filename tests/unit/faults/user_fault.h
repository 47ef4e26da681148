#pragma once

#include <string>

namespace tarvik::test {

// While it lives, the process runs for a user of this name; empty: the system does not know it.
class UserNameFault {
public:
    explicit UserNameFault(const std::string& name);
    ~UserNameFault();
    UserNameFault(const UserNameFault&) = delete;
    UserNameFault& operator=(const UserNameFault&) = delete;
};

}  // namespace tarvik::test
