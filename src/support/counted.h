#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "support/memory.h"

// Objects in tracked blocks that live as long as there are references to them.
namespace tarvik {

template <typename T>
class Ref;

// Base of a type that Ref counts. The count starts at one, for the maker's reference.
class Counted {
public:
    // True while no other reference exists. Stays true only if nobody else can find the object.
    bool IsOnlyReference() const { return references_.load() == 1; }

protected:
    Counted() = default;
    ~Counted() = default;  // only the last Ref deletes an object
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

private:
    template <typename T>
    friend class Ref;
    std::atomic<std::uint32_t> references_{1};
};

// A counted reference; empty when there is none. The object's destructor runs on the thread that
// gives up the last one. Different Refs to one object may be used on different threads; a single
// Ref may not.
template <typename T>
class Ref {
public:
    Ref() = default;
    // Takes over one reference that the caller holds, for instance from Detach.
    static Ref Adopt(T* object) {
        Ref adopted;
        adopted.object_ = object;
        return adopted;
    }
    // Another reference to an object that has one already. Null gives an empty Ref.
    static Ref Share(T* object) {
        if (object != nullptr) object->references_.fetch_add(1, std::memory_order_relaxed);
        return Adopt(object);
    }

    Ref(const Ref& other) : Ref(Share(other.object_)) {}
    Ref(Ref&& other) noexcept : object_(other.Detach()) {}
    Ref& operator=(Ref other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~Ref() { Reset(); }

    void Reset() {
        T* object = Detach();
        if (object == nullptr) return;
        if (object->references_.fetch_sub(1, std::memory_order_acq_rel) == 1) DeleteTracked(object);
    }
    // Gives the reference to the caller, who hands it to Adopt later.
    [[nodiscard]] T* Detach() { return std::exchange(object_, nullptr); }

    explicit operator bool() const { return object_ != nullptr; }
    T* Get() const { return object_; }
    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }

private:
    T* object_ = nullptr;
};

// Makes an object with its first reference. Empty: memory is out.
template <typename T, typename... Args>
Ref<T> MakeCounted(Args&&... args) {
    return Ref<T>::Adopt(NewTracked<T>(std::forward<Args>(args)...));
}

}  // namespace tarvik
