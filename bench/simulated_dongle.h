#pragma once

namespace tarvik::bench {

// Starts this program over as the command of the simulator, unless it runs there already: the
// library then finds a dongle on a mocked USB port. Call it first of all.
void RunUnderSimulator(char** argv);

}  // namespace tarvik::bench
