// `main` of test programs that run some of their tests in child processes.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <map>

#include "unit/test_system.h"

namespace tarvik::test {
namespace {

std::map<std::string, int (*)()>& Bodies() {
    static std::map<std::string, int (*)()> bodies;
    return bodies;
}

}  // namespace

ChildBody::ChildBody(const char* name, int (*body)()) { Bodies()[name] = body; }

int ChildBody::Run(const std::string& name) {
    const auto found = Bodies().find(name);
    return found == Bodies().end() ? -1 : found->second();
}

}  // namespace tarvik::test

int main(int argc, char** argv) {
    const std::size_t option = std::strlen(tarvik::test::kChildOption);
    if (argc > 1 && std::strncmp(argv[1], tarvik::test::kChildOption, option) == 0) {
        return tarvik::test::ChildBody::Run(argv[1] + option);
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
