// dpdu_completion bash|powershell|zsh: prints the completion script of a shell.

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>

#include "completion/scripts.h"

int main(int count, char** arguments) {
    constexpr struct {
        const char* shell;
        std::string (*script)(const std::vector<dpdu::CommandDescription>&);
    } kScripts[] = {{"bash", dpdu::BashCompletion},
                    {"powershell", dpdu::PowerShellCompletion},
                    {"zsh", dpdu::ZshCompletion}};
    const std::string shell = count == 2 ? arguments[1] : "";
    const auto* const found = std::ranges::find_if(
        kScripts, [&shell](const auto& script) { return shell == script.shell; });
    if (found == std::end(kScripts)) {
        std::fputs("usage: dpdu_completion bash|powershell|zsh\n", stderr);
        return 2;
    }
    const std::string script = found->script(dpdu::DescribeCommands());
    return std::fputs(script.c_str(), stdout) < 0 || std::fflush(stdout) != 0 ? 1 : 0;
}
