#include <windows.h>

#include "file_time.h"

#include <gtest/gtest.h>

#include "wide_text.h"

void SetChangedUs(const std::string& path, std::uint64_t changed_us) {
    constexpr std::uint64_t kFrom1601To1970Us = 11'644'473'600'000'000;
    const std::uint64_t units = (changed_us + kFrom1601To1970Us) * 10;
    const FILETIME time = {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
    const HANDLE file = ::CreateFileW(Wide(path).c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    EXPECT_TRUE(::SetFileTime(file, nullptr, nullptr, &time));
    ::CloseHandle(file);
}
