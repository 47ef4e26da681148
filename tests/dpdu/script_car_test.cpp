// Scripts with this project's library and the demonstration car: each of examples/scripts, and a
// dongle that is pulled out.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "car_run.h"
#include "conformance/framework/simulator.h"
#include "path_text.h"

namespace {

namespace fs = std::filesystem;

std::vector<std::string> ExampleNames() {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(EXAMPLES_FOLDER)) {
        if (entry.path().extension() == ".dpdu") names.push_back(TextOf(entry.path().stem()));
    }
    std::sort(names.begin(), names.end());
    return names;
}

class DpduScriptCar : public testing::Test {
protected:
    static void SetUpTestSuite() { ConfigureLibrary(); }

    static ClientResult Run(const ClientSetup& setup) {
        ClientSetup car = CarSetup(setup.arguments);
        car.input = setup.input;
        return RunWithCar(car);
    }
    // The same for a command that succeeds.
    static ClientResult RunSuccessfully(const std::vector<std::string>& arguments) {
        ClientResult result = RunWithCar(arguments);
        EXPECT_EQ(result.exit_code, kOk) << result.error;
        return result;
    }
};

class ExampleScript : public DpduScriptCar, public testing::WithParamInterface<std::string> {
protected:
    // Some change what the car answers.
    void SetUp() override { conformance::Simulator().Reset(); }
};

TEST_P(ExampleScript, Passes) {
    const std::string path = std::string(EXAMPLES_FOLDER) + "/" + GetParam() + ".dpdu";
    const ClientResult result = RunSuccessfully({"run", path});
    EXPECT_TRUE(Contains(result.output, "passed: ")) << result.output;
    EXPECT_EQ(result.error, "");
}

INSTANTIATE_TEST_SUITE_P(All, ExampleScript, testing::ValuesIn(ExampleNames()),
                         [](const auto& one) { return one.param; });

TEST(ExampleScripts, AreAtLeastTen) { EXPECT_GE(ExampleNames().size(), 10u); }

TEST_F(DpduScriptCar, VinIsPrintedAsText) {
    const ClientResult result =
        RunSuccessfully({"run", std::string(EXAMPLES_FOLDER) + "/read_vin.dpdu", "--quiet"});
    EXPECT_EQ(result.output, "VIN WTVDEM0S1M0000001\n");
}

TEST_F(DpduScriptCar, ThousandRequestsUseOneLink) {
    conformance::Simulator simulator;
    simulator.Reset();
    ClientSetup setup;
    setup.arguments = {"run", "-", "--quiet"};
    setup.input = "repeat 1000\n22 F1 90\nend";
    const ClientResult result = Run(setup);
    EXPECT_EQ(result.exit_code, kOk) << result.error;
    EXPECT_EQ(simulator.Count("in CREQ"), 1000u);
}

TEST_F(DpduScriptCar, DonglePulledOutEndsTheScriptAndSaysSo) {
    conformance::Simulator().Reset();
    ClientSetup setup;
    setup.arguments = {"run", "-", "--quiet", "--p2", "100"};
    setup.input = "repeat 1000000\n22 F1 90\nwait 1ms\nend";
    const conformance::Thread hand([] {
        conformance::Simulator simulator;
        EXPECT_TRUE(simulator.WaitFor(5, "in CREQ"));
        simulator.Unplug();
    });
    const ClientResult result = Run(setup);
    EXPECT_EQ(result.exit_code, kModuleLost) << result.error;
    EXPECT_TRUE(Contains(result.error, "standard input:2: 22 F1 90: ")) << result.error;
    conformance::Simulator().Reset();
}

}  // namespace
