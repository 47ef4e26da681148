// Runs the client program with this project's library and a simulated dongle on a serial port.

#ifndef TESTS_DPDU_CAR_RUN_H
#define TESTS_DPDU_CAR_RUN_H

#include <memory>
#include <string>
#include <vector>

#include "client_run.h"
#include "conformance/framework/waiting.h"

std::string Environment(const char* name);

// Writes the library's configuration to the folder provided by the simulator, where it is found.
void ConfigureLibrary();

// With this project's library and --wait 30.
ClientSetup CarSetup(std::vector<std::string> arguments);

// On a busy machine the simulator may miss the 300 ms in which a port must answer. While one of
// these exists, the dongle is then unplugged and plugged in, as a user would do.
class DongleKeeper {
public:
    DongleKeeper();
    ~DongleKeeper() { Stop(); }
    DongleKeeper(const DongleKeeper&) = delete;
    DongleKeeper& operator=(const DongleKeeper&) = delete;

    // From its return on the dongle is left alone.
    void Stop();

private:
    conformance::Gate ended_;
    std::unique_ptr<conformance::Thread> thread_;
};

// Runs it with such a keeper.
ClientResult RunWithCar(const ClientSetup& setup);
ClientResult RunWithCar(const std::vector<std::string>& arguments);

#endif  // TESTS_DPDU_CAR_RUN_H
