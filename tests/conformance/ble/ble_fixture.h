#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "conformance/framework/items.h"
#include "conformance/framework/library.h"
#include "conformance/framework/link.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/radio.h"
#include "conformance/framework/settings.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"
#include "conformance/replug/recovery.h"

namespace conformance {

// Simulated dongles in Bluetooth range; only dongle 0 is there at the start. A scan takes two
// seconds, whatever it finds. The library is not constructed yet.
class BleDongles : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(Simulator::IsThere()) << "needs a simulated radio";
        Pdu();
        radio.Reset();
        connections_before = radio.State()["connections"].get<int>();
    }
    void TearDown() override {
        modules.reset();
        Pdu().PDUDestruct();
        EXPECT_TRUE(NoneIsConnected()) << "a dongle is still connected after the library has ended";
        EXPECT_EQ(radio.Violations(), 0u) << radio.Command("violations");
    }

    static void Construct() {
        const Settings settings = {.useBle = true};
        settings.Store();
        ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    }
    // Runs one scan. Returns the number of available modules.
    int Scan() {
        modules = GetModuleIds();
        int count = 0;
        for (UNUM32 i = 0; modules != nullptr && i < modules->NumEntries; ++i)
            count += ModuleStatus(modules->pModuleData[i].hMod) != PDU_MODST_NOT_AVAIL ? 1 : 0;
        return count;
    }
    bool ScanUntil(int count) {
        return Eventually([this, count] { return Scan() == count; });
    }
    // The dongle's module in the last scan, or PDU_HANDLE_UNDEF.
    UNUM32 ModuleOf(int dongle) const {
        for (UNUM32 i = 0; modules != nullptr && i < modules->NumEntries; ++i) {
            const PDU_MODULE_DATA& module = modules->pModuleData[i];
            if (std::strstr(module.pVendorModuleName, Radio::kSerialNumbers[dongle]) != nullptr) {
                return module.hMod;
            }
        }
        return PDU_HANDLE_UNDEF;
    }
    static std::string VinOf(UNUM32 hMod) {
        EngineLink link(hMod);
        const Outcome outcome = link.Request(ReadVin(), PositiveRead());
        return outcome.results.size() == 1 ? Hex(outcome.results[0].data) : "no answer";
    }
    // True for the answer of the demo car's engine control unit to ReadVin.
    static bool IsVin(const std::string& answer) { return answer.starts_with("62 F1 90 57 54 "); }

    // Connections to dongle 0 in this test.
    int Connections() { return radio.State()["connections"].get<int>() - connections_before; }
    bool Logs(const std::string& pattern, std::size_t count = 1) {
        return Eventually([&] { return log.CountLike(pattern) >= count; });
    }
    // For use after the library has ended: a connection thread that it did not wait for disconnects
    // its dongle later.
    bool NoneIsConnected() {
        return Eventually([this] { return radio.Connected() == 0; });
    }

    Radio radio;
    LogCapture log;
    StdoutCapture console;
    int connections_before = 0;
    ItemPtr<PDU_MODULE_ITEM> modules;  // of the last scan
};

// The library is constructed and the dongle found.
class ConnectedBleDongle : public BleDongles {
protected:
    void SetUp() override {
        BleDongles::SetUp();
        Construct();
        ASSERT_TRUE(ScanUntil(1));
        hMod = ModuleOf(0);
        ASSERT_EQ(Pdu().PDUModuleConnect(hMod), PDU_STATUS_NOERROR);
    }

    UNUM32 hMod = PDU_HANDLE_UNDEF;
};

}  // namespace conformance
