#pragma once

#include <gtest/gtest.h>

#include "conformance/framework/library.h"
#include "conformance/framework/link.h"
#include "conformance/framework/settings.h"
#include "conformance/framework/simulator.h"

namespace conformance {

// The library is loaded, not constructed. At the end it is destructed if necessary, and its
// callbacks are deregistered.
class LoadedLibrary : public testing::Test {
protected:
    void SetUp() override {
        Pdu();
        Settings().Store();
    }
    void TearDown() override {
        Pdu().PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, nullptr);
        Pdu().PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, nullptr);
        Pdu().PDUDestruct();
    }
};

// Constructed, without any transport.
class ConstructedLibrary : public LoadedLibrary {
protected:
    void SetUp() override {
        LoadedLibrary::SetUp();
        ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    }
};

// The simulated dongle is plugged in and found on its serial port; the trace is off. The dongle
// checks what it receives strictly; tests that make the library misbehave switch that off.
class SerialDongle : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(Simulator::IsThere()) << "needs a simulated dongle";
        simulator.Reset();
        Construct(FirstSettings());
    }
    void TearDown() override {
        Pdu().PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, nullptr);
        Pdu().PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, nullptr);
        Pdu().PDUDestruct();
        EXPECT_EQ(simulator.Violations(), 0u) << simulator.Command("violations");
    }

    virtual Settings FirstSettings() const { return {.useSerial = true}; }

    // Again, also with other settings, after a PDUDestruct.
    void Construct(const Settings& settings, void* tag = nullptr) {
        Pdu();
        settings.Store();
        ASSERT_EQ(Pdu().PDUConstruct(nullptr, tag), PDU_STATUS_NOERROR);
        hMod = FindModule();
        ASSERT_NE(hMod, PDU_HANDLE_UNDEF);
    }

    Simulator simulator;
    UNUM32 hMod = PDU_HANDLE_UNDEF;
};

// For tests that would write a log of many megabytes. A log file once opened stays open, so these
// tests have a program of their own.
class SerialDongleWithoutLog : public SerialDongle {
protected:
    Settings FirstSettings() const override {
        return {.enableDebugLogFile = false, .useSerial = true};
    }
};

}  // namespace conformance
