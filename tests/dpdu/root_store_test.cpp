// Changing the root file on disk: "dpdu root" as a user runs it, and the lock between installers.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "client_run.h"
#include "path_text.h"
#include "root/own_entry.h"
#include "root/root_edit.h"
#include "root/root_store.h"

namespace {

namespace fs = std::filesystem;
using dpdu::root::EmptyRootFile;

constexpr char kName[] = "Tarvik_DPDU_API_x64_" DPDU_ENTRY_VERSION;

void Write(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::string Read(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// A folder with a library and its description files, and one for the root file.
class DpduRoot : public testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(Library());
        for (const char* name : {dpdu::root::kLibraryFile, "tarvik_mdf.xml", "tarvik_cdf.xml"})
            Write(Library() / name, "");
        fs::create_directories(Folder());
    }
    void TearDown() override { fs::remove_all(base_); }

    fs::path Library() const { return base_ / "lib"; }
    fs::path Folder() const { return base_ / PathOf(kForeignName); }
    fs::path File() const { return Folder() / "root.xml"; }
    std::vector<std::string> NamesBeside() const {
        std::vector<std::string> names;
        for (const fs::directory_entry& entry : fs::directory_iterator(Folder()))
            names.push_back(TextOf(entry.path().filename()));
        std::ranges::sort(names);
        return names;
    }
    ClientResult Add() const {
        return RunClient({"root", "add", "--folder", TextOf(Library()), "--root", TextOf(File())});
    }
    ClientResult Remove() const { return RunClient({"root", "remove", "--root", TextOf(File())}); }

    const fs::path base_ = PathOf(TemporaryPath("dpdu_root_test"));
};

using Names = std::vector<std::string>;

TEST_F(DpduRoot, FileIsMadeForTheFirstEntryAndRemovedWithIt) {
    EXPECT_EQ(Add().exit_code, kOk);
    const std::string text = Read(File());
    EXPECT_TRUE(Contains(text, std::string("<SHORT_NAME>") + kName + "</SHORT_NAME>")) << text;
    EXPECT_EQ(NamesBeside(), Names{"root.xml"});
    EXPECT_EQ(Remove().exit_code, kOk);
    EXPECT_EQ(NamesBeside(), Names{"root.xml.bak"});
    EXPECT_EQ(Read(Folder() / "root.xml.bak"), text);
}

TEST_F(DpduRoot, SlashAfterTheFolderIsNotDoubled) {
    EXPECT_EQ(
        RunClient({"root", "add", "--folder", TextOf(Library()) + "/", "--root", TextOf(File())})
            .exit_code,
        kOk);
    const std::string text = Read(File());
    EXPECT_TRUE(Contains(text, std::string("/lib/") + dpdu::root::kLibraryFile + "\"/>")) << text;
    EXPECT_TRUE(Contains(Add().output, "is already in"));
}

TEST_F(DpduRoot, OldFileIsKeptAsBackup) {
    const std::string before = "<MVCI_PDU_API_ROOT>\r\n<!-- theirs -->\r\n</MVCI_PDU_API_ROOT>";
    Write(File(), before);
    EXPECT_EQ(Add().exit_code, kOk);
    const std::string added = Read(File());
    EXPECT_EQ(Read(Folder() / "root.xml.bak"), before);
    EXPECT_EQ(Remove().exit_code, kOk);
    EXPECT_EQ(Read(File()), before);
    EXPECT_EQ(Read(Folder() / "root.xml.bak"), added);
    EXPECT_EQ(NamesBeside(), (Names{"root.xml", "root.xml.bak"}));
}

TEST_F(DpduRoot, NothingIsWrittenIfThereIsNothingToChange) {
    Write(File(), "<MVCI_PDU_API_ROOT/>");
    const ClientResult removed = Remove();
    EXPECT_EQ(removed.exit_code, kOk);
    EXPECT_TRUE(Contains(removed.output, "is not in")) << removed.output;
    EXPECT_EQ(NamesBeside(), Names{"root.xml"});

    EXPECT_EQ(Add().exit_code, kOk);
    fs::remove(Folder() / "root.xml.bak");
    const ClientResult again = Add();
    EXPECT_TRUE(Contains(again.output, "is already in")) << again.output;
    EXPECT_EQ(NamesBeside(), Names{"root.xml"});
}

TEST_F(DpduRoot, WhatAnEndedInstallerLeftIsRemoved) {
    Write(File(), "<MVCI_PDU_API_ROOT/>");
    for (const char* name : {"root.xml.dpdu-new", "root.xml.bak.dpdu-new", "root.xml.lock"})
        Write(Folder() / name, "half");
    EXPECT_EQ(Add().exit_code, kOk);
    EXPECT_EQ(NamesBeside(), (Names{"root.xml", "root.xml.bak"}));
}

TEST_F(DpduRoot, DamagedFileIsRefusedInOneLineAndStaysAsItIs) {
    const std::string damaged = "<MVCI_PDU_API_ROOT>\n<MVCI_PDU_API>\n</MVCI_PDU_API_ROOT>";
    Write(File(), damaged);
    for (const ClientResult& result : {Add(), Remove()}) {
        EXPECT_EQ(result.exit_code, kFailure);
        EXPECT_TRUE(IsOneErrorLine(result.error)) << result.error;
        EXPECT_TRUE(
            Contains(result.error, "line 3: mismatched tag; correct it; nothing was changed"))
            << result.error;
    }
    EXPECT_EQ(Read(File()), damaged);
    EXPECT_EQ(NamesBeside(), Names{"root.xml"});
}

TEST_F(DpduRoot, FolderWithoutDescriptionFilesIsRefused) {
    fs::remove(Library() / "tarvik_cdf.xml");
    const ClientResult result = Add();
    EXPECT_EQ(result.exit_code, kFailure);
    EXPECT_TRUE(Contains(result.error, "tarvik_cdf.xml is missing; name the folder"))
        << result.error;
    EXPECT_TRUE(NamesBeside().empty());
}

TEST_F(DpduRoot, FolderInPlaceOfTheFileIsRefused) {
    fs::create_directories(File());
    const ClientResult result = Add();
    EXPECT_EQ(result.exit_code, kFailure);
    EXPECT_TRUE(IsOneErrorLine(result.error)) << result.error;
    EXPECT_EQ(NamesBeside(), Names{"root.xml"});
}

TEST_F(DpduRoot, ListShowsEveryEntryAlsoAsJson) {
    Write(File(),
          "<MVCI_PDU_API_ROOT><MVCI_PDU_API><SHORT_NAME>A</SHORT_NAME>"
          "<SUPPLIER_NAME>Vendor</SUPPLIER_NAME></MVCI_PDU_API></MVCI_PDU_API_ROOT>");
    Add();
    const Json document = Document(RunClient({"root", "list", "--json", "--root", TextOf(File())}));
    ASSERT_EQ(document["entries"].size(), 2u);
    EXPECT_EQ(document["entries"][0]["supplier"], "Vendor");
    EXPECT_EQ(document["entries"][1]["name"], kName);
    const ClientResult text = RunClient({"root", "list", "--root", TextOf(File())});
    EXPECT_TRUE(Contains(text.output, std::string(kName) + "\n  supplier            Tarvik\n"));
}

TEST_F(DpduRoot, FileThatDoesNotExistListsNothing) {
    ExpectOutput(RunClient({"root", "list", "--root", TextOf(File())}),
                 "the root file lists no library\n");
}

// ---------------------------------------------------------------- using what is listed

// A root file with the fake library as that of another vendor, and one that is not there.
class DpduVendor : public DpduRoot {
protected:
    void SetUp() override {
        DpduRoot::SetUp();
        const fs::path fake = fs::absolute(PathOf(FAKE_LIBRARY));
        dpdu::root::Entry entry;
        entry.short_name = "Other_1_0_0";
        entry.supplier = "Other";
        entry.library_uri = dpdu::root::UriOfPath(TextOf(fake));
        const std::string text = dpdu::root::WithEntry(EmptyRootFile(), entry);
        entry = {};
        entry.short_name = "Gone_1_0_0";
        entry.library_uri = "file://host/gone.so";
        Write(File(), dpdu::root::WithEntry(text, entry));
    }
    ClientResult RunWithRoot(std::vector<std::string> arguments) const {
        arguments.insert(arguments.end(), {"--root", TextOf(File())});
        ClientSetup setup;
        setup.arguments = std::move(arguments);
        setup.has_library = false;
        return RunClient(setup);
    }
};

TEST_F(DpduVendor, LibrariesAreListedWithWhetherTheyAreThere) {
    const Json list = Document(RunWithRoot({"libraries", "--json"}))["libraries"];
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0]["name"], "Other_1_0_0");
    EXPECT_EQ(list[0]["supplier"], "Other");
    EXPECT_EQ(list[0]["isThere"], true);
    EXPECT_EQ(list[1]["isThere"], false);
    const ClientResult text = RunWithRoot({"libraries"});
    EXPECT_TRUE(
        text.output.starts_with("NAME         SUPPLIER  THERE  LIBRARY\n"
                                "Other_1_0_0  Other     yes    "))
        << text.output;
    EXPECT_TRUE(Contains(text.output, "no     file://host/gone.so")) << text.output;
}

TEST_F(DpduVendor, InstalledLibraryIsUsedByItsName) {
    const ClientResult result = RunWithRoot({"objects", "HI", "--vendor", "Other_1_0_0", "--json"});
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_EQ(Document(result)["objects"][0]["name"], "HI");
}

TEST_F(DpduVendor, UnknownNameIsRefusedWithThoseThatAreThere) {
    ExpectFailure(RunWithRoot({"modules", "--vendor", "other_1_0_0"}),
                  "no library is installed as 'other_1_0_0'; there are: Other_1_0_0, Gone_1_0_0");
}

TEST_F(DpduVendor, NameThatIsThereTwiceIsRefused) {
    std::string text = Read(File());
    const std::string entry = "<MVCI_PDU_API><SHORT_NAME>Other_1_0_0</SHORT_NAME></MVCI_PDU_API>";
    Write(File(), text.insert(text.find("</MVCI_PDU_API_ROOT>"), entry));
    ExpectFailure(RunWithRoot({"modules", "--vendor", "Other_1_0_0"}),
                  "'Other_1_0_0' is there 2 times in the root file; see dpdu root list");
}

TEST_F(DpduVendor, AddressOfAnotherFormIsRefused) {
    ExpectFailure(
        RunWithRoot({"modules", "--vendor", "Gone_1_0_0"}),
        "the root file has no usable address for 'Gone_1_0_0': 'file://host/gone.so'; it must "
        "begin with file:///");
}

TEST_F(DpduVendor, LibraryAndVendorExcludeEachOther) {
    const ClientResult result = RunClient({"modules", "--library", "x", "--vendor", "y"});
    EXPECT_EQ(result.exit_code, kUsage);
    EXPECT_TRUE(
        Contains(result.error, "--library and --vendor exclude each other; see dpdu modules"))
        << result.error;
}

// ---------------------------------------------------------------- several installers

// Each reads the file, and writes it with one byte more: without the lock bytes would be lost.
TEST_F(DpduRoot, InstallersThatRunAtOnceLoseNothing) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 25;
    const std::string path = TextOf(File());
    Write(File(), "");
    std::vector<std::thread> installers;
    for (int i = 0; i < kThreads; ++i) {
        installers.emplace_back([&path] {
            for (int round = 0; round < kRounds; ++round) {
                const dpdu::root::RootFileLock lock(path);
                const std::string text = *dpdu::root::ReadWholeFile(path);
                dpdu::root::ReplaceWholeFile(path, text, text + "x");
            }
        });
    }
    for (std::thread& installer : installers)
        installer.join();
    EXPECT_EQ(Read(File()), std::string(kThreads * kRounds, 'x'));
    EXPECT_EQ(NamesBeside(), (Names{"root.xml", "root.xml.bak"}));
}

}  // namespace
