// Checks the root file and everything that it names, for the libraries of all vendors.

#ifndef TOOLS_DPDU_CHECK_ROOT_CHECK_H
#define TOOLS_DPDU_CHECK_ROOT_CHECK_H

#include <chrono>
#include <string>
#include <vector>

#include "doctor/finding.h"

namespace dpdu::check {

struct RootCheck {
    std::string file;                        // empty: the machine's
    std::string short_name;                  // empty: every entry
    std::chrono::milliseconds wait{3000};    // how long to look for a module of each library
    std::chrono::milliseconds limit{30000};  // for each call of a library
    bool is_verbose = false;
};

struct EntryReport {
    std::string name;
    Findings findings;
};

struct RootReport {
    std::string file;
    Findings findings;
    std::vector<EntryReport> entries;
};

// Throws Failure if there is no entry of the given name.
RootReport CheckRoot(const RootCheck& check);

}  // namespace dpdu::check

#endif  // TOOLS_DPDU_CHECK_ROOT_CHECK_H
