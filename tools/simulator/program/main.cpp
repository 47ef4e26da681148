// brennix-sim: a simulated dongle with a vehicle behind it.

#include <cstdio>
#include <cstring>
#include <exception>

#include "ports/usb_bus.h"
#include "program/options.h"
#include "program/run.h"
#include "vehicle_file/vehicle_file.h"

namespace {

void DescribeVehicles(const brennix::Options& options) {
    for (const std::string& path : options.vehicles) {
        const brennix::DongleSetup setup = brennix::LoadVehicleFile(path);
        std::printf("%s: \"%s\", model %u, %zu control units\n", path.c_str(),
                    setup.identity.name.c_str(), setup.identity.model, setup.control_units.size());
        for (const brennix::ControlUnitSetup& unit : setup.control_units) {
            std::printf(
                "  %-16s %03X -> %03X, %zu data identifiers, %zu trouble codes, %zu answers\n",
                unit.name.c_str(), unit.request_id, unit.response_id, unit.data.size(),
                unit.trouble_codes.size(), unit.rows.size());
        }
        for (const brennix::PeriodicFrame& frame : setup.raw.frames) {
            std::printf("  %-16s raw frame %03X every %u ms\n", frame.name.c_str(), frame.id,
                        frame.period_ms);
        }
    }
}

void DescribeTraces(const brennix::Options& options) {
    if (options.traces.empty()) return;
    for (const brennix::Recording& recording :
         brennix::LoadRecordings(options.traces, options.replay)) {
        std::printf("%s: %s\n", recording.path.c_str(), recording.Summary().c_str());
        for (const brennix::RecordedExchange& exchange : recording.exchanges) {
            std::printf("  line %-6zu %s\n", exchange.line, exchange.Describe().c_str());
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], brennix::kUsbBusArgument) == 0) {
        return brennix::ServeUsbBus();
    }
    int exit_code = 0;
    const std::optional<brennix::Options> options = brennix::ReadOptions(argc, argv, &exit_code);
    if (!options) return exit_code;
    try {
        if (options->check_only) {
            DescribeVehicles(*options);
            DescribeTraces(*options);
            return 0;
        }
        return brennix::SimulatorRun(*options).Run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "brennix-sim: %s\n", error.what());
        return 1;
    }
}
