// The root file is whole, whatever happens to an installer. Functions of the system that change
// files are replaced in this program. An installer that ends is one of whose later calls none has
// an effect: its handles are then closed, as the system closes those of a process that it has
// ended.

#include <windows.h>
// Other headers need windows.h before them.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "client_run.h"
#include "console/failure.h"
#include "imports_win32.h"
#include "path_text.h"
#include "root/own_entry.h"
#include "root/root_file.h"

namespace {

namespace fs = std::filesystem;
using Content = std::optional<std::string>;  // nothing: there is no file

// ---------------------------------------------------------------- the system's functions

struct Script {
    int end_at = 0;  // the number of the change before which the installer ends
    bool is_full = false;
    bool is_full_in_count = false;  // only the count of bytes says so
    std::wstring fail_rename_to = {};

    int changes = 0;
    bool is_ended = false;
};
Script script;

// False: the installer ends here, or has ended.
bool Goes() {
    if (!script.is_ended) script.is_ended = ++script.changes == script.end_at;
    return !script.is_ended;
}

// The system's own. The table of imports is that of the whole program.
template <typename Function>
Function Own(Function, const char* name) {
    return reinterpret_cast<Function>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), name)));
}
const auto create_file = Own(&::CreateFileW, "CreateFileW");
const auto write_file = Own(&::WriteFile, "WriteFile");
const auto flush_file = Own(&::FlushFileBuffers, "FlushFileBuffers");
const auto move_file = Own(&::MoveFileExW, "MoveFileExW");
const auto delete_file = Own(&::DeleteFileW, "DeleteFileW");

BOOL Fail(DWORD error) {
    ::SetLastError(error);
    return FALSE;
}

HANDLE WINAPI Create(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                     DWORD disposition, DWORD flags, HANDLE like) {
    if (disposition != OPEN_EXISTING && !Goes()) {
        ::SetLastError(ERROR_PROCESS_ABORTED);
        return INVALID_HANDLE_VALUE;
    }
    return create_file(path, access, share, security, disposition, flags, like);
}

BOOL WINAPI Write(HANDLE file, LPCVOID data, DWORD size, LPDWORD count, LPOVERLAPPED overlapped) {
    const bool was_ended = script.is_ended;
    const bool is_full = script.is_full || script.is_full_in_count;
    if (Goes() && !is_full) return write_file(file, data, size, count, overlapped);
    if (!was_ended) write_file(file, data, size / 2, count, overlapped);
    if (script.is_full_in_count) return TRUE;
    return Fail(script.is_full ? ERROR_DISK_FULL : ERROR_PROCESS_ABORTED);
}

BOOL WINAPI Flush(HANDLE file) { return Goes() ? flush_file(file) : Fail(ERROR_PROCESS_ABORTED); }

BOOL WINAPI Move(LPCWSTR from, LPCWSTR to, DWORD flags) {
    if (!Goes()) return Fail(ERROR_PROCESS_ABORTED);
    if (script.fail_rename_to == to) return Fail(ERROR_SHARING_VIOLATION);
    return move_file(from, to, flags);
}

BOOL WINAPI Remove(LPCWSTR path) {
    return Goes() ? delete_file(path) : Fail(ERROR_PROCESS_ABORTED);
}

struct Replacement {
    const char* name;
    void* function;
};
const Replacement kReplacements[] = {
    {"CreateFileW", reinterpret_cast<void*>(&Create)},
    {"WriteFile", reinterpret_cast<void*>(&Write)},
    {"FlushFileBuffers", reinterpret_cast<void*>(&Flush)},
    {"MoveFileExW", reinterpret_cast<void*>(&Move)},
    {"DeleteFileW", reinterpret_cast<void*>(&Remove)},
};

// The functions above in the place of the system's, while it lives.
class Replaced {
public:
    explicit Replaced(const Script& wanted) {
        script = wanted;
        for (const Replacement& row : kReplacements) {
            before_.push_back(ReplaceImport(::GetModuleHandleW(nullptr), row.name, row.function));
            EXPECT_NE(before_.back(), nullptr) << row.name;
        }
    }
    ~Replaced() {
        for (std::size_t i = 0; i < before_.size(); ++i)
            ReplaceImport(::GetModuleHandleW(nullptr), kReplacements[i].name, before_[i]);
    }
    Replaced(const Replaced&) = delete;
    Replaced& operator=(const Replaced&) = delete;

private:
    std::vector<void*> before_;
};

// ---------------------------------------------------------------- the tests

constexpr char kTheirs[] =
    "\xEF\xBB\xBF<?xml version=\"1.0\"?>\r\n<!-- shared -->\r\n<MVCI_PDU_API_ROOT>\r\n"
    "\t<MVCI_PDU_API><SHORT_NAME>A</SHORT_NAME></MVCI_PDU_API>\r\n"
    "\t<MVCI_PDU_API><SHORT_NAME>B</SHORT_NAME></MVCI_PDU_API>\r\n</MVCI_PDU_API_ROOT>";

Content Read(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::nullopt;
    return std::string{std::istreambuf_iterator<char>(file), {}};
}

class RootFileFaults : public testing::Test {
public:
    // The line of a refusal; empty: it was done.
    using Action = std::string (RootFileFaults::*)() const;
    std::string Add() const {
        return Outcome([this] { dpdu::root::AddOwnEntry(TextOf(file_), TextOf(library_)); });
    }
    std::string RemoveEntry() const {
        return Outcome([this] { dpdu::root::RemoveOwnEntry(TextOf(file_)); });
    }

protected:
    void SetUp() override {
        fs::create_directories(folder_);
        fs::create_directories(library_);
        for (const char* name : {dpdu::root::kLibraryFile, "tarvik_mdf.xml", "tarvik_cdf.xml"})
            std::ofstream(library_ / name) << "";
    }
    void TearDown() override { fs::remove_all(base_); }

    void Put(const Content& text) const {
        for (const fs::directory_entry& entry : fs::directory_iterator(folder_))
            fs::remove(entry.path());
        if (text) std::ofstream(file_, std::ios::binary) << *text;
    }
    std::vector<std::string> NamesBeside() const {
        std::vector<std::string> names;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder_))
            names.push_back(TextOf(entry.path().filename()));
        std::ranges::sort(names);
        return names;
    }

    template <typename Call>
    static std::string Outcome(Call call) {
        try {
            call();
            return "";
        } catch (const dpdu::Failure& failure) {
            return failure.what();
        }
    }
    std::string With(const Script& wanted, Action action) const {
        const Replaced replaced(wanted);
        return (this->*action)();
    }

    Content Added(const Content& before) const {
        Put(before);
        EXPECT_EQ(Add(), "");
        return Read(file_);
    }

    void CheckEveryEnd(Action action, const Content& before, const Content& after) const {
        Put(before);
        ASSERT_EQ(With({}, action), "");
        ASSERT_EQ(Read(file_), after);
        const int changes = script.changes;
        ASSERT_GT(changes, 5);
        for (int at = 1; at <= changes; ++at) {
            SCOPED_TRACE("ended at change " + std::to_string(at));
            Put(before);
            With({.end_at = at}, action);
            ASSERT_TRUE(script.is_ended);
            const Content left = Read(file_);
            EXPECT_TRUE(left == before || left == after) << left.value_or("no file");
            const Content copy = Read(backup_);
            EXPECT_TRUE(!copy || copy == before) << *copy;
            EXPECT_EQ((this->*action)(), "");
            EXPECT_EQ(Read(file_), after);
            for (const std::string& name : NamesBeside())
                EXPECT_TRUE(left == after || name == "root.xml" || name == "root.xml.bak") << name;
        }
    }

    const fs::path base_ = PathOf(TemporaryPath("root_file_faults"));
    const fs::path folder_ = base_ / "etc";
    const fs::path library_ = base_ / "lib";
    const fs::path file_ = folder_ / "root.xml";
    const fs::path backup_ = folder_ / "root.xml.bak";
};

TEST_F(RootFileFaults, InstallerThatIsEndedAtAnyChangeLeavesTheOldFileOrTheNew) {
    CheckEveryEnd(&RootFileFaults::Add, kTheirs, Added(kTheirs));
}

TEST_F(RootFileFaults, UninstallerThatIsEndedAtAnyChangeLeavesTheOldFileOrTheNew) {
    CheckEveryEnd(&RootFileFaults::RemoveEntry, Added(kTheirs), kTheirs);
}

TEST_F(RootFileFaults, FirstFileIsThereAsAWholeOrNotAtAll) {
    CheckEveryEnd(&RootFileFaults::Add, std::nullopt, Added(std::nullopt));
}

TEST_F(RootFileFaults, LastFileIsThereAsAWholeOrNotAtAll) {
    CheckEveryEnd(&RootFileFaults::RemoveEntry, Added(std::nullopt), std::nullopt);
}

TEST_F(RootFileFaults, FullDiskChangesNothing) {
    Put(kTheirs);
    for (const Script& disk : {Script{.is_full = true}, Script{.is_full_in_count = true}}) {
        const std::string refusal = With(disk, &RootFileFaults::Add);
        EXPECT_TRUE(refusal.ends_with("; make room and try again; nothing was changed")) << refusal;
        EXPECT_EQ(Read(file_), kTheirs);
        EXPECT_EQ(NamesBeside(), std::vector<std::string>{"root.xml"});
    }
}

TEST_F(RootFileFaults, FileThatCannotBeReplacedStaysAsItIs) {
    Put(kTheirs);
    const std::string refusal =
        With({.fail_rename_to = fs::canonical(file_).wstring()}, &RootFileFaults::Add);
    EXPECT_TRUE(refusal.ends_with("close the program that has it open; it is as it was, and " +
                                  TextOf(fs::canonical(backup_)) + " is a copy of it"))
        << refusal;
    EXPECT_EQ(Read(file_), kTheirs);
    EXPECT_EQ(Read(backup_), kTheirs);
    EXPECT_EQ(NamesBeside(), (std::vector<std::string>{"root.xml", "root.xml.bak"}));
}

}  // namespace
