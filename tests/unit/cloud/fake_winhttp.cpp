#include "unit/cloud/fake_winhttp.h"

#include <cstring>
#include <utility>

#include "unit/test_support.h"

namespace tarvik::test {
namespace {

FakeWinHttp* current = nullptr;

}  // namespace

FakeWinHttp::FakeWinHttp() { current = this; }
FakeWinHttp::~FakeWinHttp() { current = nullptr; }

FakeWinHttp& FakeWinHttp::Current() { return *current; }

bool FakeWinHttp::EventuallyClosesSession() const {
    return Eventually([this] {
        const std::lock_guard hold(lock_);
        return session_closed_;
    });
}

void FakeWinHttp::ReportClosings() {
    std::vector<std::pair<HINTERNET, DWORD_PTR>> closings;
    {
        const std::lock_guard hold(lock_);
        for (const HINTERNET handle : std::exchange(closed_, {})) {
            if (contexts_[handle] != 0) closings.emplace_back(handle, contexts_[handle]);
        }
    }
    for (auto [handle, context] : closings)
        callback_(handle, context, WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING, &handle, sizeof handle);
}

HANDLE FakeWinHttp::UnloadNotice() const {
    const std::vector<std::uint8_t> value = Option(WINHTTP_OPTION_UNLOAD_NOTIFY_EVENT);
    HANDLE notice = nullptr;
    if (value.size() == sizeof notice) std::memcpy(&notice, value.data(), sizeof notice);
    return notice;
}

bool FakeWinHttp::SetUnloadNotice() const { return ::SetEvent(UnloadNotice()) != FALSE; }

std::vector<std::uint8_t> FakeWinHttp::Option(DWORD option) const {
    const std::lock_guard hold(lock_);
    const auto found = options_.find(option);
    return found == options_.end() ? std::vector<std::uint8_t>() : found->second;
}

HINTERNET FakeWinHttp::Upgrade(DWORD_PTR context) {
    const std::lock_guard hold(lock_);
    contexts_[kWebSocket] = context;
    return kWebSocket;
}

BOOL FakeWinHttp::SetOption(HINTERNET handle, DWORD option, const void* value, DWORD size) {
    if (refused_options_.count(option) > 0) {
        ::SetLastError(ERROR_WINHTTP_INVALID_OPTION);
        return FALSE;
    }
    const std::lock_guard hold(lock_);
    if (option == WINHTTP_OPTION_CONTEXT_VALUE)
        std::memcpy(&contexts_[handle], value, sizeof(DWORD_PTR));
    const auto* bytes = static_cast<const std::uint8_t*>(value);
    if (handle == kSession) options_[option].assign(bytes, bytes + size);
    return TRUE;
}

void FakeWinHttp::Complete(HINTERNET handle, DWORD status) {
    DWORD_PTR context = 0;
    {
        const std::lock_guard hold(lock_);
        context = contexts_[handle];
    }
    callback_(handle, context, status, nullptr, 0);
}

BOOL FakeWinHttp::Close(HINTERNET handle) {
    const std::lock_guard hold(lock_);
    closed_.push_back(handle);
    session_closed_ = session_closed_ || handle == kSession;
    return TRUE;
}

}  // namespace tarvik::test

// ---------------------------------------------------------------- winhttp.h

using tarvik::test::FakeWinHttp;

extern "C" {

HINTERNET WINAPI WinHttpOpen(LPCWSTR, DWORD, LPCWSTR, LPCWSTR, DWORD) {
    return FakeWinHttp::Current().OpenSession();
}
WINHTTP_STATUS_CALLBACK WINAPI WinHttpSetStatusCallback(HINTERNET, WINHTTP_STATUS_CALLBACK callback,
                                                        DWORD, DWORD_PTR) {
    FakeWinHttp::Current().SetCallback(callback);
    return nullptr;
}
BOOL WINAPI WinHttpSetOption(HINTERNET handle, DWORD option, LPVOID value, DWORD size) {
    return FakeWinHttp::Current().SetOption(handle, option, value, size);
}
HINTERNET WINAPI WinHttpConnect(HINTERNET, LPCWSTR, INTERNET_PORT, DWORD) {
    return FakeWinHttp::kConnection;
}
HINTERNET WINAPI WinHttpOpenRequest(HINTERNET, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR*,
                                    DWORD) {
    return FakeWinHttp::Current().OpenRequest();
}
BOOL WINAPI WinHttpSendRequest(HINTERNET request, LPCWSTR, DWORD, LPVOID, DWORD, DWORD, DWORD_PTR) {
    FakeWinHttp::Current().Complete(request, WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE);
    return TRUE;
}
BOOL WINAPI WinHttpReceiveResponse(HINTERNET request, LPVOID) {
    FakeWinHttp::Current().Complete(request, WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE);
    return TRUE;
}
BOOL WINAPI WinHttpQueryHeaders(HINTERNET, DWORD, LPCWSTR, LPVOID value, LPDWORD, LPDWORD) {
    const DWORD status = HTTP_STATUS_SWITCH_PROTOCOLS;
    std::memcpy(value, &status, sizeof status);
    return TRUE;
}
HINTERNET WINAPI WinHttpWebSocketCompleteUpgrade(HINTERNET, DWORD_PTR context) {
    return FakeWinHttp::Current().Upgrade(context);
}
DWORD WINAPI WinHttpWebSocketReceive(HINTERNET, PVOID, DWORD, DWORD*,
                                     WINHTTP_WEB_SOCKET_BUFFER_TYPE*) {
    return ERROR_WINHTTP_CONNECTION_ERROR;
}
DWORD WINAPI WinHttpWebSocketSend(HINTERNET, WINHTTP_WEB_SOCKET_BUFFER_TYPE, PVOID, DWORD) {
    return ERROR_WINHTTP_CONNECTION_ERROR;
}
BOOL WINAPI WinHttpCloseHandle(HINTERNET handle) { return FakeWinHttp::Current().Close(handle); }

}  // extern "C"
