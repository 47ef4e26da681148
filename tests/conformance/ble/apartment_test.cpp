// Windows: the runtime's objects in a program that does not use COM.
#include <windows.h>

#include <objbase.h>

#include "conformance/ble/ble_fixture.h"

namespace conformance {
namespace {

// Whether threads without an apartment of their own belong to one.
bool ProcessHasAnApartment() {
    bool has_one = false;
    Thread([&has_one] {
        APTTYPE type{};
        APTTYPEQUALIFIER qualifier{};
        has_one = SUCCEEDED(::CoGetApartmentType(&type, &qualifier)) && type == APTTYPE_MTA;
    }).Join();
    return has_one;
}

using BleApartment = ConnectedBleDongle;

// The dongle's objects are released by a later scan, and at PDUDestruct after all threads that used
// them.
TEST_F(BleApartment, RemainsWhileADongleIsLostAndWhenTheLibraryHasEnded) {
    radio.Command("lose");
    ASSERT_TRUE(Logs("[BLE] Connection to 02:42:52:4E:58:01 lost"));
    ASSERT_TRUE(Logs("[BLE] TX thread exiting"));
    EXPECT_TRUE(ProcessHasAnApartment());
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    EXPECT_TRUE(ProcessHasAnApartment());
}

}  // namespace
}  // namespace conformance
