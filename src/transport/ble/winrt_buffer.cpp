#include "transport/ble/winrt_buffer.h"

#include <inspectable.h>

#include <atomic>
#include <vector>

namespace tarvik::winrt {
namespace {

class BufferInterface : public ::IInspectable {
public:
    virtual HRESULT STDMETHODCALLTYPE get_Capacity(std::uint32_t* capacity) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Length(std::uint32_t* length) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_Length(std::uint32_t length) = 0;
};

class ByteAccessInterface : public IUnknown {
public:
    virtual HRESULT STDMETHODCALLTYPE Buffer(std::uint8_t** bytes) = 0;
};

// Our own class: the system's would be one more object to activate and query for every packet.
class ByteBuffer final : public BufferInterface, public ByteAccessInterface {
public:
    explicit ByteBuffer(std::span<const std::uint8_t> bytes) : bytes_(bytes.begin(), bytes.end()) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(const IID& iid, void** object) override {
        *object = Find(iid);
        if (*object == nullptr) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --references_;
        if (left == 0) delete this;
        return left;
    }

    HRESULT STDMETHODCALLTYPE GetIids(ULONG* count, IID** iids) override {
        *count = 0;
        *iids = nullptr;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetRuntimeClassName(HSTRING* name) override {
        *name = nullptr;  // an empty string
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTrustLevel(TrustLevel* level) override {
        *level = BaseTrust;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE get_Capacity(std::uint32_t* capacity) override {
        *capacity = static_cast<std::uint32_t>(bytes_.size());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Length(std::uint32_t* length) override {
        return get_Capacity(length);
    }
    // The buffer is full from the start, and only read.
    HRESULT STDMETHODCALLTYPE put_Length(std::uint32_t length) override {
        return length == bytes_.size() ? S_OK : E_INVALIDARG;
    }

    HRESULT STDMETHODCALLTYPE Buffer(std::uint8_t** bytes) override {
        *bytes = bytes_.data();
        return S_OK;
    }

private:
    ~ByteBuffer() = default;

    void* Find(const IID& iid) {
        if (::IsEqualGUID(iid, BufferByteAccess::kIid))
            return static_cast<ByteAccessInterface*>(this);
        const bool is_known =
            ::IsEqualGUID(iid, kIUnknownIid) || ::IsEqualGUID(iid, kIInspectableIid) ||
            ::IsEqualGUID(iid, kIAgileObjectIid) || ::IsEqualGUID(iid, kIBufferIid);
        return is_known ? static_cast<BufferInterface*>(this) : nullptr;
    }

    std::vector<std::uint8_t> bytes_;
    std::atomic<ULONG> references_{1};
};

}  // namespace

Pointer<Buffer> MakeBuffer(std::span<const std::uint8_t> bytes) {
    BufferInterface* made = new ByteBuffer(bytes);
    return Pointer<Buffer>(reinterpret_cast<Buffer*>(made));
}

std::span<const std::uint8_t> BytesOf(const Pointer<Buffer>& buffer) {
    std::uint32_t length = 0;
    Call(buffer, &Buffer::Table::get_Length, &length);
    if (length == 0) return {};
    std::uint8_t* bytes = nullptr;
    Call(buffer.Query<BufferByteAccess>(), &BufferByteAccess::Table::Buffer, &bytes);
    if (bytes == nullptr) Check(E_POINTER);
    return {bytes, length};
}

}  // namespace tarvik::winrt
