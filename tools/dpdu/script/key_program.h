// Asks a program of the user for the key to a seed.

#ifndef TOOLS_DPDU_SCRIPT_KEY_PROGRAM_H
#define TOOLS_DPDU_SCRIPT_KEY_PROGRAM_H

#include <chrono>
#include <string>
#include <vector>

#include "text/hex.h"

namespace dpdu::script {

// Starts the program without a shell; one without a folder in its name is looked for where the
// system looks for programs. Its standard input is the seed as one line of hexadecimal digits; it
// prints the key in hexadecimal and ends with exit code 0. Throws Failure if it does not, or if the
// limit passes, after which it is ended, or if the user interrupts.
Bytes KeyOf(const Bytes& seed, const std::string& program,
            const std::vector<std::string>& arguments, std::chrono::milliseconds limit);

}  // namespace dpdu::script

#endif  // TOOLS_DPDU_SCRIPT_KEY_PROGRAM_H
