#pragma once

#include <cstddef>
#include <memory>

namespace tarvik::test {

// While it lives, the application has chosen this size for the stacks of its threads: as the
// default of pthreads, or in the headers of its program.
class ApplicationStack {
public:
    explicit ApplicationStack(std::size_t size);
    ~ApplicationStack();
    ApplicationStack(const ApplicationStack&) = delete;
    ApplicationStack& operator=(const ApplicationStack&) = delete;

private:
    struct Before;
    std::unique_ptr<Before> before_;
};

std::size_t StackOfThisThread();

}  // namespace tarvik::test
