#pragma once

// Raw CAN links for tests, and the bus of the simulated dongle.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/link.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/waiting.h"

namespace conformance {

inline constexpr UNUM8 kRaw = 0x80;
inline constexpr UNUM8 kRawWithChecksum = 0xC0;

inline std::vector<UNUM8> FrameBytes(UNUM32 id, const std::vector<UNUM8>& data) {
    std::vector<UNUM8> bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<UNUM8>(id >> shift));
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

// A frame delivered by a link.
struct Received {
    UNUM32 hCoP;
    Result result;
    void* tag;
};

// A connected link in raw mode.
class RawLink : public Link {
public:
    explicit RawLink(UNUM32 module, void* tag = nullptr) : Link(module, tag, kRaw) {
        Connect();
        DropEvents();
    }

    UNUM32 Send(UNUM32 id, const std::vector<UNUM8>& data, ControlData& control) {
        return Start(PDU_COPT_STARTCOMM, FrameBytes(id, data), control.Data());
    }
    void Send(UNUM32 id, const std::vector<UNUM8>& data) {
        ControlData control({}, 1, 0);
        Send(id, data, control);
    }

    // Starts a ComPrimitive that receives from now on, and takes its status items.
    UNUM32 Receive(SNUM32 cycles = -1, void* tag = nullptr) {
        ControlData control({}, 1, cycles);
        const UNUM32 hCoP = Start(PDU_COPT_SENDRECV, {}, control.Data(), tag);
        const Outcome outcome = WaitFor(hCoP);
        EXPECT_EQ(outcome.states, (std::vector<UNUM32>{PDU_COPST_EXECUTING, PDU_COPST_FINISHED}));
        EXPECT_TRUE(outcome.errors.empty());
        return hCoP;
    }

    // The next frames; fewer if not all arrive.
    std::vector<Received> TakeFrames(std::size_t count) {
        std::vector<Received> frames;
        EXPECT_TRUE(Eventually([&] {
            while (const auto event = NextEvent(hMod(), hCLL())) {
                if (event->ItemType != PDU_IT_RESULT) continue;
                frames.push_back({event->hCop, ResultOf(*event), event->pCoPTag});
                if (frames.size() == count) return true;
            }
            return false;
        })) << frames.size()
            << " of " << count << " frames arrived";
        return frames;
    }
    // The next frame; empty, besides failing the test, if none arrives.
    Received TakeFrame() {
        const std::vector<Received> frames = TakeFrames(1);
        return frames.empty() ? Received{} : frames[0];
    }
    // The next frames as hex.
    std::vector<std::string> TakeHex(std::size_t count) {
        std::vector<std::string> texts;
        for (const Received& frame : TakeFrames(count))
            texts.push_back(Hex(frame.result.data));
        return texts;
    }
};

inline std::string Hex(const Received& frame) { return Hex(frame.result.data); }

inline std::string CopLine(const std::string& before, UNUM32 hCoP, const std::string& after = "") {
    return before + std::to_string(hCoP) + after;
}

class RawDongle : public SerialDongle {
protected:
    // Puts a frame on the bus; reception must be on.
    void FrameOnBus(const std::string& id_and_data) {
        EXPECT_EQ(simulator.Command("raw send " + id_and_data), "1") << "reception is off";
    }
    // Sends a RAWC with any payload from the dongle.
    void Inject(const std::string& payload) { simulator.Command("packet RAWC " + payload); }

    bool IsReceptionOn() {
        return nlohmann::json::parse(simulator.Command("raw"))["listeners"].get<int>() > 0;
    }
    bool WaitForReception(bool on) {
        return Eventually([&] { return IsReceptionOn() == on; });
    }
    // Starts a ComPrimitive that receives, and returns when the dongle's reception is on.
    UNUM32 StartReception(RawLink* link, SNUM32 cycles = -1, void* tag = nullptr) {
        const UNUM32 hCoP = link->Receive(cycles, tag);
        EXPECT_TRUE(WaitForReception(true));
        return hCoP;
    }
    // RAWC packets from the library, oldest first: identifier, count, flags and data as hex.
    std::vector<std::string> Sent(std::uint64_t count) {
        EXPECT_TRUE(simulator.WaitFor(count, "in RAWC"));
        std::vector<std::string> packets;
        for (const auto& entry : simulator.Last(count, "in RAWC")) {
            const std::string hex = entry["hex"];
            packets.push_back(hex.substr(16, 8) + " " + hex.substr(24, 4) + " " +
                              hex.substr(28, 4) + " " + hex.substr(32));
        }
        return packets;
    }
};

inline const std::string kReceptionOn = "00000000 0000 0100 0000000000000000";
inline const std::string kReceptionOff = "00000000 0000 0200 0000000000000000";

}  // namespace conformance
