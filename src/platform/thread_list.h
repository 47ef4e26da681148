#pragma once

#include <cstdint>

// The library's threads, from their start until they have ended and their handle is closed. Used by
// the platform's thread.cpp only.
namespace tarvik {

class ListedThread {
public:
    virtual ~ListedThread() = default;
    // True: no code of the library runs on the thread any more. May be called again.
    virtual bool HasEnded() = 0;
    virtual bool IsCurrent() const = 0;

private:
    friend class ThreadList;
    ListedThread* next_ = nullptr;
    bool closed_ = false;  // nobody has its handle any more
};

// Enters a thread that is about to start, and keeps the library loaded from now on. The list owns
// it from its closing.
void ListThread(ListedThread* thread);
// Takes out and deletes a thread that could not be started.
void UnlistThread(ListedThread* thread);
// Gives up the handle. The record is deleted once the thread has ended.
void CloseListedThread(ListedThread* thread);

}  // namespace tarvik
