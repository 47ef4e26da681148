#include "unit/ble_winrt/classes.h"

#include <gtest/gtest.h>

namespace tarvik::test {
namespace {

// The DLL that the manifest names.
HMODULE Classes() {
    static const HMODULE loaded = ::LoadLibraryW(TARVIK_RUNTIME_CLASSES);
    return loaded;
}

template <typename Function>
Function Find(const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(Classes(), name)));
}

}  // namespace

RuntimeClasses::RuntimeClasses() {
    EXPECT_NE(Classes(), nullptr) << ::GetLastError();
    ACTCTXW manifest{};
    manifest.cbSize = sizeof manifest;
    manifest.lpSource = TARVIK_RUNTIME_MANIFEST;
    context_ = ::CreateActCtxW(&manifest);
    EXPECT_NE(context_, INVALID_HANDLE_VALUE) << ::GetLastError();
    EXPECT_TRUE(::ActivateActCtx(context_, &cookie_));
}

RuntimeClasses::~RuntimeClasses() {
    ::DeactivateActCtx(0, cookie_);
    ::ReleaseActCtx(context_);
}

void PlanFault(const std::string& function, const std::string& fault) {
    const auto plan = Find<int (*)(const char*, const char*)>("BrennixBluetoothFault");
    ASSERT_NE(plan, nullptr);
    EXPECT_EQ(plan(function.c_str(), fault.c_str()), 1) << function << " " << fault;
}

std::string TakeReport() {
    const auto report = Find<std::size_t (*)(char*, std::size_t)>("BrennixBluetoothReport");
    if (report == nullptr) return "the runtime classes have no report";
    char text[4096];
    report(text, sizeof text);
    return text;
}

}  // namespace tarvik::test
