#pragma once

#include <windows.h>

#include <winhttp.h>

#include <map>
#include <mutex>
#include <set>
#include <vector>

namespace tarvik::test {

// Windows's HTTP service in this program: every call succeeds at once. That a handle is closed is
// reported when a test wants it. One at a time.
class FakeWinHttp {
public:
    FakeWinHttp();
    ~FakeWinHttp();
    FakeWinHttp(const FakeWinHttp&) = delete;
    FakeWinHttp& operator=(const FakeWinHttp&) = delete;

    void RefuseSession() { refuses_session_ = true; }
    void RefuseOption(DWORD option) { refused_options_.insert(option); }

    bool EventuallyClosesSession() const;
    // Calls back for every closed handle that reports to somebody. On the calling thread.
    void ReportClosings();
    // The event for the last callback's return. Null: nobody asked to be told.
    HANDLE UnloadNotice() const;
    bool SetUnloadNotice() const;

    // The value of an option of the session; empty: it was not set.
    std::vector<std::uint8_t> Option(DWORD option) const;

    // --- the library's side ---
    static FakeWinHttp& Current();
    HINTERNET OpenSession() const { return refuses_session_ ? nullptr : kSession; }
    HINTERNET OpenRequest() const { return kRequest; }
    HINTERNET Upgrade(DWORD_PTR context);
    BOOL SetOption(HINTERNET handle, DWORD option, const void* value, DWORD size);
    void SetCallback(WINHTTP_STATUS_CALLBACK callback) { callback_ = callback; }
    void Complete(HINTERNET handle, DWORD status);
    BOOL Close(HINTERNET handle);

    static inline const HINTERNET kSession = reinterpret_cast<HINTERNET>(1);
    static inline const HINTERNET kConnection = reinterpret_cast<HINTERNET>(2);

private:
    static inline const HINTERNET kRequest = reinterpret_cast<HINTERNET>(3);
    static inline const HINTERNET kWebSocket = reinterpret_cast<HINTERNET>(4);

    WINHTTP_STATUS_CALLBACK callback_ = nullptr;
    bool refuses_session_ = false;
    std::set<DWORD> refused_options_;
    mutable std::mutex lock_;  // guards all below
    std::map<DWORD, std::vector<std::uint8_t>> options_;
    std::map<HINTERNET, DWORD_PTR> contexts_;
    std::vector<HINTERNET> closed_;
    bool session_closed_ = false;
};

}  // namespace tarvik::test
