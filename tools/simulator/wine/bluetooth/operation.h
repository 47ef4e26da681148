// Asynchronous operations.

#pragma once

#include <functional>

#include "wine/bluetooth/delegate.h"

namespace brennix {

// Every other operation completes before its caller gets it.
bool NextIsEarly();

// Result: the type that GetResults returns. `Held` stores it until then.
template <typename Interface, typename Ids, typename Result, typename Held>
class Operation final : public Object<Interface, IAsyncInfoAbi> {
public:
    using Handler = typename Interface::Handler;
    using Base = Object<Interface, IAsyncInfoAbi>;

    Operation() : Base("operation") {}

    // Called by the stand-in, once. No effect if the operation was cancelled before.
    void Complete(Held result) {
        result_ = std::move(result);
        End(Completed, S_OK);
    }
    void Fail(HRESULT error) { End(Error, error); }
    // Unless the operation takes long.
    void WaitUntilOver() {
        const ULONGLONG begin = ::GetTickCount64();
        const std::lock_guard hold(lock_);
        while (status_ == Started && ::GetTickCount64() - begin < kEarlyMs)
            over_.Wait(lock_, kEarlyMs);
    }

    HRESULT STDMETHODCALLTYPE put_Completed(Handler* handler) override {
        if (const HRESULT fault = Enter("put_Completed")) return fault;
        CheckDelegate(handler, Ids::kHandler, "put_Completed");
        {
            const std::lock_guard hold(lock_);
            if (handler_set_) {
                Violation("put_Completed called twice");
                return static_cast<HRESULT>(0x80000018);  // E_ILLEGAL_DELEGATE_ASSIGNMENT
            }
            handler_set_ = true;
            if (status_ == Started) {
                handler_ = Ref<Handler>::Share(handler);
                return S_OK;
            }
        }
        handler->Invoke(this, status_);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Completed(Handler**) override {
        return NotOffered("IAsyncOperation", "get_Completed");
    }
    HRESULT STDMETHODCALLTYPE GetResults(Result* result) override {
        if (const HRESULT fault = Enter("GetResults")) return fault;
        const std::lock_guard hold(lock_);
        if (status_ == Error) return error_;
        if (status_ != Completed) {
            Violation("GetResults before the operation was over");
            return static_cast<HRESULT>(0x8000000E);  // E_ILLEGAL_METHOD_CALL
        }
        return Hand(result);
    }

    HRESULT STDMETHODCALLTYPE get_Id(UINT32*) override {
        return NotOffered("IAsyncInfo", "get_Id");
    }
    HRESULT STDMETHODCALLTYPE get_Status(AsyncStatus* status) override {
        const std::lock_guard hold(lock_);
        *status = status_;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_ErrorCode(HRESULT* error) override {
        const std::lock_guard hold(lock_);
        *error = error_;
        return S_OK;
    }
    // As on Windows, work in progress continues.
    HRESULT STDMETHODCALLTYPE Cancel() override {
        if (const HRESULT fault = Enter("Cancel")) return fault;
        End(Canceled, static_cast<HRESULT>(0x800704C7));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Close() override {
        const std::lock_guard hold(lock_);
        if (status_ != Started) return S_OK;
        Violation("Close of an operation before it was over");
        return static_cast<HRESULT>(0x8000000D);  // E_ILLEGAL_STATE_CHANGE
    }

private:
    static constexpr DWORD kEarlyMs = 50;

    HRESULT Hand(Result* result) {
        if constexpr (std::is_same_v<Result, Held>) {
            *result = result_;
            return S_OK;
        } else {
            SetHanded(result_.Get());
            return Held(result_).MoveTo(result);
        }
    }

    void End(AsyncStatus status, HRESULT error) {
        Ref<Handler> handler;
        {
            const std::lock_guard hold(lock_);
            if (status_ != Started) return;
            status_ = status;
            error_ = error;
            over_.WakeAll();
            handler = std::exchange(handler_, {});
        }
        if (!handler) return;
        Threads().completions.Post([self = Ref<Operation>::Share(this), handler, status] {
            handler->Invoke(self.Get(), status);
        });
    }

    Lock lock_;
    Condition over_;
    AsyncStatus status_ = Started;  // guarded by lock_, as are the others
    HRESULT error_ = S_OK;
    bool handler_set_ = false;
    Ref<Handler> handler_;
    Held result_{};  // set before the status changes
};

// Starts an operation of the function, unless a fault is planned for it. `begin` gets the operation
// and must let it end; `status_result` makes a result from a planned status.
template <typename Made, typename Interface>
HRESULT BeginOperation(const char* function, Interface** place,
                       const std::function<void(Ref<Made>)>& begin,
                       const std::function<void(Ref<Made>, INT32)>& complete_with_status) {
    if (const HRESULT fault = Enter(function)) return fault;
    Ref<Made> made = Make<Made>();
    const std::optional<Fault> fault = TakeFault(function);
    if (fault && fault->kind == Fault::Kind::kNone) {
        *place = nullptr;
        return S_OK;
    }
    if (!fault) {
        begin(made);
    } else if (fault->kind == Fault::Kind::kError) {
        made->Fail(fault->value);
    } else if (fault->kind == Fault::Kind::kStatus) {
        complete_with_status(made, fault->value);
    } else if (fault->kind == Fault::Kind::kNull) {
        made->Complete({});
    } else if (fault->kind == Fault::Kind::kCancel) {
        made->Cancel();
    }
    if (NextIsEarly()) made->WaitUntilOver();
    return made.MoveTo(place);
}

}  // namespace brennix
