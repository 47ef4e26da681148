// Steps that the user types one by one.

#ifndef TOOLS_DPDU_COMMANDS_RUN_PROMPT_H
#define TOOLS_DPDU_COMMANDS_RUN_PROMPT_H

#include "commands/commands.h"
#include "script/runner.h"

namespace dpdu {

script::RunnerOptions RunnerOptionsOf(const RunOptions& options);

// Executes each step, or each block, when its line was typed. A failure of one is reported and does
// not end it; the end of input, a lost module and an interruption do.
ExitCode RunPrompt(const CommonOptions& common, const RunOptions& options, Output* output);

}  // namespace dpdu

#endif  // TOOLS_DPDU_COMMANDS_RUN_PROMPT_H
