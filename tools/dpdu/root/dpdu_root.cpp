// dpdu-root: enters the library into the machine's root file and removes it again, for the scripts
// of packages, which have nothing else of the client.

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "console/failure.h"
#include "root/root_file.h"

namespace {

using namespace dpdu;

constexpr char kUsage[] =
    "usage: dpdu-root add FOLDER [ROOT-FILE]\n"
    "       dpdu-root remove [ROOT-FILE]\n";

int Run(const std::vector<std::string>& words) {
    const bool is_add = !words.empty() && words[0] == "add";
    const bool is_remove = !words.empty() && words[0] == "remove";
    const std::size_t fixed = is_add ? 2 : 1;
    if ((!is_add && !is_remove) || words.size() < fixed || words.size() > fixed + 1) {
        std::fputs(kUsage, stderr);
        return static_cast<int>(ExitCode::kUsage);
    }
    const std::string file = words.size() > fixed ? words[fixed] : "";
    if (is_add) {
        root::AddOwnEntry(file, words[1]);
    } else {
        root::RemoveOwnEntry(file);
    }
    return static_cast<int>(ExitCode::kOk);
}

}  // namespace

int main(int count, char** arguments) {
    try {
        return Run({arguments + 1, arguments + count});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "dpdu-root: %s\n", error.what());
        return static_cast<int>(ExitCode::kFailure);
    }
}
