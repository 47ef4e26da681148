// Deleter of a std::unique_ptr that owns an object of a C library.

#pragma once

namespace brennix {

template <auto release>
struct Releaser {
    template <typename T>
    void operator()(T* object) const {
        release(object);
    }
};

}  // namespace brennix
