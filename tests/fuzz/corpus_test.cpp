#include "fuzz/corpus_test.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/link/fuzz_support.h"
#include "platform/tick.h"
#include "unit/test_support.h"

namespace tarvik::fuzz {

void SilenceOutput() { test::DebugLogPath(); }

namespace {

std::vector<std::uint8_t> BytesOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

TickSource SystemTick() {
    static const TickSource system = [] {
        const TickSource source = SetTickSource([] { return std::uint64_t{0}; });
        SetTickSource(source);
        return source;
    }();
    return system;
}

// Runs with the tick that the target chose when it was initialised. The next target starts with
// the system's again.
class TickScope {
public:
    explicit TickScope(const CorpusTarget& target) {
        static std::map<std::string, TickSource> chosen;
        const auto known = chosen.find(target.name);
        if (known != chosen.end()) {
            SetTickSource(known->second);
            return;
        }
        const TickSource system = SystemTick();
        if (target.initialize != nullptr) target.initialize(nullptr, nullptr);
        const TickSource own = SetTickSource(system);
        SetTickSource(own);
        chosen[target.name] = own;
    }
    ~TickScope() { SetTickSource(SystemTick()); }
    TickScope(const TickScope&) = delete;
    TickScope& operator=(const TickScope&) = delete;
};

class CorpusFile : public testing::Test {
public:
    CorpusFile(const CorpusTarget& target, std::filesystem::path path)
        : target_(target), path_(std::move(path)) {}

    void TestBody() override {
        const std::vector<std::uint8_t> bytes = BytesOf(path_);
        const TickScope tick(target_);
        EXPECT_EQ(target_.run(bytes.data(), bytes.size()), 0);
    }

private:
    const CorpusTarget target_;
    const std::filesystem::path path_;
};

}  // namespace

bool AddCorpus(const CorpusTarget& target) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(target.corpus))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const std::filesystem::path& path : files) {
        testing::RegisterTest(
            target.name, path.filename().string().c_str(), nullptr, nullptr, __FILE__, __LINE__,
            [target, path]() -> testing::Test* { return new CorpusFile(target, path); });
    }
    return !files.empty();
}

}  // namespace tarvik::fuzz
