#pragma once

namespace tarvik::test {

// While this object lives, every wait for a semaphore fails.
class SemaphoreFault {
public:
    SemaphoreFault();
    ~SemaphoreFault();
    SemaphoreFault(const SemaphoreFault&) = delete;
    SemaphoreFault& operator=(const SemaphoreFault&) = delete;
};

}  // namespace tarvik::test
