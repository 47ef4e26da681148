#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace tarvik {

// Static storage for an object that is constructed at load and never destroyed: threads that
// outlive the end of main (a worker that could not be stopped) may still use it.
template <typename T>
class Immortal {
public:
    template <typename... Args>
    explicit Immortal(Args&&... args) {
        ::new (static_cast<void*>(storage_)) T(std::forward<Args>(args)...);
    }
    Immortal(const Immortal&) = delete;
    Immortal& operator=(const Immortal&) = delete;

    T& operator*() { return *std::launder(reinterpret_cast<T*>(storage_)); }
    T* operator->() { return &**this; }

private:
    alignas(T) std::byte storage_[sizeof(T)];
};

}  // namespace tarvik
