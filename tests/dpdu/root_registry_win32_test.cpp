// Which root file the registry names. The value that the prefix has is put back at the end.

#include <windows.h>
// Other headers need windows.h before them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "console/failure.h"
#include "root/root_store.h"

namespace {

using namespace dpdu;

constexpr wchar_t kKey[] = L"SOFTWARE\\D-PDU API";
constexpr wchar_t kValue[] = L"Root File";

class RootRegistry : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0,
                                    KEY_ALL_ACCESS | KEY_WOW64_64KEY, nullptr, &key_, nullptr),
                  ERROR_SUCCESS);
        DWORD size = 0;
        had_value_ =
            ::RegQueryValueExW(key_, kValue, nullptr, &type_, nullptr, &size) == ERROR_SUCCESS;
        before_.resize(size);
        if (had_value_) {
            ::RegQueryValueExW(key_, kValue, nullptr, nullptr, before_.data(), &size);
        }
        ::RegDeleteValueW(key_, kValue);
    }
    void TearDown() override {
        ::RegDeleteValueW(key_, kValue);
        if (had_value_) {
            ::RegSetValueExW(key_, kValue, 0, type_, before_.data(),
                             static_cast<DWORD>(before_.size()));
        }
        ::RegCloseKey(key_);
    }

    void Set(DWORD type, const std::wstring& text) {
        ASSERT_EQ(
            ::RegSetValueExW(key_, kValue, 0, type, reinterpret_cast<const BYTE*>(text.c_str()),
                             static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))),
            ERROR_SUCCESS);
    }
    static std::string ErrorOf(void (*call)()) {
        try {
            call();
            return "";
        } catch (const Failure& failure) {
            return failure.what();
        }
    }
    static void Read() { root::RegisteredRootFile(); }

    HKEY key_ = nullptr;
    bool had_value_ = false;
    DWORD type_ = 0;
    std::vector<BYTE> before_;
};

TEST_F(RootRegistry, WithoutAValueNoFileIsNamed) { EXPECT_EQ(root::RegisteredRootFile(), ""); }

TEST_F(RootRegistry, FileIsNamedByItsFullPath) {
    Set(REG_SZ, L"C:\\Vendors\\Größe.xml");
    EXPECT_EQ(root::RegisteredRootFile(), "C:\\Vendors\\Größe.xml");
}

TEST_F(RootRegistry, VariablesInTheValueAreReplaced) {
    Set(REG_EXPAND_SZ, L"%SystemDrive%\\roots.xml");
    EXPECT_EQ(root::RegisteredRootFile(), "C:\\roots.xml");
}

TEST_F(RootRegistry, PathOfThousandsOfCharactersIsNamed) {
    const std::string path = "C:\\" + std::string(5000, 'x') + ".xml";
    Set(REG_SZ, std::wstring(path.begin(), path.end()));
    EXPECT_EQ(root::RegisteredRootFile(), path);
}

TEST_F(RootRegistry, ValueThatNamesNoFileIsRefusedAndStays) {
    for (const wchar_t* value : {L"", L"roots.xml", L"\\roots.xml", L"C:roots.xml"}) {
        Set(REG_SZ, value);
        const std::string error = ErrorOf(Read);
        EXPECT_NE(error.find("in the registry names no file with its full path"), error.npos);
        EXPECT_EQ(error.find('\n'), error.npos);
    }
    const DWORD number = 7;
    ::RegSetValueExW(key_, kValue, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number),
                     sizeof number);
    EXPECT_NE(ErrorOf(Read), "");
    EXPECT_NE(ErrorOf([] { root::RegisterRootFile("C:\\new.xml"); }), "");
    DWORD type = 0;
    EXPECT_EQ(::RegQueryValueExW(key_, kValue, nullptr, &type, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(type, DWORD{REG_DWORD});
}

TEST_F(RootRegistry, FileIsRegisteredUnlessAnotherIs) {
    root::RegisterRootFile("C:\\first.xml");
    EXPECT_EQ(root::RegisteredRootFile(), "C:\\first.xml");
    root::RegisterRootFile("C:\\second.xml");
    EXPECT_EQ(root::RegisteredRootFile(), "C:\\first.xml");
    root::UnregisterRootFile("C:\\first.xml");  // not where this project makes one
    EXPECT_EQ(root::RegisteredRootFile(), "C:\\first.xml");
}

TEST_F(RootRegistry, UsualFileIsUnregistered) {
    EXPECT_TRUE(root::UsualRootFile().ends_with("\\D-PDU API\\pdu_api_root_x64.xml"));
    root::RegisterRootFile(root::UsualRootFile());
    root::UnregisterRootFile(root::UsualRootFile());
    EXPECT_EQ(root::RegisteredRootFile(), "");
}

}  // namespace
