// The program behind the system's entry point.

#ifndef TOOLS_DPDU_PROGRAM_H
#define TOOLS_DPDU_PROGRAM_H

#include <string>
#include <vector>

namespace dpdu {

// `arguments` begin with the program's name. Returns the exit code.
int RunProgram(const std::vector<std::string>& arguments);

}  // namespace dpdu

#endif  // TOOLS_DPDU_PROGRAM_H
