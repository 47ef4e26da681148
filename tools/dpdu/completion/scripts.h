// Completion scripts for shells, generated from the program's commands.

#ifndef TOOLS_DPDU_COMPLETION_SCRIPTS_H
#define TOOLS_DPDU_COMPLETION_SCRIPTS_H

#include <string>
#include <vector>

#include "options/command_line.h"

namespace dpdu {

std::string BashCompletion(const std::vector<CommandDescription>& commands);
std::string PowerShellCompletion(const std::vector<CommandDescription>& commands);
std::string ZshCompletion(const std::vector<CommandDescription>& commands);

}  // namespace dpdu

#endif  // TOOLS_DPDU_COMPLETION_SCRIPTS_H
