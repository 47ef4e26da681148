#pragma once

// The test cases of a program: one for each scenario and kind of fault.

#include <cstddef>

#include "torture/torture.h"

namespace torture {

struct NamedScenario {
    const char* name;
    ScenarioMaker make;
    bool has_peer = false;  // that can go: Scenario::PeerBytes
};

template <typename Kind>
std::unique_ptr<Scenario> Make() {
    return std::make_unique<Kind>();
}

// Adds the cases to GoogleTest's; returns true.
bool AddCases(const NamedScenario* scenarios, std::size_t count);

template <std::size_t count>
bool AddCases(const NamedScenario (&scenarios)[count]) {
    return AddCases(scenarios, count);
}

}  // namespace torture
