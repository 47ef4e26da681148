// dpdu_completion bash|zsh: prints the completion script of a shell.

#include <cstdio>
#include <string>

#include "completion/scripts.h"

int main(int count, char** arguments) {
    const std::string shell = count == 2 ? arguments[1] : "";
    if (shell != "bash" && shell != "zsh") {
        std::fputs("usage: dpdu_completion bash|zsh\n", stderr);
        return 2;
    }
    const auto commands = dpdu::DescribeCommands();
    const std::string script =
        shell == "bash" ? dpdu::BashCompletion(commands) : dpdu::ZshCompletion(commands);
    return std::fputs(script.c_str(), stdout) < 0 || std::fflush(stdout) != 0 ? 1 : 0;
}
