#include "conformance/framework/process_end.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

std::atomic<unsigned> requests_started{0};

[[noreturn]] void Fail(const char* why) {
    std::fprintf(stderr, "%s\n", why);
    std::_Exit(EXIT_FAILURE);
}

void RequestAndDestruct() {
    const unsigned begin = requests_started;
    if (!Eventually([begin] { return requests_started - begin >= 100; }))
        Fail("no requests can be started while the process ends");
    if (Pdu().PDUDestruct() != PDU_STATUS_NOERROR) Fail("PDUDestruct failed");
}

}  // namespace

void ExitWhileRequestsRun() {
    if (std::atexit(RequestAndDestruct) != 0) Fail("no exit handler can be registered");
}

void KeepRequesting(UNUM32 hMod) {
    // Never destroyed: the thread uses them beyond the end of main.
    static const Link* const link = new EngineLink(hMod);
    static ControlData* const control = new ControlData(PositiveRead());
    std::thread([] {
        std::vector<UNUM8> request = ReadVin();
        for (;;) {
            UNUM32 hCoP = PDU_HANDLE_UNDEF;
            const T_PDU_ERROR result = Pdu().PDUStartComPrimitive(
                link->hMod(), link->hCLL(), PDU_COPT_SENDRECV, static_cast<UNUM32>(request.size()),
                request.data(), control->Data(), nullptr, &hCoP);
            if (result == PDU_STATUS_NOERROR) ++requests_started;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }).detach();
}

}  // namespace conformance
