// Delegates of programs: the checks that Windows would make, and the events that call them.

#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "wine/bluetooth/lock.h"
#include "wine/bluetooth/object.h"
#include "wine/bluetooth/task_thread.h"

namespace brennix {

// A delegate must answer to its own id and to IAgileObject, without which calls would have to go to
// the thread that registered it, and to nothing else.
void CheckDelegate(IUnknown* delegate, const IID& id, const char* function);

// The handlers of one event of one object.
template <typename Handler>
class Handlers {
public:
    Handlers(const char* event, const IID& id) : event_(event), id_(id) {}
    ~Handlers() {
        if (!handlers_.empty())
            Violation(std::string("a handler of ") + event_ + " was never removed");
    }

    HRESULT Add(Handler* handler, Token* token) {
        CheckDelegate(handler, id_, event_);
        const std::lock_guard hold(lock_);
        token->value = ++last_token_;
        handlers_[token->value] = Ref<Handler>::Share(handler);
        return S_OK;
    }
    // Returns the removed handler; events for it may be in progress.
    Ref<Handler> Remove(Token token) {
        const std::lock_guard hold(lock_);
        const auto found = handlers_.find(token.value);
        if (found == handlers_.end()) {
            Violation(std::string("an unknown handler of ") + event_ + " removed");
            return {};
        }
        const Ref<Handler> handler = found->second;
        handlers_.erase(found);
        return handler;
    }
    std::vector<Ref<Handler>> All() const {
        const std::lock_guard hold(lock_);
        std::vector<Ref<Handler>> all;
        for (const auto& [token, handler] : handlers_)
            all.push_back(handler);
        return all;
    }

private:
    const char* const event_;
    const IID id_;
    mutable Lock lock_;
    std::map<INT64, Ref<Handler>> handlers_;  // guarded by lock_, as is the next
    INT64 last_token_ = 0;
};

// Calls all handlers on the thread. Keeps sender and arguments until then.
template <typename Handler, typename Sender, typename Arguments>
void Raise(TaskThread& thread, const std::vector<Ref<Handler>>& handlers, Ref<Sender> sender,
           Ref<Arguments> arguments) {
    if (handlers.empty()) return;
    thread.Post([handlers, sender, arguments] {
        for (const Ref<Handler>& handler : handlers)
            handler->Invoke(sender.Get(), arguments.Get());
    });
}

}  // namespace brennix
