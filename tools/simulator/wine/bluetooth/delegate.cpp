#include "wine/bluetooth/delegate.h"

namespace brennix {

namespace {

bool Answers(IUnknown* object, const IID& id) {
    void* found = nullptr;
    if (FAILED(object->QueryInterface(id, &found))) return false;
    static_cast<IUnknown*>(found)->Release();
    return true;
}

}  // namespace

void CheckDelegate(IUnknown* delegate, const IID& id, const char* function) {
    const auto require = [&](bool holds, const char* what) {
        if (!holds) Violation(std::string("the delegate of ") + function + " " + what);
    };
    require(Answers(delegate, id), "does not answer to its own id");
    require(Answers(delegate, IID_IUnknown), "does not answer to IUnknown");
    require(Answers(delegate, kAgileObject), "is not agile");
    require(!Answers(delegate, kInspectable), "claims to be an IInspectable");
    void* found = delegate;
    require(delegate->QueryInterface(IClosable::kId, &found) == E_NOINTERFACE && found == nullptr,
            "leaves a pointer behind for what it is not");
}

}  // namespace brennix
