// C++ binding of the D-PDU API (ISO 22900-2), for the library of any vendor: one header, C++17.
//
//     pdu::Library library = pdu::Library::Named("Vendor_Library_1_0");
//     pdu::Module  module  = library.Connect();
//     pdu::Link    link    = module.Open({0x7E0, 0x7E8});
//     pdu::Response vin    = link.Request({0x22, 0xF1, 0x90});
//
// Ownership. Library, Module, Link and RawLink are movable owners. Each keeps what it needs alive:
// PDUDestruct is called when the library and everything made from it are gone, in whatever order
// they go. A Response owns the library's item; its bytes live as long as it does.
//
// Errors, by choice of the caller. Functions throw pdu::Error, so that the shortest program is also
// right. Where an error is an ordinary outcome (requests, raw frames), a form with Try in its name
// returns a pdu::Result instead and neither throws nor allocates; pdu::Try(f) does the same for any
// other function. A negative response is an answer, not an error, unless Positive() is asked for.
//
// Threads. Different links may be opened and used on different threads at the same time; one link,
// and one Response, by one thread at a time. Handlers of events run on the library's threads; what
// a handler keeps alive may end there, too, so it should not own a Link, Module or Library.
//
// ComParams. Some libraries have one table of ComParams for the process (this project's does),
// others one for each link. With one table, what LinkOptions or SetComParam say of one link holds
// for all: give all links the same options, and use one link at a time if their options differ.
//
// Time. Time stamps of a module are 32 bits of microseconds and wrap every 71.6 minutes. Here they
// are std::chrono::microseconds that go on, whatever time passes between two of them.
//
// Allocation. After the first request of a link, requests and raw frames allocate nothing here.
//
// On Windows paths are UTF-8. On Linux link with the system's dl library if it is separate.

#ifndef DPDU_HPP
#define DPDU_HPP

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "dpdu_api.h"

// A header has no second file for the other system: this and detail::LoadSharedLibrary to OpenFile
// are all that differs. Windows' own header would bring its macros to every user, so these
// functions are declared as it declares them; a program may include it too.
#ifdef _WIN32
struct HINSTANCE__;
struct HKEY__;
extern "C" {
__declspec(dllimport) int __stdcall MultiByteToWideChar(unsigned int, unsigned long, const char*,
                                                        int, wchar_t*, int);
__declspec(dllimport) int __stdcall WideCharToMultiByte(unsigned int, unsigned long, const wchar_t*,
                                                        int, char*, int, const char*, int*);
__declspec(dllimport) unsigned long __stdcall GetFullPathNameW(const wchar_t*, unsigned long,
                                                               wchar_t*, wchar_t**);
__declspec(dllimport) HINSTANCE__* __stdcall LoadLibraryExW(const wchar_t*, void*, unsigned long);
__declspec(dllimport) long long(__stdcall* __stdcall GetProcAddress(HINSTANCE__*, const char*))();
__declspec(dllimport) unsigned long __stdcall GetLastError();
__declspec(dllimport) unsigned long __stdcall FormatMessageW(unsigned long, const void*,
                                                             unsigned long, unsigned long, wchar_t*,
                                                             unsigned long, va_list*);
__declspec(dllimport) long __stdcall RegGetValueW(HKEY__*, const wchar_t*, const wchar_t*,
                                                  unsigned long, unsigned long*, void*,
                                                  unsigned long*);
}
#ifdef _MSC_VER
#pragma comment(lib, "advapi32")
#endif
#else
#include <dlfcn.h>
#endif

namespace pdu {

using Milliseconds = std::chrono::milliseconds;
using Microseconds = std::chrono::microseconds;

// ---------------------------------------------------------------------------------------------
// Bytes
// ---------------------------------------------------------------------------------------------

/// Bytes of somebody else: made from any container of bytes, or from a braced list for the length
/// of a call.
class ByteView {
public:
    ByteView() = default;
    ByteView(const UNUM8* data, std::size_t size) : data_(data), size_(size) {}
    ByteView(std::initializer_list<UNUM8> bytes) : ByteView(std::data(bytes), bytes.size()) {}
    template <typename Container,
              typename = std::enable_if_t<std::is_convertible_v<
                  decltype(std::declval<const Container&>().data()), const UNUM8*>>>
    ByteView(const Container& bytes) : data_(bytes.data()), size_(bytes.size()) {}

    const UNUM8* data() const { return data_; }
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    const UNUM8* begin() const { return data_; }
    const UNUM8* end() const { return data_ + size_; }
    UNUM8 operator[](std::size_t position) const { return data_[position]; }

    /// What follows the first `count` bytes; nothing if there are fewer.
    ByteView From(std::size_t count) const {
        return count < size_ ? ByteView(data_ + count, size_ - count) : ByteView();
    }
    /// The bytes as they are, for texts such as a VIN.
    std::string Text() const { return {begin(), end()}; }
    std::vector<UNUM8> Copy() const { return {begin(), end()}; }

private:
    const UNUM8* data_ = nullptr;
    std::size_t size_ = 0;
};

// ---------------------------------------------------------------------------------------------
// Errors
// ---------------------------------------------------------------------------------------------

/// Name of a function's result, "PDU_ERR_INVALID_HANDLE"; null if the standard has none.
inline const char* StatusName(T_PDU_ERROR status) {
    struct Row {
        T_PDU_ERROR value;
        const char* name;
    };
#define DPDU_ROW_(constant) \
    Row { constant, #constant }
    static constexpr Row kRows[] = {
        DPDU_ROW_(PDU_STATUS_NOERROR),
        DPDU_ROW_(PDU_ERR_FCT_FAILED),
        DPDU_ROW_(PDU_ERR_RESERVED_1),
        DPDU_ROW_(PDU_ERR_COMM_PC_TO_VCI_FAILED),
        DPDU_ROW_(PDU_ERR_PDUAPI_NOT_CONSTRUCTED),
        DPDU_ROW_(PDU_ERR_SHARING_VIOLATION),
        DPDU_ROW_(PDU_ERR_RESOURCE_BUSY),
        DPDU_ROW_(PDU_ERR_RESOURCE_TABLE_CHANGED),
        DPDU_ROW_(PDU_ERR_RESOURCE_ERROR),
        DPDU_ROW_(PDU_ERR_CLL_NOT_CONNECTED),
        DPDU_ROW_(PDU_ERR_CLL_NOT_STARTED),
        DPDU_ROW_(PDU_ERR_INVALID_PARAMETERS),
        DPDU_ROW_(PDU_ERR_INVALID_HANDLE),
        DPDU_ROW_(PDU_ERR_VALUE_NOT_SUPPORTED),
        DPDU_ROW_(PDU_ERR_ID_NOT_SUPPORTED),
        DPDU_ROW_(PDU_ERR_COMPARAM_NOT_SUPPORTED),
        DPDU_ROW_(PDU_ERR_COMPARAM_LOCKED),
        DPDU_ROW_(PDU_ERR_TX_QUEUE_FULL),
        DPDU_ROW_(PDU_ERR_EVENT_QUEUE_EMPTY),
        DPDU_ROW_(PDU_ERR_VOLTAGE_NOT_SUPPORTED),
        DPDU_ROW_(PDU_ERR_MUX_RSC_NOT_SUPPORTED),
        DPDU_ROW_(PDU_ERR_CABLE_UNKNOWN),
        DPDU_ROW_(PDU_ERR_NO_CABLE_DETECTED),
        DPDU_ROW_(PDU_ERR_CLL_CONNECTED),
        DPDU_ROW_(PDU_ERR_TEMPPARAM_NOT_ALLOWED),
        DPDU_ROW_(PDU_ERR_RSC_LOCKED),
        DPDU_ROW_(PDU_ERR_RSC_LOCKED_BY_OTHER_CLL),
        DPDU_ROW_(PDU_ERR_RSC_NOT_LOCKED),
        DPDU_ROW_(PDU_ERR_MODULE_NOT_CONNECTED),
        DPDU_ROW_(PDU_ERR_API_SW_OUT_OF_DATE),
        DPDU_ROW_(PDU_ERR_MODULE_FW_OUT_OF_DATE),
        DPDU_ROW_(PDU_ERR_PIN_NOT_CONNECTED),
        DPDU_ROW_(PDU_ERR_IP_PROTOCOL_NOT_SUPPORTED),
        DPDU_ROW_(PDU_ERR_DOIP_ROUTING_ACTIVATION_FAILED),
        DPDU_ROW_(PDU_ERR_DOIP_ROUTING_ACTIVATION_AUTHENTICATION_FAILED),
        DPDU_ROW_(PDU_ERR_DOIP_AMBIGUOUS_LOGICAL_ADDRESS),
        DPDU_ROW_(PDU_ERR_DOIP_ROUTING_ACTIVATION_INVALID_SOURCE_ADDRESS),
        DPDU_ROW_(PDU_ERR_DOIP_ROUTING_ACTIVATION_NO_DATA_SOCKET_AVAILABLE),
        DPDU_ROW_(PDU_ERR_DOIP_ROUTING_ACTIVATION_SOURCE_ADDRESS_CHANGED),
        DPDU_ROW_(PDU_ERR_DOIP_ROUTING_ACTIVATION_SOURCE_ADDRESS_IN_USE),
        DPDU_ROW_(PDU_ERR_DOIP_ROUTING_ACTIVATION_CONFIRMATION_REJECTED),
        DPDU_ROW_(PDU_ERR_DOIP_ROUTING_ACTIVATION_TYPE_UNSUPPORTED),
        DPDU_ROW_(PDU_ERR_DOIP_ROUTING_ACTIVATION_RESPONSE_CODE_UNKNOWN),
        DPDU_ROW_(PDU_ERR_DOIP_ROUTING_ACTIVATION_RESPONSE_TIMEOUT),
        DPDU_ROW_(PDU_ERR_DOIP_RESPONSE_TIMEOUT),
        DPDU_ROW_(PDU_ERR_TLS_REQUIRED),
        DPDU_ROW_(PDU_ERR_TLS_CONF_INCOMPLETE),
        DPDU_ROW_(PDU_ERR_TLS_VERSION_AGREEMENT_FAILED),
        DPDU_ROW_(PDU_ERR_TLS_CIPHER_AGREEMENT_FAILED),
        DPDU_ROW_(PDU_ERR_TLS_CERT_VERIFY_FAILED),
        DPDU_ROW_(PDU_ERR_TLS_VERSION_NOT_SUPPORTED),
        DPDU_ROW_(PDU_ERR_TLS_CIPHER_NOT_SUPPORTED),
    };
#undef DPDU_ROW_
    for (const Row& row : kRows) {
        if (row.value == status) return row.name;
    }
    return nullptr;
}

/// Name of a code of an error item, "PDU_ERR_EVT_RX_TIMEOUT"; null if the standard has none.
inline const char* ErrorEventName(T_PDU_ERR_EVT code) {
    struct Row {
        T_PDU_ERR_EVT value;
        const char* name;
    };
#define DPDU_ROW_(constant) \
    Row { constant, #constant }
    static constexpr Row kRows[] = {
        DPDU_ROW_(PDU_ERR_EVT_NOERROR),          DPDU_ROW_(PDU_ERR_EVT_FRAME_STRUCT),
        DPDU_ROW_(PDU_ERR_EVT_TX_ERROR),         DPDU_ROW_(PDU_ERR_EVT_TESTER_PRESENT_ERROR),
        DPDU_ROW_(PDU_ERR_EVT_RSC_LOCKED),       DPDU_ROW_(PDU_ERR_EVT_RX_TIMEOUT),
        DPDU_ROW_(PDU_ERR_EVT_RX_ERROR),         DPDU_ROW_(PDU_ERR_EVT_PROT_ERR),
        DPDU_ROW_(PDU_ERR_EVT_LOST_COMM_TO_VCI), DPDU_ROW_(PDU_ERR_EVT_VCI_HARDWARE_FAULT),
        DPDU_ROW_(PDU_ERR_EVT_INIT_ERROR),
    };
#undef DPDU_ROW_
    for (const Row& row : kRows) {
        if (row.value == code) return row.name;
    }
    return nullptr;
}

/// Name of a state of a ComPrimitive, link or module, "PDU_CLLST_ONLINE"; null if the standard has
/// none.
inline const char* StateName(T_PDU_STATUS state) {
    struct Row {
        T_PDU_STATUS value;
        const char* name;
    };
#define DPDU_ROW_(constant) \
    Row { constant, #constant }
    static constexpr Row kRows[] = {
        DPDU_ROW_(PDU_COPST_IDLE),      DPDU_ROW_(PDU_COPST_EXECUTING),
        DPDU_ROW_(PDU_COPST_FINISHED),  DPDU_ROW_(PDU_COPST_CANCELLED),
        DPDU_ROW_(PDU_COPST_WAITING),   DPDU_ROW_(PDU_CLLST_OFFLINE),
        DPDU_ROW_(PDU_CLLST_ONLINE),    DPDU_ROW_(PDU_CLLST_COMM_STARTED),
        DPDU_ROW_(PDU_MODST_READY),     DPDU_ROW_(PDU_MODST_NOT_READY),
        DPDU_ROW_(PDU_MODST_NOT_AVAIL), DPDU_ROW_(PDU_MODST_AVAIL),
    };
#undef DPDU_ROW_
    for (const Row& row : kRows) {
        if (row.value == state) return row.name;
    }
    return nullptr;
}

enum class ErrorKind {
    kNoLibrary,   ///< the library cannot be loaded, lacks a function or is not in the root file
    kNoModule,    ///< no module, or none that matches; or several to choose from
    kModuleLost,  ///< the module was there and is gone
    kNoAnswer,    ///< no control unit answered in time
    kNegativeResponse,  ///< only by Response::Positive
    kRefused,           ///< a function of the library failed; see status
    kNotExecuted,       ///< the library has reported that something was not executed; see event
    kUnknownName,       ///< the library has no object or ComParam of this name
    kBadValue,          ///< a value does not fit its ComParam, or a frame is too long
};

/// Why something failed, as a value that allocates nothing.
struct Failure {
    ErrorKind kind = ErrorKind::kRefused;
    T_PDU_ERROR status = PDU_STATUS_NOERROR;    ///< of the function, if the kind is kRefused
    const char* function = "";                  ///< "PDUConnect"; empty if none is to blame
    T_PDU_ERR_EVT event = PDU_ERR_EVT_NOERROR;  ///< code of the last error item
    UNUM8 service = 0;                          ///< negative response: of the request
    UNUM8 code = 0;                             ///< negative response: its code

    std::string Text() const {
        char text[160];
        switch (kind) {
            case ErrorKind::kNoLibrary:
                return "no library";
            case ErrorKind::kNoModule:
                return "no module";
            case ErrorKind::kModuleLost:
                return "the module is gone";
            case ErrorKind::kNoAnswer:
                std::snprintf(text, sizeof text, "no answer (error event 0x%03X)",
                              static_cast<unsigned>(event));
                return text;
            case ErrorKind::kNegativeResponse:
                std::snprintf(text, sizeof text, "negative response 0x%02X to service 0x%02X", code,
                              service);
                return text;
            case ErrorKind::kRefused: {
                const char* name = StatusName(status);
                std::snprintf(text, sizeof text, "%s failed with %s (0x%02X)", function,
                              name ? name : "an unknown status", static_cast<unsigned>(status));
                return text;
            }
            case ErrorKind::kNotExecuted:
                std::snprintf(text, sizeof text, "not executed (error event 0x%03X)",
                              static_cast<unsigned>(event));
                return text;
            case ErrorKind::kUnknownName:
                return "unknown name";
            case ErrorKind::kBadValue:
                return "unsuitable value";
        }
        return "";
    }
};

/// What functions without Try throw.
class Error : public std::runtime_error {
public:
    explicit Error(const Failure& failure) : Error(failure, failure.Text()) {}
    Error(const Failure& failure, const std::string& text)
        : std::runtime_error(text), failure_(failure) {}
    Error(ErrorKind kind, const std::string& text) : Error(Failure{kind}, text) {}

    const Failure& Why() const { return failure_; }
    ErrorKind Kind() const { return failure_.kind; }

private:
    Failure failure_;
};

/// A value, or why there is none.
template <typename T>
class Result {
public:
    Result(T value) : content_(std::in_place_index<0>, std::move(value)) {}
    Result(const Failure& failure) : content_(std::in_place_index<1>, failure) {}

    explicit operator bool() const { return content_.index() == 0; }
    /// Only if there is a value.
    T& operator*() { return *std::get_if<0>(&content_); }
    const T& operator*() const { return *std::get_if<0>(&content_); }
    T* operator->() { return std::get_if<0>(&content_); }
    const T* operator->() const { return std::get_if<0>(&content_); }
    /// Only if there is none.
    const Failure& Why() const { return *std::get_if<1>(&content_); }
    /// The value; throws Error if there is none.
    T Take() && {
        if (!*this) throw Error(Why());
        return std::move(**this);
    }

private:
    std::variant<T, Failure> content_;
};

/// Success without a value, or why not.
template <>
class Result<void> {
public:
    Result() = default;
    Result(const Failure& failure) : failure_(failure) {}

    explicit operator bool() const { return !failure_; }
    /// Only if it has failed.
    const Failure& Why() const { return *failure_; }
    /// Throws Error if it has failed.
    void Take() && {
        if (failure_) throw Error(*failure_);
    }

private:
    std::optional<Failure> failure_;
};

/// Calls the function and returns its result, or the Failure of the Error that it throws.
template <typename Function>
auto Try(Function&& function) -> Result<std::decay_t<decltype(function())>> {
    try {
        if constexpr (std::is_void_v<decltype(function())>) {
            function();
            return {};
        } else {
            return function();
        }
    } catch (const Error& error) {
        return error.Why();
    }
}

// ---------------------------------------------------------------------------------------------
// The library's functions
// ---------------------------------------------------------------------------------------------

// clang-format off
#define DPDU_FUNCTIONS_(X)                                                         \
    X(Construct) X(Destruct) X(IoCtl) X(GetVersion) X(GetStatus) X(GetLastError)   \
    X(GetResourceStatus) X(CreateComLogicalLink) X(DestroyComLogicalLink)          \
    X(Connect) X(Disconnect) X(LockResource) X(UnlockResource) X(GetComParam)      \
    X(SetComParam) X(StartComPrimitive) X(CancelComPrimitive) X(GetEventItem)      \
    X(DestroyItem) X(RegisterEventCallback) X(GetObjectId) X(GetModuleIds)         \
    X(GetResourceIds) X(GetConflictingResources) X(GetUniqueRespIdTable)           \
    X(SetUniqueRespIdTable) X(ModuleConnect) X(ModuleDisconnect) X(GetTimestamp)
// clang-format on

/// All 29, none null in a loaded library.
struct Functions {
#define DPDU_MEMBER_(name) PDU##name##_Fn name = nullptr;
    DPDU_FUNCTIONS_(DPDU_MEMBER_)
#undef DPDU_MEMBER_
};

/// Id of an object; none if the library, which is constructed, does not know the name.
inline std::optional<UNUM32> FindId(const Functions& functions, T_PDU_OBJT type,
                                    const std::string& name) {
    UNUM32 id = PDU_ID_UNDEF;
    // The prototype takes the text without const; no library modifies it.
    const T_PDU_ERROR status = functions.GetObjectId(type, const_cast<CHAR8*>(name.c_str()), &id);
    // For an unknown name some libraries return an error, others an undefined id.
    if (status != PDU_STATUS_NOERROR || id == PDU_ID_UNDEF) return std::nullopt;
    return id;
}

/// As above; throws Error for an unknown name.
inline UNUM32 RequireId(const Functions& functions, T_PDU_OBJT type, const std::string& name) {
    const std::optional<UNUM32> id = FindId(functions, type, name);
    if (!id) {
        throw Error(ErrorKind::kUnknownName, "the library does not know the name '" + name + "'");
    }
    return *id;
}

/// An item that one of the library's functions returns through Out(), destroyed at the end of the
/// scope. The functions must live longer.
template <typename Record>
class Item {
public:
    explicit Item(const Functions& functions) : functions_(&functions) {}
    ~Item() {
        if (record_) functions_->DestroyItem(reinterpret_cast<PDU_ITEM*>(record_));
    }
    Item(const Item&) = delete;
    Item& operator=(const Item&) = delete;
    Record** Out() { return &record_; }
    Record* Get() const { return record_; }
    Record* operator->() const { return record_; }
    explicit operator bool() const { return record_ != nullptr; }

private:
    const Functions* functions_;
    Record* record_ = nullptr;
};

/// Extends 32-bit time stamps of one clock.
class StampClock {
public:
    using HostClock = std::chrono::steady_clock;

    /// The time of a stamp that was seen at `now`. Stamps may come in any order; one is placed
    /// right if it is less than 35 minutes off what the host's clock expects.
    Microseconds Extend(UNUM32 stamp, HostClock::time_point now = HostClock::now()) {
        const std::lock_guard<std::mutex> hold(lock_);
        if (!is_set_) {
            is_set_ = true;
            last_ = stamp;
            seen_ = now;
            return Microseconds(last_);
        }
        const auto passed = std::chrono::duration_cast<Microseconds>(now - seen_).count();
        const std::int64_t expected = last_ + passed;
        // The nearest time with these 32 bits; the difference is signed on purpose.
        const auto off = static_cast<SNUM32>(stamp - static_cast<UNUM32>(expected));
        const std::int64_t time = expected + off;
        if (time > last_) {
            last_ = time;
            seen_ = now;
        }
        return Microseconds(time);
    }

private:
    std::mutex lock_;
    bool is_set_ = false;           // guarded by lock_, as what follows
    std::int64_t last_ = 0;         // the latest time so far
    HostClock::time_point seen_{};  // when it was seen
};

class Event;

namespace detail {

constexpr Milliseconds kPoll{100};  // for libraries that do not call back
constexpr Milliseconds kCancelLimit{1000};
constexpr Milliseconds kCommunicationLimit{5000};
constexpr UNUM32 kLargest11BitId = 0x7FF;

// The standard's prototypes take texts and bytes without const; no library modifies them.
inline CHAR8* In(const std::string& text) { return const_cast<CHAR8*>(text.c_str()); }
inline UNUM8* In(ByteView bytes) { return const_cast<UNUM8*>(bytes.data()); }

// When a time that begins now ends; a time that is too long to count does not.
inline StampClock::HostClock::time_point EndOf(Milliseconds limit) {
    using TimePoint = StampClock::HostClock::time_point;
    const TimePoint now = StampClock::HostClock::now();
    const auto most = std::chrono::duration_cast<Milliseconds>(TimePoint::max() - now);
    return limit < most ? now + limit : TimePoint::max();
}

// The library's answer to a call for a module or link means that the module is gone. An unknown
// handle may mean it, too: see LinkBase::Start.
inline bool SaysLost(T_PDU_ERROR status) {
    return status == PDU_ERR_COMM_PC_TO_VCI_FAILED || status == PDU_ERR_MODULE_NOT_CONNECTED;
}

inline void Check(T_PDU_ERROR status, const char* function) {
    if (status == PDU_STATUS_NOERROR) return;
    Failure failure;
    failure.status = status;
    failure.function = function;
    throw Error(failure);
}

#ifdef _WIN32
inline std::wstring Wide(const std::string& text) {
    constexpr unsigned int kUtf8 = 65001;
    const int length = static_cast<int>(text.size());
    const int size = ::MultiByteToWideChar(kUtf8, 0, text.data(), length, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(size), L'\0');
    ::MultiByteToWideChar(kUtf8, 0, text.data(), length, wide.data(), size);
    return wide;
}

inline std::string Narrow(const std::wstring& text) {
    constexpr unsigned int kUtf8 = 65001;
    const int length = static_cast<int>(text.size());
    const int size =
        ::WideCharToMultiByte(kUtf8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(kUtf8, 0, text.data(), length, narrow.data(), size, nullptr, nullptr);
    return narrow;
}

inline std::string LastErrorText() {
    constexpr unsigned long kFromSystemWithoutInserts = 0x1200;
    const unsigned long code = ::GetLastError();
    std::array<wchar_t, 512> text{};
    unsigned long length = ::FormatMessageW(kFromSystemWithoutInserts, nullptr, code, 0,
                                            text.data(), text.size(), nullptr);
    while (length > 0 && text[length - 1] <= L' ')
        --length;
    return Narrow({text.data(), length}) + " (error " + std::to_string(code) + ")";
}

inline void* LoadSharedLibrary(const std::string& path, std::string* reason) {
    constexpr unsigned long kWithAlteredSearchPath = 8;
    constexpr unsigned long kRoom = 4096;
    const std::wstring wide = Wide(path);
    std::array<wchar_t, kRoom> full{};
    const unsigned long length = ::GetFullPathNameW(wide.c_str(), kRoom, full.data(), nullptr);
    const bool is_full = length > 0 && length < kRoom;
    // With the altered search path a vendor's library finds the libraries beside it.
    HINSTANCE__* const library = ::LoadLibraryExW(is_full ? full.data() : wide.c_str(), nullptr,
                                                  is_full ? kWithAlteredSearchPath : 0);
    if (!library) *reason = LastErrorText();
    return library;
}

inline void* FindFunction(void* library, const char* name) {
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HINSTANCE__*>(library), name));
}

inline std::string MachineRootFile() {
    constexpr unsigned long kTextIn64BitView = 0x00010002;
    auto* const machine = reinterpret_cast<HKEY__*>(static_cast<std::intptr_t>(-0x7FFFFFFE));
    std::array<wchar_t, 1024> path{};
    unsigned long size = sizeof path;
    const long status = ::RegGetValueW(machine, L"SOFTWARE\\D-PDU API", L"Root File",
                                       kTextIn64BitView, nullptr, path.data(), &size);
    return status == 0 ? Narrow(path.data()) : "";
}

inline std::ifstream OpenFile(const std::string& path) {
    return std::ifstream(std::filesystem::path(Wide(path)), std::ios::binary);
}
#else
inline void* LoadSharedLibrary(const std::string& path, std::string* reason) {
    void* library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        const char* text = ::dlerror();
        *reason = text ? text : "unknown reason";
        const std::string head = path + ": ";  // which callers name themselves
        if (reason->compare(0, head.size(), head) == 0) reason->erase(0, head.size());
    }
    return library;
}

inline void* FindFunction(void* library, const char* name) { return ::dlsym(library, name); }

inline std::string MachineRootFile() { return "/etc/pdu_api_root.xml"; }

inline std::ifstream OpenFile(const std::string& path) {
    return std::ifstream(path, std::ios::binary);
}
#endif

// ---- the root file: its form is fixed, so this reads elements by name and nothing else ----

// The text without comments, in which anything may stand.
inline std::string WithoutComments(std::string text) {
    for (std::size_t begin; (begin = text.find("<!--")) != std::string::npos;) {
        const std::size_t end = text.find("-->", begin + 4);
        text.erase(begin, end == std::string::npos ? end : end + 3 - begin);
    }
    return text;
}

inline std::string Unescaped(const std::string& text) {
    static constexpr std::pair<const char*, char> kNames[] = {
        {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&amp;", '&'}};
    std::string plain;
    for (std::size_t at = 0; at < text.size();) {
        const auto* found = std::find_if(
            std::begin(kNames), std::end(kNames), [&](const std::pair<const char*, char>& name) {
                return text.compare(at, std::strlen(name.first), name.first) == 0;
            });
        if (found == std::end(kNames)) {
            plain += text[at++];
        } else {
            plain += found->second;
            at += std::strlen(found->first);
        }
    }
    return plain;
}

inline std::string Trimmed(const std::string& text) {
    const char* const blanks = " \t\r\n";
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

// "NAME" and the end of the name: a longer name is another element.
inline std::size_t FindTag(const std::string& text, const std::string& name, std::size_t from) {
    for (std::size_t at = from; (at = text.find("<" + name, at)) != std::string::npos; ++at) {
        const std::size_t end = at + 1 + name.size();
        if (end < text.size() && std::strchr(" \t\r\n/>", text[end])) return at;
    }
    return std::string::npos;
}

inline std::string ElementText(const std::string& text, const std::string& name) {
    const std::size_t tag = FindTag(text, name, 0);
    const std::size_t begin = tag == std::string::npos ? tag : text.find('>', tag);
    const std::size_t end = begin == std::string::npos ? begin : text.find('<', begin);
    if (end == std::string::npos) return "";
    return Unescaped(Trimmed(text.substr(begin + 1, end - begin - 1)));
}

// The path of the address of an element such as LIBRARY_FILE; empty if there is none.
inline std::string ElementPath(const std::string& text, const std::string& name) {
    const std::size_t tag = FindTag(text, name, 0);
    if (tag == std::string::npos) return "";
    const std::string head = text.substr(tag, text.find('>', tag) - tag);
    const std::size_t key = head.find("URI");
    const std::size_t open = key == std::string::npos ? key : head.find_first_of("\"'", key);
    const std::size_t close = open == std::string::npos ? open : head.find(head[open], open + 1);
    if (close == std::string::npos) return "";
    const std::string uri = Unescaped(head.substr(open + 1, close - open - 1));
    const std::string scheme = "file:///";
    if (uri.compare(0, scheme.size(), scheme) != 0) return "";
    const std::string path = uri.substr(scheme.size());
    const bool has_drive = path.size() > 2 && path[1] == ':' && path[2] == '/';
    return has_drive ? path : "/" + path;
}

struct ConnectedModule;

// What everything made from a library shares. Constructed until the last of them is gone.
class Context {
public:
    using Handler = std::function<void(T_PDU_EVT_DATA)>;

    Context(const Functions& functions, std::string options)
        : functions_(functions), options_(std::move(options)) {
        Check(functions_.Construct(options_.empty() ? nullptr : In(options_), this),
              "PDUConstruct");
        // A library without callbacks is still usable: the queues are also polled.
        Watch(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF);
    }
    ~Context() {
        Unwatch(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF);
        Discard(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF);
        functions_.Destruct();
    }
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    const Functions& F() const { return functions_; }
    // Held from PDUGetComParam until its item has been copied, and while a link is set up: what the
    // item points to may belong to all links.
    std::recursive_mutex& ComParams() { return comparams_; }

    void Watch(UNUM32 module, UNUM32 link) {
        functions_.RegisterEventCallback(module, link, &Context::OnEvent);
    }
    void Unwatch(UNUM32 module, UNUM32 link) {
        functions_.RegisterEventCallback(module, link, nullptr);
        SetHandler(module, link, nullptr);
    }
    void SetHandler(UNUM32 module, UNUM32 link, Handler handler) {
        std::shared_ptr<const Handler> next;
        if (handler) next = std::make_shared<const Handler>(std::move(handler));
        // The one before is destroyed without the lock: it may own what takes it.
        const std::lock_guard<std::mutex> hold(lock_);
        std::shared_ptr<const Handler>& place = handlers_[{module, link}];
        place.swap(next);
        if (!place) handlers_.erase({module, link});
    }

    // The owner of a module that is connected. Null: the caller is to connect it, and to call
    // ModuleConnected or ModuleGone. Waits while another thread connects or disconnects it.
    std::shared_ptr<ConnectedModule> FindModule(UNUM32 module) {
        std::unique_lock<std::mutex> hold(lock_);
        for (;;) {
            const auto [place, is_new] = modules_.try_emplace(module);
            if (is_new) return nullptr;
            if (std::shared_ptr<ConnectedModule> owner = place->second.lock()) return owner;
            changed_.wait(hold);
        }
    }
    void ModuleConnected(UNUM32 module, const std::shared_ptr<ConnectedModule>& owner) {
        {
            const std::lock_guard<std::mutex> hold(lock_);
            modules_[module] = owner;
        }
        changed_.notify_all();
    }
    void ModuleGone(UNUM32 module) {
        {
            const std::lock_guard<std::mutex> hold(lock_);
            modules_.erase(module);
        }
        changed_.notify_all();
    }

    std::uint64_t Events() {
        const std::lock_guard<std::mutex> hold(lock_);
        return events_;
    }
    // Returns when there was an event after `seen`, or after a short time.
    void WaitAfter(std::uint64_t seen, StampClock::HostClock::time_point until) {
        std::unique_lock<std::mutex> hold(lock_);
        const auto soon = StampClock::HostClock::now() + kPoll;
        changed_.wait_until(hold, std::min(until, soon), [&] { return events_ != seen; });
    }

    void Discard(UNUM32 module, UNUM32 link) {
        PDU_EVENT_ITEM* item = nullptr;
        while (functions_.GetEventItem(module, link, &item) == PDU_STATUS_NOERROR && item) {
            functions_.DestroyItem(reinterpret_cast<PDU_ITEM*>(item));
            item = nullptr;
        }
    }

    std::optional<UNUM32> FindId(T_PDU_OBJT type, const std::string& name) const {
        return pdu::FindId(functions_, type, name);
    }
    UNUM32 Id(T_PDU_OBJT type, const std::string& name) const {
        return RequireId(functions_, type, name);
    }

private:
    // An exception that leaves the user's handler ends the process: the library could not pass it
    // on.
    static void PDU_CALL OnEvent(T_PDU_EVT_DATA type, UNUM32 module, UNUM32 link, void*,
                                 void* api_tag) noexcept {
        auto* const context = static_cast<Context*>(api_tag);
        if (!context) return;
        std::shared_ptr<const Handler> handler;
        {
            const std::lock_guard<std::mutex> hold(context->lock_);
            ++context->events_;
            const auto found = context->handlers_.find({module, link});
            if (found != context->handlers_.end()) handler = found->second;
        }
        context->changed_.notify_all();
        if (handler) (*handler)(type);
    }

    Functions functions_;
    std::string options_;  // some libraries keep the pointer
    std::recursive_mutex comparams_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::uint64_t events_ = 0;  // guarded by lock_, as what follows
    std::map<std::pair<UNUM32, UNUM32>, std::shared_ptr<const Handler>> handlers_;
    std::map<UNUM32, std::weak_ptr<ConnectedModule>> modules_;
};

using ContextPtr = std::shared_ptr<Context>;

// A connected module, until the last of its owners is gone.
struct ConnectedModule {
    static std::shared_ptr<ConnectedModule> Connect(const ContextPtr& context, UNUM32 module) {
        if (std::shared_ptr<ConnectedModule> owner = context->FindModule(module)) return owner;
        try {
            auto owner = std::make_shared<ConnectedModule>(context, module);
            context->ModuleConnected(module, owner);
            return owner;
        } catch (...) {
            context->ModuleGone(module);
            throw;
        }
    }

    // For Connect only.
    ConnectedModule(ContextPtr used, UNUM32 module) : context(std::move(used)), handle(module) {
        Check(context->F().ModuleConnect(handle), "PDUModuleConnect");
        context->Watch(handle, PDU_HANDLE_UNDEF);
    }
    ~ConnectedModule() {
        context->Unwatch(handle, PDU_HANDLE_UNDEF);
        context->Discard(handle, PDU_HANDLE_UNDEF);
        context->F().ModuleDisconnect(handle);
        context->ModuleGone(handle);
    }
    ConnectedModule(const ConnectedModule&) = delete;
    ConnectedModule& operator=(const ConnectedModule&) = delete;

    // Some libraries notice only while they look for modules, so they are made to.
    bool IsGone() const {
        Item<PDU_MODULE_ITEM> list(context->F());
        context->F().GetModuleIds(list.Out());
        T_PDU_STATUS state = PDU_MODST_READY;
        UNUM32 timestamp = 0;
        UNUM32 extra = 0;
        const T_PDU_ERROR status = context->F().GetStatus(
            handle, PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, &state, &timestamp, &extra);
        return state == PDU_MODST_NOT_AVAIL || status == PDU_ERR_INVALID_HANDLE;
    }

    // The next item of its queue, or of a link's.
    Event TakeEvent(UNUM32 link);

    ContextPtr context;
    UNUM32 handle;
    StampClock clock;
};

using ModulePtr = std::shared_ptr<ConnectedModule>;

}  // namespace detail

/// A loaded file with the functions of a library. It stays loaded until the process ends: threads
/// of it may still end after PDUDestruct. Library::At uses it; by itself it is for programs that
/// look at a library before they construct it, or that are content without some functions.
class LibraryFile {
public:
    explicit LibraryFile(const std::string& path)
        : handle_(detail::LoadSharedLibrary(path, &reason_)) {
        if (!handle_) return;
#define DPDU_FIND_(name)                                                              \
    functions_.name =                                                                 \
        reinterpret_cast<PDU##name##_Fn>(detail::FindFunction(handle_, "PDU" #name)); \
    if (!functions_.name) missing_.push_back("PDU" #name);
        DPDU_FUNCTIONS_(DPDU_FIND_)
#undef DPDU_FIND_
    }

    /// True if the file is loaded.
    explicit operator bool() const { return handle_ != nullptr; }
    /// Why it is not, in the system's words.
    const std::string& Reason() const { return reason_; }
    /// Null where the file lacks one.
    const Functions& F() const { return functions_; }
    /// Names of the functions that a loaded file lacks.
    const std::vector<std::string>& Missing() const { return missing_; }

private:
    std::string reason_;
    void* handle_;
    Functions functions_;
    std::vector<std::string> missing_;
};

// ---------------------------------------------------------------------------------------------
// Events and responses
// ---------------------------------------------------------------------------------------------

/// An item from an event queue; owns it.
class Event {
public:
    Event() = default;
    /// `time` is that of the item's stamp when the item was taken: later its wraps are unknown.
    Event(detail::ContextPtr context, PDU_EVENT_ITEM* item, Microseconds time)
        : context_(std::move(context)), item_(item), time_(time) {}
    Event(Event&& other) noexcept
        : context_(std::move(other.context_)),
          item_(std::exchange(other.item_, nullptr)),
          time_(other.time_) {}
    Event& operator=(Event&& other) noexcept {
        std::swap(context_, other.context_);
        std::swap(item_, other.item_);
        std::swap(time_, other.time_);
        return *this;
    }
    ~Event() {
        if (item_) context_->F().DestroyItem(reinterpret_cast<PDU_ITEM*>(item_));
    }

    explicit operator bool() const { return item_ != nullptr; }
    const PDU_EVENT_ITEM* Raw() const { return item_; }
    UNUM32 ComPrimitive() const { return item_ ? item_->hCop : PDU_HANDLE_UNDEF; }
    /// Of the module's clock; 0 if there is no item.
    Microseconds Time() const { return time_; }

    /// The data if the item is of this kind, else null.
    const PDU_RESULT_DATA* Result() const { return Data<PDU_RESULT_DATA>(PDU_IT_RESULT); }
    const PDU_ERROR_DATA* Error() const { return Data<PDU_ERROR_DATA>(PDU_IT_ERROR); }
    const PDU_INFO_DATA* Info() const { return Data<PDU_INFO_DATA>(PDU_IT_INFO); }
    /// The state of a status item; 0 for any other.
    T_PDU_STATUS State() const {
        const auto* state = Data<PDU_STATUS_DATA>(PDU_IT_STATUS);
        return state ? *state : 0;
    }

private:
    template <typename Record>
    const Record* Data(T_PDU_IT type) const {
        return item_ && item_->ItemType == type ? static_cast<const Record*>(item_->pData)
                                                : nullptr;
    }

    detail::ContextPtr context_;
    PDU_EVENT_ITEM* item_ = nullptr;
    Microseconds time_{0};
};

inline Event detail::ConnectedModule::TakeEvent(UNUM32 link) {
    PDU_EVENT_ITEM* item = nullptr;
    if (context->F().GetEventItem(handle, link, &item) != PDU_STATUS_NOERROR || !item) return {};
    return Event(context, item, clock.Extend(item->Timestamp));
}

/// An answer of a control unit; owns its bytes. Empty if a request has no answer by intention.
class Response {
public:
    Response() = default;
    explicit Response(Event event) : event_(std::move(event)) {}

    explicit operator bool() const { return static_cast<bool>(event_); }
    ByteView Data() const {
        const PDU_RESULT_DATA* result = event_.Result();
        return result && result->pDataBytes ? ByteView(result->pDataBytes, result->NumDataBytes)
                                            : ByteView();
    }
    /// What follows the first `count` bytes, such as the service and what it repeats.
    ByteView From(std::size_t count) const { return Data().From(count); }
    bool IsNegative() const { return Data().size() >= 3 && Data()[0] == 0x7F; }
    /// Code of a negative response, else 0.
    UNUM8 NegativeCode() const { return IsNegative() ? Data()[2] : UNUM8{0}; }
    /// This response; throws Error if it is negative.
    const Response& Positive() const {
        if (!IsNegative()) return *this;
        Failure failure;
        failure.kind = ErrorKind::kNegativeResponse;
        failure.service = Data()[1];
        failure.code = Data()[2];
        throw Error(failure);
    }
    /// Position of the control unit among those of the link.
    UNUM32 Unit() const { return event_.Result() ? event_.Result()->UniqueRespIdentifier : 0; }
    /// Of the module's clock; 0 if it is empty. How exact it is depends on the library.
    Microseconds Time() const { return event_.Time(); }

private:
    Event event_;
};

// ---------------------------------------------------------------------------------------------
// ComParams
// ---------------------------------------------------------------------------------------------

/// A ComParam's value, copied from the library.
struct ComParam {
    UNUM32 id = PDU_ID_UNDEF;
    T_PDU_PT type = PDU_PT_UNUM32;
    T_PDU_PC param_class = PDU_PC_TIMING;
    std::int64_t number = 0;     ///< number types
    std::vector<UNUM8> bytes;    ///< PDU_PT_BYTEFIELD; PDU_PT_STRUCTFIELD: its records as they are
    std::vector<UNUM32> words;   ///< PDU_PT_LONGFIELD
    T_PDU_CPST struct_type = 0;  ///< PDU_PT_STRUCTFIELD
};

namespace detail {

inline std::size_t NumberSize(T_PDU_PT type) {
    switch (type) {
        case PDU_PT_UNUM8:
        case PDU_PT_SNUM8:
            return 1;
        case PDU_PT_UNUM16:
        case PDU_PT_SNUM16:
            return 2;
        case PDU_PT_UNUM32:
        case PDU_PT_SNUM32:
            return 4;
        default:
            return 0;
    }
}

inline bool IsSigned(T_PDU_PT type) {
    return type == PDU_PT_SNUM8 || type == PDU_PT_SNUM16 || type == PDU_PT_SNUM32;
}

inline std::size_t StructSize(T_PDU_CPST type) {
    switch (type) {
        case PDU_CPST_SESSION_TIMING:
            return sizeof(PDU_PARAM_STRUCT_SESS_TIMING);
        case PDU_CPST_ACCESS_TIMING:
            return sizeof(PDU_PARAM_STRUCT_ACCESS_TIMING);
        case PDU_CPST_TLS_VERSION_AND_CIPHER:
            return sizeof(PDU_PARAM_STRUCT_TLS_VERSION_AND_CIPHER);
        default:
            return 0;
    }
}

inline std::int64_t ReadNumber(T_PDU_PT type, const void* data) {
    UNUM32 bits = 0;  // of a little-endian number, the low bytes
    std::memcpy(&bits, data, NumberSize(type));
    switch (type) {
        case PDU_PT_SNUM8:
            return static_cast<SNUM8>(bits);
        case PDU_PT_SNUM16:
            return static_cast<SNUM16>(bits);
        case PDU_PT_SNUM32:
            return static_cast<SNUM32>(bits);
        default:
            return bits;
    }
}

inline bool FitsNumber(T_PDU_PT type, std::int64_t value) {
    const auto bits = static_cast<unsigned>(8 * NumberSize(type));
    if (bits == 0) return false;
    const std::int64_t half = std::int64_t{1} << (bits - 1);
    return IsSigned(type) ? value >= -half && value < half : value >= 0 && value < 2 * half;
}

inline ComParam ReadComParam(const PDU_PARAM_ITEM& item) {
    ComParam param;
    param.id = item.ComParamId;
    param.type = item.ComParamDataType;
    param.param_class = item.ComParamClass;
    if (!item.pComParamData) return param;
    if (NumberSize(param.type) > 0) {
        param.number = ReadNumber(param.type, item.pComParamData);
    } else if (param.type == PDU_PT_BYTEFIELD) {
        const auto& field = *static_cast<const PDU_PARAM_BYTEFIELD_DATA*>(item.pComParamData);
        if (field.pDataArray)
            param.bytes.assign(field.pDataArray, field.pDataArray + field.ParamActLen);
    } else if (param.type == PDU_PT_LONGFIELD) {
        const auto& field = *static_cast<const PDU_PARAM_LONGFIELD_DATA*>(item.pComParamData);
        if (field.pDataArray)
            param.words.assign(field.pDataArray, field.pDataArray + field.ParamActLen);
    } else if (param.type == PDU_PT_STRUCTFIELD) {
        const auto& field = *static_cast<const PDU_PARAM_STRUCTFIELD_DATA*>(item.pComParamData);
        param.struct_type = field.ComParamStructType;
        const auto* records = static_cast<const UNUM8*>(field.pStructArray);
        const std::size_t size = StructSize(field.ComParamStructType) * field.ParamActEntries;
        if (records) param.bytes.assign(records, records + size);
    }
    return param;
}

}  // namespace detail

// ---------------------------------------------------------------------------------------------
// Links
// ---------------------------------------------------------------------------------------------

/// CAN identifiers of a control unit; above 7FF they have 29 bits.
struct Unit {
    UNUM32 request_id = 0x7E0;
    UNUM32 response_id = 0x7E8;
};

struct LinkOptions {
    std::string protocol = "ISO_15765_3_on_ISO_15765_2";
    std::string bus_type = "ISO_11898_2_DWCAN";
    Milliseconds p2{1000};                       ///< CP_P2Max
    std::optional<Milliseconds> tester_present;  ///< its period; none: no tester present
    std::vector<UNUM8> tester_present_message{0x3E, 0x80};
    std::optional<UNUM32>
        functional_id;  ///< set: requests go to all units at once on this identifier
};

namespace detail {

// A logical link: created, and connected when Connect is called.
class LinkBase {
public:
    LinkBase(ModulePtr module, const std::string& protocol, const std::string& bus_type,
             bool is_raw)
        : module_(std::move(module)), context_(module_->context) {
        PDU_PIN_DATA pins[2];
        PDU_RSC_DATA resource = {};
        resource.BusTypeId = context_->Id(PDU_OBJT_BUSTYPE, bus_type);
        resource.ProtocolId = context_->Id(PDU_OBJT_PROTOCOL, protocol);
        resource.pDLCPinData = pins;
        // The pins of the diagnostic CAN bus; those whose types the library does not know are left
        // out.
        constexpr std::pair<const char*, UNUM32> kPins[] = {{"HI", 6}, {"LOW", 14}};
        for (const auto& [type, number] : kPins) {
            const std::optional<UNUM32> id = context_->FindId(PDU_OBJT_PINTYPE, type);
            if (id) pins[resource.NumPinData++] = {number, *id};
        }
        UNUM8 flags[4] = {static_cast<UNUM8>(is_raw ? PDU_CREATE_FLAG0_RAW_MODE : 0), 0, 0, 0};
        PDU_FLAG_DATA create_flag = {sizeof flags, flags};
        Check(F().CreateComLogicalLink(Module(), &resource, PDU_ID_UNDEF, nullptr, &handle_,
                                       &create_flag),
              "PDUCreateComLogicalLink");
        context_->Watch(Module(), handle_);
    }
    ~LinkBase() {
        if (is_connected_) F().Disconnect(Module(), handle_);
        context_->Unwatch(Module(), handle_);
        context_->Discard(Module(), handle_);
        F().DestroyComLogicalLink(Module(), handle_);
    }
    LinkBase(const LinkBase&) = delete;
    LinkBase& operator=(const LinkBase&) = delete;

    const Functions& F() const { return context_->F(); }
    UNUM32 Module() const { return module_->handle; }
    UNUM32 Handle() const { return handle_; }
    bool IsModuleGone() const { return module_->IsGone(); }
    const ContextPtr& Shared() const { return context_; }

    void Connect() {
        Require(F().Connect(Module(), handle_), "PDUConnect");
        is_connected_ = true;
    }

    Event TakeEvent() const { return module_->TakeEvent(handle_); }

    // Of a call for this link that has failed.
    Failure FailureOf(T_PDU_ERROR status, const char* function) const {
        Failure failure;
        failure.status = status;
        failure.function = function;
        const bool may_be_lost =
            status == PDU_ERR_INVALID_HANDLE || status == PDU_ERR_CLL_NOT_CONNECTED;
        if (SaysLost(status) || (may_be_lost && IsModuleGone()))
            failure.kind = ErrorKind::kModuleLost;
        return failure;
    }
    void Require(T_PDU_ERROR status, const char* function) const {
        if (status != PDU_STATUS_NOERROR) throw Error(FailureOf(status, function));
    }

    // Null if the ComPrimitive was accepted, else why not.
    std::optional<Failure> Start(T_PDU_COPT type, ByteView data, PDU_COP_CTRL_DATA* control,
                                 UNUM32* handle) const {
        const T_PDU_ERROR status =
            F().StartComPrimitive(Module(), handle_, type, static_cast<UNUM32>(data.size()),
                                  In(data), control, nullptr, handle);
        if (status == PDU_STATUS_NOERROR) return std::nullopt;
        return FailureOf(status, "PDUStartComPrimitive");
    }

    // Executes a ComPrimitive to its end and passes its results on, and the events of others.
    // PDU_ERR_EVT_NOERROR, or the code of its last error item; kNoAnswer if it does not end in
    // time: it is cancelled then, as also if on_result throws.
    template <typename OnResult, typename OnOther>
    Result<T_PDU_ERR_EVT> Execute(T_PDU_COPT type, ByteView data, PDU_COP_CTRL_DATA* control,
                                  Milliseconds limit, OnResult&& on_result,
                                  OnOther&& on_other) const {
        UNUM32 handle = PDU_HANDLE_UNDEF;
        if (const std::optional<Failure> refused = Start(type, data, control, &handle))
            return *refused;
        Running<std::remove_reference_t<OnOther>> running(*this, handle, on_other);
        const auto deadline = EndOf(limit);
        T_PDU_ERR_EVT error = PDU_ERR_EVT_NOERROR;
        for (;;) {
            const std::uint64_t seen = context_->Events();
            while (Event event = TakeEvent()) {
                const bool is_ours = event.ComPrimitive() == handle;
                const PDU_ERROR_DATA* error_data = event.Error();
                // An error without a ComPrimitive is one of the link.
                if (error_data && (is_ours || event.ComPrimitive() == PDU_HANDLE_UNDEF)) {
                    error = error_data->ErrorCodeId;
                }
                if (!is_ours) {
                    on_other(std::move(event));
                    continue;
                }
                if (IsFinal(event.State())) running.End();
                if (event.Result()) on_result(Response(std::move(event)));
            }
            if (running.HasEnded()) return error;
            if (StampClock::HostClock::now() >= deadline) {
                Failure failure;
                failure.kind = ErrorKind::kNoAnswer;
                failure.event = error;
                return failure;
            }
            context_->WaitAfter(seen, deadline);
        }
    }

    // For a ComPrimitive that has no answers.
    template <typename OnOther>
    Result<void> ExecuteToSuccess(T_PDU_COPT type, PDU_COP_CTRL_DATA* control,
                                  OnOther&& on_other) const {
        const Result<T_PDU_ERR_EVT> error = Execute(
            type, {}, control, kCommunicationLimit, [](const Response&) {}, on_other);
        if (!error) return error.Why();
        if (*error == PDU_ERR_EVT_NOERROR) return {};
        return NotExecuted(*error);
    }
    static Failure NotExecuted(T_PDU_ERR_EVT error) {
        Failure failure;
        failure.kind = error == PDU_ERR_EVT_LOST_COMM_TO_VCI ? ErrorKind::kModuleLost
                                                             : ErrorKind::kNotExecuted;
        failure.event = error;
        return failure;
    }

    static bool IsFinal(T_PDU_STATUS state) {
        return state == PDU_COPST_FINISHED || state == PDU_COPST_CANCELLED;
    }

    ComParam Get(const std::string& name) const {
        const UNUM32 id = context_->Id(PDU_OBJT_COMPARAM, name);
        const std::lock_guard<std::recursive_mutex> hold(context_->ComParams());
        Item<PDU_PARAM_ITEM> item(F());
        Require(F().GetComParam(Module(), handle_, id, item.Out()), "PDUGetComParam");
        if (!item) throw Error(ErrorKind::kUnknownName, "no ComParam '" + name + "' on this link");
        return ReadComParam(*item.Get());
    }

    void Store(const ComParam& param, const std::string& name) const {
        PDU_PARAM_BYTEFIELD_DATA bytes = {};
        PDU_PARAM_LONGFIELD_DATA words = {};
        PDU_PARAM_STRUCTFIELD_DATA records = {};
        UNUM32 number = static_cast<UNUM32>(param.number);  // narrower types read the low bytes
        PDU_PARAM_ITEM item = {PDU_IT_PARAM, param.id, param.type, param.param_class, &number};
        if (param.type == PDU_PT_BYTEFIELD) {
            bytes.ParamMaxLen = bytes.ParamActLen = static_cast<UNUM32>(param.bytes.size());
            bytes.pDataArray = In(ByteView(param.bytes));
            item.pComParamData = &bytes;
        } else if (param.type == PDU_PT_LONGFIELD) {
            words.ParamMaxLen = words.ParamActLen = static_cast<UNUM32>(param.words.size());
            words.pDataArray = const_cast<UNUM32*>(param.words.data());
            item.pComParamData = &words;
        } else if (param.type == PDU_PT_STRUCTFIELD) {
            const std::size_t size = StructSize(param.struct_type);
            if (size == 0) {
                throw Error(ErrorKind::kBadValue,
                            "the records of ComParam " + name + " are of an unknown type");
            }
            records.ComParamStructType = param.struct_type;
            records.ParamMaxEntries = records.ParamActEntries =
                static_cast<UNUM32>(param.bytes.size() / size);
            records.pStructArray = In(ByteView(param.bytes));
            item.pComParamData = &records;
        } else if (!FitsNumber(param.type, param.number)) {
            throw Error(ErrorKind::kBadValue,
                        std::to_string(param.number) + " does not fit ComParam " + name);
        }
        const std::lock_guard<std::recursive_mutex> hold(context_->ComParams());
        Require(F().SetComParam(Module(), handle_, &item), "PDUSetComParam");
    }

    void Set(const std::string& name, std::int64_t value) const {
        const std::lock_guard<std::recursive_mutex> hold(context_->ComParams());
        ComParam param = Get(name);
        param.number = value;
        if (NumberSize(param.type) == 0)
            throw Error(ErrorKind::kBadValue, "ComParam " + name + " is no number");
        Store(param, name);
    }
    // For what not every library has.
    void TrySet(const std::string& name, std::int64_t value) const {
        try {
            Set(name, value);
        } catch (const Error&) {
        }
    }

private:
    // Cancels the ComPrimitive unless it has ended, and gives it time to end.
    template <typename OnOther>
    class Running {
    public:
        Running(const LinkBase& link, UNUM32 handle, OnOther& on_other)
            : link_(link), handle_(handle), on_other_(on_other) {}
        ~Running() {
            if (has_ended_) return;
            link_.F().CancelComPrimitive(link_.Module(), link_.Handle(), handle_);
            const auto deadline = EndOf(kCancelLimit);
            while (!has_ended_ && StampClock::HostClock::now() < deadline) {
                const std::uint64_t seen = link_.context_->Events();
                while (Event event = link_.TakeEvent()) {
                    if (event.ComPrimitive() != handle_) {
                        on_other_(std::move(event));
                    } else if (IsFinal(event.State())) {
                        has_ended_ = true;
                    }
                }
                if (!has_ended_) link_.context_->WaitAfter(seen, deadline);
            }
        }
        Running(const Running&) = delete;
        Running& operator=(const Running&) = delete;
        void End() { has_ended_ = true; }
        bool HasEnded() const { return has_ended_; }

    private:
        const LinkBase& link_;
        UNUM32 handle_;
        OnOther& on_other_;
        bool has_ended_ = false;
    };

    ModulePtr module_;
    ContextPtr context_;
    UNUM32 handle_ = PDU_HANDLE_UNDEF;
    bool is_connected_ = false;
};

}  // namespace detail

/// Value of the ComParams CP_Can...Format for an identifier: segmented, with flow control.
inline UNUM32 CanFormat(UNUM32 can_id) {
    constexpr UNUM32 kFlowControl = 0x1;
    constexpr UNUM32 k29Bits = 0x2;
    constexpr UNUM32 kSegmented = 0x4;
    return kSegmented | kFlowControl | (can_id > detail::kLargest11BitId ? k29Bits : 0);
}

/// Gives a link a response table with one entry per control unit, whose unique response identifier
/// is its position; each is a copy of the link's first entry with other identifiers. Module::Open
/// does that. Throws Error.
inline void SetUnits(const Functions& functions, UNUM32 module, UNUM32 link,
                     const std::vector<Unit>& units) {
    Item<PDU_UNIQUE_RESP_ID_TABLE_ITEM> own(functions);
    detail::Check(functions.GetUniqueRespIdTable(module, link, own.Out()),
                  "PDUGetUniqueRespIdTable");
    std::vector<PDU_PARAM_ITEM> like;
    if (own && own->NumEntries > 0 && own->pUniqueData && own->pUniqueData[0].pParams) {
        const PDU_ECU_UNIQUE_RESP_DATA& first = own->pUniqueData[0];
        like.assign(first.pParams, first.pParams + first.NumParamItems);
    }
    std::deque<UNUM32> values;  // a deque does not move its elements
    std::deque<std::vector<PDU_PARAM_ITEM>> params;
    std::vector<PDU_ECU_UNIQUE_RESP_DATA> entries;
    for (const Unit& unit : units) {
        std::vector<PDU_PARAM_ITEM>& own_params = params.emplace_back(like);
        const std::pair<const char*, UNUM32> addresses[] = {
            {"CP_CanPhysReqId", unit.request_id},
            {"CP_CanPhysReqFormat", CanFormat(unit.request_id)},
            {"CP_CanRespUSDTId", unit.response_id},
            {"CP_CanRespUSDTFormat", CanFormat(unit.response_id)}};
        for (const auto& [name, number] : addresses) {
            const UNUM32 id = RequireId(functions, PDU_OBJT_COMPARAM, name);
            const auto found =
                std::find_if(own_params.begin(), own_params.end(),
                             [id](const PDU_PARAM_ITEM& item) { return item.ComParamId == id; });
            void* value = &values.emplace_back(number);
            if (found != own_params.end()) {
                found->pComParamData = value;  // narrower types read the low bytes
            } else {
                own_params.push_back({PDU_IT_PARAM, id, PDU_PT_UNUM32, PDU_PC_UNIQUE_ID, value});
            }
        }
        entries.push_back({static_cast<UNUM32>(entries.size()),
                           static_cast<UNUM32>(own_params.size()), own_params.data()});
    }
    PDU_UNIQUE_RESP_ID_TABLE_ITEM table = {PDU_IT_UNIQUE_RESP_ID_TABLE,
                                           static_cast<UNUM32>(entries.size()), entries.data()};
    detail::Check(functions.SetUniqueRespIdTable(module, link, &table), "PDUSetUniqueRespIdTable");
}

/// A connected link to one or several control units.
class Link {
public:
    /// Longest time for one request, response pending included.
    static constexpr Milliseconds kLimit{60'000};

    Link(Link&&) noexcept = default;
    Link& operator=(Link&& other) noexcept {
        if (this != &other) {
            End();
            state_ = std::move(other.state_);
        }
        return *this;
    }
    ~Link() { End(); }

    /// Sends a request and waits for its first answer, positive or negative. Empty if the request
    /// suppresses the positive response and no negative one came.
    Response Request(ByteView request, Milliseconds limit = kLimit) {
        return TryRequest(request, limit).Take();
    }
    Result<Response> TryRequest(ByteView request, Milliseconds limit = kLimit) {
        Response first;
        const Result<std::size_t> count = TryRequestEach(
            request,
            [&first](Response response) {
                if (!first) first = std::move(response);
            },
            limit);
        if (!count) return count.Why();
        return first;
    }

    /// As above, for every answer that comes: of a functional request, of all control units.
    /// `on_response` takes a Response by value, on this thread. Returns how many came. If it
    /// throws, the request is cancelled.
    template <typename OnResponse>
    Result<std::size_t> TryRequestEach(ByteView request, OnResponse&& on_response,
                                       Milliseconds limit = kLimit) {
        if (request.empty()) return Failure{ErrorKind::kBadValue};
        if (const Result<void> started = StartCommunication(); !started) return started.Why();
        state_->request.Expect(request[0]);
        std::size_t count = 0;
        const Result<T_PDU_ERR_EVT> error = state_->base.Execute(
            PDU_COPT_SENDRECV, request, &state_->request.control, limit,
            [&](Response response) {
                ++count;
                on_response(std::move(response));
            },
            [this](const Event& event) { state_->Drop(event); });
        if (!error && error.Why().kind != ErrorKind::kNoAnswer) return error.Why();
        if (count > 0) return count;
        const T_PDU_ERR_EVT event = error ? *error : error.Why().event;
        Failure failure;
        failure.kind = ErrorKind::kNoAnswer;
        failure.event = event;
        if (event == PDU_ERR_EVT_LOST_COMM_TO_VCI || state_->base.IsModuleGone()) {
            failure.kind = ErrorKind::kModuleLost;
            return failure;
        }
        if (!error || !SuppressesAnswer(request)) return failure;
        return MeansSilence(event) ? Result<std::size_t>(count)
                                   : detail::LinkBase::NotExecuted(event);
    }

    /// All answers to a request.
    std::vector<Response> RequestAll(ByteView request, Milliseconds limit = kLimit) {
        std::vector<Response> responses;
        const auto keep = [&responses](Response response) {
            responses.push_back(std::move(response));
        };
        TryRequestEach(request, keep, limit).Take();
        return responses;
    }

    /// Starts a request without waiting for its end; answers to it are dropped.
    void Send(ByteView request) {
        if (request.empty()) throw Error(Failure{ErrorKind::kBadValue});
        StartCommunication().Take();
        while (const Event event = state_->base.TakeEvent())
            state_->Drop(event);
        Control& sent = state_->sent.emplace_back(state_->is_functional);
        sent.Expect(request[0]);
        const std::optional<Failure> refused =
            state_->base.Start(PDU_COPT_SENDRECV, request, &sent.control, &sent.handle);
        if (!refused) return;
        state_->sent.pop_back();
        throw Error(*refused);
    }

    ComParam GetComParam(const std::string& name) const { return state_->base.Get(name); }
    /// Sets a ComParam of a number type and lets the link use it.
    void SetComParam(const std::string& name, std::int64_t value) {
        state_->base.Set(name, value);
        UpdateComParams();
    }
    /// Sets any ComParam: change what GetComParam has returned.
    void SetComParam(const std::string& name, const ComParam& param) {
        state_->base.Store(param, name);
        UpdateComParams();
    }

    /// Called on a thread of the library for every event of the link; must not throw, open links,
    /// use ComParams or make a request of this link. Empty: no longer called, but a call may still
    /// be under way.
    void OnEvent(std::function<void(T_PDU_EVT_DATA)> handler) {
        state_->base.Shared()->SetHandler(state_->base.Module(), Handle(), std::move(handler));
    }

    UNUM32 Handle() const { return state_->base.Handle(); }

private:
    friend class Module;

    // What a ComPrimitive expects. Libraries may keep the pointers until it ends.
    struct Control {
        explicit Control(bool is_functional) {
            control.NumSendCycles = 1;
            control.NumReceiveCycles = is_functional ? kAllInTime : 1;
            control.TxFlag = {sizeof flags, flags};
            control.NumPossibleExpectedResponses = 2;
            control.pExpectedResponseArray = expected;
            expected[0] = {0, 1, 1, masks, &positive, 0, nullptr};
            expected[1] = {1, 2, 2, masks, negative, 0, nullptr};
        }
        Control(const Control&) = delete;
        Control& operator=(const Control&) = delete;

        void Expect(UNUM8 service) {
            positive = static_cast<UNUM8>(service + 0x40);
            negative[1] = service;
        }

        static constexpr SNUM32 kAllInTime = -2;
        UNUM32 handle = PDU_HANDLE_UNDEF;  // of one that was sent
        UNUM8 flags[4] = {0, 0, 0, 0};
        UNUM8 masks[2] = {0xFF, 0xFF};
        UNUM8 positive = 0;
        UNUM8 negative[2] = {0x7F, 0};
        PDU_EXP_RESP_DATA expected[2] = {};
        PDU_COP_CTRL_DATA control = {};
    };

    struct State {
        State(detail::ModulePtr module, const LinkOptions& options)
            : is_functional(options.functional_id.has_value()),
              request(is_functional),
              base(std::move(module), options.protocol, options.bus_type, false) {
            plain.NumSendCycles = 1;
            plain.NumReceiveCycles = 1;
            plain.TxFlag = {sizeof flags, flags};
        }

        // Takes an event of a request that was only sent.
        void Drop(const Event& event) {
            if (!detail::LinkBase::IsFinal(event.State())) return;
            sent.remove_if(
                [&event](const Control& one) { return one.handle == event.ComPrimitive(); });
        }

        const bool is_functional;
        UNUM8 flags[4] = {0, 0, 0, 0};
        PDU_COP_CTRL_DATA plain = {};  // of ComPrimitives without data
        Control request;
        std::list<Control> sent;  // by Send, and not seen to end
        bool is_started = false;
        detail::LinkBase base;  // last, so that it goes before what its ComPrimitives point to
    };

    Link(const detail::ModulePtr& module, const std::vector<Unit>& units,
         const LinkOptions& options) {
        const detail::ContextPtr context = module->context;
        const std::lock_guard<std::recursive_mutex> hold(context->ComParams());
        state_ = std::make_unique<State>(module, options);
        const detail::LinkBase& base = state_->base;
        base.TrySet("CP_P2Max", Microseconds(options.p2).count());
        base.TrySet("CP_RC78Handling", 2);  // wait as long as the control unit asks for
        SetTesterPresent(options);
        base.TrySet("CP_RequestAddrMode", options.functional_id ? 2 : 1);
        if (options.functional_id) {
            base.Set("CP_CanFuncReqId", *options.functional_id);
            base.TrySet("CP_CanFuncReqFormat", CanFormat(*options.functional_id));
        }
        // Through the table: a link need not read the ComParams after its creation.
        SetUnits(base.F(), base.Module(), base.Handle(), units);
        state_->base.Connect();
    }

    void SetTesterPresent(const LinkOptions& options) {
        const detail::LinkBase& base = state_->base;
        base.TrySet("CP_TesterPresentHandling", options.tester_present ? 1 : 0);
        // Libraries without that switch send nothing if the message is empty.
        const auto set_message = [&base](const std::vector<UNUM8>& message) {
            ComParam param = base.Get("CP_TesterPresentMessage");
            param.bytes = message;
            base.Store(param, "CP_TesterPresentMessage");
        };
        if (!options.tester_present) {
            try {
                set_message({});
            } catch (const Error&) {
            }
            return;
        }
        base.TrySet("CP_TesterPresentReqRsp", 0);
        set_message(options.tester_present_message);
        base.Set("CP_TesterPresentTime", Microseconds(*options.tester_present).count());
    }

    // Error items that a request has whose answer was suppressed. By the first, libraries also say
    // that nothing at all was received, as this project's does.
    static bool MeansSilence(T_PDU_ERR_EVT event) {
        return event == PDU_ERR_EVT_NOERROR || event == PDU_ERR_EVT_TX_ERROR ||
               event == PDU_ERR_EVT_RX_TIMEOUT;
    }

    // Services whose second byte is a sub-function, with the bit that suppresses a positive
    // response.
    static bool SuppressesAnswer(ByteView request) {
        static constexpr UNUM8 kServices[] = {0x10, 0x11, 0x19, 0x27, 0x28, 0x29, 0x2C,
                                              0x31, 0x3E, 0x83, 0x85, 0x86, 0x87};
        return request.size() > 1 && (request[1] & 0x80) != 0 &&
               std::find(std::begin(kServices), std::end(kServices), request[0]) !=
                   std::end(kServices);
    }

    Result<void> StartCommunication() {
        if (state_->is_started) return {};
        Result<void> result = ExecutePlain(PDU_COPT_STARTCOMM);
        state_->is_started = static_cast<bool>(result);
        return result;
    }

    // Libraries may use the values of PDUConnect until they are told to take others.
    void UpdateComParams() { ExecutePlain(PDU_COPT_UPDATEPARAM).Take(); }

    Result<void> ExecutePlain(T_PDU_COPT type) {
        return state_->base.ExecuteToSuccess(type, &state_->plain,
                                             [this](const Event& event) { state_->Drop(event); });
    }

    // Also ends tester present in the module.
    void End() noexcept {
        if (!state_ || !state_->is_started) return;
        try {
            ExecutePlain(PDU_COPT_STOPCOMM);
        } catch (const std::exception&) {
            // There is nobody left to tell.
        }
    }

    std::unique_ptr<State> state_;
};

/// A CAN frame. Identifiers above 7FF have 29 bits in any case.
struct CanFrame {
    UNUM32 id = 0;
    bool is_29_bit = false;
    std::uint8_t size = 0;
    std::array<UNUM8, 64> data{};
    Microseconds time{0};  ///< received frames: of the module's clock

    ByteView Bytes() const { return {data.data(), size}; }
};

struct RawOptions {
    std::string protocol = "ISO_11898_RAW";
    std::string bus_type = "ISO_11898_2_DWCAN";
    /// What sends a frame: PDU_COPT_STARTCOMM, as this project's library wants it, or
    /// PDU_COPT_SENDRECV, as the libraries of others may.
    T_PDU_COPT send_with = PDU_COPT_STARTCOMM;
};

/// A connected link on which CAN frames are sent and received as they are. Frames that arrive wait
/// in the library until they are received.
class RawLink {
public:
    RawLink(RawLink&&) noexcept = default;
    RawLink& operator=(RawLink&& other) noexcept {
        if (this != &other) {
            Finish();
            state_ = std::move(other.state_);
        }
        return *this;
    }
    ~RawLink() { Finish(); }

    /// Sends a frame with at most 8 bytes without waiting until it is on the bus.
    void Send(UNUM32 id, ByteView bytes, bool is_29_bit = false) {
        if (const std::optional<Failure> failed = TrySend(id, bytes, is_29_bit))
            throw Error(*failed);
    }
    /// Null if the library has taken it, else why not.
    std::optional<Failure> TrySend(UNUM32 id, ByteView bytes, bool is_29_bit = false) {
        if (bytes.size() > 8) return Failure{ErrorKind::kBadValue};
        std::array<UNUM8, 12> frame{};
        for (std::size_t i = 0; i < 4; ++i)
            frame[i] = static_cast<UNUM8>(id >> (24 - 8 * i));
        std::copy(bytes.begin(), bytes.end(), frame.begin() + 4);
        const bool is_long = is_29_bit || id > detail::kLargest11BitId;
        UNUM32 handle = PDU_HANDLE_UNDEF;
        state_->has_sent = true;
        return state_->base.Start(state_->send_with, ByteView(frame.data(), 4 + bytes.size()),
                                  is_long ? &state_->send_29_bit : &state_->send_11_bit, &handle);
    }
    /// Waits until everything that was sent has left the library. Frames that arrive meanwhile are
    /// kept for Receive.
    void Flush() { TryFlush().Take(); }

    /// The next frame from the bus, in their order; none if the time ends before. The first call
    /// begins to receive, unless StartReceiving has.
    std::optional<CanFrame> Receive(Milliseconds limit) {
        StartReceiving();
        const auto deadline = detail::EndOf(limit);
        for (;;) {
            const std::uint64_t seen = state_->base.Shared()->Events();
            if (std::optional<CanFrame> frame = NextFrame()) return frame;
            if (StampClock::HostClock::now() >= deadline) return std::nullopt;
            state_->base.Shared()->WaitAfter(seen, deadline);
        }
    }
    void StartReceiving() {
        if (state_->is_receiving) return;
        UNUM32 handle = PDU_HANDLE_UNDEF;
        const std::optional<Failure> refused =
            state_->base.Start(PDU_COPT_SENDRECV, {}, &state_->receive, &handle);
        if (refused) throw Error(*refused);
        state_->is_receiving = true;
    }
    /// True if the module is no longer there; a silent bus does not show it. May take as long as
    /// the library looks for modules.
    bool IsModuleGone() const { return state_->base.IsModuleGone(); }

    UNUM32 Handle() const { return state_->base.Handle(); }

private:
    friend class Module;

    struct State {
        State(detail::ModulePtr module, const RawOptions& options)
            : send_with(options.send_with),
              base(std::move(module), options.protocol, options.bus_type, true) {
            anything.AcceptanceId = 1;
            receive.NumReceiveCycles = kEndless;
            receive.TxFlag = {sizeof flags_11_bit, flags_11_bit};
            receive.NumPossibleExpectedResponses = 1;
            receive.pExpectedResponseArray = &anything;
            send_11_bit.NumSendCycles = send_29_bit.NumSendCycles = 1;
            flush.TxFlag = send_11_bit.TxFlag = receive.TxFlag;
            send_29_bit.TxFlag = {sizeof flags_29_bit, flags_29_bit};
        }

        static constexpr SNUM32 kEndless = -1;
        const T_PDU_COPT send_with;
        bool is_receiving = false;
        bool has_sent = false;
        std::deque<Event> kept;  // that came while something else was awaited
        // Libraries may keep these pointers until a ComPrimitive ends.
        UNUM8 flags_11_bit[4] = {0, 0, 0, 0};
        UNUM8 flags_29_bit[4] = {0, 0, PDU_TX_FLAG2_CAN_29BIT_ID, 0};
        PDU_EXP_RESP_DATA anything = {};
        PDU_COP_CTRL_DATA receive = {};
        PDU_COP_CTRL_DATA send_11_bit = {};
        PDU_COP_CTRL_DATA send_29_bit = {};
        PDU_COP_CTRL_DATA flush = {};
        detail::LinkBase base;  // last, so that it goes before what its ComPrimitives point to
    };

    RawLink(detail::ModulePtr module, const RawOptions& options)
        : state_(std::make_unique<State>(std::move(module), options)) {
        state_->base.Connect();
    }

    Event NextEvent() {
        if (state_->kept.empty()) return state_->base.TakeEvent();
        Event event = std::move(state_->kept.front());
        state_->kept.pop_front();
        return event;
    }

    std::optional<CanFrame> NextFrame() {
        while (const Event event = NextEvent()) {
            if (const PDU_ERROR_DATA* error = event.Error()) ThrowError(error->ErrorCodeId);
            const PDU_RESULT_DATA* result = event.Result();
            std::optional<CanFrame> frame = result ? ReadFrame(*result) : std::nullopt;
            if (!frame) continue;
            frame->time = event.Time();
            return frame;
        }
        return std::nullopt;
    }

    static std::optional<CanFrame> ReadFrame(const PDU_RESULT_DATA& result) {
        CanFrame frame;
        if (!result.pDataBytes || result.NumDataBytes < 4) return std::nullopt;
        if (result.NumDataBytes - 4 > frame.data.size()) return std::nullopt;
        for (std::size_t i = 0; i < 4; ++i)
            frame.id = frame.id << 8 | result.pDataBytes[i];
        frame.size = static_cast<std::uint8_t>(result.NumDataBytes - 4);
        std::copy_n(result.pDataBytes + 4, frame.size, frame.data.begin());
        // Not every library sets the flag for all 29-bit identifiers.
        const PDU_FLAG_DATA& flags = result.RxFlag;
        frame.is_29_bit = frame.id > detail::kLargest11BitId ||
                          (flags.NumFlagBytes > 2 && flags.pFlagData &&
                           (flags.pFlagData[2] & PDU_RX_FLAG2_CAN_29BIT_ID) != 0);
        return frame;
    }

    [[noreturn]] static void ThrowError(T_PDU_ERR_EVT code) {
        Failure failure;
        failure.kind =
            code == PDU_ERR_EVT_LOST_COMM_TO_VCI ? ErrorKind::kModuleLost : ErrorKind::kNoAnswer;
        failure.event = code;
        throw Error(failure);
    }

    // A library need not report the end of a ComPrimitive that sends a frame, but it executes them
    // in order and reports the end of this one.
    Result<void> TryFlush() {
        state_->has_sent = false;
        return state_->base.ExecuteToSuccess(PDU_COPT_UPDATEPARAM, &state_->flush,
                                             [state = state_.get()](Event event) {
                                                 if (event.Result() || event.Error())
                                                     state->kept.push_back(std::move(event));
                                             });
    }

    void Finish() noexcept {
        if (!state_ || !state_->has_sent) return;
        try {
            TryFlush();
        } catch (const std::exception&) {
            // There is nobody left to tell.
        }
    }

    std::unique_ptr<State> state_;
};

// ---------------------------------------------------------------------------------------------
// Modules and the library
// ---------------------------------------------------------------------------------------------

/// A module as the library lists it.
struct ModuleInfo {
    UNUM32 handle = PDU_HANDLE_UNDEF;
    UNUM32 type = 0;
    T_PDU_STATUS state = PDU_MODST_NOT_AVAIL;
    std::string vendor_name;      ///< often a series of key='value'
    std::string additional_info;  ///< likewise
};

/// A connected module.
class Module {
public:
    Module(Module&&) noexcept = default;
    Module& operator=(Module&&) noexcept = default;

    /// Connects a link to one control unit.
    Link Open(const Unit& unit, const LinkOptions& options = {}) const {
        return Link(state_, {unit}, options);
    }
    /// Connects a link to several; with options.functional_id a request goes to all at once.
    Link Open(const std::vector<Unit>& units, const LinkOptions& options) const {
        return Link(state_, units, options);
    }
    /// Connects a link for CAN frames.
    RawLink OpenRaw(const RawOptions& options = {}) const { return RawLink(state_, options); }

    PDU_VERSION_DATA Version() const {
        PDU_VERSION_DATA version = {};
        detail::Check(state_->context->F().GetVersion(state_->handle, &version), "PDUGetVersion");
        return version;
    }
    /// Now, by the clock of the time stamps.
    Microseconds Time() const {
        UNUM32 stamp = 0;
        detail::Check(state_->context->F().GetTimestamp(state_->handle, &stamp), "PDUGetTimestamp");
        return state_->clock.Extend(stamp);
    }
    /// The number that an IOCTL without input returns, such as PDU_IOCTL_READ_VBATT; none if it
    /// returns nothing of the kind.
    std::optional<UNUM32> IoControl(const std::string& name) const {
        Item<PDU_DATA_ITEM> output(state_->context->F());
        const UNUM32 id = state_->context->Id(PDU_OBJT_IO_CTRL, name);
        detail::Check(
            state_->context->F().IoCtl(state_->handle, PDU_HANDLE_UNDEF, id, nullptr, output.Out()),
            "PDUIoCtl");
        if (!output || output->ItemType != PDU_IT_IO_UNUM32 || !output->pData) return std::nullopt;
        return *static_cast<const UNUM32*>(output->pData);
    }
    /// True if it is no longer there. May take as long as the library looks for modules.
    bool IsGone() const { return state_->IsGone(); }

    /// As Link::OnEvent, for events of the module.
    void OnEvent(std::function<void(T_PDU_EVT_DATA)> handler) {
        state_->context->SetHandler(state_->handle, PDU_HANDLE_UNDEF, std::move(handler));
    }
    /// The next item of the module's queue; empty if there is none. What is not taken stays in the
    /// library until the module is disconnected.
    Event TakeEvent() const { return state_->TakeEvent(PDU_HANDLE_UNDEF); }

    UNUM32 Handle() const { return state_->handle; }

private:
    friend class Library;
    explicit Module(detail::ModulePtr state) : state_(std::move(state)) {}

    detail::ModulePtr state_;
};

/// An installed library, as the root file lists it.
struct InstalledLibrary {
    std::string name;      ///< SHORT_NAME
    std::string supplier;  ///< SUPPLIER_NAME
    std::string path;      ///< of LIBRARY_FILE; empty if its address is of no file
};

/// The libraries of a root file (UTF-8); of the machine's if the path is empty. None if there is no
/// such file.
inline std::vector<InstalledLibrary> InstalledLibraries(const std::string& root_file = "") {
    std::ifstream file =
        detail::OpenFile(root_file.empty() ? detail::MachineRootFile() : root_file);
    const std::string text = detail::WithoutComments(
        std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()));
    std::vector<InstalledLibrary> libraries;
    for (std::size_t at = 0;
         (at = detail::FindTag(text, "MVCI_PDU_API", at)) != std::string::npos;) {
        const std::size_t end = std::min(text.find("</MVCI_PDU_API>", at), text.size());
        const std::string entry = text.substr(at, end - at);
        libraries.push_back({detail::ElementText(entry, "SHORT_NAME"),
                             detail::ElementText(entry, "SUPPLIER_NAME"),
                             detail::ElementPath(entry, "LIBRARY_FILE")});
        at = end;
    }
    return libraries;
}

/// A constructed library. A process has one of each file: PDUConstruct refuses a second.
class Library {
public:
    /// Loads the library at a path and constructs it with the option string. It is never unloaded:
    /// threads of it may still end after PDUDestruct.
    static Library At(const std::string& path, const std::string& options = "") {
        const LibraryFile file(path);
        if (!file) {
            throw Error(ErrorKind::kNoLibrary, "cannot load '" + path + "': " + file.Reason());
        }
        if (!file.Missing().empty()) {
            throw Error(ErrorKind::kNoLibrary,
                        "'" + path + "' has no function " + file.Missing().front());
        }
        return With(file.F(), options);
    }
    /// Loads the library with this SHORT_NAME in the root file.
    static Library Named(const std::string& name, const std::string& options = "",
                         const std::string& root_file = "") {
        std::string names;
        for (const InstalledLibrary& library : InstalledLibraries(root_file)) {
            if (library.name == name && !library.path.empty()) return At(library.path, options);
            names += (names.empty() ? "" : ", ") + library.name;
        }
        throw Error(ErrorKind::kNoLibrary,
                    "no library is installed as '" + name + "'; " +
                        (names.empty() ? "there is none" : "there are: " + names));
    }
    /// Constructs a library whose functions are known, for example because it is linked.
    static Library With(const Functions& functions, const std::string& options = "") {
        return Library(std::make_shared<detail::Context>(functions, options));
    }

    /// What the library lists now. Looking for modules may take some 100 ms.
    std::vector<ModuleInfo> Modules() const {
        Item<PDU_MODULE_ITEM> list(F());
        detail::Check(F().GetModuleIds(list.Out()), "PDUGetModuleIds");
        context_->Discard(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF);
        std::vector<ModuleInfo> modules;
        for (UNUM32 i = 0; list && list->pModuleData && i < list->NumEntries; ++i) {
            const PDU_MODULE_DATA& data = list->pModuleData[i];
            ModuleInfo info;
            info.handle = data.hMod;
            info.type = data.ModuleTypeId;
            info.state = data.ModuleStatus;  // which not every library keeps up to date
            UNUM32 timestamp = 0;
            UNUM32 extra = 0;
            F().GetStatus(data.hMod, PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, &info.state, &timestamp,
                          &extra);
            if (data.pVendorModuleName) info.vendor_name = data.pVendorModuleName;
            if (data.pVendorAdditionalInfo) info.additional_info = data.pVendorAdditionalInfo;
            modules.push_back(std::move(info));
        }
        return modules;
    }

    /// Looks for modules until one is there whose texts contain `wanted`, and connects it. Throws
    /// Error kNoModule when the time is over, or if several match.
    Module Connect(const std::string& wanted = "", Milliseconds limit = Milliseconds(3000)) const {
        const auto deadline = detail::EndOf(limit);
        for (;;) {
            const std::uint64_t seen = context_->Events();
            std::vector<ModuleInfo> found = Modules();
            found.erase(std::remove_if(found.begin(), found.end(),
                                       [&wanted](const ModuleInfo& info) {
                                           return info.state == PDU_MODST_NOT_AVAIL ||
                                                  !Contains(info, wanted);
                                       }),
                        found.end());
            if (found.size() == 1) return Connect(found.front());
            if (found.size() > 1) {
                throw Error(ErrorKind::kNoModule, std::to_string(found.size()) +
                                                      " modules match, for example " +
                                                      found.front().vendor_name);
            }
            if (StampClock::HostClock::now() >= deadline)
                throw Error(ErrorKind::kNoModule, "no module was found");
            context_->WaitAfter(seen, deadline);
        }
    }
    /// Connects a module that Modules has listed. One that is connected is shared: to connect one
    /// again that was lost, let all that was made from it go first.
    Module Connect(const ModuleInfo& info) const {
        return Module(detail::ConnectedModule::Connect(context_, info.handle));
    }

    /// Id of an object; none if the library does not know the name.
    std::optional<UNUM32> FindId(T_PDU_OBJT type, const std::string& name) const {
        return context_->FindId(type, name);
    }

    /// As Link::OnEvent, for events of the library itself.
    void OnEvent(std::function<void(T_PDU_EVT_DATA)> handler) {
        context_->SetHandler(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, std::move(handler));
    }

    /// For what this header does not cover.
    const Functions& F() const { return context_->F(); }

private:
    explicit Library(detail::ContextPtr context) : context_(std::move(context)) {}

    static bool Contains(const ModuleInfo& info, const std::string& wanted) {
        return (info.vendor_name + "\n" + info.additional_info).find(wanted) != std::string::npos;
    }

    detail::ContextPtr context_;
};

}  // namespace pdu

#endif  // DPDU_HPP
