#include "conformance/framework/process_end.h"

#include "conformance/framework/fresh_process.h"
#include "conformance/framework/radio.h"
#include "conformance/framework/settings.h"

namespace conformance {
namespace {

FRESH_PROCESS_TEST(BleProcessEnd, MayComeWhileRequestsRun) {
    ExitWhileRequestsRun();
    Radio().Reset();
    Settings{.useBle = true}.Store();
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    const UNUM32 hMod = FindModule();
    ASSERT_EQ(Pdu().PDUModuleConnect(hMod), PDU_STATUS_NOERROR);
    KeepRequesting(hMod);
}

}  // namespace
}  // namespace conformance
