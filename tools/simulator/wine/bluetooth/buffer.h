// A buffer with bytes from the stand-in.

#pragma once

#include <string>

#include "wine/bluetooth/object.h"

namespace brennix {

class ByteBuffer final : public Object<IBuffer, IBufferByteAccess> {
public:
    explicit ByteBuffer(std::string bytes) : Object("Buffer"), bytes_(std::move(bytes)) {}
    HRESULT STDMETHODCALLTYPE get_Capacity(UINT32* capacity) override {
        *capacity = static_cast<UINT32>(bytes_.size());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Length(UINT32* length) override {
        *length = static_cast<UINT32>(bytes_.size());
        return Enter("get_Length");
    }
    HRESULT STDMETHODCALLTYPE put_Length(UINT32) override {
        return NotOffered(ClassName(), "put_Length");
    }
    HRESULT STDMETHODCALLTYPE Buffer(BYTE** bytes) override {
        if (const HRESULT fault = Enter("Buffer")) return fault;
        if (ReturnsNull("Buffer", bytes)) return S_OK;
        *bytes = reinterpret_cast<BYTE*>(bytes_.data());
        return S_OK;
    }

private:
    std::string bytes_;
};

}  // namespace brennix
