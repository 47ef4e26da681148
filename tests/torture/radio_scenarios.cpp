// With a dongle in Bluetooth range.

#include "conformance/framework/radio.h"
#include "conformance/framework/vehicle.h"
#include "torture/modes.h"
#include "torture/session.h"

namespace torture {
namespace {

using conformance::Radio;
using conformance::Settings;

Settings OverBluetooth() { return {.enableDebugLogFile = false, .useBle = true}; }

class BleScanAndConnect : public Session {
public:
    BleScanAndConnect() : Session(OverBluetooth()) {}

    void SetUp() override {
        radio_.Reset();
        Store();
    }
    bool Run() override {
        const bool found = Construct() && FindModule();
        return Destruct() && found;
    }
    void TearDown() override {
        Session::TearDown();
        radio_.Command("violations clear");  // half a packet is one
    }

private:
    Radio radio_;
};

// Request and answer come in several fragments.
class BleFragments : public LinkScenario {
public:
    BleFragments() : LinkScenario(OverBluetooth()) {
        write_.resize(kBytes + 3, 0x55);
        write_[0] = 0x2E;
        write_[1] = 0x01;
        write_[2] = 0x00;
    }

    bool Run() override {
        Answers written;
        Answers read;
        return Await(Start(PDU_COPT_SENDRECV, write_, &control_), &written) &&
               Await(Start(PDU_COPT_SENDRECV, read_, &control_), &read) && written.results == 1 &&
               read.results == 1;
    }
    void TearDown() override {
        LinkScenario::TearDown();
        radio_.Command("violations clear");
    }

protected:
    void ResetDevice() override {
        radio_.Reset();
        radio_.Command("data engine 0100 " + std::string(2 * kBytes, '0'));
    }

private:
    static constexpr std::size_t kBytes = 500;

    Radio radio_;
    std::vector<UNUM8> write_;
    const std::vector<UNUM8> read_ = {0x22, 0x01, 0x00};
    conformance::ControlData control_{conformance::AnyResponse()};
};

const NamedScenario kScenarios[] = {
    {"BleScanAndConnect", Make<BleScanAndConnect>},
    {"BleFragmentsBothWays", Make<BleFragments>},
};

[[maybe_unused]] const bool added = AddCases(kScenarios);

}  // namespace
}  // namespace torture
