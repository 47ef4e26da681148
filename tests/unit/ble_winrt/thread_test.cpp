// Threads and apartments, and systems without the runtime classes.

#include <objbase.h>

#include <cstdio>
#include <cstdlib>

#include "unit/ble_winrt/fixture.h"
#include "unit/faults/keep_loaded_fault.h"
#include "unit/test_system.h"

namespace tarvik::test {
namespace {

constexpr APTTYPE kNoApartment = static_cast<APTTYPE>(-1);

// The apartment that the calling thread has entered.
APTTYPE Apartment() {
    APTTYPE type{};
    APTTYPEQUALIFIER qualifier{};
    const bool has_one = SUCCEEDED(::CoGetApartmentType(&type, &qualifier)) &&
                         qualifier != APTTYPEQUALIFIER_IMPLICIT_MTA;
    return has_one ? type : kNoApartment;
}

TEST_F(WinrtRadio, ThreadEntersAndLeavesTheMultithreadedApartment) {
    conformance::Thread([&] {
        radio->EnterThread();
        EXPECT_EQ(Apartment(), APTTYPE_MTA);
        radio->EnterThread();
        radio->LeaveThread();
        EXPECT_EQ(Apartment(), APTTYPE_MTA);
        radio->LeaveThread();
        EXPECT_EQ(Apartment(), kNoApartment);
    }).Join();
}

TEST_F(WinrtRadio, ThreadWithItsOwnApartmentScansAndKeepsIt) {
    conformance::Thread([&] {
        ASSERT_TRUE(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
        const APTTYPE before = Apartment();
        {
            const RuntimeClasses classes_here;
            radio->EnterThread();
            Scan();
            radio->LeaveThread();
        }
        EXPECT_EQ(Apartment(), before);
        ::CoUninitialize();
    }).Join();
}

// The type of the apartment that a thread without one of its own belongs to, or kNoApartment.
APTTYPE ApartmentOfOthers() {
    APTTYPE type = kNoApartment;
    conformance::Thread([&type] {
        APTTYPE found{};
        APTTYPEQUALIFIER qualifier{};
        if (SUCCEEDED(::CoGetApartmentType(&found, &qualifier))) type = found;
    }).Join();
    return type;
}

TEST_F(WinrtDongle, ApartmentRemainsForALostDeviceWhenAllThreadsHaveLeftIt) {
    Connect();
    simulator.Command("lose");
    ASSERT_TRUE(Eventually([&] { return record.Losses() == 1; }));
    radio->LeaveThread();
    EXPECT_EQ(Apartment(), kNoApartment);
    EXPECT_EQ(ApartmentOfOthers(), APTTYPE_MTA);
    radio->EnterThread();
    device.reset();
}

TEST_F(WinrtRadio, ApartmentRemainsWhenTheRadioIsClosed) {
    radio->LeaveThread();
    radio.reset();
    EXPECT_EQ(ApartmentOfOthers(), APTTYPE_MTA);
}

TEST_F(WinrtRadio, KeepsTheLibraryLoadedWhileTheRuntimeHoldsADelegate) {
    Scan();
    ASSERT_TRUE(Eventually([] { return winrt::delegates_alive == 0; }));
    const int before = KeepLoadedCalls();
    radio->LeaveThread();
    radio.reset();
    EXPECT_EQ(KeepLoadedCalls(), before) << "no delegate is left";

    UseRadio(LibraryWinrtLimits());
    auto* held = new winrt::Delegate<int, int>(winrt::kIUnknownIid, [](int, int) {});
    radio->LeaveThread();
    radio.reset();
    EXPECT_EQ(KeepLoadedCalls(), before + 1);
    held->Release();
}

// In its own process: without BRENNIX_RADIO it has no classes, like most systems under Wine.
const ChildBody without_classes("without-runtime-classes", [] {
    const std::unique_ptr<BleRadio> radio = OpenBleRadio();
    radio->EnterThread();
    ScanRecord record;
    std::puts(ErrorOf([&] { radio->CreateScan(record); }).c_str());
    std::puts(ErrorOf([&] { radio->Open(kDongleAddress); }).c_str());
    radio->LeaveThread();
    return 0;
});

TEST(WinrtRadioWithoutClasses, FailsWithAClearText) {
    const std::string radio = std::getenv("BRENNIX_RADIO");
    SetVariable("BRENNIX_RADIO", nullptr);
    const ChildResult result = RunChild("without-runtime-classes");
    SetVariable("BRENNIX_RADIO", radio.c_str());
    EXPECT_EQ(result.exit_code, 0);
    const std::string kLine =
        "Bluetooth LE is not available in this version of Windows (0x80040154)";
    EXPECT_EQ(result.output, kLine + "\n" + kLine + "\n");
}

TEST_F(WinrtDongle, LeavesNoHandlesBehindWhenConnectedAndLost) {
    const auto handles = [] {
        DWORD count = 0;
        ::GetProcessHandleCount(::GetCurrentProcess(), &count);
        return count;
    };
    const auto cycle = [&](int losses) {
        Connect();
        simulator.Command("lose");
        ASSERT_TRUE(Eventually([&] { return record.Losses() == losses; }));
        device.reset();
    };
    for (int i = 1; i <= 3; ++i)
        cycle(i);
    const DWORD before = handles();
    for (int i = 4; i <= 13; ++i)
        cycle(i);
    EXPECT_TRUE(Eventually([&] { return handles() <= before + 2; }));
}

}  // namespace
}  // namespace tarvik::test
